#include "log_follower.h"

#include <array>
#include <functional>
#include <utility>

#include "text_line.h"

namespace veltrancord::bridge {
namespace {

struct named_character {
    std::string_view name;
    char character;
};
constexpr std::array<named_character, 5> named_characters = {
    {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}}};

// "&#x1F;" at the front of `text`. Return: its length, or 0.
std::size_t numbered_character(std::string_view text, char& character) {
    constexpr std::string_view mark = "&#x";
    constexpr int hexadecimal = 16;
    unsigned char byte = 0;
    if (!text.starts_with(mark)) {
        return 0;
    }
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + mark.size(), end, byte, hexadecimal);
    if (parsed.ec != std::errc() || parsed.ptr == end || *parsed.ptr != ';') {
        return 0;
    }
    character = static_cast<char>(byte);
    return static_cast<std::size_t>(parsed.ptr - text.data()) + 1;
}

std::string unescaped(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        std::size_t taken = 1;
        char character = text.front();
        if (character == '&') {
            for (const named_character& one : named_characters) {
                if (text.starts_with(one.name)) {
                    character = one.character;
                    taken = one.name.size();
                }
            }
            if (const std::size_t length = numbered_character(text, character); length > 0) {
                taken = length;
            }
        }
        plain += character;
        text.remove_prefix(taken);
    }
    return plain;
}

// The time of an entry, as a number that is greater the later it is; 0 for what is no entry.
uint64_t time_of(std::string_view entry) {
    constexpr std::size_t time_fields = 6;
    constexpr uint64_t room = 100;        // above all but the year, which comes first
    std::size_t start = entry.find(':');  // behind the type
    uint64_t time = 0;
    for (std::size_t field = 0; field < time_fields && start != std::string_view::npos; ++field) {
        const std::size_t end = entry.find(':', start + 1);
        unsigned int number = 0;
        if (!read_number(entry.substr(start + 1, end - start - 1), number)) {
            return 0;
        }
        time = time * room + number;
        start = end;
    }
    return time;
}

}  // namespace

log_follower::file_view log_follower::parse(std::string_view file) {
    file_view found;
    for (std::size_t at = file.find("<E"); at != std::string_view::npos; at = file.find("<E", at)) {
        at += 2;
        const std::size_t close = file.find('>', at);
        const std::size_t end = file.find('<', at);
        std::size_t position = 0;
        if (close == std::string_view::npos || end == std::string_view::npos || end < close ||
            !read_number(file.substr(at, close - at), position) || position == 0 ||
            position > max_log_entries) {
            continue;
        }
        if (found.entries.size() < position) {
            found.entries.resize(position);
            found.hashes.resize(position);
        }
        const std::string_view entry = file.substr(close + 1, end - close - 1);
        found.entries[position - 1] = entry;
        found.hashes[position - 1] = std::hash<std::string_view>()(entry);
        at = end;
    }
    return found;
}

std::size_t log_follower::newest_by_time(const file_view& now) {
    std::size_t newest = 0;
    uint64_t latest = 0;
    for (std::size_t index = 0; index < now.entries.size(); ++index) {
        const uint64_t time = time_of(now.entries[index]);
        if (time >= latest) {
            latest = time;
            newest = index + 1;
        }
    }
    return newest;
}

// From the last known position on, as far as something else stands there than before.
std::size_t log_follower::walk(const file_view& now, news& found) const {
    const std::size_t size = now.entries.size();
    std::size_t last = last_;
    for (std::size_t count = 0; count < size; ++count) {
        const std::size_t next = last < size ? last + 1 : 1;
        if (next <= hashes_.size() && now.hashes[next - 1] == hashes_[next - 1]) {
            break;
        }
        found.entries.push_back(unescaped(now.entries[next - 1]));
        last = next;
    }
    return last;
}

// Every position holds something new: at least a whole turn has passed.
std::size_t log_follower::after_a_turn(const file_view& now, std::size_t last, news& found) {
    const std::size_t size = now.entries.size();
    if (size == 0) {
        return 0;
    }
    const std::size_t newest = newest_by_time(now);
    for (std::size_t count = 1; count <= size; ++count) {
        found.entries.push_back(unescaped(now.entries[(newest + count - 1) % size]));
    }
    found.lost = (newest + size - last) % size;
    return newest;
}

log_follower::news log_follower::take(std::string_view file) {
    file_view now = parse(file);
    news found;
    if (!known_) {
        known_ = true;
        last_ = newest_by_time(now);
    } else {
        if (now.entries.size() < hashes_.size()) {  // it was emptied
            last_ = 0;
            hashes_.clear();
        }
        const bool turned = last_ > 0 && now.hashes[last_ - 1] != hashes_[last_ - 1];
        last_ = turned ? after_a_turn(now, last_, found) : walk(now, found);
    }
    hashes_ = std::move(now.hashes);
    return found;
}

}  // namespace veltrancord::bridge
