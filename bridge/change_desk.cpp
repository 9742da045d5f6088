#include "change_desk.h"

#include <algorithm>
#include <array>
#include <utility>

#include "leaf/message.h"
#include "service_settings.h"
#include "topics.h"

namespace veltrancord::bridge {
namespace {

constexpr std::time_t first_set_time = 1767225600;  // 2026, the first day
constexpr std::size_t max_answers = 16;
constexpr int64_t in_a_second = 1000;

std::string service_reason(const veltrancord_client& client) {
    std::array<char, VELTRANCORD_MAX_SUBJECT + 256> text{};
    (void)veltrancord_error_text(&client, text.data(), text.size());
    std::string reason = text.data();
    std::replace(reason.begin(), reason.end(), '\n', ' ');
    return reason;
}

// Why a trial could not be begun.
change_state explain(const trial::verdict& verdict, const veltrancord_client& client,
                     std::string& reason) {
    switch (verdict.what) {
        case trial::trouble::another:
            reason = "busy: another change waits for its confirmation";
            return change_state::refused;
        case trial::trouble::differs:
            reason = verdict.about + ": has changed meanwhile";
            return change_state::conflict;
        case trial::trouble::not_writable:
            reason = verdict.about + ": holds a text that could not be written back";
            return change_state::refused;
        case trial::trouble::service:
            reason = service_reason(client);
            return change_state::refused;
        case trial::trouble::no_guard:
            reason = "no guard could be started";
            return change_state::refused;
        default:
            reason = "no trial can be made at " + verdict.about;
            return change_state::refused;
    }
}

}  // namespace

bool is_clock_set(std::time_t now) {
    return now >= first_set_time;
}

change_desk::change_desk(veltrancord_client& client, const configuration& settings,
                         trial::setup where)
    : client_(client),
      settings_(settings),
      where_(std::move(where)),
      journal_(settings.state + "/changes", settings.memory + "/last-change") {}

bool change_desk::start() {
    sound_ = journal_.load();
    if (!sound_) {
        print_error("veltrancord-bridge: %s/changes is damaged: no change is taken\n",
                    settings_.state.c_str());
        return false;
    }
    const noted_change& last = journal_.last();
    if (last.state != change_state::trial) {
        return true;
    }
    trial::ending how = trial::ending::unknown;
    const trial::verdict verdict = trial::give_back(client_, where_, last.trial, how);
    trial::trial_folder folder;
    if (verdict.what == trial::trouble::nothing && folder.open(where_.folder)) {
        how = folder.how_ended(last.trial);  // the guard was quicker
    }
    const bool kept = how == trial::ending::kept || verdict.what == trial::trouble::decided;
    const outcome ended = {kept ? change_state::applied : change_state::rolled_back,
                           kept ? "" : "the bridge ended before it was confirmed", "", 0};
    journal_.set_state(ended.state, ended.reason);
    retain(result_text(last.id, last.sequence, ended));
    return true;
}

// ---- What comes in ----

bool change_desk::open(std::string_view topic, std::string_view payload, message_kind kind,
                       operator_message& message) {
    std::string_view text;
    if (payload.size() > max_message) {
        answer({}, {change_state::refused, "over 64 KiB", "", 0});
        return false;
    }
    if (!settings_.keys.verify(topic_of(settings_.device, topic), payload, text)) {
        answer({}, {change_state::refused, "not signed by an operator", "", 0});
        return false;
    }
    const std::string problem = parse_message(text, kind, message);
    if (!problem.empty()) {
        answer(message, {change_state::refused, problem, "", 0});
        return false;
    }
    if (message.device != settings_.device) {
        answer(message, {change_state::refused, "for another device", "", 0});
        return false;
    }
    return true;
}

bool change_desk::is_new(const operator_message& message) {
    const noted_change& last = journal_.last();
    if (message.sequence > last.sequence) {
        return true;
    }
    if (message.sequence == last.sequence && message.id == last.id) {
        tell_again(message);
    } else {
        answer(message, {change_state::refused,
                         "its sequence is not above " + std::to_string(last.sequence), "", 0});
    }
    return false;
}

void change_desk::take_desired(std::string_view payload, uint64_t connection, std::time_t now) {
    operator_message message;
    waiting_.clear();
    if (!sound_ || payload.empty() ||
        !open(desired_topic, payload, message_kind::change, message)) {
        return;
    }
    if (!is_clock_set(now) || veltrancord_ping(&client_) != VELTRANCORD_OK) {
        waiting_ = payload;
        return;
    }
    if (is_new(message)) {
        act(message, connection, now);
    }
}

void change_desk::take_preview(std::string_view payload, std::time_t now) {
    operator_message message;
    if (payload.empty() || !open(preview_topic, payload, message_kind::change, message)) {
        return;
    }
    if (!is_clock_set(now) || now > message.not_after) {
        answer(message, {change_state::expired, "", "", 0});
        return;
    }
    change_plan plan;
    if (make_plan(client_, settings_, message, plan) < 0) {
        plan.obstacle = change_state::refused;
        plan.reason = service_reason(client_);
    }
    answer(message, {plan.obstacle, plan.reason, difference_text(plan.changes), 0});
}

void change_desk::take_confirm(std::string_view payload, uint64_t connection, std::time_t now) {
    operator_message message;
    if (payload.empty() || !open(confirm_topic, payload, message_kind::answer, message)) {
        return;
    }
    if (running_ == nullptr || running_->id != message.id ||
        running_->sequence != message.sequence) {
        answer(message, {change_state::refused, "there is no such trial", "", 0});
        return;
    }
    if (now > message.not_after) {
        answer(message, {change_state::expired, "", "", 0});
        return;
    }
    if (connection <= running_->connection) {
        answer(message, {change_state::refused, "not over a new connection", "", 0});
        return;
    }
    trial::ending how = trial::ending::unknown;
    const ino_t journal = running_->ticket.journal();
    const trial::verdict verdict = message.keep ? trial::keep(client_, where_, journal, how)
                                                : trial::give_back(client_, where_, journal, how);
    if (verdict.good() && how != trial::ending::unknown) {
        finish(how);  // else the guard finishes what was decided, and tick() sees it
    }
}

// ---- What is done about it ----

void change_desk::act(const operator_message& message, uint64_t connection, std::time_t now) {
    if (!journal_.note(message.sequence, message.id)) {
        answer(message, {change_state::refused, "the journal cannot be written", "", 0});
        return;
    }
    if (now > message.not_after) {
        conclude(message, {change_state::expired, "", "", 0});
        return;
    }
    if (running_ != nullptr) {
        conclude(message,
                 {change_state::refused,
                  "busy: the change " + running_->id + " waits for its confirmation", "", 0});
        return;
    }
    change_plan plan;
    if (make_plan(client_, settings_, message, plan) < 0) {
        conclude(message, {change_state::refused, service_reason(client_), "", 0});
    } else if (plan.obstacle != change_state::none) {
        conclude(message, {plan.obstacle, plan.reason, "", 0});
    } else if (plan.changes.empty()) {
        conclude(message, {change_state::applied, "nothing differs", "", 0});
    } else {
        begin(message, std::move(plan), connection);
    }
}

void change_desk::begin(const operator_message& message, change_plan plan, uint64_t connection) {
    auto running = std::make_unique<running_trial>();
    running->id = message.id;
    running->sequence = message.sequence;
    running->connection = connection;
    running->removals = std::move(plan.removals);
    running->differences = difference_text(plan.changes);
    const trial::verdict verdict =
        trial::begin(client_, where_, plan.changes, message.trial_seconds, running->ticket);
    if (!verdict.good()) {
        std::string reason;
        const change_state state = explain(verdict, client_, reason);
        conclude(message, {state, reason, "", 0});
        return;
    }
    running_ = std::move(running);
    journal_.set_state(change_state::trial, "", running_->ticket.journal());
    new_connection_ = true;
}

void change_desk::finish(trial::ending how) {
    const std::unique_ptr<running_trial> ended = std::move(running_);
    outcome found = {change_state::rolled_back, "", ended->differences, 0};
    if (how == trial::ending::kept) {
        found.state = change_state::applied;
        for (const std::string& path : ended->removals) {
            if (veltrancord_remove(&client_, path.c_str()) < 0) {
                found.reason = path + ": is empty, and could not be removed";
            }
        }
    } else if (how != trial::ending::given_back) {
        found.reason = how == trial::ending::unknown ? "it is not known how it ended"
                                                     : "not all settings could be written back";
    }
    if (journal_.last().sequence == ended->sequence) {
        journal_.set_state(found.state, found.reason);
    }
    retain(result_text(ended->id, ended->sequence, found));
}

void change_desk::tick(uint64_t connection, std::time_t now) {
    if (running_ != nullptr && running_->ticket.is_over()) {
        finish(running_->ticket.how_ended());
    }
    if (!waiting_.empty()) {
        const std::string again = std::exchange(waiting_, std::string());
        take_desired(again, connection, now);
    }
}

void change_desk::connected(uint64_t connection) {
    if (running_ != nullptr && connection > running_->connection) {
        retained_ = result_text(running_->id, running_->sequence,
                                {change_state::trial, "", running_->differences,
                                 running_->ticket.milliseconds_left() / in_a_second});
    }
    retained_due_ = !retained_.empty();
}

// ---- What is said of it ----

// A change that was acted on has come again.
void change_desk::tell_again(const operator_message& message) {
    if (running_ != nullptr && running_->sequence == message.sequence) {
        return;
    }
    const noted_change& last = journal_.last();
    if (last.state == change_state::noted) {  // the device was restarted since
        bool holds = false;
        if (compare_settings(client_, message.set, message.remove, holds) < 0) {
            return;
        }
        conclude(message, {holds ? change_state::applied : change_state::rolled_back,
                           "found after a restart of the device", "", 0});
        return;
    }
    answer(message, {last.state, last.reason, "", 0});
}

void change_desk::conclude(const operator_message& message, const outcome& how) {
    journal_.set_state(how.state, how.reason);
    retain(result_text(message.id, message.sequence, how));
}

void change_desk::retain(std::string text) {
    retained_ = std::move(text);
    retained_due_ = true;
}

void change_desk::answer(const operator_message& message, const outcome& how) {
    if (answers_.size() < max_answers) {
        answers_.push_back(result_text(message.id, message.sequence, how));
    }
}

std::string change_desk::result_text(const std::string& id, uint64_t sequence, const outcome& how) {
    std::string text = "id=" + id + "\nsequence=" + std::to_string(sequence) + "\nstate=" +
                       (how.state == change_state::none ? "preview" : word_of(how.state)) + "\n";
    if (!how.reason.empty()) {
        text += "reason=" + how.reason + "\n";
    }
    if (how.state == change_state::trial) {
        text += "seconds=" + std::to_string(how.seconds) + "\n";
    }
    return text + "\n" + how.differences;
}

bool change_desk::takes_new_connection() {
    return std::exchange(new_connection_, false);
}

std::string change_desk::take_retained() {
    return std::exchange(retained_due_, false) ? retained_ : std::string();
}

std::vector<std::string> change_desk::take_answers() {
    return std::exchange(answers_, {});
}

}  // namespace veltrancord::bridge
