// Trials: a change of settings that takes itself back unless somebody keeps it.
//
// A trial is written into the service's memory only, so that nothing of it is on flash: whatever
// cuts the power gives it back. Programs named by DispatchW are started with it, since that is what
// is tried. Before anything is written the former settings stand in a journal (trial_folder.h), so
// that any process can give them back; keeping a trial has the service save its memory.
//
// There is one trial for each folder, which means for each device. From begin() on a guard watches
// over it, a process of its own that outlives the one that has begun: it gives the former settings
// back when the time is over, and at once where it finds a document's settings as they were before,
// which is what a new worker of the service reads from flash: so their programs run once more. Who
// keeps, returns or guards does so under a lock, and first gives the journal a name that says what
// was decided: of a party that is killed the rest is finished by the guard, or by resume(), never
// undone and never done by two. The deadline counts in the kernel's own time, which nobody sets.
//
// What a trial cannot promise: another client's write to the same document, and anybody's
// syncmemtoflash, saves its settings too. Where a document's file was saved meanwhile, or cannot be
// seen, the former settings are saved when they are given back; until then a power cut keeps the
// tried ones. Keeping saves what others have changed in memory, too. What others write to the same
// places during the trial is overwritten when it is given back.
//
// All functions may be called by any thread, with a client that no other uses meanwhile; they print
// nothing and wait no longer than told: a lock and each exchange for client.timeout_ms.
#pragma once

#include <veltrancord/client.h>

#include <csignal>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "trial/former_settings.h"
#include "trial/trial_folder.h"

namespace veltrancord::trial {

struct setup {
    std::string folder = default_folder();
    // Where the service keeps its documents, to see whether one was saved meanwhile. Another folder
    // than the service's, or one that cannot be read, costs one more save when a trial is given
    // back.
    std::string documents = VELTRANCORD_DEFAULT_DIRECTORY;
    // The absolute path of the program that calls guard(), and its arguments from its name on; the
    // folder follows as the last one. It ends when the guard is there, a process that it has left
    // behind, or could not be made.
    std::string guard_program;
    std::vector<std::string> guard;
};

enum class trouble : uint8_t {
    none,
    system,        // a call on a file failed: `system_error`; the place is in `about`
    service,       // the service, or the exchange: `code`; `about` is a path, or empty
    another,       // another trial waits
    differs,       // `about` holds something else than the caller has seen; nothing was written
    not_writable,  // the former text of `about` could not be written back; nothing was written
    nothing,       // there is no trial, or no longer
    decided,       // it was decided otherwise already
    foreign,       // it is another user's, and has no guard that could do it
    no_guard,      // no guard could be started; nothing was written
    damaged        // the journal cannot be understood
};

struct [[nodiscard]] verdict {
    trouble what = trouble::none;
    std::string about;
    int32_t code = VELTRANCORD_OK;
    int system_error = 0;

    [[nodiscard]] bool good() const { return what == trouble::none; }
};

// A trial that this process has begun. Kept until it has learned the end: as long as it lives no
// other trial is mistaken for its own.
class ticket {
  public:
    [[nodiscard]] bool is_over() const;

    // How it ended; unknown before, and when another has ended since.
    [[nodiscard]] ending how_ended() const;

    // 0 when the time is over.
    [[nodiscard]] int64_t milliseconds_left() const;

    [[nodiscard]] ino_t journal() const { return journal_; }

  private:
    friend verdict begin(veltrancord_client& client, const setup& where,
                         const std::vector<change>& changes, int seconds, ticket& made);

    trial_folder folder_;
    owned_fd held_;
    ino_t journal_ = 0;
    int64_t deadline_ = 0;
};

// Begins a trial of `changes` (at least one) for so many seconds. Where the write itself fails,
// what it has done is given back at once, by the guard if the service does not answer now. `about`
// of a failed write is the first place that did not take its text.
verdict begin(veltrancord_client& client, const setup& where, const std::vector<change>& changes,
              int seconds, ticket& made);

// Keeps the trial, or gives it back; with a `journal` only the one that has it. Of another user's
// trial the guard does the rest, which is waited for as long as for the lock. Where the service
// does not answer the decision stands: the guard, or resume(), finishes it. `how` is the end, if it
// was reached.
verdict keep(veltrancord_client& client, const setup& where, std::optional<ino_t> journal,
             ending& how);
verdict give_back(veltrancord_client& client, const setup& where, std::optional<ino_t> journal,
                  ending& how);

// Finishes what a killed party, a new worker or a restart has left: what was decided is done; a
// trial that nobody guards, whose time is over, that comes from before the kernel's start, or that
// the service no longer holds, is given back. `nothing` where there is no trial; `how` stays
// unknown where it goes on under its guard.
verdict resume(veltrancord_client& client, const setup& where, ending& how);

// The guard's life: watches over the trial that there is, and returns when it is over. `ready` is
// called once when it may be relied on. `stop`, which a signal may set, gives back at once; where
// the service does not answer then, the trial is left to resume().
verdict guard(veltrancord_client& client, const setup& where, void (*ready)(),
              const volatile std::sig_atomic_t& stop);

struct state {
    phase how_far = phase::none;
    uid_t owner = 0;
    bool guarded = false;
    std::optional<int64_t> milliseconds_left;  // none: the journal is not ours to read
};

// Tells how far a trial is. A folder that is missing holds none.
verdict look(const setup& where, state& found);

}  // namespace veltrancord::trial
