#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <utility>

#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "support/replaced_files.h"

namespace veltrancord {
namespace {

bool fails(const char* call) {
    if (!g_plan.recording) {
        return false;
    }
    g_plan.calls.emplace_back(call);
    if (g_plan.fail_call != call || g_plan.skip-- > 0 || g_plan.failures == 0) {
        return false;
    }
    if (g_plan.failures > 0) {
        --g_plan.failures;
    }
    errno = g_plan.fail_error;
    return true;
}

}  // namespace
}  // namespace veltrancord

using veltrancord::fails;
using veltrancord::g_plan;

// A definition in the program takes the place of the C library's, for the code under test too.
extern "C" {

ssize_t write(int fd, const void* bytes, size_t count) {
    if (fd == STDERR_FILENO) {  // a message about what has failed
        return syscall(SYS_write, fd, bytes, count);
    }
    if (fails("write")) {
        return -1;
    }
    const size_t allowed = g_plan.recording ? std::min(count, g_plan.longest_write) : count;
    return syscall(SYS_write, fd, bytes, allowed);
}

int fsync(int fd) {
    struct stat status {};
    const bool directory = fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    return fails(directory ? "fsync directory" : "fsync")
               ? -1
               : static_cast<int>(syscall(SYS_fsync, fd));
}

int renameat(int from, const char* name, int to, const char* new_name) noexcept {
    return fails("renameat") ? -1
                             : static_cast<int>(syscall(SYS_renameat, from, name, to, new_name));
}

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const bool looking = (flags & O_PATH) != 0;  // on the way to a directory
    return !looking && fails("openat")
               ? -1
               : static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
}

// As the kernel does it: a change of owner takes set-id bits away. Where a file only seems to have
// another owner there is nothing else to change.
int fchown(int fd, uid_t owner, gid_t group) noexcept {
    if (fails("fchown")) {
        return -1;
    }
    if (!g_plan.foreign_owner) {
        return static_cast<int>(syscall(SYS_fchown, fd, owner, group));
    }
    struct stat status {};
    return fstat(fd, &status) == 0
               ? static_cast<int>(syscall(SYS_fchmod, fd, status.st_mode & 01777))
               : -1;
}

int fstatat(int directory, const char* name, struct stat* status, int flags) noexcept {
    if (fails("fstatat")) {
        return -1;
    }
    const int follow = (flags & AT_SYMLINK_NOFOLLOW) != 0 ? O_NOFOLLOW : 0;
    const veltrancord::owned_fd entry(
        static_cast<int>(syscall(SYS_openat, directory, name, O_PATH | O_CLOEXEC | follow)));
    if (!entry || fstat(entry.get(), status) != 0) {
        return -1;
    }
    status->st_uid += g_plan.foreign_owner ? 1 : 0;
    return 0;
}

int fallocate(int fd, int mode, off_t offset, off_t length) {
    using real_call = int (*)(int, int, off64_t, off64_t);
    static const auto real = reinterpret_cast<real_call>(dlsym(RTLD_NEXT, "fallocate64"));
    return fails("fallocate") ? -1 : real(fd, mode, offset, length);
}

int fchmod(int fd, mode_t mode) noexcept {
    return fails("fchmod") ? -1 : static_cast<int>(syscall(SYS_fchmod, fd, mode));
}

int ftruncate(int fd, off_t length) noexcept {
    return fails("ftruncate") ? -1 : static_cast<int>(syscall(SYS_ftruncate, fd, length));
}

int unlinkat(int directory, const char* name, int flags) noexcept {
    return fails("unlinkat") ? -1 : static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
}
}

namespace veltrancord {
namespace {

namespace fs = std::filesystem;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class FileReplacerFault : public FileReplacer {};

TEST_F(FileReplacerFault, NeedsTheseSystemCallsAndFlushesBeforeItRenames) {
    put("Account", "old");
    g_plan.recording = true;
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(g_plan.calls, (std::vector<std::string>{"fstatat", "openat", "fallocate", "write",
                                                      "fsync", "renameat", "fsync directory"}));
}

TEST_F(FileReplacerFault, WritesOnAfterShortWrites) {
    put("Account", "old");
    g_plan.longest_write = 3;
    g_plan.recording = true;
    EXPECT_EQ(replace("Account", "0123456789"), result_ok);
    EXPECT_EQ(get("Account"), "0123456789");
}

TEST_F(FileReplacerFault, MakesInterruptedCallsAgain) {
    for (const char* call : {"openat", "fallocate", "write", "fsync", "fsync directory"}) {
        put("Account", "old");
        plan_failure(call, EINTR, 3);
        EXPECT_EQ(replace("Account", "new"), result_ok) << call;
        EXPECT_EQ(get("Account"), "new");
    }
}

TEST_F(FileReplacerFault, DoesNotRepeatAnInterruptedCallForEver) {
    put("Account", "old");
    plan_failure("write", EINTR);
    EXPECT_EQ(replace("Account", "new"), result_failed);
    EXPECT_EQ(printed_, line("Account", EINTR));
    EXPECT_EQ(get("Account"), "old");
}

TEST_F(FileReplacerFault, KeepsTheOldFileWhenTheNewOneCannotBeWritten) {
    for (const char* call : {"openat", "write", "fsync", "renameat"}) {
        for (const int error : {ENOSPC, EDQUOT, EIO, EMFILE}) {
            put("Account", "old");
            plan_failure(call, error);
            EXPECT_EQ(replace("Account", "new"), result_failed) << call;
            EXPECT_EQ(printed_, line("Account", error)) << call;
            EXPECT_EQ(get("Account"), "old") << call;
            EXPECT_EQ(names(), std::vector<std::string>{"Account"}) << call;
        }
    }
}

TEST_F(FileReplacerFault, WritesNothingWhereThereIsNoRoom) {
    for (const bool aside : {true, false}) {
        for (const int error : {ENOSPC, EDQUOT, EFBIG, EIO}) {
            put("Account", "old");
            if (!aside) {
                fs::create_directory(dir_ / ".veltrancord-new.Account");
            }
            plan_failure("fallocate", error);
            EXPECT_EQ(replace("Account", "a longer new content"), result_failed);
            EXPECT_EQ(printed_, line("Account", error));
            EXPECT_EQ(std::count(g_plan.calls.begin(), g_plan.calls.end(), "write"), 0);
            EXPECT_EQ(get("Account"), "old");
            fs::remove(dir_ / ".veltrancord-new.Account");
            EXPECT_EQ(names(), std::vector<std::string>{"Account"});
            g_plan.calls.clear();
        }
    }
}

TEST_F(FileReplacerFault, WritesWhereRoomCannotBeReserved) {
    for (const int error : {EOPNOTSUPP, ENOSYS}) {
        put("Account", "old");
        plan_failure("fallocate", error);
        EXPECT_EQ(replace("Account", "new"), result_ok);
        EXPECT_EQ(std::count(g_plan.calls.begin(), g_plan.calls.end(), "write"), 1);
        EXPECT_EQ(printed_, "");
        g_plan.calls.clear();
    }
}

// A file that cannot be looked at may have a mode and an owner to keep, or be a link to follow.
TEST_F(FileReplacerFault, SettlesForWritingInPlaceWhereAShorterContentHasNoRoomAside) {
    const std::string file = path("Account");
    put("Account", "the old content");
    for (const char* call : {"openat", "fallocate"}) {
        plan_failure(call, ENOSPC, 1);
        file_replacement replacement;
        ASSERT_EQ(replacement.prepare(file.c_str(), "the new one"), result_failed);
        ASSERT_TRUE(replacement.settle_for_in_place());
        EXPECT_EQ(replacement.commit(), result_ok) << call;
        EXPECT_EQ(get("Account"), "the new one");
        put("Account", "the old content");
    }
    for (const auto& [content, error] : {std::pair("a content that is longer", ENOSPC),
                                         std::pair("short", EIO), std::pair("short", EMFILE)}) {
        plan_failure("openat", error, 1);
        file_replacement replacement;
        ASSERT_EQ(replacement.prepare(file.c_str(), content), result_failed);
        EXPECT_FALSE(replacement.settle_for_in_place()) << content;
    }
    plan_failure("openat", ENOSPC, 1);
    file_replacement missing;
    const std::string other = path("missing");
    ASSERT_EQ(missing.prepare(other.c_str(), ""), result_failed);
    EXPECT_FALSE(missing.settle_for_in_place());
    EXPECT_EQ(get("Account"), "the old content");
}

// Where others may put files, what is in the way goes only when the new file is whole.
TEST_F(FileReplacerFault, KeepsWhatHadANameThatCannotBeTakenOver) {
    const std::string file = path("Permit.db");
    for (const char* call : {"openat", "fallocate", "write", "fsync", "renameat"}) {
        for (const int error : {ENOSPC, EACCES, EROFS}) {
            if (std::string_view(call) == "fallocate" && error != ENOSPC) {
                continue;
            }
            put("Permit.db", "old");
            plan_failure(call, error);
            file_replacement replacement;
            EXPECT_FALSE(replacement.prepare(file.c_str(), "new", name_use::taken_over) ==
                             result_ok &&
                         replacement.commit() == result_ok)
                << call;
            g_plan.recording = false;
            EXPECT_FALSE(replacement.replaced());
            EXPECT_EQ(get("Permit.db"), "old");
            EXPECT_EQ(names(), std::vector<std::string>{"Permit.db"});
        }
    }
}

TEST_F(FileReplacerFault, TakesOnlyAMissingFileForMissing) {
    for (const int error : {EACCES, EIO, ENOMEM}) {
        put("Account", "old");
        plan_failure("fstatat", error);
        EXPECT_EQ(replace("Account", "new"), result_failed);
        EXPECT_EQ(printed_, line("Account", error));
        EXPECT_EQ(get("Account"), "old");
    }
}

TEST_F(FileReplacerFault, KeepsSetIdBitsWhereTheOwnerChanges) {
    put("Account", "old");
    ASSERT_EQ(chmod(path("Account").c_str(), 06755), 0);
    g_plan.foreign_owner = true;
    EXPECT_EQ(replace("Account", "new"), result_ok);
    g_plan.foreign_owner = false;
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(mode("Account"), 06755U);
}

// In a user namespace a file may have an owner or a group without a number in it.
TEST_F(FileReplacerFault, WritesInPlaceWhereTheOwnerHasNoNumberHere) {
    put("Account", "old");
    struct stat before {};
    ASSERT_EQ(stat(path("Account").c_str(), &before), 0);
    g_plan.foreign_owner = true;
    plan_failure("fchown", EINVAL);
    EXPECT_EQ(replace("Account", "new"), result_ok);
    g_plan.foreign_owner = false;
    struct stat after {};
    ASSERT_EQ(stat(path("Account").c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(names(), std::vector<std::string>{"Account"});
}

TEST_F(FileReplacerFault, LeavesNothingOfAFileThatDidNotExist) {
    for (const char* call : {"openat", "write", "fsync", "renameat"}) {
        for (const int error : {ENOSPC, EROFS, EACCES}) {
            plan_failure(call, error);
            EXPECT_EQ(replace("Account", "new"), result_failed) << call;
            EXPECT_EQ(printed_, line("Account", error)) << call;
            EXPECT_TRUE(names().empty()) << call;
        }
    }
}

TEST_F(FileReplacerFault, TellsOfAFailedFlushOfTheDirectory) {
    put("Account", "old");
    plan_failure("fsync directory", EIO);
    file_replacement replacement;
    const std::string file = path("Account");
    ASSERT_EQ(replacement.prepare(file.c_str(), "new"), result_ok);
    CaptureStderr();
    EXPECT_EQ(replacement.commit(), result_failed);
    EXPECT_EQ(GetCapturedStderr(), "");
    CaptureStderr();
    replacement.report_failure();
    EXPECT_EQ(GetCapturedStderr(), line("Account", EIO));
    EXPECT_TRUE(replacement.replaced());
    EXPECT_FALSE(replacement.creation_failed());
    EXPECT_EQ(get("Account"), "new");
}

TEST_F(FileReplacerFault, NeedsNoFlushWhereTheFileSystemHasNone) {
    for (const char* call : {"fsync", "fsync directory"}) {
        for (const int error : {EINVAL, ENOSYS, EOPNOTSUPP}) {
            put("Account", "old");
            plan_failure(call, error);
            EXPECT_EQ(replace("Account", "new"), result_ok);
            EXPECT_EQ(get("Account"), "new");
        }
    }
}

TEST_F(FileReplacerFault, WritesInPlaceWhereTheRenameIsRefused) {
    for (const int error : {EBUSY, EXDEV, EPERM, EACCES, EROFS}) {
        put("Account", "the old content");
        struct stat before {};
        ASSERT_EQ(stat(path("Account").c_str(), &before), 0);
        plan_failure("renameat", error);
        EXPECT_EQ(replace("Account", "new"), result_ok);
        struct stat after {};
        ASSERT_EQ(stat(path("Account").c_str(), &after), 0);
        EXPECT_EQ(before.st_ino, after.st_ino);
        EXPECT_EQ(get("Account"), "new");
        EXPECT_EQ(names(), std::vector<std::string>{"Account"});
        EXPECT_EQ(printed_, "");
    }
}

TEST_F(FileReplacerFault, WritesInPlaceWhereNoTemporaryFileCanBeMade) {
    for (const int error : {EACCES, EPERM, EROFS, ENAMETOOLONG}) {
        put("Account", "old");
        plan_failure("openat", error, 1);
        EXPECT_EQ(replace("Account", "a longer new content"), result_ok);
        EXPECT_EQ(get("Account"), "a longer new content");
    }
}

TEST_F(FileReplacerFault, WritesInPlaceWhereTheOwnerCannotBeKept) {
    put("Account", "old");
    ASSERT_EQ(chmod(path("Account").c_str(), 0666), 0);
    plan_failure("fchmod", EPERM);
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(mode("Account"), 0666U);
    EXPECT_EQ(names(), std::vector<std::string>{"Account"});
}

TEST_F(FileReplacerFault, PutsTheOldContentBackWhenWritingInPlaceFails) {
    for (const char* call : {"write", "ftruncate", "fsync"}) {
        put("Account", "the old content");
        // The temporary file cannot be made, and the file fails once: what puts it back succeeds.
        ASSERT_EQ(mkdir(path(".veltrancord-new.Account").c_str(), 0700), 0);
        plan_failure(call, ENOSPC, 1);
        EXPECT_EQ(replace("Account", "new"), result_failed) << call;
        EXPECT_EQ(printed_, line("Account", ENOSPC));
        EXPECT_EQ(get("Account"), "the old content") << call;
        fs::remove(dir_ / ".veltrancord-new.Account");
    }
}

TEST_F(FileReplacerFault, SaysSoWhenAFileWrittenInPlaceMayBeDamaged) {
    put("Account", "the old content");
    ASSERT_EQ(mkdir(path(".veltrancord-new.Account").c_str(), 0700), 0);
    plan_failure("ftruncate", EIO);
    EXPECT_EQ(replace("Account", "new"), result_failed);
    EXPECT_EQ(printed_, "replace_file " + path("Account") + " error : " + strerror(EIO) +
                            ", the file may be damaged\n");
}

TEST_F(FileReplacerFault, LeavesNoDescriptorOpen) {
    put("Account", "old");
    const auto open_descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = open_descriptors();
    EXPECT_EQ(replace("Account", "new"), result_ok);
    for (const char* call : {"openat", "write", "fsync", "renameat", "fsync directory"}) {
        for (const int error : {EIO, EACCES}) {
            plan_failure(call, error);
            static_cast<void>(replace("Account", "new"));
        }
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(FileReplacerFault, TellsAFailureToCreateFromAFailureToWrite) {
    const std::string file = path("Account");
    for (const auto& [call, creation] :
         {std::pair("openat", true), std::pair("write", false), std::pair("fsync", false)}) {
        plan_failure(call, ENOSPC);
        file_replacement replacement;
        EXPECT_EQ(replacement.prepare(file.c_str(), "new"), result_failed);
        EXPECT_EQ(replacement.creation_failed(), creation) << call;
        EXPECT_FALSE(replacement.replaced());
    }
    g_plan.recording = false;
    const std::string missing = path("missing/Account");
    file_replacement replacement;
    EXPECT_EQ(replacement.prepare(missing.c_str(), "new"), result_failed);
    EXPECT_TRUE(replacement.creation_failed());

    put("Account", "old");
    plan_failure("openat", EACCES);
    file_replacement refused;
    EXPECT_EQ(refused.prepare(file.c_str(), "new"), result_ok);
    EXPECT_EQ(refused.commit(), result_failed);
    EXPECT_TRUE(refused.creation_failed());
}

}  // namespace
}  // namespace veltrancord
