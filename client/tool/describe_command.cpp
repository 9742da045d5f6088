// describe: what is known of a setting, a group or a document.
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "description.h"
#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

json text_or_null(std::string_view text) {
    return text.empty() ? json(nullptr) : json(text);
}

json or_null(const std::optional<std::string>& text) {
    return text ? json(*text) : json(nullptr);
}

json or_null(const std::optional<std::size_t>& number) {
    return number ? json(*number) : json(nullptr);
}

const char* kind_name(const schema::element_description& element) {
    if (element.value == nullptr) {
        return "group";
    }
    switch (element.value->kind) {
        case schema::value_kind::boolean:
            return "boolean";
        case schema::value_kind::integer:
            return "integer";
        case schema::value_kind::decimal:
            return "decimal";
        case schema::value_kind::time:
            return "time";
        case schema::value_kind::date:
            return "date";
        default:
            return element.value->values.empty() ? "text" : "choice";
    }
}

// What an attribute of the element is: by its description the default, or the only value that it
// may have; where that leaves it open, what the service holds. Empty where there is none, or no
// service.
std::string attribute_value(context& tool, const std::string& path,
                            const schema::element_description& element, const char* name) {
    const schema::attribute_description* const attribute = element.attribute(name);
    if (attribute == nullptr) {
        return {};
    }
    if (attribute->default_value) {
        return *attribute->default_value;
    }
    if (attribute->type->values.size() == 1) {
        return attribute->type->values.front().value;
    }
    std::string value(VELTRANCORD_MAX_ATTRIBUTE_VALUE + 1, '\0');
    const int32_t length = veltrancord_get_attribute(&tool.client(), (path + "." + name).c_str(),
                                                     value.data(), value.size());
    value.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return value;
}

json choices_of(const schema::simple_type& type, const std::string& language) {
    json list = json::array();
    for (const schema::allowed_value& one : type.values) {
        list.push_back(
            {{"choice", one.value}, {"meaning", text_or_null(one.told.label(language))}});
    }
    return list;
}

json patterns_of(const schema::simple_type& type) {
    json list = json::array();
    for (const std::vector<schema::pattern>& alternatives : type.patterns) {
        std::string text;
        for (const schema::pattern& one : alternatives) {
            text.append(text.empty() ? "" : "|").append(one.text());
        }
        list.push_back(text);
    }
    return list;
}

json elements_below(const schema::element_description& element, const std::string& language) {
    json list = json::array();
    if (element.structure != nullptr) {
        for (const schema::element_description& one : element.structure->elements) {
            list.push_back({{"name", schema::client_name(one.name)},
                            {"title", text_or_null(one.told.label(language))}});
        }
    }
    return list;
}

// All that is told; a program finds every name, with null where nothing is said.
json to_json(context& tool, const std::string& path, const schema::element_description& element) {
    const std::string language = user_language();
    const schema::simple_type none;
    const schema::simple_type& type = element.value != nullptr ? *element.value : none;
    const std::string name = type.name.empty() ? type.base_name : type.name;
    return {{"path", path},
            {"kind", kind_name(element)},
            {"label", text_or_null(element.told.label(language))},
            {"help", text_or_null(element.told.help(language))},
            {"type", text_or_null(name)},
            {"allowed", element.value != nullptr ? json(schema::type_text(type)) : json(nullptr)},
            {"least", or_null(type.least)},
            {"most", or_null(type.most)},
            {"min_length", or_null(type.min_length)},
            {"max_length", or_null(type.max_length)},
            {"patterns", patterns_of(type)},
            {"choices", choices_of(type, language)},
            {"default", element.secret() ? json(nullptr) : or_null(element.default_value)},
            {"unit", text_or_null(element.told.unit)},
            {"level", text_or_null(attribute_value(tool, path, element, "Level"))},
            {"program", text_or_null(attribute_value(tool, path, element, "DispatchW"))},
            {"secret", element.secret()},
            {"required", element.required},
            {"below", elements_below(element, language)}};
}

// "  Default  1500"; nothing where there is no text.
void print_line(context& tool, const char* name, const json& value) {
    constexpr std::size_t width = 9;
    if (!value.is_null()) {
        std::string line = "  ";
        line.append(name).append(width - std::string_view(name).size(), ' ');
        tool.print(line + value.get<std::string>() + "\n");
    }
}

void print_list(context& tool, const json& list, const char* name, const char* meaning) {
    for (const json& one : list) {
        std::string line = "  " + tool.coloured("32", one[name].get<std::string>());
        line += one[meaning].is_null() ? "" : "  " + one[meaning].get<std::string>();
        tool.print(line + "\n");
    }
}

void print_description(context& tool, const json& told) {
    tool.print(tool.coloured("1", told["path"].get<std::string>()));
    tool.print(told["label"].is_null() ? "\n" : "  " + told["label"].get<std::string>() + "\n");
    print_line(tool, "", told["help"]);
    print_line(tool, "Value", told["allowed"]);
    print_line(tool, "Unit", told["unit"]);
    print_line(tool, "Default", told["default"]);
    print_line(tool, "Level", told["level"]);
    print_line(tool, "Starts", told["program"]);
    print_line(tool, "Secret", told["secret"].get<bool>() ? json("never shown") : json(nullptr));
    print_list(tool, told["choices"], "choice", "meaning");
    print_list(tool, told["below"], "name", "title");
}

// The documents that are described, and the labels of their roots.
int describe_documents(context& tool) {
    json list = json::array();
    for (const std::string& name : tool.descriptions().documents()) {
        const schema::document_description* const document = tool.descriptions().document(name);
        if (document != nullptr) {
            list.push_back({{"name", name}, {"title", text_or_null(label_of(document->root))}});
        }
    }
    tell_mistakes(tool);
    if (list.empty()) {
        return tool.fail_with(exit_not_found, tool.schema_directory, "there is no description");
    }
    if (!tool.print_for_programs(list)) {
        print_list(tool, list, "name", "title");
    }
    return exit_done;
}

int run_describe(context& tool, const std::string& path) {
    if (path.empty() || path == "*") {
        return describe_documents(tool);
    }
    const schema::element_description* const element = described_at(tool, path);
    tell_mistakes(tool);
    if (element == nullptr) {
        const bool known = tool.descriptions().is_described(path);
        return tool.fail_with(
            exit_not_found, path,
            known ? "the description names no such setting"
                  : "there is no description of the document in " + tool.schema_directory);
    }
    const json told =
        to_json(tool, is_subtree(path) ? path.substr(0, path.size() - 2) : path, *element);
    if (!tool.print_for_programs(told)) {
        print_description(tool, told);
    }
    return exit_done;
}

}  // namespace

void add_describe_command(subcommand app, context& tool) {
    const auto path = std::make_shared<std::string>();
    subcommand command = app.add_subcommand(
        "describe",
        "tell what the description says of a setting or group; without PATH the documents");
    command.add_option("PATH", *path, "which");
    command.callback(
        [&tool, path] { tool.run = [&tool, path] { return run_describe(tool, *path); }; });
}

}  // namespace veltrancord::tool
