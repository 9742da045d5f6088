#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "service/processes.h"

namespace veltrancord {
namespace {

// Runs `body` in a process of its own. Return: its exit status; -1 when a signal ended it.
template <typename Body>
int status_of(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool is_open(int fd) {
    return ::fcntl(fd, F_GETFD) >= 0;
}

TEST(Inheritance, OpensTheStandardDescriptorsAndClosesAllOthers) {
    EXPECT_EQ(status_of([] {
                  ::close(STDIN_FILENO);
                  ::close(STDOUT_FILENO);
                  const int far = ::fcntl(STDERR_FILENO, F_DUPFD, 200);
                  const int near = ::fcntl(STDERR_FILENO, F_DUPFD, 3);
                  settle_inheritance();
                  const bool standard =
                      is_open(STDIN_FILENO) && is_open(STDOUT_FILENO) && is_open(STDERR_FILENO);
                  return standard && !is_open(near) && !is_open(far) && !is_open(3) ? 0 : 1;
              }),
              0);
}

TEST(Inheritance, UnblocksSignals) {
    EXPECT_EQ(status_of([] {
                  sigset_t every;
                  ::sigfillset(&every);
                  ::sigprocmask(SIG_SETMASK, &every, nullptr);
                  settle_inheritance();
                  sigset_t now;
                  ::sigprocmask(SIG_SETMASK, nullptr, &now);
                  return ::sigisemptyset(&now) ? 0 : 1;
              }),
              0);
}

TEST(Inheritance, LetsTheEndOfAChildBeWaitedFor) {
    EXPECT_EQ(status_of([] {
                  ::signal(SIGCHLD, SIG_IGN);
                  settle_inheritance();
                  const pid_t child = ::fork();
                  if (child == 0) {
                      ::_exit(0);
                  }
                  return ::wait(nullptr) == child ? 0 : 1;
              }),
              0);
}

TEST(Inheritance, AllowsNoCore) {
    EXPECT_EQ(status_of([] {
                  settle_inheritance();
                  rlimit core = {1, 1};
                  ::getrlimit(RLIMIT_CORE, &core);
                  return core.rlim_cur == 0 && core.rlim_max == 0 ? 0 : 1;
              }),
              0);
}

}  // namespace
}  // namespace veltrancord
