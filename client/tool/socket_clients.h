// Who is connected to the service's socket.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace veltrancord::tool {

// The processes at the other end of each connection of the socket at `path`, those that wait to be
// taken included; 0 for one that may not be seen (root sees all). Nothing where the system does not
// tell.
std::optional<std::vector<int>> clients_of_socket(const std::string& path);

}  // namespace veltrancord::tool
