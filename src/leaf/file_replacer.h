// Replacing the content of a file so that at every instant the file is wholly the old one or wholly
// the new one, whatever is cut. Why it is done this way is told at the top of file_replacer.cpp.
//
// The routines keep no state between calls. A temporary file has one name for each file, so two
// threads must not replace the same file at once; the service replaces files on the server thread,
// and on the main thread before that one serves.
#pragma once

#include <climits>
#include <cstdint>
#include <string>
#include <string_view>

#include "leaf/owned_fd.h"

namespace veltrancord {

// What becomes of the name that a replacement is given.
enum class name_use : uint8_t {
    kept,       // the file is what the name leads to, links followed, and keeps mode and owner
    taken_over  // the name: whatever had it, a link included, is gone (but for a directory). For a
                // directory where everybody may put files: the new file is the service's own, and
                // nothing of anybody else's is opened or written
};

// One replacement: prepare() writes the new content aside, commit() puts it in place in one step.
// What was prepared and not committed vanishes with the object. Nothing is printed but by
// report_failure(): whether a failure is worth a line is the caller's to say.
class file_replacement {
  public:
    file_replacement() { target_[0] = temporary_[0] = '\0'; }
    file_replacement(const file_replacement&) = delete;
    file_replacement& operator=(const file_replacement&) = delete;
    ~file_replacement() { discard(); }

    // Writes `content`, as the future content of the file at `path`, into a temporary file beside
    // it and flushes it to the device. A symbolic link is followed (its target is what will be
    // replaced), but in a sticky directory that others may write to only one of the directory's
    // owner or of the service's own user; the same goes for each step of the path. Mode and owner
    // are those of the file that is there. Where that is no regular file (a device, a FIFO) nothing
    // is written aside: commit() writes it as it stands, and waits at most 2 s for a reader to
    // take the next part. `path` and `content` must stay until commit(). To be called once.
    //
    // Return: result_ok, or result_failed when the content cannot be written: nothing has changed
    // and nothing is left behind.
    [[nodiscard]] int32_t prepare(const char* path, std::string_view content,
                                  name_use use = name_use::kept);

    // After a prepare() that has failed for want of room: makes commit() write the file in place,
    // which needs none when the content is not longer than what is there. For a file that need not
    // survive a power cut meanwhile, since its content is to go.
    //
    // Return: whether that can be done.
    [[nodiscard]] bool settle_for_in_place();

    // Return: the path of the temporary file, to read the content back from before it is committed;
    // empty when no temporary file can be made in that place, so that the content can only be read
    // back from the file itself, after commit().
    [[nodiscard]] std::string prepared_path() const;

    // Puts the prepared content in place and flushes the directory. Where there can be no
    // replacement (the directory is not writable, the file is a mount point), the file is written
    // in place.
    //
    // Return: result_ok or result_failed; after a failure replaced() tells which content is there.
    [[nodiscard]] int32_t commit();

    // Whether the file has the new content. True after a failed commit() means that only the flush
    // of its directory failed: a power cut may still bring the old content back.
    [[nodiscard]] bool replaced() const { return replaced_; }

    // After a failure: whether it was already impossible to create the new file or to open the old
    // one for writing, so that not one byte was written anywhere.
    [[nodiscard]] bool creation_failed() const { return creation_failed_; }

    // After a failure: prints "replace_file <path> error : <reason>" on standard error.
    void report_failure() const;

  private:
    [[nodiscard]] bool find_target();
    [[nodiscard]] bool follow_link();
    [[nodiscard]] bool open_directory();
    [[nodiscard]] bool make_temporary();
    [[nodiscard]] bool keep_identity() const;
    [[nodiscard]] bool fill_temporary();
    [[nodiscard]] bool write_in_place();
    [[nodiscard]] bool write_as_it_stands(int fd) const;
    [[nodiscard]] int32_t commit_in_place();
    int32_t fail(int error);
    void discard();

    const char* path_ = nullptr;  // as the caller gave it
    std::string_view content_;
    name_use use_ = name_use::kept;
    // Neither array is cleared beyond its first byte: it would be 4 KB for each save.
    char target_[PATH_MAX];         // path_ with symbolic links followed
    const char* name_ = target_;    // the file's name, within target_
    char temporary_[NAME_MAX + 1];  // name of the temporary file while there is one, else empty
    owned_fd directory_;            // holds target and temporary file
    owned_fd file_;                 // the temporary file while it is being written
    bool exists_ = false;           // there is a file, and the next four are its own:
    bool regular_ = true;
    uint32_t mode_ = 0666;
    uint32_t owner_ = 0;
    uint32_t group_ = 0;
    bool replaced_ = false;
    bool creation_failed_ = false;
    bool damaged_ = false;  // writing in place has failed and the old content could not be put back
    int error_ = 0;         // why the last step failed
};

// Gives the file at `path` the content `content`; the file is created when it is missing.
//
// Return: result_ok, or result_failed after one line on standard error that names the file and the
// reason; the old content is then still there (but for a failed flush of the directory, see
// file_replacement::replaced), and nothing is left behind.
[[nodiscard]] int32_t replace_file(const char* path, std::string_view content);

// Whether a directory entry's name is that of a temporary file that a replacement cut in the middle
// may have left: such an entry is never a document and is never counted.
[[nodiscard]] bool is_replacement_leftover(std::string_view name);

// Removes what interrupted replacements left in `directory`: regular files of the name above and
// nothing else. Called once before anything is loaded. Prints nothing.
void clear_replacement_leftovers(const char* directory);

}  // namespace veltrancord
