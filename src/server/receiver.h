// Reading one request from a connection.
#pragma once

#include "server/connection.h"

namespace veltrancord {

enum class read_outcome {
    waiting,  // no request has begun; the connection is still there
    over,     // the request was served or has failed: the connection is not to be touched any more
};

// Reads what a readable connection holds; called each time it can be read. Once a start code is
// there the whole request is read and served within the call, which waits for the rest of the
// payload as long as it takes; failures are printed here and release the connection.
read_outcome do_read(connection& client);

}  // namespace veltrancord
