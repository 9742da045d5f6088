#include "document_shape.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "schema/description.h"

namespace veltrancord::tool {
namespace {

document_shape& child_named(document_shape& parent, const std::string& name) {
    const auto found = std::find_if(parent.children.begin(), parent.children.end(),
                                    [&](const document_shape& one) { return one.name == name; });
    if (found != parent.children.end()) {
        return *found;
    }
    parent.children.push_back({name, 0, 0, {}, {}, {}});
    return parent.children.back();
}

std::vector<std::string>& attribute_named(document_shape& shape, const std::string& name) {
    const auto found = std::find_if(shape.attributes.begin(), shape.attributes.end(),
                                    [&](const auto& one) { return one.first == name; });
    if (found != shape.attributes.end()) {
        return found->second;
    }
    shape.attributes.emplace_back(name, std::vector<std::string>());
    return shape.attributes.back().second;
}

void gather(const TiXmlElement& element, document_shape& shape) {
    for (const TiXmlAttribute* one = element.FirstAttribute(); one != nullptr; one = one->Next()) {
        attribute_named(shape, one->Name()).push_back(one->ValueStr());
    }
    std::string text;
    for (const TiXmlNode* node = element.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
        text += node->ToText() != nullptr ? node->ValueStr() : "";
        if (const TiXmlElement* const child = node->ToElement()) {
            gather(*child, child_named(shape, child->ValueStr()));
        }
    }
    if (!text.empty()) {
        shape.texts.push_back(text);
    }
}

void merge(document_shape& into, const document_shape& from) {
    into.texts.insert(into.texts.end(), from.texts.begin(), from.texts.end());
    for (const auto& [name, values] : from.attributes) {
        std::vector<std::string>& known = attribute_named(into, name);
        known.insert(known.end(), values.begin(), values.end());
    }
    for (const document_shape& one : from.children) {
        merge(child_named(into, one.name), one);
    }
}

struct numbers {
    uint32_t first = 0;
    uint32_t last = 0;
    std::size_t count = 0;
};

// As families of a description are told from names that only end in a number. A gap of thousands is
// none that somebody has counted.
bool is_family(const numbers& found) {
    constexpr uint32_t most_members = 1000;
    return found.count >= 2 && (found.first <= 1 || found.count >= 3) && found.last > 0 &&
           found.last <= most_members;
}

void join_families(document_shape& shape) {
    std::map<std::string, numbers, std::less<>> families;
    std::string_view base;
    uint32_t number = 0;
    for (const document_shape& one : shape.children) {
        if (schema::split_number(one.name, base, number)) {
            numbers& known =
                families.try_emplace(std::string(base), numbers{number, number, 0}).first->second;
            known.first = std::min(known.first, number);
            known.last = std::max(known.last, number);
            ++known.count;
        }
    }
    document_shape joined{shape.name, 0, 0, {}, {}, {}};
    for (const document_shape& one : shape.children) {
        const bool numbered = schema::split_number(one.name, base, number);
        const auto found = numbered ? families.find(base) : families.end();
        if (found == families.end() || !is_family(found->second)) {
            joined.children.push_back(one);
            continue;
        }
        const std::string marked = found->first + "#";  // no element is called so
        document_shape& family = child_named(joined, marked);
        family.first = std::min<uint32_t>(found->second.first, 1);
        family.last = found->second.last;
        merge(family, one);
    }
    shape.children = std::move(joined.children);
    for (document_shape& one : shape.children) {
        if (one.is_family()) {
            one.name.pop_back();
        }
        join_families(one);
    }
}

}  // namespace

document_shape shape_of(const TiXmlElement& root) {
    document_shape shape{root.ValueStr(), 0, 0, {}, {}, {}};
    gather(root, shape);
    join_families(shape);
    return shape;
}

}  // namespace veltrancord::tool
