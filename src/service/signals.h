// Signals of the service's processes.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <csignal>

namespace veltrancord {

// A child has ended. Set by the SIGCHLD handler, cleared by reap_children.
inline std::atomic<bool> g_childExited{false};

// The listening socket that the termination handler closes; -1 while there is none. Set by the
// supervisor, inherited by its workers.
inline std::atomic<int> g_listeningFd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

// The one process whose termination shuts the listening socket down for all; 0: any. Set by a
// supervisor that restarts its workers: the next one needs the socket of the one before.
inline std::atomic<pid_t> g_listeningOwner{0};

// SIGPIPE is ignored from here on; SIGTERM and SIGHUP end the process with status 1 after its
// listening socket was closed, and shut down where g_listeningOwner lets it. Forked processes
// inherit all this.
void install_termination_handling();

// What a worker needs besides: SIGCHLD sets g_childExited.
void install_worker_signals();

// While it lives, every signal is blocked for the calling thread, and for the threads that it
// starts from their first instruction: so signals of the process go to the main thread alone.
class all_signals_blocked {
  public:
    all_signals_blocked();
    ~all_signals_blocked();
    all_signals_blocked(const all_signals_blocked&) = delete;
    all_signals_blocked& operator=(const all_signals_blocked&) = delete;

  private:
    sigset_t before_;
};

// Reaps every child that has ended, with a line on standard error for each. Does not wait.
void reap_children();

}  // namespace veltrancord
