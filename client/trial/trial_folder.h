// The folder of the trial: its journal, whose name says how far the trial is, two locks, and how
// the last trial ended.
//
//     trial            it waits for somebody to keep it
//     trial-keeping    somebody has said to keep it, which will be done
//     trial-returning  it is being given back, which will be done
//     lock             held (flock) by who does something with the trial
//     guard            held by the guard as long as it lives
//     last             the inode number of the last journal, and how that trial ended
//
// A rename is one step, so a party that is killed between two of them leaves a name that tells the
// next one what to finish. The journal is its maker's alone (0600), but a member of the folder's
// group can rename it, which is how he keeps or returns what another user has begun: the guard,
// who can read it, does the rest.
//
// An object is used by one thread. No descriptor travels into a child.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "leaf/owned_fd.h"

namespace veltrancord::trial {

enum class phase : uint8_t { none, waiting, keeping, returning };

enum class ending : uint8_t {
    unknown,
    kept,
    given_back,
    partly_given_back  // the service refused some of the former settings
};

// VELTRANCORD_TRIAL in the environment, else the folder that was built in. A program that runs with
// more rights than who started it takes the latter.
[[nodiscard]] std::string default_folder();

class trial_folder {
  public:
    // The journal that is there.
    struct found {
        phase how_far = phase::none;
        ino_t journal = 0;
        uid_t owner = 0;
    };

    // Opens the folder. Root makes it when it is missing, for the group "veltrancord" where there
    // is one, and whoever has named another one for himself. One that belongs to another user than
    // root or oneself, or that everybody may write to, is refused with EPERM.
    //
    // Return: false with errno set.
    [[nodiscard]] bool open(const std::string& path);

    // Takes the lock, waiting at most so long for who has it (negative: for ever). Return: false
    // with errno set, EAGAIN when the time is over.
    [[nodiscard]] bool lock(int milliseconds);
    void unlock() { lock_.reset(); }

    [[nodiscard]] found look() const;

    // Writes a journal, which is a file of one's own that is put in place as a whole. To be called
    // with the lock, and where there is none. Return: false with errno set.
    [[nodiscard]] bool put_journal(std::string_view text);

    // With the lock: gives the journal the name of another phase. Return: false with errno set.
    [[nodiscard]] bool set_phase(phase now, phase next);

    // Reads the journal. Return: false with errno set; EACCES: it is another user's.
    [[nodiscard]] bool read_journal(phase now, std::string& text) const;

    // A descriptor of the journal: as long as it is open no other file has the journal's number.
    // Empty with errno set.
    [[nodiscard]] owned_fd hold_journal(phase now) const;

    // With the lock: notes how the trial ended, and removes the journal. Return: false with errno
    // set.
    [[nodiscard]] bool end(phase now, ending how);

    // How the trial with this journal ended; unknown where another one has ended since.
    [[nodiscard]] ending how_ended(ino_t journal) const;

    // Makes this process the guard until it ends. Waits while another one is. Return: false with
    // errno set.
    [[nodiscard]] bool become_guard();
    [[nodiscard]] bool is_guarded() const;

  private:
    [[nodiscard]] bool make(const std::string& path) const;
    [[nodiscard]] owned_fd open_lock(const char* name) const;
    [[nodiscard]] bool put_file(const char* name, std::string_view text, mode_t mode);

    owned_fd folder_;
    owned_fd lock_;
    owned_fd guard_;
};

}  // namespace veltrancord::trial
