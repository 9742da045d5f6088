// The notification settings of the running service: the configuration store and the gate file.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "eventlog/notification.h"
#include "store/value.h"

namespace veltrancord {

// Server thread only, as the store is.
class stored_notification_settings final : public notification_settings {
  public:
    [[nodiscard]] std::string_view value(std::string_view path) override;
    [[nodiscard]] std::vector<int32_t> definitions(int32_t highest) override;
    [[nodiscard]] int32_t push_gate() override;

  private:
    XmlValue value_;
};

// The number that the text of the file begins with; 0 when there is no such file or no number.
// Never waits, whatever kind of file that is.
[[nodiscard]] int32_t read_number_file(const char* path);

}  // namespace veltrancord
