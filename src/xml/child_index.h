// Finding a child element by its name, however many children there are.
//
// A walk over the children is the fastest way for the few that an element usually has, and is what
// a list with a hundred thousand entries cannot afford. An element with more than
// walked_children of them therefore gets an index when a walk has not found what it looked for: a
// table from a name to the first and the last child of that name, which belongs to the document and
// hangs on the element (in the user data that the library keeps for its users).
//
// An index is never out of date, because child elements are appended and removed by AppendElement
// and RemoveChildNode and by nothing else: the first enters the newcomer, the second takes the
// child out, and drops the document's indexes when whole subtrees go. Loading a document drops them
// too. Texts, comments and attributes are not in an index and may be changed by anyone.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace veltrancord {

// Children that are walked over before an index is made: below this number a walk costs less.
inline constexpr int walked_children = 64;

// The first and the last child element of each name of one element. It takes up to 43 bytes for
// each child, a tenth or so of what the child itself takes.
class ChildIndex {
  public:
    explicit ChildIndex(TiXmlNode& parent);
    ChildIndex(const ChildIndex&) = delete;
    ChildIndex& operator=(const ChildIndex&) = delete;
    ~ChildIndex() { parent_.SetUserData(nullptr); }

    // The index that hangs on `parent`, or null.
    [[nodiscard]] static ChildIndex* Of(TiXmlNode& parent) {
        return static_cast<ChildIndex*>(parent.GetUserData());
    }

    // Return: the first child element of that name, or null.
    [[nodiscard]] TiXmlElement* First(std::string_view name) const;

    // Return: the last child element of that name, or null.
    [[nodiscard]] TiXmlElement* Last(std::string_view name) const;

    // `child` has become the last child. Throws when memory cannot be had.
    void Append(TiXmlElement& child);

    // `child` is still among the children and is about to be removed.
    void Remove(TiXmlElement& child);

  private:
    struct Slot {
        TiXmlElement* first = nullptr;  // null: the Slot is free
        TiXmlElement* last = nullptr;
    };

    [[nodiscard]] std::size_t Home(std::string_view name) const;
    [[nodiscard]] std::size_t Next(std::size_t place) const {
        return (place + 1) & (slots_.size() - 1);
    }
    [[nodiscard]] std::size_t Place(std::string_view name) const;
    void Resize(std::size_t names);
    void Free(std::size_t place);

    TiXmlNode& parent_;
    std::vector<Slot> slots_;  // a power of two; a name stands at its hash or as soon as possible
                               // behind it, with no free Slot between
    std::size_t used_ = 0;
};

// The indexes of one document, which end before its nodes do.
class ChildIndexSet {
  public:
    // Return: a new index that hangs on `parent`, or null when memory could not be had.
    ChildIndex* Make(TiXmlNode& parent);

    void Drop() { all_.clear(); }
    [[nodiscard]] std::size_t Count() const { return all_.size(); }

  private:
    std::list<ChildIndex> all_;
};

// The first child element of that name, or null. Where memory for an index cannot be had, the
// children are walked over.
[[nodiscard]] TiXmlElement* FirstChildNamed(TiXmlNode& parent, std::string_view name);

// The first of `element`'s later siblings that bears its name, or null.
[[nodiscard]] TiXmlElement* NextOfSameName(TiXmlElement& element);

// Appends a new element of that name to the children of `parent`, the one way to add one.
TiXmlElement& AppendElement(TiXmlNode& parent, const std::string& name);

// Takes `child`, which has a parent, from it and frees it: the one way to remove a node.
void RemoveChildNode(TiXmlNode& child);

}  // namespace veltrancord
