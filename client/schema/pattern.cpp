// A pattern is read by its own grammar, and each piece written anew: nothing of it reaches the
// system's library that was not understood here. Characters beyond ASCII become sequences of bytes,
// and the library is called in the "C" locale, so that the language of a terminal changes nothing.
#include "schema/pattern.h"

#include <locale.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <utility>

#include "schema/character_set.h"
#include "schema/utf8.h"

namespace veltrancord::schema {
namespace {

constexpr int most_groups_within = 50;
// POSIX promises that a repeat may go so far.
constexpr std::size_t highest_repeat = 255;
// Repeats within repeats are written out by the system's library: its memory is bounded here.
constexpr std::size_t longest_written_out = 100000;

// The "C" locale for this thread, for the life of the object.
class plain_locale {
  public:
    plain_locale() : former_(uselocale(plain())) {}
    ~plain_locale() { uselocale(former_); }
    plain_locale(const plain_locale&) = delete;
    plain_locale& operator=(const plain_locale&) = delete;

  private:
    static locale_t plain() {
        static const locale_t made = newlocale(LC_ALL_MASK, "C", nullptr);
        return made;
    }
    locale_t former_;
};

character_set set_of(std::initializer_list<std::pair<uint32_t, uint32_t>> ranges) {
    character_set set;
    for (const auto& [first, last] : ranges) {
        set.add(first, last);
    }
    return set;
}

// A piece of the expression, and how long it is with its repeats written out.
struct piece {
    std::string text;
    std::size_t written_out = 0;

    void append(const piece& other) {
        text += other.text;
        written_out += other.written_out;
    }
};

class translator {
  public:
    explicit translator(std::string_view pattern) : rest_(pattern) {}

    bool translate(std::string& expression, std::string& problem) {
        piece whole;
        if (rest_.empty()) {
            whole.text = "()";
        } else if (read_alternatives(whole) && !rest_.empty()) {
            fail("has a \")\" that nothing opens");
        }
        problem = problem_;
        expression = problem_.empty() ? "^(" + whole.text + ")$" : "";
        return problem_.empty();
    }

  private:
    bool fail(const std::string& text) {
        if (problem_.empty()) {
            problem_ = text;
        }
        return false;
    }
    [[nodiscard]] bool next_is(char c) const { return rest_.starts_with(c); }
    bool take(char c) {
        const bool found = next_is(c);
        rest_.remove_prefix(found ? 1 : 0);
        return found;
    }

    bool read_alternatives(piece& out);
    bool read_branch(piece& out);
    bool read_atom(piece& out);
    bool read_group(piece& out);
    bool read_repeat(piece& atom);
    bool read_count(std::size_t& count);
    bool read_escape(character_set& set, bool& one_character, uint32_t& character);
    bool read_class(character_set& set);
    bool read_class_item(character_set& set);
    bool read_range_end(uint32_t& character);

    std::string_view rest_;
    std::string problem_;
    int groups_ = 0;
};

bool translator::read_alternatives(piece& out) {
    if (!read_branch(out)) {
        return false;
    }
    while (take('|')) {
        out.append({"|", 1});
        if (!read_branch(out)) {
            return false;
        }
    }
    return out.written_out <= longest_written_out ||
           fail("repeats too much within repeats; say lengths by xs:maxLength");
}

bool translator::read_branch(piece& out) {
    const std::size_t before = out.text.size();
    while (!rest_.empty() && !next_is('|') && !next_is(')')) {
        piece atom;
        if (!read_atom(atom) || !read_repeat(atom)) {
            return false;
        }
        out.append(atom);
    }
    return out.text.size() > before ||
           fail("has an empty alternative; write the rest as (...)? instead");
}

bool translator::read_atom(piece& out) {
    if (next_is('(')) {
        return read_group(out);
    }
    character_set set;
    if (take('[')) {
        if (!read_class(set)) {
            return false;
        }
    } else if (take('\\')) {
        bool one_character = false;
        uint32_t character = 0;
        if (!read_escape(set, one_character, character)) {
            return false;
        }
    } else if (take('.')) {
        set = set_of({{'\n', '\n'}, {'\r', '\r'}}).inverted();
    } else if (rest_.find_first_of("?*+{}]") == 0) {
        return fail(std::string("has a \"") + rest_.front() +
                    "\" where it means nothing; write \\" + rest_.front() + " for the character");
    } else {
        const uint32_t character = take_character(rest_);
        set.add(character, character);
    }
    out.text = set.expression();
    out.written_out = out.text.size();
    return true;
}

bool translator::read_group(piece& out) {
    take('(');
    if (++groups_ > most_groups_within) {
        return fail("has groups within groups, too deep");
    }
    piece inner;
    if (!read_alternatives(inner)) {
        return false;
    }
    if (!take(')')) {
        return fail("has a \"(\" that nothing closes");
    }
    --groups_;
    out = {"(" + inner.text + ")", inner.written_out + 2};
    return true;
}

bool translator::read_count(std::size_t& count) {
    const std::size_t digits = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    count = 0;
    for (const char digit : rest_.substr(0, digits)) {
        count = std::min(count * 10 + static_cast<std::size_t>(digit - '0'), highest_repeat + 1);
    }
    rest_.remove_prefix(digits);
    if (count > highest_repeat) {
        return fail("repeats more than 255 times; say lengths by xs:maxLength");
    }
    return digits > 0;
}

bool translator::read_repeat(piece& atom) {
    if (next_is('?') || next_is('*') || next_is('+')) {
        atom.append({std::string(1, rest_.front()), 1});
        rest_.remove_prefix(1);
    } else if (take('{')) {
        std::size_t least = 0;
        if (!read_count(least)) {
            return fail("has no number behind \"{\"; write {2}, {2,} or {2,5}");
        }
        std::size_t most = least;
        const bool ranges = take(',');
        const bool open = ranges && next_is('}');
        if (ranges && !open && !read_count(most)) {
            return fail("has no number behind \",\"; write {2}, {2,} or {2,5}");
        }
        if (!take('}')) {
            return fail("has a \"{\" that nothing closes");
        }
        if (most < least) {
            return fail("repeats at least more often than at most");
        }
        const std::string bounds = std::to_string(least) + (open ? "," : "") +
                                   (!open && most != least ? "," + std::to_string(most) : "");
        atom = {atom.text + "{" + bounds + "}",
                atom.written_out * std::max<std::size_t>(most, 1) + 1};
    }
    if (rest_.find_first_of("?*+{") == 0) {
        return fail("repeats what repeats already; put a group around it");
    }
    return true;
}

// What stands behind a "\".
bool translator::read_escape(character_set& set, bool& one_character, uint32_t& character) {
    const char letter = rest_.empty() ? '\0' : rest_.front();
    rest_.remove_prefix(rest_.empty() ? 0 : 1);
    static constexpr std::string_view themselves = "\\|.?*+(){}-[]^";
    one_character = true;
    if (letter != '\0' && themselves.find(letter) != std::string_view::npos) {
        character = static_cast<unsigned char>(letter);
    } else if (letter == 'n' || letter == 'r' || letter == 't') {
        character = letter == 'n' ? '\n' : letter == 'r' ? '\r' : '\t';
    } else {
        one_character = false;
    }
    if (one_character) {
        set.add(character, character);
        return true;
    }
    switch (letter) {
        case 'd':
        case 'D':
            set = set_of({{'0', '9'}});
            break;
        case 's':
        case 'S':
            set = set_of({{' ', ' '}, {'\t', '\n'}, {'\r', '\r'}});
            break;
        case 'w':
        case 'W':  // all but punctuation, separators and control characters
            set = set_of({{'0', '9'},
                          {'A', 'Z'},
                          {'a', 'z'},
                          {'$', '$'},
                          {'+', '+'},
                          {'<', '>'},
                          {'^', '^'},
                          {'`', '`'},
                          {'|', '|'},
                          {'~', '~'},
                          {0x80, last_character}});
            break;
        case 'p':
        case 'P':
        case 'i':
        case 'I':
        case 'c':
        case 'C':
            return fail(std::string("uses \\") + letter +
                        ", which POSIX has no word for; write the characters, as in [A-Za-z0-9_]");
        case '\0':
            return fail("ends in the middle of an escape");
        default:
            return fail(std::string("has \\") + letter + ", which is no escape; write " + letter);
    }
    if (letter == 'D' || letter == 'S' || letter == 'W') {
        set = set.inverted();
    }
    return true;
}

// The upper end of a range.
bool translator::read_range_end(uint32_t& character) {
    if (take('\\')) {
        character_set set;
        bool one_character = false;
        return read_escape(set, one_character, character) &&
               (one_character || fail("has a range up to more than one character"));
    }
    if (rest_.empty() || next_is('[') || next_is(']')) {
        return fail("has a range without an end; write \\- for the character");
    }
    character = take_character(rest_);
    return true;
}

bool translator::read_class_item(character_set& set) {
    uint32_t first = 0;
    if (take('\\')) {
        character_set escaped;
        bool one_character = false;
        if (!read_escape(escaped, one_character, first)) {
            return false;
        }
        if (!one_character) {
            set.add(escaped);
            return !next_is('-') || rest_.starts_with("-[") || rest_.starts_with("-]") ||
                   fail("has a range from more than one character");
        }
    } else if (next_is('[')) {
        return fail("has a \"[\" within brackets; write \\[ for the character");
    } else {
        first = take_character(rest_);
    }
    uint32_t last = first;
    const bool range = next_is('-') && !rest_.starts_with("-]") && !rest_.starts_with("-[");
    if (range) {
        take('-');
        if (first == '-') {
            return fail("has a range from \"-\"; write \\- for the character");
        }
        if (!read_range_end(last)) {
            return false;
        }
        if (next_is('-') && !rest_.starts_with("-]") && !rest_.starts_with("-[")) {
            return fail("has a \"-\" behind a range; write \\- for the character");
        }
    }
    if (last < first) {
        return fail("has a range that goes backwards");
    }
    set.add(first, last);
    return true;
}

// What stands behind a "[", its "]" included: [a-z], [^a-z], [a-z-[aeiou]].
bool translator::read_class(character_set& set) {
    const bool inverted = take('^');
    bool first = true;
    character_set unwanted;
    while (first || !next_is(']')) {
        if (rest_.empty()) {
            return fail("has a \"[\" that nothing closes");
        }
        if (first && next_is(']')) {
            return fail("has empty brackets; write \\] for the character");
        }
        if (!first && rest_.starts_with("-[")) {
            rest_.remove_prefix(2);
            if (++groups_ > most_groups_within || !read_class(unwanted)) {
                return fail("has brackets within brackets, too deep");
            }
            --groups_;
            if (!next_is(']')) {
                return fail("has something behind what it takes out of brackets");
            }
            break;
        }
        if (!read_class_item(set)) {
            return false;
        }
        first = false;
    }
    take(']');
    set = (inverted ? set.inverted() : set).without(unwanted);
    return !set.empty() || fail("has brackets that no character matches");
}

}  // namespace

bool translate_pattern(std::string_view pattern, std::string& expression, std::string& problem) {
    return translator(pattern).translate(expression, problem);
}

struct pattern::compiled {
    compiled() = default;
    ~compiled() {
        if (ready) {
            regfree(&expression);
        }
    }
    compiled(const compiled&) = delete;
    compiled& operator=(const compiled&) = delete;

    regex_t expression{};
    bool ready = false;
};

bool pattern::assign(std::string_view text, std::string& problem) {
    text_ = text;
    compiled_ =
        translate_pattern(text, expression_, problem) ? std::make_shared<compiled>() : nullptr;
    return compiled_ != nullptr;
}

bool pattern::compile(std::string& problem) const {
    if (!compiled_ || compiled_->ready) {
        return compiled_ != nullptr;
    }
    const plain_locale locale;
    const int result =
        regcomp(&compiled_->expression, expression_.c_str(), REG_EXTENDED | REG_NOSUB);
    if (result != 0) {
        char reason[120];
        regerror(result, &compiled_->expression, reason, sizeof reason);
        problem = std::string("is refused by the system: ") + reason;
        return false;
    }
    compiled_->ready = true;
    return true;
}

bool pattern::matches(const std::string& text) const {
    std::string problem;
    if (text.find('\0') != std::string::npos || !compile(problem)) {
        return false;
    }
    const plain_locale locale;
    return regexec(&compiled_->expression, text.c_str(), 0, nullptr, 0) == 0;
}

}  // namespace veltrancord::schema
