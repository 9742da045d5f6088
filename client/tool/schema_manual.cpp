#include "schema_manual.h"

#include <algorithm>
#include <utility>

#include "schema_draft.h"

namespace veltrancord::tool {
namespace {

using schema::element_description;

constexpr const char* page_style =
    "body{font:16px/1.5 system-ui,sans-serif;margin:0;color:#1b1f24;background:#fff}"
    "nav{background:#f3f5f7;padding:1rem 2rem;border-bottom:1px solid #d5dae0}"
    "nav a{margin-right:1rem;white-space:nowrap}main{max-width:70rem;padding:0 2rem 4rem}"
    "h2{margin-top:3rem;border-bottom:2px solid #d5dae0}h3{margin:2rem 0 .3rem}"
    "table{border-collapse:collapse;table-layout:fixed;width:100%;margin:.5rem 0}"
    "th,td{text-align:left;vertical-align:top;padding:.4rem .6rem;border-bottom:1px solid #e3e7eb}"
    "code{font:14px ui-monospace,monospace;overflow-wrap:anywhere}"
    "th:first-child{width:34%}th:last-child{width:30%}td{overflow-wrap:anywhere}"
    "p{margin:.2rem 0}.help{color:#4a5561}"
    "tr:target,h3:target{background:#fff6d6}a{color:#0b57a4}"
    "@media(max-width:45rem){td,th{display:block;width:auto!important}thead{display:none}}";

bool is_group(const element_description& element) {
    return element.structure != nullptr && !element.structure->elements.empty();
}

class entry_list {
  public:
    void add(const element_description& element, const std::string& anchor,
             const std::string& shown) {
        entries_.push_back({anchor, shown, &element});
        if (!is_group(element)) {
            return;
        }
        const std::vector<schema::family> families = schema::families_of(*element.structure);
        // Its own settings first: behind a group they would seem to be in that.
        for (const bool groups : {false, true}) {
            for (const element_description& child : element.structure->elements) {
                if (is_group(child) == groups) {
                    add_child(child, families, anchor, shown);
                }
            }
        }
    }

    std::vector<manual_entry> take() { return std::move(entries_); }

  private:
    static std::string below(const std::string& path, const std::string& name) {
        return path + "." + name;
    }

    void add_child(const element_description& child, const std::vector<schema::family>& families,
                   const std::string& anchor, const std::string& shown) {
        const std::string name = schema::client_name(child.name);
        for (const schema::family& one : families) {
            const auto& members = one.members;
            if (std::find(members.begin(), members.end(), &child) == members.end()) {
                continue;
            }
            const bool alike = std::all_of(members.begin(), members.end(), [&](const auto* member) {
                return member->structure == child.structure && member->value == child.value;
            });
            if (alike && members.front() == &child) {
                const std::string last = schema::client_name(members.back()->name);
                add(child, below(anchor, name), below(shown, name).append(" to ").append(last));
            }
            if (alike) {
                return;
            }
        }
        add(child, below(anchor, name), below(shown, name));
    }

    std::vector<manual_entry> entries_;
};

std::string_view label_of(const element_description& element, std::string_view language) {
    const std::string_view own = element.told.label(language);
    if (!own.empty()) {
        return own;
    }
    return element.structure != nullptr ? element.structure->told.label(language)
           : element.value != nullptr   ? element.value->told.label(language)
                                        : std::string_view();
}

std::string_view help_of(const element_description& element, std::string_view language) {
    const std::string_view own = element.told.help(language);
    if (!own.empty()) {
        return own;
    }
    return element.structure != nullptr ? element.structure->told.help(language)
           : element.value != nullptr   ? element.value->told.help(language)
                                        : std::string_view();
}

// The values of an enumeration that are told of: the value, then its label.
std::vector<std::pair<std::string, std::string>> told_values(const element_description& element,
                                                             std::string_view language) {
    std::vector<std::pair<std::string, std::string>> told;
    if (element.value != nullptr) {
        for (const schema::allowed_value& one : element.value->values) {
            if (!one.told.label(language).empty()) {
                told.emplace_back(one.value, one.told.label(language));
            }
        }
    }
    return told;
}

std::string unit_of(const element_description& element) {
    return !element.told.unit.empty() || element.value == nullptr ? element.told.unit
                                                                  : element.value->told.unit;
}

// Facts of a setting: a name, and what it is.
std::vector<std::pair<std::string, std::string>> facts_of(const element_description& element) {
    std::vector<std::pair<std::string, std::string>> facts;
    if (element.value != nullptr) {
        facts.emplace_back("Allowed", schema::type_text(*element.value));
    }
    if (!unit_of(element).empty()) {
        facts.emplace_back("Unit", unit_of(element));
    }
    if (element.default_value && !element.secret()) {
        facts.emplace_back("Default",
                           element.default_value->empty() ? "empty" : *element.default_value);
    }
    if (element.secret()) {
        facts.emplace_back("Secret", "yes");
    }
    std::string attributes;
    if (element.structure != nullptr) {
        for (const schema::attribute_description& one : element.structure->attributes) {
            attributes += (attributes.empty() ? "" : ", ") + one.name;
        }
    }
    if (!attributes.empty()) {
        facts.emplace_back("Attributes", attributes);
    }
    return facts;
}

std::string html_row(const manual_entry& one, std::string_view language) {
    const std::string anchor = xml_escaped(one.anchor);
    std::string row = "<tr id=\"" + anchor + "\"><td><a href=\"#" + anchor + "\"><code>" +
                      xml_escaped(one.shown) + "</code></a></td><td><p><strong>" +
                      xml_escaped(label_of(*one.element, language)) + "</strong></p>";
    const std::string help(help_of(*one.element, language));
    row += help.empty() ? "" : "<p class=\"help\">" + xml_escaped(help) + "</p>";
    for (const auto& [value, label] : told_values(*one.element, language)) {
        row += "<p class=\"help\"><code>" + xml_escaped(value) + "</code>: " + xml_escaped(label) +
               "</p>";
    }
    row += "</td><td>";
    for (const auto& [name, fact] : facts_of(*one.element)) {
        row += "<p>" + xml_escaped(name) + ": " + xml_escaped(fact) + "</p>";
    }
    return row + "</td></tr>\n";
}

std::string html_heading(const manual_entry& one, int level, std::string_view language) {
    const std::string tag = "h" + std::to_string(level);
    const std::string label(label_of(*one.element, language));
    const std::string help(help_of(*one.element, language));
    return "<" + tag + " id=\"" + xml_escaped(one.anchor) + "\"><code>" + xml_escaped(one.shown) +
           "</code>" + (label.empty() ? "" : ": " + xml_escaped(label)) + "</" + tag + ">\n" +
           (help.empty() ? "" : "<p class=\"help\">" + xml_escaped(help) + "</p>\n");
}

// A heading for each group, a table for the settings that follow it.
std::string html_document(const schema::document_description& document, std::string_view language) {
    std::string out;
    bool in_table = false;
    for (const manual_entry& one : manual_entries(document)) {
        const bool is_root = one.element == &document.root;
        const bool heading = is_root || is_group(*one.element);
        if (heading && in_table) {
            out += "</tbody></table>\n";
        }
        if (heading) {
            out += html_heading(one, is_root ? 2 : 3, language);
        }
        if (!is_group(*one.element)) {
            out += heading || !in_table ? "<table><thead><tr><th>Setting</th><th>Meaning</th>"
                                          "<th>Value</th></tr></thead><tbody>\n"
                                        : "";
            out += is_root ? "" : html_row(one, language);
        }
        in_table = !is_group(*one.element);
    }
    return out + (in_table ? "</tbody></table>\n" : "");
}

// Markdown takes every mark behind a backslash for itself.
std::string markdown_escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const bool mark = (c >= '!' && c <= '/') || (c >= ':' && c <= '@') ||
                          (c >= '[' && c <= '`') || (c >= '{' && c <= '~');
        const bool needless = c == '.' || c == ',' || c == '/' || c == '\'' || c == ':' ||
                              c == '?' || c == '%' || c == ';' || c == '=' || c == '"';
        out += mark && !needless ? "\\" : "";
        out += c == '\n' ? ' ' : c;
    }
    return out;
}

}  // namespace

std::vector<manual_entry> manual_entries(const schema::document_description& document) {
    const std::string name = schema::client_name(document.name);
    entry_list list;
    list.add(document.root, name, name);
    return list.take();
}

std::string html_manual(const std::vector<const schema::document_description*>& documents,
                        std::string_view language) {
    const std::string code(language.substr(0, language.find_first_of("_.@")));
    std::string page = "<!DOCTYPE html>\n<html lang=\"" + xml_escaped(code) +
                       "\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width\">\n"
                       "<title>Settings</title>\n<style>" +
                       page_style + "</style>\n</head>\n<body>\n<nav>\n";
    for (const auto* one : documents) {
        const std::string name = xml_escaped(schema::client_name(one->name));
        page.append("<a href=\"#").append(name).append("\">").append(name).append("</a>\n");
    }
    page += "</nav>\n<main>\n<h1>Settings</h1>\n";
    for (const auto* one : documents) {
        page += html_document(*one, language);
    }
    return page + "</main>\n</body>\n</html>\n";
}

std::string markdown_manual(const schema::document_description& document,
                            std::string_view language) {
    std::string out;
    for (const manual_entry& one : manual_entries(document)) {
        const bool is_root = one.element == &document.root;
        const std::string label(label_of(*one.element, language));
        const std::string help(help_of(*one.element, language));
        out += "<a id=\"" + xml_escaped(one.anchor) + "\"></a>\n\n";
        out += (is_root                  ? "# "
                : is_group(*one.element) ? "## "
                                         : "### ") +
               markdown_escaped(one.shown) + "\n\n";
        out += label.empty() ? "" : markdown_escaped(label) + (help.empty() ? "\n\n" : ". ");
        out += help.empty() ? "" : markdown_escaped(help) + "\n\n";
        for (const auto& [value, meaning] : told_values(*one.element, language)) {
            out += "- " + markdown_escaped(value) + ": " + markdown_escaped(meaning) + "\n";
        }
        const auto facts = facts_of(*one.element);
        for (const auto& [name, fact] : facts) {
            out += "- " + markdown_escaped(name) + ": " + markdown_escaped(fact) + "\n";
        }
        out += facts.empty() ? "" : "\n";
    }
    return out;
}

}  // namespace veltrancord::tool
