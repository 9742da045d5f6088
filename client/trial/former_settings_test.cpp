#include "trial/former_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "fake_service.h"

namespace veltrancord::trial {
namespace {

using testing::ElementsAre;

former_settings two_and_a_new_one() {
    former_settings former;
    former.entries = {{"A.B", former_kind::value, "1", "2"},
                      {"A.C", former_kind::empty, "", "2"},
                      {"A.D.E", former_kind::absent, "", "2"}};
    former.created = {"A.D"};
    return former;
}

// Answers each request as the table says, by its whole text or the command before its ":".
class FormerSettings : public testing::Test {
  protected:
    FormerSettings()
        : service_(scratch_.socket_path(), [this](int fd) {
              const std::string request = test::read_request(fd);
              asked_.push_back(request);
              const auto exact = answers_.find(request);
              const auto found = exact != answers_.end()
                                     ? exact
                                     : answers_.find(request.substr(0, request.find(':')));
              if (found != answers_.end()) {
                  test::write_all(fd, found->second);
              }
          }) {
        client_.socket_path = path_.c_str();
    }

    test::scratch_directory scratch_;
    std::string path_ = scratch_.socket_path();
    std::map<std::string, std::string> answers_;
    std::vector<std::string> asked_;
    veltrancord_client client_ = VELTRANCORD_CLIENT_INIT;
    test::fake_service service_;
};

TEST_F(FormerSettings, ArePutBackBeforeWhatWasCreatedIsRemoved) {
    answers_ = {{"writedbmem", test::reply_frame(2)}, {"remove", test::reply_frame(0)}};
    std::vector<std::string> failed;
    EXPECT_EQ(put_back(client_, two_and_a_new_one(), false, failed), VELTRANCORD_OK);
    EXPECT_THAT(asked_, ElementsAre("writedbmem:A.B=1\nA.C=\n", "remove:A.D"));
    EXPECT_TRUE(failed.empty());
}

TEST_F(FormerSettings, ArePutBackOnFlashWhereThatIsWanted) {
    answers_ = {{"write", test::reply_frame(2)}, {"remove", test::reply_frame(-4)}};
    std::vector<std::string> failed;
    EXPECT_EQ(put_back(client_, two_and_a_new_one(), true, failed), VELTRANCORD_OK);
    EXPECT_EQ(asked_.front(), "write:A.B=1\nA.C=\n");
    EXPECT_TRUE(failed.empty());
}

TEST_F(FormerSettings, ArePutBackOneByOneWhereTheyAreRefusedTogether) {
    answers_ = {{"writedbmem", test::reply_frame(-4)},
                {"writedbmem:A.C=\n", test::reply_frame(1)},
                {"remove", test::reply_frame(-1)}};
    std::vector<std::string> failed;
    EXPECT_EQ(put_back(client_, two_and_a_new_one(), false, failed), VELTRANCORD_OK);
    EXPECT_THAT(failed, ElementsAre("A.B", "A.D"));
    EXPECT_EQ(asked_.size(), 4U);
}

TEST_F(FormerSettings, AreAFailureWhereNobodyAnswers) {
    answers_ = {{"writedbmem", test::reply_frame(2)}};
    std::vector<std::string> failed;
    EXPECT_EQ(put_back(client_, two_and_a_new_one(), false, failed), VELTRANCORD_NO_REPLY);
}

TEST_F(FormerSettings, TellWhatWasThere) {
    answers_ = {{"readvalue", test::reply_frame(-4)},
                {"readvalue:A.B", test::reply_frame(1, "1")},
                {"readattr", test::reply_frame(-4)},
                {"readattr:A.C.#", test::reply_frame(0)},
                {"readattr:A.#", test::reply_frame(0)}};
    former_settings former;
    std::string failed;
    ASSERT_EQ(
        look_at_former(
            client_, {{"A.B", "1", "2"}, {"A.C", {}, "2"}, {"A.D.E", {}, "2"}, {"A.D.F", {}, "2"}},
            former, failed),
        VELTRANCORD_OK);
    ASSERT_EQ(former.entries.size(), 4U);
    EXPECT_EQ(former.entries[0].kind, former_kind::value);
    EXPECT_EQ(former.entries[1].kind, former_kind::empty);
    EXPECT_EQ(former.entries[2].kind, former_kind::absent);
    EXPECT_THAT(former.created, ElementsAre("A.D"));
    EXPECT_TRUE(is_expected(former.entries[0], {"A.B", "1", "2"}));
    EXPECT_FALSE(is_expected(former.entries[0], {"A.B", "3", "2"}));
    EXPECT_FALSE(is_expected(former.entries[0], {"A.B", {}, "2"}));
    EXPECT_TRUE(is_expected(former.entries[1], {"A.C", {}, "2"}));
}

TEST_F(FormerSettings, OfADocumentThatIsNotThereAreAFailure) {
    answers_ = {{"readvalue", test::reply_frame(-4)}, {"readattr", test::reply_frame(-4)}};
    former_settings former;
    std::string failed;
    EXPECT_EQ(look_at_former(client_, {{"A.B", {}, "2"}}, former, failed), VELTRANCORD_NOT_FOUND);
    EXPECT_EQ(failed, "A.B");
}

TEST_F(FormerSettings, TellWhetherTheyAreThereAgain) {
    held now = held::other;
    for (const auto& [text, expected] : std::map<std::string, held>{
             {"1", held::former}, {"2", held::changed}, {"3", held::other}}) {
        answers_ = {{"readvalue", test::reply_frame(1, text)}};
        ASSERT_EQ(look_again(client_, two_and_a_new_one().entries[0], now), VELTRANCORD_OK);
        EXPECT_EQ(now, expected) << text;
    }
    answers_ = {{"readvalue", test::reply_frame(-4)}, {"readattr", test::reply_frame(-4)}};
    ASSERT_EQ(look_again(client_, two_and_a_new_one().entries[2], now), VELTRANCORD_OK);
    EXPECT_EQ(now, held::former);
}

TEST(FormerSetting, CanOnlyBePutBackAsFarAsARequestGoes) {
    const auto can = [](const char* path, const std::string& text) {
        return can_be_put_back({path, former_kind::value, text, ""});
    };
    EXPECT_TRUE(can("A.B", std::string(VELTRANCORD_MAX_VALUE, 'x')));
    EXPECT_FALSE(can("A.B", std::string(VELTRANCORD_MAX_VALUE + 1, 'x')));
    EXPECT_TRUE(can("A.Password", std::string(VELTRANCORD_MAX_SECRET_VALUE, 'x')));
    EXPECT_FALSE(can("A.Password", std::string(VELTRANCORD_MAX_SECRET_VALUE + 1, 'x')));
    EXPECT_FALSE(can("A.B", "a\nb"));
}

}  // namespace
}  // namespace veltrancord::trial
