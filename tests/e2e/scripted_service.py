"""A service that answers every request with the same bytes, or as a function of the request says, and
keeps the requests. `None` is no answer: it waits until the client has left."""

import socket
import struct
import threading


def reply(code, body=b""):
    return struct.pack("<i", code) + body


class ScriptedService:
    """Listens on `path` from its making until `close`; also a context manager."""

    def __init__(self, path, answer):
        self.path = str(path)
        self.answer = answer
        self.requests = []
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(self.path)
        self._listener.listen(64)
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self._thread.join()

    def _run(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with connection:
                head = connection.recv(5, socket.MSG_WAITALL)
                if len(head) == 5:
                    (length,) = struct.unpack("<I", head[1:])
                    self.requests.append(connection.recv(length, socket.MSG_WAITALL))
                    answer = self.answer
                    if callable(answer):
                        answer = answer(self.requests[-1])
                    if answer is None:
                        connection.recv(1)
                    else:
                        connection.sendall(answer)
