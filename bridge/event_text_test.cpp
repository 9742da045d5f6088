#include "event_text.h"

#include <gtest/gtest.h>

namespace veltrancord::bridge {
namespace {

std::string told(std::string_view entry) {
    event_queue queue;
    queue.add_lost(3);
    queue.add(entry);
    return event_text(*queue.next());
}

TEST(EventText, NamesTheFields) {
    EXPECT_EQ(told("4:2024:0:31:23:5:9:3:abc:1"),
              "number=1\nlost=3\ntype=4\ntime=2024-01-31T23:05:09\nfirst=3\ntext=abc\nsecond=1\n");
}

TEST(EventText, GivesWhatItCannotTakeApartAsItStands) {
    for (const char* const one : {"", "4", "4:2024:0:31:23:5:9:3:a:b:1", "4:2024:0:31:23:5:9:3:abc",
                                  "4:x:0:31:23:5:9:3:a:1", "4:2024:0:31:23:5:99999999999:3:a:1"}) {
        EXPECT_EQ(told(one), "number=1\nlost=3\nentry=" + std::string(one) + "\n");
    }
}

}  // namespace
}  // namespace veltrancord::bridge
