"""Options, the three processes, readiness, signals, System V objects, restart."""

import os
import re
import signal
import socket
import time

import pytest

from device import CONFIGURATION, PROGRAM, SOCKET, wait_until
from wire import Reply

ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"
USERNAME = "read:Account.User1.Username"
ADMIN = Reply(len("Account.User1.Username=admin"), b"Account.User1.Username=admin")

EXITING = "Veltracord Exiting....\n"
RESTART = "restart Veltracord....\n"
RELEASE = "process release....\n"
# What Linux says of an accept without waiting on a socket that has been shut down.
SHUT = "do_accept accept: Resource temporarily unavailable!!\n"


@pytest.fixture
def ready(service):
    device = service({"Account": ACCOUNT})
    device.forget_output()
    return device


@pytest.fixture
def restarting(service):
    device = service({"Account": ACCOUNT}, "-l")
    device.forget_output()
    return device


# ---- options ----------------------------------------------------------------------------------


@pytest.mark.parametrize("option", ["-h", "-H"])
def test_help_goes_to_standard_error_and_ends_the_program(device, option):
    starter = device.start(option, ready=False, argv0="/sbin/any name")
    assert starter.wait() == 0
    assert device.stderr() == ("/sbin/any name -t[databse backup time] -P[xml path] -h[help]\n")
    assert device.stdout() == ""
    assert not device.file_exists(SOCKET)
    assert device.semaphore(530) is None


def test_help_is_given_behind_other_options_too(device):
    assert device.start("-l", "-t", "400", "-h", ready=False).wait() == 0
    assert device.stderr() == f"{PROGRAM} -t[databse backup time] -P[xml path] -h[help]\n"


def test_an_unknown_option_is_complained_of_and_ignored(service):
    device = service({"Account": ACCOUNT}, "-x", argv0="prog")
    assert "prog: invalid option -- 'x'\n" in device.stderr()
    assert "databse" not in device.stderr()
    assert device.request(USERNAME) == ADMIN


def test_an_option_without_its_argument_is_complained_of_and_ignored(service):
    device = service({"Account": ACCOUNT}, "-P", argv0="prog")
    assert "prog: option requires an argument -- 'P'\n" in device.stderr()
    assert device.request(USERNAME) == ADMIN


def directory_of_length(length):
    path = "/mnt/" + "d" * (length - len("/mnt/"))
    assert len(path) == length
    return path


def test_a_configuration_path_of_62_characters_is_taken(device):
    path = directory_of_length(62)
    device.write_document("Account", "<Account><From>default</From></Account>")
    device.write_file(f"{path}/Account", "<Account><From>option</From></Account>")
    device.start("-P", path)
    assert device.request("readvalue:Account.From").text == "option"


def test_a_configuration_path_of_63_characters_is_ignored_silently(device):
    path = directory_of_length(63)
    device.write_document("Account", "<Account><From>default</From></Account>")
    device.write_file(f"{path}/Account", "<Account><From>option</From></Account>")
    device.start("-P", path)
    assert device.request("readvalue:Account.From").text == "default"
    assert path not in device.output()


def test_the_last_of_several_options_counts_unless_it_is_too_long(device):
    for name in ("a", "b"):
        device.write_file(f"/mnt/{name}/Account", f"<Account><From>{name}</From></Account>")
    device.start("-P", "/mnt/a", "-P/mnt/b", "-P", directory_of_length(80))
    assert device.request("readvalue:Account.From").text == "b"


def test_an_event_log_path_of_62_characters_is_taken_and_one_of_63_is_not(device):
    base = directory_of_length(58)
    device.make_directory(base)
    device.start("-E", f"{base}/log")
    device.stop()
    assert device.file_exists(f"{base}/log")
    device.start("-E", f"{base}/log2")
    assert not device.file_exists(f"{base}/log2")


# ---- starting ---------------------------------------------------------------------------------


def test_the_starter_ends_with_0_and_leaves_supervisor_and_worker(ready):
    assert ready.starter.status() == 0
    supervisor, worker = ready.supervisor_pid, ready.worker_pid
    assert ready.children_of(1) == [supervisor]
    assert ready.children_of(supervisor) == [worker]
    assert ready.children_of(worker) == []
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


def test_without_a_socket_the_supervisor_ends_and_the_starter_waits_on(device):
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
    supervisor = ready.open_descriptors(ready.supervisor_pid)
    assert len(supervisor) == 4  # 0 to 2 and the listening socket
    worker = ready.open_descriptors(ready.worker_pid)
    assert {n: worker[n] for n in supervisor} == supervisor
    assert sum(target.startswith("socket:") for target in worker.values()) == 1


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


# ---- signals ----------------------------------------------------------------------------------


def termination(number):
    return f"XmlSigTermnate catched signal {int(number)}\n" + RELEASE


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_worker_closes_the_socket_and_its_supervisor_ends(ready, number):
    supervisor = ready.supervisor_pid
    ready.kill_worker(number)
    assert ready.wait_for_end(supervisor, ready.patience) == 1
    assert ready.stderr() == termination(number) + EXITING
    with pytest.raises(ConnectionRefusedError):
        ready.connect()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_starter_ends_with_1(device, number):
    device.set_read_only("/tmp")  # without its socket the service never gets ready
    starter = device.start(ready=False)
    device.wait_for_stderr("create local server socket error!!\n")
    device.forget_output()
    device.send_signal(starter.pid, number)
    assert starter.wait() == 1
    assert device.stderr() == termination(number)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_supervisor_ends_with_1_and_closes_the_socket(ready, number):
    supervisor, worker = ready.supervisor_pid, ready.worker_pid
    with ready.connect() as client:
        assert ready.request(USERNAME) == ADMIN  # the client is accepted by now
        ready.send_signal(supervisor, number)
        assert ready.wait_for_end(supervisor, ready.patience) == 1
        with pytest.raises(ConnectionRefusedError):
            ready.connect()
        # The worker lives on and serves whom it had accepted, but looks at the socket no more.
        client.send_request(USERNAME)
        assert client.receive_reply() == ADMIN
        assert ready.is_running(worker)
        before = ready.processor_seconds(worker)
        time.sleep(1)
        assert ready.processor_seconds(worker) - before <= 0.3
    assert ready.stderr() == termination(number) + SHUT


def test_a_terminated_worker_ends_with_status_1(device):
    device.start_traced(calls="exit_group,shutdown")
    worker = device.worker_pid
    device.kill_worker(signal.SIGTERM)
    wait_until(lambda: any("exit_group(1)" in line and line.startswith(f"{worker} ")
                           for line in device.trace()), "the worker's end is traced")
    assert any("shutdown(" in line and "SHUT_RDWR" in line for line in device.trace())


def test_after_a_terminated_worker_the_new_one_finds_the_socket_shut_and_does_not_spin(restarting):
    restarting.kill_worker(signal.SIGTERM)
    restarting.wait_for_stderr(SHUT)
    worker = restarting.worker_pid
    with pytest.raises(ConnectionRefusedError):
        restarting.connect()
    before = restarting.processor_seconds(worker)
    time.sleep(1)
    assert restarting.processor_seconds(worker) - before <= 0.3
    assert restarting.stderr().startswith(termination(signal.SIGTERM) + RESTART)
    assert restarting.stderr().count("do_accept") == 1


def test_broken_pipes_are_ignored_by_supervisor_and_worker(ready):
    supervisor, worker = ready.supervisor_pid, ready.worker_pid
    for pid in (supervisor, worker):
        assert signal.SIGPIPE in ready.signals(pid, "SigIgn")
        assert {signal.SIGTERM, signal.SIGHUP} <= ready.signals(pid, "SigCgt")
        ready.send_signal(pid, signal.SIGPIPE)
    assert signal.SIGCHLD in ready.signals(worker, "SigCgt")
    assert signal.SIGCHLD not in ready.signals(supervisor, "SigCgt")
    assert ready.request(USERNAME) == ADMIN
    assert (ready.supervisor_pid, ready.worker_pid) == (supervisor, worker)


def test_the_child_handler_holds_back_the_other_signals(device):
    device.start_traced(calls="rt_sigaction")
    worker = str(device.worker_pid)
    line = next(line for line in device.trace()
                if line.startswith(worker + " ") and "rt_sigaction(SIGCHLD, {" in line)
    mask = set(re.search(r"sa_mask=\[([^]]*)\]", line).group(1).split())
    assert mask == {"CHLD", "USR1", "USR2", "PIPE", "TERM", "INT"}


def test_signals_to_a_thread_do_not_disturb_requests(restarting):
    worker = restarting.worker_pid
    with restarting.connect() as client:
        for _ in range(200):
            restarting.send_signal(worker, signal.SIGCHLD)
        client.send_request(USERNAME)
        assert client.receive_reply() == ADMIN
    assert restarting.worker_pid == worker


@pytest.mark.parametrize("commands, status", [("exit 0", 0), ("exit 3", 768), ("kill -9 $$", 9)])
def test_started_programs_are_reaped_with_a_message(service, commands, status):
    device = service({"Account": '<Account><Name DispatchW="/tmp/hook.sh">x</Name></Account>'})
    device.install_script("/tmp/hook.sh", f"#!/bin/sh\necho $$ > /tmp/pid\n{commands}\n")
    assert device.request("write:Account.Name=y").code == 1
    wait_until(lambda: device.file_exists("/tmp/pid") and device.read_file("/tmp/pid"), "it runs")
    child = int(device.read_file("/tmp/pid"))
    device.wait_for_stderr(f"reaping child {child}: status {status}\n")
    wait_until(lambda: device.children_of(device.worker_pid) == [], "no zombie is left")


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
    times = {name: os.stat(sample.outside(f"{CONFIGURATION}/{name}")).st_mtime_ns for name in before}
    sample.request("read:*")
    sample.restart()
    assert {name: sample.read_document(name) for name in before} == before
    assert times == {name: os.stat(sample.outside(f"{CONFIGURATION}/{name}")).st_mtime_ns
                     for name in before}
