#include "service/signals.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "leaf/owned_fd.h"

namespace veltrancord {
namespace {

// Runs `body` in a process of its own and collects what that prints on standard error.
struct child_run {
    int status = -1;
    std::string printed;
};

template <typename Body>
child_run run_in_child(Body body) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const owned_fd reader(ends[0]);
    owned_fd writer(ends[1]);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(writer.get(), STDERR_FILENO);
        body();
        ::_exit(0);
    }
    writer.reset();
    child_run run;
    char some[256];
    for (ssize_t count = 0; (count = ::read(reader.get(), some, sizeof some)) > 0;) {
        run.printed.append(some, static_cast<std::size_t>(count));
    }
    EXPECT_EQ(::waitpid(child, &run.status, 0), child);
    return run;
}

TEST(Termination, EndsTheProcessWithStatus1) {
    for (const int number : {SIGTERM, SIGHUP}) {
        const child_run run = run_in_child([number] {
            install_termination_handling();
            ::raise(number);
        });
        EXPECT_TRUE(WIFEXITED(run.status));
        EXPECT_EQ(WEXITSTATUS(run.status), 1);
        EXPECT_EQ(run.printed, "XmlSigTermnate catched signal " + std::to_string(number) +
                                   "\nprocess release....\n");
    }
}

TEST(Termination, ShutsTheSharedSocketDown) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const owned_fd ours(ends[0]);
    const owned_fd theirs(ends[1]);
    run_in_child([&theirs] {
        g_listeningFd.store(theirs.get());
        install_termination_handling();
        ::raise(SIGTERM);
    });
    char byte = 0;
    // Our own copy of their end is still open: only a shutdown ends the stream.
    EXPECT_EQ(::recv(ours.get(), &byte, 1, MSG_DONTWAIT), 0);
}

TEST(Termination, OfAnotherProcessThanTheOwnerLeavesTheSharedSocketOpen) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const owned_fd ours(ends[0]);
    const owned_fd theirs(ends[1]);
    const child_run run = run_in_child([&theirs] {
        g_listeningFd.store(theirs.get());
        g_listeningOwner.store(::getppid());
        install_termination_handling();
        ::raise(SIGTERM);
    });
    EXPECT_EQ(WEXITSTATUS(run.status), 1);
    EXPECT_NE(run.printed.find("process release....\n"), std::string::npos);
    char byte = 0;
    EXPECT_EQ(::recv(ours.get(), &byte, 1, MSG_DONTWAIT), -1);
}

TEST(Termination, IsNotTheEndOfWritingToABrokenPipe) {
    const child_run run = run_in_child([] {
        install_termination_handling();
        ::raise(SIGPIPE);
    });
    EXPECT_EQ(run.status, 0);
}

TEST(WorkerSignals, BlockTheUsualOnesWhileAChildSEndIsNoted) {
    const child_run run = run_in_child([] {
        install_worker_signals();
        struct sigaction action = {};
        ::sigaction(SIGCHLD, nullptr, &action);
        for (const int number : {SIGCHLD, SIGUSR1, SIGUSR2, SIGPIPE, SIGTERM, SIGINT}) {
            if (::sigismember(&action.sa_mask, number) != 1) {
                ::_exit(number);
            }
        }
        if (::sigismember(&action.sa_mask, SIGHUP) != 0 || g_childExited.load()) {
            ::_exit(100);
        }
        ::raise(SIGCHLD);
        ::_exit(g_childExited.load() ? 0 : 101);
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Reaping, ReportsEveryChildThatHasEnded) {
    const child_run run = run_in_child([] {
        g_childExited.store(true);
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            ::_exit(1);
        }
        const pid_t running = ::fork();
        if (running == 0) {
            ::pause();
            ::_exit(0);
        }
        for (const int status : {0, 3}) {
            const pid_t child = ::fork();
            if (child == 0) {
                ::_exit(status);
            }
            siginfo_t information;
            ::waitid(P_PID, static_cast<id_t>(child), &information, WEXITED | WNOWAIT);
            const std::string line =
                std::to_string(child) + " " + std::to_string(status << 8) + "\n";
            [[maybe_unused]] const ssize_t written =
                ::write(STDERR_FILENO, line.data(), line.size());
        }
        reap_children();
        const bool none_left = ::waitpid(-1, nullptr, WNOHANG) == 0;  // the running one only
        ::kill(running, SIGKILL);
        ::waitpid(running, nullptr, 0);
        ::_exit(none_left && !g_childExited.load() ? 0 : 2);
    });
    EXPECT_EQ(run.status, 0);
    // The children told their ids and statuses first.
    const std::string& text = run.printed;
    const std::size_t reported = text.find("reaping");
    ASSERT_NE(reported, std::string::npos);
    std::string expected;
    for (std::size_t at = 0; at < reported;) {
        const std::size_t blank = text.find(' ', at);
        const std::size_t end = text.find('\n', at);
        expected += "reaping child " + text.substr(at, blank - at) + ": status " +
                    text.substr(blank + 1, end - blank);
        at = end + 1;
    }
    EXPECT_EQ(text.substr(reported), expected);
    EXPECT_NE(text.find(": status 768\n"), std::string::npos);
}

TEST(AllSignalsBlocked, HoldsForThreadsThatAreStartedMeanwhile) {
    static sigset_t seen;
    pthread_t thread = {};
    {
        const all_signals_blocked blocked;
        ASSERT_EQ(::pthread_create(
                      &thread, nullptr,
                      [](void* /*argument*/) -> void* {
                          ::pthread_sigmask(SIG_SETMASK, nullptr, &seen);
                          return nullptr;
                      },
                      nullptr),
                  0);
    }
    ::pthread_join(thread, nullptr);
    sigset_t own;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &own);
    for (const int number : {SIGTERM, SIGHUP, SIGCHLD, SIGINT}) {
        EXPECT_EQ(::sigismember(&seen, number), 1) << number;
        EXPECT_EQ(::sigismember(&own, number), 0) << number;
    }
}

}  // namespace
}  // namespace veltrancord
