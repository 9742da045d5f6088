#include "schema/markup.h"

#include <algorithm>

namespace veltrancord::schema {
namespace {

constexpr std::string_view schema_namespace = "http://www.w3.org/2001/XMLSchema";

struct advice {
    std::string_view name;
    const char* instead;
};

constexpr advice advice_of_elements[] = {
    {"choice", "write xs:all, and minOccurs=\"0\" at each element"},
    {"group", "write the elements out"},
    {"any", "write the elements out"},
    {"attributeGroup", "write the attributes out"},
    {"anyAttribute", "write the attributes out"},
    {"include", "write the types into this file"},
    {"import", "write the types into this file"},
    {"redefine", "write the types into this file"},
    {"union", "write one xs:pattern with | between what is allowed"},
    {"list", "write an xs:pattern"},
    {"complexContent", "write all elements into one type"},
    {"key", "leave it away: values are checked one by one"},
    {"keyref", "leave it away: values are checked one by one"},
    {"unique", "leave it away: values are checked one by one"},
    {"notation", "leave it away"},
    {"length", "write xs:minLength and xs:maxLength"},
    {"minExclusive", "write xs:minInclusive with the next value"},
    {"maxExclusive", "write xs:maxInclusive with the value before"},
    {"totalDigits", "write xs:minInclusive and xs:maxInclusive"},
    {"fractionDigits", "write an xs:pattern"},
    {"whiteSpace", "leave it away: white space counts as usual for the type"},
};

constexpr advice advice_of_attributes[] = {
    {"maxOccurs", "number the elements: User1, User2"},
    {"ref", "write name and type"},
    {"fixed", "write an xs:enumeration with the one value"},
    {"nillable", "write minOccurs=\"0\""},
    {"mixed", "an element has text or elements"},
    {"targetNamespace", "leave it away: documents have no namespace"},
    {"elementFormDefault", "leave it away: documents have no namespace"},
    {"attributeFormDefault", "leave it away: documents have no namespace"},
    {"form", "leave it away: documents have no namespace"},
};

template <std::size_t N>
std::string instead_of(const advice (&rows)[N], std::string_view name) {
    const auto* const row = std::find_if(std::begin(rows), std::end(rows),
                                         [&](const advice& one) { return one.name == name; });
    return row != std::end(rows) ? row->instead : "leave it away";
}

// "en", "pt-BR".
bool is_language(std::string_view text) {
    bool first = true;
    while (true) {
        const std::size_t end = std::min(text.find('-'), text.size());
        const bool letters = std::all_of(text.begin(), text.begin() + end, [&](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                   (!first && c >= '0' && c <= '9');
        });
        if (!letters || end == 0 || end > 8) {
            return false;
        }
        if (end == text.size()) {
            return true;
        }
        text.remove_prefix(end + 1);
        first = false;
    }
}

void take_text(markup& xml, const TiXmlElement& element, std::vector<localised_text>& texts,
               const char* what) {
    const std::optional<std::string> given = markup::attribute(element, "xml:lang");
    const std::string language = given.value_or("");
    if (given && !is_language(language)) {
        xml.tell(element,
                 "has xml:lang=\"" + language + "\"; write a language such as en or pt-BR");
    }
    const bool known = std::any_of(texts.begin(), texts.end(), [&](const localised_text& one) {
        return one.language == language;
    });
    if (known) {
        xml.tell(element, std::string("is a second ") + what + " in the same language; write " +
                              "xml:lang, and of each language one");
    }
    if (element.FirstChildElement() != nullptr) {
        xml.tell(element, "has elements in its text; write plain text");
    }
    texts.push_back({language, inner_text(element)});
}

void read_documentation(markup& xml, const TiXmlElement& element, notes& told) {
    xml.allow(element, {"xml:lang", "source"});
    const std::string source = markup::attribute(element, "source").value_or("label");
    if (source == "label") {
        take_text(xml, element, told.labels, "label");
    } else if (source == "help") {
        take_text(xml, element, told.helps, "help");
    } else {
        xml.tell(element, "has source=\"" + source + "\"; write \"label\" or \"help\"");
    }
}

void read_order(markup& xml, const TiXmlElement& element, notes& told) {
    const auto number = markup::number(inner_text(element));
    if (number) {
        told.order = static_cast<int>(*number);
    } else {
        xml.tell(element, "is no order; write a whole number from 0 on");
    }
}

void read_appinfo(markup& xml, const TiXmlElement& appinfo, notes& told) {
    xml.allow(appinfo, {});
    for (const TiXmlElement* one = appinfo.FirstChildElement(); one != nullptr;
         one = one->NextSiblingElement()) {
        xml.allow(*one, {});
        const std::string& name = one->ValueStr();
        if (name == "unit") {
            told.unit = inner_text(*one);
        } else if (name == "group") {
            told.group = inner_text(*one);
        } else if (name == "order") {
            read_order(xml, *one, told);
        } else if (name == "secret") {
            told.secret = true;
        } else if (name == "guess") {
            told.guess = true;
        } else {
            xml.tell(*one, "<" + name +
                               "> is nothing that is told here; write unit, order, group, secret "
                               "or guess");
        }
    }
}

}  // namespace

bool markup::find_prefix(const TiXmlElement& root) {
    for (const TiXmlAttribute* one = root.FirstAttribute(); one != nullptr; one = one->Next()) {
        const std::string name = one->Name();
        if (name.starts_with("xmlns:") && one->ValueStr() == schema_namespace) {
            prefix_ = name.substr(6) + ":";
        }
    }
    if (prefix_.empty() || name_of(root) != "schema") {
        tell(root,
             "does not begin with <xs:schema xmlns:xs=\"" + std::string(schema_namespace) + "\">");
        return false;
    }
    return true;
}

std::string_view markup::name_of(const TiXmlElement& element) const {
    const std::string& name = element.ValueStr();
    return name.starts_with(prefix_) ? std::string_view(name).substr(prefix_.size())
                                     : std::string_view();
}

std::string_view markup::built_in(std::string_view reference) const {
    return reference.starts_with(prefix_) ? reference.substr(prefix_.size()) : std::string_view();
}

void markup::tell(const TiXmlNode& where, const std::string& text) {
    const std::size_t line = static_cast<std::size_t>(std::max(where.Row(), 0));
    mistakes_.push_back({file_, line, text});
}

std::optional<std::string> markup::attribute(const TiXmlElement& element, const char* name) {
    const char* const text = element.Attribute(name);
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

void markup::allow(const TiXmlElement& element, std::initializer_list<const char*> names) {
    for (const TiXmlAttribute* one = element.FirstAttribute(); one != nullptr; one = one->Next()) {
        const std::string name = one->Name();
        // Other namespaces than that of XML Schema change nothing.
        const bool known = name.starts_with("xmlns:") ||
                           std::any_of(names.begin(), names.end(),
                                       [&](const char* allowed) { return name == allowed; });
        if (!known) {
            tell(element, "<" + element.ValueStr() + "> has the attribute " + name +
                              ", which is not read; " + instead_of(advice_of_attributes, name));
        }
    }
}

void markup::refuse(const TiXmlElement& element) {
    const std::string_view name = name_of(element);
    if (name.empty()) {
        tell(element, "<" + element.ValueStr() +
                          "> is no element of XML Schema; its elements begin "
                          "with \"" +
                          prefix_ + "\"");
        return;
    }
    tell(element,
         "<" + element.ValueStr() + "> is not read here; " + instead_of(advice_of_elements, name));
}

void markup::each_child(
    const TiXmlElement& element,
    const std::function<bool(const TiXmlElement& child, std::string_view name)>& take) {
    bool told = false;
    for (const TiXmlNode* node = element.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
        const TiXmlElement* const child = node->ToElement();
        if (child == nullptr) {
            if (node->ToText() != nullptr && !told) {
                tell(*node, "has text outside of xs:documentation; write it there");
                told = true;
            }
            continue;
        }
        const std::string_view name = name_of(*child);
        if (name == "annotation" && element.FirstChildElement() != child) {
            tell(*child, "stands behind something else; write one xs:annotation, before all");
        }
        if (name.empty() || !take(*child, name)) {
            refuse(*child);
        }
    }
}

std::optional<std::size_t> markup::number(const std::string& text) {
    constexpr std::size_t most_digits = 9;
    const bool digits = !text.empty() && text.size() <= most_digits &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    return digits ? std::optional<std::size_t>(std::stoul(text)) : std::nullopt;
}

std::string inner_text(const TiXmlElement& element) {
    std::string text;
    for (const TiXmlNode* node = element.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
        text += node->ToText() != nullptr ? node->ValueStr() : "";
    }
    return text;
}

void read_annotation(markup& xml, const TiXmlElement& annotation, notes& told) {
    xml.allow(annotation, {});
    xml.each_child(annotation, [&](const TiXmlElement& child, std::string_view name) {
        if (name == "documentation") {
            read_documentation(xml, child, told);
        } else if (name == "appinfo") {
            read_appinfo(xml, child, told);
        } else {
            return false;
        }
        return true;
    });
}

}  // namespace veltrancord::schema
