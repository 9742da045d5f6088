#include "access/session_marks.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "access/session_lists.h"

namespace veltrancord {
namespace {

TEST(TokenFingerprint, DependsOnEveryByteAndOnTheLength) {
    const std::string token = "a-token-of-21-letters";
    std::set<uint64_t> seen = {token_fingerprint(token)};
    for (std::size_t at = 0; at < token.size(); ++at) {
        std::string other = token;
        other[at] ^= 1;
        EXPECT_TRUE(seen.insert(token_fingerprint(other)).second) << at;
    }
    for (std::size_t length = 0; length < token.size(); ++length) {
        EXPECT_TRUE(seen.insert(token_fingerprint(token.substr(0, length))).second) << length;
    }
    using namespace std::string_literals;
    EXPECT_NE(token_fingerprint("a"), token_fingerprint("a\0"s));
    EXPECT_EQ(token_fingerprint(token), token_fingerprint(std::string(token)));
}

struct marked {
    SessionItem one;
    SessionItem two;
    SessionItem three;
    session_marks<3> marks;

    marked() {
        marks.append(one, "one");
        marks.append(two, "two");
        marks.append(three, "one");
    }

    // The items that are asked about for `token`, until one is `wanted`.
    std::vector<const SessionItem*> asked(std::string_view token, const SessionItem* wanted) const {
        std::vector<const SessionItem*> items;
        const bool found = marks.any(token, [&](const SessionItem& item) {
            items.push_back(&item);
            return &item == wanted;
        });
        EXPECT_EQ(found, wanted != nullptr);
        return items;
    }
};

using items = std::vector<const SessionItem*>;

TEST(SessionMarks, AskOnlyAboutSessionsOfThatToken) {
    const marked all;
    EXPECT_EQ(all.asked("two", &all.two), items({&all.two}));
    EXPECT_EQ(all.asked("three", nullptr), items());
}

TEST(SessionMarks, GoOnUntilOneIsTheRightOne) {
    const marked all;
    EXPECT_EQ(all.asked("one", &all.one), items({&all.one}));
    EXPECT_EQ(all.asked("one", &all.three), items({&all.one, &all.three}));
    EXPECT_EQ(all.asked("one", nullptr), items({&all.one, &all.three}));
}

TEST(SessionMarks, ForgetTheOldestFirst) {
    marked all;
    all.marks.remove_first();
    EXPECT_EQ(all.asked("one", &all.three), items({&all.three}));
    EXPECT_EQ(all.asked("two", &all.two), items({&all.two}));
    all.marks.append(all.one, "new");
    EXPECT_EQ(all.asked("new", &all.one), items({&all.one}));
}

TEST(SessionMarks, AreGoneWhenCleared) {
    marked all;
    all.marks.clear();
    EXPECT_EQ(all.asked("one", nullptr), items());
}

}  // namespace
}  // namespace veltrancord
