#include "schema_draft.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "schema/decimal_text.h"
#include "schema/description.h"
#include "schema/moment.h"
#include "setting.h"

namespace veltrancord::tool {
namespace {

using texts = std::vector<std::string>;

bool all_of(const texts& values, bool (*holds)(const std::string&)) {
    return !values.empty() && std::all_of(values.begin(), values.end(), holds);
}

bool is_whole_number(const std::string& text) {
    const std::string digits = text.substr(text.starts_with('-') ? 1 : 0);
    constexpr std::size_t most_digits = 9;  // of an xs:int, whatever they are
    return !digits.empty() && digits.size() <= most_digits &&
           digits.find_first_not_of("0123456789") == std::string::npos &&
           (digits.size() == 1 || digits.front() != '0');
}

bool is_not_negative(const std::string& text) {
    return !text.starts_with('-');
}

bool is_number(const std::string& text) {
    const auto number = schema::read_decimal(text);
    return number && number->text().size() == text.size();  // no serial number, "0004127100"
}

bool is_date(const std::string& text) {
    return schema::read_date(text).has_value();
}

bool is_time(const std::string& text) {
    return schema::read_time(text).has_value();
}

bool is_switch(const std::string& text) {
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper == "YES" || upper == "NO" || upper == "ON" || upper == "OFF";
}

bool is_word(const std::string& text) {
    return !text.empty() && text.size() <= 20 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return std::isalnum(c) != 0 || c == '-' || c == '_';
           });
}

// Both sides of each switch that was seen: a device that has only ever been "YES" can be "NO".
std::set<std::string> sides_of(const texts& values) {
    std::set<std::string> sides(values.begin(), values.end());
    for (const auto& [one, other] : {std::pair("YES", "NO"), std::pair("ON", "OFF"),
                                     std::pair("yes", "no"), std::pair("on", "off")}) {
        if (sides.contains(one) || sides.contains(other)) {
            sides.insert({one, other});
        }
    }
    return sides;
}

// A few words that come again and again are all that there are.
bool is_choice(const texts& values) {
    const std::set<std::string> distinct(values.begin(), values.end());
    return values.size() >= 4 && distinct.size() * 2 <= values.size() && distinct.size() > 1 &&
           all_of(values, is_word);
}

std::string enumeration_of(const std::set<std::string>& values, const std::string& indent) {
    std::string text =
        indent + "<xs:simpleType>\n" + indent + "  <xs:restriction base=\"xs:string\">\n";
    for (const std::string& one : values) {
        text += indent + "    <xs:enumeration value=\"" + xml_escaped(one) + "\"/>\n";
    }
    return text + indent + "  </xs:restriction>\n" + indent + "</xs:simpleType>\n";
}

const char* built_in_of(const texts& values) {
    if (all_of(values, is_whole_number)) {
        return all_of(values, is_not_negative) ? "xs:unsignedInt" : "xs:int";
    }
    return all_of(values, is_number) ? "xs:decimal"
           : all_of(values, is_date) ? "xs:date"
           : all_of(values, is_time) ? "xs:time"
                                     : "xs:string";
}

// A type by its name, or written in its place; one of both is empty.
struct guessed_type {
    std::string name;
    std::set<std::string> values;
};

guessed_type guess(const texts& values) {
    if (all_of(values, is_switch)) {
        return {"", sides_of(values)};
    }
    if (!all_of(values, is_whole_number) && is_choice(values)) {
        return {"", {values.begin(), values.end()}};
    }
    return {built_in_of(values), {}};
}

// "MinLength" gives "Min length", "Zone_20A" gives "Zone A".
std::string label_of(const std::string& stored) {
    const std::string name = schema::client_name(stored);
    std::string label;
    for (std::size_t at = 0; at < name.size(); ++at) {
        const auto letter = static_cast<unsigned char>(name[at]);
        const bool begins = at > 0 && std::isupper(letter) != 0 &&
                            std::islower(static_cast<unsigned char>(name[at - 1])) != 0;
        label += begins ? " " : "";
        label += static_cast<char>(begins ? std::tolower(letter) : letter);
    }
    return label;
}

class draft_writer {
  public:
    std::string write(const document_shape& document) {
        std::string root;
        write_element(document, document.name, "  ", true, root);
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">\n" +
               root + types_ + "</xs:schema>\n";
    }

  private:
    void write_element(const document_shape& shape, const std::string& name,
                       const std::string& indent, bool is_root, std::string& out);
    void write_family(const document_shape& shape, const std::string& parent,
                      const std::string& indent, std::string& out);
    void write_notes(const document_shape& shape, const std::string& indent, std::string& out);
    void write_content(const document_shape& shape, const std::string& indent, std::string& out);
    static void write_attributes(const document_shape& shape, const std::string& indent,
                                 std::string& out);
    std::string free_name(const std::string& base, const std::string& parent);
    std::string named_type(const std::string& name, const guessed_type& type);

    std::string types_;
    std::set<std::string> names_;
    std::map<std::set<std::string>, std::string> enumerations_;
};

// A text with attributes needs a type with a name: what is written here is found again.
std::string draft_writer::named_type(const std::string& name, const guessed_type& type) {
    if (!type.name.empty()) {
        return type.name;
    }
    const auto known = enumerations_.find(type.values);
    if (known != enumerations_.end()) {
        return known->second;
    }
    const std::string made = free_name(name, "Kind");
    std::string text = enumeration_of(type.values, "  ");
    text.insert(text.find("<xs:simpleType") + 14, " name=\"" + made + "\"");
    types_ += text;
    return enumerations_[type.values] = made;
}

std::string draft_writer::free_name(const std::string& base, const std::string& parent) {
    std::string name = base;
    if (names_.contains(name)) {
        name = parent + base;
    }
    for (int number = 2; names_.contains(name); ++number) {
        name = parent + base + "-" + std::to_string(number);
    }
    names_.insert(name);
    return name;
}

void draft_writer::write_notes(const document_shape& shape, const std::string& indent,
                               std::string& out) {
    const bool is_leaf = shape.children.empty();
    out += indent + "<xs:annotation>\n" + indent + "  <xs:documentation xml:lang=\"en\">" +
           xml_escaped(label_of(shape.name)) + "</xs:documentation>\n";
    if (is_leaf) {
        out += indent + "  <xs:appinfo><guess/>" + (is_secret_path(shape.name) ? "<secret/>" : "") +
               "</xs:appinfo>\n";
    }
    out += indent + "</xs:annotation>\n";
}

void draft_writer::write_attributes(const document_shape& shape, const std::string& indent,
                                    std::string& out) {
    for (const auto& [name, values] : shape.attributes) {
        const guessed_type type = guess(values);
        out += indent + "<xs:attribute name=\"" + xml_escaped(name) + "\"";
        if (type.values.empty()) {
            out += " type=\"" + type.name + "\"/>\n";
        } else {
            out += ">\n";
            out += enumeration_of(type.values, indent + "  ");
            out.append(indent).append("</xs:attribute>\n");
        }
    }
}

// What stands within the element, behind its notes; a type of its own in its place.
void draft_writer::write_content(const document_shape& shape, const std::string& indent,
                                 std::string& out) {
    const texts& values = shape.texts;
    const guessed_type type =
        is_secret_path(shape.name) ? guessed_type{"xs:string", {}} : guess(values);
    if (shape.children.empty() && shape.attributes.empty()) {
        out += enumeration_of(type.values, indent);
        return;
    }
    out += indent + "<xs:complexType>\n";
    if (shape.children.empty()) {
        out += indent + "  <xs:simpleContent>\n" + indent + "    <xs:extension base=\"" +
               named_type(shape.name, type) + "\">\n";
        write_attributes(shape, indent + "      ", out);
        out += indent + "    </xs:extension>\n" + indent + "  </xs:simpleContent>\n";
    } else {
        out += indent + "  <xs:all>\n";
        for (const document_shape& child : shape.children) {
            if (child.is_family()) {
                write_family(child, shape.name, indent + "    ", out);
            } else {
                write_element(child, child.name, indent + "    ", false, out);
            }
        }
        out += indent + "  </xs:all>\n";
        write_attributes(shape, indent + "  ", out);
    }
    out += indent + "</xs:complexType>\n";
}

void draft_writer::write_element(const document_shape& shape, const std::string& name,
                                 const std::string& indent, bool is_root, std::string& out) {
    const bool plain = shape.children.empty() && shape.attributes.empty();
    const guessed_type type =
        is_secret_path(name) ? guessed_type{"xs:string", {}} : guess(shape.texts);
    out += indent + "<xs:element name=\"" + xml_escaped(name) + "\"" +
           (plain && type.values.empty() ? " type=\"" + type.name + "\"" : "") +
           (is_root ? ">\n" : " minOccurs=\"0\">\n");
    write_notes(shape, indent + "  ", out);
    if (!plain || !type.values.empty()) {
        write_content(shape, indent + "  ", out);
    }
    out += indent + "</xs:element>\n";
}

// All members are of one type, which stands behind the document.
void draft_writer::write_family(const document_shape& shape, const std::string& parent,
                                const std::string& indent, std::string& out) {
    const bool plain = shape.children.empty() && shape.attributes.empty();
    const guessed_type guessed = guess(shape.texts);
    std::string type = guessed.name;
    if (plain && !guessed.values.empty()) {
        type = named_type(shape.name, guessed);
    } else if (!plain) {
        type = free_name(shape.name, parent);
        std::string text;
        write_content(shape, "  ", text);
        text.insert(text.find("<xs:complexType") + 15, " name=\"" + type + "\"");
        types_ += text;
    }
    for (uint32_t number = shape.first; number <= shape.last; ++number) {
        out.append(indent).append("<xs:element name=\"").append(shape.name);
        out.append(std::to_string(number)).append("\" type=\"").append(type);
        out += "\" minOccurs=\"0\"";
        if (!plain && !shape.children.empty()) {
            out += "/>\n";
            continue;
        }
        out += ">\n";
        write_notes(shape, indent + "  ", out);
        out += indent + "</xs:element>\n";
    }
}

}  // namespace

std::string xml_escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string draft_description(const document_shape& document) {
    return draft_writer().write(document);
}

}  // namespace veltrancord::tool
