#include "server/listener.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "leaf/owned_fd.h"
#include "leaf/termination.h"
#include "server/request_server.h"

namespace veltrancord {
namespace {

class listening_socket : public testing::Test {
  protected:
    listening_socket() : fd_(create_local_server(path_.c_str())) {
        EXPECT_TRUE(fd_);
        server_.listener.fd = fd_.get();
        EXPECT_TRUE(start_listening(server_));
    }
    ~listening_socket() override { ::unlink(path_.c_str()); }

    // What is printed when the socket is ready for somebody to be accepted.
    std::string accept() {
        testing::internal::CaptureStderr();
        do_accept(&server_);
        return testing::internal::GetCapturedStderr();
    }

    std::string path_ = testing::TempDir() + "listener_test." + std::to_string(::getpid());
    owned_fd fd_;
    request_server server_;
};

TEST_F(listening_socket, stays_watched_when_somebody_has_gone_again) {
    EXPECT_EQ(accept(), "do_accept accept: Resource temporarily unavailable!!\n");
    EXPECT_EQ(accept(), "");
    EXPECT_NE(server_.accept_event, nullptr);
}

// Poll calls such a socket readable for ever; accept says only that it should be tried again.
TEST_F(listening_socket, is_not_watched_any_more_once_another_process_has_shut_it_down) {
    ASSERT_EQ(::shutdown(fd_.get(), SHUT_RDWR), 0);
    EXPECT_EQ(accept(), "do_accept accept: Resource temporarily unavailable!!\n");
    EXPECT_EQ(server_.accept_event, nullptr);
}

TEST_F(listening_socket, is_left_without_a_word_when_this_process_is_being_terminated) {
    ASSERT_EQ(::shutdown(fd_.get(), SHUT_RDWR), 0);
    g_terminating = true;
    EXPECT_EQ(accept(), "");
    g_terminating = false;
    EXPECT_EQ(server_.accept_event, nullptr);
}

}  // namespace
}  // namespace veltrancord
