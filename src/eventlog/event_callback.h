// Starting the device's script for an event.
#pragma once

#include <cstdint>

namespace veltrancord {

// Starts "/tmp/trigger/EventLogCallBack.sh" with the type, the time text, the first detail value,
// the detail text and the second detail value as arguments, if the settings want the event and the
// script is there. Does not wait for it. Each argument is at most 31 characters long. Server thread
// only. Reports a failing fork on standard error; the script's process reports a failing execve.
//
// Return: 1, or 0 when the fork failed.
int32_t trigger_event_callback(int32_t type, const char* time_text, uint8_t first_detail,
                               const char* detail_text, uint8_t second_detail);

}  // namespace veltrancord
