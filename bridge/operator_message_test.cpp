#include "operator_message.h"

#include <gtest/gtest.h>

#include <iterator>
#include <random>

#include "plainest_form.h"

namespace veltrancord::bridge {
namespace {

const std::string g_hash(64, 'a');

std::string head() {
    return "id=mtu-1\ndevice=yard-1\nsequence=17\nnot-after=1798761600\ntrial=120\n";
}

std::string problem_of(const std::string& text, message_kind kind = message_kind::change) {
    operator_message message;
    return parse_message(text, kind, message);
}

TEST(OperatorMessage, SaysWhatIsWanted) {
    operator_message message;
    ASSERT_EQ(parse_message(head() + "base=Network " + g_hash +
                                "\nremove=Network.Lan.Label\n\n# why\nNetwork.Lan.Mtu=1400\n\n"
                                "Network.Lan.Name=a=b \n",
                            message_kind::change, message),
              "");
    EXPECT_EQ(message.id, "mtu-1");
    EXPECT_EQ(message.device, "yard-1");
    EXPECT_EQ(message.sequence, 17U);
    EXPECT_EQ(message.not_after, 1798761600);
    EXPECT_EQ(message.trial_seconds, 120);
    ASSERT_EQ(message.bases.size(), 1U);
    EXPECT_EQ(message.bases[0], std::make_pair(std::string("Network"), g_hash));
    EXPECT_EQ(message.remove, (std::vector<std::string>{"Network.Lan.Label"}));
    ASSERT_EQ(message.set.size(), 2U);
    EXPECT_EQ(message.set[0], std::make_pair(std::string("Network.Lan.Mtu"), std::string("1400")));
    EXPECT_EQ(message.set[1].second, "a=b ");
}

TEST(OperatorMessage, AnswersATrial) {
    operator_message message;
    const std::string text = "id=mtu-1\ndevice=yard-1\nsequence=17\nnot-after=1\nanswer=";
    EXPECT_EQ(parse_message(text + "keep\n", message_kind::answer, message), "");
    EXPECT_TRUE(message.keep);
    EXPECT_EQ(parse_message(text + "give-back", message_kind::answer, message), "");
    EXPECT_FALSE(message.keep);
    EXPECT_NE(problem_of(text + "perhaps\n", message_kind::answer), "");
    EXPECT_NE(problem_of(text + "keep\n\nA.b=c\n", message_kind::answer), "");
    EXPECT_NE(problem_of(text + "keep\ntrial=5\n", message_kind::answer), "");
    EXPECT_NE(problem_of(text + "keep\n", message_kind::change), "");
}

TEST(OperatorMessage, MustBeWhole) {
    const std::string lines[] = {"id=mtu-1\n", "device=yard-1\n", "sequence=17\n",
                                 "not-after=1798761600\n", "trial=120\n"};
    for (const std::string& missing : lines) {
        std::string text;
        for (const std::string& line : lines) {
            text += line == missing ? "" : line;
        }
        EXPECT_NE(problem_of(text + "\nA.b=c\n"), "") << missing;
    }
    EXPECT_EQ(problem_of(head() + "\nA.b=c\n"), "");
    EXPECT_NE(problem_of(head()), "");
    EXPECT_NE(problem_of(head() + "\n# nothing\n"), "");
    EXPECT_NE(problem_of(""), "");
}

TEST(OperatorMessage, RefusesWhatItDoesNotKnow) {
    for (const char* const one :
         {"hurry=yes\n", "id=second\n", "trial=60\n", "=x\n", "x\n", " id=b\n", "base=Network\n",
          "base=Network x\n", "remove=Network\n", "remove=Network.*\n"}) {
        EXPECT_NE(problem_of(head() + one + "\nA.b=c\n"), "") << one;
    }
    for (const char* const one : {"A.*=1\n", "A=1\n", "A.b\n", ".A.b=1\n", "A.b.#=1\n", "=1\n"}) {
        EXPECT_NE(problem_of(head() + "\n" + one), "") << one;
    }
}

TEST(OperatorMessage, BoundsItsNumbers) {
    const auto with = [](const char* sequence, const char* not_after, const char* trial) {
        return problem_of(std::string("id=a\ndevice=b\nsequence=") + sequence +
                          "\nnot-after=" + not_after + "\ntrial=" + trial + "\n\nA.b=c\n");
    };
    EXPECT_EQ(with("18446744073709551615", "9223372036854775807", "3600"), "");
    for (const char* const one :
         {"0", "-1", "+1", "1.0", "01", "", " 1", "1 ", "0x1", "abc", "18446744073709551616"}) {
        EXPECT_NE(with(one, "1", "1"), "") << one;
    }
    EXPECT_NE(with("1", "9223372036854775808", "1"), "");
    EXPECT_NE(with("1", "1", "0"), "");
    EXPECT_NE(with("1", "1", "3601"), "");
}

TEST(OperatorMessage, TakesTwoHundredSettingsAndNoMore) {
    std::string text = head() + "remove=A.first\n\n";
    for (std::size_t index = 1; index < max_settings; ++index) {
        text += "A.b" + std::to_string(index) + "=c\n";
    }
    EXPECT_EQ(problem_of(text), "");
    EXPECT_EQ(problem_of(text + "A.last=c\n"), "over 200 settings");
}

TEST(OperatorMessage, TakesSixtyFourKilobytesAndNoMore) {
    std::string text = head() + "\nA.b=c\n#";
    text.resize(max_message, '#');
    EXPECT_EQ(problem_of(text), "");
    EXPECT_EQ(problem_of(text + "#"), "over 64 KiB");
}

TEST(OperatorMessage, NamesEachPlaceOnce) {
    EXPECT_EQ(problem_of(head() + "\nA.b=c\nA.b=d\n"), "A.b: twice");
    EXPECT_EQ(problem_of(head() + "remove=A.b\n\nA.b=c\n"), "A.b: twice");
    EXPECT_NE(problem_of(head() + "base=A " + g_hash + "\nbase=A " + g_hash + "\n\nA.b=c\n"), "");
}

TEST(OperatorMessage, RefusesValuesThatTheServiceWouldNotKeep) {
    EXPECT_EQ(problem_of(head() + "\nA.b=" + std::string(4095, 'x') + "\n"), "");
    EXPECT_NE(problem_of(head() + "\nA.b=" + std::string(4096, 'x') + "\n"), "");
    EXPECT_EQ(problem_of(head() + "\nA.b=\tx\xc3\xa4\n"), "");
    EXPECT_NE(problem_of(head() + "\nA.b=x\ry\n"), "");
    EXPECT_NE(problem_of(head() + std::string("\nA.b=x\0y\n", 9)), "");
}

TEST(OperatorMessage, IsTakenWholeOrRefusedWhateverItHolds) {
    const std::string sample = head() + "base=Network " + g_hash +
                               "\nremove=Network.Lan.Label\n\n# why\nNetwork.Lan.Mtu=1400\n";
    const std::string pieces[] = {"\n",
                                  "=",
                                  ".",
                                  "*",
                                  "#",
                                  "%41",
                                  "Account.",
                                  "Password",
                                  "id=",
                                  "trial=",
                                  "base=",
                                  "remove=",
                                  std::string(1, '\0'),
                                  "\xff",
                                  "-1",
                                  "99999999999999999999",
                                  sample,
                                  std::string(300, 'x')};
    std::mt19937 random(4711);
    const auto below = [&](std::size_t bound) { return random() % bound; };
    int taken = 0;
    for (int round = 0; round < 10000; ++round) {
        std::string text = sample;
        for (std::size_t change = below(3); change > 0 && !text.empty(); --change) {
            const std::size_t at = below(text.size());
            switch (below(3)) {
                case 0:
                    text.insert(at, pieces[below(std::size(pieces))]);
                    break;
                case 1:
                    text.erase(at, below(20));
                    break;
                default:
                    text[at] = static_cast<char>(below(256));
            }
        }
        operator_message message;
        if (parse_message(text, message_kind::change, message).empty()) {
            ++taken;
            operator_message again;
            ASSERT_EQ(parse_message(plainest_form(message, message_kind::change),
                                    message_kind::change, again),
                      "")
                << text;
            ASSERT_EQ(plainest_form(again, message_kind::change),
                      plainest_form(message, message_kind::change));
        }
    }
    EXPECT_GT(taken, 1000);
    EXPECT_LT(taken, 9000);
}

}  // namespace
}  // namespace veltrancord::bridge
