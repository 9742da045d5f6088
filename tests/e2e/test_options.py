"""The command line."""

import pytest

from device import PROGRAM, SOCKET
from wire import Reply

ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"
USERNAME = "read:Account.User1.Username"
ADMIN = Reply(len("Account.User1.Username=admin"), b"Account.User1.Username=admin")


@pytest.mark.parametrize("option", ["-h", "-H"])
def test_help_goes_to_standard_error_and_ends_the_program(device, option):
    device.require_no_sanitizer("valgrind", "it tells the program the name of its file")
    starter = device.start(option, ready=False, argv0="/sbin/any name")
    assert starter.wait() == 0
    assert device.stderr() == ("/sbin/any name -t[databse backup time] -P[xml path] -h[help]\n")
    assert device.stdout() == ""
    assert not device.file_exists(SOCKET)
    assert device.semaphore(530) is None


def test_help_is_given_behind_other_options_too(device):
    assert device.start("-l", "-t", "400", "-h", ready=False).wait() == 0
    assert device.stderr() == f"{PROGRAM} -t[databse backup time] -P[xml path] -h[help]\n"


def test_an_unknown_option_is_complained_of_and_ignored(device, service):
    device.require_no_sanitizer("valgrind", "it tells the program the name of its file")
    device = service({"Account": ACCOUNT}, "-x", argv0="prog")
    assert "prog: invalid option -- 'x'\n" in device.stderr()
    assert "databse" not in device.stderr()
    assert device.request(USERNAME) == ADMIN


def test_an_option_without_its_argument_is_complained_of_and_ignored(device, service):
    device.require_no_sanitizer("valgrind", "it tells the program the name of its file")
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
