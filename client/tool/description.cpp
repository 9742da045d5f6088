#include "description.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "exit_status.h"
#include "schema/check.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

// "FILE:12" as compilers say it; empty where it is not known.
std::string place_in_file(const std::string& file, std::size_t line) {
    if (line == 0) {
        return {};
    }
    return file.empty() || file == "-" ? "line " + std::to_string(line)
                                       : file + ":" + std::to_string(line);
}

std::string subject_of(const schema::violation& one) {
    return one.attribute.empty() ? one.path : one.path + "." + one.attribute;
}

json details_of(const schema::violation& one, const std::string& file) {
    return {{"rule", one.rule},
            {"value", one.secret ? json(nullptr) : json(one.value)},
            {"nearest", one.nearest ? json(*one.nearest) : json(nullptr)},
            {"file", file.empty() ? json(nullptr) : json(file)},
            {"line", one.line != 0 ? json(one.line) : json(nullptr)}};
}

int tell_violations(context& tool, const std::vector<schema::violation>& violations, bool force,
                    const std::string& file) {
    tell_mistakes(tool);
    for (const schema::violation& one : violations) {
        std::string reason = schema::sentence_of(one);
        const std::string place = place_in_file(file, one.line);
        reason += place.empty() ? "" : " (" + place + ")";
        if (force) {
            context::note(subject_of(one) + ": " + reason + "; written all the same");
        } else {
            (void)tool.fail_with(exit_not_allowed, subject_of(one), reason, details_of(one, file));
        }
    }
    if (violations.empty()) {
        return exit_done;
    }
    if (force) {
        tool.forced = true;
        return exit_done;
    }
    context::note("nothing was written; --force writes it all the same");
    return exit_not_allowed;
}

// Of a document that is only a source of values it is no matter what is not in it, and how often.
bool matters(const schema::violation& one, file_use use) {
    const std::string_view rule = one.rule;
    if (one.secret && one.value.starts_with("enc:")) {
        return false;  // the stored form, which another key may have made
    }
    if (use == file_use::load) {
        return true;
    }
    const bool of_structure =
        rule == schema::rule::missing || rule == schema::rule::twice || rule == schema::rule::order;
    return !of_structure && (use == file_use::restore || one.attribute.empty());
}

// All places on the way to the settings, these included: "A", "A.B" and "A.B.C".
std::set<std::string> places_of(const setting_map& settings) {
    std::set<std::string> places;
    for (const auto& [path, value] : settings) {
        for (std::size_t dot = path.find('.'); dot != std::string::npos;
             dot = path.find('.', dot + 1)) {
            places.insert(path.substr(0, dot));
        }
        places.insert(path);
    }
    return places;
}

// Whether the groups around a setting are there, or have to be.
bool stands_somewhere(schema::description_set& descriptions, const std::set<std::string>& places,
                      const std::string& path) {
    const std::vector<const schema::element_description*> way = descriptions.way_to(path);
    std::size_t dot = 0;
    for (std::size_t depth = 0; depth + 1 < way.size(); ++depth) {
        dot = path.find('.', dot == 0 ? 0 : dot + 1);
        const bool may_be_left_out = depth == 0 || !way[depth]->required;
        if (may_be_left_out && !places.contains(path.substr(0, dot))) {
            return false;
        }
    }
    return true;
}

}  // namespace

void add_force(subcommand command, bool& force) {
    command.add_flag("--force", force, "also what the description of the settings does not allow");
}

int check_allowed(context& tool, const setting_list& settings, bool force,
                  const std::string& file) {
    std::vector<schema::violation> violations;
    for (const setting& one : settings) {
        std::optional<schema::violation> found =
            schema::check_value(tool.descriptions(), one.path, one.value);
        if (found) {
            found->line = one.line;
            violations.push_back(std::move(*found));
        }
    }
    return tell_violations(tool, violations, force, file);
}

int check_file_allowed(context& tool, const std::string& file, const std::string& text,
                       file_use use, bool force) {
    TiXmlDocument document;
    std::string problem;
    std::size_t line = 0;
    if (!schema::read_document(text, document, problem, line) ||
        document.RootElement() == nullptr) {
        return exit_done;
    }
    std::vector<schema::violation> violations =
        schema::check_documents(tool.descriptions(), *document.RootElement());
    std::erase_if(violations, [&](const schema::violation& one) { return !matters(one, use); });
    return tell_violations(tool, violations, force, file);
}

bool is_anything_described(context& tool) {
    return !tool.descriptions().documents().empty();
}

void tell_mistakes(context& tool) {
    const std::vector<schema::mistake>& mistakes = tool.descriptions().mistakes();
    std::set<std::string> told;
    for (; tool.mistakes_told < mistakes.size(); ++tool.mistakes_told) {
        const schema::mistake& one = mistakes[tool.mistakes_told];
        if (told.insert(one.file).second) {
            context::note(one.file + ":" + std::to_string(one.line) + ": " + one.text +
                          "; nothing is checked by this description, \"schema check\" tells more");
        }
    }
}

std::string user_language() {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

const schema::element_description* described_at(context& tool, const std::string& place) {
    return tool.descriptions().find(is_subtree(place) ? place.substr(0, place.size() - 2) : place);
}

std::string label_of(const schema::element_description& element) {
    return std::string(element.told.label(user_language()));
}

std::optional<std::string> default_of(context& tool, std::string_view path) {
    const schema::element_description* const element = tool.descriptions().find(path);
    return element != nullptr && !element->secret() ? element->default_value : std::nullopt;
}

setting_map defaults_at(context& tool, const std::string& place, const setting_map& running) {
    schema::description_set& descriptions = tool.descriptions();
    const std::set<std::string> places = places_of(running);
    setting_map defaults;
    for (const std::string& name : descriptions.documents()) {
        if (!places.contains(name) || !(lies_at(name, place) || lies_at(place, name))) {
            continue;
        }
        const schema::document_description* const document = descriptions.document(name);
        if (document == nullptr) {
            continue;
        }
        for (const schema::default_setting& one : schema::defaults_of(*document)) {
            if (lies_at(one.path, place) && !is_secret_path(one.path) &&
                stands_somewhere(descriptions, places, one.path)) {
                defaults.emplace(one.path, one.value);
            }
        }
    }
    tell_mistakes(tool);
    return defaults;
}

}  // namespace veltrancord::tool
