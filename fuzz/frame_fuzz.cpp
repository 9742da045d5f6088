// Reading requests off a connection: whatever bytes come in whatever pieces, the handler gets what
// a reader of the simplest kind finds in them, or nothing.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "fuzz_target.h"
#include "leaf/byte_order.h"
#include "leaf/owned_fd.h"
#include "server/serving.h"

namespace veltrancord::fuzz {
namespace {

constexpr std::size_t most_bytes = 32768;  // fits the socket, since nobody reads it meanwhile

std::optional<std::string> g_argument;  // what the handler got

int32_t echo(connection_record& connection, command_argument argument, int32_t /*row*/) {
    g_argument = std::string(argument.text());
    require(connection.reply.open(most_bytes), "memory for a reply");
    require(connection.reply.append(*g_argument), "a reply within its bound");
    return static_cast<int32_t>(g_argument->size());
}

int32_t refuse(connection_record& /*connection*/, command_argument argument, int32_t row) {
    g_argument = std::string(argument.text());
    return -row;
}

constexpr std::array<command_row, 2> rows = {{{"e", echo, ""}, {"no", refuse, ""}}};

std::string code(int32_t number) {
    unsigned char bytes[4];
    store_le32(bytes, static_cast<uint32_t>(number));
    return {reinterpret_cast<const char*>(bytes), sizeof bytes};
}

// What the client must get; `argument` is what the handler must.
std::string expected_reply(const std::string& sent, std::optional<std::string>& argument) {
    const std::size_t start = sent.find('?');
    if (start == std::string::npos || sent.size() - start < 5) {
        return "";
    }
    std::size_t length = 0;
    for (std::size_t i = 4; i > 0; --i) {
        length = length << 8 | static_cast<unsigned char>(sent[start + i]);
    }
    if (length == 0 || sent.size() - start - 5 < length) {
        return "";
    }
    const std::string payload(up_to_nul(std::string_view(sent).substr(start + 5, length)));
    const std::size_t colon = payload.find(':');
    if (colon == std::string::npos) {
        return "";
    }
    const std::string name = payload.substr(0, colon);
    if (name != "e" && name != "no") {
        return code(-4);
    }
    argument = payload.substr(colon + 1);
    if (name == "no") {
        return code(-1);
    }
    return code(static_cast<int32_t>(argument->size())) + *argument;
}

// A client may announce four gigabytes; a sanitizer would clear the marks of each of them. Keeps
// what is announced below a mebibyte; large lengths have tests of their own.
void bound_length(std::string& sent) {
    const std::size_t start = sent.find('?');
    if (start != std::string::npos && sent.size() - start >= 5) {
        sent[start + 3] &= 0x0F;
        sent[start + 4] = 0;
    }
}

std::string receive_all(int fd) {
    std::string all;
    char some[4096];
    for (ssize_t count = 0; (count = ::recv(fd, some, sizeof some, MSG_DONTWAIT)) > 0;) {
        all.append(some, static_cast<std::size_t>(count));
    }
    return all;
}

void send_all(int fd, std::string_view bytes) {
    require(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
                static_cast<ssize_t>(bytes.size()),
            "the socket takes it all");
}

}  // namespace

void try_input(input_reader& input) {
    const bool in_pieces = input.byte() % 2 == 1;
    std::string sent(input.rest().substr(0, most_bytes));
    bound_length(sent);
    std::optional<std::string> argument;
    const std::string reply = expected_reply(sent, argument);
    g_argument.reset();

    static request_server server;
    server.commands = command_index(rows);
    int ends[2];
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
    const owned_fd client(ends[0]);
    connection* const served = open_connection(server, owned_fd(ends[1]));
    require(served != nullptr, "memory for a connection");
    const auto waits = [] { return !server.clients.empty(); };
    // What stands before the start code may come at any time before it.
    const std::size_t garbage = std::min(sent.find('?'), sent.size());
    if (in_pieces && garbage > 0) {
        send_all(client.get(), std::string_view(sent).substr(0, garbage));
        require(serve(*served) && waits(), "garbage is waited behind");
        sent.erase(0, garbage);
    }
    if (!sent.empty()) {
        send_all(client.get(), sent);
    }
    ::shutdown(client.get(), SHUT_WR);
    while (waits()) {
        require(serve(*served), "memory to wait");
    }
    require(g_argument == argument, "what the handler gets");
    require(receive_all(client.get()) == reply, "what the client gets");
}

}  // namespace veltrancord::fuzz
