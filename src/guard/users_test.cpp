#include "guard/users.h"

#include <gtest/gtest.h>

namespace veltrancord {
namespace {

TEST(Refusals, AreToldInOneLineAMinute) {
    user_record user;
    EXPECT_EQ(count_refusal(user, 0), 1U);
    EXPECT_EQ(count_refusal(user, 1), 0U);
    EXPECT_EQ(count_refusal(user, refusal_line_interval - 1), 0U);
    EXPECT_EQ(count_refusal(user, refusal_line_interval), 3U);
    EXPECT_EQ(count_refusal(user, refusal_line_interval), 0U);
    EXPECT_EQ(user.refused, 5U);
}

TEST(Users, AreKeptWhereTheyAre) {
    user_table users;
    user_record& first = users.find(1);
    first.places = 1;
    for (uid_t user = 2; user < 1000; ++user) {
        users.find(user).refused = 1;
    }
    EXPECT_EQ(&users.find(1), &first);
    EXPECT_EQ(users.find(1).places, 1U);
}

TEST(Users, ThatHoldNoPlacesAreForgottenWhenThereAreMany) {
    user_table users;
    for (uid_t user = 0; user < 10'000; ++user) {
        users.find(user).refused = 1;
        EXPECT_LE(users.size(), user_table::max_idle_users + 1);
    }
    users.find(77).places = 1;
    for (uid_t user = 20'000; user < 21'000; ++user) {
        static_cast<void>(users.find(user));
    }
    EXPECT_EQ(users.find(77).places, 1U);
}

}  // namespace
}  // namespace veltrancord
