#include "service/waiting.h"

#include <signal.h>
#include <sys/times.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <string_view>

#include "leaf/message.h"

namespace veltrancord {

namespace {

void write_text(std::string_view text) {
    print_error_text(text);
}

void on_alarm(int number) {
    if (number != SIGALRM) {
        char digits[16];
        const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        write_text("Caught wrong signal: ");
        write_text({digits, static_cast<std::size_t>(end - digits)});
        write_text("\n");
    }
    write_text("Got sigalrm, do_sleep() will end\n");
}

}  // namespace

void do_sleep(unsigned seconds) {
    struct sigaction action = {};
    action.sa_handler = on_alarm;
    ::sigfillset(&action.sa_mask);
    // Blocked until the wait begins: an alarm that comes before it would be waited for for ever.
    sigset_t alarm_only;
    sigset_t before;
    ::sigemptyset(&alarm_only);
    ::sigaddset(&alarm_only, SIGALRM);
    ::pthread_sigmask(SIG_BLOCK, &alarm_only, &before);
    ::sigaction(SIGALRM, &action, nullptr);
    ::alarm(seconds);
    sigset_t waiting = before;
    ::sigdelset(&waiting, SIGALRM);
    ::sigsuspend(&waiting);
    print_output("sigsuspend() returned\n");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

int64_t millisecond_ticks() {
    struct tms unused;
    return static_cast<int64_t>(::times(&unused)) * 1000 / ::sysconf(_SC_CLK_TCK);
}

}  // namespace veltrancord
