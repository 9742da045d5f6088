// The patterns of XML Schema, which match a whole text, in the regular expressions of POSIX.
#pragma once

#include <regex.h>

#include <memory>
#include <string>
#include <string_view>

namespace veltrancord::schema {

// One pattern. Copies share what was compiled, which happens at the first match: most programs ask
// for one of many. Not for several threads at once.
class pattern {
  public:
    // Translates and keeps the pattern. Return: false where POSIX cannot say it, or it is none;
    // why, and what to write instead, is then in `problem`, and the pattern matches nothing.
    [[nodiscard]] bool assign(std::string_view text, std::string& problem);

    // Compiles it now, to see that the system's library takes it. Return: as assign().
    [[nodiscard]] bool compile(std::string& problem) const;

    // Whether all of `text`, in UTF-8, matches.
    [[nodiscard]] bool matches(const std::string& text) const;

    // As it was written.
    [[nodiscard]] const std::string& text() const { return text_; }

    // The extended regular expression; its bytes mean what they do in the "C" locale.
    [[nodiscard]] const std::string& expression() const { return expression_; }

  private:
    std::string text_;
    std::string expression_;
    struct compiled;
    std::shared_ptr<compiled> compiled_;
};

// The expression for a pattern, anchored. Return: false, and why in `problem`, as assign().
[[nodiscard]] bool translate_pattern(std::string_view pattern, std::string& expression,
                                     std::string& problem);

}  // namespace veltrancord::schema
