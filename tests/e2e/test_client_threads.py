"""The C library from many threads of one program, against the real service."""

import os
import subprocess

import command_line


def test_many_threads_each_with_its_own_client(service):
    program = command_line.program("client_many_threads")
    device = service({"Threads": "<Threads/>"})
    threads, rounds = 16, 20
    finished = subprocess.run([program, str(threads), str(rounds)], capture_output=True, text=True,
                              check=False, env={**os.environ, "VELTRANCORD_SOCKET": device.socket_path})
    assert (finished.returncode, finished.stderr) == (0, "")
    document = device.read_document("Threads")
    for number in range(threads):
        assert b"<Value>%d.%d</Value>" % (number, rounds - 1) in document
