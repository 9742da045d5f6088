#include "leaf/file_replacer.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "leaf/result.h"
#include "support/replaced_files.h"

namespace veltrancord {
namespace {

namespace fs = std::filesystem;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

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

TEST_F(FileReplacer, FollowsLinksOnTheWayToTheDirectory) {
    fs::create_directories(dir_ / "flash/xml");
    fs::create_symlink("flash", dir_ / "database");
    fs::create_symlink(dir_ / "database/xml", dir_ / "documents");
    put("flash/xml/Account", "old");
    EXPECT_EQ(replace("documents/Account", "new"), result_ok);
    EXPECT_EQ(get("flash/xml/Account"), "new");
    EXPECT_TRUE(fs::is_symlink(dir_ / "documents"));
}

// As root's log in a directory where everybody may put files, with a stranger's link in its place.
TEST_F(FileReplacer, FollowsNoStrangersLinkInAStickyDirectory) {
    constexpr uid_t stranger = 54321;
    fs::create_directories(dir_ / "open");
    fs::create_directories(dir_ / "etc");
    put("etc/passwd", "old");
    fs::create_symlink("../etc/passwd", dir_ / "open/log");
    fs::create_symlink("../etc", dir_ / "open/directory");
    const auto replaceable = [&](const char* name) { return replace(name, "new") == result_ok; };
    ASSERT_EQ(chmod(path("open").c_str(), 01777), 0);
    EXPECT_TRUE(replaceable("open/log"));  // our own
    put("etc/passwd", "old");
    if (geteuid() != 0 || lchown(path("open/log").c_str(), stranger, stranger) != 0 ||
        lchown(path("open/directory").c_str(), stranger, stranger) != 0) {
        GTEST_SKIP() << "only the superuser gives links away";
    }
    for (const char* name : {"open/log", "open/directory/passwd", "open/directory/fresh"}) {
        EXPECT_FALSE(replaceable(name)) << name;
        EXPECT_EQ(printed_, line(name, EACCES));
    }
    EXPECT_EQ(get("etc/passwd"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "etc"), fs::directory_iterator()), 1);
    // The directory's owner could put the file itself there.
    ASSERT_EQ(chown(path("open").c_str(), stranger, stranger), 0);
    EXPECT_TRUE(replaceable("open/log"));
    EXPECT_TRUE(replaceable("open/directory/passwd"));
    // And where others cannot put anything, a link is its owner's to lay.
    ASSERT_EQ(chown(path("open").c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(path("open").c_str(), 0755), 0);
    EXPECT_TRUE(replaceable("open/log"));
}

TEST_F(FileReplacer, TakesANameOverWithoutFollowingIt) {
    put("victim", "untouched");
    ASSERT_EQ(chmod(path("victim").c_str(), 0666), 0);
    fs::create_symlink("victim", dir_ / "Permit.db");
    fs::create_symlink("victim", dir_ / ".veltrancord-new.Permit.db");
    const std::string file = path("Permit.db");
    umask(027);
    for (int i = 0; i < 2; ++i) {  // a link, then a file
        file_replacement replacement;
        ASSERT_EQ(replacement.prepare(file.c_str(), "new", name_use::taken_over), result_ok);
        ASSERT_EQ(replacement.commit(), result_ok);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file)));
        EXPECT_EQ(get("Permit.db"), "new");
        EXPECT_EQ(mode("Permit.db"), 0640U);
        ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    }
    EXPECT_EQ(get("victim"), "untouched");
    EXPECT_EQ(names(), (std::vector<std::string>{"Permit.db", "victim"}));
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

TEST_F(FileReplacer, WaitsOnlySoLongForTheReaderOfAPipe) {
    ASSERT_EQ(mkfifo(path("Account").c_str(), 0600), 0);
    EXPECT_EQ(replace("Account", "new"), result_ok);  // opened both ways: nobody else is needed
    EXPECT_TRUE(fs::is_fifo(dir_ / "Account"));
    EXPECT_EQ(replace("Account", std::string(1 << 20, 'x')), result_failed);
    EXPECT_EQ(printed_, line("Account", EAGAIN));
}

TEST_F(FileReplacer, FillsAPipeAsFastAsItIsRead) {
    ASSERT_EQ(mkfifo(path("Account").c_str(), 0600), 0);
    // More than a pipe holds, so that only a reader that is waited for lets it end.
    const std::string content(1 << 20, 'x');
    const owned_fd pipe(open(path("Account").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::string received;
    std::thread reader([&] {
        char bytes[4096];
        while (received.size() < content.size()) {
            pollfd place = {pipe.get(), POLLIN, 0};
            if (poll(&place, 1, 10'000) <= 0) {
                break;
            }
            const ssize_t count = read(pipe.get(), bytes, sizeof bytes);
            if (count <= 0) {  // the writer has given up
                break;
            }
            received.append(bytes, static_cast<std::size_t>(count));
        }
    });
    EXPECT_EQ(replace("Account", content), result_ok);
    reader.join();
    EXPECT_TRUE(received == content);
}

TEST_F(FileReplacer, WritesADeviceAndAPipeAsTheyStand) {
    ASSERT_EQ(replace_file("/dev/null", "new"), result_ok);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_FALSE(fs::exists("/dev/.veltrancord-new.null"));

    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", dir_ / "Account");
    const owned_fd reader(open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    file_replacement replacement;
    const std::string file = path("Account");
    ASSERT_EQ(replacement.prepare(file.c_str(), "new"), result_ok);
    EXPECT_EQ(replacement.prepared_path(), "");
    EXPECT_EQ(replacement.commit(), result_ok);
    char bytes[8] = {};
    EXPECT_EQ(read(reader.get(), bytes, sizeof bytes), 3);
    EXPECT_STREQ(bytes, "new");
    EXPECT_EQ(names(), (std::vector<std::string>{"Account", "pipe"}));
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

TEST_F(FileReplacer, NeverWritesThroughAForeignLinkOfTheTemporaryFilesName) {
    put("Account", "old");
    put("victim", "untouched");
    fs::create_symlink("victim", dir_ / ".veltrancord-new.Account");
    EXPECT_EQ(replace("Account", "new"), result_ok);
    EXPECT_EQ(get("Account"), "new");
    EXPECT_EQ(get("victim"), "untouched");
    EXPECT_TRUE(fs::is_symlink(dir_ / ".veltrancord-new.Account"));
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

TEST_F(FileReplacer, WithoutATemporaryFileThereIsNothingToReadBackFrom) {
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
