"""Signals to each of the three processes, and the reaping of started programs."""

import re
import signal
import time

import pytest

from device import wait_until
from supervision import ADMIN, EXITING, RESTART, USERNAME
from wire import NO_REPLY, frame

RELEASE = "process release....\n"
# What Linux says of an accept without waiting on a socket that has been shut down.
SHUT = "do_accept accept: Resource temporarily unavailable!!\n"


def termination(number):
    return f"XmlSigTermnate catched signal {int(number)}\n" + RELEASE


@pytest.mark.fault("P2")
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_worker_closes_the_socket_and_its_supervisor_ends(ready, number):
    supervisor = ready.supervisor_pid
    ready.kill_worker(number)
    assert ready.wait_for_end(supervisor, ready.patience) == 1
    assert ready.stderr() == termination(number) + EXITING
    with pytest.raises(ConnectionRefusedError):
        ready.connect()


@pytest.mark.fault("P2")
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_starter_ends_with_1(device, number):
    device.require_no_sanitizer("thread", "it holds signals back while a semaphore is waited for")
    device.require_no_sanitizer("valgrind", "it needs to write to /tmp")
    device.set_read_only("/tmp")  # without its socket the service never gets ready
    starter = device.start(ready=False)
    device.wait_for_stderr("create local server socket error!!\n")
    device.forget_output()
    device.send_signal(starter.pid, number)
    assert starter.wait() == 1
    assert device.stderr() == termination(number)


@pytest.mark.fault("P2")
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_supervisor_ends_with_1_and_leaves_nothing_behind(ready, number):
    """Its worker answers who has asked and those that have begun to, lets the others go, and ends."""
    supervisor, worker = ready.supervisor_pid, ready.worker_pid
    data = frame(USERNAME)
    with ready.connect() as idle, ready.connect() as asking, ready.connect() as begun:
        assert ready.request(USERNAME) == ADMIN  # they are accepted by now
        ready.send_signal(worker, signal.SIGSTOP)
        asking.send(data)
        begun.send(data[:-1])
        ready.send_signal(supervisor, number)
        assert ready.wait_for_end(supervisor, ready.patience) == 1
        with pytest.raises(ConnectionRefusedError):
            ready.connect()
        ready.send_signal(worker, signal.SIGCONT)
        begun.send(data[-1:])
        assert begun.receive_reply() == ADMIN
        assert asking.receive_reply() == ADMIN
        assert idle.receive_reply() == NO_REPLY
        assert ready.wait_for_end(worker, ready.patience) == 1
    assert ready.stderr() == termination(number) + SHUT


def test_a_terminated_worker_ends_with_status_1(device):
    device.require_no_sanitizer("thread", "under strace its runtime puts the signal off at times, for good")
    device.start_traced(calls="exit_group,shutdown")
    worker = device.worker_pid
    device.kill_worker(signal.SIGTERM)
    # By the handler, or by the server thread, which finds the socket gone.
    wait_until(lambda: any("exited with 1" in line and line.startswith(f"{worker} ")
                           for line in device.trace()), "the worker's end is traced")
    assert any("shutdown(" in line and "SHUT_RDWR" in line for line in device.trace())


@pytest.mark.fault("P2")
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_terminated_worker_leaves_its_follower_the_socket(restarting, number):
    """It was shut down for all who shared it, and the service was deaf from then on."""
    supervisor = restarting.supervisor_pid
    worker = restarting.kill_worker(number)
    assert restarting.request(USERNAME) == ADMIN
    follower = restarting.worker_pid
    assert follower != worker
    assert restarting.stderr().startswith(termination(number) + RESTART)
    restarting.send_signal(supervisor, signal.SIGTERM)
    assert restarting.wait_for_end(supervisor, restarting.patience) == 1
    with pytest.raises(ConnectionRefusedError):
        restarting.connect()
    assert restarting.wait_for_end(follower, restarting.patience) == 1


def test_broken_pipes_and_file_size_limits_are_ignored_by_supervisor_and_worker(ready):
    supervisor, worker = ready.supervisor_pid, ready.worker_pid
    for pid in (supervisor, worker):
        assert {signal.SIGPIPE, signal.SIGXFSZ} <= ready.signals(pid, "SigIgn")
        assert {signal.SIGTERM, signal.SIGHUP} <= ready.signals(pid, "SigCgt")
        ready.send_signal(pid, signal.SIGPIPE)
        ready.send_signal(pid, signal.SIGXFSZ)
    assert signal.SIGCHLD in ready.signals(worker, "SigCgt")
    assert signal.SIGCHLD not in ready.signals(supervisor, "SigCgt")
    assert ready.request(USERNAME) == ADMIN
    assert (ready.supervisor_pid, ready.worker_pid) == (supervisor, worker)


def test_the_child_handler_holds_back_the_other_signals(device):
    device.require_no_sanitizer("thread", "it sets masks of its own")
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
