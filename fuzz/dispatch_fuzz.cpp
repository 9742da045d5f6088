// Whole conversations: up to 24 requests, one after the other, each read off a socket, dispatched
// to the real commands over a small store, saved and answered. The pieces of an input are the
// payloads.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <string>

#include "access/filter.h"
#include "access/groups.h"
#include "access/permits.h"
#include "access/sessions.h"
#include "eventlog/event_log.h"
#include "fuzz_target.h"
#include "leaf/byte_order.h"
#include "leaf/owned_fd.h"
#include "sandbox.h"
#include "server/serving.h"
#include "service/commands.h"
#include "small_store.h"
#include "update/program_queue.h"

namespace veltrancord::fuzz {
namespace {

constexpr int most_requests = 24;
constexpr int32_t log_capacity = 5;  // small, so that it comes round

// The worker's state, as it is when the first request comes.
struct small_worker {
    small_worker() {
        g_event_log = event_log();
        require(g_event_log.start_with_capacity(event_log_path, log_capacity) == 0, "the log");
        server.listener.change_counter = &changes;
        server.listener.sessions = &sessions;
        server.commands = command_index(command_table());
        server.follow_ups = command_follow_ups();
        init_permit_list();
        init_group_list();
        init_filter_list();
        init_session_lists(sessions);
    }
    small_worker(const small_worker&) = delete;
    small_worker& operator=(const small_worker&) = delete;
    ~small_worker() {
        free_filter_list();
        free_group_list();
        free_permit_list();
    }

    small_store store;
    std::atomic<uint32_t> changes{0};
    session_lists sessions;
    request_server server;
};

int lowest_free_descriptor() {
    const int fd = ::open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    require(fd >= 0, "a descriptor");
    ::close(fd);
    return fd;
}

void receive_some(int fd, std::string& all) {
    char some[65536];
    for (ssize_t count = 0; (count = ::recv(fd, some, sizeof some, MSG_DONTWAIT)) > 0;) {
        all.append(some, static_cast<std::size_t>(count));
    }
}

std::string reply_to(request_server& server, std::string_view payload) {
    int ends[2];
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
    const owned_fd client(ends[0]);
    connection* const served = open_connection(server, owned_fd(ends[1]));
    require(served != nullptr, "memory for a connection");
    std::string frame = "?....";
    store_le32(reinterpret_cast<unsigned char*>(frame.data() + 1),
               static_cast<uint32_t>(payload.size()));
    frame += payload;
    require(::send(client.get(), frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
                static_cast<ssize_t>(frame.size()),
            "the socket takes it all");
    require(serve(*served), "memory to wait");
    require(server.clients.empty() || served->write_event != nullptr,
            "a whole request is served at once");
    // A long reply goes out piece by piece, whenever there is room.
    std::string all;
    receive_some(client.get(), all);
    while (!server.clients.empty()) {
        server.loop.run_pass();
        receive_some(client.get(), all);
    }
    return all;
}

void check_reply(std::string_view payload, const std::string& reply) {
    const std::string_view text = up_to_nul(payload);
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        require(reply.empty(), "no reply where there is no command");
        return;
    }
    require(reply.size() >= 4, "a reply's code");
    const auto code =
        static_cast<int32_t>(load_le32(reinterpret_cast<const unsigned char*>(reply.data())));
    require(reply.size() == 4 || (code > 0 && reply.size() - 4 == static_cast<std::size_t>(code)),
            "a reply's length");
    require(code >= -12, "a reply's code");
    static const command_index commands(command_table());
    if (commands.find(text.substr(0, colon)) < 0) {
        require(code == -4 && reply.size() == 4, "an unknown command");
    }
}

}  // namespace

void try_input(input_reader& input) {
    const sandbox inside;
    small_worker worker;
    static_cast<void>(refused_children());
    const int descriptor = lowest_free_descriptor();
    for (int turn = 0; turn < most_requests && !input.empty(); ++turn) {
        const std::string_view payload = input.piece();
        if (!payload.empty()) {
            check_reply(payload, reply_to(worker.server, payload));
            check_document_set();
            require(queued_programs() == 0, "the queue is empty between commands");
        }
    }
    require(lowest_free_descriptor() == descriptor, "every descriptor is closed");
    const std::string last = reply_to(worker.server, "maxlogcount:");
    require(last == std::string("\5\0\0\0", 4), "the service goes on");
}

}  // namespace veltrancord::fuzz
