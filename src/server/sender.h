// Sending the reply.
#pragma once

#include <cstdint>

#include "server/connection.h"

namespace veltrancord {

// Makes the reply frame from the connection's result and reply text: the result in 4 bytes and,
// when it is positive and the text was opened, exactly that many bytes. A shorter text is filled up
// with zero bytes, a longer one is cut.
//
// Return: 0, or -1 after "allocate pBuf == NULL !!" when memory for the body could not be had.
[[nodiscard]] int32_t queue_reply(connection& client);

// Sends as much of the frame as the socket takes. The connection is released when all is sent or
// sending has failed; otherwise the rest follows when the socket can be written again.
void write_reply(connection* client);

// Sends the result alone in one call and releases the connection.
void write_code(connection* client);

}  // namespace veltrancord
