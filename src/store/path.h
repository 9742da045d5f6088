// Dotted paths: "Document.Element.Element", each component escape-coded as names are stored.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace veltrancord {

inline constexpr std::size_t max_path_text = 511;  // longer path text is cut to this

// One component: a NUL-terminated, escape-coded name of at most 511 bytes, owned by its XmlPath.
// Deliberately without initial values: clearing room for 256 of them would cost more than splitting
// a usual path does.
struct XmlPathNode {
    const char* name;
    std::size_t length;
    [[nodiscard]] std::string_view Text() const { return {name, length}; }
};

// The components of one path, in order. Lives on the stack: splitting allocates nothing. Not
// copyable, since components point into the object.
class XmlPath {
  public:
    XmlPath() = default;
    XmlPath(const XmlPath&) = delete;
    XmlPath& operator=(const XmlPath&) = delete;

    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] const XmlPathNode& operator[](std::size_t index) const { return nodes_[index]; }

  private:
    friend bool SplitXmlPath(std::string_view path, XmlPath& list);
    friend void StripXmlPathWildcard(XmlPath& list);
    friend void DropXmlPathTail(XmlPath& list);

    static constexpr std::size_t max_components = (max_path_text + 1) / 2;
    // Every byte of the path text may become three; each component has its NUL.
    std::array<char, max_path_text * 3 + max_components> text_;
    std::array<XmlPathNode, max_components> nodes_;
    std::size_t count_ = 0;
};

// Splits `path` (its first 511 bytes, up to a NUL) at the dots into `list`, in place of what that
// held. Empty components vanish. A component of more than 511 encoded bytes is cut there, at a
// whole escape.
//
// Return: false when there is no component at all.
[[nodiscard]] bool SplitXmlPath(std::string_view path, XmlPath& list);

// Whether the last component is "*".
[[nodiscard]] bool IsXmlPathWildcard(const XmlPath& list);

// Removes a last component "*"; where it is the only one its name becomes empty instead.
void StripXmlPathWildcard(XmlPath& list);

// Removes the last component unless it is the only one.
void DropXmlPathTail(XmlPath& list);

// Appends the component names, joined with ".", to the text in `buffer` (a NUL-terminated text in
// `size` bytes), cut at its size.
void JoinXmlPath(const XmlPath& list, char* buffer, std::size_t size);

// Name of the last component; of the next-to-last one. A view without data when there is none.
[[nodiscard]] std::string_view XmlPathLast(const XmlPath& list);
[[nodiscard]] std::string_view XmlPathParent(const XmlPath& list);

}  // namespace veltrancord
