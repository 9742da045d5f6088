// The client library for C++17: owners instead of releases, std::string instead of buffers, and
// exceptions instead of results. Header only; link with the C library.
//
//     veltrancord::client service;
//     std::string name = service.get("System.Name");
//     service.write({{"Network.Lan.Mtu", "1500"}, {"Network.Lan.Dhcp", "YES"}});
//
// What fails throws veltrancord::error, which tells the result and what the call was about; a text
// with a NUL byte in it std::invalid_argument, and memory that this header cannot have
// std::bad_alloc. As in C, clients share nothing, and calls with one client must not overlap.
// <veltrancord/client.h> tells what each call does, its bounds and its results; what this header
// leaves out is called through client::c().
#ifndef VELTRANCORD_CLIENT_HPP
#define VELTRANCORD_CLIENT_HPP

#include <veltrancord/client.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrancord {

// A path and its value, of a setting or an attribute.
using setting = std::pair<std::string, std::string>;
using setting_vector = std::vector<setting>;

class error : public std::runtime_error {
  public:
    explicit error(const veltrancord_client& client)
        : std::runtime_error(text_of(client)),
          code_(client.error.code),
          subject_(client.error.subject) {}

    // The negative veltrancord_result.
    [[nodiscard]] std::int32_t code() const noexcept { return code_; }
    // What the call was about, as in veltrancord_error; may be empty.
    [[nodiscard]] const std::string& subject() const noexcept { return subject_; }

  private:
    static std::string text_of(const veltrancord_client& client) {
        char text[VELTRANCORD_MAX_SUBJECT + 256];
        (void)veltrancord_error_text(&client, text, sizeof text);
        return text;
    }

    std::int32_t code_;
    std::string subject_;
};

// A setting that is no longer what it was; no value: it was not there, or is not any more.
struct change {
    std::string path;
    std::optional<std::string> before;
    std::optional<std::string> after;
};

class client;

// Made by client::watch(), whose client it borrows.
class watcher {
  public:
    // Waits at most `timeout_ms` (negative: for ever). Return: the next change, or none when the
    // time is over. Throws error; the next call tries again.
    std::optional<change> next(std::int32_t timeout_ms = -1) {
        veltrancord_change found{};
        const std::int32_t result = veltrancord_watch_next(watcher_.get(), timeout_ms, &found);
        if (result < 0) {
            throw error(*client_);
        }
        if (result == 0) {
            return std::nullopt;
        }
        return change{found.path, optional_of(found.before), optional_of(found.after)};
    }

    // For poll(): readable when there may be changes. Ask for next(0) until it gives none before
    // each wait. It stays the watcher's.
    [[nodiscard]] int descriptor() const { return veltrancord_watch_descriptor(watcher_.get()); }

  private:
    friend class client;

    struct ender {
        void operator()(veltrancord_watcher* one) const { veltrancord_watch_end(one); }
    };

    watcher(veltrancord_client* owner, veltrancord_watcher* made)
        : client_(owner), watcher_(made) {}

    static std::optional<std::string> optional_of(const char* text) {
        return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
    }

    veltrancord_client* client_;
    std::unique_ptr<veltrancord_watcher, ender> watcher_;
};

// The service behind one socket. It stays where it is, since watchers borrow it.
class client {
  public:
    // `socket_path`: empty for what the environment's VELTRANCORD_SOCKET names, else the usual one.
    // `cap`: the largest text accepted.
    explicit client(std::string socket_path = {},
                    std::int32_t timeout_ms = VELTRANCORD_DEFAULT_TIMEOUT_MS,
                    std::size_t cap = std::size_t{64} << 20U)
        : socket_path_(std::move(socket_path)), cap_(cap) {
        client_.timeout_ms = timeout_ms;
        client_.socket_path = socket_path_.c_str();
    }
    ~client() = default;
    client(const client&) = delete;
    client& operator=(const client&) = delete;
    client(client&&) = delete;
    client& operator=(client&&) = delete;

    // For the functions of the C library; check() throws for a failure of theirs.
    veltrancord_client* c() noexcept { return &client_; }
    std::int32_t check(std::int32_t result) {
        if (result < 0) {
            throw error(client_);
        }
        return result;
    }

    void ping() { check(veltrancord_ping(&client_)); }
    void wait() { check(veltrancord_wait(&client_)); }

    // ---- Settings ----

    // One value; an element without text is not found.
    std::string get(const std::string& path) {
        std::string value = text_of(veltrancord_get, path);
        check(client_.error.code);
        return value;
    }

    // The same, with none for what is not there. All other failures throw.
    std::optional<std::string> find(const std::string& path) {
        std::string value = text_of(veltrancord_get, path);
        if (client_.error.code == VELTRANCORD_NOT_FOUND) {
            return std::nullopt;
        }
        check(client_.error.code);
        return value;
    }

    std::string get(const std::string& path, std::string fallback) {
        std::optional<std::string> value = find(path);
        return value ? std::move(*value) : std::move(fallback);
    }

    // One value, all below an element ("A.B.*") or everything ("*"); what a level may see; what is
    // meant to be shown.
    setting_vector read(const std::string& path) {
        return lines_of(
            [&](auto* reply) { return veltrancord_read(&client_, c_text(path), reply); });
    }
    setting_vector read_with_level(const std::string& path, std::int32_t level) {
        return lines_of([&](auto* reply) {
            return veltrancord_read_with_level(&client_, c_text(path), level, reply);
        });
    }
    setting_vector read_visible(const std::string& path) {
        return lines_of(
            [&](auto* reply) { return veltrancord_read_visible(&client_, c_text(path), reply); });
    }

    // All with one request, in order, and saved. Return: how many.
    std::int32_t write(const setting_vector& settings) {
        return write_all(veltrancord_write, settings);
    }
    std::int32_t write_memory(const setting_vector& settings) {
        return write_all(veltrancord_write_memory, settings);
    }
    void set(const std::string& path, const std::string& value) { write({{path, value}}); }
    void sync_memory() { check(veltrancord_sync_memory(&client_)); }
    void remove(const std::string& path) { check(veltrancord_remove(&client_, c_text(path))); }

    // ---- Attributes: the last component of the path names one ----

    std::string get_attribute(const std::string& path) {
        std::string value = text_of(veltrancord_get_attribute, path);
        check(client_.error.code);
        return value;
    }
    setting_vector read_attributes(const std::string& path) {
        return lines_of([&](auto* reply) {
            return veltrancord_read_attributes(&client_, c_text(path), reply);
        });
    }
    std::int32_t write_attributes(const setting_vector& settings) {
        return write_all(veltrancord_write_attributes, settings);
    }

    // ---- Watching ----

    // What changes at these paths, for who may read the service's directory on its machine.
    watcher watch(const std::vector<std::string>& paths,
                  const std::string& directory = VELTRANCORD_DEFAULT_DIRECTORY) {
        std::vector<const char*> names;
        names.reserve(paths.size());
        for (const std::string& path : paths) {
            names.push_back(c_text(path));
        }
        veltrancord_watcher* made = nullptr;
        check(veltrancord_watch(&client_, names.data(), names.size(), c_text(directory), cap_,
                                &made));
        return {&client_, made};
    }

    // ---- Event log ----

    // Adds an event of now; the text is at most VELTRANCORD_MAX_LOG_TEXT bytes long.
    void log_add(std::int32_t type, std::string_view text, std::uint8_t detail1 = 0,
                 std::uint8_t detail2 = 0) {
        veltrancord_log_record record{};
        record.type = type;
        record.year = 2000;  // the date is the service's to set
        record.month = 1;
        record.detail1 = detail1;
        record.detail2 = detail2;
        // One that fills the field and leaves no room for a NUL is refused as too long.
        (void)text.copy(record.text, sizeof record.text);
        if (text.find('\0') != std::string_view::npos) {
            throw std::invalid_argument("a text cannot hold a NUL byte");
        }
        check(veltrancord_log_add(&client_, &record));
    }

    // The newest `count` events at most whose type has a bit of `mask`, newest first.
    std::vector<veltrancord_log_record> log_read(std::size_t count, std::int32_t mask = -1) {
        std::vector<veltrancord_log_record> records(count);
        const std::int32_t found = check(
            veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, mask, records.data(), count));
        records.resize(static_cast<std::size_t>(found));
        return records;
    }

    // ---- Permits and sessions ----

    // False also for an unknown user or group; a permit that the group does not hold throws.
    bool user_may(const std::string& user, const std::string& permit) {
        return is_allowed(veltrancord_user_may(&client_, c_text(user), c_text(permit), nullptr));
    }
    bool group_may(const std::string& group, const std::string& permit) {
        return is_allowed(veltrancord_group_may(&client_, c_text(group), c_text(permit), nullptr));
    }
    std::string user_group(const std::string& user) {
        std::string group = text_of(veltrancord_user_group, user);
        check(client_.error.code);
        return group;
    }
    void set_session(const std::string& session) {
        check(veltrancord_set_session(&client_, c_text(session)));
    }
    bool check_session(const std::string& session,
                       std::int32_t lifetime = VELTRANCORD_DEFAULT_LIFETIME) {
        const std::int32_t result = veltrancord_check_session(&client_, c_text(session), lifetime);
        return result != VELTRANCORD_NOT_FOUND && check(result) == VELTRANCORD_OK;
    }

  private:
    // A text for C, which would end at its first NUL.
    static const char* c_text(const std::string& text) {
        if (text.find('\0') != std::string::npos) {
            throw std::invalid_argument("a text cannot hold a NUL byte");
        }
        return text.c_str();
    }

    // Asks again with the room that the first answer tells. A failure is left in the client.
    template <typename Ask>
    std::string text_of(Ask* ask, const std::string& about) {
        std::string value(256, '\0');
        std::int32_t result = ask(&client_, c_text(about), value.data(), value.size());
        while (result == VELTRANCORD_REPLY_OVER_CAP && client_.error.found <= cap_) {
            value.resize(client_.error.found + 1);
            result = ask(&client_, c_text(about), value.data(), value.size());
        }
        value.resize(result > 0 ? static_cast<std::size_t>(result) : 0);
        return value;
    }

    // Releases the reply whatever is thrown.
    template <typename Ask>
    setting_vector lines_of(Ask ask) {
        struct owned_reply : veltrancord_reply {
            explicit owned_reply(std::size_t largest)
                : veltrancord_reply VELTRANCORD_REPLY_INIT(nullptr, 0, largest) {}
            ~owned_reply() { veltrancord_reply_release(this); }
            owned_reply(const owned_reply&) = delete;
            owned_reply& operator=(const owned_reply&) = delete;
            owned_reply(owned_reply&&) = delete;
            owned_reply& operator=(owned_reply&&) = delete;
        } reply(cap_);
        check(ask(&reply));
        setting_vector settings;
        veltrancord_line line{};
        for (const char* cursor = reply.text; veltrancord_next_line(&cursor, &line) != 0;) {
            const std::string_view value(line.value, line.value_length);
            if (line.key_length > 0 || settings.empty()) {
                settings.emplace_back(std::string(line.key, line.key_length), value);
            } else {
                settings.back().second.append("\n").append(value);
            }
        }
        return settings;
    }

    template <typename Call>
    std::int32_t write_all(Call* call, const setting_vector& settings) {
        std::vector<veltrancord_setting> lines;
        lines.reserve(settings.size());
        for (const setting& one : settings) {
            lines.push_back({c_text(one.first), c_text(one.second)});
        }
        return check(call(&client_, lines.data(), lines.size()));
    }

    bool is_allowed(std::int32_t result) {
        return result != VELTRANCORD_DENIED && check(result) == VELTRANCORD_OK;
    }

    std::string socket_path_;
    std::size_t cap_;
    veltrancord_client client_ = VELTRANCORD_CLIENT_INIT;
};

}  // namespace veltrancord

#endif
