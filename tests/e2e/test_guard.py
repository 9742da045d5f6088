"""Who may ask what: the access file, as the running service goes by it."""

import os
import re
import socket

import pytest

from device import wait_until
from guard_device import ACCESS_FILE, STAFF, STRANGER, SYSTEM_LOG, WEB, GuardedDevice
from peers import Peer
from secret import enc_form

pytestmark = pytest.mark.fault("G1")

NETWORK = '<Network><Lan><Mtu DispatchW="/bin/hook.sh">1500</Mtu></Lan></Network>'
ACCOUNT = f"<Account><User1><Username>admin</Username><Password>{enc_form('geheim')}</Password>" \
          "</User1></Account>"
WIFI = f'<Wifi><Key password="offen"><PassWord>{enc_form("funk")}</PassWord></Key></Wifi>'
DOCUMENTS = {"Network": NETWORK, "Account": ACCOUNT, "Wifi": WIFI}
REFUSED = (-12, b"")


@pytest.fixture
def device(check_and_close):
    with GuardedDevice() as made:
        made.write_documents(DOCUMENTS)
        yield made
        check_and_close(made)


def started(device, access):
    device.write_access("allow user root all\n" + access)
    device.start()
    return device


# ---- the file -----------------------------------------------------------------------------------

def test_without_a_file_nobody_is_asked_for(device):
    device.require_no_sanitizer("thread", "its runtime and strace wait for each other")
    device.start_traced(calls="getsockopt")
    with Peer(device, STRANGER) as stranger:
        assert stranger.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
        assert "SO_PEER" not in "".join(device.trace())
        device.write_access("allow user root all")
        device.sync()
        assert stranger.request("readvalue:Network.Lan.Mtu") == REFUSED
        wait_until(lambda: "SO_PEERCRED" in "".join(device.trace()), "the kernel is asked")


def test_the_file_is_read_at_the_start_and_with_each_SyncPermit(device):
    started(device, f"allow user {WEB} read\n")
    with Peer(device, WEB) as web:
        assert web.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
        device.write_access("allow user root all\n")
        assert web.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
        assert web.request("SyncPermit:") == REFUSED
        assert web.request("readvalue:Network.Lan.Mtu") == (4, b"1500"), "a refused one reads nothing"
        device.sync()
        assert web.request("readvalue:Network.Lan.Mtu") == REFUSED
        os.remove(device.outside(ACCESS_FILE))
        device.sync()
        assert web.request("readvalue:Network.Lan.Mtu") == (4, b"1500")


def test_who_has_connected_before_there_was_a_file_is_asked_for_then(device):
    device.start()
    with Peer(device, STRANGER) as stranger, device.connect() as root:
        stranger.connect()
        device.write_access("allow user root all\n")
        device.sync()
        assert stranger.ask("readvalue:Network.Lan.Mtu") == REFUSED
        root.send_request("readvalue:Network.Lan.Mtu")
        assert root.receive_reply() == (4, b"1500")


@pytest.mark.parametrize("mode", [0o664, 0o646])
def test_a_file_that_others_may_write_to_serves_root_alone(device, mode):
    device.write_access("allow any all\n", mode)
    device.start()
    only_root_is_served(device, f"access file {ACCESS_FILE} is not obeyed: {ACCESS_FILE} may be changed by others")


def test_a_file_of_somebody_else_serves_root_alone(device):
    device.write_access("allow any all\n")
    os.chown(device.outside(ACCESS_FILE), WEB, WEB)
    device.start()
    only_root_is_served(device, f"is not obeyed: {ACCESS_FILE} belongs to another user")


def test_a_file_in_a_directory_that_others_may_write_to_serves_root_alone(device):
    device.write_access("allow any all\n")
    os.chmod(device.outside(ACCESS_FILE).parent, 0o777)
    device.start()
    only_root_is_served(device, f"is not obeyed: {ACCESS_FILE} lies in a directory that others may write to")


def test_a_link_in_the_place_of_the_file_serves_root_alone(device):
    device.write_file("/run/planted", "allow any all\n")
    device.make_directory(os.path.dirname(ACCESS_FILE))
    os.symlink("/run/planted", device.outside(ACCESS_FILE))
    device.start()
    only_root_is_served(device, "is not obeyed: it is a link")


def test_mistakes_are_told_with_their_lines_and_serve_root_alone(device):
    device.write_access("allow any all\nalow any all\n\nallow user nosuchuser read\n")
    device.start()
    only_root_is_served(device, f'access file {ACCESS_FILE}:2: unknown statement "alow"\n'
                                f'access file {ACCESS_FILE}:4: unknown user "nosuchuser"\n')


def only_root_is_served(device, told):
    assert told in device.stderr()
    assert "only root and the service's own user are served\n" in device.stderr()
    assert device.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
    with Peer(device, WEB) as web:
        assert web.request("readvalue:Network.Lan.Mtu") == REFUSED
        assert web.request("write:Network.Lan.Mtu=1") == REFUSED
    # It is mended, and counts.
    os.chmod(device.outside(ACCESS_FILE).parent, 0o755)
    os.remove(device.outside(ACCESS_FILE))
    device.write_access(f"allow user root all\nallow user {WEB} read\n")
    device.sync()
    with Peer(device, WEB) as web:
        assert web.request("readvalue:Network.Lan.Mtu") == (4, b"1500")


def test_the_services_own_user_is_served_with_a_bad_file(device):
    for path in ("/mnt/database", "/mnt/database/xml", "/mnt/database/eventlog"):
        os.chown(device.outside(path), WEB, WEB)
    for name in DOCUMENTS:
        os.chown(device.outside("/mnt/database/xml/" + name), WEB, WEB)
    device.write_access("surprise\n")
    os.chmod(device.outside("/run/log"), 0o777)
    device.start(user=WEB)
    with Peer(device, WEB) as own, Peer(device, STRANGER) as stranger:
        assert own.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
        assert stranger.request("readvalue:Network.Lan.Mtu") == REFUSED
        assert device.request("readvalue:Network.Lan.Mtu") == (4, b"1500")


# ---- who and what -------------------------------------------------------------------------------

def test_the_first_rule_counts_and_a_command_is_refused_as_a_whole(device):
    started(device, f"deny user {WEB} write on Account\nallow user {WEB} read,write\n")
    with Peer(device, WEB) as web:
        assert web.request("write:Network.Lan.Mtu=1400").code == 1
        assert web.request("write:Network.Lan.Mtu=9\nAccount.User1.Username=x") == REFUSED
        assert device.request("readvalue:Network.Lan.Mtu") == (4, b"1400")
        assert b"<Username>admin</Username>" in device.read_document("Account")
        assert web.request("read:Account.*").code > 0
        assert web.request("remove:Network.Lan") == REFUSED
    assert b"1400" in device.read_document("Network")


def test_a_listing_of_everything_needs_everything(device):
    started(device, f"allow user {WEB} read on * except Account\n")
    with Peer(device, WEB) as web:
        assert web.request("read:Network.*").text == "Network.Lan.Mtu=1500\n"
        assert web.request("read:*") == REFUSED
        device.write_access(f"allow user root all\nallow user {WEB} read on *\n")
        device.sync()
        assert "Network.Lan.Mtu=1500\n" in web.request("read:*").text


def test_supplementary_groups_count(device):
    started(device, f"allow group {STAFF} read\n")
    with Peer(device, STRANGER, further=[7, STAFF]) as member, Peer(device, STAFF, group=7) as other:
        assert member.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
        assert other.request("readvalue:Network.Lan.Mtu") == REFUSED


def test_root_of_a_user_namespace_is_who_he_is_outside(device):
    started(device, f"allow user {WEB} read\n")
    with Peer(device, STRANGER, own_namespace=True) as stranger, \
            Peer(device, WEB, own_namespace=True) as web:
        assert stranger.request("readvalue:Network.Lan.Mtu") == REFUSED
        assert web.request("readvalue:Network.Lan.Mtu") == (4, b"1500")


def test_who_is_refused_is_told_in_one_line(device):
    started(device, "")
    with Peer(device, STRANGER) as stranger, Peer(device, WEB) as web:
        for _ in range(3):
            assert stranger.request("write:Network.Lan.Mtu=secret value") == REFUSED
        assert web.request("CheckSession:token") == REFUSED
    lines = re.findall(r"access refused: .*", device.stderr())
    assert len(lines) == 2
    assert re.fullmatch(rf"access refused: user {STRANGER}, process \d+ \(python3[\d.]*\): write needs class "
                        r"write on Network; refusals since the last such line: 1", lines[0])
    assert "CheckSession needs class sessions on -" in lines[1]
    assert "secret value" not in device.stderr() and "token" not in device.stderr()


# ---- secrets ------------------------------------------------------------------------------------

READING = [
    ("read:Account.*", "Account.User1.Password="),
    ("read:Account.User1.Password", "Account.User1.Password="),
    ("read:*", "Account.User1.Password="),
    ("readAndFilter:Wifi.*", "Wifi.Key.PassWord="),
    ("readwithlevel:Account.*&0", "Account.User1.Password="),
    ("readwithlevel:Account.User1.Password&0", "Account.User1.Password="),
    ("readvalue:Account.User1.Password", ""),
    ("read:Wifi.*", "Wifi.Key.PassWord="),
    ("readattr:Wifi.*", "Wifi.Key.password="),
    ("readattr:Wifi.Key.#", "Wifi.Key.password="),
    ("readsingleattr:Wifi.Key.password", ""),
]
SHOWN = ("geheim", "funk", "offen", "enc:")


@pytest.mark.parametrize("request_text,empty", READING)
def test_without_secrets_a_password_is_shown_as_empty(device, request_text, empty):
    started(device, f"allow user {WEB} read\nallow user {STRANGER} read,secrets\n")
    with Peer(device, WEB) as web, Peer(device, STRANGER) as trusted:
        seen = web.request(request_text)
        assert seen.code >= 0
        assert not [one for one in SHOWN if one in seen.text]
        assert empty in [line.rstrip("\0") for line in seen.lines]
        shown = trusted.request(request_text)
        assert [one for one in SHOWN if one in shown.text]
        assert shown == device.request(request_text)


def test_secrets_are_shown_of_the_documents_of_the_rule_alone(device):
    started(device, f"allow user {WEB} read\nallow user {WEB} secrets on Wifi\n")
    with Peer(device, WEB) as web:
        lines = web.request("read:*").lines
        assert "Account.User1.Password=" in lines and "Wifi.Key.PassWord=funk" in lines


# ---- files and programs -------------------------------------------------------------------------

EXCHANGE = "<ROOT><Network><Lan><Mtu>1300</Mtu></Lan></Network></ROOT>"
WITH_PROGRAM = '<ROOT><Network><Lan><Mtu DispatchW="/bin/sh">1300</Mtu></Lan></Network></ROOT>'
READERS = ["upload", "restore", "syncxml"]


@pytest.mark.parametrize("command", READERS)
def test_files_are_taken_from_named_directories_alone(device, command):
    started(device, f"files-below /mnt/in\nallow user {WEB} files on Network\n")
    device.write_file("/mnt/in/new", EXCHANGE)
    device.write_file("/mnt/other/new", EXCHANGE)
    device.make_directory("/mnt/in/deep")
    os.symlink("/mnt/other/new", device.outside("/mnt/in/link"))
    os.symlink("/mnt/other", device.outside("/mnt/in/away"))
    os.link(device.outside("/mnt/other/new"), device.outside("/mnt/in/second-name"))
    with Peer(device, WEB) as web:
        for path in ("/mnt/other/new", "/mnt/in/link", "/mnt/in/away/new", "/mnt/in/../other/new",
                     "/mnt/in/deep/../new", "/mnt/in/./new", "/mnt/in2/new", "in/new", "/mnt/in/second-name",
                     "/mnt/in", ""):
            assert web.request(f"{command}:{path}") == REFUSED, path
        assert b"1500" in device.read_document("Network")
        assert web.request(f"{command}:/mnt/in/missing").code == -3
        assert web.request(f"{command}:/mnt/in//new").code == 0
    assert device.request("readvalue:Network.Lan.Mtu").text in ("1300", "1500")


@pytest.mark.parametrize("command", READERS)
def test_documents_of_a_file_count(device, command):
    started(device, f"files-below /mnt/in\nallow user {WEB} files on Network\n")
    device.write_file("/mnt/in/two", EXCHANGE.replace("</ROOT>", "<Account><X>1</X></Account></ROOT>"))
    with Peer(device, WEB) as web:
        assert web.request(f"{command}:/mnt/in/two") == REFUSED
        assert device.read_document("Network") == NETWORK.encode()
        assert device.read_document("Account") == ACCOUNT.encode()
        device.write_access(f"allow user root all\nfiles-below /mnt/in\nallow user {WEB} files\n")
        device.sync()
        assert web.request(f"{command}:/mnt/in/two").code == 0
    assert device.request("readvalue:Account.X").text == "1"


@pytest.mark.parametrize("command", READERS)
def test_a_file_that_names_a_program_needs_admin(device, command):
    started(device, f"files-below /mnt/in\nallow user {WEB} files\nallow user {STRANGER} files,admin\n")
    device.write_file("/mnt/in/new", WITH_PROGRAM)
    with Peer(device, WEB) as web, Peer(device, STRANGER) as admin:
        assert web.request(f"{command}:/mnt/in/new") == REFUSED
        assert device.read_document("Network") == NETWORK.encode()
        assert admin.request(f"{command}:/mnt/in/new").code == 0


def test_writing_a_programs_name_needs_admin(device):
    started(device, f"allow user {WEB} write\nallow user {STRANGER} write,admin\n")
    with Peer(device, WEB) as web, Peer(device, STRANGER) as admin:
        assert web.request("writeattr:Network.Lan.Level=1").code == 1
        assert web.request("writeattr:Network.Lan.Level=2\nNetwork.Lan.DispatchW=/bin/sh") == REFUSED
        assert web.request("writeattr:DispatchW=/bin/sh") == REFUSED
        assert device.request("readsingleattr:Network.Lan.Level") == (1, b"1")
        assert admin.request("writeattr:Network.Lan.DispatchW=/bin/sh").code == 1


def test_a_file_is_written_only_where_nobody_else_could_exchange_it(device):
    started(device, f"files-below /mnt/out\nallow user {WEB} files,secrets\nallow user {STRANGER} files\n")
    device.make_directory("/mnt/out/web")
    os.chown(device.outside("/mnt/out/web"), WEB, WEB)
    device.write_file("/mnt/target", "old")
    os.symlink("/mnt/target", device.outside("/mnt/out/link"))
    with Peer(device, WEB) as web, Peer(device, STRANGER) as stranger:
        for path in ("/mnt/out/web/all", "/mnt/out/link", "/mnt/all", "/mnt/out/../all"):
            assert web.request("download:" + path) == REFUSED, path
        assert stranger.request("download:/mnt/out/all") == REFUSED, "it would hold the secrets"
        assert device.read_file("/mnt/target") == b"old"
        assert not device.file_exists("/mnt/all") and not device.file_exists("/mnt/out/all")
        assert web.request("download:/mnt/out/all").code == 0
    assert b"<Wifi>" in device.read_file("/mnt/out/all")


def test_root_is_held_to_no_directories(device):
    started(device, "")
    device.write_file("/mnt/other/new", WITH_PROGRAM)
    assert device.request("download:/mnt/other/all").code == 0
    assert device.request("upload:/mnt/other/new").code == 0


# ---- shares and deadlines -----------------------------------------------------------------------

def test_one_user_cannot_take_every_place(device):
    device.write_access("allow any read\nplaces-per-user 40%\n")
    device.start(limits={"NOFILE": 1024})
    with Peer(device, STRANGER) as stranger, Peer(device, WEB) as web:
        held = stranger.hold(5000)
        assert 0.35 * 1016 < held < 0.41 * 1016
        assert web.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
        assert stranger.request("readvalue:Network.Lan.Mtu").code is None
        stranger.release()
        wait_until(lambda: stranger.request("readvalue:Network.Lan.Mtu") == (4, b"1500"),
                   "the places are free again")
    (line,) = re.findall(r"access refused: .*", device.stderr())
    assert f"holds its share of {held} places" in line


def test_root_may_take_every_place(device):
    device.write_access("allow any read\nplaces-per-user 3\n")
    device.start()
    clients = [device.connect() for _ in range(10)]
    assert all(client.is_open() for client in clients)
    assert device.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
    for client in clients:
        client.close()


def test_a_withheld_payload_ends_its_client_where_there_is_a_deadline(device):
    device.write_access(f"allow any read\nrequest-deadline 20ms except {WEB}\n")
    device.start()
    with device.connect() as client:
        client.send(b"?\x20\x00\x00\x00readvalue:")
        assert client.receive(100) == b""
    assert device.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
    assert "do_read request deadline is over!!\n" in device.stderr()
    assert "access refused" not in device.stderr()


def test_who_is_excepted_has_no_deadline(device):
    device.write_access("allow any read\nrequest-deadline 20ms except root\n")
    device.require_no_sanitizer("thread", "its runtime and strace wait for each other")
    device.start_traced(calls="poll")
    with device.connect() as client:
        client.send(b"?\x1c\x00\x00\x00readvalue:")
        wait_until(lambda: re.search(r"POLLIN\}\], 1, -1", "".join(device.trace())),
                   "the service waits for the rest without an end")
        client.send(b"Network.Lan.Mtu\x00\x00\x00")
        assert client.receive_reply() == (4, b"1500")


# ---- permissive mode and the trail --------------------------------------------------------------

def test_permissive_mode_tells_each_need_once_and_refuses_nothing(device):
    device.write_access(f"mode permissive\nallow user {WEB} read\nplaces-per-user 1\nrequest-deadline 1ms\n")
    device.start()
    device.write_file("/mnt/new", EXCHANGE)
    with Peer(device, WEB, group=STAFF) as web:
        for _ in range(3):
            assert web.request("write:Network.Lan.Mtu=1\nWifi.Key.Mode=2").code == 2
            assert web.request("CheckSession:token").code == -4
            assert "geheim" in web.request("read:Account.*").text
            assert web.request("upload:/mnt/new").code == 0
    who = f"would be refused: user {WEB} group {STAFF} class "
    assert re.findall(rf"{who}(.*)", device.stderr()) == [
        "write document Network", "write document Wifi", "sessions document -",
        "secrets document Account", "files document -"]
    assert "access refused" not in device.stderr()


@pytest.fixture
def system_log(device):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
        log.bind(str(device.outside(SYSTEM_LOG)))
        log.settimeout(device.patience)
        yield log


def record(log):
    """The next record: what it is, and its parameters in order."""
    text = log.recv(8192).decode()
    head = re.match(r"<(\d+)>1 \d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z \S+ veltrancord \d+ (\S+) "
                    r"\[veltrancord@32473 (.*)\] \S", text)
    assert head, text
    parameters = re.findall(r'([a-z]+)="((?:[^"\\\]]|\\.)*)"', head[3])
    return head[1], head[2], [one for one in parameters if one[0] not in ("pid", "program")]


def test_changes_and_refusals_leave_a_trail(device, system_log):
    started(device, f"allow user {WEB} read,write\ntrail changes values\ntrail refusals\n")
    with Peer(device, WEB) as web:
        assert web.request("readvalue:Network.Lan.Mtu").code == 4
        assert web.request("write:Network.Lan.Mtu=1400\nAccount.User1.Password=neu\nWifi.Name=a\"]b").code == 3
        assert web.request("writeattr:Network.Lan.Mtu.Level=2").code == 1
        assert web.request("remove:Network.Lan") == REFUSED
    assert device.request("syncmemtoflash:").code == 0
    who = [("user", str(WEB)), ("uid", str(WEB))]
    assert record(system_log) == ("85", "change", [
        *who, ("command", "write"), ("path", "Network.Lan.Mtu"), ("old", "1500"), ("new", "1400"),
        ("path", "Account.User1.Password"), ("path", "Wifi.Name"), ("old", ""), ("new", 'a\\"\\]b'),
        ("result", "3")])
    assert record(system_log)[2][2:] == [("command", "writeattr"), ("path", "Network.Lan.Mtu.Level"),
                                         ("old", ""), ("new", "2"), ("result", "1")]
    assert record(system_log) == ("84", "refused", [
        *who, ("command", "remove"), ("path", "Network.Lan"), ("result", "-12")])
    assert record(system_log)[2] == [("user", "root"), ("uid", "0"), ("command", "syncmemtoflash"),
                                     ("result", "0")]


def test_a_log_that_is_gone_holds_nobody_up_and_is_found_again(device, system_log):
    started(device, "trail changes\n")
    system_log.close()
    os.remove(device.outside(SYSTEM_LOG))
    for value in range(3):
        assert device.request(f"write:Network.Lan.Mtu={value}").code == 1
    assert device.stderr().count("records are lost\n") == 1
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
        log.bind(str(device.outside(SYSTEM_LOG)))
        log.settimeout(device.patience)
        assert device.request("write:Network.Lan.Mtu=4").code == 1
        assert ("lost", "3") in record(log)[2]
    assert "trail: /dev/log takes records again, 3 are lost\n" in device.stderr()


def test_a_log_that_is_full_holds_nobody_up(device, system_log):
    started(device, "trail changes\n")
    count = 600  # more than the kernel keeps for one that does not read
    for value in range(count):
        assert device.request(f"write:Network.Lan.Mtu={value % 2}").code == 1
    assert device.stderr().count("records are lost\n") == 1
    for _ in range(5):
        record(system_log)
    assert device.request("write:Network.Lan.Mtu=9").code == 1
    assert re.search(r"trail: /dev/log takes records again, \d+ are lost\n", device.stderr())
