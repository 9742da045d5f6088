#include "xml/document.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace veltrancord {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr std::string_view white_space = " \t\n\v\f\r";

// NUL bytes that must follow a text which is parsed: in UTF-8 text the library steps over a
// character by the length that its first byte announces, even where the text ends before.
constexpr std::size_t text_padding = 4;

// Cuts the text at its first NUL. Return: whether more than white space was behind it.
bool CutAtNul(std::string& text) {
    const std::size_t end = text.find('\0');
    if (end == std::string::npos) {
        return false;
    }
    const bool more = text.find_first_not_of(white_space, end + 1) != std::string::npos;
    text.resize(end);
    return more;
}

void NormaliseLineEnds(std::string& text) {
    std::size_t to = text.find('\r');
    if (to == std::string::npos) {
        return;
    }
    for (std::size_t from = to; from < text.size(); ++from) {
        const bool at_end = text[from] == '\r';
        if (at_end && text[from + 1] == '\n') {  // behind the last character there is a NUL
            ++from;
        }
        text[to++] = at_end ? '\n' : text[from];
    }
    text.resize(to);
}

}  // namespace

// Reads text into a document as the library's own parser would. Names, attributes, texts, comments
// and declarations are read by the library; what is done here is to go from one to the next.
//
// The library does that by calling itself for each element, and hangs an element into the tree when
// it has read all that is in it. Here an element is hung in before, so nesting is counted while
// reading, and whatever ends the reading, a refused allocation above all, leaves nothing behind
// that the document does not own.
class XmlDocument::Reader {
  public:
    Reader(XmlDocument& document, const char* text)
        : document_(document), at_(text), parent_(&document) {
        if (std::string_view(text).starts_with(byte_order_mark)) {
            encoding_ = TIXML_ENCODING_UTF8;
        }
    }

    // Return: where it stopped: the end of the text, what does not parse there (the document has
    // the error), or what is no markup behind the last element.
    const char* Read();

  private:
    [[nodiscard]] bool AtTop() const { return parent_ == &document_; }
    [[nodiscard]] const char* BehindWhiteSpace(const char* from) const {
        const char* const behind = SkipWhiteSpace(from, encoding_);
        return behind != nullptr ? behind : from;
    }

    bool Fail(int error);
    bool GoOn(const char* end) {
        at_ = end;
        return true;
    }
    [[nodiscard]] std::unique_ptr<TiXmlNode> MakeNode() const;
    bool ReadNext();
    bool ReadText();
    bool ReadMarkup();
    bool ReadStartTag(TiXmlElement& element);
    const char* ReadAttribute(TiXmlElement& element, const char* from);
    bool ReadEndTag();

    XmlDocument& document_;
    const char* at_;     // the beginning of what is to be read next
    TiXmlNode* parent_;  // the innermost open element, or the document
    int depth_ = 0;      // elements that are open
    TiXmlEncoding encoding_ = TIXML_ENCODING_UNKNOWN;
};

const char* XmlDocument::Reader::Read() {
    for (at_ = BehindWhiteSpace(at_); *at_ != '\0'; at_ = BehindWhiteSpace(at_)) {
        if (!ReadNext()) {
            return at_;
        }
    }
    if (!AtTop()) {
        Fail(TIXML_ERROR_READING_END_TAG);
    }
    return at_;
}

bool XmlDocument::Reader::Fail(int error) {
    document_.SetError(error, nullptr, nullptr, encoding_);
    return false;
}

// The node for the markup that begins here, as the library tells its kinds apart.
std::unique_ptr<TiXmlNode> XmlDocument::Reader::MakeNode() const {
    if (StringEqual(at_, "<?xml", true, encoding_)) {
        return std::make_unique<TiXmlDeclaration>();
    }
    if (StringEqual(at_, "<!--", false, encoding_)) {
        return std::make_unique<TiXmlComment>();
    }
    if (StringEqual(at_, "<![CDATA[", false, encoding_)) {
        auto text = std::make_unique<TiXmlText>("");
        text->SetCDATA(true);
        return text;
    }
    if (IsAlpha(static_cast<unsigned char>(at_[1]), encoding_) != 0 || at_[1] == '_') {
        return std::make_unique<TiXmlElement>("");
    }
    return std::make_unique<TiXmlUnknown>();
}

bool XmlDocument::Reader::ReadNext() {
    if (*at_ != '<') {
        return !AtTop() && ReadText();
    }
    return !AtTop() && at_[1] == '/' ? ReadEndTag() : ReadMarkup();
}

bool XmlDocument::Reader::ReadText() {
    auto text = std::make_unique<TiXmlText>("");
    const char* const end = text->Parse(at_, nullptr, encoding_);
    if (text->ValueStr().find_first_not_of(white_space) != std::string::npos) {
        parent_->LinkEndChild(text.release());
    }
    return end != nullptr ? GoOn(end) : Fail(TIXML_ERROR_READING_ELEMENT_VALUE);
}

bool XmlDocument::Reader::ReadMarkup() {
    TiXmlNode& node = *parent_->LinkEndChild(MakeNode().release());
    if (TiXmlElement* const element = node.ToElement()) {
        return ReadStartTag(*element);
    }
    const char* const end = node.Parse(at_, nullptr, encoding_);
    if (end == nullptr && AtTop()) {
        // No fault to the library: there it just ends.
        return false;
    }
    const TiXmlDeclaration* const declaration = node.ToDeclaration();
    if (AtTop() && declaration != nullptr && encoding_ == TIXML_ENCODING_UNKNOWN) {
        encoding_ = DeclaresUtf8(*declaration) ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
    }
    return end != nullptr ? GoOn(end) : Fail(TIXML_ERROR_READING_ELEMENT_VALUE);
}

bool XmlDocument::Reader::ReadStartTag(TiXmlElement& element) {
    if (depth_ == max_xml_nesting) {
        document_.nests_too_deep_ = true;
        return Fail(TIXML_ERROR_READING_ELEMENT_VALUE);
    }
    std::string name;
    const char* next = ReadName(BehindWhiteSpace(at_ + 1), &name, encoding_);
    element.SetValue(name);
    if (next == nullptr) {
        return Fail(TIXML_ERROR_FAILED_TO_READ_ELEMENT_NAME);
    }
    for (;;) {
        next = BehindWhiteSpace(next);
        if (next[0] == '/') {
            return next[1] == '>' ? GoOn(next + 2) : Fail(TIXML_ERROR_PARSING_EMPTY);
        }
        if (next[0] == '>') {
            parent_ = &element;
            ++depth_;
            return GoOn(next + 1);
        }
        next = ReadAttribute(element, next);
        if (next == nullptr) {
            return Fail(TIXML_ERROR_PARSING_ELEMENT);
        }
    }
}

// Return: where the attribute ends, or null when there is none, or a second one of its name.
const char* XmlDocument::Reader::ReadAttribute(TiXmlElement& element, const char* from) {
    TiXmlAttribute attribute;
    attribute.SetDocument(&document_);  // for its errors
    const char* const end = attribute.Parse(from, nullptr, encoding_);
    if (end == nullptr || *end == '\0' || element.Attribute(attribute.NameTStr()) != nullptr) {
        return nullptr;
    }
    element.SetAttribute(attribute.NameTStr(), attribute.ValueStr());
    return end;
}

bool XmlDocument::Reader::ReadEndTag() {
    const std::string& name = parent_->ValueStr();
    if (std::strncmp(at_ + 2, name.data(), name.size()) != 0) {
        return Fail(TIXML_ERROR_READING_END_TAG);
    }
    const char* const end = BehindWhiteSpace(at_ + 2 + name.size());
    if (*end != '>') {
        return Fail(TIXML_ERROR_READING_END_TAG);
    }
    parent_ = parent_->Parent();
    --depth_;
    return GoOn(end + 1);
}

uint64_t XmlDocument::last_edition_ = 0;

XmlDocument::XmlDocument(const char* name) : TiXmlDocument(name) {}

bool XmlDocument::LoadXMLFile(std::string text) {
    NewEdition();
    child_indexes_.Drop();
    Clear();
    location.Clear();
    ClearError();
    nests_too_deep_ = false;
    const bool more = CutAtNul(text);
    NormaliseLineEnds(text);
    // The library keeps a mark that it has once seen, and writes it at each save from then on.
    has_byte_order_mark_ = has_byte_order_mark_ || text.starts_with(byte_order_mark);
    text.append(text_padding, '\0');
    const char* stopped = nullptr;
    try {
        stopped = Reader(*this, text.c_str()).Read();
    } catch (const std::bad_alloc&) {
        Clear();
        throw;
    }
    const bool damaged = Error() || *stopped != '\0' || more;
    damaged_line_ =
        damaged ? 1 + static_cast<std::size_t>(std::count(text.c_str(), stopped, '\n')) : 0;
    if (nests_too_deep_) {
        Clear();
    }
    if (NoChildren()) {
        SetError(TIXML_ERROR_DOCUMENT_EMPTY, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
    }
    return !Error();
}

bool DeclaresUtf8(const TiXmlDeclaration& declaration) {
    const char* const encoding = declaration.Encoding();
    return *encoding == '\0' || strncasecmp(encoding, "UTF-8", 5) == 0 ||
           strncasecmp(encoding, "UTF8", 4) == 0;
}

}  // namespace veltrancord
