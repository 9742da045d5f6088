#include "log_follower.h"

#include <gtest/gtest.h>

#include <map>

namespace veltrancord::bridge {
namespace {

// A log as the service keeps it.
class ring_file {
  public:
    explicit ring_file(int capacity) : capacity_(capacity) {}

    void add(const std::string& text) {
        next_ = next_ % capacity_ + 1;
        ++second_;
        entries_[next_] = "4:2024:0:31:" + std::to_string(second_ / 3600) + ":" +
                          std::to_string(second_ / 60 % 60) + ":" + std::to_string(second_ % 60) +
                          ":3:" + text + ":1";
    }
    void clear() {
        entries_.clear();
        next_ = 0;
    }
    [[nodiscard]] std::string text() const {
        std::string text = "<Log>\n";
        for (const auto& [position, entry] : entries_) {
            const std::string name = "E" + std::to_string(position);
            text += "    <" + name + ">" + entry + "</" + name + ">\n";
        }
        return text + "</Log>\n";
    }

  private:
    int capacity_;
    int next_ = 0;
    int second_ = 0;
    std::map<int, std::string> entries_;
};

class LogFollower : public testing::Test {
  protected:
    // Return: the detail texts of what is new, with one blank behind each.
    std::string news() {
        const log_follower::news found = follower_.take(file_.text());
        lost_ = found.lost;
        std::string texts;
        for (const std::string& entry : found.entries) {
            const std::size_t end = entry.rfind(':');
            const std::size_t start = entry.rfind(':', end - 1) + 1;
            texts += entry.substr(start, end - start) + " ";
        }
        return texts;
    }
    void add(int first, int last) {
        for (int number = first; number <= last; ++number) {
            file_.add("e" + std::to_string(number));
        }
    }

    ring_file file_{8};
    log_follower follower_;
    uint64_t lost_ = 0;
};

TEST_F(LogFollower, TakesWhatItFindsFirstForOld) {
    add(1, 3);
    EXPECT_EQ(news(), "");
    add(4, 5);
    EXPECT_EQ(news(), "e4 e5 ");
    EXPECT_EQ(news(), "");
}

TEST_F(LogFollower, BeginsWithAnEmptyLog) {
    EXPECT_EQ(news(), "");
    add(1, 2);
    EXPECT_EQ(news(), "e1 e2 ");
}

TEST_F(LogFollower, GoesRoundTheRing) {
    add(1, 6);
    (void)news();
    add(7, 10);
    EXPECT_EQ(news(), "e7 e8 e9 e10 ");
    add(11, 11);
    EXPECT_EQ(news(), "e11 ");
    for (int number = 12; number < 60; ++number) {
        add(number, number);
        EXPECT_EQ(news(), "e" + std::to_string(number) + " ");
        EXPECT_EQ(lost_, 0U);
    }
}

TEST_F(LogFollower, BeginsInTheMiddleOfTheRing) {
    add(1, 11);
    (void)news();
    add(12, 13);
    EXPECT_EQ(news(), "e12 e13 ");
}

TEST_F(LogFollower, CountsWhatAWholeTurnHasTaken) {
    add(1, 8);
    (void)news();
    add(9, 15);
    EXPECT_EQ(news(), "e9 e10 e11 e12 e13 e14 e15 ");
    add(16, 23);
    EXPECT_EQ(news(), "e16 e17 e18 e19 e20 e21 e22 e23 ");
    EXPECT_EQ(lost_, 0U);
    add(24, 34);
    EXPECT_EQ(news(), "e27 e28 e29 e30 e31 e32 e33 e34 ");
    EXPECT_EQ(lost_, 3U);
    add(35, 35);
    EXPECT_EQ(news(), "e35 ");
}

TEST_F(LogFollower, GoesOnWhenTheLogWasEmptied) {
    add(1, 5);
    (void)news();
    file_.clear();
    EXPECT_EQ(news(), "");
    add(6, 7);
    EXPECT_EQ(news(), "e6 e7 ");
    file_.clear();
    add(8, 8);
    EXPECT_EQ(news(), "e8 ");
}

TEST_F(LogFollower, GivesTheTextsAsTheyWere) {
    (void)news();
    file_.add("a&amp;&lt;&gt;&quot;&apos;&#x1B;&#x&none;");
    EXPECT_EQ(news(), "a&<>\"'\x1B&#x&none; ");
}

TEST_F(LogFollower, ReadsWhateverIsThere) {
    for (const char* const text :
         {"", "<Log>", "<E", "<E1", "<E1>", "<E1>x", "<E1><E2>", "<E0>x</E0>", "<Ex>y</Ex>",
          "<E99999999999999999999>x</E1>", "<E1001>x</E1001>", "<E3>x</E3><E3>y</E3>"}) {
        log_follower one;
        EXPECT_TRUE(one.take(text).entries.empty());
        EXPECT_TRUE(one.take(text).entries.empty());
    }
}

}  // namespace
}  // namespace veltrancord::bridge
