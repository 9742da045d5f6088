#include "history.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "context.h"
#include "leaf/whole_io.h"
#include "state_folder.h"

namespace veltrancord::tool {
namespace {

constexpr mode_t group_writable = 0660;

// Far above what a mebibyte of changes a day comes to, and with room for the next one: others of
// the group write to the file, too.
constexpr int64_t highest_number = int64_t{1} << 53;

// Whoever holds a lock of the folder for longer must not hold a change up: it goes unrecorded.
constexpr int longest_wait = 5000;  // milliseconds
constexpr int look_again = 10;

// Return: false with errno set, EWOULDBLOCK where another has held it for all that time.
bool lock_in_time(int fd, int mode) {
    for (int waited = 0;; waited += look_again) {
        if (flock(fd, mode | LOCK_NB) == 0) {
            return true;
        }
        if ((errno != EWOULDBLOCK && errno != EINTR) || waited >= longest_wait) {
            return false;
        }
        (void)usleep(look_again * 1000);
    }
}

// Opens a file of the folder, made for the folder's group if need be. A link or what is no plain
// file is refused: others write to the folder, too.
owned_fd open_shared(const std::string& folder, const char* name, int flags) {
    owned_fd file(open((folder + name).c_str(),
                       flags | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, group_writable));
    struct stat found {};
    struct stat around {};
    if (!file || fstat(file.get(), &found) != 0 || stat(folder.c_str(), &around) != 0) {
        return {};
    }
    if (!S_ISREG(found.st_mode) || found.st_nlink > 1) {
        errno = EPERM;
        return {};
    }
    // Where its maker is not of the folder's group, the folder is no shared one.
    if (found.st_uid == geteuid() && (found.st_mode & 0777) != group_writable &&
        fchown(file.get(), static_cast<uid_t>(-1), around.st_gid) == 0) {
        (void)fchmod(file.get(), group_writable);
    }
    return file;
}

std::string history_folder() {
    const std::string folder = shared_state_folder();
    return folder.empty() ? folder : folder + "/";
}

bool is_text(const std::string& bytes) {
    try {
        (void)json(bytes).dump();
        return true;
    } catch (const json::exception&) {
        return false;
    }
}

json to_json(const recorded_difference& one) {
    json object = {{"path", one.path}};
    const bool kept = is_text(one.path) && is_text(one.before.value_or(""));
    const auto side = [](const std::optional<std::string>& value) {
        return value ? json(*value) : json(nullptr);
    };
    object["before"] = side(one.before);
    object["after"] = side(one.after);
    if (one.attribute) {
        object["attribute"] = true;
    }
    if (one.lost || !kept) {
        object["lost"] = true;
    }
    if (!one.made.empty()) {
        object["made"] = one.made;
    }
    return object;
}

std::string line_of(const history_entry& entry) {
    json differences = json::array();
    std::size_t length = 0;
    bool cut = entry.cut;
    for (const recorded_difference& one : entry.differences) {
        length += one.path.size() + one.before.value_or("").size() + one.after.value_or("").size();
        if (length > entry_bound) {
            cut = true;
            break;
        }
        differences.push_back(to_json(one));
    }
    json object = {{"number", entry.number},
                   {"time", entry.time},
                   {"user", entry.user},
                   {"command", entry.command}};
    if (entry.memory) {
        object["memory"] = true;
    }
    if (entry.undoes != 0) {
        object["undoes"] = entry.undoes;
    }
    if (entry.forced) {
        object["forced"] = true;
    }
    if (cut) {
        object["cut"] = true;
    }
    object["changes"] = differences;
    return one_line(object) + "\n";
}

std::optional<std::string> side_of(const json& object, const char* name) {
    const json& value = object.at(name);
    return value.is_null() ? std::nullopt : std::optional(value.get<std::string>());
}

// Return: false where the line is no entry.
bool parse_entry(const std::string& line, history_entry& entry) {
    try {
        const json object = json::parse(line);
        entry.number = object.at("number").get<int64_t>();
        entry.time = object.at("time").get<int64_t>();
        entry.user = object.at("user").get<std::string>();
        entry.command = object.at("command").get<std::string>();
        entry.memory = object.value("memory", false);
        entry.undoes = object.value("undoes", int64_t{0});
        entry.forced = object.value("forced", false);
        entry.cut = object.value("cut", false);
        for (const json& one : object.at("changes")) {
            entry.differences.push_back({one.at("path").get<std::string>(),
                                         one.value("attribute", false), side_of(one, "before"),
                                         side_of(one, "after"), one.value("lost", false),
                                         one.value("made", std::string())});
        }
        return entry.number > 0 && entry.number <= highest_number;
    } catch (const json::exception&) {
        return false;
    }
}

std::vector<history_entry> parse_entries(const std::string& text) {
    std::vector<history_entry> entries;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        history_entry entry;
        if (parse_entry(text.substr(start, end - start), entry)) {
            entries.push_back(std::move(entry));
        }
        start = end + 1;
    }
    return entries;
}

// The number of the last entry of the text, or 0.
int64_t last_number(const std::string& text) {
    std::size_t end = text.size();
    while (end > 0) {
        const std::size_t feed = end > 1 ? text.rfind('\n', end - 2) : std::string::npos;
        const std::size_t start = feed == std::string::npos ? 0 : feed + 1;
        history_entry entry;
        if (parse_entry(text.substr(start, end - start), entry)) {
            return entry.number;
        }
        end = start;
    }
    return 0;
}

// The newest lines of the text that come to half the bound.
std::string newer_half(const std::string& text) {
    if (text.size() <= history_bound / 2) {
        return text;
    }
    const std::size_t feed = text.find('\n', text.size() - history_bound / 2);
    return feed == std::string::npos ? std::string() : text.substr(feed + 1);
}

// Puts the text in the history's place in one step.
bool replace_history(const std::string& folder, const std::string& text) {
    const std::string aside = folder + "history.new";
    (void)unlink(aside.c_str());
    owned_fd file = open_shared(folder, "history.new", O_WRONLY | O_EXCL);
    return file && write_whole(file.get(), text) && fsync(file.get()) == 0 && file.close() == 0 &&
           rename(aside.c_str(), (folder + "history").c_str()) == 0;
}

// A history that is not there is an empty one.
bool read_text(const std::string& folder, std::string& text) {
    const owned_fd file(
        open((folder + "history").c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT;
    }
    text.resize(2 * history_bound);
    const ssize_t count = read_whole(file.get(), text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return count >= 0;
}

}  // namespace

bool read_history(std::vector<history_entry>& entries) {
    const std::string folder = history_folder();
    std::string text;
    if (folder.empty() || !read_text(folder, text)) {
        return false;
    }
    entries = parse_entries(text);
    return true;
}

bool append_to_history(history_entry& entry) {
    const std::string folder = history_folder();
    if (folder.empty()) {
        return false;
    }
    const owned_fd lock = open_shared(folder, "history.lock", O_RDWR);
    std::string text;
    if (!lock || !lock_in_time(lock.get(), LOCK_EX) || !read_text(folder, text)) {
        return false;
    }
    entry.number = last_number(text) + 1;
    std::string line = line_of(entry);
    if (!text.empty() && text.back() != '\n') {
        line.insert(0, "\n");  // a power cut has left part of a line
    }
    if (text.size() + line.size() > history_bound) {
        return replace_history(folder, newer_half(text) + line);
    }
    owned_fd file = open_shared(folder, "history", O_WRONLY | O_APPEND);
    return file && write_whole(file.get(), line) && file.close() == 0;
}

owned_fd lock_changes(change_lock_mode mode) {
    const std::string folder = history_folder();
    owned_fd lock = folder.empty() ? owned_fd() : open_shared(folder, "changes.lock", O_RDWR);
    if (lock && !lock_in_time(lock.get(), mode == change_lock_mode::shared ? LOCK_SH : LOCK_EX)) {
        lock.reset();
    }
    return lock;
}

}  // namespace veltrancord::tool
