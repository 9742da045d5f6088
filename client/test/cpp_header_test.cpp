// The C++ header as a C++17 program sees it.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <veltrancord/client.hpp>

#include "fake_service.h"

namespace veltrancord::test {
namespace {

static_assert(__cplusplus < 202000L, "compiled as the oldest C++ that the header is for");
static_assert(!std::is_copy_constructible_v<client> && !std::is_move_constructible_v<client>);
static_assert(std::is_move_constructible_v<watcher> && !std::is_copy_constructible_v<watcher>);

class CppHeader : public testing::Test {
  protected:
    CppHeader() : path_(directory_.socket_path()), client_(path_, 20000) {}

    // Runs `call` against a service that answers with `frame`. Return: the request that it got.
    template <typename Call>
    std::string request_of(const std::string& frame, Call call) {
        const fake_service service(path_, frame);
        call(client_);
        const auto requests = service.requests();
        return requests.size() == 1 ? requests.front() : "not one request";
    }

    scratch_directory directory_;
    std::string path_;
    client client_;
};

TEST_F(CppHeader, ReadsValuesOfAnyLength) {
    const std::string large(5000, 'v');
    for (const std::string& value :
         {std::string("gate"), std::string(255, 'x'), std::string(256, 'y'), large}) {
        const fake_service service(path_,
                                   reply_frame(static_cast<std::int32_t>(value.size()), value));
        EXPECT_EQ(client_.get("System.Name"), value);
        EXPECT_EQ(client_.find("System.Name"), value);
        EXPECT_EQ(client_.get("System.Name", "none"), value);
    }
}

TEST_F(CppHeader, WhatIsNotThereIsNoneAFallbackOrAnError) {
    const fake_service service(path_, reply_frame(-4));
    EXPECT_EQ(client_.find("System.Name"), std::nullopt);
    EXPECT_EQ(client_.get("System.Name", "none"), "none");
    try {
        (void)client_.get("System.Name");
        FAIL();
    } catch (const error& failure) {
        EXPECT_EQ(failure.code(), VELTRANCORD_NOT_FOUND);
        EXPECT_EQ(failure.subject(), "System.Name");
        EXPECT_STREQ(failure.what(), "System.Name: not found");
    }
}

TEST_F(CppHeader, OtherFailuresThrowWithAFallbackToo) {
    EXPECT_THROW(client_.get("A.B", "none"), error);
    const fake_service service(path_, reply_frame(-12));
    EXPECT_THROW((void)client_.find("A.B"), error);
    EXPECT_THROW((void)client_.read("A.*"), error);
}

TEST_F(CppHeader, ReadsLines) {
    EXPECT_EQ(
        request_of(reply_frame(12, "A.B=1\ny\nA.C="),
                   [](client& c) {
                       EXPECT_EQ(c.read("A.*"), (setting_vector{{"A.B", "1\ny"}, {"A.C", ""}}));
                   }),
        "read:A.*");
    EXPECT_EQ(request_of(reply_frame(0), [](client& c) { EXPECT_TRUE(c.read("A.*").empty()); }),
              "read:A.*");
}

TEST_F(CppHeader, WritesAllWithOneRequest) {
    EXPECT_EQ(request_of(reply_frame(2),
                         [](client& c) {
                             EXPECT_EQ(c.write({{"A.B", "1"}, {"A.C", "x=y"}}), 2);
                         }),
              "write:A.B=1\nA.C=x=y\n");
    EXPECT_EQ(request_of(reply_frame(1), [](client& c) { c.set("A.B", ""); }), "write:A.B=\n");
    EXPECT_THROW(client_.write({}), error);
}

TEST_F(CppHeader, ATextWithANulByteIsRefusedAndNotCut) {
    const std::string cut("A.B\0.C", 6);
    EXPECT_THROW((void)client_.get(cut), std::invalid_argument);
    EXPECT_THROW((void)client_.read(cut), std::invalid_argument);
    EXPECT_THROW(client_.set("A.B", cut), std::invalid_argument);
    EXPECT_THROW((void)client_.check_session(cut), std::invalid_argument);
    EXPECT_THROW((void)client_.user_may("u", cut), std::invalid_argument);
    EXPECT_THROW((void)client_.watch({cut}), std::invalid_argument);
    EXPECT_THROW(client_.log_add(1, std::string_view("a\0b", 3)), std::invalid_argument);
}

TEST_F(CppHeader, PermitsAndSessionsAreAnsweredNotThrown) {
    {
        const fake_service service(path_, reply_frame(0));
        EXPECT_TRUE(client_.user_may("u", "p") && client_.group_may("g", "p"));
        EXPECT_TRUE(client_.check_session("s"));
    }
    {
        const fake_service service(path_, reply_frame(-12));
        EXPECT_FALSE(client_.user_may("u", "p") || client_.group_may("g", "p"));
        EXPECT_THROW((void)client_.check_session("s"), error);
    }
    const fake_service service(path_, reply_frame(-4));
    EXPECT_FALSE(client_.check_session("s"));
    EXPECT_THROW((void)client_.user_may("u", "p"), error);
}

TEST_F(CppHeader, AddsAndReadsEvents) {
    EXPECT_EQ(
        request_of(reply_frame(0), [](client& c) { c.log_add(16, "door open"); }).substr(0, 9),
        "writelog:");
    EXPECT_THROW(client_.log_add(16, "sixteen letters!"), error);
    std::string record(VELTRANCORD_LOG_RECORD_SIZE, '\0');
    record.replace(11, 4, "door");
    const fake_service service(path_, reply_frame(VELTRANCORD_LOG_RECORD_SIZE, record));
    EXPECT_STREQ(client_.log_read(4).at(0).text, "door");
}

TEST_F(CppHeader, FunctionsOfTheCLibraryAreCalledThroughIt) {
    const fake_service service(path_, reply_frame(-4));
    EXPECT_THROW(client_.check(veltrancord_sync_permits(client_.c())), error);
    client_.ping();
}

TEST_F(CppHeader, WatchesUntilTheOwnerGoes) {
    const std::string folder = path_ + ".files";
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    EXPECT_THROW((void)client_.watch({"A.x"}, folder + "/none"), error);
    std::atomic<char> value{'1'};
    {
        const fake_service service(path_, [&value](int fd) {
            (void)read_request(fd);
            write_all(fd, reply_frame(5, std::string("A.x=") + value.load()));
        });
        watcher first = client_.watch({"A.x"}, folder);
        watcher watching = std::move(first);
        EXPECT_GE(watching.descriptor(), 0);
        EXPECT_EQ(watching.next(0), std::nullopt);
        value = '2';
        std::ofstream(folder + "/A") << "<A/>";
        const std::optional<change> found = watching.next();
        ASSERT_TRUE(found.has_value());
        EXPECT_EQ(found->path, "A.x");
        EXPECT_EQ(found->before, "1");
        EXPECT_EQ(found->after, "2");
    }
    EXPECT_EQ(unlink((folder + "/A").c_str()), 0);
    EXPECT_EQ(rmdir(folder.c_str()), 0);
}

}  // namespace
}  // namespace veltrancord::test
