#include "server/event_loop.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "leaf/owned_fd.h"
#include "support/memory_seam.h"

namespace veltrancord {
namespace {

loop_moment g_now;  // what the loops under test take for the time

loop_moment test_clocks() {
    return g_now;
}

void advance(int64_t milliseconds) {
    for (loop_time* clock : {&g_now.wall, &g_now.steady}) {
        clock->microseconds += milliseconds * 1000;
        clock->seconds += clock->microseconds / 1'000'000;
        clock->microseconds %= 1'000'000;
    }
}

// Counts its calls and does what the test wants meanwhile.
struct probe {
    int calls = 0;
    void (*meanwhile)(probe&) = nullptr;
    event_loop* loop = nullptr;
    loop_event* own = nullptr;
    loop_event* other = nullptr;
    int fd = -1;

    static void call(void* argument) {
        probe& self = *static_cast<probe*>(argument);
        ++self.calls;
        if (self.meanwhile != nullptr) {
            self.meanwhile(self);
        }
    }
};

struct socket_pair {
    owned_fd near;
    owned_fd far;

    socket_pair() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        near.reset(ends[0]);
        far.reset(ends[1]);
    }
    void make_readable() const { EXPECT_EQ(::write(far.get(), "x", 1), 1); }
};

class EventLoopTime : public testing::Test {
  protected:
    EventLoopTime() { g_now = {{1'000'000, 999'000}, {5'000, 999'000}}; }

    // A pass that does not wait for the timers.
    void pass_without_waiting() {
        const socket_pair pair;
        probe reader;
        pair.make_readable();
        loop_event* ready =
            loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &reader);
        loop_.run_pass();
        loop_.remove(ready);
    }

    event_loop loop_{test_clocks};
};

TEST_F(EventLoopTime, OneShotTimerFiresOnceWhenLessThan5MsAreLeft) {
    probe timer;
    ASSERT_NE(loop_.add_timer(30'000, true, probe::call, &timer), nullptr);
    advance(29'995);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 0);
    advance(1);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 1);
    // Nothing else is in the loop: only a timer to end the wait.
    probe next;
    ASSERT_NE(loop_.add_timer(0, true, probe::call, &next), nullptr);
    advance(60'000);
    loop_.run_pass();
    EXPECT_EQ(next.calls, 1);
    EXPECT_EQ(timer.calls, 1);
}

TEST_F(EventLoopTime, PeriodicTimerKeepsItsBeat) {
    probe timer;
    ASSERT_NE(loop_.add_timer(1'000, false, probe::call, &timer), nullptr);
    advance(1'300);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 1);
    advance(694);  // 6 ms before two intervals have passed
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 1);
    advance(2);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 2);
}

TEST_F(EventLoopTime, TimerFiresEarlierWhenTheClockIsSetForward) {
    probe timer;
    ASSERT_NE(loop_.add_timer(30'000, true, probe::call, &timer), nullptr);
    g_now.wall.seconds += 30;
    pass_without_waiting();
    EXPECT_EQ(timer.calls, 1);
}

TEST_F(EventLoopTime, TimerFiresNoLaterWhenTheClockIsSetBack) {
    probe timer;
    ASSERT_NE(loop_.add_timer(30'000, true, probe::call, &timer), nullptr);
    advance(29'000);
    g_now.wall.seconds -= 3600;
    pass_without_waiting();
    EXPECT_EQ(timer.calls, 0);
    // One that is made after the step is due later, though it comes first by the wall clock.
    probe later;
    ASSERT_NE(loop_.add_timer(30'000, true, probe::call, &later), nullptr);
    advance(1'000);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 1);
    EXPECT_EQ(later.calls, 0);
    advance(29'000);
    loop_.run_pass();
    EXPECT_EQ(later.calls, 1);
}

// By the true clocks: the first pass waits for the first timer and not for the second.
TEST(EventLoopAlarm, IsSetForTheTimerThatIsDueFirstThoughTheClockWasSetBack) {
    static int64_t step;
    step = 0;
    event_loop loop([] {
        loop_moment now = clocks_now();
        now.wall.seconds += step;
        return now;
    });
    static event_loop* stopped;
    stopped = &loop;
    probe late;
    ASSERT_NE(loop.add_timer(
                  20, true, [](void* /*argument*/) { stopped->stop(); }, nullptr),
              nullptr);
    step = -3600;
    ASSERT_NE(loop.add_timer(600'000, true, probe::call, &late), nullptr);
    loop.run();
    EXPECT_EQ(late.calls, 0);
}

TEST_F(EventLoopTime, RemovedTimerDoesNotFire) {
    probe timer;
    loop_event* event = loop_.add_timer(10, true, probe::call, &timer);
    probe other;
    ASSERT_NE(loop_.add_timer(10, true, probe::call, &other), nullptr);
    loop_.remove(event);
    EXPECT_EQ(event, nullptr);
    advance(10);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 0);
    EXPECT_EQ(other.calls, 1);
}

TEST_F(EventLoopTime, TimerMayRemoveItselfAndOneThatIsDueToo) {
    probe first;
    probe second;
    // The newest is visited first.
    second.own = loop_.add_timer(10, false, probe::call, &second);
    first.own = loop_.add_timer(10, false, probe::call, &first);
    first.loop = &loop_;
    first.other = second.own;
    first.meanwhile = [](probe& self) {
        self.loop->remove(self.own);
        self.loop->remove(self.other);
    };
    advance(10);
    loop_.run_pass();
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 0);
}

TEST_F(EventLoopTime, TimerAddedByACallbackWaitsForTheNextPass) {
    probe timer;
    timer.loop = &loop_;
    timer.meanwhile = [](probe& self) {
        if (self.calls == 1) {
            EXPECT_NE(self.loop->add_timer(0, true, probe::call, &self), nullptr);
        }
    };
    ASSERT_NE(loop_.add_timer(0, true, probe::call, &timer), nullptr);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 1);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 2);
}

// The alarm that the first pass has set rings for a timer that is gone, and is set anew for the
// one that came after it.
TEST(EventLoopAlarm, EndsTheWaitForEachTimer) {
    event_loop loop;
    const socket_pair pair;
    probe silent;
    ASSERT_NE(loop.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &silent),
              nullptr);
    pair.make_readable();
    probe timer;
    loop_event* gone = loop.add_timer(20, true, probe::call, &timer);
    loop.run_pass();
    EXPECT_EQ(silent.calls, 1);
    loop.remove(gone);
    char byte = 0;
    ASSERT_EQ(::read(pair.near.get(), &byte, 1), 1);
    ASSERT_NE(loop.add_timer(40, true, probe::call, &timer), nullptr);
    int passes = 0;
    for (; timer.calls == 0; ++passes) {
        loop.run_pass();
    }
    EXPECT_LE(passes, 2);
    EXPECT_EQ(silent.calls, 1);
}

// An alarm that has ended one wait leaves the next ones alone, though it repeats itself.
TEST(EventLoopAlarm, IsSilencedWhenItHasRung) {
    event_loop loop;
    probe timer;
    ASSERT_NE(loop.add_timer(20, true, probe::call, &timer), nullptr);
    while (timer.calls == 0) {
        loop.run_pass();
    }
    const socket_pair pair;
    probe reader;
    ASSERT_NE(loop.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &reader),
              nullptr);
    std::thread later([&] {
        ::usleep(1'000'000);  // ten repetitions
        pair.make_readable();
    });
    int passes = 0;
    for (; reader.calls == 0; ++passes) {
        loop.run_pass();
    }
    later.join();
    // The alarm may have rung once more while nobody waited.
    EXPECT_LE(passes, 2);
}

TEST(EventLoopAlarm, IsNotNeededForATimerToFire) {
    rlimit before = {};
    ::getrlimit(RLIMIT_SIGPENDING, &before);
    const rlimit none = {0, before.rlim_max};
    ::setrlimit(RLIMIT_SIGPENDING, &none);
    event_loop loop;
    probe timer;
    ASSERT_NE(loop.add_timer(20, true, probe::call, &timer), nullptr);
    loop.run_pass();
    EXPECT_EQ(timer.calls, 1);
    ::setrlimit(RLIMIT_SIGPENDING, &before);
}

TEST_F(EventLoopTime, StopEndsTheRunAndLeavesOutTheRestOfThePass) {
    probe left_out;
    probe stopping;
    ASSERT_NE(loop_.add_timer(0, false, probe::call, &left_out), nullptr);
    ASSERT_NE(loop_.add_timer(0, false, probe::call, &stopping), nullptr);
    const socket_pair pair;
    pair.make_readable();
    ASSERT_NE(loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &left_out),
              nullptr);
    stopping.loop = &loop_;
    stopping.meanwhile = [](probe& self) { self.loop->stop(); };
    loop_.run();
    EXPECT_EQ(stopping.calls, 1);
    EXPECT_EQ(left_out.calls, 0);
}

class EventLoopDescriptors : public testing::Test {
  protected:
    void pass_without_waiting() {
        loop_event* timer = loop_.add_timer(
            0, true, [](void* /*argument*/) {}, nullptr);
        ASSERT_NE(timer, nullptr);
        loop_.run_pass();
    }
    event_loop loop_;
};

TEST_F(EventLoopDescriptors, FireInEveryPassInWhichTheyAreReady) {
    const socket_pair pair;
    probe reader;
    ASSERT_NE(loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &reader),
              nullptr);
    pass_without_waiting();
    EXPECT_EQ(reader.calls, 0);
    pair.make_readable();
    pass_without_waiting();
    pass_without_waiting();
    EXPECT_EQ(reader.calls, 2);
}

// It has no place in the array for poll yet, and must not be taken for who has the first one there.
TEST_F(EventLoopDescriptors, MadeByATimerTakePartFromTheNextPassOn) {
    const socket_pair ready;
    const socket_pair silent;
    ready.make_readable();
    probe reader;
    loop_event* read =
        loop_.add_descriptor(ready.near.get(), watch_direction::read, probe::call, &reader);
    static probe newcomer;
    newcomer = {};
    probe timer;
    timer.loop = &loop_;
    timer.fd = silent.near.get();
    timer.meanwhile = [](probe& self) {
        self.own =
            self.loop->add_descriptor(self.fd, watch_direction::read, probe::call, &newcomer);
    };
    loop_event* due = loop_.add_timer(0, true, probe::call, &timer);
    loop_.run_pass();
    EXPECT_EQ(timer.calls, 1);
    EXPECT_EQ(reader.calls, 1);
    EXPECT_EQ(newcomer.calls, 0);
    loop_.remove(read);
    loop_.remove(timer.own);
    static_cast<void>(due);
}

TEST_F(EventLoopDescriptors, AreWatchedForTheirOwnDirection) {
    const socket_pair pair;
    probe reader;
    probe writer;
    ASSERT_NE(loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &reader),
              nullptr);
    ASSERT_NE(loop_.add_descriptor(pair.near.get(), watch_direction::write, probe::call, &writer),
              nullptr);
    pass_without_waiting();
    EXPECT_EQ(reader.calls, 0);
    EXPECT_EQ(writer.calls, 1);
}

TEST_F(EventLoopDescriptors, FireWhenThePeerIsGone) {
    socket_pair pair;
    probe reader;
    ASSERT_NE(loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &reader),
              nullptr);
    pair.far.reset();
    pass_without_waiting();
    EXPECT_EQ(reader.calls, 1);
}

// The newest is visited first and takes itself and the older one along, both ready: as when a
// connection is released while its other events are still to come.
TEST_F(EventLoopDescriptors, CallbackMayDestroyItselfAndTheNextOne) {
    const socket_pair pair;
    pair.make_readable();
    probe next;
    auto* destroyed = new probe;
    next.own = loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &next);
    destroyed->loop = &loop_;
    destroyed->other = next.own;
    destroyed->own =
        loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, destroyed);
    static int destroyed_calls;
    destroyed_calls = 0;
    destroyed->meanwhile = [](probe& self) {
        ++destroyed_calls;
        self.loop->remove(self.own);
        self.loop->remove(self.other);
        delete &self;
    };
    pass_without_waiting();
    pass_without_waiting();
    EXPECT_EQ(destroyed_calls, 1);
    EXPECT_EQ(next.calls, 0);
}

// A descriptor closed and given out again within one pass: the old event was for another file.
TEST_F(EventLoopDescriptors, DoNotFireForANumberThatWasGivenOutAgain) {
    const socket_pair first;
    socket_pair second;
    first.make_readable();
    second.make_readable();
    probe old;
    old.own = loop_.add_descriptor(second.near.get(), watch_direction::read, probe::call, &old);
    probe closing;
    closing.own =
        loop_.add_descriptor(first.near.get(), watch_direction::read, probe::call, &closing);
    closing.loop = &loop_;
    closing.other = old.own;
    closing.fd = second.near.get();
    static socket_pair* closed;
    closed = &second;
    static owned_fd again;
    closing.meanwhile = [](probe& self) {
        if (self.calls == 1) {
            self.loop->remove(self.other);
            closed->near.reset();
            again.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
            EXPECT_EQ(again.get(), self.fd);
        }
    };
    pass_without_waiting();
    EXPECT_EQ(closing.calls, 1);
    EXPECT_EQ(old.calls, 0);
    again.reset();
}

TEST_F(EventLoopDescriptors, NewestFiresFirst) {
    const socket_pair pair;
    pair.make_readable();
    static std::string order;
    order.clear();
    for (const char* name : {"a", "b", "c"}) {
        ASSERT_NE(loop_.add_descriptor(
                      pair.near.get(), watch_direction::read,
                      [](void* argument) { order += static_cast<const char*>(argument); },
                      const_cast<char*>(name)),
                  nullptr);
    }
    pass_without_waiting();
    EXPECT_EQ(order, "cba");
}

TEST_F(EventLoopDescriptors, MayBeFarMoreThanASelectSetHolds) {
    std::vector<socket_pair> pairs(600);
    const owned_fd high(::fcntl(pairs.back().near.get(), F_DUPFD_CLOEXEC, 1500));
    if (!high) {
        GTEST_SKIP() << "this process may not open that many descriptors";
    }
    std::vector<probe> readers(pairs.size() + 1);
    for (std::size_t at = 0; at < pairs.size(); ++at) {
        ASSERT_NE(loop_.add_descriptor(pairs[at].near.get(), watch_direction::read, probe::call,
                                       &readers[at]),
                  nullptr);
    }
    ASSERT_NE(loop_.add_descriptor(high.get(), watch_direction::read, probe::call, &readers.back()),
              nullptr);
    pairs.front().make_readable();
    pairs.back().make_readable();
    pass_without_waiting();
    int calls = 0;
    for (const probe& reader : readers) {
        calls += reader.calls;
    }
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(readers.front().calls, 1);
    EXPECT_EQ(readers.back().calls, 1);
}

// Those that are gone take no room in what poll is asked about.
TEST_F(EventLoopDescriptors, OneAfterTheOtherTakeTheRoomOfOne) {
    const socket_pair pair;
    probe reader;
    g_largest_allocation = 0;
    for (int count = 0; count < 1000; ++count) {
        loop_event* event =
            loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &reader);
        ASSERT_NE(event, nullptr);
        loop_.remove(event);
        pass_without_waiting();
    }
    EXPECT_LT(g_largest_allocation, 1000U);
}

TEST_F(EventLoopDescriptors, AndTimersAreRefusedWithoutMemory) {
    const socket_pair pair;
    probe reader;
    const no_memory_left none;
    EXPECT_EQ(loop_.add_descriptor(pair.near.get(), watch_direction::read, probe::call, &reader),
              nullptr);
    EXPECT_EQ(loop_.add_timer(1, true, probe::call, &reader), nullptr);
}

}  // namespace
}  // namespace veltrancord
