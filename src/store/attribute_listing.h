// Listing attributes as "key=value" lines.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "handler/reply_text.h"

namespace veltrancord {

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

// Lists the attributes of `element` in their order, all of them or (name not null) only those of
// that name. A key is `prefix`, "." and the attribute's name, cut at 511 bytes.
//
// Return: 0, or -1 when a line does not fit or `element` is null; lines before it stay listed.
[[nodiscard]] int32_t ListXmlAttrs(const TiXmlElement* element, AttributeListing& listing,
                                   std::string_view prefix, const char* name);

// Does the same for `first`, the elements that follow it and all below them, whose names are
// appended to the prefix as they are stored. A line that does not fit ends its element's lines and
// nothing else: those of other elements may still fit.
//
// Return: 0.
int32_t ListXmlAttrTree(const TiXmlElement* first, AttributeListing& listing,
                        std::string_view prefix, const char* name);

}  // namespace veltrancord
