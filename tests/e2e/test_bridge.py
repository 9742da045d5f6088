"""veltrancord-bridge with a real broker: what a device tells, and how it takes changes."""

import contextlib
import re
import shutil
import signal
import time

import pytest

import fleet
from device import wait_until
from fleet import Bridge, Broker, Operator

NETWORK = "<Network><Lan><Mtu>1500</Mtu><Dhcp>YES</Dhcp><Label>old</Label></Lan></Network>"
SYSTEM = "<System><Name>yard</Name></System>"
DOCUMENTS = {"Network": NETWORK, "System": SYSTEM}
NAME = "yard-1"


@pytest.fixture(scope="module")
def certificates(tmp_path_factory):
    fleet.require()
    return fleet.make_certificates(tmp_path_factory.mktemp("certificates"), NAME, "yard-2")


@pytest.fixture
def broker(certificates, tmp_path):
    one = Broker(tmp_path / "broker", certificates)
    yield one
    one.close()


@pytest.fixture
def operator(broker):
    one = Operator(broker)
    yield one
    one.close()


@pytest.fixture
def bridge(service, broker, operator):
    """A running bridge that the operator sees."""
    one = Bridge(service(DOCUMENTS, "-l"), broker, NAME).start()
    operator.wait_status(NAME, state="online")
    return one


def add_event(device, text, kind=4):
    record = kind.to_bytes(4, "little") + bytes(7) + text.encode().ljust(16, b"\0") + bytes(5)
    assert device.request(b"writelog:" + record).code == 0


def begin_trial(bridge, operator, settings=None, **arguments):
    """Return: the result that tells of the trial, over the new connection."""
    operator.send_change(NAME, settings or {"Network.Lan.Mtu": "1400"}, **arguments)
    return operator.wait_result(NAME, state="trial", sequence=str(arguments.get("sequence", 1)))


def given_back(bridge):
    assert bridge.value() == "1500"
    assert ">1500<" in bridge.on_flash() and "1400" not in bridge.on_flash()


# ---- what it tells -----------------------------------------------------------------------------

def test_a_device_tells_that_it_is_there_and_that_it_is_not(bridge, operator):
    status = operator.last(NAME, "status")
    assert status["changes"] == "yes" and status["trial"] == "no" and status["clock"] == "set"
    bridge.kill()
    operator.wait_status(NAME, state="offline")


def test_what_is_saved_is_reported_with_its_hash(bridge, operator):
    assert operator.base(NAME, "System") != operator.base(NAME, "Network")
    assert operator.last(NAME, "config/reported/System")["body"] == "System.Name=yard\n"
    before = operator.base(NAME, "Network")
    bridge.device.request("write:Network.Lan.Mtu=1300")
    wait_until(lambda: operator.base(NAME, "Network") != before, "it is reported")
    assert "Network.Lan.Mtu=1300\n" in operator.last(NAME, "config/reported/Network")["body"]


def test_events_come_as_they_are_written(bridge, operator):
    for text in ("door", "gate"):
        add_event(bridge.device, text)
    wait_until(lambda: len(operator.all(NAME, "event")) == 2, "both events are there")
    first, second = operator.all(NAME, "event")
    assert (first["text"], second["text"]) == ("door", "gate")
    assert first["type"] == "4" and first["lost"] == "0" and first["number"] == "1"


def test_paging_through_the_log_is_not_disturbed(bridge, operator):
    for number in range(6):
        add_event(bridge.device, f"e{number}")
    page = bridge.device.request("readlog:1&-1&2").body
    add_event(bridge.device, "late")
    wait_until(lambda: len(operator.all(NAME, "event")) == 7, "all events are there")
    rest = b"".join(bridge.device.request("readlog:2&-1&2").body for _ in range(2))
    assert [(page + rest)[at + 11:at + 13] for at in range(0, 192, 32)] == [
        b"e5", b"e4", b"e3", b"e2", b"e1", b"e0"]


def test_no_secret_leaves_the_device(sample, broker, operator):
    """Of the sample configuration, with all of it told that can be."""
    names = [one.name for one in sample.outside("/mnt/database/xml").iterdir()
             if not one.name.startswith(".")]
    secrets = set()
    for name in names:
        lines = sample.request(f"read:{name}.*").text.splitlines()
        secrets |= {line.partition("=")[2] for line in lines
                    if line.partition("=")[0].lower().endswith(".password")}
    secrets.discard("")
    assert len(secrets) >= 10
    told = [name for name in names if name != "Account"]
    Bridge(sample, broker, NAME, report=[f"{name}.*" for name in names]).start()
    for name in told:
        operator.base(NAME, name)
    everything = b"\n".join(payload for _, payload, _ in operator.messages).decode()
    assert "Account" not in everything and "assword=" not in everything
    assert "enc:" not in everything
    assert not [one for one in secrets if f"={one}\n" in everything]


# ---- changes -----------------------------------------------------------------------------------

def test_a_change_is_tried_and_kept_when_it_is_confirmed(bridge, operator):
    result = begin_trial(bridge, operator, {"Network.Lan.Mtu": "1400", "Network.Lan.Dhcp": "NO"},
                         remove=["Network.Lan.Label"])
    assert result["body"] == ("-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1400\n-Network.Lan.Dhcp=YES\n"
                              "+Network.Lan.Dhcp=NO\n-Network.Lan.Label=old\n")
    assert 0 < int(result["seconds"]) <= 60
    assert bridge.value() == "1400" and ">1500<" in bridge.on_flash()
    operator.wait_status(NAME, trial="yes")
    operator.send_answer(NAME)
    operator.wait_result(NAME, state="applied")
    assert ">1400<" in bridge.on_flash() and ">NO<" in bridge.on_flash()
    assert "Label" not in bridge.on_flash()
    wait_until(lambda: "Network.Lan.Mtu=1400" in
               operator.last(NAME, "config/reported/Network")["body"], "it is reported")
    operator.wait_status(NAME, trial="no")
    wait_until(lambda: not bridge.guards(), "the guard has ended")


def test_nobody_confirms(bridge, operator):
    saves = bridge.saves()
    operator.send_change(NAME, {"Network.Lan.Mtu": "1400"}, trial=1)
    operator.wait_result(NAME, state="rolled-back")
    given_back(bridge)
    assert bridge.saves() == saves


def test_the_operator_gives_back(bridge, operator):
    begin_trial(bridge, operator)
    operator.send_answer(NAME, answer="give-back")
    operator.wait_result(NAME, state="rolled-back")
    given_back(bridge)


def test_it_is_confirmed_on_the_device(bridge, operator):
    begin_trial(bridge, operator)
    tool = "/run/host" + fleet.command_line.program()
    assert bridge.device.run(tool, "confirm").status == 0
    operator.wait_result(NAME, state="applied")


def test_a_preview_changes_nothing(bridge, operator):
    settings = {"Network.Lan.Mtu": "1400", "Network.Lan.Dhcp": "YES"}
    operator.send_change(NAME, settings, kind="preview")
    result = operator.wait_result(NAME, state="preview")
    assert result["body"] == "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1400\n"
    operator.send_change(NAME, {"System.Name": "x"}, kind="preview", sequence=2)
    operator.wait_result(NAME, state="refused", sequence="2")
    given_back(bridge)
    begin_trial(bridge, operator)  # the sequence was not used up


def test_another_change_is_refused_while_one_is_tried(bridge, operator):
    begin_trial(bridge, operator)
    operator.send_change(NAME, {"Network.Lan.Dhcp": "NO"}, sequence=2)
    assert "busy" in operator.wait_result(NAME, state="refused", sequence="2")["reason"]
    operator.send_answer(NAME)
    operator.wait_result(NAME, state="applied", sequence="1")
    assert bridge.value("Network.Lan.Dhcp") == "YES"


def test_a_trial_of_the_tool_makes_it_busy(bridge, operator):
    device = bridge.device
    device.write_file("/tmp/wanted", "System.Name=x\n")
    tool = "/run/host" + fleet.command_line.program()
    _, base = device.launch("/usr/bin/env", "VELTRANCORD_STATE=/tmp/state", tool, "apply", "/tmp/wanted",
                            "--confirm", "600")
    wait_until(lambda: b"come back" in device.read_file(base + ".err"), "the tool's change waits")
    operator.send_change(NAME, {"Network.Lan.Mtu": "1400"})
    assert operator.wait_result(NAME, state="refused")["reason"].startswith("busy")
    given_back(bridge)


# ---- what is not taken -------------------------------------------------------------------------

def refuse_all(bridge, operator, sends):
    """Sends each, and a change that nothing is wrong with behind it: when that one was looked at,
    each of those before it was. Return: the reasons, in their order."""
    before = bridge.saves(), bridge.saves("System")
    for send in sends:
        send()
    operator.send_change(NAME, {"Network.Lan.Mtu": "1500"}, sequence=1000)
    operator.wait_result(NAME, state="applied", sequence="1000", reason="nothing differs")
    given_back(bridge)
    assert (bridge.saves(), bridge.saves("System")) == before
    results = operator.all(NAME, "config/result")
    assert {one["state"] for one in results[:-1]} <= {"refused", "conflict", "expired"}
    return [one.get("reason", one["state"]) for one in results[:-1]]


@pytest.mark.fault("T3")
def test_only_what_an_operator_has_signed_is_taken(bridge, operator, certificates):
    wanted = {"Network.Lan.Mtu": "1400"}
    text = operator.change_text(NAME, wanted)
    fleet.subprocess.run(["openssl", "genpkey", "-algorithm", "ED25519", "-out",
                          certificates / "other.key"], check=True)
    signed = operator.sign(NAME, "desired", text)
    reasons = refuse_all(bridge, operator, [
        lambda: operator.publish(NAME, "desired", text),
        lambda: operator.publish(NAME, "desired", "signature=\n" + text),
        lambda: operator.publish(NAME, "desired", operator.sign(NAME, "desired", text, "other")),
        lambda: operator.publish(NAME, "desired", signed.replace(b"1400", b"1401")),
        lambda: operator.publish(NAME, "desired", operator.sign(NAME, "preview", text)),
        lambda: operator.publish(NAME, "desired", operator.sign("yard-2", "desired", text)),
        lambda: operator.publish(NAME, "desired", b"x" * (64 * 1024 + 1)),
        lambda: operator.publish(NAME, "desired", b""),
    ])
    assert reasons == ["not signed by an operator"] * 6 + ["over 64 KiB"]


@pytest.mark.fault("T3")
def test_what_an_operator_may_not_change_is_refused(bridge, operator):
    refused = {"System.Name": "x", "Account.User1.Username": "x", "Network.Lan.Password": "x",
               "Network.Wan.Mtu": "1", "Maintenance.XMLDBCallBack": "x"}
    sends = [lambda number=number, path=path, value=value: operator.send_change(
                 NAME, {path: value, "Network.Lan.Mtu": "1400"}, sequence=number,
                 bases={"Network": operator.base(NAME, "Network")})
             for number, (path, value) in enumerate(refused.items(), 1)]
    reasons = refuse_all(bridge, operator, sends)
    assert reasons == [f"{path}: not on the list of what may be written" for path in refused]


def test_a_value_that_its_description_does_not_allow_is_refused(service, broker, operator):
    device = service(DOCUMENTS)
    device.write_file("/run/schema/Network.xsd", """<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">
  <xs:element name="Network"><xs:complexType><xs:all><xs:element name="Lan"><xs:complexType><xs:all>
    <xs:element name="Mtu" minOccurs="0"><xs:simpleType><xs:restriction base="xs:unsignedShort">
      <xs:minInclusive value="68"/><xs:maxInclusive value="9000"/></xs:restriction></xs:simpleType></xs:element>
    <xs:element name="Dhcp" type="xs:string" minOccurs="0"/>
    <xs:element name="Label" type="xs:string" minOccurs="0"/>
  </xs:all></xs:complexType></xs:element></xs:all></xs:complexType></xs:element>
</xs:schema>""")
    bridge = Bridge(device, broker, NAME, lines=["descriptions=/run/schema"]).start()
    reasons = refuse_all(bridge, operator, [
        lambda: operator.send_change(NAME, {"Network.Lan.Mtu": "14o0"}, sequence=1),
        lambda: operator.send_change(NAME, {"Network.Lan.Mtus": "1400"}, sequence=2)])
    assert "has to be a whole number from 68 to 9000" in reasons[0] and "Network.Lan.Mtus" in reasons[1]


@pytest.mark.fault("T3")
def test_old_late_and_foreign_changes_are_refused(bridge, operator):
    wanted = {"Network.Lan.Mtu": "1400"}
    nothing = {"Network.Lan.Mtu": "1500"}
    reasons = refuse_all(bridge, operator, [
        lambda: operator.send_change(NAME, wanted, sequence=5, not_after=1798761600 - 10**9),
        lambda: operator.send_change(NAME, wanted, sequence=4),
        lambda: operator.send_change(NAME, wanted, sequence=5, identity="another"),
        lambda: operator.send_change(NAME, wanted, sequence=6, to="yard-2"),
        lambda: operator.send_change(NAME, wanted, sequence=7, bases={"Network": "0" * 64}),
        lambda: operator.send_change(NAME, wanted, sequence=8, bases={}),
        lambda: operator.send_change(NAME, {**nothing, **{f"Network.Lan.a{n}": "1" for n in range(200)}},
                                     sequence=9),
    ])
    assert reasons == ["expired", "its sequence is not above 5", "its sequence is not above 5",
                       "for another device", "Network: is not what the change was made for",
                       "Network: its base hash is missing", "over 200 settings"]


def test_a_setting_that_starts_a_program_must_be_named_exactly(service, broker, operator):
    documents = {"Network": '<Network><Lan><Mtu DispatchW="/bin/true">1500</Mtu><Dhcp '
                            'DispatchW="/bin/true">YES</Dhcp></Lan></Network>'}
    bridge = Bridge(service(documents), broker, NAME, writable=["Network.Lan.*", "Network.Lan.Dhcp"])
    bridge.start()
    operator.send_change(NAME, {"Network.Lan.Mtu": "1400"})
    assert "starts a program" in operator.wait_result(NAME, state="refused")["reason"]
    begin_trial(bridge, operator, {"Network.Lan.Dhcp": "NO"}, sequence=2)


def test_without_a_key_or_a_list_it_only_reports(service, broker, operator):
    device = service(DOCUMENTS)
    for arguments in ({"keys": ()}, {"writable": ()}):
        bridge = Bridge(device, broker, NAME, report=["Network.*"], **arguments)
        assert "takes no changes" in bridge.run("--check").stdout
        bridge.start()
        operator.wait_status(NAME, state="online", changes="no")
        operator.send_change(NAME, {"Network.Lan.Mtu": "1400"})
        operator.send_change(NAME, {"Network.Lan.Mtu": "1400"}, kind="preview")
        add_event(device, "behind")  # the broker hands out in order
        wait_until(lambda: operator.all(NAME, "event"), "the event is there")
        assert not operator.all(NAME, "config/result") and bridge.value() == "1500"
        bridge.kill()
        operator.wait_status(NAME, state="offline")
        operator.forget()


def test_a_confirmation_of_something_else_keeps_nothing(bridge, operator):
    begin_trial(bridge, operator, trial=60)
    operator.send_answer(NAME, sequence=2)
    operator.send_answer(NAME, identity="another")
    operator.send_answer(NAME, not_after=1)
    operator.send_answer(NAME, to="yard-2")
    operator.publish(NAME, "confirm", b"id=change-1\ndevice=yard-1\nsequence=1\nnot-after=9999999999\n"
                                      b"answer=keep\n")
    operator.send_answer(NAME, answer="give-back")
    operator.wait_result(NAME, state="rolled-back")
    given_back(bridge)
    assert [one.get("reason") for one in operator.all(NAME, "config/result")[-6:-1]] == [
        "there is no such trial", "there is no such trial", None, "for another device",
        "not signed by an operator"]


def test_both_keys_count_during_a_change_over(service, broker, operator, certificates):
    for command in (["genpkey", "-algorithm", "ED25519", "-out", certificates / "next.key"],
                    ["pkey", "-in", certificates / "next.key", "-pubout", "-out", certificates / "next.pem"]):
        fleet.subprocess.run(["openssl", *command], check=True)
    bridge = Bridge(service(DOCUMENTS), broker, NAME, keys=("signing", "next")).start()
    for sequence, key in enumerate(("signing", "next"), 1):
        begin_trial(bridge, operator, sequence=sequence, key=key)
        operator.send_answer(NAME, sequence, "give-back", key=key)
        operator.wait_result(NAME, state="rolled-back", sequence=str(sequence))


# ---- once --------------------------------------------------------------------------------------

@pytest.mark.fault("T3")
def test_a_change_that_comes_again_is_not_made_again(bridge, broker, operator):
    """With the broker, the bridge, the service and the device started anew."""
    begin_trial(bridge, operator)
    operator.send_answer(NAME)
    operator.wait_result(NAME, state="applied")
    bridge.device.request("write:Network.Lan.Mtu=1500")
    saves = bridge.saves()
    journal = bridge.device.read_file(f"{fleet.FLASH}/changes")

    def again(restart):
        operator.forget()
        restart()
        operator.wait_status(NAME, state="online")
        operator.wait_result(NAME, sequence="1")
        assert bridge.value() == "1500" and bridge.saves() == saves
        assert bridge.device.read_file(f"{fleet.FLASH}/changes") == journal

    def restart_broker():
        broker.stop()
        broker.start()
    again(restart_broker)

    def restart_bridge():
        bridge.kill()
        operator.wait_status(NAME, state="offline")
        operator.forget()
        bridge.start()
    again(restart_bridge)
    assert operator.last(NAME, "config/result")["state"] == "applied"

    def restart_device():
        bridge.device.power_cut()
        shutil.rmtree(bridge.device.outside(fleet.MEMORY))
        bridge.device.make_directory(fleet.MEMORY)
        bridge.device.start("-l")
        operator.wait_status(NAME, state="offline")
        operator.forget()
        bridge.start()
    again(restart_device)
    assert operator.last(NAME, "config/result")["state"] == "rolled-back"  # as it is now
    assert bridge.value() == "1500"


@pytest.mark.fault("T3")
def test_rolled_back_and_refused_are_final(bridge, broker, operator):
    operator.send_change(NAME, {"Network.Lan.Mtu": "1400"}, trial=1)
    operator.wait_result(NAME, state="rolled-back")
    for _ in range(2):
        operator.forget()
        broker.stop()
        broker.start()
        operator.wait_status(NAME, state="online")
        add_event(bridge.device, "behind")
        wait_until(lambda: operator.all(NAME, "event"), "the event is there")
        assert {one["state"] for one in operator.all(NAME, "config/result")} == {"rolled-back"}
        given_back(bridge)
        assert not bridge.guards()


def test_a_journal_that_cannot_be_written_lets_nothing_be_changed(bridge, operator):
    bridge.device.mount_tmpfs(fleet.FLASH)
    bridge.device.set_read_only(fleet.FLASH)
    operator.send_change(NAME, {"Network.Lan.Mtu": "1400"})
    assert "journal" in operator.wait_result(NAME, state="refused")["reason"]
    given_back(bridge)


def test_a_damaged_journal_makes_it_report_only(service, broker, operator):
    bridge = Bridge(service(DOCUMENTS), broker, NAME)
    bridge.device.write_file(f"{fleet.FLASH}/changes", "rubbish\n")
    bridge.start()
    operator.wait_status(NAME, state="online", changes="no")
    assert "is damaged" in bridge.stderr()


# ---- cut off, and killed -----------------------------------------------------------------------

@pytest.mark.fault("T3")
def test_a_confirmation_counts_over_a_new_connection_only(service, broker, operator):
    """New connections fail, as behind a wrong gateway, while the old one goes on living."""
    device = service(DOCUMENTS)
    bridge = Bridge(device, broker, NAME, plain=True)
    way = device.outside(f"{fleet.SETTINGS}/way")
    way.symlink_to(f"/run/host{broker.plain}")
    text = device.read_file(f"{fleet.SETTINGS}/bridge.conf").decode()
    device.write_file(f"{fleet.SETTINGS}/bridge.conf",
                      text.replace(f"/run/host{broker.plain}", f"{fleet.SETTINGS}/way"))
    bridge.start()
    operator.wait_status(NAME, state="online")
    way.unlink()
    operator.send_change(NAME, {"Network.Lan.Mtu": "1400"}, trial=2)
    device.wait_for_file(f"{fleet.MEMORY}/last-change")  # the trial has begun
    operator.send_answer(NAME)
    wait_until(lambda: not bridge.guards(), "the guard has given back")
    given_back(bridge)
    way.symlink_to(f"/run/host{broker.plain}")
    operator.wait_result(NAME, state="rolled-back")
    assert not any(one["state"] == "trial" for one in operator.all(NAME, "config/result"))


@pytest.mark.fault("T3")
def test_a_route_that_is_cut_during_a_trial(service, certificates, tmp_path):
    """The broker and the bridge in a network of their own, which goes down when the trial has begun."""
    device = service(DOCUMENTS)
    holder, _ = device.launch("unshare", "--net", "sh", "-c",
                              "ip link set lo up; : >/tmp/net; exec sleep 600000")
    device.wait_for_file("/tmp/net")
    enter = ("nsenter", f"--net=/proc/{holder}/ns/net", "--")
    broker = Broker(tmp_path / "broker", certificates, launch=lambda *words: device.launch(*enter, *words))
    with contextlib.closing(Operator(broker, through=broker.plain)) as operator:
        bridge = Bridge(device, broker, NAME).start(under=enter)
        operator.wait_status(NAME, state="online")
        operator.send_change(NAME, {"Network.Lan.Mtu": "1400"}, trial=3)
        device.wait_for_file(f"{fleet.MEMORY}/last-change")
        assert device.run(*enter, "ip", "link", "set", "lo", "down").status == 0
        operator.send_answer(NAME)
        wait_until(lambda: not bridge.guards(), "the guard has given back")
        given_back(bridge)
        assert device.run(*enter, "ip", "link", "set", "lo", "up").status == 0
        operator.wait_result(NAME, state="rolled-back")


@pytest.mark.parametrize("state", ["trial", "confirmed"])
def test_a_killed_bridge(bridge, operator, state):
    """Its guard, or the next run, gives back; what was confirmed is kept."""
    begin_trial(bridge, operator)
    if state == "confirmed":
        # Stopped where the decision was made and nothing done yet.
        for pid in bridge.guards():
            bridge.device.send_signal(pid, signal.SIGSTOP)
        bridge.device.send_signal(bridge.device.worker_pid, signal.SIGSTOP)
        operator.send_answer(NAME)
        wait_until(lambda: bridge.device.file_exists("/run/veltrancord/trial-keeping"), "it was decided")
        bridge.kill()
        bridge.device.send_signal(bridge.device.worker_pid, signal.SIGCONT)
        for pid in bridge.guards():
            bridge.device.send_signal(pid, signal.SIGCONT)
        wait_until(lambda: not bridge.guards(), "the guard has finished it")
        assert ">1400<" in bridge.on_flash()
    else:
        bridge.kill()
        operator.wait_status(NAME, state="offline")
        bridge.start()
        operator.wait_result(NAME, state="rolled-back")
        given_back(bridge)
        wait_until(lambda: not bridge.guards(), "the guard has ended")


@pytest.mark.fault("T3")
def test_a_killed_bridge_that_does_not_come_back(bridge, operator):
    operator.send_change(NAME, {"Network.Lan.Mtu": "1400"}, trial=2)
    bridge.device.wait_for_file(f"{fleet.MEMORY}/last-change")  # the trial has begun
    bridge.kill()
    wait_until(lambda: not bridge.guards(), "the guard has given back")
    given_back(bridge)


@pytest.mark.fault("T3")
def test_a_killed_worker_ends_the_trial(bridge, operator):
    begin_trial(bridge, operator)
    bridge.device.kill_worker()
    operator.wait_result(NAME, state="rolled-back")
    given_back(bridge)


@pytest.mark.fault("T3")
def test_a_power_cut_during_a_trial(bridge, operator):
    begin_trial(bridge, operator)
    bridge.device.power_cut()
    for path in (fleet.MEMORY, "/run/veltrancord"):
        shutil.rmtree(bridge.device.outside(path))
    bridge.device.make_directory(fleet.MEMORY)
    bridge.device.start("-l")
    operator.wait_status(NAME, state="offline")
    bridge.start()
    operator.wait_result(NAME, state="rolled-back")
    given_back(bridge)


def test_a_service_that_comes_late(device, broker, operator):
    """A change that is there before the service answers waits for it."""
    device.write_documents(DOCUMENTS)
    device.start()
    bridge = Bridge(device, broker, NAME).start()
    text = operator.change_text(NAME, {"Network.Lan.Mtu": "1400"})
    device.stop()
    payload = operator.sign(NAME, "desired", text)
    operator.publish(NAME, "desired", payload)
    operator.publish(NAME, "confirm", b"")
    device.start()
    operator.wait_result(NAME, state="trial")


# ---- the broker is away ------------------------------------------------------------------------

def test_a_thousand_events_wait_and_the_others_are_counted(bridge, broker, operator):
    broker.stop()
    wait_until(lambda: "no connection" in bridge.stderr(), "the bridge has noticed")
    memory = None
    with bridge.device.connect():
        pass
    for number in range(2000):
        add_event(bridge.device, f"e{number}")
        if number == 1200:
            memory = bridge.device.memory_kilobytes(bridge.pid, "RssAnon")
    if bridge.device.sanitizer is None:
        assert bridge.device.memory_kilobytes(bridge.pid, "RssAnon") <= memory + 100
    operator.forget()
    broker.start()
    wait_until(lambda: len(operator.all(NAME, "event")) >= 1000, "the events are there")
    told = operator.all(NAME, "event")
    assert [one["text"] for one in told[:1000]] == [f"e{number}" for number in range(1000, 2000)]
    assert sum(int(one["lost"]) for one in told) == 1000


@pytest.mark.parametrize("wrong", ["authority", "expired", "name"])
def test_a_wrong_certificate_makes_no_connection(service, broker, operator, tmp_path, wrong):
    device = service(DOCUMENTS)
    bridge = Bridge(device, broker, NAME)
    if wrong == "name":  # the broker's, for another host
        text = device.read_file(f"{fleet.SETTINGS}/bridge.conf").decode()
        device.write_file(f"{fleet.SETTINGS}/bridge.conf", text.replace("host=127.0.0.1", "host=localhost"))
    elif wrong == "authority":
        other = fleet.make_certificates(tmp_path / "other", NAME)
        for source, target in ((f"{NAME}.pem", "device.pem"), (f"{NAME}.key", "device.key")):
            device.write_file(f"{fleet.SETTINGS}/{target}", (other / source).read_bytes())
    else:
        shutil.copytree(broker.certificates, tmp_path / "late")
        for name in (f"{NAME}.pem", f"{NAME}.key"):
            (tmp_path / "late" / name).unlink()
        late = fleet.make_certificates(tmp_path / "late", NAME, days=0)
        wait_until(lambda: time.time() % 1 > 0, "")
        for source, target in ((f"{NAME}.pem", "device.pem"), (f"{NAME}.key", "device.key")):
            device.write_file(f"{fleet.SETTINGS}/{target}", (late / source).read_bytes())
        wait_until(lambda: fleet.subprocess.run(
            ["openssl", "x509", "-checkend", "0", "-noout", "-in", late / f"{NAME}.pem"],
            capture_output=True, check=False).returncode == 1, "it has expired")
    bridge.start()
    wait_until(lambda: "no connection" in bridge.stderr(), "it has tried")
    wait_until(lambda: "OpenSSL Error" in broker.log() or "closed" in broker.log(), "the broker has seen it")
    assert not operator.all(NAME, "status")


def test_a_device_reaches_nothing_of_another(bridge, broker, operator):
    """With the broker's access list, and its own certificate."""
    change = operator.sign(NAME, "desired", operator.change_text(NAME, {"Network.Lan.Mtu": "1400"}))
    for rest, payload in (("config/desired", change), ("config/result", b"state=applied\n"),
                          ("status", b"state=offline\n"), ("event", b"text=false\n")):
        topic = f"veltrancord/1/{NAME}/{rest}"
        with contextlib.closing(Operator(broker, "yard-2")) as stranger:
            stranger.hand_over(topic, payload, retain=True)
            wait_until(lambda topic=topic: re.search(f"Denied PUBLISH from yard-2.*{topic}", broker.log()),
                       "the broker has refused it")
    with contextlib.closing(Operator(broker, "yard-2")) as stranger:
        operator.publish(NAME, "desired", b"not signed")
        operator.publish("yard-2", "desired", b"not signed")
        wait_until(lambda: stranger.all("yard-2", "config/desired"), "it hears its own")
        assert {topic for topic, _, _ in stranger.messages} == {"veltrancord/1/yard-2/config/desired"}
    assert operator.last(NAME, "status")["state"] == "online"
    assert not operator.all(NAME, "event")
    given_back(bridge)


# ---- its configuration -------------------------------------------------------------------------

def test_what_others_may_write_to_is_not_trusted(service, broker):
    bridge = Bridge(service(DOCUMENTS), broker, NAME)
    assert bridge.run("--check").stdout == f"{NAME}: takes changes\n"
    for name in ("bridge.conf", "writable", "signing.pem"):
        path = bridge.device.outside(f"{fleet.SETTINGS}/{name}")
        path.chmod(0o664)
        refused = bridge.run("--check")
        assert refused.status == 1 and name in refused.stderr and "must be root's" in refused.stderr
        path.chmod(0o644)
    bridge.device.outside(fleet.SETTINGS).chmod(0o777)
    assert bridge.run("--check").status == 1


def test_a_configuration_is_refused_by_its_line(service, broker):
    device = service(DOCUMENTS)
    for line in ("report=*", "port=70000", "keep-alive=1", "hurry=yes", "nothing", "device=other",
                 "report=Network.L*n"):
        refused = Bridge(device, broker, NAME, lines=[line]).run("--check")
        assert refused.status == 1 and line.partition("=")[0] in refused.stderr or "line" in refused.stderr
    bridge = Bridge(device, broker, NAME, plain=True)
    assert bridge.run("--check").status == 0
    text = device.read_file(f"{fleet.SETTINGS}/bridge.conf").decode()
    device.write_file(f"{fleet.SETTINGS}/bridge.conf",
                      text.replace(f"host=/run/host{broker.plain}", "host=192.0.2.1"))
    assert "must be on this machine" in bridge.run("--check").stderr


def test_it_prints_until_when_its_certificate_is_good(service, broker):
    bridge = Bridge(service(DOCUMENTS), broker, NAME)
    printed = bridge.run("--metrics").stdout.splitlines()
    assert printed[1] == "# TYPE veltrancord_certificate_expiry_timestamp_seconds gauge"
    left = int(printed[2].split()[1]) - time.time()
    assert 364 * 86400 < left <= 365 * 86400
