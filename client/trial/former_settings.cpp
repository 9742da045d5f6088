#include "trial/former_settings.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "store/value.h"

namespace veltrancord::trial {
namespace {

// The largest text that is read; the service writes no larger one, but a file may hold it.
constexpr std::size_t largest_text = std::size_t{16} << 20U;

// What the service has answered, as against what became of the exchange.
bool is_answer(int32_t result) {
    return result > VELTRANCORD_UNREACHABLE;
}

int32_t read_text(veltrancord_client& client, const std::string& path, std::string& text) {
    text.assign(VELTRANCORD_MAX_VALUE + 1, '\0');
    int32_t result = veltrancord_get(&client, path.c_str(), text.data(), text.size());
    if (result == VELTRANCORD_REPLY_OVER_CAP && client.error.found < largest_text) {
        text.assign(client.error.found + 1, '\0');
        result = veltrancord_get(&client, path.c_str(), text.data(), text.size());
    }
    text.resize(result > 0 ? static_cast<std::size_t>(result) : 0);
    return result;
}

int32_t look_for_element(veltrancord_client& client, const std::string& path) {
    veltrancord_reply reply = VELTRANCORD_REPLY_INIT(nullptr, 0, largest_text);
    const int32_t result = veltrancord_read_attributes(&client, (path + ".#").c_str(), &reply);
    veltrancord_reply_release(&reply);
    return result < 0 ? result : VELTRANCORD_OK;
}

int32_t look_at(veltrancord_client& client, former_setting& one) {
    int32_t result = read_text(client, one.path, one.before);
    if (result >= 0) {
        one.kind = former_kind::value;
        return VELTRANCORD_OK;
    }
    if (result == VELTRANCORD_NOT_FOUND) {
        result = look_for_element(client, one.path);
        one.kind = result >= 0 ? former_kind::empty : former_kind::absent;
    }
    return result == VELTRANCORD_NOT_FOUND ? VELTRANCORD_OK : result;
}

// The first place on the way to `path`, from the document down, where there is no element.
//
// Return: VELTRANCORD_OK, or VELTRANCORD_NOT_FOUND where the document itself is missing, or what
// the exchange gave.
int32_t find_topmost(veltrancord_client& client, const std::string& path, std::string& topmost) {
    // The service passes over empty components before the document's name.
    std::size_t end = path.find('.', std::min(path.find_first_not_of('.'), path.size()));
    int32_t result = look_for_element(client, path.substr(0, end));
    while (result >= 0 && end != std::string::npos) {
        end = path.find('.', end + 1);
        topmost = path.substr(0, end);
        result = look_for_element(client, topmost);
        if (result == VELTRANCORD_NOT_FOUND) {
            return VELTRANCORD_OK;
        }
    }
    return result;
}

int32_t find_created(veltrancord_client& client, former_settings& former, std::string& failed) {
    std::set<std::string> created;
    for (const former_setting& one : former.entries) {
        std::string topmost;
        const int32_t result = one.kind == former_kind::absent
                                   ? find_topmost(client, one.path, topmost)
                                   : VELTRANCORD_OK;
        if (result < 0) {
            failed = one.path;
            return result;
        }
        if (!topmost.empty()) {
            created.insert(topmost);
        }
    }
    former.created.assign(created.begin(), created.end());
    return VELTRANCORD_OK;
}

int32_t write_all(veltrancord_client& client, const std::vector<veltrancord_setting>& lines,
                  bool to_flash) {
    return to_flash ? veltrancord_write(&client, lines.data(), lines.size())
                    : veltrancord_write_memory(&client, lines.data(), lines.size());
}

int32_t write_each(veltrancord_client& client, const std::vector<veltrancord_setting>& lines,
                   bool to_flash, std::vector<std::string>& failed) {
    for (const veltrancord_setting& line : lines) {
        const int32_t result = write_all(client, {line}, to_flash);
        if (result < 0 && !is_answer(result)) {
            return result;
        }
        if (result < 0) {
            failed.emplace_back(line.path);
        }
    }
    return VELTRANCORD_OK;
}

}  // namespace

int32_t look_at_former(veltrancord_client& client, const std::vector<change>& changes,
                       former_settings& former, std::string& failed) {
    for (const change& wanted : changes) {
        former_setting one{wanted.path, former_kind::absent, "", wanted.after};
        const int32_t result = look_at(client, one);
        if (result < 0) {
            failed = wanted.path;
            return result;
        }
        former.entries.push_back(std::move(one));
    }
    return find_created(client, former, failed);
}

bool is_expected(const former_setting& found, const change& wanted) {
    return found.kind == former_kind::value ? wanted.before && *wanted.before == found.before
                                            : !wanted.before;
}

bool can_be_put_back(const former_setting& found) {
    const std::size_t dot = found.path.rfind('.');
    const std::string name = dot == std::string::npos ? found.path : found.path.substr(dot + 1);
    const std::size_t bound =
        IsSecretName(name) ? VELTRANCORD_MAX_SECRET_VALUE : VELTRANCORD_MAX_VALUE;
    return found.before.size() <= bound && found.before.find('\n') == std::string::npos;
}

int32_t look_again(veltrancord_client& client, const former_setting& one, held& now) {
    former_setting found{one.path, former_kind::absent, "", ""};
    const int32_t result = look_at(client, found);
    if (result < 0) {
        return result;
    }
    // An empty text is answered as if there were none.
    const bool is_changed = found.kind == former_kind::value
                                ? found.before == one.after
                                : found.kind == former_kind::empty && one.after.empty();
    const bool is_former = found.kind == one.kind && found.before == one.before;
    now = is_former ? held::former : is_changed ? held::changed : held::other;
    return VELTRANCORD_OK;
}

int32_t write_changes(veltrancord_client& client, const former_settings& former, bool to_flash) {
    std::vector<veltrancord_setting> lines;
    lines.reserve(former.entries.size());
    for (const former_setting& one : former.entries) {
        lines.push_back({one.path.c_str(), one.after.c_str()});
    }
    return write_all(client, lines, to_flash);
}

std::string first_not_changed(veltrancord_client& client, const former_settings& former) {
    const veltrancord_error error = client.error;
    std::string path;
    for (const former_setting& one : former.entries) {
        held now = held::changed;
        if (look_again(client, one, now) < 0) {
            break;
        }
        if (now != held::changed) {
            path = one.path;
            break;
        }
    }
    client.error = error;
    return path;
}

int32_t put_back(veltrancord_client& client, const former_settings& former, bool to_flash,
                 std::vector<std::string>& failed) {
    std::vector<veltrancord_setting> lines;
    for (const former_setting& one : former.entries) {
        if (one.kind != former_kind::absent) {
            lines.push_back({one.path.c_str(), one.before.c_str()});
        }
    }
    int32_t result = lines.empty() ? VELTRANCORD_OK : write_all(client, lines, to_flash);
    if (result < 0 && is_answer(result)) {
        result = write_each(client, lines, to_flash, failed);
    }
    for (const std::string& path : former.created) {
        if (result < 0) {
            return result;
        }
        result = veltrancord_remove(&client, path.c_str());
        if (result < 0 && is_answer(result)) {
            if (result != VELTRANCORD_NOT_FOUND) {
                failed.push_back(path);
            }
            result = VELTRANCORD_OK;
        }
    }
    return result < 0 ? result : VELTRANCORD_OK;
}

}  // namespace veltrancord::trial
