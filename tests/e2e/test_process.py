"""The three processes: starting, readiness, System V objects, restart."""

import contextlib
import os
import re
import signal
import socket

import pytest

from device import CONFIGURATION, LOGS, SOCKET, wait_until
from supervision import ACCOUNT, ADMIN, EXITING, RESTART, USERNAME


# ---- starting ---------------------------------------------------------------------------------


def test_the_starter_ends_with_0_and_leaves_supervisor_and_worker(ready):
    assert ready.starter.status() == 0
    supervisor, worker = ready.supervisor_pid, ready.worker_pid
    assert ready.children_of(1) == [supervisor]
    assert ready.children_of(supervisor) == [worker]
    assert ready.children_of(worker) == []
    if ready.sanitizer is None:  # a sanitizer has threads of its own
        assert ready.thread_count(worker) == 3
    assert ready.request(USERNAME) == ADMIN


def test_the_starter_waits_for_the_post_of_the_worker(device):
    device.write_document("Account", ACCOUNT)
    device.start_traced(calls="semop,semtimedop,exit_group,listen")
    worker = device.worker_pid
    wait_until(lambda: any("exit_group(0)" in line for line in device.trace()), "the end is traced")
    lines = device.trace()
    starter = next(line.split()[0] for line in lines if "exit_group(0)" in line)
    listen = next(i for i, line in enumerate(lines) if "listen(" in line)
    post = next(i for i, line in enumerate(lines) if "sem_op=1," in line)
    end = next(i for i, line in enumerate(lines) if "exit_group(0)" in line)
    pend = next(i for i, line in enumerate(lines) if "sem_op=-1," in line)
    assert lines[post].split()[0] == str(worker)
    assert lines[pend].split()[0] == starter
    assert listen < post < end


@pytest.mark.fault("P3")
def test_a_semaphore_value_of_an_earlier_run_does_not_release_the_starter(device):
    device.set_semaphore(530, 5)
    device.write_document("Account", ACCOUNT)
    device.start_traced(calls="semctl,clone,clone3,fork,vfork,exit_group")
    # Set to 0 before the first fork; the loader's 0, the post and the pend give 0 again.
    lines = device.trace()
    set_line = next(i for i, line in enumerate(lines) if "SETVAL" in line)
    fork_line = next(i for i, line in enumerate(lines) if re.search(r" (clone3?|v?fork)\(", line))
    assert set_line < fork_line
    assert device.semaphore(530) == 0
    assert device.request(USERNAME) == ADMIN


def test_the_semaphores_have_their_values_and_permissions(ready):
    values = {key: ready.semaphore(key) for key in (520, 521, 522, 523, 530)}
    assert values == {520: 0, 521: 0, 522: 1, 523: 0, 530: 0}
    table = ready.system_v_table("sem")
    assert sorted(int(row["key"]) for row in table) == [520, 521, 522, 523, 530]
    assert {row["perms"] for row in table} == {"666"}
    assert {row["nsems"] for row in table} == {"1"}


def test_semaphores_left_by_others_are_set(device):
    for key in (520, 521, 522, 523):
        device.set_semaphore(key, 9)
    device.start()
    assert [device.semaphore(key) for key in (520, 521, 522, 523, 530)] == [0, 0, 1, 0, 0]


def test_there_is_no_shared_memory_until_somebody_asks_for_it(ready):
    ready.request("read:*")
    ready.request("readattr:Account.*.Level")
    assert ready.system_v_table("shm") == []


@pytest.mark.fault("P3")
def test_requests_that_come_before_the_service_is_ready_wait_for_it(device):
    documents = {f"Doc{i}": f"<Doc{i}><V>{i}</V>" + "<x>y</x>" * 2000 + f"</Doc{i}>"
                 for i in range(100)}
    device.write_documents(documents)
    device.start(ready=False)

    def try_to_connect():
        try:
            return device.connect()
        except (FileNotFoundError, ConnectionRefusedError):
            return None

    with wait_until(try_to_connect, "the socket is there") as client:
        client.send_request("readvalue:Doc99.V")
        assert client.receive_reply() == (2, b"99")
    device.wait_ready()


def test_a_socket_left_by_an_earlier_run_is_replaced(device):
    stale = socket.socket(socket.AF_UNIX)
    stale.bind(str(device.outside(SOCKET)))
    stale.close()
    device.write_document("Account", ACCOUNT)
    device.start()
    assert device.request(USERNAME) == ADMIN


def test_a_file_in_the_place_of_the_socket_is_replaced(device):
    device.write_file(SOCKET, "something else")
    device.write_document("Account", ACCOUNT)
    device.start()
    assert device.request(USERNAME) == ADMIN


def test_an_empty_directory_in_the_place_of_the_socket_is_replaced(device):
    device.make_directory(SOCKET)
    device.write_document("Account", ACCOUNT)
    device.start()
    assert device.request(USERNAME) == ADMIN


def test_what_cannot_be_replaced_is_named(device):
    device.write_file(f"{SOCKET}/file", "x")
    device.start(ready=False)
    device.wait_for_stderr("create local server socket error!!\n")
    assert device.stderr() == (f"{SOCKET} is in the way: Directory not empty\n"
                               "unable to bind: Address already in use"
                               "create local server socket error!!\n")


def test_without_a_socket_the_supervisor_ends_and_the_starter_waits_on(device):
    device.require_no_sanitizer("valgrind", "it needs to write to /tmp")
    device.set_read_only("/tmp")
    starter = device.start(ready=False)
    device.wait_for_stderr("create local server socket error!!\n")
    assert device.stderr() == ("unable to bind: Read-only file system"
                               "create local server socket error!!\n")
    supervisor = device.children_of(starter.pid)[0]
    wait_until(lambda: not device.is_running(supervisor), "only the starter is left")
    assert starter.status(0.3) is None
    device.post_semaphore(530)
    assert starter.wait() == 0
    assert device.wait_for_end(supervisor, device.patience) == 0  # init inherits the zombie


@pytest.mark.parametrize("closed", [(0,), (1,), (2,), (0, 1), (0, 1, 2)], ids=str)
def test_closed_standard_descriptors_are_opened_before_anything_else(device, closed):
    device.require_no_sanitizer("valgrind", "its log takes the place of what is closed")
    device.write_document("Account", ACCOUNT)
    device.start(closed=closed)
    for pid in (device.supervisor_pid, device.worker_pid):
        descriptors = device.open_descriptors(pid)
        for number in (0, 1, 2):
            assert not descriptors[number].startswith("socket:")
            if number in closed:
                assert descriptors[number] == "/dev/null"
        assert any(target.startswith("socket:") for target in descriptors.values())
    assert device.request(USERNAME) == ADMIN
    assert device.request("read:") == (-7, b"")


def test_the_service_holds_few_descriptors(ready):
    ready.require_no_sanitizer("valgrind", "it holds some itself")
    supervisor = ready.open_descriptors(ready.supervisor_pid)
    assert len(supervisor) == 6  # 0 to 2, the listening socket and the two directories
    worker = ready.open_descriptors(ready.worker_pid)
    assert {n: worker[n] for n in supervisor} == supervisor
    assert sum(target.startswith("socket:") for target in worker.values()) == 1


# ---- what the starter has inherited -----------------------------------------------------------


def test_ignored_and_blocked_signals_do_not_matter(device):
    device.require_no_sanitizer("thread", "it sets masks of its own")
    device.write_document("Account", ACCOUNT)
    numbers = signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}
    device.start("-l", ignored=numbers, blocked=numbers)
    device.kill_worker()
    assert device.request(USERNAME) == ADMIN  # a supervisor that ignores SIGCHLD starts no other
    device.stop()


def test_descriptors_of_the_starter_do_not_stay_open(device):
    device.require_no_sanitizer("valgrind", "it holds some itself")
    device.start(opened=(3, 4, 77))
    for pid in (device.supervisor_pid, device.worker_pid):
        assert "/dev/null" not in list(device.open_descriptors(pid).values())[3:5]
        assert 77 not in device.open_descriptors(pid)


def test_no_process_dumps_core(device):
    device.start(limits={"CORE": -1})
    for pid in (device.supervisor_pid, device.worker_pid):
        limits = device.outside(f"/proc/{pid}/limits").read_text()
        assert re.search(r"Max core file size +0 +0 ", limits)


# ---- a second instance ------------------------------------------------------------------------


def second_start(device, *options):
    """Starts it once more beside the first. Return: what the second one prints."""
    device.forget_output()
    assert device.start(*options, ready=False).wait() == 1
    return [line for line in device.stderr().splitlines() if "in use" in line]


@pytest.mark.fault("P5")
@pytest.mark.parametrize("options, what", [
    ((), CONFIGURATION),
    (("-E", "/mnt/other/log"), CONFIGURATION),
    (("-P", "/mnt/other"), "/mnt/database/eventlog"),
    (("-P", "/mnt/other", "-E", "/mnt/other/log"), SOCKET),
], ids=["both", "configuration", "log", "socket"])
def test_a_second_instance_ends_and_names_what_the_first_one_uses(ready, options, what):
    ready.make_directory("/mnt/other")
    supervisor, worker = ready.supervisor_pid, ready.worker_pid
    ready.write_file("/mnt/other/Account", ACCOUNT)
    expected = f"{what} is in use by another service, process {supervisor}"
    assert second_start(ready, *options) == [expected]
    assert (ready.supervisor_pid, ready.worker_pid) == (supervisor, worker)
    assert ready.request(USERNAME) == ADMIN
    assert ready.semaphore(530) == 0


@pytest.mark.fault("P5")
def test_a_second_instance_ends_where_the_first_one_has_lost_its_socket(ready):
    ready.outside(SOCKET).unlink()
    assert second_start(ready) == [f"{CONFIGURATION} is in use by another service"]


def test_a_log_in_the_directory_of_the_configuration_does_not_lock_its_own_service_out(device):
    device.write_document("Account", ACCOUNT)
    device.start("-E", f"{CONFIGURATION}/log")
    assert device.request(USERNAME) == ADMIN


def test_directories_without_the_right_to_write_are_locked_too(device):
    device.mount_tmpfs("/mnt/still")
    device.set_read_only("/mnt/still")
    device.start("-P", "/mnt/still")
    assert second_start(device, "-P", "/mnt/still", "-E", "/mnt/other/log")[0].startswith(
        "/mnt/still is in use by another service")


@pytest.mark.fault("P5")
def test_an_instance_that_is_just_ending_is_waited_for(device):
    """Stopped processes stand for one that takes its time."""
    device.write_document("Account", ACCOUNT)
    device.start()
    supervisor, worker = device.supervisor_pid, device.worker_pid
    for pid in (supervisor, worker):
        device.send_signal(pid, signal.SIGSTOP)
        device.send_signal(pid, signal.SIGTERM)
    starter = device.start(ready=False)
    assert starter.status(0.5) is None
    for pid in (supervisor, worker):
        device.send_signal(pid, signal.SIGCONT)
    device.wait_ready()
    assert device.request(USERNAME) == ADMIN


@pytest.mark.fault("P5")
def test_a_program_that_the_service_started_does_not_keep_the_next_one_out(device):
    device.write_document("Account", '<Account><Name DispatchW="/tmp/hook.sh">x</Name></Account>')
    device.install_script("/tmp/hook.sh", "#!/bin/sh\necho > /tmp/seen\nexec sleep 1000\n")
    device.start()
    assert device.request("write:Account.Name=y").code == 1
    device.wait_for_file("/tmp/seen")
    device.stop()
    device.start()
    assert device.request("readvalue:Account.Name").text == "y"


def test_a_starter_that_waits_in_vain_does_not_keep_the_next_one_out(device):
    device.write_file(f"{SOCKET}/file", "x")
    device.start(ready=False)
    device.wait_for_stderr("create local server socket error!!\n")
    device.outside(f"{SOCKET}/file").unlink()
    device.start(ready=False)  # the first starter is released before this one
    wait_until(lambda: device.semaphore(530) is not None and device.outside(SOCKET).is_socket(),
               "the socket is there")
    assert device.request("read:*") == (-4, b"")


# ---- a directory that is not there ------------------------------------------------------------


def test_a_missing_directory_gives_one_line_and_an_empty_service(device):
    device.start("-P", "/mnt/nowhere")
    lines = [line for line in device.stderr().splitlines() if "/mnt/nowhere" in line]
    assert len(lines) == 1
    assert "No such file or directory" in lines[0]
    assert device.request("read:*") == (-4, b"")
    assert device.request("read:Account.User1.Username") == (-4, b"")
    assert [device.semaphore(key) for key in (520, 521, 522, 523, 530)] == [0, 0, 1, 0, 0]


def test_a_file_in_the_place_of_the_directory_gives_one_line_and_an_empty_service(device):
    device.write_file("/mnt/file", "x")
    device.start("-P", "/mnt/file")
    lines = [line for line in device.stderr().splitlines() if "/mnt/file" in line]
    assert len(lines) == 1
    assert "Not a directory" in lines[0]
    assert device.request("read:*") == (-4, b"")


# ---- the worker's end -------------------------------------------------------------------------


def test_without_restart_the_supervisor_ends_after_the_worker(ready):
    supervisor = ready.supervisor_pid
    ready.kill_worker()
    assert ready.wait_for_end(supervisor, ready.patience) == 1
    assert ready.stderr() == EXITING
    assert [p.pid for p in ready.processes()] == [1]
    with pytest.raises(ConnectionRefusedError):
        ready.connect()


@pytest.mark.fault("P1")
@pytest.mark.parametrize("option", ["-l", "-L"])
def test_with_restart_a_new_worker_serves_on_the_same_socket(service, option):
    device = service({"Account": ACCOUNT}, option)
    device.forget_output()
    inode = device.outside(SOCKET).stat().st_ino
    supervisor = device.supervisor_pid
    listening = device.open_descriptors(supervisor)
    for round_number in range(1, 4):
        old = device.kill_worker()
        assert device.request(USERNAME) == ADMIN  # whoever comes in between waits in the backlog
        assert device.worker_pid != old
        assert device.supervisor_pid == supervisor
        assert device.stderr().count(RESTART) == round_number
    assert EXITING not in device.stderr()
    assert device.outside(SOCKET).stat().st_ino == inode
    assert device.open_descriptors(supervisor) == listening


def test_a_worker_that_ends_at_once_is_not_started_again_at_once(device):
    """Hundreds a second would be tried where none can do its work."""
    device.write_document("Account", ACCOUNT)
    device.start_traced("-l", calls="clock_nanosleep,nanosleep,clone,fork,vfork")
    supervisor = device.supervisor_pid
    for _ in range(3):
        device.kill_worker()
        assert device.request(USERNAME) == ADMIN
    calls = [line for line in device.trace() if line.startswith(f"{supervisor} ")]
    sleeps = [line for line in calls if "nanosleep" in line and "tv_sec=1," in line]
    assert sleeps, calls


def test_a_new_worker_loads_the_files_again(restarting):
    restarting.write_document("Account", ACCOUNT.replace("admin", "root"))
    assert restarting.request(USERNAME) == ADMIN
    restarting.kill_worker()
    assert restarting.request("readvalue:Account.User1.Username").text == "root"


def test_each_new_worker_posts_readiness_though_nobody_waits(restarting):
    for _ in range(3):
        restarting.kill_worker()
        assert restarting.request(USERNAME) == ADMIN
        wait_until(lambda: restarting.semaphore(530) == 1, "readiness has been posted")
        assert [restarting.semaphore(key) for key in (520, 521, 522, 523)] == [0, 0, 1, 0]


def test_a_connection_dies_with_its_worker_and_the_next_one_is_served(restarting):
    with restarting.connect() as client:
        assert restarting.request(USERNAME) == ADMIN  # the first one is accepted by now
        restarting.kill_worker()
        assert client.receive_reply().code is None
    assert restarting.request(USERNAME) == ADMIN


def test_when_no_new_worker_can_be_forked_the_supervisor_ends_without_a_word(device):
    device.write_document("Account", ACCOUNT)
    # The count is each process's own: the supervisor's second fork is the first restart.
    fails = "inject=clone,fork,vfork:error=EAGAIN:when=2"
    device.start_traced("-l", calls="clone,fork,vfork", trace_options=("-e", fails))
    device.forget_output()
    supervisor = device.supervisor_pid
    device.kill_worker()
    wait_until(lambda: not device.is_running(supervisor), "the supervisor has ended")
    assert device.stderr() == RESTART
    wait_until(lambda: any(re.match(rf"{supervisor} +\+\+\+ exited with 1 \+\+\+", line)
                           for line in device.trace()), "its status 1 is traced")


# ---- a whole life -----------------------------------------------------------------------------


def test_the_service_comes_up_again_after_a_power_cut(ready):
    for _ in range(3):
        ready.power_cut()
        assert ready.file_exists(SOCKET)
        ready.start()
        assert ready.request(USERNAME) == ADMIN
        assert ready.semaphore(530) == 0


def test_the_sample_configuration_is_served(sample):
    names = sample.list_directory(CONFIGURATION)
    listing = sample.request("read:*")
    assert listing.code == len(listing.body)
    assert {line.split(".")[0] for line in listing.lines} == set(names)
    for name in names:
        assert sample.request(f"read:{name}.*").code > 0


def test_nothing_is_written_where_nothing_changed(sample):
    before = {name: sample.read_document(name) for name in sample.list_directory(CONFIGURATION)}

    def times():
        files = [sample.outside(f"{CONFIGURATION}/{name}") for name in before]
        return [(os.stat(file).st_mtime_ns, os.stat(file).st_ino) for file in files]

    times_before = times()
    sample.request("read:*")
    sample.restart()
    assert {name: sample.read_document(name) for name in before} == before
    assert times() == times_before


# ---- a standard error that nobody reads --------------------------------------------------------


@pytest.mark.fault("F4")
def test_a_full_pipe_on_standard_error_holds_nobody_up_and_the_lines_left_out_are_counted(device):
    device.require_no_sanitizer("valgrind", "it prints there itself")
    path = f"{LOGS}/pipe"
    os.mkfifo(device.outside(path))
    reader = os.open(device.outside(path), os.O_RDONLY | os.O_NONBLOCK)
    device.write_document("Account", ACCOUNT)
    device.start(stderr=path)
    line = "SetCaptcha_handle: NULL Verify String !!\n"
    requests = 4000  # of which a pipe of 64 KiB takes less than half

    def read_pipe():
        text = b""
        with contextlib.suppress(BlockingIOError):
            while some := os.read(reader, 1 << 16):
                text += some
        return text.decode()

    read_pipe()
    for _ in range(requests):
        assert device.request("SetCaptcha:").code == -9
    assert device.request(USERNAME) == ADMIN
    printed = read_pipe()
    assert set(printed.splitlines(keepends=True)) == {line}
    device.request("SetCaptcha:")
    left_out = requests - printed.count(line)
    assert left_out > requests / 2
    assert read_pipe() == (f"{left_out} messages were left out, as there was no room for them\n"
                           + line)
    os.close(reader)


def test_a_program_that_the_service_starts_finds_the_pipe_as_it_was(device):
    """Non-blocking is a matter of all who share it: their prints would fail."""
    path = f"{LOGS}/pipe"
    os.mkfifo(device.outside(path))
    reader = os.open(device.outside(path), os.O_RDONLY | os.O_NONBLOCK)
    device.write_document("Account", '<Account><Name DispatchW="/tmp/hook.sh">x</Name></Account>')
    device.install_script("/tmp/hook.sh", "#!/bin/sh\nexec cat /proc/self/fdinfo/2 > /tmp/seen\n")
    device.start(stderr=path)
    assert device.request("write:Account.Name=y").code == 1
    wait_until(lambda: device.file_exists("/tmp/seen") and b"flags" in device.read_file("/tmp/seen"),
               "the program has run")
    flags = int(re.search(rb"flags:\s+(\d+)", device.read_file("/tmp/seen"))[1], 8)
    assert flags & os.O_NONBLOCK == 0
    os.close(reader)
