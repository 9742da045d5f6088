#include "path_rules.h"

#include <gtest/gtest.h>

namespace veltrancord::bridge {
namespace {

path_rules rules_of(std::initializer_list<const char*> patterns) {
    path_rules rules;
    for (const char* const one : patterns) {
        EXPECT_TRUE(rules.add(one)) << one;
    }
    return rules;
}

TEST(PlainPath, HasNoSecondWayToWriteAPlace) {
    EXPECT_TRUE(is_plain_path("Network.Lan.Mtu"));
    EXPECT_TRUE(is_plain_path("A.b_1-2"));
    for (const char* const one :
         {"", ".", "Network", "Network.", ".Network.Lan", "Network..Lan", "Network.*",
          "Network.L*n", "Network.Lan.#", "Network.%41", "Network.Lan Mtu", "Network.Lan=1",
          "Net/work.Lan", "Network.L\xc3\xa4n", "Network.Lan\n", "*", ".*"}) {
        EXPECT_FALSE(is_plain_path(one)) << one;
    }
    EXPECT_FALSE(is_plain_path(std::string_view("A.b\0c", 5)));
    EXPECT_TRUE(is_plain_path("A." + std::string(max_path - 2, 'x')));
    EXPECT_FALSE(is_plain_path("A." + std::string(max_path - 1, 'x')));
}

TEST(BarredPath, IsAccountAndEveryPassword) {
    for (const char* const one :
         {"Account.User1.Username", "account.User1", "ACCOUNT.x", "Mail.Password", "Mail.pAssword",
          "Mail.Password.Deep", "Account", "Maintenance.XMLDBCallBack", "A.xmldbcallback.B"}) {
        EXPECT_TRUE(is_barred(one)) << one;
    }
    for (const char* const one : {"Network.Account", "Mail.PasswordLength", "Accounts.User1"}) {
        EXPECT_FALSE(is_barred(one)) << one;
    }
}

TEST(PathRules, AreEmptyAtFirstAndCoverNothing) {
    const path_rules rules;
    EXPECT_TRUE(rules.empty());
    EXPECT_FALSE(rules.cover("Network.Lan.Mtu"));
    EXPECT_TRUE(rules.documents().empty());
}

TEST(PathRules, CoverWhatTheyNameAndWhatIsBelow) {
    const path_rules rules = rules_of({"Network.Lan.*", "System.Name", "Time.*"});
    EXPECT_TRUE(rules.cover("Network.Lan.Mtu"));
    EXPECT_TRUE(rules.cover("Network.Lan.Dns.Primary"));
    EXPECT_TRUE(rules.cover("System.Name"));
    EXPECT_TRUE(rules.cover("Time.Zone"));
    EXPECT_FALSE(rules.cover("Network.Lan"));
    EXPECT_FALSE(rules.cover("Network.Lanx.Mtu"));
    EXPECT_FALSE(rules.cover("Network.Wan.Mtu"));
    EXPECT_FALSE(rules.cover("System.Name.Deep"));
    EXPECT_FALSE(rules.cover("Times.Zone"));
    EXPECT_EQ(rules.documents(), (std::vector<std::string>{"Network", "System", "Time"}));
}

TEST(PathRules, NeverCoverWhatIsBarred) {
    const path_rules rules = rules_of({"Account.*", "Mail.*", "Mail.Password"});
    EXPECT_FALSE(rules.cover("Account.User1.Username"));
    EXPECT_FALSE(rules.cover("Mail.Password"));
    EXPECT_FALSE(rules.cover("Mail.Server.PASSWORD"));
    EXPECT_TRUE(rules.cover("Mail.Server.Host"));
}

TEST(PathRules, TellAnExactName) {
    const path_rules rules = rules_of({"Network.Lan.*", "System.Name"});
    EXPECT_TRUE(rules.name_exactly("System.Name"));
    EXPECT_FALSE(rules.name_exactly("Network.Lan.Mtu"));
}

TEST(PathRules, RefuseWhatIsNoPattern) {
    path_rules rules;
    for (const char* const one : {"*", ".*", "Network", "Net*.Lan", "Network.*.Mtu", "Network.Lan*",
                                  "", "a b.*", "Network..*"}) {
        EXPECT_FALSE(rules.add(one)) << one;
    }
    EXPECT_TRUE(rules.empty());
}

}  // namespace
}  // namespace veltrancord::bridge
