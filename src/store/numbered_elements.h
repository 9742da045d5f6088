// Which numbered elements (Permit1, Permit2, Permit7 ...) the configuration holds.
//
// How many numbers count is itself a setting, and two thousand million is a number that a client
// can write. Asking for each number in turn would then stop the service for hours, so the elements
// that exist are walked instead, and the numbers handed out are just those for which asking may
// find something, in the order in which asking would find them. Nothing is allocated.
#pragma once

#include <tinyxml.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string_view>

#include "store/document_set.h"

namespace veltrancord {

// The element's name, borrowed from it.
[[nodiscard]] inline std::string_view element_name(const TiXmlElement& element) {
    return {element.ValueTStr().data(), element.ValueTStr().size()};
}

// Whether `name` is the literal: with its length known to the compiler this is a load or two, where
// a comparison of two views is a call.
template <std::size_t size>
[[nodiscard]] bool is_literal(std::string_view name, const char (&literal)[size]) {
    return name.size() == size - 1 && std::memcmp(name.data(), literal, size - 1) == 0;
}

// Return: the number at the end of `name` when that is `prefix` and a number from 1 on, written
// without sign or leading zeros; else 0.
[[nodiscard]] inline int32_t element_number(std::string_view name, std::string_view prefix) {
    if (name.size() <= prefix.size() || !name.starts_with(prefix)) {
        return 0;
    }
    const std::string_view digits = name.substr(prefix.size());
    int64_t number = 0;
    for (const char digit : digits) {
        if (digit < '0' || digit > '9' || number > INT32_MAX / 10) {
            return 0;
        }
        number = number * 10 + (digit - '0');
    }
    return digits.front() != '0' && number <= INT32_MAX ? static_cast<int32_t>(number) : 0;
}

// The first element from `node` on among its siblings, or null: what the library's own routines
// find by two calls for each node, which is felt where every question walks over all users.
[[nodiscard]] inline const TiXmlElement* element_from(const TiXmlNode* node) {
    while (node != nullptr && node->Type() != TiXmlNode::TINYXML_ELEMENT) {
        node = node->NextSibling();
    }
    return static_cast<const TiXmlElement*>(node);
}

// The lowest of the numbers offered, each once, in rising order.
class lowest_numbers {
  public:
    void clear() noexcept { count_ = 0; }
    [[nodiscard]] bool full() const noexcept { return count_ == numbers_.size(); }
    [[nodiscard]] std::span<const int32_t> view() const noexcept {
        return {numbers_.data(), count_};
    }

    void offer(int32_t number) noexcept {
        // From the end, since elements mostly stand in the order of their numbers.
        std::size_t at = count_;
        while (at > 0 && numbers_[at - 1] > number) {
            --at;
        }
        if ((at > 0 && numbers_[at - 1] == number) || at == numbers_.size()) {
            return;
        }
        if (!full()) {
            ++count_;
        }
        for (std::size_t to = count_ - 1; to > at; --to) {
            numbers_[to] = numbers_[to - 1];
        }
        numbers_[at] = number;
    }

  private:
    std::array<int32_t, 64> numbers_;
    std::size_t count_ = 0;
};

// Calls found(number, element) for every element "<prefix><number>" below every chain of elements
// of the names in `parents`, starting with `first` and its siblings, in document order.
template <class Found>
void walk_numbered_elements(const TiXmlElement* first, std::span<const std::string_view> parents,
                            std::string_view prefix, const Found& found) {
    for (const TiXmlElement* element = first; element != nullptr;
         element = element_from(element->NextSibling())) {
        const std::string_view name = element_name(*element);
        if (!parents.empty()) {
            if (name == parents.front()) {
                walk_numbered_elements(element_from(element->FirstChild()), parents.subspan(1),
                                       prefix, found);
            }
        } else if (const int32_t number = element_number(name, prefix); number > 0) {
            found(number, *element);
        }
    }
}

// Calls visit(number) for the numbers from 1 to `max`, rising, for which an element
// "<prefix><number>" that accept(element) approves exists below `parents`, the names from the
// document's on; until visit returns false. The caller still reads the settings that it wants by
// their paths: of several elements of one name it is the lookup that decides which one counts.
template <class Accept, class Visit>
void visit_numbers(std::initializer_list<std::string_view> parents, std::string_view prefix,
                   int32_t max, const Accept& accept, const Visit& visit) {
    XmlDocument* const document = FindXmlDoc(*parents.begin());
    if (document == nullptr) {
        return;
    }
    lowest_numbers batch;
    int32_t visited = 0;
    do {
        batch.clear();
        walk_numbered_elements(document->FirstChildElement(), std::span(parents), prefix,
                               [&](int32_t number, const TiXmlElement& element) {
                                   if (number > visited && number <= max && accept(element)) {
                                       batch.offer(number);
                                   }
                               });
        for (const int32_t number : batch.view()) {
            visited = number;
            if (!visit(number)) {
                return;
            }
        }
    } while (batch.full());
}

template <class Visit>
void visit_numbers(std::initializer_list<std::string_view> parents, std::string_view prefix,
                   int32_t max, const Visit& visit) {
    visit_numbers(
        parents, prefix, max, [](const TiXmlElement&) { return true; }, visit);
}

}  // namespace veltrancord
