// Times of day and dates as XML Schema writes them: "18:30:00", "24:00:00", "2024-02-29Z".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace veltrancord::schema {

struct moment {
    int64_t seconds = 0;   // since midnight, or since 0001-01-01; in UTC where there is a zone
    std::string fraction;  // digits behind the seconds, without zeros at the end
    bool zoned = false;
};

// Return: nothing for what is no time (no date), such as 25:00:00, 2023-02-29 or a zone beyond 14
// hours. Years go from 0001 to 9999.
[[nodiscard]] std::optional<moment> read_time(std::string_view text);
[[nodiscard]] std::optional<moment> read_date(std::string_view text);

enum class moment_order : uint8_t { before, same, after, unknown };

// Where only one of both has a zone, the other may be in any, 14 hours to either side.
[[nodiscard]] moment_order compare(const moment& left, const moment& right);

}  // namespace veltrancord::schema
