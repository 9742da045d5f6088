"""Sends one request to the running service, shows result and reply text; ./dev ask calls it.

Exit status: 0 when the result is 0 or above, 1 when it is below, 2 when there is no answer.
"""

import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))

from wire import exchange

SOCKET = "/tmp/Veltrancord.unix"


def main(payload):
    try:
        reply = exchange(SOCKET, payload)
    except OSError as error:
        print(f"no service at {SOCKET}: {error.strerror}; ./dev run starts one", file=sys.stderr)
        return 2
    if reply.code is None:
        print("closed without an answer", file=sys.stderr)
        return 2
    sys.stdout.buffer.write(reply.body)
    if reply.body and not reply.body.endswith(b"\n"):
        print()
    sys.stdout.flush()
    print(f"result {reply.code}", file=sys.stderr)
    return 0 if reply.code >= 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
