#include "xml/child_index.h"

#include <climits>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "xml/document.h"

namespace veltrancord {

namespace {

constexpr std::size_t least_slots = 256;

XmlDocument* DocumentOf(TiXmlNode& node) {
    return dynamic_cast<XmlDocument*>(node.GetDocument());
}

// The first element of that name among `node` and the siblings behind it, at most `limit` of them.
// Where none is found, `node` becomes the first that was not looked at, or null.
TiXmlElement* Walk(TiXmlNode*& node, std::string_view name, int limit) {
    for (; node != nullptr && limit > 0; node = node->NextSibling(), --limit) {
        if (node->Type() == TiXmlNode::TINYXML_ELEMENT && node->ValueStr() == name) {
            return static_cast<TiXmlElement*>(node);
        }
    }
    return nullptr;
}

// Return: null when memory could not be had, or `parent` is in no document.
ChildIndex* MakeIndex(TiXmlNode& parent) {
    XmlDocument* const document = DocumentOf(parent);
    return document != nullptr ? document->ChildIndexes().Make(parent) : nullptr;
}

void DropIndexes(TiXmlNode& node) {
    if (XmlDocument* const document = DocumentOf(node); document != nullptr) {
        document->ChildIndexes().Drop();
    }
}

}  // namespace

ChildIndex::ChildIndex(TiXmlNode& parent) : parent_(parent) {
    std::size_t children = 0;
    for (TiXmlElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        ++children;
    }
    Resize(children);
    for (TiXmlElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        Append(*child);
    }
    parent.SetUserData(this);
}

std::size_t ChildIndex::Home(std::string_view name) const {
    return std::hash<std::string_view>()(name) & (slots_.size() - 1);
}

// Where the name stands, or the free Slot where it belongs.
std::size_t ChildIndex::Place(std::string_view name) const {
    std::size_t place = Home(name);
    while (slots_[place].first != nullptr && slots_[place].first->ValueStr() != name) {
        place = Next(place);
    }
    return place;
}

// Makes room for that many names with a quarter of the slots left free.
void ChildIndex::Resize(std::size_t names) {
    std::size_t size = least_slots;
    while (size / 4 * 3 < names) {
        size *= 2;
    }
    const std::vector<Slot> before = std::exchange(slots_, std::vector<Slot>(size));
    for (const Slot& one : before) {
        if (one.first != nullptr) {
            slots_[Place(one.first->ValueStr())] = one;
        }
    }
}

TiXmlElement* ChildIndex::First(std::string_view name) const {
    return slots_[Place(name)].first;
}

TiXmlElement* ChildIndex::Last(std::string_view name) const {
    return slots_[Place(name)].last;
}

void ChildIndex::Append(TiXmlElement& child) {
    if (used_ + 1 > slots_.size() / 4 * 3) {
        Resize(used_ + 1);
    }
    Slot& place = slots_[Place(child.ValueStr())];
    if (place.first == nullptr) {
        place.first = &child;
        ++used_;
    }
    place.last = &child;
}

void ChildIndex::Remove(TiXmlElement& child) {
    const std::size_t place = Place(child.ValueStr());
    Slot& found = slots_[place];
    if (found.first == found.last) {
        Free(place);
    } else if (found.first == &child) {
        found.first = child.NextSiblingElement(child.ValueStr());
    } else if (found.last == &child) {
        found.last = child.PreviousSibling(child.ValueStr())->ToElement();
    }
}

// Names behind the freed Slot that would not be found across it move up.
void ChildIndex::Free(std::size_t place) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = Next(place); slots_[i].first != nullptr; i = Next(i)) {
        const std::size_t home = Home(slots_[i].first->ValueStr());
        if (((i - home) & mask) >= ((i - place) & mask)) {
            slots_[place] = slots_[i];
            place = i;
        }
    }
    slots_[place] = {};
    --used_;
}

ChildIndex* ChildIndexSet::Make(TiXmlNode& parent) {
    try {
        return &all_.emplace_front(parent);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

TiXmlElement* FirstChildNamed(TiXmlNode& parent, std::string_view name) {
    if (const ChildIndex* const made = ChildIndex::Of(parent); made != nullptr) {
        return made->First(name);
    }
    TiXmlNode* child = parent.FirstChild();
    TiXmlElement* const found = Walk(child, name, walked_children);
    if (found != nullptr || child == nullptr) {
        return found;
    }
    const ChildIndex* const index = MakeIndex(parent);
    return index != nullptr ? index->First(name) : Walk(child, name, INT_MAX);
}

TiXmlElement* NextOfSameName(TiXmlElement& element) {
    const std::string_view name = element.ValueStr();
    TiXmlNode& parent = *element.Parent();
    TiXmlNode* sibling = element.NextSibling();
    const ChildIndex* index = ChildIndex::Of(parent);
    if (index == nullptr) {
        TiXmlElement* const found = Walk(sibling, name, walked_children);
        if (found != nullptr || sibling == nullptr) {
            return found;
        }
        index = MakeIndex(parent);
    }
    if (index != nullptr && index->Last(name) == &element) {
        return nullptr;
    }
    return Walk(sibling, name, INT_MAX);
}

TiXmlElement& AppendElement(TiXmlNode& parent, const std::string& name) {
    TiXmlElement& child =
        *parent.LinkEndChild(std::make_unique<TiXmlElement>(name).release())->ToElement();
    if (ChildIndex* const index = ChildIndex::Of(parent); index != nullptr) {
        try {
            index->Append(child);
        } catch (const std::bad_alloc&) {
            DropIndexes(parent);
        }
    }
    return child;
}

void RemoveChildNode(TiXmlNode& child) {
    TiXmlNode& parent = *child.Parent();
    TiXmlElement* const element = child.ToElement();
    if (element != nullptr) {
        // What is below an element may be indexed, too.
        if (element->FirstChildElement() != nullptr || ChildIndex::Of(*element) != nullptr) {
            DropIndexes(parent);
        } else if (ChildIndex* const index = ChildIndex::Of(parent); index != nullptr) {
            index->Remove(*element);
        }
    }
    parent.RemoveChild(&child);
}

}  // namespace veltrancord
