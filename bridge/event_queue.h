// Events on their way to the broker: the newest of them, and how many were lost before each.
//
// They wait here while there is no connection, and until the broker has acknowledged them: what the
// end of a connection has left open is sent again with the next one. Nothing grows: the ring's
// memory is there from the beginning.
//
// Used by one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace veltrancord::bridge {

inline constexpr std::size_t max_queued_events = 1000;
inline constexpr std::size_t max_event_text = 95;  // what an entry of the log has at most

struct queued_event {
    uint64_t number = 0;  // counts up from 1 since the bridge was started
    uint64_t lost = 0;    // events between the one before and this one that nobody gets to see
    uint16_t length = 0;
    char text[max_event_text] = {};

    [[nodiscard]] std::string_view view() const { return {text, length}; }
};

class event_queue {
  public:
    event_queue() : ring_(max_queued_events) {}

    // Adds an event, whose text is cut at max_event_text; of a full queue the oldest that is not
    // being sent is lost.
    void add(std::string_view text);

    // Counts events that were gone before they could be read: told with the next one.
    void add_lost(uint64_t count) { lost_before_next_ += count; }

    // The oldest event that is not being sent, or null. Until the next call.
    [[nodiscard]] const queued_event* next() const {
        return sending_ < count_ ? &at(sending_) : nullptr;
    }

    // The event that next() gives is being sent under a number of the connection's, above 0.
    void begin_sending(int message);

    // The broker has it. What is acknowledged out of order is held until all before it are.
    void acknowledge(int message);

    // The connection has ended: what was being sent is to be sent again.
    void begin_anew();

    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] std::size_t sending() const { return sending_; }

    // At most so many are sent before the first is acknowledged.
    static constexpr std::size_t window = 16;

  private:
    [[nodiscard]] queued_event& at(std::size_t index) {
        return ring_[(first_ + index) % ring_.size()];
    }
    [[nodiscard]] const queued_event& at(std::size_t index) const {
        return ring_[(first_ + index) % ring_.size()];
    }
    void lose_oldest();

    std::vector<queued_event> ring_;
    std::size_t first_ = 0;
    std::size_t count_ = 0;
    std::size_t sending_ = 0;    // the first so many of them
    int messages_[window] = {};  // of those being sent; 0: acknowledged
    uint64_t next_number_ = 1;
    uint64_t lost_before_next_ = 0;
};

}  // namespace veltrancord::bridge
