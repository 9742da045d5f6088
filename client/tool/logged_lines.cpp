#include "logged_lines.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "exit_status.h"
#include "leaf/owned_fd.h"

namespace veltrancord::tool {
namespace {

constexpr std::size_t longest_line = std::size_t{64} << 10U;

// The unit's name and the way that an entry took are the journal's own knowledge: what a client has
// the service print can never pass for a record. The other match is for a service that no unit has
// started; there only root's programs are believed.
constexpr const char* journal_of_records =
    "exec journalctl --no-pager --quiet --all --output=json --output-fields=MESSAGE "
    "_SYSTEMD_UNIT=veltrancord.service _TRANSPORT=syslog + "
    "_COMM=Veltrancord _UID=0 _TRANSPORT=syslog";
constexpr const char* journal_of_messages =
    "exec journalctl --no-pager --quiet --all --output=json --output-fields=MESSAGE "
    "_SYSTEMD_UNIT=veltrancord.service _TRANSPORT=stdout";

// The message of an entry as journald prints it: a text, or a list of bytes where it is no UTF-8.
std::string message_of(std::string_view entry) {
    const json object = json::parse(entry, nullptr, false);
    std::string text;
    if (!object.is_object() || !object.contains("MESSAGE")) {
        return text;
    }
    const json& message = object["MESSAGE"];
    if (message.is_string()) {
        return message.get<std::string>();
    }
    if (message.is_array()) {
        for (const json& byte : message) {
            text += byte.is_number_integer() ? static_cast<char>(byte.get<int>()) : '?';
        }
    }
    return text;
}

// Cuts what is read into lines.
class line_cutter {
  public:
    explicit line_cutter(const std::function<void(const logged_line&)>& take) : take_(take) {}

    void add(std::string_view part) {
        while (!part.empty()) {
            const std::size_t end = part.find('\n');
            const bool whole = end != std::string_view::npos;
            keep(part.substr(0, end));
            part.remove_prefix(whole ? end + 1 : part.size());
            if (whole) {
                finish();
            }
        }
    }

    void finish() {
        if (!too_long_ && !line_.empty()) {
            const bool entry = line_.front() == '{';
            const std::string message = entry ? message_of(line_) : std::string();
            take_({entry ? message : line_, entry});
        }
        line_.clear();
        too_long_ = false;
    }

  private:
    void keep(std::string_view part) {
        too_long_ = too_long_ || line_.size() + part.size() > longest_line;
        if (!too_long_) {
            line_.append(part);
        }
    }

    const std::function<void(const logged_line&)>& take_;
    std::string line_;
    bool too_long_ = false;
};

// Return: false with errno set.
bool cut_lines(int fd, line_cutter& cutter) {
    std::array<char, 65536> part{};
    for (;;) {
        const ssize_t count = read(fd, part.data(), part.size());
        if (count > 0) {
            cutter.add({part.data(), static_cast<std::size_t>(count)});
        } else if (count == 0) {
            cutter.finish();
            return true;
        } else if (errno != EINTR) {
            return false;
        }
    }
}

int read_journal(context& tool, said_by kind, line_cutter& cutter) {
    const char* const command = kind == said_by::record ? journal_of_records : journal_of_messages;
    FILE* const journal = popen(command, "re");  // NOLINT(cert-env33-c): no word of a user's
    if (journal == nullptr) {
        return tool.fail_file("journalctl");
    }
    const bool whole = cut_lines(fileno(journal), cutter);
    const int status = pclose(journal);
    // It ends with 1 where it has found nothing.
    const bool ran = WIFEXITED(status) && WEXITSTATUS(status) <= 1;
    if (whole && ran) {
        return exit_done;
    }
    return tool.fail_with(exit_failed, "journalctl",
                          "the journal cannot be read; --file names the file of a syslog");
}

}  // namespace

int for_each_logged_line(context& tool, const std::string& file, said_by kind,
                         const std::function<void(const logged_line&)>& take) {
    line_cutter cutter(take);
    if (file.empty()) {
        return read_journal(tool, kind, cutter);
    }
    owned_fd opened;
    if (file != "-") {
        opened = owned_fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
        if (!opened) {
            return tool.fail_file(file);
        }
    }
    return cut_lines(file == "-" ? STDIN_FILENO : opened.get(), cutter)
               ? static_cast<int>(exit_done)
               : tool.fail_file(file);
}

}  // namespace veltrancord::tool
