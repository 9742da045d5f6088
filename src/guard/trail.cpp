#include "guard/trail.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "leaf/bounded_text.h"
#include "leaf/message.h"

namespace veltrancord {

namespace {

constexpr int authpriv = 10 << 3;
constexpr int notice = 5;
constexpr int warning = 4;

// The number under which RFC 5612 lets such names be made up.
constexpr const char* element_name = "veltrancord@32473";

// What is kept free behind the paths for counts, result and message.
constexpr std::size_t room_for_the_end = 512;

const char* name_of(trail_kind kind) {
    switch (kind) {
        case trail_kind::change:
            return "change";
        case trail_kind::refused:
            return "refused";
        case trail_kind::would_refuse:
            return "would-be-refused";
    }
    return "-";
}

// The number of bytes of the UTF-8 character that `text` begins with; 0: none.
std::size_t character_length(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80                    ? 1
                               : first >= 0xC2 && first < 0xE0 ? 2
                               : first >= 0xE0 && first < 0xF0 ? 3
                               : first >= 0xF0 && first < 0xF5 ? 4
                                                               : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

// A parameter's value: what ends it is escaped, and what is no UTF-8 or controls a terminal becomes
// "?".
std::string escaped(std::string_view value) {
    std::string text;
    while (!value.empty()) {
        const char first = value[0];
        std::size_t length = character_length(value);
        if (length == 0 ||
            (length == 1 && (static_cast<unsigned char>(first) < ' ' || first == 0x7F))) {
            text += '?';
            length = 1;
        } else {
            if (first == '"' || first == '\\' || first == ']') {
                text += '\\';
            }
            text.append(value.substr(0, length));
        }
        value.remove_prefix(length);
    }
    return text;
}

std::string parameter(const char* name, std::string_view value) {
    return std::string(" ").append(name).append("=\"").append(escaped(value)).append("\"");
}

std::string cut_value(std::string_view value) {
    return std::string(value.substr(0, max_trail_value));
}

std::string time_now() {
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm parts = {};
    const time_t seconds = now.tv_sec;
    ::gmtime_r(&seconds, &parts);
    char date[32];
    const std::size_t length = std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    char fraction[32];
    std::snprintf(fraction, sizeof fraction, ".%06ldZ", now.tv_nsec / 1000);
    return std::string(date, length).append(fraction);
}

std::string host_name() {
    char name[HOST_NAME_MAX + 1] = "";
    if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') {
        return "-";
    }
    std::replace_if(
        name, name + std::strlen(name),
        [](char character) { return character <= ' ' || character >= 0x7F; }, '?');
    return name;
}

}  // namespace

trail_record::trail_record(trail_kind kind, const trail_subject& subject,
                           std::string_view command) {
    text_.reserve(max_trail_record);
    const int priority = authpriv + (kind == trail_kind::change ? notice : warning);
    text_.append("<").append(std::to_string(priority)).append(">1 ").append(time_now());
    text_.append(" ").append(host_name()).append(" veltrancord ");
    text_.append(std::to_string(::getpid())).append(" ").append(name_of(kind));
    text_.append(" [").append(element_name);
    text_ += parameter("user", subject.user) + parameter("uid", subject.number) +
             parameter("pid", std::to_string(subject.process)) +
             parameter("program", subject.program) + parameter("command", command);
    message_.append(command).append(" by ").append(escaped(subject.user));
    message_.append(" (").append(subject.number).append(")");
}

void trail_record::add_parameters(const std::string& text) {
    if (left_out_ > 0 || text_.size() + text.size() > max_trail_record - room_for_the_end) {
        ++left_out_;
    } else {
        text_ += text;
    }
}

void trail_record::add_path(std::string_view path) {
    add_parameters(parameter("path", path));
}

void trail_record::add_change(std::string_view path, std::string_view old_value,
                              std::string_view new_value) {
    add_parameters(parameter("path", path) + parameter("old", cut_value(old_value)) +
                   parameter("new", cut_value(new_value)));
}

std::string_view trail_record::finish(int32_t result, uint64_t lost) {
    if (left_out_ > 0) {
        text_ += parameter("more", std::to_string(left_out_));
    }
    if (lost > 0) {
        text_ += parameter("lost", std::to_string(lost));
    }
    const std::string number = std::to_string(result);
    text_.append(parameter("result", number)).append("] ").append(message_);
    text_.append(": ").append(number);
    return text_;
}

bool system_log::connect() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (!copy_bounded(address.sun_path, path_)) {
        errno = ENAMETOOLONG;
        return false;
    }
    owned_fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket ||
        ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return false;
    }
    socket_ = std::move(socket);
    return true;
}

bool system_log::send_once(std::string_view text) const {
    return ::send(socket_.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
}

void system_log::send(trail_record& record, int32_t result) {
    const std::string_view text = record.finish(result, lost_);
    bool sent = socket_ && send_once(text);
    // A log that is full stays connected; anything else may be one that was started anew.
    if (!sent && (!socket_ || (errno != EAGAIN && errno != ENOBUFS))) {
        sent = connect() && send_once(text);
    }
    if (sent) {
        if (lost_ > 0) {
            print_error("trail: %s takes records again, %llu are lost\n", path_,
                        static_cast<unsigned long long>(lost_));
        }
        lost_ = 0;
        return;
    }
    if (lost_++ == 0) {
        print_error("trail: %s: %s, records are lost\n", path_, std::strerror(errno));
    }
}

}  // namespace veltrancord
