#include "time_text.h"

#include <array>
#include <ctime>

namespace veltrancord::tool {

std::string local_time(int64_t seconds) {
    const auto moment = static_cast<std::time_t>(seconds);
    std::tm parts{};
    std::array<char, 32> text{};
    if (localtime_r(&moment, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(seconds);
    }
    return text.data();
}

}  // namespace veltrancord::tool
