// From a complete request to its reply.
#pragma once

#include <span>

#include "server/connection.h"

namespace veltrancord {

// Serves a request: finds the command by the name before the payload's first ":", runs its handler,
// queues the reply, runs the follow-up step and sends the reply. A payload without ":" gets no
// reply. Behind the payload there must be a NUL; it is the handler's to change, and not looked at
// any more when this returns. The connection is not to be touched any more afterwards: it is
// released, or the loop sends the rest of its reply.
void dispatch(connection* client, std::span<char> payload);

}  // namespace veltrancord
