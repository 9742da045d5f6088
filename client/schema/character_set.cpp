#include "schema/character_set.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace veltrancord::schema {
namespace {

using range = std::pair<uint32_t, uint32_t>;

constexpr uint32_t last_ascii = 0x7F;

std::vector<unsigned char> utf8_of(uint32_t character) {
    const auto tail = [character](unsigned shift) {
        return static_cast<unsigned char>(0x80U | (character >> shift & 0x3FU));
    };
    if (character <= 0x7F) {
        return {static_cast<unsigned char>(character)};
    }
    if (character <= 0x7FF) {
        return {static_cast<unsigned char>(0xC0U | character >> 6U), tail(0)};
    }
    if (character <= 0xFFFF) {
        return {static_cast<unsigned char>(0xE0U | character >> 12U), tail(6), tail(0)};
    }
    return {static_cast<unsigned char>(0xF0U | character >> 18U), tail(12), tail(6), tail(0)};
}

void append_bytes(std::string& out, unsigned char first, unsigned char last) {
    out += '[';
    out += static_cast<char>(first);
    if (first != last) {
        out += '-';
        out += static_cast<char>(last);
    }
    out += ']';
}

// Appends what matches the characters of a range beyond ASCII, alternatives each begun with "|".
// A range of characters is one of bytes only where its last bytes go all the way.
void append_alternatives(std::string& out, uint32_t first, uint32_t last) {
    for (const uint32_t bound : {0x7FFU, 0xFFFFU}) {
        if (first <= bound && last > bound) {
            append_alternatives(out, first, bound);
            append_alternatives(out, bound + 1, last);
            return;
        }
    }
    const std::vector<unsigned char> low = utf8_of(first);
    const std::vector<unsigned char> high = utf8_of(last);
    for (unsigned tails = 1; tails < low.size(); ++tails) {
        const uint32_t mask = (1U << 6U * tails) - 1;
        if ((first & ~mask) == (last & ~mask)) {
            continue;
        }
        if ((first & mask) != 0) {
            append_alternatives(out, first, first | mask);
            append_alternatives(out, (first | mask) + 1, last);
            return;
        }
        if ((last & mask) != mask) {
            append_alternatives(out, first, (last & ~mask) - 1);
            append_alternatives(out, last & ~mask, last);
            return;
        }
    }
    out += '|';
    for (std::size_t at = 0; at < low.size(); ++at) {
        append_bytes(out, low[at], high[at]);
    }
}

// The bracket expression for characters of ASCII, of which there is at least one. What means
// something between brackets stands where it does not: "]" first, "^" not first, "-" last.
std::string bracket(const std::array<bool, last_ascii + 1>& wanted) {
    const auto is_plain = [](std::size_t c) {
        return c != ']' && c != '[' && c != '^' && c != '-';
    };
    std::string inner = wanted[']'] ? "]" : "";
    for (std::size_t c = 1; c <= last_ascii; ++c) {
        if (!wanted[c] || !is_plain(c)) {
            continue;
        }
        std::size_t end = c + 1;
        while (end < wanted.size() && wanted[end] && is_plain(end)) {
            ++end;
        }
        --end;
        inner += static_cast<char>(c);
        inner += end > c + 1 ? "-" : "";
        inner += end > c ? std::string(1, static_cast<char>(end)) : "";
        c = end;
    }
    inner += wanted['['] ? "[" : "";
    if (wanted['^'] && inner.empty()) {
        return wanted['-'] ? "[-^]" : "\\^";
    }
    inner += wanted['^'] ? "^" : "";
    inner += wanted['-'] ? "-" : "";
    return "[" + inner + "]";
}

}  // namespace

void character_set::add(uint32_t first, uint32_t last) {
    range added{first, last};
    std::vector<range> merged;
    for (const range& one : ranges_) {
        const bool apart = one.second + 1 < added.first || added.second + 1 < one.first;
        if (apart) {
            merged.push_back(one);
        } else {
            added = {std::min(one.first, added.first), std::max(one.second, added.second)};
        }
    }
    merged.push_back(added);
    std::sort(merged.begin(), merged.end());
    ranges_ = std::move(merged);
}

void character_set::add(const character_set& other) {
    for (const range& one : other.ranges_) {
        add(one.first, one.second);
    }
}

character_set character_set::inverted() const {
    character_set rest;
    uint32_t next = 1;
    for (const range& one : ranges_) {
        if (next < one.first) {
            rest.ranges_.emplace_back(next, one.first - 1);
        }
        next = one.second + 1;
    }
    if (next <= last_character) {
        rest.ranges_.emplace_back(next, last_character);
    }
    return rest;
}

character_set character_set::without(const character_set& other) const {
    character_set unwanted = inverted();
    unwanted.add(other);
    return unwanted.inverted();
}

std::string character_set::expression() const {
    std::array<bool, last_ascii + 1> ascii{};
    std::string others;
    for (const range& one : ranges_) {
        for (uint32_t c = one.first; c <= std::min(one.second, last_ascii); ++c) {
            ascii[c] = true;
        }
        const uint32_t beyond = std::max(one.first, last_ascii + 1);
        if (beyond == last_ascii + 1 && one.second == last_character) {
            others += "|[\xC2-\xF4][\x80-\xBF]+";  // any: its first byte, and all that go on
        } else if (beyond <= one.second) {
            append_alternatives(others, beyond, one.second);
        }
    }
    const bool has_ascii = std::find(ascii.begin(), ascii.end(), true) != ascii.end();
    if (others.empty()) {
        return bracket(ascii);
    }
    return "(" + (has_ascii ? bracket(ascii) + others : others.substr(1)) + ")";
}

}  // namespace veltrancord::schema
