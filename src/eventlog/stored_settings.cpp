#include "eventlog/stored_settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "leaf/decimal_number.h"
#include "leaf/owned_fd.h"
#include "store/numbered_elements.h"

namespace veltrancord {

namespace {

constexpr const char* push_gate_file = "/tmp/alert_notify";

}  // namespace

std::string_view stored_notification_settings::value(std::string_view path) {
    return ReadXmlValue(path, value_) > 0 ? value_.text : std::string_view();
}

std::vector<int32_t> stored_notification_settings::definitions(int32_t highest) {
    return ElementNumbers({"Notification", "Log", "BitDefine"}, "Def", highest);
}

int32_t stored_notification_settings::push_gate() {
    return read_number_file(push_gate_file);
}

int32_t read_number_file(const char* path) {
    // Opening a FIFO would wait for a writer otherwise.
    const owned_fd file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, 256> text;
    const ssize_t length = file ? ::read(file.get(), text.data(), text.size()) : 0;
    return length > 0 ? decimal_number({text.data(), static_cast<std::size_t>(length)}) : 0;
}

}  // namespace veltrancord
