#include "leaf/child_program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "leaf/message.h"

namespace veltrancord {

namespace {

constexpr int exec_failed_status = 1;
constexpr int first_private_descriptor = 3;

// Where the kernel has no close_range, closing stops here: a process that may open millions of
// descriptors would otherwise spend seconds on closing numbers that were never open.
constexpr long most_descriptors_closed = 65536;

// As execve's perror, with async-signal-safe calls alone.
void report_exec_failure(int error) {
    const char* const reason = ::strerrordesc_np(error);
    char line[128] = "execve: ";
    char* end = line + std::strlen(line);
    end = ::stpncpy(end, reason != nullptr ? reason : "Unknown error", sizeof line / 2);
    *end++ = '\n';
    print_error_text({line, static_cast<std::size_t>(end - line)});
}

// The child's way from the fork to the other program. It runs in the memory of the parent, which
// waits meanwhile: only async-signal-safe calls, nothing that is changed but the stack, errno and
// what the kernel keeps for the child alone.
[[noreturn]] void become_program(const program_start& start, long descriptor_limit) {
    struct sigaction standard = {};  // all zero: the default disposition
    for (int number = 1; number < NSIG; ++number) {
        ::sigaction(number, &standard, nullptr);
    }
    if (start.standard_input > STDIN_FILENO) {
        ::dup2(start.standard_input, STDIN_FILENO);
    }
    close_private_descriptors(descriptor_limit);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);

    ::execve(start.path, start.arguments, start.environment);
    if (start.report_exec_failure) {
        report_exec_failure(errno);
    }
    ::_exit(exec_failed_status);
}

}  // namespace

void close_private_descriptors(long limit) {
    if (::close_range(first_private_descriptor, UINT_MAX, 0) == 0) {
        return;
    }
    for (int fd = first_private_descriptor; fd < limit; ++fd) {
        ::close(fd);
    }
}

// Never inlined into the routine that forks: a compiler cannot know that what is in a register
// there outlives the child, and says so.
[[gnu::noinline]] long closing_limit() {
    const long limit = ::sysconf(_SC_OPEN_MAX);
    return limit < 0 || limit > most_descriptors_closed ? most_descriptors_closed : limit;
}

// The child borrows the parent's memory until it has become the other program: copying the page
// tables of a process that holds a configuration of many megabytes would cost more than all the
// rest of a command. Signals are blocked across the fork, so that none of the service's handlers
// can run in the child before its dispositions are the default ones.
pid_t start_program(const program_start& start) {
    const long descriptor_limit = closing_limit();
    sigset_t every;
    sigset_t before;
    ::sigfillset(&every);
    ::pthread_sigmask(SIG_SETMASK, &every, &before);
    const pid_t child = ::vfork();
    if (child == 0) {
        become_program(start, descriptor_limit);
    }
    const int fork_errno = errno;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = fork_errno;
    return child;
}

int32_t run_shell(const char* command) {
    char name[] = "sh";
    char option[] = "-c";
    // execve takes pointers to non-const for historical reasons and never writes through them.
    char* const arguments[] = {name, option, const_cast<char*>(command), nullptr};
    program_start shell;
    shell.path = "/bin/sh";
    shell.arguments = arguments;
    shell.environment = ::environ;
    const pid_t child = start_program(shell);
    if (child < 0) {
        return -1;
    }
    // ECHILD means that the main loop has reaped the shell first, so it has ended all the same.
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return 0;
}

}  // namespace veltrancord
