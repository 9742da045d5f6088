// Numbered elements (Permit1, Permit2, Permit7 ...): their names, and which of them exist.
//
// How many numbers count is itself a setting, and two thousand million is a number that a client
// can write. Asking for each number in turn would then stop the service for hours, so the elements
// that exist are walked instead, once.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

namespace veltrancord {

// Return: the number from 0 on at the end of `name` when that is `prefix` and a number, written
// without sign or leading zeros.
[[nodiscard]] std::optional<int32_t> ElementNumber(std::string_view name, std::string_view prefix);

// Whether an element counts among those that are looked for.
using ElementTest = std::function<bool(const TiXmlElement&)>;

// The numbers from 1 to `max` for which an element "<prefix><number>" that passes `counts` exists
// below `parents`, the names from the document's on. The caller still reads the settings that it
// wants by their paths: of several elements of one name it is the look-up that decides which one
// counts. Memory that cannot be had is thrown as std::bad_alloc.
//
// Return: the numbers, rising, each once.
[[nodiscard]] std::vector<int32_t> ElementNumbers(
    std::initializer_list<std::string_view> parents, std::string_view prefix, int32_t max,
    const ElementTest& counts = [](const TiXmlElement&) { return true; });

}  // namespace veltrancord
