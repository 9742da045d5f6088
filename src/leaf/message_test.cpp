#include "leaf/message.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "leaf/owned_fd.h"

namespace veltrancord {
namespace {

constexpr int line_count = 5000;
constexpr const char* line = "a line of fifty bytes, so that many of them fill it\n";

struct channel {
    owned_fd reader;
    owned_fd writer;
};

channel pipe_channel() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    return {owned_fd(ends[0]), owned_fd(ends[1])};
}

channel socket_channel() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {owned_fd(ends[0]), owned_fd(ends[1])};
}

channel terminal_channel() {
    owned_fd reader(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    char name[64] = "";
    EXPECT_EQ(::grantpt(reader.get()) | ::unlockpt(reader.get()) |
                  ::ptsname_r(reader.get(), name, sizeof name),
              0);
    owned_fd writer(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    return {std::move(reader), std::move(writer)};
}

// All that can be read now. A terminal makes line feeds of two characters.
std::string read_what_is_there(const owned_fd& reader) {
    ::fcntl(reader.get(), F_SETFL, O_NONBLOCK);
    std::string text;
    char some[4096];
    for (ssize_t count = 0; (count = ::read(reader.get(), some, sizeof some)) > 0;) {
        text.append(some, static_cast<std::size_t>(count));
    }
    std::erase(text, '\r');
    return text;
}

int lines_in(const std::string& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

// Runs `body` in a process of its own whose standard error and output lead into the channel.
template <typename Body>
void run_in_child(const channel& where, Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(where.writer.get(), STDERR_FILENO);
        ::dup2(where.writer.get(), STDOUT_FILENO);
        ::_exit(body());
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

struct message_case {
    const char* name;
    channel (*open)();
    bool prepared;
};

class FullChannel : public testing::TestWithParam<message_case> {};

// The child reads what it has printed itself, since nobody else may make room meanwhile.
TEST_P(FullChannel, HoldsNobodyUpAndTheMissingMessagesAreCounted) {
    const channel where = GetParam().open();
    run_in_child(where, [&where] {
        if (GetParam().prepared) {
            prepare_messages();
        }
        for (int count = 0; count < line_count; ++count) {
            print_error("%s", line);
        }
        const std::string printed = read_what_is_there(where.reader);
        print_error_text("once more\n");
        const std::string then = read_what_is_there(where.reader);
        const bool told = then.substr(then.find(' ')) ==
                          " messages were left out, as there was no room for them\nonce more\n";
        const int printed_lines = lines_in(printed);
        const bool counted =
            printed_lines > 50 && printed_lines + std::atoi(then.c_str()) == line_count;
        return told && counted ? 0 : 1;
    });
}

TEST_P(FullChannel, LeavesTheInheritedDescriptorAsItWas) {
    const channel where = GetParam().open();
    run_in_child(where, [] {
        if (GetParam().prepared) {
            prepare_messages();
        }
        print_error_text("text\n");
        return (::fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK) == 0 ? 0 : 1;
    });
}

INSTANTIATE_TEST_SUITE_P(Messages, FullChannel,
                         testing::Values(message_case{"Pipe", pipe_channel, true},
                                         message_case{"PipeNotPrepared", pipe_channel, false},
                                         message_case{"Socket", socket_channel, true}),
                         [](const auto& tested) { return tested.param.name; });

// A terminal hands on what was printed at its own pace, and takes parts of lines.
TEST(Message, IsNotHeldUpByATerminalThatNobodyReads) {
    const channel where = terminal_channel();
    run_in_child(where, [&where] {
        prepare_messages();
        for (int count = 0; count < line_count; ++count) {
            print_error("%s", line);
        }
        std::string then;
        while (then.find("\nonce more\n") == std::string::npos) {
            then += read_what_is_there(where.reader);
            print_error_text("once more\n");
        }
        return then.find(" messages were left out, as") != std::string::npos ? 0 : 1;
    });
}

// Between a look whether there is room and the write another process may take it.
TEST(Message, IsNotHeldUpByAnotherProcessThatFillsThePipe) {
    const channel where = pipe_channel();
    run_in_child(where, [] {
        prepare_messages();
        const pid_t other = ::fork();
        for (int count = 0; count < 20 * line_count; ++count) {
            print_error("%s", line);
        }
        if (other == 0) {
            ::_exit(0);
        }
        int status = -1;
        ::waitpid(other, &status, 0);
        return status;
    });
}

TEST(Message, OpensNothingForAFile) {
    const owned_fd file(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    run_in_child({owned_fd(), owned_fd(::dup(file.get()))}, [] {
        const owned_fd before(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        prepare_messages();
        const owned_fd after(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        print_error_text("error\n");
        print_output("%s\n", "output");
        return after.get() == before.get() + 1 ? 0 : 1;
    });
    char text[32] = "";
    EXPECT_EQ(::pread(file.get(), text, sizeof text, 0), 13);
    EXPECT_STREQ(text, "error\noutput\n");
}

TEST(Message, StaysALineWhereItIsCut) {
    constexpr std::size_t longest = 9215;
    testing::internal::CaptureStderr();
    print_error("%s\n", std::string(longest - 1, 'x').c_str());
    print_error("%s and more\n", std::string(longest, 'y').c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string(longest - 1, 'x') + "\n" + std::string(longest - 1, 'y') + "\n");
}

// A pipe that is writable has room for no more than this for sure.
TEST(Message, IsCutForAPipeThatCouldNotBeOpenedAgain) {
    const channel where = pipe_channel();
    run_in_child(where, [&where] {
        print_error("%s\n", std::string(PIPE_BUF, 'x').c_str());
        print_error_text("once more\n");
        return read_what_is_there(where.reader) ==
                       std::string(PIPE_BUF, 'x') +
                           "\n1 messages were left out, as there was no room for them\n"
                           "once more\n"
                   ? 0
                   : 1;
    });
}

TEST(Message, LeavesTheErrorNumberAsItWas) {
    const channel where = pipe_channel();
    run_in_child(where, [] {
        prepare_messages();
        for (int count = 0; count < line_count; ++count) {
            errno = ENOTEMPTY;
            print_error("%s", line);
            if (errno != ENOTEMPTY) {
                return 1;
            }
        }
        return 0;
    });
}

}  // namespace
}  // namespace veltrancord
