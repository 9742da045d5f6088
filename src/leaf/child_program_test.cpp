#include "leaf/child_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "leaf/owned_fd.h"

namespace veltrancord {
namespace {

bool g_oldKernel = false;

}  // namespace
}  // namespace veltrancord

// A definition in the program takes the place of the C library's, for the code under test too.
extern "C" int close_range(unsigned int first, unsigned int last, int flags) noexcept {
    if (veltrancord::g_oldKernel) {
        errno = ENOSYS;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_close_range, first, last, flags));
}

namespace veltrancord {
namespace {

class ChildProgram : public testing::Test {
  protected:
    ChildProgram() {
        char name[] = "/tmp/child_program_test-XXXXXX";
        directory_ = ::mkdtemp(name);
    }
    ~ChildProgram() override {
        ::unlink(output().c_str());
        ::rmdir(directory_.c_str());
    }

    [[nodiscard]] std::string output() const { return directory_ + "/output"; }

    [[nodiscard]] std::string read_output() const {
        std::ostringstream text;
        text << std::ifstream(output()).rdbuf();
        return text.str();
    }

    // Starts the shell on `script` with its standard output going to the output file.
    [[nodiscard]] pid_t start_script(std::string script, int standard_input = -1) {
        script += " > " + output() + " 2>&1";
        std::string name = "sh";
        std::string option = "-c";
        std::array<char*, 4> arguments = {name.data(), option.data(), script.data(), nullptr};
        std::string variable = "PATH=/usr/bin:/bin";
        std::array<char*, 2> environment = {variable.data(), nullptr};
        program_start start;
        start.path = "/bin/sh";
        start.arguments = arguments.data();
        start.environment = environment.data();
        start.standard_input = standard_input;
        return start_program(start);
    }

    static int wait_for(pid_t child) {
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return status;
    }

  private:
    std::string directory_;
};

TEST_F(ChildProgram, BeginsWithDefaultDispositionsAndAnEmptyMask) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction pipe_before = {};
    struct sigaction quit_before = {};
    ::sigaction(SIGPIPE, &ignore, &pipe_before);
    ::sigaction(SIGQUIT, &ignore, &quit_before);
    sigset_t blocked;
    sigset_t mask_before;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::sigaddset(&blocked, SIGCHLD);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &mask_before);

    const pid_t child = start_script("exec grep ^Sig[BI] /proc/self/status");

    sigset_t mask_after;
    ::pthread_sigmask(SIG_SETMASK, &mask_before, &mask_after);
    ::sigaction(SIGPIPE, &pipe_before, nullptr);
    ::sigaction(SIGQUIT, &quit_before, nullptr);
    ASSERT_GT(child, 0);
    EXPECT_EQ(wait_for(child), 0);
    EXPECT_EQ(read_output(), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
    EXPECT_TRUE(::sigismember(&mask_after, SIGTERM));  // the caller's own mask is as it was
    EXPECT_FALSE(::sigismember(&mask_after, SIGINT));
}

TEST_F(ChildProgram, LeavesTheServiceSOwnDispositionsAlone) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction before = {};
    ::sigaction(SIGPIPE, &ignore, &before);
    wait_for(start_script("exit 0"));
    struct sigaction after = {};
    ::sigaction(SIGPIPE, &before, &after);
    EXPECT_EQ(after.sa_handler, ignore.sa_handler);
}

TEST_F(ChildProgram, HasDescriptors0To2Only) {
    // Deliberately inheritable, as one that the service's own starter left open.
    const owned_fd leaked(::fcntl(STDIN_FILENO, F_DUPFD, 50));
    ASSERT_TRUE(leaked);
    // ls itself opens the directory as the next descriptor.
    wait_for(start_script("exec ls /proc/self/fd"));
    EXPECT_EQ(read_output(), "0\n1\n2\n3\n");
}

TEST_F(ChildProgram, HasDescriptors0To2OnlyOnAnOldKernel) {
    const owned_fd leaked(::fcntl(STDIN_FILENO, F_DUPFD, 50));
    ASSERT_TRUE(leaked);
    g_oldKernel = true;
    wait_for(start_script("exec ls /proc/self/fd"));
    g_oldKernel = false;
    EXPECT_EQ(read_output(), "0\n1\n2\n3\n");
}

// What was opened before the limit was lowered lies beyond any count up to the limit.
TEST_F(ChildProgram, HasNoDescriptorAboveTheLimitEither) {
    if (::syscall(SYS_close_range, ~0U, ~0U, 0) != 0) {
        GTEST_SKIP() << "this kernel cannot close a range of descriptors";
    }
    const owned_fd leaked(::fcntl(STDIN_FILENO, F_DUPFD, 150));
    ASSERT_TRUE(leaked);
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit lowered = {100, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
    wait_for(start_script("exec ls /proc/self/fd"));
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(read_output(), "0\n1\n2\n3\n");
}

TEST_F(ChildProgram, GetsTheGivenDescriptorAsItsStandardInput) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const owned_fd reader(ends[0]);
    owned_fd writer(ends[1]);
    ASSERT_EQ(::write(writer.get(), "argument", 8), 8);
    const pid_t child = start_script("exec cat", reader.get());
    writer.reset();
    wait_for(child);
    EXPECT_EQ(read_output(), "argument");
}

TEST_F(ChildProgram, HasExactlyTheGivenEnvironment) {
    ::setenv("VELTRANCORD_TEST", "inherited", 1);
    const pid_t child = start_script("{ tr '\\0' '\\n' < /proc/$$/environ; true; }");
    ::unsetenv("VELTRANCORD_TEST");
    wait_for(child);
    EXPECT_EQ(read_output(), "PATH=/usr/bin:/bin\n");
}

TEST_F(ChildProgram, EndsWithStatus1WhenItCannotBeExecuted) {
    std::string name = "missing";
    std::array<char*, 2> arguments = {name.data(), nullptr};
    std::array<char*, 1> environment = {nullptr};
    program_start start;
    start.path = "/nonexistent/program";
    start.arguments = arguments.data();
    start.environment = environment.data();
    testing::internal::CaptureStderr();
    const pid_t silent = start_program(start);
    EXPECT_EQ(wait_for(silent), 1 << 8);
    start.report_exec_failure = true;
    const pid_t talking = start_program(start);
    EXPECT_EQ(wait_for(talking), 1 << 8);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "execve: No such file or directory\n");
}

TEST_F(ChildProgram, TellsTheCallerThatItCouldNotBeForked) {
    // In a process of its own, which may start no other: limits cannot be raised again by all.
    const pid_t limited = ::fork();
    if (limited == 0) {
        // The superuser is not bound by the limit, so a user that nobody else is.
        const rlim_t none = 0;
        const rlimit limit = {none, none};
        if ((::geteuid() == 0 && ::setresuid(54321, 54321, 54321) != 0) ||
            ::setrlimit(RLIMIT_NPROC, &limit) != 0) {
            ::_exit(77);
        }
        errno = 0;
        const pid_t child = start_script("exit 0");
        const bool told = child == -1 && errno == EAGAIN;
        ::_exit(told && run_shell("exit 0") == -1 ? 0 : 1);
    }
    const int status = wait_for(limited);
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "this user's limits cannot be set";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(ChildProgram, ShellIsWaitedForWhateverItsStatus) {
    EXPECT_EQ(run_shell(("sleep 0.1; echo done > " + output()).c_str()), 0);
    EXPECT_EQ(read_output(), "done\n");
    EXPECT_EQ(run_shell("exit 3"), 0);
    EXPECT_EQ(run_shell("kill -9 $$"), 0);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);  // and is not left as a zombie
}

TEST_F(ChildProgram, ShellGetsTheServiceSEnvironment) {
    ::setenv("VELTRANCORD_TEST", "inherited", 1);
    EXPECT_EQ(run_shell(("echo $VELTRANCORD_TEST > " + output()).c_str()), 0);
    ::unsetenv("VELTRANCORD_TEST");
    EXPECT_EQ(read_output(), "inherited\n");
}

TEST_F(ChildProgram, ShellThatAnotherHasReapedCountsAsEnded) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;  // the kernel reaps at once
    struct sigaction before = {};
    ::sigaction(SIGCHLD, &ignore, &before);
    EXPECT_EQ(run_shell("exit 0"), 0);
    ::sigaction(SIGCHLD, &before, nullptr);
}

}  // namespace
}  // namespace veltrancord
