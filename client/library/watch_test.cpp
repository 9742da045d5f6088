// Watching: files that are replaced in a directory, and a service that answers with what it holds.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <veltrancord/client.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "fake_service.h"

namespace veltrancord::test {
namespace {

// What a change says, in one line: "path: before -> after", "-" for what is not there.
std::string line_of(const veltrancord_change& change) {
    const auto shown = [](const char* value) { return value != nullptr ? value : "-"; };
    return std::string(change.path) + ": " + shown(change.before) + " -> " + shown(change.after);
}

// Those of the fake service, which come and go, are not counted.
int watching_descriptors() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;  // the one that the directory is read through has gone
        count += std::filesystem::read_symlink(entry, ignored) == "anon_inode:inotify" ? 1 : 0;
    }
    return count;
}

class Watch : public testing::Test {
  protected:
    Watch() : service_path_(scratch_.socket_path()), directory_(service_path_ + ".files") {
        EXPECT_EQ(mkdir(directory_.c_str(), 0700), 0);
        veltrancord_client_init(&client_);
        client_.socket_path = service_path_.c_str();
        client_.timeout_ms = 20000;
    }
    ~Watch() override {
        veltrancord_watch_end(watcher_);
        for (const std::string& file : files_) {
            (void)unlink(file.c_str());
        }
        (void)rmdir(directory_.c_str());
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    Watch(Watch&&) = delete;
    Watch& operator=(Watch&&) = delete;

    // Answers a read of `path` with `text` from now on; a path without an answer is not found.
    void hold(const std::string& path, const std::string& text) {
        const std::lock_guard<std::mutex> lock(guard_);
        held_[path] = text;
    }

    // As the service saves a document: under another name first.
    void save(const std::string& document) {
        const std::string helper = directory_ + "/.veltrancord-new." + document;
        std::ofstream(helper) << "<" << document << "/>";
        files_.push_back(directory_ + "/" + document);
        EXPECT_EQ(std::rename(helper.c_str(), files_.back().c_str()), 0);
    }

    int32_t watch(const std::vector<const char*>& paths, std::size_t cap = 100000) {
        return veltrancord_watch(&client_, paths.data(), paths.size(), directory_.c_str(), cap,
                                 &watcher_);
    }

    // What there is now, without waiting.
    std::vector<std::string> changes() {
        std::vector<std::string> found;
        veltrancord_change change{};
        int32_t result = 0;
        while ((result = veltrancord_watch_next(watcher_, 0, &change)) == 1) {
            found.push_back(line_of(change));
        }
        EXPECT_EQ(result, 0);
        return found;
    }

    void serve(int fd) {
        const std::string request = read_request(fd);
        const std::lock_guard<std::mutex> lock(guard_);
        ++reads_;
        const auto found = held_.find(request.substr(request.find(':') + 1));
        write_all(fd, found == held_.end()
                          ? reply_frame(-4)
                          : reply_frame(static_cast<int32_t>(found->second.size()), found->second));
    }

    using lines = std::vector<std::string>;

    scratch_directory scratch_;
    std::string service_path_;
    std::string directory_;
    std::vector<std::string> files_;
    std::mutex guard_;
    std::map<std::string, std::string> held_;
    std::atomic<int> reads_{0};
    veltrancord_client client_;
    veltrancord_watcher* watcher_ = nullptr;
};

TEST_F(Watch, TellsWhatCameChangedAndWent) {
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    hold("Net.*", "Net.Name=a\nNet.Mtu=1500\nNet.Old=x\n");
    ASSERT_EQ(watch({"Net.*"}), VELTRANCORD_OK);
    EXPECT_EQ(changes(), lines{});
    hold("Net.*", "Net.Name=a\nNet.Mtu=1400\nNet.New=\n");
    save("Net");
    EXPECT_EQ(changes(), (lines{"Net.Mtu: 1500 -> 1400", "Net.New: - -> ", "Net.Old: x -> -"}));
    EXPECT_EQ(changes(), lines{});
    save("Net");  // saved without a change
    EXPECT_EQ(changes(), lines{});
    hold("Net.*", "");
    save("Net");
    EXPECT_EQ(changes(), (lines{"Net.Mtu: 1400 -> -", "Net.Name: a -> -", "Net.New:  -> -"}));
}

TEST_F(Watch, APathThatIsNotThereMayComeAndGo) {
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    ASSERT_EQ(watch({"Net.Mtu"}), VELTRANCORD_OK);
    hold("Net.Mtu", "Net.Mtu=1");
    save("Net");
    EXPECT_EQ(changes(), lines{"Net.Mtu: - -> 1"});
    held_.clear();
    EXPECT_EQ(unlink((directory_ + "/Net").c_str()), 0);
    EXPECT_EQ(changes(), lines{"Net.Mtu: 1 -> -"});
}

TEST_F(Watch, ReadsOnlyThePathsOfTheDocumentThatWasSaved) {
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    ASSERT_EQ(watch({"A.x", "B.x", "*", "With_other.x"}), VELTRANCORD_OK);
    reads_ = 0;
    save("A");
    EXPECT_EQ(changes(), lines{});
    EXPECT_EQ(reads_, 3);  // A.x, *, and the name that the service keeps escaped
    save("C");
    EXPECT_EQ(changes(), lines{});
    EXPECT_EQ(reads_, 5);
    std::ofstream(directory_ + "/.veltrancord-new.A") << "cut off";
    files_.push_back(directory_ + "/.veltrancord-new.A");
    EXPECT_EQ(changes(), lines{});
    EXPECT_EQ(reads_, 5);
}

TEST_F(Watch, ValuesOfSeveralLinesAndSettingsOfOneNameAreComparedInTurn) {
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    hold("A.*", "A.t=one\ntwo\nA.u=1\nA.u=2\n");
    ASSERT_EQ(watch({"A.*"}), VELTRANCORD_OK);
    hold("A.*", "A.u=1\nA.u=3\nA.u=4\nA.t=one\n\nthree");
    save("A");
    EXPECT_EQ(changes(), (lines{"A.t: one\ntwo -> one\n\nthree", "A.u: 2 -> 3", "A.u: - -> 4"}));
}

TEST_F(Watch, AReadThatFailsIsTriedAgainAndNothingIsMissed) {
    client_.timeout_ms = 0;
    hold("A.*", "A.x=1\n");
    {
        const fake_service service(service_path_, [this](int fd) { serve(fd); });
        client_.timeout_ms = 20000;
        ASSERT_EQ(watch({"A.*"}), VELTRANCORD_OK);
    }
    client_.timeout_ms = 0;
    save("A");
    veltrancord_change change{};
    EXPECT_EQ(veltrancord_watch_next(watcher_, -1, &change), VELTRANCORD_UNREACHABLE);
    EXPECT_STREQ(client_.error.subject, service_path_.c_str());
    hold("A.*", "A.x=2\n");
    client_.timeout_ms = 20000;
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    EXPECT_EQ(changes(), lines{"A.x: 1 -> 2"});
}

TEST_F(Watch, TheDescriptorTellsWhenToLook) {
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    hold("A.x", "A.x=1");
    ASSERT_EQ(watch({"A.x"}), VELTRANCORD_OK);
    pollfd waited{veltrancord_watch_descriptor(watcher_), POLLIN, 0};
    EXPECT_EQ(poll(&waited, 1, 0), 0);
    hold("A.x", "A.x=2");
    save("A");
    EXPECT_EQ(poll(&waited, 1, -1), 1);
    EXPECT_EQ(changes(), lines{"A.x: 1 -> 2"});
    EXPECT_EQ(poll(&waited, 1, 0), 0);
}

TEST_F(Watch, ADirectoryThatGoesEndsTheWatch) {
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    ASSERT_EQ(watch({"A.x"}), VELTRANCORD_OK);
    EXPECT_EQ(rmdir(directory_.c_str()), 0);
    veltrancord_change change{};
    for (int call = 0; call < 2; ++call) {
        EXPECT_EQ(veltrancord_watch_next(watcher_, -1, &change), VELTRANCORD_SYSTEM_ERROR);
        EXPECT_EQ(client_.error.system_error, ENOENT);
        EXPECT_EQ(client_.error.subject, directory_);
    }
}

TEST_F(Watch, WhatCannotBeWatchedIsRefusedAndNothingIsLeftBehind) {
    const fake_service service(service_path_, [this](int fd) { serve(fd); });
    hold("A.*", "A.x=1234567890\n");
    EXPECT_EQ(watch({}), VELTRANCORD_INVALID_USE);
    EXPECT_EQ(watch({"A.x", "A=B"}), VELTRANCORD_PATH_HAS_EQUALS);
    EXPECT_EQ(client_.error.index, 1U);
    EXPECT_STREQ(client_.error.subject, "A=B");
    EXPECT_EQ(watch({"A.*"}, 14), VELTRANCORD_REPLY_OVER_CAP);
    EXPECT_EQ(client_.error.bound, 14U);
    const char* path = "A.*";
    EXPECT_EQ(veltrancord_watch(&client_, &path, 1, "/nonexistent/folder", 100, &watcher_),
              VELTRANCORD_SYSTEM_ERROR);
    EXPECT_EQ(client_.error.system_error, ENOENT);
    EXPECT_STREQ(client_.error.subject, "/nonexistent/folder");
    EXPECT_EQ(watcher_, nullptr);
    EXPECT_EQ(veltrancord_watch(&client_, &path, 1, nullptr, 100, nullptr),
              VELTRANCORD_INVALID_USE);
    EXPECT_EQ(watching_descriptors(), 0);
    EXPECT_EQ(watch({"A.*"}, 15), VELTRANCORD_OK);
    EXPECT_EQ(watching_descriptors(), 1);
}

}  // namespace
}  // namespace veltrancord::test
