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
using attribute_name = char[64];

// Splits the path and finds its document; both cores begin so.
//
// Return: result_ok, result_bad_argument or result_not_found.
int32_t Begin(std::string_view path, XmlPath& list, XmlDocument*& document) {
    if (!SplitXmlPath(path, list) || path == ".*") {
        return result_bad_argument;
    }
    document = FindXmlDoc(list[0].text());
    return document != nullptr ? result_ok : result_not_found;
}

enum class mode { one, all_below, one_in_subtree, own };

// Takes the tail that chooses the mode off the path, and the attribute's name where it holds one.
mode TakeTail(XmlPath& list, attribute_name& name) {
    const bool all = XmlPathLast(list) == all_marker;
    if (XmlPathParent(list) == all_marker && !all) {
        copy_bounded(name, XmlPathLast(list));
        DropXmlPathTail(list);
        DropXmlPathTail(list);
        return mode::one_in_subtree;
    }
    if (all) {
        if (XmlPathParent(list) == all_marker) {
            StripXmlPathWildcard(list);
        }
        StripXmlPathWildcard(list);
        return mode::all_below;
    }
    const bool own = XmlPathLast(list) == own_marker;
    if (!own) {
        copy_bounded(name, XmlPathLast(list));
    }
    DropXmlPathTail(list);
    return own ? mode::own : mode::one;
}

int32_t List(const TiXmlElement& element, mode how, std::string_view prefix, const char* name,
             attribute_listing& listing) {
    const TiXmlElement* const child = element.FirstChildElement();
    const bool below = how == mode::all_below || how == mode::one_in_subtree;
    if (!below || child == nullptr) {
        return ListXmlAttrs(&element, listing, prefix, name);
    }
    const int32_t result = ListXmlAttrTree(child, listing, prefix, name);
    if (how == mode::one_in_subtree && g_storeHooks.reply_length_word != nullptr) {
        if (uint32_t* const word = g_storeHooks.reply_length_word(); word != nullptr) {
            *word = static_cast<uint32_t>(listing.used());
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
    attribute_name name;
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
    attribute_name name = "";
    const mode how = TakeTail(list, name);
    const TiXmlElement* const element = FindXmlElement(document->RootElement(), list);
    if (element == nullptr) {
        return result_not_found;
    }
    char prefix[listing_key_size] = "";
    JoinXmlPath(list, prefix, sizeof(prefix));
    attribute_listing listing(out, read_reply_capacity(out));
    const bool named = how == mode::one || how == mode::one_in_subtree;
    const int32_t result = List(*element, how, prefix, named ? name : nullptr, listing);
    if (listing.out_of_memory()) {
        print_error("%s %d Allocate fail!!\n", "ReadAttributeHandleFun", __LINE__);
        listing.clear();
        return result_too_large;
    }
    if (result != 0) {
        if (how != mode::own) {
            print_error("ERR_PARAMETER\n");
        }
        listing.clear();
        return result_bad_argument;
    }
    return static_cast<int32_t>(listing.used());
}

}  // namespace veltrancord
