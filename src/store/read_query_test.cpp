#include "store/read_query.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "leaf/result.h"
#include "store/document_set.h"
#include "store/handlers.h"
#include "store/reply_capacity.h"

namespace veltrancord {
namespace {

class ReadQuery : public testing::Test {
  protected:
    ReadQuery() {
        std::string name = testing::TempDir() + "read_query-XXXXXX";
        dir_ = ::mkdtemp(name.data());
    }
    ~ReadQuery() override {
        FreeXmlDocs();
        std::filesystem::remove_all(dir_);
    }

    static void Load(const char* name, const std::string& text) {
        auto doc = std::make_unique<XmlDocument>(name);
        EXPECT_TRUE(doc->LoadXMLFile(text.c_str()));
        AddXmlDocNode(name, "", std::move(doc));
    }

    static void LoadAccount() {
        Load("Account",
             "<Account><User1><Username>admin</Username><Password>enc:3:AAAA</Password></User1>"
             "<Cloud><Key>k</Key></Cloud><CGIPermitDenyFilter><F>f</F></CGIPermitDenyFilter>"
             "<LocalPassword>l</LocalPassword><OperatorPassword>o</OperatorPassword>"
             "<UserGroup>g</UserGroup><Mode AllowToShow='no'>m</Mode><Open>1</Open></Account>");
    }

    // The reply to a read; "-" and the result where that is negative.
    static std::string Read(std::string_view path, int32_t level = 0, HiddenPrefixes filter = {}) {
        reply_text out;
        EXPECT_TRUE(OpenReadReply(out));
        const int32_t result = ReadXmlTree(path, out, level, filter);
        if (result < 0) {
            EXPECT_EQ(out.size(), 0U);
            return "-" + std::to_string(-result);
        }
        EXPECT_EQ(static_cast<std::size_t>(result), out.size());
        return std::string(out.view());
    }

    // What a handler answers: its reply text filled up or cut to its result, as the server does it.
    static std::string Handle(command_handler& handler, std::string argument) {
        connection_record connection;
        const int32_t result = handler(connection, {argument.data(), argument.size()}, 0);
        if (result < 0) {
            return "-" + std::to_string(-result);
        }
        EXPECT_TRUE(connection.reply.is_open());
        std::string text(connection.reply.view());
        text.resize(static_cast<std::size_t>(result), '\0');
        return text;
    }

    // Opens a reply for this capacity.
    static reply_text Reply(std::size_t capacity) {
        reply_text out;
        EXPECT_TRUE(out.open(capacity + reply_key_slack));
        EXPECT_EQ(ReadReplyCapacity(out), capacity);
        return out;
    }

    [[nodiscard]] std::string Content(const std::string& file) const {
        std::ifstream stream(dir_ + "/" + file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::string dir_;
};

TEST_F(ReadQuery, ReplyIsBoundedByTheCapacityAndItsSlack) {
    reply_text out;
    ASSERT_TRUE(OpenReadReply(out));
    EXPECT_EQ(out.bound(), GetReadBufSize() + reply_key_slack);
    EXPECT_EQ(ReadReplyCapacity(out), GetReadBufSize());
    EXPECT_EQ(ReadReplyCapacity(reply_text()), 0U);
}

TEST_F(ReadQuery, SingleValueIsThePathAsReceivedAndTheStoredText) {
    LoadAccount();
    EXPECT_EQ(Read("Account.User1.Username"), "Account.User1.Username=admin");
    EXPECT_EQ(Read("Account..User1.Username."), "Account..User1.Username.=admin");
    EXPECT_EQ(Read("Account.User1.Password"), "Account.User1.Password=enc:3:AAAA");
    Load("S", "<S><a_20b>x</a_20b></S>");
    EXPECT_EQ(Read("S.a b"), "S.a b=x");
}

TEST_F(ReadQuery, WholePathIsInTheReplyThoughOnly511BytesOfItCount) {
    LoadAccount();
    std::string path = "Account.Open";
    path.append(600, '.');
    EXPECT_EQ(Read(path), path + "=1");
}

TEST_F(ReadQuery, NothingThere) {
    LoadAccount();
    EXPECT_EQ(Read(""), "-7");
    EXPECT_EQ(Read("..."), "-7");
    EXPECT_EQ(Read("Nope"), "-4");
    EXPECT_EQ(Read("Nope.*"), "-4");
    EXPECT_EQ(Read(".*"), "-4");
    EXPECT_EQ(Read("Account.User1"), "-4");
    EXPECT_EQ(Read("Account"), "-4");
    EXPECT_EQ(Read("Account.Nope"), "-4");
    EXPECT_EQ(Read("Account.Nope.*"), "-4");
}

TEST_F(ReadQuery, SubtreeListsWhatIsBelowTheElement) {
    Load("Account",
         "<Account><User1><Username>admin</Username><Password>open</Password></User1></Account>");
    EXPECT_EQ(Read("Account.*"), "Account.User1.Username=admin\nAccount.User1.Password=open\n");
    EXPECT_EQ(Read("Account.User1.*"),
              "Account.User1.Username=admin\nAccount.User1.Password=open\n");
    EXPECT_EQ(Read("Account.User1.Username.*"), "");
    EXPECT_EQ(Read("Account.User*"), "-4");
}

TEST_F(ReadQuery, PrefixOfASubtreeStaysEncoded) {
    Load("S", "<S><a_20b><c_20d>x</c_20d></a_20b></S>");
    EXPECT_EQ(Read("S.a b.*"), "S.a_20b.c d=x\n");
}

TEST_F(ReadQuery, SubtreeOfADocumentNamedLikeTheWildcardIsTheDocument) {
    Load("*", "<R><A>1</A></R>");
    EXPECT_EQ(Read(".*"), "R.A=1\n");
    EXPECT_EQ(Read("*."), "R.A=1\n");
    EXPECT_EQ(Read(".*", 1), "-4");
}

TEST_F(ReadQuery, AllDocumentsAreListedMostRecentFirst) {
    EXPECT_EQ(Read("*"), "-4");
    Load("A", "<A><B>1</B></A>");
    Load("C", "<C><D>2</D></C>");
    Load("E", "<E/>");
    EXPECT_EQ(Read("*"), "C.D=2\nA.B=1\n");
    EXPECT_EQ(Read("*", 0, readFilterList), "C.D=2\nA.B=1\n");
}

TEST_F(ReadQuery, AllDocumentsWithoutAnyTextAreAnEmptyReply) {
    Load("E", "<E/>");
    EXPECT_EQ(Read("*"), "");
}

TEST_F(ReadQuery, LevelAboveZeroLeavesOutEveryDocument) {
    Load("A", "<A Level='9'><B Level='9'>1</B></A>");
    EXPECT_EQ(Read("*", 1), "-4");
    EXPECT_EQ(Read("*", 0), "A.B=1\n");
    EXPECT_EQ(Read("*", -1), "A.B=1\n");
}

TEST_F(ReadQuery, LevelMustNotBeAboveThatOfTheElement) {
    Load("N",
         "<N><L3 Level='3'>t<X>x</X></L3><L1 Level='1'>t<X>x</X></L1><L0>t<X>x</X></L0>"
         "<Bad Level='abc'>t</Bad><Big Level='99999999999'>t</Big></N>");
    EXPECT_EQ(Read("N.L3", 2), "N.L3=t");
    EXPECT_EQ(Read("N.L3", 3), "N.L3=t");
    EXPECT_EQ(Read("N.L3", 4), "-4");
    EXPECT_EQ(Read("N.L1", 2), "-4");
    EXPECT_EQ(Read("N.L0", 1), "-4");
    EXPECT_EQ(Read("N.L0", 0), "N.L0=t");
    EXPECT_EQ(Read("N.L0", -5), "N.L0=t");
    EXPECT_EQ(Read("N.Bad", 1), "-4");
    EXPECT_EQ(Read("N.Big", 2147483647), "N.Big=t");
    EXPECT_EQ(Read("N.L3.*", 2), "N.L3.X=x\n");
    EXPECT_EQ(Read("N.L3.*", 4), "-4");
    EXPECT_EQ(Read("N.L1.*", 2), "-4");
    EXPECT_EQ(Read("N.L0.*", 1), "-4");
    EXPECT_EQ(Read("N.*", 1), "-4");
}

TEST_F(ReadQuery, LevelOf127CharactersCanBeReadAndALongerOneNot) {
    const std::string level(126, '0');
    Load("N", "<N><A Level='" + level + "5'>t</A><B Level='0" + level + "5'>t</B></N>");
    EXPECT_EQ(Read("N.A", 5), "N.A=t");
    EXPECT_EQ(Read("N.B", 5), "-4");
}

TEST_F(ReadQuery, SingleValueMustFitTheCapacityWhole) {
    Load("A", "<A><B>12345</B></A>");
    reply_text out = Reply(9);
    EXPECT_EQ(ReadXmlTree("A.B", out, 0, {}), 9);
    EXPECT_EQ(out.view(), "A.B=12345");
    out = Reply(8);
    EXPECT_EQ(ReadXmlTree("A.B", out, 0, {}), result_too_large);
    EXPECT_EQ(out.size(), 0U);
}

TEST_F(ReadQuery, ListingThatDoesNotFitIsRefusedBeforeItsLevelIs) {
    Load("A", "<A><B>12345</B><C>123</C></A>");
    reply_text out = Reply(15);
    EXPECT_EQ(ReadXmlTree("A.*", out, 0, {}), 18);
    out = Reply(14);
    EXPECT_EQ(ReadXmlTree("A.*", out, 0, {}), result_too_large);
    EXPECT_EQ(out.size(), 0U);
    EXPECT_EQ(ReadXmlTree("A.*", out, 1, {}), result_too_large);
    EXPECT_EQ(ReadXmlTree("*", out, 1, {}), result_too_large);
}

TEST_F(ReadQuery, TotalOfAllDocumentsMustFitTheCapacity) {
    Load("A", "<A><B>12345</B></A>");
    Load("C", "<C><D>12345</D></C>");
    reply_text out = Reply(20);
    EXPECT_EQ(ReadXmlTree("*", out, 0, {}), 20);
    out = Reply(19);
    EXPECT_EQ(ReadXmlTree("*", out, 0, {}), result_too_large);
    EXPECT_EQ(out.size(), 0U);
    // Left out by their level, they take no room.
    EXPECT_EQ(ReadXmlTree("*", out, 1, {}), result_not_found);
}

TEST_F(ReadQuery, FilterLeavesOutAccountsAndWhatMayNotShow) {
    LoadAccount();
    EXPECT_EQ(Read("Account.*", 0, readFilterList), "Account.Open=1\n");
    EXPECT_EQ(Read("*", 0, readFilterList), "Account.Open=1\n");
    EXPECT_EQ(Read("Account.User1.*", 0, readFilterList), "");
    EXPECT_EQ(Read("Account.User1.Username", 0, readFilterList), "Account.User1.Username=admin");
}

TEST_F(ReadQuery, RecordWithoutADocumentIsPassedOver) {
    Load("A", "<A><B>1</B></A>");
    PruneXmlDocs();
    EXPECT_EQ(Read("*"), "-4");
    EXPECT_EQ(Read("A.B"), "-4");
}

TEST_F(ReadQuery, Handlers) {
    LoadAccount();
    EXPECT_EQ(Handle(read_handle, "Account.Open"), "Account.Open=1");
    EXPECT_EQ(Handle(read_handle, ""), "-7");
    EXPECT_EQ(Handle(read_filter_handle, "Account.*"), "Account.Open=1\n");
    EXPECT_EQ(Handle(readvalue_handle, "Account.Open"), "1");
    EXPECT_EQ(Handle(readvalue_handle, "Account.*"), "-7");
    EXPECT_EQ(Handle(readvalue_handle, "Account.Nope"), "-4");
    EXPECT_EQ(Handle(read_handle, std::string("Account.Open\0junk", 17)), "Account.Open=1");
    connection_record connection;
    EXPECT_EQ(read_handle(connection, {}, 0), result_bad_argument);
}

TEST_F(ReadQuery, SecretIsAnsweredPlainAndFilledUpToItsStoredLength) {
    LoadAccount();
    const std::string reply = Handle(readvalue_handle, "Account.User1.Password");
    EXPECT_EQ(reply.size(), std::string("enc:3:AAAA").size());
    EXPECT_NE(reply[0], '\0');
    EXPECT_EQ(reply.find_first_not_of('\0', 3), std::string::npos);
}

TEST_F(ReadQuery, ValueLongerThanTheCapacityIsRefused) {
    Load("B", "<B><V>" + std::string(GetReadBufSize(), 'v') + "</V><W>" +
                  std::string(GetReadBufSize() + 1, 'w') + "</W></B>");
    EXPECT_EQ(Handle(readvalue_handle, "B.V"), std::string(GetReadBufSize(), 'v'));
    EXPECT_EQ(Handle(readvalue_handle, "B.W"), "-8");
    EXPECT_EQ(Handle(read_handle, "B.V"), "-8");
    EXPECT_EQ(Handle(read_handle, "B.*"), "-8");
}

TEST_F(ReadQuery, LevelIsWhatFollowsTheLastAmpersand) {
    Load("Network",
         "<Network><Lan Level='3'><Ip>1</Ip></Lan><Wan Level='1'><Ip>2</Ip></Wan>"
         "<a_26b Level='2'>x</a_26b></Network>");
    EXPECT_EQ(Handle(readwithlevel_handle, "Network.Lan.*&2"), "Network.Lan.Ip=1\n");
    EXPECT_EQ(Handle(readwithlevel_handle, "Network.Wan.*&2"), "-4");
    EXPECT_EQ(Handle(readwithlevel_handle, "Network.Lan.Ip&2"), "-4");
    EXPECT_EQ(Handle(readwithlevel_handle, "Network.a&b&2"), "Network.a&b=x");
    EXPECT_EQ(Handle(readwithlevel_handle, "Network.Wan.*&"), "Network.Wan.Ip=2\n");
    EXPECT_EQ(Handle(readwithlevel_handle, "Network.Wan.*&x"), "Network.Wan.Ip=2\n");
    EXPECT_EQ(Handle(readwithlevel_handle, "Network.Lan.*"), "-4");
    EXPECT_EQ(Handle(readwithlevel_handle, "*&1"), "-4");
    EXPECT_EQ(Handle(readwithlevel_handle, "&1"), "-7");
}

TEST_F(ReadQuery, DumpWritesTheReplyIntoAFile) {
    LoadAccount();
    const std::string file = dir_ + "/dump";
    std::ofstream(file) << std::string(1000, 'x');
    EXPECT_EQ(DumpXmlToFile("Account.Cloud.*", file.c_str()), 20);
    EXPECT_EQ(Content("dump"), "Account.Cloud.Key=k\n");
    EXPECT_EQ(DumpXmlToFile("Account.Open", file.c_str()), 14);
    EXPECT_EQ(Content("dump"), "Account.Open=1");
}

TEST_F(ReadQuery, DumpOfNothingIsReportedAndLeavesTheFile) {
    LoadAccount();
    const std::string file = dir_ + "/dump";
    std::ofstream(file) << "old";
    const auto dump = [&](const char* path, const char* name) {
        testing::internal::CaptureStderr();
        const int32_t result = DumpXmlToFile(path, name);
        return testing::internal::GetCapturedStderr() + std::to_string(result);
    };
    EXPECT_EQ(dump("Nope.*", file.c_str()), "read xml error -4!!\n-4");
    EXPECT_EQ(dump("", file.c_str()), "read xml error -7!!\n-7");
    EXPECT_EQ(dump("Account.Open.*", file.c_str()), "read xml error 0!!\n0");
    EXPECT_EQ(dump("Account.Open", nullptr), "read xml error 14!!\n14");
    EXPECT_EQ(Content("dump"), "old");
}

TEST_F(ReadQuery, DumpIntoAFileThatCannotBeOpenedIsReported) {
    LoadAccount();
    const auto dump = [&](const std::string& file) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(DumpXmlToFile("Account.Open", file.c_str()), result_too_large);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "can't open " + file + "\n");
    };
    dump(dir_ + "/missing/file");
    dump(dir_);
}

// Everybody may put files where the dump of a running service goes.
TEST_F(ReadQuery, DumpTakesTheNameOfWhateverHasIt) {
    LoadAccount();
    const auto dump = [&](const std::string& file) {
        EXPECT_EQ(DumpXmlToFile("Account.Open", file.c_str()), 14);
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file)));
        EXPECT_EQ(Content(std::filesystem::path(file).filename()), "Account.Open=1");
    };
    std::ofstream(dir_ + "/victim") << "mine";
    std::filesystem::create_symlink("victim", dir_ + "/link");
    dump(dir_ + "/link");
    EXPECT_EQ(Content("victim"), "mine");
    std::filesystem::create_hard_link(dir_ + "/victim", dir_ + "/name");
    dump(dir_ + "/name");
    EXPECT_EQ(Content("victim"), "mine");
    ASSERT_EQ(::mkfifo((dir_ + "/fifo").c_str(), 0600), 0);
    dump(dir_ + "/fifo");
}

// The backup thread counts the directory anew while requests are served. A reply is held to one
// capacity from its beginning to its end, so it is whole or refused, and never overruns.
TEST_F(ReadQuery, CapacityMayFlipWhileSubtreesAreRead) {
    constexpr int lines = 600;
    const std::string value(1000, 'v');
    std::string text = "<Big>";
    std::string listing;
    for (int i = 0; i < lines; ++i) {
        text.append("<E>").append(value).append("</E>");
        listing.append("Big.E=").append(value).append("\n");
    }
    Load("Big", text + "</Big>");
    const std::string small = dir_ + "/small";
    const std::string large = dir_ + "/large";
    std::filesystem::create_directory(small);
    std::filesystem::create_directory(large);
    std::ofstream(large + "/filler").put('x');
    std::filesystem::resize_file(large + "/filler", 2 << 20);

    std::atomic<bool> enough{false};
    std::thread flipping([&] {
        while (!enough.load()) {
            scan_reply_capacity(large.c_str());
            scan_reply_capacity(small.c_str());
        }
    });
    int served = 0;
    int refused = 0;
    int wrong = 0;
    while (wrong == 0 && (served < 100 || refused < 100)) {
        const std::string reply = Read("Big.*");
        served += reply == listing ? 1 : 0;
        refused += reply == "-8" ? 1 : 0;
        wrong += reply != listing && reply != "-8" ? 1 : 0;
    }
    enough.store(true);
    flipping.join();
    EXPECT_EQ(wrong, 0);
    scan_reply_capacity(small.c_str());
}

}  // namespace
}  // namespace veltrancord
