// Questions to the service that several commands ask.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "context.h"

namespace veltrancord::tool {

// The largest reply that the tool accepts.
inline constexpr std::size_t reply_cap = std::size_t{256} << 20U;

// A reply in memory of the library's, freed with this object.
class owned_reply {
  public:
    owned_reply() = default;
    ~owned_reply() { veltrancord_reply_release(&reply_); }
    owned_reply(const owned_reply&) = delete;
    owned_reply& operator=(const owned_reply&) = delete;
    owned_reply(owned_reply&&) = delete;
    owned_reply& operator=(owned_reply&&) = delete;

    [[nodiscard]] veltrancord_reply* get() { return &reply_; }
    [[nodiscard]] std::string text() const {
        return reply_.length > 0 ? std::string(reply_.text, reply_.length) : std::string();
    }

  private:
    veltrancord_reply reply_ = VELTRANCORD_REPLY_INIT(nullptr, 0, reply_cap);
};

// Reads one value; the reason for a failure is in the client. Return: the result.
int32_t get_value(context& tool, const std::string& path, std::string& value);

// Whether the path asks for more than one setting: its last component is "*".
bool is_subtree(std::string_view path);

// Whether `path` is `place` or lies below it; everything lies at "" and "*".
bool lies_at(const std::string& path, const std::string& place);

// Reads what lies below `path` ("Account.User1" and "Account.User1.*" mean the same; "" and "*"
// mean everything). All paths of the result can be used to write: the service answers the
// components that were asked for in escaped form, they are put back as they were asked for.
//
// Return: the result; VELTRANCORD_OK with an empty list where there is no text.
int32_t read_subtree(context& tool, const std::string& path, setting_list& settings);

// Reads the setting at `path` and what lies below it; with a "*" at the end, only what lies below.
//
// Return: the result; VELTRANCORD_OK with an empty list where there is an element without any text.
int32_t read_place(context& tool, const std::string& path, setting_list& settings);

// Looks for an element at `path`, with a text or without. Return: VELTRANCORD_OK or what failed.
int32_t look_for(context& tool, const std::string& path);

// Whether there is an element at `path`, with a text or without. The client's error is left as it
// was.
bool is_there(context& tool, const std::string& path);

// Writes all settings with one request, and says of each value that it will lose blanks. Return:
// the result.
int32_t write_settings(context& tool, const setting_list& settings, bool memory_only);

// After a write of `settings` failed with `result`: says which certainly hold, having read them
// back. Return: the exit status.
int explain_failed_write(context& tool, const setting_list& settings, int32_t result);

}  // namespace veltrancord::tool
