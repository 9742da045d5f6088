#include "update/lines.h"

#include <algorithm>

namespace veltrancord {

bool update_lines::next(update_line& line) {
    const std::size_t equals = rest_.find('=');
    if (equals == std::string_view::npos) {
        return false;
    }
    line.path = rest_.substr(0, equals);
    rest_.remove_prefix(equals + 1);
    line.value = rest_.substr(0, rest_.find('\n'));
    rest_.remove_prefix(std::min(rest_.size(), line.value.size() + 1));
    return true;
}

}  // namespace veltrancord
