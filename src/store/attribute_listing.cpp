#include "store/attribute_listing.h"

#include <algorithm>
#include <cstring>

namespace veltrancord {

namespace {

constexpr std::size_t max_key = 511;

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

bool ListOwn(const TiXmlElement& element, AttributeListing& listing, AttributeKey& key,
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
        fits = listing.Append(key.View(), attribute->Value());
        key.Cut(size);
    }
    return fits;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which loading bounds.
void ListTree(const TiXmlElement* first, AttributeListing& listing, AttributeKey& key,
              const char* name) {
    const std::size_t size = key.Size();
    for (const TiXmlElement* element = first; element != nullptr && !listing.OutOfMemory();
         element = element->NextSiblingElement()) {
        key.Append(".");
        key.Append(element->ValueStr());
        static_cast<void>(ListOwn(*element, listing, key, name));
        ListTree(element->FirstChildElement(), listing, key, name);
        key.Cut(size);
    }
}

}  // namespace

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

int32_t ListXmlAttrs(const TiXmlElement* element, AttributeListing& listing,
                     std::string_view prefix, const char* name) {
    if (element == nullptr) {
        return -1;
    }
    AttributeKey key(prefix);
    return ListOwn(*element, listing, key, name) ? 0 : -1;
}

int32_t ListXmlAttrTree(const TiXmlElement* first, AttributeListing& listing,
                        std::string_view prefix, const char* name) {
    AttributeKey key(prefix);
    ListTree(first, listing, key, name);
    return 0;
}

}  // namespace veltrancord
