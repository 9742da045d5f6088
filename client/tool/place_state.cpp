#include "place_state.h"

#include <set>

#include "service.h"

namespace veltrancord::tool {
namespace {

// Settings are asked for one by one as long as they are few; then their documents are read whole.
constexpr std::size_t few = 16;

std::string document_of(const std::string& path) {
    return path.substr(0, path.find('.'));
}

int32_t none_is_no_failure(int32_t result) {
    return result == VELTRANCORD_NOT_FOUND ? VELTRANCORD_OK : result;
}

int32_t read_setting(context& tool, const std::string& path, place_state& state) {
    std::string value;
    const int32_t result = get_value(tool, path, value);
    if (result >= 0 || (result == VELTRANCORD_NOT_FOUND && is_there(tool, path))) {
        state.settings[path] = value;
        return VELTRANCORD_OK;
    }
    return none_is_no_failure(result);
}

int32_t read_attributes(context& tool, const std::string& asked, place_state& state) {
    owned_reply reply;
    const int32_t result = veltrancord_read_attributes(&tool.client(), asked.c_str(), reply.get());
    if (result > 0) {
        state.attributes.merge(by_path(parse_settings(reply.text())));
    }
    return none_is_no_failure(result);
}

int32_t read_below(context& tool, const std::string& place, place_state& state) {
    setting_list list;
    int32_t result = none_is_no_failure(read_place(tool, place, list));
    state.settings.merge(by_path(list));
    const std::string element = is_subtree(place) ? place.substr(0, place.size() - 2) : place;
    for (const char* const which : {".#", ".*"}) {
        if (result >= 0) {
            result = read_attributes(tool, element + which, state);
        }
    }
    if (result >= 0 && !is_subtree(place) && is_there(tool, element)) {
        state.settings.try_emplace(element);
    }
    return result;
}

int32_t read_everything(context& tool, place_state& state) {
    setting_list list;
    int32_t result = none_is_no_failure(read_subtree(tool, "", list));
    state.settings = by_path(list);
    std::set<std::string> documents;
    for (const setting& one : list) {
        documents.insert(document_of(one.path));
    }
    for (const std::string& document : documents) {
        for (const char* const which : {".#", ".*"}) {
            if (result >= 0) {
                result = read_attributes(tool, document + which, state);
            }
        }
    }
    return result;
}

// Puts what a whole document has at these paths into `state`.
int32_t read_from_documents(context& tool, const std::vector<std::string>& paths,
                            place_state& state) {
    std::map<std::string, std::map<std::string, std::string>> documents;
    for (const std::string& path : paths) {
        const std::string name = document_of(path);
        if (documents.count(name) == 0) {
            setting_list list;
            const int32_t result = none_is_no_failure(read_subtree(tool, name, list));
            if (result < 0) {
                return result;
            }
            documents[name] = by_path(list);
        }
        const auto found = documents[name].find(path);
        const int32_t result =
            found != documents[name].end() ? VELTRANCORD_OK : read_setting(tool, path, state);
        if (result < 0) {
            return result;
        }
        if (found != documents[name].end()) {
            state.settings.insert(*found);
        }
    }
    return VELTRANCORD_OK;
}

}  // namespace

int32_t read_named(context& tool, const std::vector<std::string>& paths, place_state& state) {
    if (paths.size() > few) {
        return read_from_documents(tool, paths, state);
    }
    for (const std::string& path : paths) {
        const int32_t result = read_setting(tool, path, state);
        if (result < 0) {
            return result;
        }
    }
    return VELTRANCORD_OK;
}

int32_t read_named_attributes(context& tool, const std::vector<std::string>& paths,
                              place_state& state) {
    for (const std::string& path : paths) {
        const int32_t result = read_attributes(tool, path, state);
        if (result < 0) {
            return result;
        }
    }
    return VELTRANCORD_OK;
}

int32_t read_places(context& tool, const std::vector<std::string>& places, place_state& state) {
    for (const std::string& place : places) {
        const bool all = place.empty() || place == "*" || place == ".*";
        const int32_t result = all ? read_everything(tool, state) : read_below(tool, place, state);
        if (result < 0) {
            return result;
        }
    }
    return VELTRANCORD_OK;
}

std::string first_missing(context& tool, const std::string& path) {
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find('.', start), path.size());
        if (!is_there(tool, path.substr(0, end))) {
            return path.substr(0, end);
        }
        start = end + 1;
    }
    return {};
}

}  // namespace veltrancord::tool
