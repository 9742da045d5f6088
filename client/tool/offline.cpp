#include "offline.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "exit_status.h"
#include "server/listener.h"
#include "server/local_server.h"
#include "server/serving.h"
#include "store/change.h"
#include "store/document_set.h"
#include "store/handlers.h"
#include "store/reply_capacity.h"
#include "update/handlers.h"
#include "update/program_queue.h"
#include "update/saving.h"

namespace veltrancord::tool {
namespace {

// What works on documents alone.
constexpr std::array commands = std::to_array<command_row>({
    {"read", read_handle, ""},
    {"readAndFilter", read_filter_handle, ""},
    {"readwithlevel", readwithlevel_handle, ""},
    {"readvalue", readvalue_handle, ""},
    {"readattr", readattr_handle, ""},
    {"readsingleattr", readsingleattr_handle, ""},
    {"write", write_handle, ""},
    {"writeattr", writeattr_handle, ""},
    {"remove", remove_handle, ""},
    {"upload", upload_handle, ""},
    {"download", download_handle, ""},
    {"restore", restore_handle, ""},
    {"syncxml", syncxml_handle, ""},
});

constexpr std::array<follow_up*, 1> follow_ups = {save_changed_documents};

void stop_serving(void* server) {
    static_cast<request_server*>(server)->loop.stop();
}

// Whoever ends the tool from its terminal does not end a save halfway.
void ignore_terminal() {
    for (const int number : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE}) {
        (void)signal(number, SIG_IGN);
    }
}

// The child: serves the working directory until `life` says that the tool has ended. Return: its
// exit status, 0 when all is saved.
int serve_documents(int listening, int life) {
    ignore_terminal();
    (void)dup2(STDERR_FILENO, STDOUT_FILENO);  // what is wrong with files is told there
    leave_programs_out();
    // Relative names, as those of an image's folder may be longer than a device's may be.
    if (LoadXmlDir(".") < 0) {
        return exit_failed;
    }
    scan_reply_capacity(".");
    std::atomic<uint32_t> changes{0};
    request_server server;
    server.listener.fd = listening;
    server.listener.change_counter = &changes;
    server.commands = command_index(commands);
    server.follow_ups = follow_ups;
    if (!start_listening(server) ||
        server.loop.add_descriptor(life, watch_direction::read, stop_serving, &server) == nullptr) {
        return exit_failed;
    }
    server.loop.run();
    return g_pendingSaves.flash ? exit_failed : exit_done;
}

}  // namespace

offline_service::~offline_service() {
    (void)end();
}

int offline_service::start(context& tool) {
    const owned_fd directory(open(tool.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) {
        return tool.fail_file(tool.root);
    }
    // The lock goes to the child with the descriptor, and is gone with the last of both.
    if (flock(directory.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return tool.fail_with(exit_failed, tool.root,
                              "a service, or another veltrancordctl, works on it");
    }
    char folder[] = "/tmp/veltrancordctl-XXXXXX";
    std::array<int, 2> ends{};
    if (mkdtemp(folder) == nullptr || pipe2(ends.data(), O_CLOEXEC) != 0) {
        return tool.fail_file("/tmp");
    }
    folder_ = folder;
    tool.socket_path = folder_ + "/socket";
    owned_fd child_life(ends[0]);
    life_.reset(ends[1]);
    const owned_fd listening(create_local_server(tool.socket_path.c_str()));
    child_ = listening ? fork() : -1;
    if (child_ == 0) {
        life_.reset();
        const int status = fchdir(directory.get()) == 0
                               ? serve_documents(listening.get(), child_life.get())
                               : static_cast<int>(exit_failed);
        (void)unlink(tool.socket_path.c_str());
        (void)rmdir(folder_.c_str());
        _exit(status);
    }
    return child_ > 0 ? static_cast<int>(exit_done) : tool.fail_file(tool.root);
}

// Return: whether the child has saved everything.
bool offline_service::end() {
    life_.reset();
    int status = 0;
    const bool ended = child_ <= 0 || waitpid(child_, &status, 0) == child_;
    child_ = -1;
    return ended && WIFEXITED(status) && WEXITSTATUS(status) == exit_done;
}

int offline_service::finish(context& tool, int status) {
    if (end() || status != exit_done) {
        return status;
    }
    return tool.fail_with(exit_failed, tool.root, "not everything could be saved");
}

}  // namespace veltrancord::tool
