// Settings as the tool holds them: full path and value.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace veltrancord::tool {

struct setting {
    std::string path;
    std::string value;
    std::size_t line = 0;  // of the file that it was read from, from 1; 0: from none
};
using setting_list = std::vector<setting>;

// The lines of a reply; a line without "=" goes on with the value before it.
setting_list parse_settings(const std::string& lines);

// Whether the path names a secret: its last component, which dots and a NUL byte end as they do for
// the service, is "Password" in any letter case.
bool is_secret_path(std::string_view path);

// The value as it may be shown: stars in place of a secret unless `reveal`.
std::string shown_value(const setting& one, bool reveal);
inline constexpr std::string_view masked_value = "********";

// One difference; a side that is missing is null.
struct setting_change {
    std::string path;
    const std::string* before = nullptr;
    const std::string* after = nullptr;
};

// Settings by path; of several with one path the first counts, as it does for the service.
std::map<std::string, std::string> by_path(const setting_list& settings);

// What differs, in the order of the paths. Points into the two maps.
std::vector<setting_change> compare(const std::map<std::string, std::string>& before,
                                    const std::map<std::string, std::string>& after);

// Whether the path begins or ends with a blank, as "Mtu " of "Mtu = 1500" does: another setting
// than was meant.
bool has_blank_at_end(std::string_view path);

// Whether the value begins or ends with a blank, or has two in a row: the XML library drops those
// at the next start of the service. A secret keeps its blanks, as its stored form has none.
bool loses_blanks(const setting& one);

// Splits "path=value" lines at line feeds or, with `null_separated`, at NUL bytes; blank lines and
// lines that begin with "#" are passed over. Return: false with the line's number (from 1) in `bad`
// when one has no "=".
bool parse_lines(const std::string& text, bool null_separated, setting_list& settings,
                 std::size_t& bad);

}  // namespace veltrancord::tool
