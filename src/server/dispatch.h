// From a complete request to its reply.
#pragma once

#include "server/connection.h"

namespace veltrancord {

// Serves the request whose payload the connection holds: finds the command by the name before the
// first ":", runs its handler, queues the reply, runs the follow-up step and sends the reply. A
// payload without ":" gets no reply. The connection is not to be touched any more afterwards: it is
// released, or the loop sends the rest of its reply.
void dispatch(connection* client);

}  // namespace veltrancord
