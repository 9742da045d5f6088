#include "store/numbered_elements.h"

#include <algorithm>
#include <charconv>
#include <span>
#include <system_error>

#include "store/document_set.h"

namespace veltrancord {

namespace {

// Calls found(element) for every element below every chain of elements of those names, starting
// with `first` and its siblings, in document order.
template <class Found>
void ForEachBelow(const TiXmlElement* first, std::span<const std::string_view> names,
                  const Found& found) {
    for (const TiXmlElement* element = first; element != nullptr;
         element = element->NextSiblingElement()) {
        if (names.empty()) {
            found(*element);
        } else if (element->ValueStr() == names.front()) {
            ForEachBelow(element->FirstChildElement(), names.subspan(1), found);
        }
    }
}

}  // namespace

std::optional<int32_t> ElementNumber(std::string_view name, std::string_view prefix) {
    if (!name.starts_with(prefix)) {
        return std::nullopt;
    }
    const std::string_view digits = name.substr(prefix.size());
    const bool written_plainly =
        digits == "0" || (!digits.empty() && digits.front() >= '1' && digits.front() <= '9');
    int32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, number);
    if (!written_plainly || parsed.ec != std::errc() || parsed.ptr != end) {
        return std::nullopt;
    }
    return number;
}

std::vector<int32_t> ElementNumbers(std::initializer_list<std::string_view> parents,
                                    std::string_view prefix, int32_t max,
                                    const ElementTest& counts) {
    std::vector<int32_t> numbers;
    const XmlDocument* const document = FindXmlDoc(*parents.begin());
    if (document == nullptr) {
        return numbers;
    }
    ForEachBelow(document->FirstChildElement(), parents, [&](const TiXmlElement& element) {
        const std::optional<int32_t> number = ElementNumber(element.ValueStr(), prefix);
        if (number && *number >= 1 && *number <= max && counts(element)) {
            numbers.push_back(*number);
        }
    });
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

}  // namespace veltrancord
