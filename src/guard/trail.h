// The trail: who changed what and who was refused, to the device's system log.
//
// A record is one line as RFC 5424 has it, facility authpriv, sent as a datagram to the system
// log's local socket. Sending never waits: what the log does not take is lost, counted, and told in
// the next record that it takes. Nothing is written to flash by the service.
//
//   <85>1 2026-11-22T15:12:02.123456Z yard veltrancord 211 change
//   [veltrancord@32473 user="web" uid="33" pid="514" program="settings.cgi" command="write"
//   path="Network.Lan.Mtu" old="1500" new="1400" result="1"] write by web (33): 1
//
// (in one line). The message is named "change", "refused", or "would-be-refused" in the permissive
// mode. "path" stands there for each path, with "old" and "new" behind it where values are asked
// for and the setting is no secret; `more="7"` counts paths for which there was no room, and
// `lost="3"` records that were lost before this one. A value is cut to 128 bytes.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "leaf/owned_fd.h"

namespace veltrancord {

inline constexpr std::size_t max_trail_record = 4096;  // bytes
inline constexpr std::size_t max_trail_value = 128;    // bytes of a value, before it is escaped

enum class trail_kind : uint8_t { change, refused, would_refuse };

// Who is told of. The views are borrowed for the call.
struct trail_subject {
    std::string_view user;  // a name, or a number where the access file has no name for it
    std::string_view number;
    pid_t process = 0;
    std::string_view program;
};

// One record, built piece by piece. Memory that cannot be had is thrown as std::bad_alloc.
class trail_record {
  public:
    trail_record(trail_kind kind, const trail_subject& subject, std::string_view command);

    // Adds a path; one for which there is no room is counted.
    void add_path(std::string_view path);

    // The same with what the setting held and is to hold.
    void add_change(std::string_view path, std::string_view old_value, std::string_view new_value);

    // Ends the record; `lost` 0 is not told.
    //
    // Return: the record, valid as long as this is.
    [[nodiscard]] std::string_view finish(int32_t result, uint64_t lost);

  private:
    void add_parameters(const std::string& text);

    std::string text_;
    std::string message_;
    std::size_t left_out_ = 0;
};

// Where records go. Server thread only.
class system_log {
  public:
    explicit system_log(const char* socket_path) : path_(socket_path) {}

    // Sends what `record` becomes with the result and what was lost. A log that was started anew is
    // connected to anew. The first record of several that are lost prints a line on standard error,
    // and so does the first one that gets through again.
    void send(trail_record& record, int32_t result);

    // Records lost since the last one that got through.
    [[nodiscard]] uint64_t lost() const noexcept { return lost_; }

  private:
    [[nodiscard]] bool connect();
    [[nodiscard]] bool send_once(std::string_view text) const;

    const char* path_;
    owned_fd socket_;
    uint64_t lost_ = 0;
};

}  // namespace veltrancord
