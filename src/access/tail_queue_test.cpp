#include "access/tail_queue.h"

#include <gtest/gtest.h>

#include <iterator>
#include <list>
#include <memory>
#include <random>
#include <vector>

namespace veltrancord {
namespace {

struct counted {
    explicit counted(int number) : value(number) { ++alive; }
    counted(const counted&) = delete;
    counted& operator=(const counted&) = delete;
    ~counted() { --alive; }

    tail_queue_link<counted> link;
    int value;
    inline static int alive = 0;
};

using counted_queue = tail_queue<counted>;

counted& append(counted_queue& queue, int value) {
    return queue.append(std::make_unique<counted>(value));
}

int value_of(const std::unique_ptr<counted>& element) {
    return element ? element->value : -1;
}

std::vector<int> values(const counted_queue& queue) {
    std::vector<int> found;
    for (const counted& element : queue) {
        found.push_back(element.value);
    }
    return found;
}

TEST(TailQueue, StartsEmpty) {
    counted_queue queue;
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.begin(), queue.end());
    EXPECT_EQ(queue.remove_first(), nullptr);
}

TEST(TailQueue, KeepsTheOrderOfAppending) {
    counted_queue queue;
    append(queue, 1);
    append(queue, 2);
    append(queue, 3);
    EXPECT_FALSE(queue.empty());
    EXPECT_EQ(values(queue), (std::vector<int>{1, 2, 3}));
}

TEST(TailQueue, RemovesFromAnywhereAndGoesOnAppendingAtTheEnd) {
    for (int removed = 1; removed <= 3; ++removed) {
        counted_queue queue;
        std::vector<int> left;
        counted* chosen = nullptr;
        for (int value = 1; value <= 3; ++value) {
            counted& element = append(queue, value);
            if (value == removed) {
                chosen = &element;
            } else {
                left.push_back(value);
            }
        }
        EXPECT_EQ(value_of(queue.remove(*chosen)), removed);
        append(queue, 4);
        left.push_back(4);
        EXPECT_EQ(values(queue), left) << removed;
    }
}

TEST(TailQueue, IsUsableAfterItsOnlyElementIsRemoved) {
    counted_queue queue;
    queue.remove(append(queue, 1));
    EXPECT_TRUE(queue.empty());
    append(queue, 2);
    EXPECT_EQ(values(queue), std::vector<int>{2});
    EXPECT_EQ(value_of(queue.remove_first()), 2);
    EXPECT_TRUE(queue.empty());
}

TEST(TailQueue, FreesWhatIsLeft) {
    ASSERT_EQ(counted::alive, 0);
    {
        counted_queue queue;
        append(queue, 1);
        append(queue, 2);
        queue.clear();
        EXPECT_EQ(counted::alive, 0);
        append(queue, 3);
        EXPECT_EQ(values(queue), std::vector<int>{3});
    }
    EXPECT_EQ(counted::alive, 0);
}

TEST(TailQueue, AgreesWithAListOverRandomChanges) {
    std::mt19937 random(7);
    counted_queue queue;
    std::list<counted*> model;
    for (int step = 0; step < 20000; ++step) {
        const auto choice = random() % 4;
        if (choice < 2 && model.size() < 12) {
            model.push_back(&append(queue, step));
        } else if (choice == 2 && !model.empty()) {
            EXPECT_EQ(queue.remove_first().get(), model.front());
            model.pop_front();
        } else if (!model.empty()) {
            const auto at = std::next(model.begin(), static_cast<int>(random() % model.size()));
            EXPECT_EQ(queue.remove(**at).get(), *at);
            model.erase(at);
        }
        auto expected = model.begin();
        for (counted& element : queue) {
            ASSERT_EQ(&element, *expected++);
        }
        ASSERT_EQ(expected, model.end());
    }
}

}  // namespace
}  // namespace veltrancord
