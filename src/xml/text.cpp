#include "xml/text.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace veltrancord {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

// The characters that are written as something else than themselves: those below the blank, and
// these.
constexpr std::string_view marks = "&<>\"'";

constexpr std::array<bool, 256> encoded_table = [] {
    std::array<bool, 256> table{};
    for (std::size_t c = 0; c < 32; ++c) {
        table[c] = true;
    }
    for (const char c : marks) {
        table[static_cast<unsigned char>(c)] = true;
    }
    return table;
}();

// How many characters at the beginning are written as they stand.
std::size_t PlainLength(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && !encoded_table[static_cast<unsigned char>(text[at])]) {
        ++at;
    }
    return at;
}

// A name or text as the library prints it where it is not encoded: up to its first NUL.
std::string_view UpToNul(const std::string& text) {
    return {text.c_str(), std::strlen(text.c_str())};
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

class Printer {
  public:
    explicit Printer(std::string& out) : out_(out) {}

    void Print(const TiXmlNode& node, int depth);
    [[nodiscard]] bool Regular() const { return regular_; }

  private:
    void Indent(int depth) { out_.append(static_cast<std::size_t>(depth) * xml_indentation, ' '); }
    void Raw(std::string_view text);
    void Encoded(std::string_view text);
    void Attribute(const TiXmlAttribute& attribute);
    void Declaration(const TiXmlDeclaration& declaration);
    void Text(const TiXmlText& text, int depth);
    [[nodiscard]] bool ShortLine(std::string_view name, std::string_view text, int depth);
    void StartTag(const TiXmlElement& element, std::string_view name, int depth);
    void Element(const TiXmlElement& element, int depth);
    void Children(const TiXmlNode& first, int depth);

    std::string& out_;
    bool regular_ = true;
};

// What may hold anything, between marks of its own.
void Printer::Raw(std::string_view text) {
    regular_ = regular_ && text.find('\n') == std::string_view::npos;
    out_ += text;
}

// Text with entities. Builds of the library differ in whether they pass on what looks like a
// character reference in the text itself, so such a text is left to the library.
void Printer::Encoded(std::string_view text) {
    for (;;) {
        const std::size_t plain = PlainLength(text);
        out_ += text.substr(0, plain);
        if (plain == text.size()) {
            return;
        }
        text.remove_prefix(plain);
        if (text.starts_with("&#x")) {
            regular_ = false;
            std::string rest;
            TiXmlBase::EncodeString(std::string(text), &rest);
            out_ += UpToNul(rest);
            return;
        }
        AppendEncodedCharacter(text.front(), out_);
        text.remove_prefix(1);
    }
}

void Printer::Attribute(const TiXmlAttribute& attribute) {
    const std::string& value = attribute.ValueStr();
    const char quote = value.find('"') == std::string::npos ? '"' : '\'';
    out_ += ' ';
    Encoded(attribute.NameTStr());
    out_ += '=';
    out_ += quote;
    Encoded(value);
    out_ += quote;
}

void Printer::Declaration(const TiXmlDeclaration& declaration) {
    const auto print = [this](std::string_view name, std::string_view value) {
        if (!value.empty()) {
            out_.append(name).append("=\"");
            Raw(value);
            out_ += "\" ";
        }
    };
    out_ += "<?xml ";
    print("version", declaration.Version());
    print("encoding", declaration.Encoding());
    print("standalone", declaration.Standalone());
    out_ += "?>";
}

void Printer::Text(const TiXmlText& text, int depth) {
    if (!text.CDATA()) {
        Encoded(text.ValueStr());
        return;
    }
    out_ += '\n';
    Indent(depth);
    out_ += "<![CDATA[";
    Raw(UpToNul(text.ValueStr()));
    out_ += "]]>\n";
}

// What nearly every line is, an element with a short text that needs no encoding, in one piece.
//
// Return: false when it is not of that kind; nothing is printed then.
bool Printer::ShortLine(std::string_view name, std::string_view text, int depth) {
    constexpr std::size_t room = 256;
    constexpr std::size_t brackets = 5;
    const std::size_t indented = static_cast<std::size_t>(depth) * xml_indentation;
    const std::size_t size = indented + name.size() * 2 + text.size() + brackets;
    if (size > room || PlainLength(text) != text.size()) {
        return false;
    }
    char line[room];
    char* at = line;
    const auto put = [&at](std::string_view part) {
        std::memcpy(at, part.data(), part.size());
        at += part.size();
    };
    std::memset(at, ' ', indented);
    at += indented;
    *at++ = '<';
    put(name);
    *at++ = '>';
    put(text);
    *at++ = '<';
    *at++ = '/';
    put(name);
    *at = '>';
    out_.append(line, size);
    return true;
}

void Printer::StartTag(const TiXmlElement& element, std::string_view name, int depth) {
    Indent(depth);
    out_ += '<';
    out_ += name;
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        Attribute(*attribute);
    }
}

// An element without children is one tag; one whose only child is a text stays on one line; all
// others have each child that is no text on a line of its own.
void Printer::Element(const TiXmlElement& element, int depth) {
    const std::string_view name = UpToNul(element.ValueStr());
    const TiXmlNode* const first = element.FirstChild();
    const TiXmlText* const text =
        first != nullptr && first == element.LastChild() ? first->ToText() : nullptr;
    if (text != nullptr && !text->CDATA() && element.FirstAttribute() == nullptr &&
        ShortLine(name, text->ValueStr(), depth)) {
        return;
    }
    StartTag(element, name, depth);
    if (first == nullptr) {
        out_ += " />";
        return;
    }
    out_ += '>';
    if (text != nullptr) {
        Text(*text, depth + 1);
    } else {
        Children(*first, depth + 1);
        out_ += '\n';
        Indent(depth);
    }
    out_ += "</";
    out_ += name;
    out_ += '>';
}

void Printer::Children(const TiXmlNode& first, int depth) {
    for (const TiXmlNode* child = &first; child != nullptr; child = child->NextSibling()) {
        if (child->Type() != TiXmlNode::TINYXML_TEXT) {
            out_ += '\n';
        }
        Print(*child, depth);
    }
}

void Printer::Print(const TiXmlNode& node, int depth) {
    switch (node.Type()) {
        case TiXmlNode::TINYXML_DOCUMENT:
            for (const TiXmlNode* child = node.FirstChild(); child != nullptr;
                 child = child->NextSibling()) {
                Print(*child, depth);
                out_ += '\n';
            }
            break;
        case TiXmlNode::TINYXML_ELEMENT:
            Element(*node.ToElement(), depth);
            break;
        case TiXmlNode::TINYXML_TEXT:
            Text(*node.ToText(), depth);
            break;
        case TiXmlNode::TINYXML_COMMENT:
            Indent(depth);
            out_ += "<!--";
            Raw(UpToNul(node.ValueStr()));
            out_ += "-->";
            break;
        case TiXmlNode::TINYXML_DECLARATION:
            Declaration(*node.ToDeclaration());
            break;
        default:
            Indent(depth);
            out_ += '<';
            Raw(UpToNul(node.ValueStr()));
            out_ += '>';
            break;
    }
}

}  // namespace

bool IsWrittenAsEntity(char c) {
    return encoded_table[static_cast<unsigned char>(c)];
}

bool PrintXml(const TiXmlNode& node, int depth, std::string& out) {
    Printer printer(out);
    printer.Print(node, depth);
    return printer.Regular();
}

bool SerialiseXmlDoc(const XmlDocument& document, std::string& out) {
    if (document.HasByteOrderMark()) {
        out += byte_order_mark;
    }
    return PrintXml(document, 0, out);
}

std::string SerialiseXmlDoc(const XmlDocument& document) {
    std::string text;
    SerialiseXmlDoc(document, text);
    return text;
}

}  // namespace veltrancord
