#include "guard.h"

#include <veltrancord/client.h>

#include <cstdlib>

#include "trial/guard_process.h"

namespace veltrancord::bridge {

trial::setup guarded_setup(const std::string& socket, const std::string& documents) {
    trial::setup where;
    where.documents = documents;
    where.guard_program = "/proc/self/exe";
    where.guard = {"veltrancord-bridge", "--guard", socket, documents};
    return where;
}

int run_guard(const std::string& socket, const std::string& documents, const std::string& folder) {
    veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    client.socket_path = socket.c_str();
    trial::setup where;
    where.documents = documents;
    where.folder = folder;
    return trial::leave_guard(client, where) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace veltrancord::bridge
