#include "service_settings.h"

#include <array>
#include <string_view>

namespace veltrancord::bridge {
namespace {

constexpr std::size_t largest_reply = std::size_t{256} * 1024;

// A reply that is released with its owner.
class owned_reply {
  public:
    owned_reply() = default;
    owned_reply(const owned_reply&) = delete;
    owned_reply& operator=(const owned_reply&) = delete;
    ~owned_reply() { veltrancord_reply_release(&reply_); }

    [[nodiscard]] veltrancord_reply* get() { return &reply_; }
    [[nodiscard]] const char* text() const { return reply_.text; }

  private:
    veltrancord_reply reply_ = VELTRANCORD_REPLY_INIT(nullptr, 0, largest_reply);
};

bool may_be_told(const configuration& settings, std::string_view path) {
    return settings.reported.cover(path) || settings.writable.cover(path);
}

}  // namespace

int32_t read_report(veltrancord_client& client, const configuration& settings,
                    const std::string& document, std::string& report) {
    report.clear();
    owned_reply reply;
    const int32_t result =
        veltrancord_read_visible(&client, (document + ".*").c_str(), reply.get());
    if (result <= 0) {
        return result == VELTRANCORD_NOT_FOUND ? static_cast<int32_t>(VELTRANCORD_OK) : result;
    }
    const char* cursor = reply.text();
    veltrancord_line line;
    std::size_t last = 0;  // where the line of the last setting begins
    while (veltrancord_next_line(&cursor, &line) != 0) {
        if (line.key_length == 0) {  // the value before it goes on
            report.resize(last);
            continue;
        }
        last = report.size();
        const std::string_view path(line.key, line.key_length);
        if (may_be_told(settings, path)) {
            report.append(path).append("=").append(line.value, line.value_length).append("\n");
        }
    }
    return VELTRANCORD_OK;
}

int32_t read_value(veltrancord_client& client, const std::string& path,
                   std::optional<std::string>& value) {
    std::array<char, VELTRANCORD_MAX_VALUE + 1> text{};
    const int32_t result = veltrancord_get(&client, path.c_str(), text.data(), text.size());
    value.reset();
    if (result > 0) {
        value = std::string(text.data(), static_cast<std::size_t>(result));
    }
    return result < 0 && result != VELTRANCORD_NOT_FOUND ? result
                                                         : static_cast<int32_t>(VELTRANCORD_OK);
}

int32_t look_for_program(veltrancord_client& client, const std::string& path, bool& starts_one) {
    std::array<char, VELTRANCORD_MAX_ATTRIBUTE_VALUE + 1> text{};
    const int32_t result =
        veltrancord_get_attribute(&client, (path + ".DispatchW").c_str(), text.data(), text.size());
    starts_one = result >= 0;
    return result < 0 && result != VELTRANCORD_NOT_FOUND ? result
                                                         : static_cast<int32_t>(VELTRANCORD_OK);
}

int32_t look_below(veltrancord_client& client, const std::string& path, bool& some) {
    owned_reply reply;
    const int32_t result = veltrancord_read(&client, (path + ".*").c_str(), reply.get());
    some = result > 0;
    return result < 0 && result != VELTRANCORD_NOT_FOUND ? result
                                                         : static_cast<int32_t>(VELTRANCORD_OK);
}

int32_t compare_settings(veltrancord_client& client,
                         const std::vector<std::pair<std::string, std::string>>& settings,
                         const std::vector<std::string>& absent, bool& hold) {
    std::optional<std::string> value;
    hold = true;
    for (const auto& [path, wanted] : settings) {
        const int32_t result = read_value(client, path, value);
        if (result < 0) {
            return result;
        }
        hold = hold && value.value_or("") == wanted;
    }
    for (const std::string& path : absent) {
        const int32_t result = read_value(client, path, value);
        if (result < 0) {
            return result;
        }
        hold = hold && !value;
    }
    return VELTRANCORD_OK;
}

}  // namespace veltrancord::bridge
