// The library's parser calls itself for each element within an element, so text that nests without
// bound would run the stack over. What is counted here is never less than what the parser goes
// down: where markup is other than the count takes it for, the parser stops with an error.
#include <tinyxml.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "schema/check.h"

namespace veltrancord::schema {
namespace {

constexpr int most_elements_within = 512;

// In UTF-8 text the library steps over a character by the length that its first byte announces,
// even where the text ends before.
constexpr std::size_t padding = 4;

// Where the tag that begins at `from` ends, its ">" included; npos where a "<" is in it, or none.
std::size_t end_of_tag(std::string_view text, std::size_t from) {
    char quote = '\0';
    for (std::size_t at = from + 1; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '<') {
            return std::string_view::npos;
        }
        if (quote != '\0') {
            quote = c == quote ? '\0' : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            return at + 1;
        }
    }
    return std::string_view::npos;
}

std::size_t behind(std::string_view text, std::string_view mark, std::size_t from) {
    const std::size_t found = text.find(mark, from);
    return found == std::string_view::npos ? found : found + mark.size();
}

// Return: where the markup that begins at `at` ends, or npos; `depth` goes with it.
std::size_t step_over(std::string_view text, std::size_t at, int& depth) {
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("<!--")) {
        return behind(text, "-->", at + 4);
    }
    if (rest.starts_with("<![CDATA[")) {
        return behind(text, "]]>", at + 9);
    }
    if (rest.starts_with("<?") || rest.starts_with("<!")) {
        return behind(text, ">", at);
    }
    const std::size_t end = end_of_tag(text, at);
    if (end != std::string_view::npos) {
        depth += rest.starts_with("</") ? -1 : text[end - 2] == '/' ? 0 : 1;
    }
    return end;
}

std::size_t line_at(std::string_view text, std::size_t at) {
    return 1 + static_cast<std::size_t>(
                   std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
}

// Return: false, with the line, where the text cannot be gone through or nests too deep.
bool is_safe(std::string_view text, std::string& problem, std::size_t& line) {
    int depth = 0;
    std::size_t at = text.find('<');
    while (at != std::string_view::npos) {
        const std::size_t end = step_over(text, at, depth);
        if (end == std::string_view::npos || depth > most_elements_within || depth < 0) {
            problem = depth > most_elements_within ? "elements stand more than 512 deep"
                      : depth < 0                  ? "an end tag closes nothing"
                                                   : "markup begins here that nothing ends";
            line = line_at(text, at);
            return false;
        }
        at = text.find('<', end);
    }
    return true;
}

}  // namespace

bool read_document(std::string text, TiXmlDocument& document, std::string& problem,
                   std::size_t& line, TiXmlEncoding encoding) {
    text.resize(std::min(text.find('\0'), text.size()));
    if (!is_safe(text, problem, line)) {
        return false;
    }
    text.append(padding, '\0');
    document.Clear();
    document.ClearError();
    document.Parse(text.c_str(), nullptr, encoding);
    if (document.Error()) {
        problem = document.ErrorDesc();
        line = static_cast<std::size_t>(std::max(document.ErrorRow(), 1));
        return false;
    }
    if (document.RootElement() == nullptr) {
        problem = "there is no element in it";
        line = 1;
        return false;
    }
    return true;
}

}  // namespace veltrancord::schema
