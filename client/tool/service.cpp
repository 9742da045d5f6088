#include "service.h"

#include <array>
#include <map>
#include <set>

#include "encoding/escape.h"

namespace veltrancord::tool {

int32_t get_value(context& tool, const std::string& path, std::string& value) {
    // The largest value that can be written fits; a file may hold larger ones.
    std::string buffer(VELTRANCORD_MAX_VALUE + 1, '\0');
    veltrancord_client& client = tool.client();
    int32_t result = veltrancord_get(&client, path.c_str(), buffer.data(), buffer.size());
    if (result == VELTRANCORD_REPLY_OVER_CAP && client.error.found < reply_cap) {
        buffer.resize(client.error.found + 1);
        result = veltrancord_get(&client, path.c_str(), buffer.data(), buffer.size());
    }
    if (result >= 0) {
        value.assign(buffer, 0, buffer.find('\0'));
    }
    return result;
}

bool is_subtree(std::string_view path) {
    return path == "*" || (path.size() > 1 && path.substr(path.size() - 2) == ".*");
}

bool lies_at(const std::string& path, const std::string& place) {
    return place.empty() || place == "*" || path == place ||
           path.starts_with(is_subtree(place) ? place.substr(0, place.size() - 1) : place + ".");
}

namespace {

// The components of a path without a wildcard, joined with single dots, as they stand and as the
// service answers them.
struct prefix_pair {
    std::string plain;
    std::string escaped;
};

prefix_pair prefixes_of(std::string_view path) {
    prefix_pair pair;
    while (!path.empty()) {
        const std::size_t dot = path.find('.');
        const std::string_view component = path.substr(0, dot);
        path.remove_prefix(dot == std::string_view::npos ? path.size() : dot + 1);
        if (component.empty() || component == "*") {
            continue;
        }
        std::array<char, 3 * VELTRANCORD_MAX_READ_PATH + 1> escaped{};
        url_encode(escaped.data(), escaped.size(), component);
        if (!pair.plain.empty()) {
            pair.plain += '.';
            pair.escaped += '.';
        }
        pair.plain.append(component);
        pair.escaped.append(escaped.data());
    }
    return pair;
}

}  // namespace

int32_t read_subtree(context& tool, const std::string& path, setting_list& settings) {
    const prefix_pair prefix = prefixes_of(path);
    const std::string asked = prefix.plain.empty() ? "*" : prefix.plain + ".*";
    owned_reply reply;
    const int32_t result = veltrancord_read(&tool.client(), asked.c_str(), reply.get());
    if (result < 0) {
        return result;
    }
    settings = parse_settings(reply.text());
    for (setting& one : settings) {
        if (!prefix.plain.empty() &&
            one.path.compare(0, prefix.escaped.size(), prefix.escaped) == 0) {
            one.path.replace(0, prefix.escaped.size(), prefix.plain);
        }
    }
    return VELTRANCORD_OK;
}

int32_t read_place(context& tool, const std::string& path, setting_list& settings) {
    const int32_t result = read_subtree(tool, path, settings);
    if (result < 0 || path.empty() || is_subtree(path)) {
        return result;
    }
    setting own{path, ""};
    const int32_t found = get_value(tool, path, own.value);
    if (found >= 0) {
        settings.insert(settings.begin(), std::move(own));
    }
    return found < 0 && found != VELTRANCORD_NOT_FOUND ? found : VELTRANCORD_OK;
}

int32_t write_settings(context& tool, const setting_list& settings, bool memory_only) {
    std::vector<veltrancord_setting> lines;
    lines.reserve(settings.size());
    for (const setting& one : settings) {
        lines.push_back({one.path.c_str(), one.value.c_str()});
    }
    const int32_t result =
        memory_only ? veltrancord_write_memory(&tool.client(), lines.data(), lines.size())
                    : veltrancord_write(&tool.client(), lines.data(), lines.size());
    for (const setting& one : settings) {
        if (result >= 0 && loses_blanks(one)) {
            context::note(one.path +
                          ": blanks at the ends of a value, and all but one in a row, are gone "
                          "after the next start of the service");
        }
    }
    return result;
}

int32_t look_for(context& tool, const std::string& path) {
    owned_reply reply;
    const int32_t result =
        veltrancord_read_attributes(&tool.client(), (path + ".#").c_str(), reply.get());
    return result < 0 ? result : VELTRANCORD_OK;
}

bool is_there(context& tool, const std::string& path) {
    const veltrancord_error error = tool.client().error;
    const bool found = look_for(tool, path) >= 0;
    tool.client().error = error;
    return found;
}

namespace {

// Whether the service holds this setting as it was to be written.
bool is_held(context& tool, const setting& one) {
    std::string value;
    if (get_value(tool, one.path, value) >= 0) {
        return value == one.value;
    }
    return one.value.empty() && is_there(tool, one.path);
}

// How many lines hold for certain: all before the first whose place has another value, and is not
// written again further on. The service stops at the first line that fails, and undoes none.
std::size_t count_holding(context& tool, const setting_list& settings) {
    std::map<std::string, std::size_t> last;  // the last line of each place
    for (std::size_t index = 0; index < settings.size(); ++index) {
        last[settings[index].path] = index;
    }
    std::set<std::string> wrong;  // places among the lines so far that hold something else
    std::size_t holding = 0;
    for (std::size_t index = 0; index < settings.size(); ++index) {
        const setting& one = settings[index];
        if (is_held(tool, one)) {
            wrong.erase(one.path);
        } else if (last[one.path] == index) {
            break;
        } else {
            wrong.insert(one.path);
        }
        if (wrong.empty()) {
            holding = index + 1;
        }
    }
    return holding;
}

}  // namespace

int explain_failed_write(context& tool, const setting_list& settings, int32_t result) {
    const veltrancord_error error = tool.client().error;
    if (result <= VELTRANCORD_INVALID_USE) {
        const std::size_t index = error.index < settings.size() ? error.index : 0;
        const int status = tool.fail(settings[index].path, result);
        if (settings.size() > 1) {
            context::note("nothing was sent");
        }
        return status;
    }
    if (result <= VELTRANCORD_UNREACHABLE) {
        return tool.fail_change(settings.front().path, result);  // nobody could say what holds
    }
    const std::size_t holding = count_holding(tool, settings);
    tool.client().error = error;
    const std::size_t failed = holding < settings.size() ? holding : settings.size() - 1;
    const int status = tool.fail(settings[failed].path, result);
    if (settings.size() > 1) {
        std::string text = "of " + std::to_string(settings.size()) + " lines ";
        text += holding == 0
                    ? "none certainly holds"
                    : "the first " + std::to_string(holding) +
                          " certainly hold, the last of them " + settings[holding - 1].path;
        context::note(text);
    }
    return status;
}

}  // namespace veltrancord::tool
