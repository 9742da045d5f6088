// What the library asks of the system: how often it sends, when it allocates, and what it makes of
// calls that fail or do half. The linker puts the routines below in place of the system's.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <veltrancord/client.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "fake_service.h"

namespace {

// Counted and steered for the test's own thread alone: the fake service has another one.
struct call_plan {
    bool watched = false;
    int allocations = 0;
    bool refuse_memory = false;
    int allocations_allowed = -1;    // those behind so many are refused; below 0: none
    std::vector<std::size_t> sends;  // how many bytes each was asked to send
    std::size_t longest_send = SIZE_MAX;
    int interruptions = 0;  // how many of the next calls are interrupted
    bool cut_receiving = false;
    bool more_rights = false;  // as in a program with the set-user-id bit
};
thread_local call_plan g_plan;

bool is_interrupted() {
    if (g_plan.interruptions == 0) {
        return false;
    }
    --g_plan.interruptions;
    errno = EINTR;
    return true;
}

bool may_allocate() {
    if (!g_plan.watched) {
        return true;
    }
    ++g_plan.allocations;
    return !g_plan.refuse_memory &&
           (g_plan.allocations_allowed < 0 || g_plan.allocations <= g_plan.allocations_allowed);
}

}  // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
char* __real_secure_getenv(const char* name);
ssize_t __real_sendmsg(int fd, const msghdr* message, int flags);
ssize_t __real_recvmsg(int fd, msghdr* message, int flags);
int __real_connect(int fd, const sockaddr* address, socklen_t length);

void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
char* __wrap_secure_getenv(const char* name);
ssize_t __wrap_sendmsg(int fd, const msghdr* message, int flags);
ssize_t __wrap_recvmsg(int fd, msghdr* message, int flags);
int __wrap_connect(int fd, const sockaddr* address, socklen_t length);

void* __wrap_malloc(std::size_t size) {
    return may_allocate() ? __real_malloc(size) : nullptr;
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return may_allocate() ? __real_calloc(count, size) : nullptr;
}

void* __wrap_realloc(void* block, std::size_t size) {
    return may_allocate() ? __real_realloc(block, size) : nullptr;
}

char* __wrap_secure_getenv(const char* name) {
    return g_plan.more_rights ? nullptr : __real_secure_getenv(name);
}

ssize_t __wrap_sendmsg(int fd, const msghdr* message, int flags) {
    if (!g_plan.watched) {
        return __real_sendmsg(fd, message, flags);
    }
    if (is_interrupted()) {
        return -1;
    }
    std::size_t length = 0;
    for (std::size_t part = 0; part < message->msg_iovlen; ++part) {
        length += message->msg_iov[part].iov_len;
    }
    g_plan.sends.push_back(length);
    if (length <= g_plan.longest_send) {
        return __real_sendmsg(fd, message, flags);
    }
    iovec part = message->msg_iov[0];
    part.iov_len = std::min(part.iov_len, g_plan.longest_send);
    msghdr shorter = *message;
    shorter.msg_iov = &part;
    shorter.msg_iovlen = 1;
    return __real_sendmsg(fd, &shorter, flags);
}

ssize_t __wrap_recvmsg(int fd, msghdr* message, int flags) {
    if (g_plan.watched && is_interrupted()) {
        return -1;
    }
    if (g_plan.watched && g_plan.cut_receiving) {
        errno = ECONNRESET;
        return -1;
    }
    return __real_recvmsg(fd, message, flags);
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
    return g_plan.watched && is_interrupted() ? -1 : __real_connect(fd, address, length);
}

}  // extern "C"

namespace veltrancord::test {
namespace {

class Calls : public testing::Test {
  protected:
    Calls() : path_(directory_.socket_path()) {
        veltrancord_client_init(&client_);
        client_.socket_path = path_.c_str();
        client_.timeout_ms = -1;
        g_plan = {};
        g_plan.watched = true;
    }
    ~Calls() override { g_plan = {}; }

    // Starting the service allocates, which does not count.
    void start_counting() {
        g_plan.allocations = 0;
        g_plan.sends.clear();
    }

    scratch_directory directory_;
    std::string path_;
    veltrancord_client client_;
    std::array<char, 64> text_{};
    veltrancord_reply reply_ = VELTRANCORD_REPLY_INIT(text_.data(), text_.size(), 1000000);
};

TEST_F(Calls, HeaderAndPayloadLeaveInOneSend) {
    const fake_service service(path_, reply_frame(1));
    start_counting();
    EXPECT_EQ(veltrancord_set(&client_, "A.B", "1"), 1);
    EXPECT_EQ(g_plan.sends, std::vector<std::size_t>{5 + sizeof "write:A.B=1\n" - 1});
}

TEST_F(Calls, NothingIsAllocatedForRepliesThatFit) {
    const fake_service service(path_, reply_frame(4, "A=1\n"));
    std::array<veltrancord_log_record, 4> records{};
    start_counting();
    EXPECT_EQ(veltrancord_get(&client_, "A.B", text_.data(), text_.size()), 4);
    EXPECT_EQ(veltrancord_read(&client_, "A.*", &reply_), 4);
    EXPECT_EQ(veltrancord_exchange(&client_, "read", "A.*", 3, &reply_), 4);
    EXPECT_EQ(veltrancord_get_attribute(&client_, "A.B.C", text_.data(), text_.size()), 4);
    EXPECT_EQ(veltrancord_user_group(&client_, "user", text_.data(), text_.size()), 4);
    EXPECT_LT(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, -1, records.data(), 4), 0);
    EXPECT_EQ(g_plan.allocations, 0);
}

TEST_F(Calls, NothingIsAllocatedForShortRequests) {
    const fake_service service(path_, reply_frame(0));
    const veltrancord_setting settings[] = {{"A.B", "1"}, {"A.C", "2"}};
    std::array<veltrancord_log_record, 4> records{};
    records[0].text[0] = 'x';
    start_counting();
    EXPECT_EQ(veltrancord_write(&client_, settings, 2), 0);
    EXPECT_EQ(veltrancord_log_add(&client_, records.data()), 0);
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, -1, records.data(), 4), 0);
    EXPECT_EQ(veltrancord_user_may(&client_, "user", "permit", "7"), 0);
    EXPECT_EQ(veltrancord_check_session(&client_, "token", 60), 0);
    EXPECT_EQ(veltrancord_compare_captcha(&client_, "code", "text", 1, 30), 0);
    EXPECT_EQ(g_plan.allocations, 0);
}

TEST_F(Calls, MemoryThatCannotBeHadIsAFailureOfThisCall) {
    const std::string large(1000, 'y');
    const std::string value(2000, 'v');
    const fake_service service(path_, reply_frame(1000, large));
    start_counting();
    g_plan.refuse_memory = true;
    EXPECT_EQ(veltrancord_read(&client_, "A.*", &reply_), VELTRANCORD_NO_MEMORY);
    EXPECT_EQ(veltrancord_set(&client_, "A.B", value.c_str()), VELTRANCORD_NO_MEMORY);
    EXPECT_EQ(g_plan.allocations, 2);
    EXPECT_EQ(g_plan.sends.size(), 1U);  // the request that could not be put together was not sent
    g_plan.refuse_memory = false;
    EXPECT_EQ(veltrancord_read(&client_, "A.*", &reply_), 1000);
    veltrancord_reply_release(&reply_);
}

TEST_F(Calls, AWatchThatGetsNoMemoryIsAFailureAndLeavesNothing) {
    const fake_service service(path_, reply_frame(6, "A.x=1\n"));
    const char* path = "A.*";
    veltrancord_watcher* watcher = nullptr;
    for (int allowed = 0; allowed < 3; ++allowed) {
        start_counting();
        g_plan.allocations_allowed = allowed;
        EXPECT_EQ(veltrancord_watch(&client_, &path, 1, "/", 100, &watcher), VELTRANCORD_NO_MEMORY);
        EXPECT_EQ(watcher, nullptr);
    }
    start_counting();
    g_plan.allocations_allowed = 3;
    EXPECT_EQ(veltrancord_watch(&client_, &path, 1, "/", 100, &watcher), VELTRANCORD_OK);
    veltrancord_watch_end(watcher);
}

TEST_F(Calls, InterruptedCallsAreMadeAgain) {
    const fake_service service(path_, reply_frame(3, "abc"));
    for (int interruptions = 1; interruptions < 8; ++interruptions) {
        g_plan.interruptions = interruptions;
        EXPECT_EQ(veltrancord_read(&client_, "A.*", &reply_), 3);
        EXPECT_EQ(g_plan.interruptions, 0);
    }
}

TEST_F(Calls, WhatTheSocketDoesNotTakeAtOnceIsSentOn) {
    for (std::size_t longest = 1; longest < 12; ++longest) {
        const fake_service service(path_, reply_frame(1));
        start_counting();
        g_plan.longest_send = longest;
        EXPECT_EQ(veltrancord_set(&client_, "Network.Lan.Mtu", "1500"), 1);
        EXPECT_EQ(service.requests(), std::vector<std::string>{"write:Network.Lan.Mtu=1500\n"});
        g_plan.longest_send = SIZE_MAX;
    }
}

TEST_F(Calls, AProgramWithMoreRightsThanItsStarterIgnoresTheEnvironment) {
    const fake_service service(path_, reply_frame(-4));
    ASSERT_EQ(setenv("VELTRANCORD_SOCKET", path_.c_str(), 1), 0);
    client_.socket_path = nullptr;
    EXPECT_EQ(veltrancord_ping(&client_), VELTRANCORD_OK);
    EXPECT_EQ(service.requests().size(), 1U);
    g_plan.more_rights = true;
    client_.timeout_ms = 5000;
    (void)veltrancord_ping(&client_);  // of whoever may answer at the default socket
    EXPECT_EQ(service.requests().size(), 1U);
    ASSERT_EQ(unsetenv("VELTRANCORD_SOCKET"), 0);
}

TEST_F(Calls, AConnectionThatIsResetIsAReplyThatNeverCame) {
    const fake_service service(path_, reply_frame(3, "abc"));
    g_plan.cut_receiving = true;
    EXPECT_EQ(veltrancord_read(&client_, "A.*", &reply_), VELTRANCORD_NO_REPLY);
}

}  // namespace
}  // namespace veltrancord::test
