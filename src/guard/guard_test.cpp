#include "guard/guard.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "guard/classes.h"
#include "guard/policy_file.h"
#include "leaf/result.h"
#include "store/handlers.h"
#include "store/secret_view.h"
#include "support/loaded_directory.h"

namespace veltrancord {
namespace {

// The service's own user, whose files the tests' are: another one than root where that runs them.
const uid_t service = ::geteuid() != 0 ? ::geteuid() : 5000;
constexpr uid_t web = 33;
constexpr gid_t staff = 50;

// What the seams below give and were asked.
peer_credentials g_peer;
bool g_peer_is_told = true;
int g_credentials_asked = 0;
int g_groups_asked = 0;
int64_t g_now = 0;
bool g_names_need_memory = false;
std::string g_given;  // to the handler
int g_handled = 0;

bool test_credentials(int /*fd*/, const overflow_ids& /*overflow*/, peer_credentials& peer) {
    ++g_credentials_asked;
    peer = g_peer;
    return g_peer_is_told;
}

void test_groups(int /*fd*/, const overflow_ids& /*overflow*/, peer_credentials& peer) {
    ++g_groups_asked;
    peer.groups = {staff};
    peer.groups_known = peer.groups_asked = true;
}

std::optional<uid_t> test_user(const std::string& name) {
    if (g_names_need_memory) {
        throw std::bad_alloc();
    }
    return name == "web" ? std::optional<uid_t>(web) : std::nullopt;
}

int32_t count_call(connection_record& /*connection*/, command_argument argument, int32_t /*row*/) {
    ++g_handled;
    g_given = argument.text();
    return result_ok;
}

int32_t run_out_of_memory(connection_record& /*connection*/, command_argument /*argument*/,
                          int32_t /*row*/) {
    throw std::bad_alloc();
}

int32_t row_of(std::string_view command) {
    return static_cast<int32_t>(traits_of(command) - all_command_traits.data());
}

// One service with an access file, and clients of it.
class Guard : public LoadedDirectory {
  protected:
    void SetUp() override {
        LoadedDirectory::SetUp();
        ::chmod(base_.c_str(), 0755);
        load({{"A", "<A><B>1</B><Password>enc:1:eA==</Password></A>"}, {"C", "<C><D>2</D></C>"}});
        g_credentials_asked = g_groups_asked = g_handled = 0;
        g_names_need_memory = false;
        g_peer_is_told = true;
        come_as(web);
        path_ = (base_ / "access").string();
        guard_setup setup;
        setup.policy_path = path_.c_str();
        setup.log_path = "/nowhere/log";
        setup.accounts = {test_user, system_accounts().group};
        setup.own_user = service;
        setup.credentials = test_credentials;
        setup.groups = test_groups;
        setup.now = [] { return g_now; };
        guard_ = std::make_unique<access_guard>(setup);
    }

    static void come_as(uid_t user, gid_t group = 1) {
        g_peer = {};
        g_peer.process = 77;
        g_peer.user = user;
        g_peer.group = group;
        g_peer.user_known = g_peer.group_known = true;
    }

    // Gives the guard a file. Return: what it prints.
    std::string obey(const std::string& text) {
        put(path_, text);
        testing::internal::CaptureStderr();
        guard_->load();
        return testing::internal::GetCapturedStderr();
    }

    int32_t ask(const std::string& command, std::string argument,
                command_handler* handler = count_call) {
        pass_.reset();
        return ask_again(command, std::move(argument), handler);
    }
    // The same client once more.
    int32_t ask_again(const std::string& command, std::string argument,
                      command_handler* handler = count_call) {
        const gate_visitor visitor{-1, pass_};
        const gated_command row{
            traits_of(command)->name, handler, row_of(command), {argument.data(), argument.size()}};
        testing::internal::CaptureStderr();
        int32_t result = 0;
        try {
            result = guard_->run(visitor, row, connection_);
        } catch (const std::bad_alloc&) {
            result = result_too_large;
        }
        printed_ = testing::internal::GetCapturedStderr();
        return result;
    }

    std::string path_;
    std::unique_ptr<access_guard> guard_;
    std::unique_ptr<client_pass> pass_;
    std::string printed_;
};

TEST_F(Guard, WithoutAFileAsksNobody) {
    EXPECT_EQ(ask("write", "A.B=1"), result_ok);
    EXPECT_EQ(pass_, nullptr);
    EXPECT_TRUE(guard_->admit({-1, pass_}, 1));
    EXPECT_EQ(guard_->payload_time({-1, pass_}), -1);
    EXPECT_EQ(g_credentials_asked, 0);
    EXPECT_EQ(pass_, nullptr);
}

TEST_F(Guard, RunsWhatIsAllowedAndNothingElse) {
    ASSERT_EQ(obey("allow user web read,log-read"), "");
    EXPECT_EQ(ask("readvalue", "A.B"), result_ok);
    EXPECT_EQ(g_given, "A.B");
    EXPECT_EQ(ask("readlog", "x"), result_ok);
    EXPECT_EQ(g_handled, 2);
    EXPECT_EQ(ask("write", "A.B=1"), result_denied);
    EXPECT_EQ(ask("writelog", "x"), result_denied);
    EXPECT_EQ(g_handled, 2);
    come_as(0);
    EXPECT_EQ(ask("readvalue", "A.B"), result_denied) << "the file names root where it is to count";
}

TEST_F(Guard, RefusesAsAWhole) {
    ASSERT_EQ(obey("deny user web all on C\nallow user web all"), "");
    EXPECT_EQ(ask("write", "A.B=1\nC.D=1"), result_denied);
    EXPECT_EQ(ask("read", "*"), result_denied);
    EXPECT_EQ(ask("remove", ".*"), result_denied);
    EXPECT_EQ(ask("write", "A.B=1"), result_ok);
    EXPECT_EQ(g_handled, 1);
}

TEST_F(Guard, LetsARequestThatNamesNoDocumentFailByItself) {
    ASSERT_EQ(obey("allow user web write on A"), "");
    EXPECT_EQ(ask("write", ""), result_ok) << "the handler says what is wrong";
    EXPECT_EQ(ask("readvalue", ""), result_denied);
    ASSERT_EQ(obey("allow user web write on Nowhere"), "");
    EXPECT_EQ(ask("write", ""), result_denied);
}

TEST_F(Guard, AsksForGroupsOnceAndOnlyWhereARuleNamesSome) {
    ASSERT_EQ(obey("allow user web read"), "");
    EXPECT_EQ(ask("readvalue", "A.B"), result_ok);
    EXPECT_EQ(g_groups_asked, 0);
    ASSERT_EQ(obey("allow group 50 read"), "");
    EXPECT_EQ(ask_again("readvalue", "A.B"), result_ok);
    EXPECT_EQ(ask_again("read", "*"), result_ok);
    EXPECT_EQ(g_groups_asked, 1);
    EXPECT_EQ(g_credentials_asked, 1);
}

TEST_F(Guard, RefusesWhoIsNotToldByTheKernel) {
    ASSERT_EQ(obey("allow any all"), "");
    g_peer_is_told = false;
    EXPECT_EQ(ask("readvalue", "A.B"), result_denied);
    EXPECT_FALSE(guard_->admit({-1, pass_}, 1000));
}

TEST_F(Guard, WithAMistakeServesRootAndTheServicesOwnUser) {
    EXPECT_EQ(obey("allow any all\nsurprise\n"),
              "access file " + path_ +
                  ":2: unknown statement \"surprise\"\n"
                  "only root and the service's own user are served\n");
    EXPECT_EQ(ask("readvalue", "A.B"), result_denied);
    for (const uid_t user : {uid_t{0}, service}) {
        come_as(user);
        EXPECT_EQ(ask("write", "A.B=1"), result_ok);
        EXPECT_EQ(ask("XMLDBCallBack", "x"), result_ok);
        EXPECT_EQ(ask("upload", "/tmp/x"), result_ok);
        EXPECT_EQ(ask("download", "/tmp/x"), result_ok);
        EXPECT_EQ(ask("readvalue", "A.Password", readvalue_handle), 10);
        connection_.reply.close();
    }
    g_peer.user_known = false;
    EXPECT_EQ(ask("readvalue", "A.B"), result_denied);
}

TEST_F(Guard, WithoutMemoryForTheFileServesRootAndTheServicesOwnUser) {
    g_names_need_memory = true;
    EXPECT_EQ(obey("allow user web all"), "access file " + path_ +
                                              ": no memory for it\n"
                                              "only root and the service's own user are served\n");
    EXPECT_EQ(ask("readvalue", "A.B"), result_denied);
    come_as(0);
    EXPECT_EQ(ask("readvalue", "A.B"), result_ok);
}

TEST_F(Guard, ReadsTheFileAnewBehindSyncPermit) {
    ASSERT_EQ(obey("allow user web read,admin"), "");
    put(path_, "allow user web read");
    EXPECT_EQ(ask("readvalue", "A.B"), result_ok);
    EXPECT_EQ(ask("SyncPermit", ""), result_ok);
    EXPECT_EQ(ask("SyncPermit", ""), result_denied);
    put(path_, "allow any all");
    EXPECT_EQ(ask("SyncPermit", ""), result_denied) << "a refused one reads nothing";
    std::filesystem::remove(path_);
    come_as(0);
    EXPECT_EQ(ask("SyncPermit", ""), result_denied);
}

TEST_F(Guard, TellsRefusalsOnceAMinute) {
    ASSERT_EQ(obey("allow any read"), "");
    g_now = 1'000'000;
    EXPECT_EQ(ask("write", "A.B=geheim"), result_denied);
    EXPECT_EQ(printed_,
              "access refused: user 33, process 77 (" + std::string(name_of_program(77).text) +
                  "): write needs class write on A; refusals since the last such line: 1\n");
    EXPECT_EQ(ask("cleanlog", ""), result_denied);
    EXPECT_EQ(printed_, "");
    come_as(34);
    EXPECT_EQ(ask("cleanlog", ""), result_denied);
    EXPECT_THAT(printed_, testing::HasSubstr("user 34, process 77"));
    come_as(web);
    g_now += refusal_line_interval;
    EXPECT_EQ(ask("cleanlog", ""), result_denied);
    EXPECT_THAT(printed_,
                testing::EndsWith("cleanlog needs class log-clear on -; refusals since the "
                                  "last such line: 2\n"));
}

TEST_F(Guard, GivesAUserItsShareOfPlaces) {
    ASSERT_EQ(obey("allow any read\nplaces-per-user 2"), "");
    std::vector<std::unique_ptr<client_pass>> passes(5);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(guard_->admit({-1, passes[0]}, 1000));
    EXPECT_TRUE(guard_->admit({-1, passes[1]}, 1000));
    EXPECT_FALSE(guard_->admit({-1, passes[2]}, 1000));
    passes[2].reset();
    EXPECT_FALSE(guard_->admit({-1, passes[2]}, 1000));
    passes[2].reset();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("holds its share of 2 places; refusals since"));
    come_as(34);
    EXPECT_TRUE(guard_->admit({-1, passes[3]}, 1000)) << "another user";
    come_as(web);
    passes[0].reset();
    EXPECT_TRUE(guard_->admit({-1, passes[4]}, 1000)) << "a place is free again";
    come_as(0);
    std::vector<std::unique_ptr<client_pass>> roots(10);
    for (std::unique_ptr<client_pass>& pass : roots) {
        EXPECT_TRUE(guard_->admit({-1, pass}, 1000));
    }
}

TEST_F(Guard, GivesHalfOfThePlacesUnlessTold) {
    ASSERT_EQ(obey("allow any read"), "");
    std::vector<std::unique_ptr<client_pass>> passes(6);
    testing::internal::CaptureStderr();
    int taken = 0;
    for (std::unique_ptr<client_pass>& pass : passes) {
        taken += guard_->admit({-1, pass}, 6) ? 1 : 0;
    }
    static_cast<void>(testing::internal::GetCapturedStderr());
    EXPECT_EQ(taken, 3);
}

TEST_F(Guard, HasADeadlineForAllButTheExcepted) {
    ASSERT_EQ(obey("request-deadline 2s except 34"), "");
    EXPECT_EQ(guard_->payload_time({-1, pass_}), 2000);
    pass_.reset();
    come_as(34);
    EXPECT_EQ(guard_->payload_time({-1, pass_}), -1);
    pass_.reset();
    g_peer.user_known = false;
    EXPECT_EQ(guard_->payload_time({-1, pass_}), 2000);
    pass_.reset();
    ASSERT_EQ(obey("allow any read"), "");
    EXPECT_EQ(guard_->payload_time({-1, pass_}), -1);
}

TEST_F(Guard, HidesSecretsForTheTimeOfACommand) {
    ASSERT_EQ(obey("allow any read"), "");
    EXPECT_EQ(ask("readvalue", "A.Password", readvalue_handle), 0);
    connection_.reply.close();
    EXPECT_EQ(ask("read", "A.*", read_handle), 18);
    EXPECT_EQ(connection_.reply.view(), "A.B=1\nA.Password=\n");
    connection_.reply.close();
    EXPECT_EQ(g_secret_rule.may_show, nullptr);
    EXPECT_EQ(ask("read", "A.B", run_out_of_memory), result_too_large);
    EXPECT_EQ(g_secret_rule.may_show, nullptr);
    ASSERT_EQ(obey("allow any read\nallow user web secrets on A"), "");
    EXPECT_EQ(ask("readvalue", "A.Password", readvalue_handle), 10);
    connection_.reply.close();
}

TEST_F(Guard, InPermissiveModeTellsEachNeedOnce) {
    ASSERT_EQ(obey("mode permissive\nplaces-per-user 1\nrequest-deadline 1ms"), "");
    EXPECT_EQ(ask("write", "A.B=1\nC.D=1\nA.B=2"), result_ok);
    EXPECT_EQ(printed_,
              "would be refused: user 33 group 1 class write document A\n"
              "would be refused: user 33 group 1 class write document C\n");
    EXPECT_EQ(ask("write", "A.B=1"), result_ok);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(ask("cleanlog", ""), result_ok);
    EXPECT_EQ(printed_, "would be refused: user 33 group 1 class log-clear document -\n");
    EXPECT_EQ(g_handled, 3);
    EXPECT_EQ(guard_->payload_time({-1, pass_}), -1);
    std::unique_ptr<client_pass> second;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(guard_->admit({-1, second}, 1000));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::StartsWith("would be turned away: "));
}

TEST_F(Guard, RemembersSoManyNeeds) {
    ASSERT_EQ(obey("mode permissive"), "");
    constexpr int max_told = 512;
    for (int number = 0; number < max_told; ++number) {
        EXPECT_EQ(ask("readvalue", std::to_string(number)), result_ok);
        EXPECT_NE(printed_, "");
    }
    EXPECT_EQ(ask("readvalue", "0"), result_ok);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(ask("readvalue", "another"), result_ok);
    EXPECT_NE(printed_, "");
    EXPECT_EQ(ask("readvalue", "0"), result_ok);
    EXPECT_NE(printed_, "");
}

TEST_F(Guard, GivesTheHandlerACopyOfAFile) {
    std::filesystem::create_directory(base_ / "in");
    put(base_ / "in/new", "<ROOT><A/></ROOT>");
    ASSERT_EQ(obey("allow user web files on A\nfiles-below " + (base_ / "in").string()), "");
    EXPECT_EQ(ask("upload", (base_ / "in/new").string()), result_ok);
    EXPECT_THAT(g_given, testing::StartsWith("/proc/self/fd/"));
    put(base_ / "in/new", "<ROOT><A/><C/></ROOT>");
    EXPECT_EQ(ask("upload", (base_ / "in/new").string()), result_denied);
    EXPECT_EQ(ask("upload", (base_ / "access").string()), result_denied);
    EXPECT_EQ(g_handled, 1);
}

TEST_F(Guard, RecordsWhatWasChangedAndRefused) {
    ASSERT_EQ(obey("allow user web write\ntrail changes\ntrail refusals"), "");
    EXPECT_EQ(ask("write", "A.B=1"), result_ok);
    EXPECT_EQ(printed_, "trail: /nowhere/log: No such file or directory, records are lost\n");
    EXPECT_EQ(ask("write", "A.B=1", run_out_of_memory), result_too_large);
    EXPECT_EQ(ask("readvalue", "A.B"), result_denied);
}

}  // namespace
}  // namespace veltrancord
