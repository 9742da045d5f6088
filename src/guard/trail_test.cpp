#include "guard/trail.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "leaf/bounded_text.h"

namespace veltrancord {
namespace {

constexpr trail_subject web{"web", "33", 514, "settings.cgi"};

std::string text_of(trail_record& record, int32_t result = 1, uint64_t lost = 0) {
    const std::string text(record.finish(result, lost));
    return text.substr(text.find(" ["));
}

TEST(TrailRecord, IsALineOfStructuredData) {
    trail_record record(trail_kind::change, web, "write");
    record.add_change("Network.Lan.Mtu", "1500", "1400");
    record.add_path("Account.User1.Password");
    const std::string text(record.finish(2, 3));
    EXPECT_THAT(text, testing::StartsWith("<85>1 2"));
    EXPECT_THAT(text, testing::HasSubstr(" veltrancord " + std::to_string(::getpid()) +
                                         " change [veltrancord@32473 user=\"web\" uid=\"33\""));
    EXPECT_THAT(
        text,
        testing::EndsWith(
            " pid=\"514\" program=\"settings.cgi\" command=\"write\""
            " path=\"Network.Lan.Mtu\" old=\"1500\" new=\"1400\""
            " path=\"Account.User1.Password\" lost=\"3\" result=\"2\"] write by web (33): 2"));
}

TEST(TrailRecord, OfARefusalIsAWarning) {
    trail_record refused(trail_kind::refused, web, "write");
    EXPECT_THAT(std::string(refused.finish(-12, 0)), testing::StartsWith("<84>1 "));
    trail_record not_refused(trail_kind::would_refuse, web, "write");
    EXPECT_THAT(std::string(not_refused.finish(-12, 0)), testing::HasSubstr(" would-be-refused ["));
}

TEST(TrailRecord, EscapesWhatWouldEndAValue) {
    trail_record record(trail_kind::change, web, "write");
    record.add_change("A.\n\"]", "\\\x1b[m\x7f", "gr\xc3\xbc\xc3 \xff");
    EXPECT_THAT(text_of(record),
                testing::HasSubstr(" path=\"A.?\\\"\\]\" old=\"\\\\?[m?\" new=\"gr\xc3\xbc? ?\""));
}

TEST(TrailRecord, CutsValues) {
    trail_record record(trail_kind::change, web, "write");
    record.add_change("A", std::string(max_trail_value + 1, 'o'), std::string(5000, 'n'));
    const std::string text = text_of(record);
    EXPECT_THAT(text,
                testing::HasSubstr("old=\"" + std::string(max_trail_value, 'o') + "\" new=\"" +
                                   std::string(max_trail_value, 'n') + "\" result"));
}

TEST(TrailRecord, CountsThePathsForWhichThereIsNoRoom) {
    trail_record record(trail_kind::change, web, "write");
    for (int path = 0; path < 1000; ++path) {
        record.add_path("Document.Some.Setting");
    }
    record.add_path("B");
    const std::string text(record.finish(1, 1));
    EXPECT_LE(text.size(), max_trail_record);
    EXPECT_GT(text.size(), max_trail_record / 2);
    EXPECT_THAT(text, testing::ContainsRegex(" more=\"[0-9]+\" lost=\"1\" result=\"1\""));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("path=\"B\""))) << "the first ones are told";
}

class SystemLog : public testing::Test {
  protected:
    SystemLog() {
        char name[] = "/tmp/system_log-XXXXXX";
        directory_ = ::mkdtemp(name);
        path_ = directory_ / "log";
    }
    ~SystemLog() override { std::filesystem::remove_all(directory_); }

    void listen() {
        receiver_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        copy_bounded(address.sun_path, path_.string());
        ASSERT_EQ(
            ::bind(receiver_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
    }
    void hang_up() {
        receiver_.reset();
        std::filesystem::remove(path_);
    }
    std::string receive() const {
        char bytes[8192];
        const ssize_t count = ::recv(receiver_.get(), bytes, sizeof bytes, 0);
        return count < 0 ? "" : std::string(bytes, static_cast<std::size_t>(count));
    }
    // What is printed while a record is sent.
    static std::string send(system_log& log) {
        trail_record record(trail_kind::change, web, "write");
        testing::internal::CaptureStderr();
        log.send(record, 1);
        return testing::internal::GetCapturedStderr();
    }

    std::filesystem::path directory_;
    std::filesystem::path path_;
    owned_fd receiver_;
};

TEST_F(SystemLog, GetsRecords) {
    listen();
    system_log log(path_.c_str());
    EXPECT_EQ(send(log), "");
    EXPECT_THAT(receive(), testing::EndsWith("write by web (33): 1"));
}

TEST_F(SystemLog, IsFoundAgainWhenItWasStartedAnew) {
    listen();
    system_log log(path_.c_str());
    EXPECT_EQ(send(log), "");
    hang_up();
    listen();
    EXPECT_EQ(send(log), "");
    EXPECT_NE(receive(), "");
    EXPECT_EQ(log.lost(), 0U);
}

TEST_F(SystemLog, IsToldWhatWasLost) {
    system_log log(path_.c_str());
    EXPECT_EQ(send(log),
              "trail: " + path_.string() + ": No such file or directory, records are lost\n");
    EXPECT_EQ(send(log), "");
    EXPECT_EQ(log.lost(), 2U);
    listen();
    EXPECT_EQ(send(log), "trail: " + path_.string() + " takes records again, 2 are lost\n");
    EXPECT_THAT(receive(), testing::HasSubstr(" lost=\"2\""));
    EXPECT_EQ(send(log), "");
    EXPECT_THAT(receive(), testing::Not(testing::HasSubstr(" lost=")));
}

TEST_F(SystemLog, ThatIsFullIsNotWaitedFor) {
    listen();
    system_log log(path_.c_str());
    int sent = 0;
    while (log.lost() == 0 && sent < 100'000) {
        static_cast<void>(send(log));
        ++sent;
    }
    EXPECT_EQ(log.lost(), 1U);
    EXPECT_NE(receive(), "");
    static_cast<void>(send(log));
    EXPECT_EQ(log.lost(), 0U);
}

TEST_F(SystemLog, WithAPathThatIsTooLongLosesRecords) {
    const std::string path = "/" + std::string(200, 'x');
    system_log log(path.c_str());
    EXPECT_THAT(send(log), testing::HasSubstr("File name too long, records are lost\n"));
}

}  // namespace
}  // namespace veltrancord
