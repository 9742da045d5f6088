#include "running_service.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "leaf/owned_fd.h"
#include "process_facts.h"
#include "quiet_output.h"
#include "service/options.h"
#include "store/reply_capacity.h"

namespace veltrancord::tool {
namespace {

constexpr std::string_view service_name = "Veltrancord";

// A request that no command answers: '?', the length of what follows, and a name that there is not.
constexpr std::string_view question{"?\5\0\0\0ping:", 10};
static_assert(question[1] == question.size() - 5);

// The process that made the socket listen. Whoever connects only to learn that would be a client
// that left before its request, which the service complains of; so it is asked something. Return: 0
// where nobody listens.
int listener_of(const std::string& path) {
    const owned_fd client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (!client || path.size() >= sizeof address.sun_path) {
        return 0;
    }
    path.copy(address.sun_path, path.size());
    const timeval longest_wait{1, 0};
    for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO}) {
        (void)setsockopt(client.get(), SOL_SOCKET, option, &longest_wait, sizeof longest_wait);
    }
    ucred listener{};
    socklen_t size = sizeof listener;
    if (connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &listener, &size) != 0) {
        return 0;
    }
    if (send(client.get(), question.data(), question.size(), MSG_NOSIGNAL) > 0) {
        std::array<char, 64> reply{};
        while (recv(client.get(), reply.data(), reply.size(), 0) > 0) {
        }
    }
    return listener.pid;
}

bool is_service_name(std::string_view word) {
    const std::size_t slash = word.rfind('/');
    return (slash == std::string_view::npos ? word : word.substr(slash + 1)) == service_name;
}

// What follows the service's name: under an emulator or a checker others come before it.
std::vector<std::string> own_words(std::vector<std::string> words) {
    const auto name = std::find_if(words.begin(), words.end(), is_service_name);
    words.erase(words.begin(), name == words.end() ? words.begin() : name);
    return words;
}

// A path as the service has it, for use here. Return: false where that cannot be told.
bool take_path(int process, const char* given, std::string& path) {
    if (given[0] == '/') {
        path = given;
        return true;
    }
    const std::string folder = process_link(process, "cwd");
    path = folder + "/" + given;
    return !folder.empty();
}

// Whether the process sees the same file systems. Where that is not told, it is taken to.
bool shares_files(int process) {
    const std::string theirs = process_link(process, "ns/mnt");
    return theirs.empty() || theirs == process_link(getpid(), "ns/mnt");
}

void take_options(running_service& found) {
    std::vector<std::string> words = own_words(process_words(found.supervisor));
    if (words.empty()) {
        return;
    }
    found.program = words.front();
    std::vector<char*> arguments;
    std::transform(words.begin(), words.end(), std::back_inserter(arguments),
                   [](std::string& word) { return word.data(); });
    arguments.push_back(nullptr);
    service_options options;
    {
        const quiet_output quiet;  // it has said what it thinks of its options itself
        (void)parse_options(static_cast<int>(words.size()), arguments.data(), options);
    }
    std::string directory;
    std::string log_file;
    if (shares_files(found.supervisor) &&
        take_path(found.supervisor, options.xml_path, directory) &&
        take_path(found.supervisor, options.event_log_path, log_file)) {
        found.directory = directory;
        found.log_file = log_file;
        found.paths_known = true;
    }
}

}  // namespace

running_service find_service(const context& tool) {
    running_service found;
    found.directory = default_config_directory;
    found.log_file = default_event_log_path;
    const int listener = tool.root.empty() ? listener_of(tool.socket_path) : 0;
    const std::vector<std::string> words = process_words(listener);
    if (std::any_of(words.begin(), words.end(), is_service_name)) {
        found.supervisor = listener;
        found.worker = child_of(listener);
        take_options(found);
    }
    return found;
}

}  // namespace veltrancord::tool
