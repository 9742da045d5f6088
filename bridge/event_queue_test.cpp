#include "event_queue.h"

#include <gtest/gtest.h>

#include <string>

namespace veltrancord::bridge {
namespace {

std::vector<std::string> drain(event_queue& queue, uint64_t* lost = nullptr) {
    std::vector<std::string> texts;
    int message = 0;
    while (const queued_event* const event = queue.next()) {
        texts.emplace_back(event->view());
        if (lost != nullptr) {
            *lost += event->lost;
        }
        queue.begin_sending(++message);
        queue.acknowledge(message);
    }
    return texts;
}

TEST(EventQueue, KeepsTheirOrder) {
    event_queue queue;
    EXPECT_EQ(queue.next(), nullptr);
    queue.add("a");
    queue.add("b");
    EXPECT_EQ(queue.next()->number, 1U);
    EXPECT_EQ(drain(queue), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(queue.size(), 0U);
}

TEST(EventQueue, KeepsTheNewestThousandAndCountsTheLost) {
    event_queue queue;
    for (int number = 1; number <= 2000; ++number) {
        queue.add(std::to_string(number));
    }
    EXPECT_EQ(queue.size(), max_queued_events);
    EXPECT_EQ(queue.next()->lost, 1000U);
    uint64_t lost = 0;
    const std::vector<std::string> texts = drain(queue, &lost);
    ASSERT_EQ(texts.size(), 1000U);
    EXPECT_EQ(texts.front(), "1001");
    EXPECT_EQ(texts.back(), "2000");
    EXPECT_EQ(lost, 1000U);
    queue.add("later");
    EXPECT_EQ(queue.next()->lost, 0U);
}

TEST(EventQueue, LosesNoneThatIsBeingSent) {
    event_queue queue;
    for (int number = 1; number <= 1000; ++number) {
        queue.add(std::to_string(number));
    }
    queue.begin_sending(7);
    queue.begin_sending(8);
    queue.add("1001");
    EXPECT_EQ(queue.next()->view(), "4");
    EXPECT_EQ(queue.next()->lost, 1U);
    queue.begin_anew();
    EXPECT_EQ(queue.next()->view(), "1");
    uint64_t lost = 0;
    EXPECT_EQ(drain(queue, &lost).size(), 1000U);
    EXPECT_EQ(lost, 1U);
}

TEST(EventQueue, SendsAgainWhatWasNotAcknowledged) {
    event_queue queue;
    for (const char* const text : {"a", "b", "c", "d"}) {
        queue.add(text);
    }
    for (int message = 1; message <= 3; ++message) {
        queue.begin_sending(message);
    }
    queue.acknowledge(1);
    queue.acknowledge(3);
    queue.acknowledge(99);
    EXPECT_EQ(queue.sending(), 2U);
    queue.begin_anew();
    EXPECT_EQ(drain(queue), (std::vector<std::string>{"b", "c", "d"}));
}

TEST(EventQueue, SendsAWindowAtATime) {
    event_queue queue;
    for (int number = 0; number < 20; ++number) {
        queue.add("x");
        queue.begin_sending(number + 1);
    }
    EXPECT_EQ(queue.sending(), event_queue::window);
}

TEST(EventQueue, TellsWhatWasLostBeforeItCame) {
    event_queue queue;
    queue.add("a");
    queue.add_lost(5);
    queue.add("b");
    uint64_t lost = 0;
    (void)drain(queue, &lost);
    EXPECT_EQ(lost, 5U);
}

TEST(EventQueue, CutsALongText) {
    event_queue queue;
    queue.add(std::string(200, 'x'));
    EXPECT_EQ(queue.next()->view(), std::string(max_event_text, 'x'));
}

}  // namespace
}  // namespace veltrancord::bridge
