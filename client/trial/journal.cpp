#include "trial/journal.h"

#include <charconv>
#include <ctime>
#include <fstream>
#include <initializer_list>
#include <utility>

namespace veltrancord::trial {
namespace {

constexpr std::string_view first_line = "veltrancord-trial 1";
constexpr std::string_view last_line = "end";

std::string_view word_of(former_kind kind) {
    switch (kind) {
        case former_kind::value:
            return "value";
        case former_kind::empty:
            return "empty";
        default:
            return "absent";
    }
}

bool parse_number(std::string_view text, int64_t& number) {
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

// Splits "left<separator>right" at the first separator. Return: false where there is none.
bool split(std::string_view text, char separator, std::string_view& left, std::string_view& right) {
    const std::size_t at = text.find(separator);
    if (at == std::string_view::npos) {
        return false;
    }
    left = text.substr(0, at);
    right = text.substr(at + 1);
    return true;
}

// The journal's lines, one after the other.
class journal_reader {
  public:
    explicit journal_reader(journal& content) : content_(content) {}

    [[nodiscard]] bool take(std::string_view line) {
        std::string_view word;
        std::string_view rest;
        if (!split(line, ' ', word, rest)) {
            return false;
        }
        if (word == "boot") {
            content_.boot = rest;
            return true;
        }
        if (word == "deadline") {
            return parse_number(rest, content_.deadline);
        }
        if (word == "file") {
            return take_file(rest);
        }
        if (word == "created") {
            content_.former.created.emplace_back(rest);
            return true;
        }
        return word == "becomes" ? take_change(rest) : take_former(word, rest);
    }

    // Whether each place has both of its lines.
    [[nodiscard]] bool is_whole() const { return !open_; }

  private:
    [[nodiscard]] bool take_file(std::string_view rest) {
        // A document's name may hold blanks, what its file is never does.
        const std::size_t blank = rest.rfind(' ');
        if (blank == std::string_view::npos) {
            return false;
        }
        content_.files.emplace(rest.substr(0, blank), rest.substr(blank + 1));
        return true;
    }

    [[nodiscard]] bool take_former(std::string_view word, std::string_view rest) {
        former_setting one;
        std::string_view path = rest;
        std::string_view text;
        if (word == "value") {
            one.kind = former_kind::value;
            if (!split(rest, '=', path, text)) {
                return false;
            }
        } else if (word == "empty") {
            one.kind = former_kind::empty;
        } else if (word != "absent") {
            return false;
        }
        one.path = path;
        one.before = text;
        content_.former.entries.push_back(std::move(one));
        return !std::exchange(open_, true);
    }

    [[nodiscard]] bool take_change(std::string_view rest) {
        std::string_view path;
        std::string_view text;
        if (!open_ || !split(rest, '=', path, text) ||
            content_.former.entries.back().path != path) {
            return false;
        }
        content_.former.entries.back().after = text;
        open_ = false;
        return true;
    }

    journal& content_;
    bool open_ = false;  // a place whose second line has not come yet
};

}  // namespace

std::string journal_text(const journal& content) {
    std::string text;
    const auto line = [&](std::initializer_list<std::string_view> parts) {
        for (const std::string_view part : parts) {
            text += part;
        }
        text += '\n';
    };
    line({first_line});
    line({"boot ", content.boot});
    line({"deadline ", std::to_string(content.deadline)});
    for (const auto& [document, file] : content.files) {
        line({"file ", document, " ", file});
    }
    for (const former_setting& one : content.former.entries) {
        if (one.kind == former_kind::value) {
            line({word_of(one.kind), " ", one.path, "=", one.before});
        } else {
            line({word_of(one.kind), " ", one.path});
        }
        line({"becomes ", one.path, "=", one.after});
    }
    for (const std::string& path : content.former.created) {
        line({"created ", path});
    }
    line({last_line});
    return text;
}

bool parse_journal(std::string_view text, journal& content) {
    journal_reader reader(content);
    bool first = true;
    std::string_view line;
    while (split(text, '\n', line, text)) {
        if (first ? line != first_line : line == last_line) {
            return !first && text.empty() && reader.is_whole();
        }
        if (!first && !reader.take(line)) {
            return false;
        }
        first = false;
    }
    return false;
}

std::string boot_name() {
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string name;
    std::getline(file, name);
    return name;
}

int64_t boot_milliseconds() {
    constexpr int64_t in_a_second = 1000;
    constexpr int64_t nanoseconds = 1'000'000;
    timespec now{};
    (void)clock_gettime(CLOCK_BOOTTIME, &now);
    return int64_t{now.tv_sec} * in_a_second + now.tv_nsec / nanoseconds;
}

}  // namespace veltrancord::trial
