#include "difference.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "exchange_file.h"
#include "exit_status.h"
#include "key_check.h"
#include "leaf/owned_fd.h"
#include "pager.h"
#include "question.h"
#include "schema/check.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

void collect_lines(const TiXmlElement& element, const std::string& path, line_map& line_of) {
    line_of.emplace(path, static_cast<std::size_t>(element.Row()));
    for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        collect_lines(*child, path + "." + schema::client_name(child->ValueStr()), line_of);
    }
}

// Where the settings of an exchange file stand.
void collect_lines(const std::string& text, line_map& line_of) {
    TiXmlDocument file;
    std::string problem;
    std::size_t line = 0;
    if (!schema::read_document(text, file, problem, line) || file.RootElement() == nullptr) {
        return;
    }
    for (const TiXmlElement* document = file.RootElement()->FirstChildElement();
         document != nullptr; document = document->NextSiblingElement()) {
        collect_lines(*document, document->ValueStr(), line_of);
    }
}

}  // namespace

int read_settings_file(context& tool, const std::string& file, setting_map& settings,
                       line_map* line_of) {
    std::string text;
    if (!read_input(file, text)) {
        return tool.fail_file(file);
    }
    setting_list lines;
    const std::size_t first = text.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
    if (first != std::string::npos && text[first] == '<') {
        const std::size_t longest = longest_stored_secret(text);
        const int status = longest > 0 ? check_key(tool, file, longest) : exit_done;
        if (status != exit_done) {
            return status;
        }
        if (!parse_exchange_text(text, lines)) {
            return tool.fail_with(exit_refused, file, "does not parse as XML");
        }
        if (line_of != nullptr) {
            collect_lines(text, *line_of);
        }
    } else {
        std::size_t bad = 0;
        if (!parse_lines(text, tool.null_separated, lines, bad)) {
            return tool.fail_with(exit_refused, file,
                                  "line " + std::to_string(bad) + " has no '='");
        }
    }
    for (const setting& one : lines) {
        if (has_blank_at_end(one.path)) {
            return tool.fail_with(exit_refused, file,
                                  "\"" + one.path + "\" has a blank beside its \"=\"");
        }
        if (line_of != nullptr && one.line != 0) {
            line_of->emplace(one.path, one.line);
        }
    }
    settings = by_path(lines);
    return exit_done;
}

int read_running(context& tool, const std::string& path, setting_map& settings) {
    setting_list list;
    const int32_t result = read_place(tool, path, list);
    if (result < 0) {
        return tool.fail(path.empty() ? "*" : path, result);
    }
    if (list.empty() && !path.empty() && path != "*") {
        return tool.fail_with(exit_empty, path, "there is no setting at this place or below");
    }
    settings = by_path(list);
    return exit_done;
}

std::string difference_text(const context& tool, const std::vector<setting_change>& changes) {
    std::string text;
    for (const setting_change& change : changes) {
        const bool hidden = !tool.reveal && is_secret_path(change.path);
        const auto side = [&](const char* sign, const char* colour, const std::string* value) {
            if (value != nullptr) {
                std::string line = sign + change.path;
                line += '=';
                line += hidden ? std::string(masked_value) : *value;
                text += tool.coloured(colour, line);
                text += '\n';
            }
        };
        side("-", "31", change.before);
        side("+", "32", change.after);
    }
    return text;
}

json difference_json(const context& tool, const std::vector<setting_change>& changes) {
    json list = json::array();
    for (const setting_change& change : changes) {
        const auto side = [&](const std::string* value) {
            return value != nullptr ? json(shown_value({change.path, *value}, tool.reveal))
                                    : json(nullptr);
        };
        const char* kind = change.before == nullptr  ? "added"
                           : change.after == nullptr ? "removed"
                                                     : "changed";
        list.push_back({{"path", change.path},
                        {"change", kind},
                        {"before", side(change.before)},
                        {"after", side(change.after)}});
    }
    return list;
}

setting_list new_settings(const std::vector<setting_change>& changes) {
    setting_list added;
    for (const setting_change& change : changes) {
        if (change.before == nullptr && change.after != nullptr) {
            added.push_back({change.path, *change.after});
        }
    }
    return added;
}

setting_list written_settings(const std::vector<setting_change>& changes, const line_map& lines) {
    setting_list written;
    for (const setting_change& change : changes) {
        if (change.after != nullptr) {
            const auto found = lines.find(change.path);
            written.push_back(
                {change.path, *change.after, found != lines.end() ? found->second : 0});
        }
    }
    return written;
}

void print_difference(context& tool, const std::vector<setting_change>& changes) {
    if (!tool.print_for_programs(difference_json(tool, changes))) {
        tool.print(difference_text(tool, changes));
    }
}

std::string snapshot_text(const setting_map& settings) {
    std::string text = "# Snapshot of settings; secrets are in plain text.\n";
    for (const auto& [path, value] : settings) {
        if (value.find('\n') != std::string::npos) {
            continue;  // no request can write such a value back
        }
        text += path;
        text += '=';
        text += value;
        text += '\n';
    }
    return text;
}

bool write_private_file(const std::string& file, const std::string& text) {
    struct stat status {};
    if (stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {  // /dev/null, a FIFO
        owned_fd fd(open(file.c_str(), O_WRONLY | O_CLOEXEC));
        return fd && write_whole(fd.get(), text) && fd.close() == 0;
    }
    const std::string aside = file + ".new";
    (void)unlink(aside.c_str());
    owned_fd fd(open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd || !write_whole(fd.get(), text) || fsync(fd.get()) != 0 || fd.close() != 0) {
        return false;
    }
    if (rename(aside.c_str(), file.c_str()) != 0) {
        return false;
    }
    // A power cut must not bring back what was there before, or nothing.
    const std::size_t slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    const owned_fd directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory && fsync(directory.get()) == 0;
}

}  // namespace veltrancord::tool
