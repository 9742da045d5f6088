#include "leaf/file_replacer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "leaf/result.h"

namespace {

// What the interposed system calls below do: record themselves, and fail where a test says so.
struct fault_plan {
    bool recording = false;
    std::vector<std::string> calls;
    std::string fail_call;
    int fail_error = 0;
    int skip = 0;       // calls of that name that pass before the first failure
    int failures = -1;  // how many times it fails; -1: for ever
    std::size_t longest_write = SIZE_MAX;
};
fault_plan g_plan;

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

// A definition in the program takes the place of the C library's, for the code under test too.
extern "C" {

ssize_t write(int fd, const void* bytes, size_t count) {
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
    return fails("openat") ? -1
                           : static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
}

int fchown(int fd, uid_t owner, gid_t group) noexcept {
    return fails("fchown") ? -1 : static_cast<int>(syscall(SYS_fchown, fd, owner, group));
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

class FileReplacer : public ::testing::Test {
  protected:
    void SetUp() override {
        g_plan = {};
        std::string name = (fs::temp_directory_path() / "file_replacer-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        dir_ = name;
        umask(022);
    }
    void TearDown() override {
        g_plan = {};
        fs::remove_all(dir_);
    }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    void put(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
    }

    std::string get(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(dir_)) {
            found.push_back(entry.path().filename().string());
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    mode_t mode(const std::string& name) const {
        struct stat status {};
        EXPECT_EQ(stat(path(name).c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    static void plan_failure(const char* call, int error, int failures = -1, int skip = 0) {
        g_plan.fail_call = call;
        g_plan.fail_error = error;
        g_plan.failures = failures;
        g_plan.skip = skip;
        g_plan.recording = true;
    }

    // Replaces with what is printed caught; the plan ends with the call.
    int32_t replace(const std::string& name, std::string_view content) {
        CaptureStderr();
        const int32_t result = replace_file(path(name).c_str(), content);
        g_plan.recording = false;
        printed_ = GetCapturedStderr();
        return result;
    }

    std::string line(const std::string& name, int error) const {
        return "replace_file " + path(name) + " error : " + strerror(error) + "\n";
    }

    fs::path dir_;
    std::string printed_;
};

// Runs `body` in a child process, so that it may change the process's rights and mounts.
int exit_status_of(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

constexpr int no_rights = 77;

// Mounts of its own for the calling process. Return: false where the machine does not allow it.
bool enter_own_mounts() {
    return (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// Gives up the rights that make a superuser's process write where it may not.
bool become_ordinary(const fs::path& owned) {
    if (geteuid() != 0) {
        return true;
    }
    for (const auto& entry : fs::recursive_directory_iterator(owned)) {
        if (lchown(entry.path().c_str(), 65534, 65534) != 0) {
            return false;
        }
    }
    return chown(owned.c_str(), 65534, 65534) == 0 && setgid(65534) == 0 && setuid(65534) == 0;
}

TEST_F(FileReplacer, ReplacesTheContent) {
    put("Account", "the old content, which is longer");
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(names(), std::vector<std::string>{"Account"});
    EXPECT_EQ(printed_, "");
}

TEST_F(FileReplacer, CreatesAMissingFileAsStdioWould) {
    umask(027);
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(mode("Account"), 0640U);
}

TEST_F(FileReplacer, WritesEmptyAndBinaryContent) {
    put("Account", "old");
    EXPECT_EQ(replace("Account", ""), result_ok);
    EXPECT_EQ(get("Account"), "");
    const std::string binary("a\0b\n", 4);
    EXPECT_EQ(replace("Account", binary), result_ok);
    EXPECT_EQ(get("Account"), binary);
}

TEST_F(FileReplacer, KeepsTheModeWhateverTheUmask) {
    put("Account", "old");
    for (const mode_t kept : {0600U, 0666U, 0640U, 0444U, 02664U}) {
        umask(077);
        ASSERT_EQ(chmod(path("Account").c_str(), kept), 0);
        EXPECT_EQ(replace("Account", "new"), result_ok);
        EXPECT_EQ(mode("Account"), kept);
    }
}

TEST_F(FileReplacer, KeepsOwnerAndSetIdBits) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    put("Account", "old");
    ASSERT_EQ(chown(path("Account").c_str(), 1234, 5678), 0);
    ASSERT_EQ(chmod(path("Account").c_str(), 04755), 0);
    EXPECT_EQ(replace("Account", "new"), result_ok);
    struct stat status {};
    ASSERT_EQ(stat(path("Account").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 5678U);
    EXPECT_EQ(status.st_mode & 07777, 04755U);
}

TEST_F(FileReplacer, NeedsTheseSystemCallsAndFlushesBeforeItRenames) {
    put("Account", "old");
    g_plan.recording = true;
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(g_plan.calls, (std::vector<std::string>{"openat", "write", "fsync", "renameat",
                                                      "fsync directory"}));
}

TEST_F(FileReplacer, FollowsALinkToItsTarget) {
    fs::create_directory(dir_ / "flash");
    put("flash/real", "old");
    fs::create_symlink("flash/real", dir_ / "Account");
    fs::create_symlink(dir_ / "Account", dir_ / "Second");
    EXPECT_EQ(replace("Second", "new"), result_ok);
    EXPECT_EQ(get("flash/real"), "new");
    EXPECT_TRUE(fs::is_symlink(dir_ / "Account"));
    EXPECT_TRUE(fs::is_symlink(dir_ / "Second"));
    EXPECT_EQ(names(), (std::vector<std::string>{"Account", "Second", "flash"}));
}

TEST_F(FileReplacer, CreatesTheTargetOfADanglingLink) {
    fs::create_directory(dir_ / "flash");
    fs::create_symlink("flash/real", dir_ / "Account");
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("flash/real"), "new");
    EXPECT_TRUE(fs::is_symlink(dir_ / "Account"));
}

TEST_F(FileReplacer, RefusesLinksInACircle) {
    fs::create_symlink("Other", dir_ / "Account");
    fs::create_symlink("Account", dir_ / "Other");
    EXPECT_EQ(replace("Account", "new"), result_failed);
    EXPECT_EQ(printed_, line("Account", ELOOP));
}

TEST_F(FileReplacer, RefusesAPathThatIsTooLong) {
    const std::string name(PATH_MAX, 'a');
    EXPECT_EQ(replace(name, "new"), result_failed);
    EXPECT_EQ(printed_, line(name, ENAMETOOLONG));
}

TEST_F(FileReplacer, RefusesAMissingDirectoryAndADirectory) {
    EXPECT_EQ(replace("missing/Account", "new"), result_failed);
    EXPECT_EQ(printed_, line("missing/Account", ENOENT));
    fs::create_directory(dir_ / "Account");
    EXPECT_EQ(replace("Account", "new"), result_failed);
    EXPECT_EQ(printed_, line("Account", EISDIR));
}

TEST_F(FileReplacer, NeverWaitsForAReaderOfAPipe) {
    ASSERT_EQ(mkfifo(path("Account").c_str(), 0600), 0);
    EXPECT_EQ(replace("Account", "new"), result_ok);  // opened both ways: nobody else is needed
    EXPECT_TRUE(fs::is_fifo(dir_ / "Account"));
    EXPECT_EQ(replace("Account", std::string(1 << 20, 'x')), result_failed);
    EXPECT_EQ(printed_, line("Account", EAGAIN));
}

TEST_F(FileReplacer, WorksOnAPathWithoutADirectory) {
    const fs::path before = fs::current_path();
    fs::current_path(dir_);
    EXPECT_EQ(replace_file("Account", "new"), result_ok);
    fs::current_path(before);
    EXPECT_EQ(get("Account"), "new");
}

TEST_F(FileReplacer, TakesTheLongestName) {
    const std::string name(NAME_MAX, 'a');
    put(name, "old");
    EXPECT_EQ(replace(name, "new"), result_ok);
    EXPECT_EQ(get(name), "new");
    EXPECT_EQ(names(), std::vector<std::string>{name});
}

TEST_F(FileReplacer, TakesThePlaceOfWhatAnEarlierOneLeft) {
    put("Account", "old");
    put(".veltrancord-new.Account", "half");
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(names(), std::vector<std::string>{"Account"});
}

TEST_F(FileReplacer, NeverWritesThroughAForeignLinkOfTheHelpersName) {
    put("Account", "old");
    put("victim", "untouched");
    fs::create_symlink("victim", dir_ / ".veltrancord-new.Account");
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(get("victim"), "untouched");
    EXPECT_TRUE(fs::is_symlink(dir_ / ".veltrancord-new.Account"));
}

TEST_F(FileReplacer, WritesOnAfterShortWrites) {
    put("Account", "old");
    g_plan.longest_write = 3;
    g_plan.recording = true;
    EXPECT_EQ(replace("Account", "0123456789"), result_ok);
    EXPECT_EQ(get("Account"), "0123456789");
}

TEST_F(FileReplacer, MakesInterruptedCallsAgain) {
    for (const char* call : {"openat", "write", "fsync", "fsync directory"}) {
        put("Account", "old");
        plan_failure(call, EINTR, 3);
        EXPECT_EQ(replace("Account", "new"), result_ok) << call;
        EXPECT_EQ(get("Account"), "new");
    }
}

TEST_F(FileReplacer, DoesNotRepeatAnInterruptedCallForEver) {
    put("Account", "old");
    plan_failure("write", EINTR);
    EXPECT_EQ(replace("Account", "new"), result_failed);
    EXPECT_EQ(printed_, line("Account", EINTR));
    EXPECT_EQ(get("Account"), "old");
}

TEST_F(FileReplacer, KeepsTheOldFileWhenTheNewOneCannotBeWritten) {
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

TEST_F(FileReplacer, LeavesNothingOfAFileThatDidNotExist) {
    for (const char* call : {"openat", "write", "fsync", "renameat"}) {
        for (const int error : {ENOSPC, EROFS, EACCES}) {
            plan_failure(call, error);
            EXPECT_EQ(replace("Account", "new"), result_failed) << call;
            EXPECT_EQ(printed_, line("Account", error)) << call;
            EXPECT_TRUE(names().empty()) << call;
        }
    }
}

TEST_F(FileReplacer, TellsOfAFailedFlushOfTheDirectory) {
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

TEST_F(FileReplacer, NeedsNoFlushWhereTheFileSystemHasNone) {
    for (const char* call : {"fsync", "fsync directory"}) {
        for (const int error : {EINVAL, ENOSYS, EOPNOTSUPP}) {
            put("Account", "old");
            plan_failure(call, error);
            EXPECT_EQ(replace("Account", "new"), result_ok);
            EXPECT_EQ(get("Account"), "new");
        }
    }
}

TEST_F(FileReplacer, WritesInPlaceWhereTheRenameIsRefused) {
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

TEST_F(FileReplacer, WritesInPlaceWhereNoHelperCanBeMade) {
    for (const int error : {EACCES, EPERM, EROFS, ENAMETOOLONG}) {
        put("Account", "old");
        plan_failure("openat", error, 1);
        EXPECT_EQ(replace("Account", "a longer new content"), result_ok);
        EXPECT_EQ(get("Account"), "a longer new content");
    }
}

TEST_F(FileReplacer, WritesInPlaceWhereTheOwnerCannotBeKept) {
    put("Account", "old");
    ASSERT_EQ(chmod(path("Account").c_str(), 0666), 0);
    plan_failure("fchmod", EPERM);
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(mode("Account"), 0666U);
    EXPECT_EQ(names(), std::vector<std::string>{"Account"});
}

TEST_F(FileReplacer, PutsTheOldContentBackWhenWritingInPlaceFails) {
    for (const char* call : {"write", "ftruncate", "fsync"}) {
        put("Account", "the old content");
        // The helper cannot be made, and the file fails once: what puts it back succeeds.
        ASSERT_EQ(mkdir(path(".veltrancord-new.Account").c_str(), 0700), 0);
        plan_failure(call, ENOSPC, 1);
        EXPECT_EQ(replace("Account", "new"), result_failed) << call;
        EXPECT_EQ(printed_, line("Account", ENOSPC));
        EXPECT_EQ(get("Account"), "the old content") << call;
        fs::remove(dir_ / ".veltrancord-new.Account");
    }
}

TEST_F(FileReplacer, SaysSoWhenAFileWrittenInPlaceMayBeDamaged) {
    put("Account", "the old content");
    ASSERT_EQ(mkdir(path(".veltrancord-new.Account").c_str(), 0700), 0);
    plan_failure("ftruncate", EIO);
    EXPECT_EQ(replace("Account", "new"), result_failed);
    EXPECT_EQ(printed_, "replace_file " + path("Account") + " error : " + strerror(EIO) +
                            ", the file may be damaged\n");
}

TEST_F(FileReplacer, WritesInPlaceInADirectoryWithoutWritePermission) {
    put("Account", "old");
    ASSERT_EQ(exit_status_of([&] {
                  if (!become_ordinary(dir_) || chmod(dir_.c_str(), 0555) != 0) {
                      return no_rights;
                  }
                  return replace_file(path("Account").c_str(), "new") == result_ok ? 0 : 1;
              }),
              0);
    chmod(dir_.c_str(), 0755);
    EXPECT_EQ(get("Account"), "new");
}

TEST_F(FileReplacer, FailsCleanlyWhereNothingMayBeWritten) {
    put("Account", "old");
    ASSERT_EQ(chmod(path("Account").c_str(), 0444), 0);
    ASSERT_EQ(exit_status_of([&] {
                  if (!become_ordinary(dir_) || chmod(dir_.c_str(), 0555) != 0) {
                      return no_rights;
                  }
                  return replace_file(path("Account").c_str(), "new") == result_failed ? 0 : 1;
              }),
              0);
    chmod(dir_.c_str(), 0755);
    EXPECT_EQ(get("Account"), "old");
}

TEST_F(FileReplacer, WritesABindMountedFileInPlace) {
    put("Account", "old");
    put("elsewhere", "the mounted content");
    const int status = exit_status_of([&] {
        if (!enter_own_mounts() || mount(path("elsewhere").c_str(), path("Account").c_str(),
                                         nullptr, MS_BIND, nullptr) != 0) {
            return no_rights;
        }
        return replace_file(path("Account").c_str(), "new") == result_ok ? 0 : 1;
    });
    if (status == no_rights) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(get("elsewhere"), "new");
    EXPECT_EQ(get("Account"), "old");
    EXPECT_EQ(names(), (std::vector<std::string>{"Account", "elsewhere"}));
}

TEST_F(FileReplacer, KeepsTheOldFileOnAFullFileSystem) {
    const int status = exit_status_of([&] {
        if (!enter_own_mounts() || mount("none", dir_.c_str(), "tmpfs", 0, "size=262144") != 0) {
            return no_rights;
        }
        const std::string old(100000, 'o');
        const std::string large(200000, 'n');
        const std::string small(120000, 'n');
        if (replace_file(path("Account").c_str(), old) != result_ok ||
            replace_file(path("Account").c_str(), large) != result_failed ||
            get("Account") != old || names().size() != 1) {
            return 1;
        }
        // Now with room, which the failed attempt must have given back.
        return replace_file(path("Account").c_str(), small) == result_ok && get("Account") == small
                   ? 0
                   : 2;
    });
    if (status == no_rights) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(FileReplacer, ReservesRoomBeforeItWritesInPlace) {
    const int status = exit_status_of([&] {
        if (!enter_own_mounts() || mount("none", dir_.c_str(), "tmpfs", 0, "size=262144") != 0) {
            return no_rights;
        }
        put("Account", "old");
        mkdir(path(".veltrancord-new.Account").c_str(), 0700);
        return replace_file(path("Account").c_str(), std::string(300000, 'n')) == result_failed &&
                       get("Account") == "old"
                   ? 0
                   : 1;
    });
    if (status == no_rights) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(FileReplacer, LeavesNoDescriptorOpen) {
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

TEST_F(FileReplacer, APreparedFileCanBeReadBackAndIsPutInPlaceByCommit) {
    put("Account", "old");
    file_replacement replacement;
    const std::string file = path("Account");
    ASSERT_EQ(replacement.prepare(file.c_str(), "new"), result_ok);
    EXPECT_EQ(replacement.prepared_path(), path(".veltrancord-new.Account"));
    EXPECT_EQ(get(".veltrancord-new.Account"), "new");
    EXPECT_EQ(get("Account"), "old");
    EXPECT_FALSE(replacement.replaced());
    EXPECT_EQ(replacement.commit(), result_ok);
    EXPECT_TRUE(replacement.replaced());
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(names(), std::vector<std::string>{"Account"});
}

TEST_F(FileReplacer, APreparedFileVanishesWithItsObject) {
    put("Account", "old");
    {
        file_replacement replacement;
        const std::string file = path("Account");
        ASSERT_EQ(replacement.prepare(file.c_str(), "new"), result_ok);
    }
    EXPECT_EQ(get("Account"), "old");
    EXPECT_EQ(names(), std::vector<std::string>{"Account"});
}

TEST_F(FileReplacer, WithoutAHelperThereIsNothingToReadBackFrom) {
    put("Account", "old");
    ASSERT_EQ(mkdir(path(".veltrancord-new.Account").c_str(), 0700), 0);
    file_replacement replacement;
    const std::string file = path("Account");
    ASSERT_EQ(replacement.prepare(file.c_str(), "new"), result_ok);
    EXPECT_EQ(replacement.prepared_path(), "");
    EXPECT_EQ(get("Account"), "old");
    EXPECT_EQ(replacement.commit(), result_ok);
    EXPECT_EQ(get("Account"), "new");
}

TEST_F(FileReplacer, TellsAFailureToCreateFromAFailureToWrite) {
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

TEST_F(FileReplacer, KnowsItsLeftoversByName) {
    EXPECT_TRUE(is_replacement_leftover(".veltrancord-new.Account"));
    for (const char* name : {"Account", ".veltrancord-new.", ".veltrancord-new", ".hidden", "",
                             "veltrancord-new.Account", "x.veltrancord-new.Account"}) {
        EXPECT_FALSE(is_replacement_leftover(name)) << name;
    }
}

TEST_F(FileReplacer, SweepsItsOwnRegularFilesOnly) {
    put("Account", "document");
    put(".hidden", "foreign");
    put(".veltrancord-new.", "foreign");
    put(".veltrancord-new.Account", "left");
    put(".veltrancord-new.Network", "");
    fs::create_directory(dir_ / ".veltrancord-new.Directory");
    fs::create_symlink("Account", dir_ / ".veltrancord-new.Link");
    ASSERT_EQ(mkfifo(path(".veltrancord-new.Pipe").c_str(), 0600), 0);
    clear_replacement_leftovers(dir_.c_str());
    EXPECT_EQ(names(), (std::vector<std::string>{
                           ".hidden", ".veltrancord-new.", ".veltrancord-new.Directory",
                           ".veltrancord-new.Link", ".veltrancord-new.Pipe", "Account"}));
    CaptureStderr();
    clear_replacement_leftovers(path("missing").c_str());
    EXPECT_EQ(GetCapturedStderr(), "");
}

}  // namespace
}  // namespace veltrancord
