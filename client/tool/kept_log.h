// Whether the event log keeps what it is given.
#pragma once

#include <string>

#include "context.h"
#include "running_service.h"

namespace veltrancord::tool {

// Whether a count or capacity is none, but tells why the service was not asked. A log without room
// may give any other number below 0.
bool is_failed_exchange(int32_t number);

// How many events fit, as the service reckons it, which may be below 1. Return: false when it could
// not be asked; the client's error tells why.
bool read_log_capacity(context& tool, int32_t& capacity);

// Why a log of this capacity, below 1, keeps no events, and what to do about it.
std::string why_log_keeps_nothing(const running_service& service, int32_t capacity);

// Says that. Return: exit_no_log.
int fail_without_room(context& tool, int32_t capacity);

// Asks for the capacity, and says why nothing is kept where it is below 1. Return: exit_done,
// exit_no_log after a message, or what the question failed with.
int check_log_capacity(context& tool);

// The file of the log as it was before an event was added, to tell later whether it was saved.
class log_before {
  public:
    explicit log_before(const running_service& service);

    // Whether the file has changed since and holds the event; also where it may not be read.
    [[nodiscard]] bool seems_saved(const veltrancord_log_record& record) const;

    [[nodiscard]] const std::string& file() const { return file_; }

  private:
    struct state {
        bool readable = false;
        std::string text;
        std::string stamp;  // tells one file of that name from another
    };
    [[nodiscard]] state look() const;

    std::string file_;
    state before_;
};

}  // namespace veltrancord::tool
