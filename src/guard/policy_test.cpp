#include "guard/policy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

namespace veltrancord {
namespace {

std::optional<uid_t> test_user(const std::string& name) {
    if (name == "web") {
        return 33;
    }
    return name == "root" ? std::optional<uid_t>(0) : std::nullopt;
}

std::optional<gid_t> test_group(const std::string& name) {
    return name == "staff" ? std::optional<gid_t>(50) : std::nullopt;
}

parsed_policy parse(std::string_view text) {
    return parse_policy(text, {test_user, test_group});
}

access_policy good(std::string_view text) {
    parsed_policy parsed = parse(text);
    for (const policy_mistake& mistake : parsed.mistakes) {
        ADD_FAILURE() << text << "\nline " << mistake.line << ": " << mistake.text;
    }
    return std::move(parsed.policy);
}

// The one mistake of a text, with its line.
std::string mistake_in(std::string_view text) {
    const parsed_policy parsed = parse(text);
    if (parsed.mistakes.size() != 1) {
        return std::to_string(parsed.mistakes.size()) + " mistakes";
    }
    return std::to_string(parsed.mistakes[0].line) + ": " + parsed.mistakes[0].text;
}

peer_identity peer_of(uid_t user, gid_t group, std::span<const gid_t> groups = {}) {
    return {user, group, groups, true, true};
}

bool allowed(const access_policy& policy, const peer_identity& peer, command_class which,
             std::string_view document = {}) {
    return decide(policy, peer, {which, document}).allowed;
}

constexpr peer_identity root{0, 0, {}, true, true};
constexpr peer_identity web{33, 33, {}, true, true};

TEST(Policy, OfNoStatementRefusesEverybody) {
    for (const std::string_view text : {"", "\n\n", "# nothing\n", "  \t# nothing"}) {
        const access_policy policy = good(text);
        EXPECT_TRUE(policy.rules.empty());
        EXPECT_FALSE(allowed(policy, root, command_class::read, "Network"));
    }
}

TEST(Policy, HasDefaults) {
    const access_policy policy = good("");
    EXPECT_FALSE(policy.permissive);
    EXPECT_TRUE(policy.directories.empty());
    EXPECT_TRUE(policy.share_is_percent);
    EXPECT_EQ(policy.share, 50U);
    EXPECT_EQ(policy.request_deadline, -1);
    EXPECT_FALSE(policy.trail_changes || policy.trail_values || policy.trail_refusals);
}

TEST(Policy, ReadsEveryStatement) {
    const access_policy policy = good(
        "mode permissive # for now\n"
        "allow user root all\n"
        "deny  group\tstaff  write,remove on Account Network except Network\n"
        "allow any read on * except Account Cloud\n"
        "files-below /var/exchange /mnt/x\n"
        "places-per-user 25%\n"
        "request-deadline 2s except web 7\n"
        "trail changes values\n"
        "trail refusals\n");
    EXPECT_TRUE(policy.permissive);
    ASSERT_EQ(policy.rules.size(), 3U);
    EXPECT_EQ(policy.rules[1].line, 3U);
    EXPECT_EQ(policy.rules[1].name, "staff");
    EXPECT_EQ(policy.rules[1].id, 50U);
    EXPECT_THAT(policy.rules[2].documents.excepted, testing::ElementsAre("Account", "Cloud"));
    EXPECT_THAT(policy.directories, testing::ElementsAre("/var/exchange", "/mnt/x"));
    EXPECT_EQ(policy.share, 25U);
    EXPECT_EQ(policy.request_deadline, 2000);
    EXPECT_THAT(policy.deadline_exceptions, testing::ElementsAre(33U, 7U));
    EXPECT_TRUE(policy.trail_changes && policy.trail_values && policy.trail_refusals);
    ASSERT_EQ(policy.users.size(), 2U);
    EXPECT_EQ(policy.users[1].name, "web");
}

TEST(Policy, ReadsTimesAndNumbersOfPlaces) {
    EXPECT_EQ(good("request-deadline 500ms").request_deadline, 500);
    EXPECT_EQ(good("request-deadline 3600s").request_deadline, 3'600'000);
    EXPECT_EQ(good("request-deadline off").request_deadline, -1);
    EXPECT_FALSE(good("places-per-user 12").share_is_percent);
    EXPECT_EQ(share_of(good("places-per-user 12"), 1000), 12U);
    EXPECT_EQ(share_of(good("places-per-user 50%"), 1000), 500U);
    EXPECT_EQ(share_of(good("places-per-user 1%"), 10), 1U);
}

struct wrong_text {
    std::string text;
    std::string mistake;
};

TEST(Policy, TellsTheMistakeAndItsLine) {
    const std::array texts = std::to_array<wrong_text>({
        {"\nsurprise", "2: unknown statement \"surprise\""},
        {"mode", "1: \"mode\" takes \"enforce\" or \"permissive\""},
        {"mode on", "1: \"mode\" takes \"enforce\" or \"permissive\""},
        {"mode enforce\nmode enforce", "2: \"mode\" stands there twice"},
        {"allow", "1: expected \"user\", \"group\" or \"any\""},
        {"allow all", "1: expected \"user\", \"group\" or \"any\" instead of \"all\""},
        {"allow user", "1: \"user\" is followed by no name"},
        {"allow user web", "1: expected classes of commands"},
        {"allow user nobody all", "1: unknown user \"nobody\""},
        {"allow user 4294967295 all", "1: unknown user \"4294967295\""},
        {"allow user -1 all", "1: unknown user \"-1\""},
        {"allow group web all", "1: unknown group \"web\""},
        {"allow any reed", "1: unknown class \"reed\""},
        {"allow any read,", "1: unknown class \"\""},
        {"allow any read,all", "1: unknown class \"all\""},
        {"allow any read at Network", "1: expected \"on\" instead of \"at\""},
        {"allow any read on", "1: \"on\" is followed by no document"},
        {"allow any read on except A", "1: \"on\" is followed by no document"},
        {"allow any read on A except", "1: \"except\" is followed by no document"},
        {"allow any read on A except B except C", "1: \"except\" stands there twice"},
        {"allow any read on A except *", "1: \"*\" is no name of a document"},
        {"allow any read on A.B", "1: \"A.B\" is no name of a document"},
        {"allow any read on A,B", "1: \"A,B\" is no name of a document"},
        {"allow any read on " + std::string(64, 'd'),
         "1: \"" + std::string(64, 'd') + "\" is no name of a document"},
        {"allow any sessions on A", "1: class \"sessions\" has no documents"},
        {"files-below", "1: \"files-below\" is followed by no directory"},
        {"files-below here", "1: \"here\" is no path from \"/\" on of at most 200 bytes"},
        {"places-per-user 0", "1: \"places-per-user\" takes 1% to 100%, or a number"},
        {"places-per-user 101%", "1: \"places-per-user\" takes 1% to 100%, or a number"},
        {"places-per-user half", "1: \"places-per-user\" takes 1% to 100%, or a number"},
        {"request-deadline 2", "1: \"request-deadline\" takes \"off\" or 1ms to 3600s"},
        {"request-deadline 0s", "1: \"request-deadline\" takes \"off\" or 1ms to 3600s"},
        {"request-deadline 3601s", "1: \"request-deadline\" takes \"off\" or 1ms to 3600s"},
        {"request-deadline 2s web", "1: expected \"except\" and users behind the time"},
        {"request-deadline 2s except", "1: expected \"except\" and users behind the time"},
        {"request-deadline 2s except me", "1: unknown user \"me\""},
        {"trail", "1: \"trail\" takes \"changes\", \"changes values\" or \"refusals\""},
        {"trail refusals values",
         "1: \"trail\" takes \"changes\", \"changes values\" or \"refusals\""},
        {"allow any read\r\n", "1: holds a control character"},
        {std::string("allow any\0 read", 15), "1: holds a control character"},
    });
    for (const wrong_text& one : texts) {
        EXPECT_EQ(mistake_in(one.text), one.mistake) << one.text;
    }
}

TEST(Policy, IsBoundedInLengthLinesRulesAndDirectories) {
    const auto rules = [](std::size_t count) {
        std::string text;
        for (std::size_t rule = 0; rule < count; ++rule) {
            text += "allow any read\n";
        }
        return text;
    };
    EXPECT_EQ(good(rules(max_policy_rules)).rules.size(), max_policy_rules);
    EXPECT_EQ(mistake_in(rules(max_policy_rules + 1)), "257: there are more than 256 rules");
    EXPECT_EQ(good("#" + std::string(max_policy_line - 1, 'x')).rules.size(), 0U);
    EXPECT_EQ(mistake_in("#" + std::string(max_policy_line, 'x')), "1: is over 1024 bytes long");
    EXPECT_EQ(good(std::string(max_policy_size, '\n')).rules.size(), 0U);
    EXPECT_EQ(mistake_in(std::string(max_policy_size + 1, '\n')), "0: is over 65536 bytes long");
    std::string directories = "files-below";
    for (std::size_t count = 0; count < max_policy_directories; ++count) {
        directories += " /d";
    }
    EXPECT_EQ(good(directories).directories.size(), max_policy_directories);
    EXPECT_EQ(mistake_in(directories + " /d"), "1: there are more than 16 directories");
}

TEST(Policy, IsToldSoManyMistakes) {
    std::string text;
    for (int line = 0; line < 100; ++line) {
        text += "wrong\n";
    }
    EXPECT_EQ(parse(text).mistakes.size(), max_policy_mistakes);
}

TEST(Decision, IsTheFirstRulesThatMatches) {
    const access_policy policy = good(
        "deny user web write on Account\n"
        "allow user web write\n"
        "deny any all\n");
    EXPECT_FALSE(allowed(policy, web, command_class::write, "Account"));
    EXPECT_EQ(decide(policy, web, {command_class::write, "Account"}).line, 1U);
    EXPECT_TRUE(allowed(policy, web, command_class::write, "Network"));
    EXPECT_EQ(decide(policy, web, {command_class::read, "Network"}).line, 3U);
    EXPECT_FALSE(allowed(policy, web, command_class::read, "Network"));
}

TEST(Decision, IsToRefuseWhereNoRuleMatches) {
    const access_policy policy = good("allow user web read");
    const access_decision decision = decide(policy, root, {command_class::read, "Network"});
    EXPECT_FALSE(decision.allowed);
    EXPECT_EQ(decision.line, 0U);
}

TEST(Decision, TakesClassesOneByOne) {
    const access_policy policy = good("allow any log-read,permits\nallow any secrets on Network");
    for (std::size_t number = 0; number < command_class_count; ++number) {
        const auto which = static_cast<command_class>(number);
        EXPECT_EQ(allowed(policy, web, which, has_documents(which) ? "Network" : ""),
                  which == command_class::log_read || which == command_class::permits ||
                      which == command_class::secrets)
            << class_name(which);
        EXPECT_EQ(class_of_name(class_name(which)), which);
    }
    EXPECT_FALSE(class_of_name("all"));
}

TEST(Decision, GoesByPrimaryAndSupplementaryGroups) {
    const access_policy policy = good("allow group staff read");
    const std::array<gid_t, 2> groups = {7, 50};
    EXPECT_TRUE(allowed(policy, peer_of(1000, 50), command_class::read, "A"));
    EXPECT_TRUE(allowed(policy, peer_of(1000, 1000, groups), command_class::read, "A"));
    EXPECT_FALSE(allowed(policy, peer_of(1000, 1000), command_class::read, "A"));
    EXPECT_FALSE(allowed(policy, peer_of(50, 1000), command_class::read, "A"));
}

TEST(Decision, OfARuleWithDocumentsIsForThoseAlone) {
    const access_policy policy =
        good("allow any all on * except Account\nallow any read on Account");
    EXPECT_TRUE(allowed(policy, web, command_class::write, "Network"));
    EXPECT_FALSE(allowed(policy, web, command_class::write, "Account"));
    EXPECT_TRUE(allowed(policy, web, command_class::read, "Account"));
    EXPECT_FALSE(allowed(policy, web, command_class::sessions));
    EXPECT_FALSE(allowed(policy, web, command_class::write, "")) << "no document is none of them";
}

TEST(Decision, TakesWhoIsNotKnownForWhoeverIsDenied) {
    const peer_identity unknown{no_id, no_id, {}, false, false};
    EXPECT_FALSE(allowed(good("allow user web read"), unknown, command_class::read, "A"));
    EXPECT_FALSE(
        allowed(good("deny user web read\nallow any read"), unknown, command_class::read, "A"));
    EXPECT_FALSE(allowed(good("allow group staff read"), unknown, command_class::read, "A"));
    EXPECT_FALSE(
        allowed(good("deny group staff read\nallow any read"), unknown, command_class::read, "A"));
    EXPECT_TRUE(allowed(good("allow any read"), unknown, command_class::read, "A"));
    const peer_identity of_unknown_groups{33, 33, {}, true, false};
    EXPECT_TRUE(allowed(good("deny user root all\nallow user web read"), of_unknown_groups,
                        command_class::read, "A"));
    EXPECT_FALSE(allowed(good("deny group staff all\nallow user web read"), of_unknown_groups,
                         command_class::read, "A"));
}

TEST(Decision, WaitsForGroupsWhereARuleWantsThem) {
    peer_identity peer = web;
    peer.groups_asked = false;
    const access_policy policy = good(
        "deny group staff write\n"
        "allow user web read\n"
        "allow group staff read on A\n"
        "allow any log-read\n");
    EXPECT_TRUE(decide(policy, peer, {command_class::write, "A"}).ask_groups);
    EXPECT_FALSE(decide(policy, peer, {command_class::write, "A"}).allowed);
    EXPECT_EQ(decide(policy, peer, {command_class::read, "A"}).line, 2U);
    EXPECT_EQ(decide(policy, peer, {command_class::log_read, {}}).line, 4U);
    peer.user = 34;
    EXPECT_TRUE(decide(policy, peer, {command_class::read, "A"}).ask_groups);
    EXPECT_FALSE(decide(policy, peer, {command_class::read, "B"}).ask_groups);
}

TEST(SystemAccounts, AreThoseOfTheTables) {
    EXPECT_EQ(system_accounts().user("root"), std::optional<uid_t>(0));
    EXPECT_EQ(system_accounts().group("root"), std::optional<gid_t>(0));
    EXPECT_FALSE(system_accounts().user("no such user"));
    EXPECT_FALSE(system_accounts().group("no such group"));
}

}  // namespace
}  // namespace veltrancord
