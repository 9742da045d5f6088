#include "update/program_queue.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "leaf/result.h"
#include "support/loaded_directory.h"
#include "update/handlers.h"
#include "update/write_lines.h"

namespace veltrancord {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr char queued_line[] = "[XmlCheckDispatch]...\n";

class ProgramQueue : public LoadedDirectory {
  protected:
    void TearDown() override {
        CaptureStderr();
        run_program_queue();
        GetCapturedStderr();
        wait_for_programs();
        LoadedDirectory::TearDown();
    }

    // A script that tells, in a file beside it, what it was started with.
    std::string install(const std::string& name) {
        const std::string path = (base_ / name).string();
        put(path, "#!/bin/sh\n{ echo \"$0 $#\"; /usr/bin/env; /bin/cat; } > " + path +
                      ".part\n/bin/mv " + path + ".part " + path + ".seen\n");
        chmod(path.c_str(), 0755);
        return path;
    }

    [[nodiscard]] std::string seen(const std::string& name) const {
        return get(base_ / (name + ".seen"));
    }

    void load_programs(const std::string& first, const std::string& second) {
        load({{"Doc", ("<Doc><A DispatchW=\"" + first + "\">1</A><B DispatchW=\"" + first +
                       "\">1</B><C DispatchW=\"" + second + "\">1</C><D>1</D></Doc>")
                          .c_str()}});
    }

    static void wait_for_programs() {
        while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
        }
    }

    static void queue_written(std::string_view path, std::string_view argument) {
        XmlPath list;
        ASSERT_TRUE(SplitXmlPath(path, list));
        queue_program(*FindXmlElement(FindXmlDoc("Doc")->RootElement(), list), argument);
    }

    static std::string queue(std::string_view path, std::string_view argument) {
        CaptureStderr();
        queue_written(path, argument);
        return GetCapturedStderr();
    }
};

TEST_F(ProgramQueue, StartsAProgramOnceWithTheWholeArgument) {
    const std::string program = install("hook");
    load_programs(program, program);
    const std::string argument = "Doc.A=2\nDoc.B=3\nDoc.C=4\nDoc.D=5";
    CaptureStderr();
    EXPECT_EQ(write_lines(argument, true), 4);
    EXPECT_EQ(GetCapturedStderr(), queued_line);
    EXPECT_EQ(queued_programs(), 1U);
    run_program_queue();
    EXPECT_EQ(queued_programs(), 0U);
    wait_for_programs();
    const std::string told = seen("hook");
    EXPECT_TRUE(told.ends_with(argument)) << told;
    EXPECT_NE(told.find("PATH=/bin\n"), std::string::npos) << told;
}

TEST_F(ProgramQueue, EachOfTwoProgramsReadsTheWholeArgument) {
    load_programs(install("first"), install("second"));
    const std::string argument = "Doc.A=" + std::string(4000, 'x') + "\nDoc.C=1\n";
    CaptureStderr();
    EXPECT_EQ(write_lines(argument, false), 2);
    EXPECT_EQ(GetCapturedStderr(), std::string(queued_line) + queued_line);
    run_program_queue();
    wait_for_programs();
    EXPECT_TRUE(seen("first").ends_with(argument));
    EXPECT_TRUE(seen("second").ends_with(argument));
}

TEST_F(ProgramQueue, GivesNoArgumentsAndPathAsTheOnlyVariable) {
    const std::string path = (base_ / "show").string();
    put(path, "#!/bin/sh\n/usr/bin/tr '\\0' '\\n' < /proc/$$/environ > " + path + ".seen\n");
    chmod(path.c_str(), 0755);
    load_programs(path, path);
    queue("Doc.A", "x");
    run_program_queue();
    wait_for_programs();
    EXPECT_EQ(seen("show"), "PATH=/bin\n");
}

TEST_F(ProgramQueue, NamesTheProgramByTheLastPartOfItsPath) {
    // A shell takes its commands from the argument text and knows its own name.
    load_programs("/bin/sh", "/bin/true");
    queue("Doc.A", "echo \"$0 $#\" > " + (base_ / "sh.seen").string());
    run_program_queue();
    wait_for_programs();
    EXPECT_EQ(seen("sh"), "sh 0\n");
}

TEST_F(ProgramQueue, IgnoresElementsThatNameNoProgram) {
    load_programs("/bin/true", "/bin/true");
    EXPECT_EQ(queue("Doc.D", "x"), "");
    EXPECT_EQ(queued_programs(), 0U);
}

TEST_F(ProgramQueue, CutsAProgramPath) {
    const std::string longest = "/" + std::string(62, 'p');
    load_programs(longest + "1", longest + "2");
    EXPECT_EQ(queue("Doc.A", "x"), queued_line);
    EXPECT_EQ(queue("Doc.C", "x"), "");  // the same one, once both are cut
    EXPECT_EQ(queued_programs(), 1U);
}

TEST_F(ProgramQueue, AProgramThatIsNotThereIsNoFailure) {
    load_programs((base_ / "missing").string(), install("present"));
    queue("Doc.A", "x");
    queue("Doc.C", "x");
    CaptureStderr();
    run_program_queue();
    wait_for_programs();
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_TRUE(seen("present").ends_with("x"));
}

TEST_F(ProgramQueue, KeepsTheEntriesOfLinesBeforeAFailure) {
    load_programs(install("hook"), "/bin/true");
    CaptureStderr();
    EXPECT_EQ(write_lines("Doc.A=2\nMissing.x=1\nDoc.C=3", true), result_not_found);
    GetCapturedStderr();
    EXPECT_EQ(queued_programs(), 1U);
}

TEST_F(ProgramQueue, AProgramReadsNothingWhereTheTextCouldNotBeKept) {
    load_programs(install("hook"), "/bin/true");
    const auto run_without_descriptors = [] {
        rlimit limit{3, 64};
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            _exit(1);
        }
        queue_written("Doc.A", "never seen");
        limit.rlim_cur = 64;
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || queued_programs() != 1) {
            _exit(2);
        }
        run_program_queue();
        wait_for_programs();
        _exit(0);
    };
    EXPECT_EXIT(run_without_descriptors(), ::testing::ExitedWithCode(0),
                "^mkstemp: Too many open files\n\\[XmlCheckDispatch\\]...\n$");
    const std::string told = seen("hook");
    EXPECT_FALSE(told.empty());
    EXPECT_EQ(told.find("never seen"), std::string::npos);
}

TEST_F(ProgramQueue, SaysWhyAProgramCannotBeStarted) {
    load_programs("/bin/true", "/bin/false");
    const auto run_without_processes = [] {
        // The superuser's processes are not counted.
        if (geteuid() == 0 && setuid(65534) != 0) {
            _exit(3);
        }
        queue_written("Doc.A", "x");
        queue_written("Doc.C", "x");
        const rlimit limit{0, 0};
        if (setrlimit(RLIMIT_NPROC, &limit) != 0) {
            _exit(1);
        }
        run_program_queue();
        _exit(queued_programs() == 0 ? 0 : 2);
    };
    EXPECT_EXIT(run_without_processes(), ::testing::ExitedWithCode(0), "fork: .*\nfork: .*\n$");
}

TEST_F(ProgramQueue, HoldsTwoDescriptorsAtMostAndReleasesThem) {
    load_programs("/bin/true", "/bin/false");
    const auto open_descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const auto before = open_descriptors();
    CaptureStderr();
    queue_written("Doc.A", "x");
    queue_written("Doc.C", "x");
    GetCapturedStderr();
    EXPECT_EQ(open_descriptors(), before + 1);
    run_program_queue();
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
}  // namespace veltrancord
