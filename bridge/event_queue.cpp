#include "event_queue.h"

#include <algorithm>

namespace veltrancord::bridge {

void event_queue::add(std::string_view text) {
    if (count_ == ring_.size()) {
        lose_oldest();
    }
    queued_event& event = at(count_);
    ++count_;
    event.number = next_number_++;
    event.lost = lost_before_next_;
    lost_before_next_ = 0;
    event.length = static_cast<uint16_t>(std::min(text.size(), max_event_text));
    std::copy_n(text.begin(), event.length, event.text);
}

// The queue is full, and the window is far smaller: there is one that is not being sent, and one
// behind it.
void event_queue::lose_oldest() {
    static_assert(max_queued_events > window + 1);
    const uint64_t lost = at(sending_).lost + 1;
    for (std::size_t index = sending_; index > 0; --index) {
        at(index) = at(index - 1);
    }
    first_ = (first_ + 1) % ring_.size();
    --count_;
    at(sending_).lost += lost;
}

void event_queue::begin_sending(int message) {
    if (sending_ < count_ && sending_ < window) {
        messages_[sending_] = message;
        ++sending_;
    }
}

void event_queue::acknowledge(int message) {
    int* const end = messages_ + sending_;
    std::replace(messages_, end, message, 0);
    const auto done = static_cast<std::size_t>(
        std::find_if(messages_, end, [](int one) { return one != 0; }) - messages_);
    std::copy(messages_ + done, end, messages_);
    first_ = (first_ + done) % ring_.size();
    count_ -= done;
    sending_ -= done;
}

void event_queue::begin_anew() {
    sending_ = 0;
}

}  // namespace veltrancord::bridge
