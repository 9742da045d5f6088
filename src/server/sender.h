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

// Sends as much of the frame as the socket takes, in at most 5 writes, so that a client that reads
// as fast as it is sent to cannot keep the others waiting for ever. Failures are printed here.
//
// Return: wait_to_write, or over.
[[nodiscard]] next_step write_reply(connection& client);

// Sends the result alone, in one write.
//
// Return: over.
[[nodiscard]] next_step write_code(const connection& client);

// For a client that has to wait for the rest of its reply, and may take its time: frees the
// request, and the reply's memory but for what is still to be sent.
void keep_unsent(connection& client);

}  // namespace veltrancord
