#include "store/attribute_query.h"

#include <algorithm>
#include <cstring>

#include "leaf/bounded_text.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "store/document_set.h"
#include "store/path.h"
#include "store/read_query.h"
#include "store/secret_view.h"
#include "store/value.h"

namespace veltrancord {

namespace {

constexpr std::size_t max_key = 511;

constexpr std::string_view all_marker = "*";
// "#" as splitting a path leaves it. A client's own "_23" becomes something else, so this is "#".
constexpr std::string_view own_marker = "_23";

// An attribute's name as a path gives it, cut to 63 bytes.
using AttributeName = char[64];

// Splits the path and finds its document; both cores begin so.
//
// Return: result_ok, result_bad_argument or result_not_found.
int32_t Begin(std::string_view path, XmlPath& list, XmlDocument*& document) {
    if (!SplitXmlPath(path, list) || path == ".*") {
        return result_bad_argument;
    }
    document = FindXmlDoc(list[0].Text());
    return document != nullptr ? result_ok : result_not_found;
}

enum class Mode { one, all_below, one_in_subtree, own };

// Takes the tail that chooses the mode off the path, and the attribute's name where it holds one.
Mode TakeTail(XmlPath& list, AttributeName& name) {
    const bool all = XmlPathLast(list) == all_marker;
    if (XmlPathParent(list) == all_marker && !all) {
        copy_bounded(name, XmlPathLast(list));
        DropXmlPathTail(list);
        DropXmlPathTail(list);
        return Mode::one_in_subtree;
    }
    if (all) {
        if (XmlPathParent(list) == all_marker) {
            StripXmlPathWildcard(list);
        }
        StripXmlPathWildcard(list);
        return Mode::all_below;
    }
    const bool own = XmlPathLast(list) == own_marker;
    if (!own) {
        copy_bounded(name, XmlPathLast(list));
    }
    DropXmlPathTail(list);
    return own ? Mode::own : Mode::one;
}

// Where lines go: the end of an opened reply text, up to a capacity.
class AttributeListing {
  public:
    AttributeListing(reply_text& out, uint32_t capacity)
        : out_(out), start_(out.size()), capacity_(capacity) {}

    // Appends "key=value\n". The whole line counts against the capacity.
    //
    // Return: false when it does not fit, or memory could not be had.
    [[nodiscard]] bool Append(std::string_view key, std::string_view value);

    // Bytes listed so far.
    [[nodiscard]] std::size_t Used() const { return out_.size() - start_; }

    // Whether a line that fits could not be stored: the listing is then worth nothing.
    [[nodiscard]] bool OutOfMemory() const { return out_of_memory_; }

    // Takes back what was listed.
    void Clear() { out_.truncate(start_); }

  private:
    reply_text& out_;
    std::size_t start_;
    std::size_t capacity_;
    bool out_of_memory_ = false;
};

bool AttributeListing::Append(std::string_view key, std::string_view value) {
    const std::size_t length = key.size() + value.size() + 2;
    if (capacity_ < Used() + length) {
        return false;
    }
    if (!out_.reserve(out_.size() + length)) {
        out_of_memory_ = true;
        return false;
    }
    return out_.append(key) && out_.append("=") && out_.append(value) && out_.append("\n");
}

// A key in a field of fixed size, to which names are appended and taken off again.
class AttributeKey {
  public:
    explicit AttributeKey(std::string_view prefix) { Append(prefix); }

    [[nodiscard]] std::size_t Size() const { return size_; }
    [[nodiscard]] std::string_view View() const { return {text_, size_}; }
    void Cut(std::size_t size) { size_ = size; }
    void Append(std::string_view text) {
        size_ += text.copy(text_ + size_, std::min(text.size(), max_key - size_));
    }

  private:
    char text_[max_key];
    std::size_t size_ = 0;
};

// Lists the attributes of `element` in their order, all of them or (name not null) only those of
// that name. A key is the element's, "." and the attribute's name.
//
// Return: false when a line does not fit; lines before it stay listed.
bool ListXmlAttrs(const TiXmlElement& element, AttributeListing& listing, AttributeKey& key,
                  const char* name) {
    const std::size_t size = key.Size();
    bool fits = true;
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); fits && attribute != nullptr;
         attribute = attribute->Next()) {
        if (name != nullptr && std::strcmp(name, attribute->Name()) != 0) {
            continue;
        }
        key.Append(".");
        key.Append(attribute->Name());
        fits = listing.Append(
            key.View(), IsHiddenSecret(element, attribute->NameTStr()) ? "" : attribute->Value());
        key.Cut(size);
    }
    return fits;
}

// Does the same for `first`, the elements that follow it and all below them, whose names are
// appended to the key as they are stored. A line that does not fit ends its element's lines and
// nothing else: those of other elements may still fit.
// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which loading bounds.
void ListXmlAttrTree(const TiXmlElement* first, AttributeListing& listing, AttributeKey& key,
                     const char* name) {
    const std::size_t size = key.Size();
    for (const TiXmlElement* element = first; element != nullptr && !listing.OutOfMemory();
         element = element->NextSiblingElement()) {
        key.Append(".");
        key.Append(element->ValueStr());
        static_cast<void>(ListXmlAttrs(*element, listing, key, name));
        ListXmlAttrTree(element->FirstChildElement(), listing, key, name);
        key.Cut(size);
    }
}

// Return: false when a line does not fit that had to.
bool List(const TiXmlElement& element, Mode how, std::string_view prefix, const char* name,
          AttributeListing& listing) {
    AttributeKey key(prefix);
    const TiXmlElement* const child = element.FirstChildElement();
    const bool below = how == Mode::all_below || how == Mode::one_in_subtree;
    if (!below || child == nullptr) {
        return ListXmlAttrs(element, listing, key, name);
    }
    ListXmlAttrTree(child, listing, key, name);
    if (how == Mode::one_in_subtree && g_storeHooks.reply_length_word != nullptr) {
        if (uint32_t* const word = g_storeHooks.reply_length_word(); word != nullptr) {
            *word = static_cast<uint32_t>(listing.Used());
        }
    }
    return true;
}

}  // namespace

int32_t ReadSingleAttr(std::string_view path, std::string_view& value) {
    XmlPath list;
    XmlDocument* document = nullptr;
    if (const int32_t begun = Begin(path, list, document); begun != result_ok) {
        return begun;
    }
    if (XmlPathParent(list) == all_marker || XmlPathLast(list) == all_marker ||
        XmlPathLast(list) == own_marker) {
        return result_bad_argument;
    }
    AttributeName name;
    copy_bounded(name, XmlPathLast(list));
    DropXmlPathTail(list);
    const TiXmlElement* const element = FindXmlElement(document->RootElement(), list);
    const char* const text = element != nullptr ? element->Attribute(name) : nullptr;
    if (text == nullptr) {
        return result_not_found;
    }
    value = IsHiddenSecret(*element, name) ? "" : text;
    return static_cast<int32_t>(value.size());
}

int32_t ReadAttributeHandleFun(std::string_view path, reply_text& out) {
    XmlPath list;
    XmlDocument* document = nullptr;
    if (const int32_t begun = Begin(path, list, document); begun != result_ok) {
        return begun;
    }
    if (XmlPathParent(list) == all_marker && XmlPathLast(list) == own_marker) {
        return result_not_found;  // a marker is no name, though the tail asks for one
    }
    AttributeName name = "";
    const Mode how = TakeTail(list, name);
    const TiXmlElement* const element = FindXmlElement(document->RootElement(), list);
    if (element == nullptr) {
        return result_not_found;
    }
    char prefix[listing_key_size] = "";
    JoinXmlPath(list, prefix, sizeof(prefix));
    AttributeListing listing(out, ReadReplyCapacity(out));
    const bool named = how == Mode::one || how == Mode::one_in_subtree;
    const bool fits = List(*element, how, prefix, named ? name : nullptr, listing);
    if (listing.OutOfMemory()) {
        print_error("%s %d Allocate fail!!\n", "ReadAttributeHandleFun", __LINE__);
        listing.Clear();
        return result_too_large;
    }
    if (!fits) {
        if (how != Mode::own) {
            print_error("ERR_PARAMETER\n");
        }
        listing.Clear();
        return result_bad_argument;
    }
    return static_cast<int32_t>(listing.Used());
}

}  // namespace veltrancord
