// Splitting dotted paths: against a split of the simplest kind, and the bounds of every result.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "encoding/escape.h"
#include "fuzz_target.h"
#include "store/path.h"

namespace veltrancord::fuzz {
namespace {

std::vector<std::string> simple_split(std::string_view path) {
    std::vector<std::string> names;
    std::string text(up_to_nul(path.substr(0, max_path_text)));
    text += '.';
    std::string token;
    for (const char c : text) {
        if (c != '.') {
            token += c;
        } else if (!token.empty()) {
            char encoded[max_path_text + 1];
            url_encode(encoded, sizeof encoded, token);
            names.emplace_back(encoded);
            token.clear();
        }
    }
    return names;
}

std::vector<std::string> names_of(const XmlPath& list) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < list.size(); ++i) {
        require(std::strlen(list[i].name) == list[i].length, "a component's length");
        require(list[i].length <= max_path_text, "a component's bound");
        names.emplace_back(list[i].Text());
    }
    return names;
}

void check_joined(const XmlPath& list, const std::vector<std::string>& names, std::size_t size,
                  std::string_view before) {
    std::string whole(before);
    for (std::size_t i = 0; i < names.size(); ++i) {
        whole += (i > 0 ? "." : "") + names[i];
    }
    std::string buffer(before);
    buffer.resize(size);
    JoinXmlPath(list, buffer.data(), size);
    require(std::string_view(buffer.data()) == whole.substr(0, size - 1), "the joined path");
}

void check_shortened(XmlPath& list, std::vector<std::string> names) {
    const bool wildcard = names.back() == "*";
    require(IsXmlPathWildcard(list) == wildcard, "the wildcard");
    StripXmlPathWildcard(list);
    if (wildcard && names.size() == 1) {
        names.front().clear();
    } else if (wildcard) {
        names.pop_back();
    }
    require(names_of(list) == names, "the path without its wildcard");
    DropXmlPathTail(list);
    if (names.size() > 1) {
        names.pop_back();
    }
    require(names_of(list) == names, "the path without its tail");
}

}  // namespace

void try_input(input_reader& input) {
    const std::string_view path = input.rest();
    const std::vector<std::string> names = simple_split(path);
    XmlPath list;
    require(SplitXmlPath(path, list) == !names.empty(), "whether a path splits");
    require(names_of(list) == names, "the components");
    if (names.empty()) {
        return;
    }
    require(XmlPathLast(list) == names.back(), "the last component");
    require(names.size() > 1 ? XmlPathParent(list) == names[names.size() - 2]
                             : XmlPathParent(list).data() == nullptr,
            "the last but one");
    check_joined(list, names, 256, "");
    check_joined(list, names, std::max<std::size_t>(2, path.size()), "x");
    check_shortened(list, names);
}

}  // namespace veltrancord::fuzz
