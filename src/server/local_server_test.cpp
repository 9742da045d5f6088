#include "server/local_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "leaf/owned_fd.h"

namespace veltrancord {
namespace {

class LocalServer : public testing::Test {
  protected:
    LocalServer() {
        char name[] = "/tmp/local_server_test-XXXXXX";
        directory_ = ::mkdtemp(name);
        path_ = directory_ + "/socket";
    }
    ~LocalServer() override { std::filesystem::remove_all(directory_); }

    [[nodiscard]] owned_fd connect() const {
        owned_fd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
        if (::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) <
            0) {
            client.reset();
        }
        return client;
    }

    // What is printed when no socket can be made at `path`.
    static std::string failure_for(const std::string& path) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(create_local_server(path.c_str()), -1);
        return testing::internal::GetCapturedStderr();
    }

    // Releases a copy of the socket, as another process does that shares it.
    static std::string release_copy(const owned_fd& socket, socket_release release) {
        testing::internal::CaptureStderr();
        process_release(::fcntl(socket.get(), F_DUPFD_CLOEXEC, 0), release);
        return testing::internal::GetCapturedStderr();
    }

    std::string directory_;
    std::string path_;
};

TEST_F(LocalServer, ListensAtItsPath) {
    const owned_fd socket(create_local_server(path_.c_str()));
    EXPECT_TRUE(connect());
    EXPECT_NE(::fcntl(socket.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(socket.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(LocalServer, ReplacesWhatAnEarlierRunLeft) {
    owned_fd socket(create_local_server(path_.c_str()));
    socket.reset();
    socket.reset(create_local_server(path_.c_str()));
    EXPECT_TRUE(connect());
}

TEST_F(LocalServer, ReplacesAnEmptyDirectory) {
    std::filesystem::create_directory(path_);
    const owned_fd socket(create_local_server(path_.c_str()));
    EXPECT_TRUE(connect());
}

TEST_F(LocalServer, NamesADirectoryThatIsNotEmptyAndLeavesItAlone) {
    std::filesystem::create_directory(path_);
    std::ofstream(path_ + "/file") << "x";
    EXPECT_EQ(failure_for(path_), path_ +
                                      " is in the way: Directory not empty\n"
                                      "unable to bind: Address already in use");
    EXPECT_TRUE(std::filesystem::exists(path_ + "/file"));
}

TEST_F(LocalServer, ReportsAPathThatCannotBeBound) {
    EXPECT_EQ(failure_for(directory_ + "/missing/socket"),
              "unable to bind: No such file or directory");
}

TEST_F(LocalServer, ReportsAPathThatFitsNoAddress) {
    EXPECT_EQ(failure_for(std::string(108, 'x')), "unable to bind: File name too long");
}

TEST_F(LocalServer, ReportsThatNoSocketCanBeHad) {
    rlimit before = {};
    ::getrlimit(RLIMIT_NOFILE, &before);
    rlimit limited = before;
    testing::internal::CaptureStderr();
    limited.rlim_cur = 0;
    ::setrlimit(RLIMIT_NOFILE, &limited);
    EXPECT_EQ(create_local_server(path_.c_str()), -1);
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "socket: Too many open files");
}

TEST_F(LocalServer, ReleasedForAllLetsNobodyConnect) {
    const owned_fd socket(create_local_server(path_.c_str()));
    EXPECT_EQ(release_copy(socket, socket_release::for_all), "process release....\n");
    EXPECT_FALSE(connect());
}

TEST_F(LocalServer, GivenUpAsOneCopyGoesOnForTheOthers) {
    const owned_fd socket(create_local_server(path_.c_str()));
    EXPECT_EQ(release_copy(socket, socket_release::this_copy), "process release....\n");
    EXPECT_TRUE(connect());
}

TEST_F(LocalServer, ReleasePrintsEvenWithoutASocket) {
    testing::internal::CaptureStderr();
    process_release(-1, socket_release::for_all);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "process release....\n");
}

}  // namespace
}  // namespace veltrancord
