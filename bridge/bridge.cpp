#include "bridge.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>

#include "event_text.h"
#include "leaf/message.h"
#include "leaf/owned_fd.h"
#include "leaf/whole_io.h"
#include "topics.h"
#include "trial/journal.h"

namespace veltrancord::bridge {
namespace {

constexpr int64_t in_a_second = 1000;
constexpr int64_t connecting_look = 100;     // while the broker has not answered yet
constexpr int64_t trial_look = 250;          // while a trial is under way
constexpr int64_t longest_pause = 60'000;    // between two attempts to connect
constexpr int64_t longest_silence = 30'000;  // of a broker that has to accept a connection
constexpr int most_doublings = 6;
constexpr off_t largest_log_file = off_t{1} << 20U;

int64_t now_milliseconds() {
    return trial::boot_milliseconds();
}

// The file as a whole; empty where it cannot be read.
std::string read_log_file(const std::string& path) {
    const owned_fd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    std::string text;
    if (file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)) {
        text.resize(static_cast<std::size_t>(std::min(status.st_size, largest_log_file)));
        const ssize_t count = read_whole(file.get(), text.data(), text.size());
        text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return text;
}

}  // namespace

bridge::bridge(const configuration& settings, const trial::setup& where)
    : settings_(settings),
      log_name_(settings.log_file.substr(settings.log_file.rfind('/') + 1)),
      reports_(client_, settings),
      where_(where),
      desk_(client_, settings, where),
      link_(settings, *this) {
    client_.socket_path = settings.service_socket.c_str();
}

bool bridge::begin() {
    documents_ = watch_.add(settings_.documents);
    const std::string log_directory =
        settings_.log_file.substr(0, settings_.log_file.size() - log_name_.size());
    log_directory_ = documents_ >= 0 ? watch_.add(log_directory) : -1;
    if (log_directory_ < 0) {
        print_error("veltrancord-bridge: %s: %s\n",
                    (documents_ < 0 ? settings_.documents : log_directory).c_str(),
                    std::strerror(errno));
        return false;
    }
    read_log();
    journal_sound_ = !settings_.may_write() || desk_.start();
    return true;
}

bool bridge::run(const volatile std::sig_atomic_t& stop) {
    if (!begin()) {
        return false;
    }
    while (stop == 0 && watching_) {
        keep_connection();
        publish_waiting();
        wait();
        take_changes();
        if (link_.is_open() && !link_.work()) {
            lose_connection();
        }
        if (desk_.has_work()) {
            desk_.tick(link_.number(), std::time(nullptr));
        }
    }
    if (!watching_) {
        print_error("veltrancord-bridge: a directory that was watched has gone\n");
    }
    return watching_;
}

// ---- The connection ----

void bridge::keep_connection() {
    const int64_t now = now_milliseconds();
    if (desk_.takes_new_connection()) {
        link_.drop();
        events_.begin_anew();
        next_attempt_ = now + settings_.settle * in_a_second;
    }
    if (link_.is_open() && !link_.is_connected() && now - opened_ > longest_silence) {
        link_.drop();
        lose_connection();
    }
    if (link_.is_open() || now < next_attempt_) {
        return;
    }
    if (link_.open(topic(status_topic), "state=offline\n")) {
        opened_ = now_milliseconds();
    } else {
        lose_connection();
    }
}

// The pause doubles with each failure, and differs from device to device: after a restart of the
// broker they do not come all at once.
void bridge::lose_connection() {
    events_.begin_anew();
    if (failures_ == 0) {
        print_error("veltrancord-bridge: no connection to %s: %s\n", settings_.host.c_str(),
                    link_.trouble().c_str());
    }
    int64_t pause = std::min(in_a_second << std::min(failures_, most_doublings), longest_pause);
    pause = pause / 2 + static_cast<int64_t>(std::hash<std::string>()(settings_.device) %
                                             static_cast<std::size_t>(pause));
    ++failures_;
    next_attempt_ = now_milliseconds() + (desk_.is_trying() ? in_a_second : pause);
}

void bridge::on_connected() {
    if (failures_ > 0) {
        print_error("veltrancord-bridge: connected to %s\n", settings_.host.c_str());
    }
    failures_ = 0;
    if (takes_changes()) {
        for (const std::string_view one : {desired_topic, preview_topic, confirm_topic}) {
            link_.subscribe(topic(one));
        }
    }
    desk_.connected(link_.number());
    reports_.mark_all(true);
    publish_status();
}

void bridge::on_message(std::string_view name, std::string_view payload) {
    const std::time_t now = std::time(nullptr);
    if (name == topic(desired_topic)) {
        desk_.take_desired(payload, link_.number(), now);
    } else if (name == topic(preview_topic)) {
        desk_.take_preview(payload, now);
    } else if (name == topic(confirm_topic)) {
        desk_.take_confirm(payload, link_.number(), now);
    }
}

void bridge::on_acknowledged(int message) {
    events_.acknowledge(message);
}

// ---- Waiting ----

int bridge::waiting_time() const {
    const int64_t now = now_milliseconds();
    int64_t until = now + settings_.keep_alive * in_a_second / 2;
    if (!link_.is_open()) {
        until = next_attempt_;
    } else if (!link_.is_connected()) {
        until = now + connecting_look;
    } else if (const auto report = reports_.due_in(now); report && !desk_.is_trying()) {
        until = std::min(until, now + *report);
    }
    if (desk_.has_work()) {
        until = std::min(until, now + (desk_.is_trying() ? trial_look : in_a_second));
    }
    return static_cast<int>(std::clamp<int64_t>(until - now, 0, longest_pause));
}

void bridge::wait() {
    std::array<pollfd, 2> sources = {{{watch_.descriptor(), POLLIN, 0}, {-1, POLLIN, 0}}};
    if (link_.is_open()) {
        sources[1].fd = link_.descriptor();
        // While the broker has not answered, a handshake may leave the writer waiting.
        if (link_.is_connected() && link_.wants_to_write()) {
            sources[1].events = POLLIN | POLLOUT;
        }
    }
    const int time = waiting_time();
    const timespec pause = {time / in_a_second, static_cast<long>(time % in_a_second) * 1'000'000};
    sigset_t none;
    sigemptyset(&none);
    (void)::ppoll(sources.data(), sources.size(), &pause, &none);  // a signal ends it early
}

void bridge::take_changes() {
    bool log_changed = false;
    watching_ = watch_.take([&](int directory, std::string_view name) {
        log_changed =
            log_changed || name.empty() || (directory == log_directory_ && name == log_name_);
        if (name.empty()) {
            reports_.mark_all(false);
        } else if (directory == documents_) {
            reports_.mark(name);
        }
    });
    if (log_changed) {
        read_log();
    }
}

void bridge::read_log() {
    const log_follower::news found = follower_.take(read_log_file(settings_.log_file));
    events_.add_lost(found.lost);
    for (const std::string& entry : found.entries) {
        events_.add(entry);
    }
}

// ---- Publishing ----

void bridge::publish_waiting() {
    if (desk_.is_trying() != was_trying_) {
        was_trying_ = desk_.is_trying();
        if (!was_trying_) {
            reports_.mark_all(false);
        }
        publish_status();
    }
    if (!link_.is_connected()) {
        return;
    }
    if (!clock_was_set_ && is_clock_set(std::time(nullptr))) {
        publish_status();
    }
    publish_results();
    publish_events();
    if (!desk_.is_trying()) {
        if (const auto report = reports_.next(now_milliseconds())) {
            (void)link_.publish(topic(std::string(reported_topic) + report->document),
                                report->payload, true);
        }
    }
}

void bridge::publish_results() {
    const std::string retained = desk_.take_retained();
    if (!retained.empty()) {
        (void)link_.publish(topic(result_topic), retained, true);
    }
    for (const std::string& answer : desk_.take_answers()) {
        (void)link_.publish(topic(result_topic), answer, false);
    }
}

void bridge::publish_events() {
    while (events_.sending() < event_queue::window) {
        const queued_event* const event = events_.next();
        const int message =
            event != nullptr ? link_.publish(topic(event_topic), event_text(*event), false) : 0;
        if (message == 0) {
            return;
        }
        events_.begin_sending(message);
    }
}

void bridge::publish_status() {
    if (link_.is_connected()) {
        (void)link_.publish(topic(status_topic), status_text(), true);
        clock_was_set_ = is_clock_set(std::time(nullptr));
    }
}

std::string bridge::status_text() const {
    trial::state found;
    const bool waits = trial::look(where_, found).good() && found.how_far != trial::phase::none;
    return std::string("state=online\nbridge=") + VELTRANCORD_VERSION +
           "\nchanges=" + (takes_changes() ? "yes" : "no") + "\ntrial=" + (waits ? "yes" : "no") +
           "\nclock=" + (is_clock_set(std::time(nullptr)) ? "set" : "unset") + "\n";
}

std::string bridge::topic(std::string_view rest) const {
    return topic_of(settings_.device, rest);
}

}  // namespace veltrancord::bridge
