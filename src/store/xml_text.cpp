#include "store/xml_text.h"

#include <array>
#include <cstring>
#include <string_view>

namespace veltrancord {

namespace {

constexpr std::string_view indentation = "    ";
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

// The characters that are written as something else than themselves.
constexpr std::array<bool, 256> encoded_table = [] {
    std::array<bool, 256> table{};
    for (std::size_t c = 0; c < 32; ++c) {
        table[c] = true;
    }
    for (const char c : std::string_view("&<>\"'")) {
        table[static_cast<unsigned char>(c)] = true;
    }
    return table;
}();

void Indent(int depth, std::string& out) {
    for (int i = 0; i < depth; ++i) {
        out += indentation;
    }
}

// A name or text as the library prints it where it is not encoded: up to its first NUL.
void AppendPlain(const std::string& text, std::string& out) {
    out.append(text.c_str(), std::strlen(text.c_str()));
}

void AppendEncodedCharacter(char c, std::string& out) {
    constexpr std::string_view digits = "0123456789ABCDEF";
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
            out += "&apos;";
            break;
        default:
            out += "&#x";
            out += digits[static_cast<unsigned char>(c) >> 4U];
            out += digits[static_cast<unsigned char>(c) & 15U];
            out += ';';
            break;
    }
}

// Text with entities. Builds of the library differ in whether they pass on what looks like a
// character reference in the text itself, so such a text is left to the library.
void AppendEncoded(const std::string& text, std::string& out) {
    std::size_t plain = 0;  // start of the run that is copied as it stands
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!encoded_table[static_cast<unsigned char>(text[i])]) {
            continue;
        }
        if (text[i] == '&' && text.compare(i, 3, "&#x") == 0) {
            std::string rest;
            TiXmlBase::EncodeString(text.substr(i), &rest);
            out.append(text, plain, i - plain);
            AppendPlain(rest, out);
            return;
        }
        out.append(text, plain, i - plain);
        AppendEncodedCharacter(text[i], out);
        plain = i + 1;
    }
    out.append(text, plain, text.size() - plain);
}

void AppendAttribute(const TiXmlAttribute& attribute, std::string& out) {
    const std::string& value = attribute.ValueStr();
    const char quote = value.find('"') == std::string::npos ? '"' : '\'';
    AppendEncoded(attribute.NameTStr(), out);
    out += '=';
    out += quote;
    AppendEncoded(value, out);
    out += quote;
}

void AppendDeclaration(const TiXmlDeclaration& declaration, std::string& out) {
    const auto append = [&out](std::string_view name, std::string_view value) {
        if (!value.empty()) {
            out.append(name).append("=\"").append(value).append("\" ");
        }
    };
    out += "<?xml ";
    append("version", declaration.Version());
    append("encoding", declaration.Encoding());
    append("standalone", declaration.Standalone());
    out += "?>";
}

void AppendText(const TiXmlText& text, int depth, std::string& out) {
    if (!text.CDATA()) {
        AppendEncoded(text.ValueStr(), out);
        return;
    }
    out += '\n';
    Indent(depth, out);
    out += "<![CDATA[";
    AppendPlain(text.ValueStr(), out);
    out += "]]>\n";
}

// An element without children is one tag; one whose only child is a text stays on one line; all
// others have each child that is no text on a line of its own.
void AppendElement(const TiXmlElement& element, int depth, std::string& out) {
    Indent(depth, out);
    out += '<';
    AppendPlain(element.ValueStr(), out);
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        out += ' ';
        AppendAttribute(*attribute, out);
    }
    const TiXmlNode* const first = element.FirstChild();
    if (first == nullptr) {
        out += " />";
        return;
    }
    out += '>';
    if (first == element.LastChild() && first->ToText() != nullptr) {
        AppendText(*first->ToText(), depth + 1, out);
    } else {
        for (const TiXmlNode* child = first; child != nullptr; child = child->NextSibling()) {
            if (child->ToText() == nullptr) {
                out += '\n';
            }
            PrintXml(*child, depth + 1, out);
        }
        out += '\n';
        Indent(depth, out);
    }
    out += "</";
    AppendPlain(element.ValueStr(), out);
    out += '>';
}

}  // namespace

void PrintXml(const TiXmlNode& node, int depth, std::string& out) {
    switch (node.Type()) {
        case TiXmlNode::TINYXML_DOCUMENT:
            for (const TiXmlNode* child = node.FirstChild(); child != nullptr;
                 child = child->NextSibling()) {
                PrintXml(*child, depth, out);
                out += '\n';
            }
            break;
        case TiXmlNode::TINYXML_ELEMENT:
            AppendElement(*node.ToElement(), depth, out);
            break;
        case TiXmlNode::TINYXML_TEXT:
            AppendText(*node.ToText(), depth, out);
            break;
        case TiXmlNode::TINYXML_COMMENT:
            Indent(depth, out);
            out += "<!--";
            AppendPlain(node.ValueStr(), out);
            out += "-->";
            break;
        case TiXmlNode::TINYXML_DECLARATION:
            AppendDeclaration(*node.ToDeclaration(), out);
            break;
        default:
            Indent(depth, out);
            out += '<';
            AppendPlain(node.ValueStr(), out);
            out += '>';
            break;
    }
}

std::string SerialiseXmlDoc(const XmlDocument& document) {
    std::string text;
    if (document.HasByteOrderMark()) {
        text += byte_order_mark;
    }
    PrintXml(document, 0, text);
    return text;
}

}  // namespace veltrancord
