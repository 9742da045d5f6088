#include "store/attribute_query.h"

#include <algorithm>
#include <cstring>

#include "leaf/bounded_text.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "store/attribute_listing.h"
#include "store/document_set.h"
#include "store/path.h"
#include "store/read_query.h"
#include "store/value.h"

namespace veltrancord {

namespace {

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

int32_t List(const TiXmlElement& element, Mode how, std::string_view prefix, const char* name,
             AttributeListing& listing) {
    const TiXmlElement* const child = element.FirstChildElement();
    const bool below = how == Mode::all_below || how == Mode::one_in_subtree;
    if (!below || child == nullptr) {
        return ListXmlAttrs(&element, listing, prefix, name);
    }
    const int32_t result = ListXmlAttrTree(child, listing, prefix, name);
    if (how == Mode::one_in_subtree && g_storeHooks.reply_length_word != nullptr) {
        if (uint32_t* const word = g_storeHooks.reply_length_word(); word != nullptr) {
            *word = static_cast<uint32_t>(listing.Used());
        }
    }
    return result;
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
    value = text;
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
    const int32_t result = List(*element, how, prefix, named ? name : nullptr, listing);
    if (listing.OutOfMemory()) {
        print_error("%s %d Allocate fail!!\n", "ReadAttributeHandleFun", __LINE__);
        listing.Clear();
        return result_too_large;
    }
    if (result != 0) {
        if (how != Mode::own) {
            print_error("ERR_PARAMETER\n");
        }
        listing.Clear();
        return result_bad_argument;
    }
    return static_cast<int32_t>(listing.Used());
}

}  // namespace veltrancord
