"""veltrancordctl: fsck and doctor."""

import json
import os
import random
import re
import shutil
import signal
import subprocess

import pytest

import command_line
from command_line import Tool
from device import CONFIGURATION, EVENT_LOG, REPOSITORY, wait_until
from scripted_service import ScriptedService, reply


@pytest.fixture
def tool(device):
    return Tool(device)


def kinds(tool, directory="/tmp/db", status=10):
    return {(one["file"], one["path"], one["kind"])
            for one in tool.json("fsck", directory, status=status)}


def test_a_sound_directory_has_no_findings(tool):
    tool.device.copy_sample_database()
    assert kinds(tool, CONFIGURATION, status=0) == set()
    assert tool("fsck").stdout == ""
    assert tool("fsck", "/nonexistent").status == 7


FILES = {
    "Broken": "<Broken><a></Broken>",
    "Empty": "",
    "Other": "<Another><A>1</A></Another>",
    "Dotted.xml": "<Dotted.xml/>",
    "L" * 64: "<L/>",
    "Long": "<Long><A>" + "v" * 4096 + "</A><B>" + "v" * 4095 + "</B></Long>",
    "Secrets": ("<Secrets><A><Password>enc:5:!!!!</Password></A><B><password>plain</password></B>"
                "<C><PASSWORD>enc:abc</PASSWORD></C></Secrets>"),
    "Twice": "<Twice><A>1</A><A>2</A></Twice>",
    "Lines": "<Lines><A><![CDATA[a\nb]]></A></Lines>",
    "Deep": "<Deep>" + "<a>" * 512 + "</a>" * 512 + "</Deep>",
    "Cut": "<Cut>\n<A>1</A>\n</Cut>\n\0<B/>",
    "Comment": "<!-- nothing -->",
    "Roots": "<Roots><A>1</A></Roots><Second/>",
    "Path": "<Path>" + ("<" + "p" * 251 + ">") + "1" + ("</" + "p" * 251 + ">") + "</Path>",
    ".veltrancord-new.Network": "<Netw",
    ".veltrancord-kept.Network": "<Network><Lan><",
    "Stored": "<Stored><Password>enc:183:" + "A" * 248 + "</Password></Stored>",
    "Notification": ("<Notification><Log><BitDefine><Num>4</Num><Def1><Bit>10</Bit></Def1>"
                     "<Def2><Bit>0x10</Bit></Def2><Def3><Bit>0x123456789</Bit></Def3></BitDefine>"
                     "</Log></Notification>"),
    "Account": ("<Account><Permission><Define><Permit1 Type='Switch'>A</Permit1></Define>"
                "<Group1><Name>G</Name><Permit1>YES</Permit1><Permit2>YES</Permit2></Group1>"
                "</Permission><CGIPermitDenyFilter>"
                "<R1><RelatedPermit>Permit1</RelatedPermit></R1>"
                "<R3><RelatedPermit>Permit1</RelatedPermit></R3></CGIPermitDenyFilter></Account>"),
}

EXPECTED = {
    ("Broken", "", "unparsable"),
    ("Deep", "", "unparsable"),
    ("Cut", "", "damaged"),
    ("Comment", "", "no-root"),
    ("Roots", "", "second-root"),
    ("Path", "Path." + "p" * 251, "long-path"),
    (".veltrancord-new.Network", "", "leftover"),
    (".veltrancord-kept.Network", "", "kept"),
    ("Pipe", "", "skipped"),
    ("Stored", "Stored.Password", "long-value"),
    ("Empty", "", "skipped"),
    ("Folder", "", "skipped"),
    ("Dangling", "", "skipped"),
    ("L" * 64, "", "skipped"),
    ("Other", "", "root-name"),
    ("Dotted.xml", "", "dotted-name"),
    ("Long", "Long.A", "long-value"),
    ("Secrets", "Secrets.A.Password", "bad-secret"),
    ("Secrets", "Secrets.B.password", "plain-secret"),
    ("Secrets", "Secrets.C.PASSWORD", "bad-secret"),
    ("Twice", "Twice.A", "same-name"),
    ("Lines", "Lines.A", "line-feed"),
    ("Notification", "Notification.Log.BitDefine.Def1.Bit", "event-bits"),
    ("Notification", "Notification.Log.BitDefine.Def3.Bit", "event-bits"),
    ("Notification", "Notification.Log.BitDefine.Def4.Bit", "event-bits"),
    ("Account", "Account.Permission.Group1.Permit2", "undefined-permit"),
    ("Account", "Account.CGIPermitDenyFilter.R3", "rule-behind-gap"),
}


def test_every_kind_of_finding(tool):
    device = tool.device
    for name, text in FILES.items():
        device.write_file(f"/tmp/db/{name}", text)
    device.make_directory("/tmp/db/Folder")
    device.outside("/tmp/db/Dangling").symlink_to("nowhere")
    os.mkfifo(device.outside("/tmp/db/Pipe"))
    before = {name: device.outside(f"/tmp/db/{name}").read_bytes() for name in FILES}
    assert kinds(tool) == EXPECTED
    assert {name: device.outside(f"/tmp/db/{name}").read_bytes() for name in FILES} == before
    text = tool("fsck", "/tmp/db")
    assert text.status == 10
    assert "Empty: would be skipped: is empty [skipped]\n" in text.stdout
    assert "Broken: does not parse: Error reading end tag. (line 1) [unparsable]\n" in text.stdout
    assert "Deep: does not parse: elements stand more than 512 deep (line 1) [unparsable]\n" in text.stdout
    assert "Cut: is not read from line 4 on: a zero byte, or no element [damaged]\n" in text.stdout
    assert text.stderr == ""


KEPT_BESIDE_THE_LOG = "/mnt/database/eventlog/.veltrancord-kept.log"


def test_fsck_looks_at_the_event_log_too(tool):
    device = tool.device
    device.write_document("Network", "<Network><A>1</A></Network>")
    assert tool("fsck").status == 0  # no log yet is nothing wrong
    device.write_file(EVENT_LOG, "<Log>\n<E1>1</E1>\n<E2")
    device.write_file(KEPT_BESIDE_THE_LOG, "<Log")
    expected = {(EVENT_LOG, "", "unparsable"), (KEPT_BESIDE_THE_LOG, "", "kept")}
    found = {(one["file"], one["path"], one["kind"]) for one in tool.json("fsck", status=10)}
    assert found == expected
    assert kinds(tool, CONFIGURATION, status=0) == set()
    device.write_file("/tmp/db/Network", "<Network/>")
    device.write_file("/tmp/log", "<Log/>\0x")
    log = tool.json("fsck", "/tmp/db", "--log-file", "/tmp/log", status=10)
    assert [(one["file"], one["kind"]) for one in log] == [("/tmp/log", "damaged")]


def test_fsck_and_doctor_show_what_the_service_has_kept(tool):
    device = tool.device
    damaged = "<Network><A>1</A><B"
    device.write_document("Network", damaged)
    device.write_file(EVENT_LOG, damaged)
    device.start()
    damages = "2 findings, see veltrancordctl fsck"
    assert damages in [one["text"] for one in report(tool, 10)[1]["fsck"]]
    assert "kept" not in report(tool, 10)[1]
    assert device.request("write:Network.A=2").code == 1
    assert tool("log", "add", "1", "x").status == 0
    kept = {f"{CONFIGURATION}/.veltrancord-kept.Network", KEPT_BESIDE_THE_LOG}
    for _ in range(2):  # neither of them goes with a restart, and none is a document
        told = report(tool, 10)[1]["kept"]
        assert {one["text"].split(":")[0] for one in told} == kept
        assert {one["state"] for one in told} == {"warning"}
        assert {(one["file"], one["kind"]) for one in tool.json("fsck", status=10)} == {
            (".veltrancord-kept.Network", "kept"), (KEPT_BESIDE_THE_LOG, "kept")}
        assert device.read_file(KEPT_BESIDE_THE_LOG) == damaged.encode()
        assert device.read_document(".veltrancord-kept.Network") == damaged.encode()
        assert device.request("read:*").text == "Network.A=2\n"
        device.restart()


def test_fsck_agrees_with_the_service_on_what_is_loaded(tool):
    device = tool.device
    for name, text in FILES.items():
        device.write_file(f"{CONFIGURATION}/{name}", text)
    skipped = {name for name, _, kind in kinds(tool, CONFIGURATION) if kind == "skipped"}
    device.start()
    log = device.stderr()
    assert skipped == {name for name in FILES if f"skip strxmlPath={CONFIGURATION}/{name}\n" in log}
    assert not device.file_exists(f"{CONFIGURATION}/.veltrancord-new.Network")  # swept, as was told


def test_every_kind_that_there_is_is_tested_here():
    sources = "".join((REPOSITORY / f"client/tool/{name}").read_text()
                      for name in ("file_check.cpp", "setting_check.cpp", "permit_check.cpp"))
    kinds_there_are = set(re.findall(r'"([a-z]+(?:-[a-z]+)+|unparsable|damaged|leftover|kept|skipped)",', sources))
    tested = {kind for _, _, kind in EXPECTED | VOID} | {"rule-permit", "not-readable"}
    assert kinds_there_are == tested


COMMANDS = "".join(f"<C{n}><CMD>c{n}</CMD></C{n}>" for n in range(1, 32))
PARAMETERS = "".join(f"<P{n}>p{n}</P{n}>" for n in range(1, 32))
ACCOUNT = (
    "<Account><Maxuser>3</Maxuser>"
    "<User1><Username>a</Username><Level>G</Level></User1>"
    "<User2><Username>b</Username><Level>Nobody</Level></User2>"
    "<User3><Username>a</Username><Level>H</Level></User3>"
    "<User4><Username>c</Username><Level>G</Level></User4>"
    "<Cloud><Username>s</Username><G><Username>g</Username></G><H/><Nobody><Username>n</Username></Nobody></Cloud>"
    "<Permission><MaxPermDefNum>4</MaxPermDefNum><MaxGroupNum>3</MaxGroupNum><Define>"
    "<Permit1 Type='Switch'>A</Permit1><Permit2 Type='Swich'>B</Permit2><Permit3>C</Permit3><Permit4/>"
    "<Permit5 Type='Switch'>E</Permit5><Permit01 Type='Switch'>F</Permit01><Permitx>G</Permitx></Define>"
    "<Group1><Name>G</Name><Permit1>YES</Permit1><Permit5>YES</Permit5><Permit01>YES</Permit01></Group1>"
    "<Group2><Name>G</Name></Group2><Group3/><Group4><Name>H</Name></Group4></Permission>"
    "<CGIPermitDenyFilter>"
    "<R1><RelatedPermit>Permit1</RelatedPermit><C1><CMD>one</CMD><P1>x</P1><P3>y</P3></C1>"
    "<C3><CMD>three</CMD></C3></R1>"
    f"<R2><RelatedPermit>Permit2</RelatedPermit>{COMMANDS}</R2>"
    f"<R3><RelatedPermit>Permit2</RelatedPermit><C1><CMD>many</CMD>{PARAMETERS}</C1></R3>"
    "<R4><RelatedPermit>Permit1</RelatedPermit><C1><CMD>*</CMD></C1></R4>"
    "<R5><RelatedPermit>Permit2</RelatedPermit><C1><CMD>late</CMD></C1></R5>"
    "<R07><RelatedPermit>Permit2</RelatedPermit></R07></CGIPermitDenyFilter></Account>")
FILTER = "Account.CGIPermitDenyFilter"
VOID = {("Account", path, kind) for path, kind in (
    ("Account.Permission.Define.Permit2", "permit-type"),
    ("Account.Permission.Define.Permit3", "permit-type"),
    ("Account.Permission.Define.Permit4", "permit-number"),
    ("Account.Permission.Define.Permit5", "permit-number"),
    ("Account.Permission.Define.Permit01", "permit-number"),
    ("Account.Permission.Define.Permitx", "permit-number"),
    ("Account.Permission.Group1.Permit5", "undefined-permit"),
    ("Account.Permission.Group1.Permit01", "undefined-permit"),
    ("Account.Permission.Group2", "group-name"),
    ("Account.Permission.Group3", "group-number"),
    ("Account.Permission.Group4", "group-number"),
    ("Account.User2.Level", "user-group"),
    ("Account.User3", "user-slot"),
    ("Account.User4", "user-slot"),
    ("Account.Cloud.H", "cloud-user"),
    ("Account.Cloud.Nobody", "cloud-user"),
    (f"{FILTER}.R1.C1.P3", "parameter-behind-gap"),
    (f"{FILTER}.R1.C3", "command-behind-gap"),
    (f"{FILTER}.R2.C31", "command-behind-gap"),
    (f"{FILTER}.R3.C1.P31", "parameter-behind-gap"),
    (f"{FILTER}.R5.C1", "hidden-command"),
    (f"{FILTER}.R07", "rule-behind-gap"))}


def test_what_the_service_never_reads_of_permits_and_rules(tool):
    tool.device.write_file("/tmp/db/Account", ACCOUNT)
    assert kinds(tool) == VOID
    told = tool("fsck", "/tmp/db").stdout
    assert "Define.Permit5: is never read: MaxPermDefNum is 4 [permit-number]" in told
    assert "Define.Permit4: counts for nothing: it has no name [permit-number]" in told
    assert "Define.Permit01: is never read: numbers go from 1 on, without a zero" in told
    assert 'has the Type "Swich", for which there is no check' in told


def test_cloud_accounts_need_that_of_the_device(tool):
    tool.device.write_file("/tmp/db/Account", (
        "<Account><Cloud><G><Username>g</Username></G></Cloud><Permission><Group1><Name>G</Name></Group1>"
        "</Permission></Account>"))
    assert kinds(tool) == {("Account", "Account.Cloud.G", "cloud-user")}


def a_random_account(chance):
    """Permits with types, groups that hold all permits but one each, and rules of a permit each."""
    permits = {n: chance.choice(("Switch", "Switch", "Channel", "switch", None)) for n in range(1, 9)}
    define = "".join(
        f"<Permit{n}" + (f" Type='{kind}'" if kind else "") + f">Name{n}</Permit{n}>"
        for n, kind in permits.items() if chance.random() < 0.9)
    groups = "".join(
        f"<Group{n}><Name>G{n}</Name>" + "".join(
            f"<Permit{other}>YES</Permit{other}>" for other in permits if other != n) + f"</Group{n}>"
        for n in permits)
    users = "".join(f"<User{n}><Username>u{n}</Username><Level>G{n}</Level></User{n}>" for n in permits)
    rules, asked = "", []
    for rule in range(1, 9):
        permit = rule
        commands = ""
        for command in range(1, 4):
            name = chance.choice((f"C{command}",) * 8 + (f"C0{command}", f"C{command + 1}x"))
            text = chance.choice((f"cmd{rule}-{command}",) * 9 + ("*",) + ("cmd1-1",))
            parameters = [(f"P{n}", f"p{n}") for n in range(1, 4) if chance.random() < 0.8]
            commands += f"<{name}><CMD>{text}</CMD>" + "".join(
                f"<{key}>{value}</{key}>" for key, value in parameters) + f"</{name}>"
            asked += [(permit, f"R{rule}.{name}", key, text, value)
                      for key, value in parameters or [(None, None)]]
        number = chance.choice((rule,) * 30 + (rule + 20,))
        rules += f"<R{number}><RelatedPermit>Permit{permit}</RelatedPermit>{commands}</R{number}>"
        asked = [(p, place.replace(f"R{rule}.", f"R{number}."), *rest) if place.startswith(f"R{rule}.")
                 else (p, place, *rest) for p, place, *rest in asked]
    highest = chance.choice((8, 8, 8, 6))
    text = (f"<Account><Permission><MaxPermDefNum>{highest}</MaxPermDefNum><Define>{define}</Define>{groups}"
            f"</Permission>{users}<CGIPermitDenyFilter>{rules}</CGIPermitDenyFilter></Account>")
    return text, asked


@pytest.mark.parametrize("seed", range(8))
def test_fsck_and_the_service_agree_on_random_permits_and_rules(tool, seed):
    """A user whose group holds every permit but one is denied exactly what a rule of that permit
    catches: what fsck calls void denies nobody, and everything else does."""
    device = tool.device
    text, asked = a_random_account(random.Random(seed))
    device.write_document("Account", text)
    found = {one["path"] for one in json.loads(tool("--json", "fsck", CONFIGURATION).stdout)}
    device.start()
    decided = set()
    for permit, place, parameter, command, value in asked:
        path = f"{FILTER}.{place}"
        rule = path.rsplit(".", 1)[0]
        void = bool({path, rule, f"{rule}.RelatedPermit", f"{path}.{parameter}"} & found)
        if command == "*" or (parameter and f"{path}.P1" not in {f"{FILTER}.{p}.{k}" for _, p, k, *_ in asked}):
            continue  # of a "*" parameters do not count; without P1 there are none
        question = f"GetCGIPermitFilter:u{permit}&{command}" + (f"&{value}" if value else "")
        denied = device.request(question).code == -12
        assert denied != void, (path, parameter, question, sorted(found))
        decided.add(void)
    for permit in range(1, 9):
        path = f"Account.Permission.Define.Permit{permit}"
        other = permit % 8 + 1
        code = device.request(f"isPermitAllow:G{other}&Name{permit}&1").code
        granted = f"Account.Permission.Group{other}.Permit{permit}"
        assert (code == -4) == bool({path, granted} & found), (path, code, sorted(found))
    assert decided


def test_a_rule_behind_the_hundredth_is_never_read(tool):
    rules = "".join(f"<R{n}><RelatedPermit>Permit1</RelatedPermit></R{n}>" for n in range(1, 102))
    tool.device.write_file("/tmp/db/Account", (
        "<Account><Permission><Define><Permit1 Type='Switch'>A</Permit1></Define></Permission>"
        f"<CGIPermitDenyFilter>{rules}</CGIPermitDenyFilter></Account>"))
    assert kinds(tool) == {("Account", "Account.CGIPermitDenyFilter.R101", "rule-behind-gap")}


def test_a_file_that_may_not_be_read_is_named(tool):
    """As the service is told by the system; root reads everything, so this runs outside as nobody."""
    tool.device.write_file("/tmp/db/Closed", "<Closed/>", mode=0)
    finished = tool.device.run("setpriv", "--reuid", "0", "--bounding-set", "-all",
                               "--inh-caps", "-all", "/run/host" + tool.program, "fsck", "/tmp/db")
    assert finished.stdout == (
        "Closed: would be skipped: cannot be opened for reading and writing [skipped]\n"), finished


def test_a_rule_whose_permit_is_undefined_ends_the_rules(tool):
    tool.device.write_file("/tmp/db/Account", (
        "<Account><CGIPermitDenyFilter><R1><RelatedPermit>Permit9</RelatedPermit></R1>"
        "<R2><RelatedPermit>Permit1</RelatedPermit></R2></CGIPermitDenyFilter></Account>"))
    assert kinds(tool) == {
        ("Account", "Account.CGIPermitDenyFilter.R1.RelatedPermit", "rule-permit"),
        ("Account", "Account.CGIPermitDenyFilter.R2", "rule-behind-gap")}


def report(tool, status):
    result = tool.json("doctor", status=status)
    topics = {}
    for one in result["findings"]:
        topics.setdefault(one["topic"], []).append(one)
    return result["alive"], topics


def test_doctor_on_a_running_service(tool):
    tool.device.copy_sample_database()
    tool.device.outside(CONFIGURATION).chmod(0o750)
    tool.device.start()
    tool.device.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\n")
    alive, topics = report(tool, 0)
    assert alive
    assert "answers within" in topics["answer"][0]["text"]
    holders = " ".join(one["text"] for one in topics["process"])
    assert f"({tool.device.worker_pid})" in holders and "KiB resident" in holders
    assert {one["text"].split()[0] for one in topics["semaphore"]} == {"520", "521", "522", "523",
                                                                       "530"}
    assert any("BackupXmlDB.sh: executable" in one["text"] for one in topics["script"])
    assert topics["save"][0]["state"] == "good"
    assert any("event log holds 0 of" in one["text"] for one in topics["limit"])
    assert any("free" in one["text"] for one in topics["disk"])
    assert re.search(r"Account: \d+ bytes, \d+ \w+ old", " ".join(
        one["text"] for one in topics["file"]))
    assert re.search(r"mode 0\d{3}, user \d+, group \d+", topics["socket"][0]["text"])
    assert re.search(r"\(\d+\): \d+ descriptors of \d+, \d+ KiB resident", holders)
    assert any("reply capacity 262144 bytes" in one["text"] for one in topics["limit"])
    assert any("Account.Maxuser is 10" in one["text"] for one in topics["limit"])
    assert any("PermitSyncCb.sh: absent" in one["text"] for one in topics["script"])


GROUPS = "<Account><Permission><Group1><Name>Admin</Name></Group1></Permission></Account>"


def problems(tool, status=10):
    """The problems that the doctor tells: topic to texts."""
    answer = tool.json("doctor", status=status)
    told = {}
    for one in answer["findings"]:
        if one["state"] in ("warning", "bad"):
            told.setdefault(one["topic"], []).append(one["text"])
    assert answer["problems"] == sum(len(texts) for texts in told.values())
    return told


def test_doctor_looks_where_the_running_service_has_its_files(tool):
    device = tool.device
    for directory, option in (("/mnt/own", "/mnt/own"), ("/run/place/xml", "xml")):
        device.write_file(f"{directory}/Account", GROUPS)
        device.make_directory("/mnt/events")
        device.outside(directory).chmod(0o700)
        for folder in (CONFIGURATION, EVENT_LOG.rsplit("/", 1)[0]):
            shutil.rmtree(device.outside(folder), ignore_errors=True)
        device.start("-lP", option, "-E/mnt/events/log", directory="/run/place" if option == "xml" else None)
        device.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\n")
        assert problems(tool, 0) == {}
        _, topics = report(tool, 0)
        assert any(one["text"].startswith(f"{directory}/Account: ") for one in topics["file"])
        assert any(one["text"].startswith("/mnt/events/log: ") for one in topics["file"])
        device.stop()


def test_doctor_warns_of_what_everybody_may_open(tool):
    device = tool.device
    device.write_document("Account", GROUPS)
    device.outside(CONFIGURATION).chmod(0o777)
    device.start()
    os.chmod(device.socket_path, 0o777)
    told = problems(tool)
    assert len(told["socket"]) == len(told["directory"]) == 1
    assert "mode 0777" in told["socket"][0] and "everybody on the device may connect" in told["socket"][0]
    assert "everybody on the device may put documents there" in told["directory"][0]
    device.outside(CONFIGURATION).chmod(0o705)
    os.chmod(device.socket_path, 0o775)
    told = problems(tool)
    assert "socket" not in told and "everybody on the device may look into it" in told["directory"][0]
    device.outside(CONFIGURATION).chmod(0o750)
    assert not {"socket", "directory"} & set(problems(tool, 0))


def test_doctor_names_who_holds_the_service_up(tool):
    """A client that announces a request and withholds it; its name is one that a terminal must not get."""
    device = tool.device
    device.write_document("Network", "<Network><A>1</A></Network>")
    device.start()
    device.write_file("/tmp/holder.py", (
        "import os, socket, time\n"
        "client = socket.socket(socket.AF_UNIX)\n"
        "client.connect('/tmp/Veltrancord.unix')\n"
        "client.send(b'?\\x10\\0\\0\\0rea')\n"
        "open('/proc/self/comm', 'w').write('hol\\x1b[2Jder')\n"
        "open('/tmp/held', 'w').close()\n"
        "time.sleep(1000)\n"))
    device.run("/bin/sh", "-c", "/usr/bin/python3 /tmp/holder.py >/dev/null 2>&1 & echo $! >/tmp/pid")
    device.wait_for_file("/tmp/held")
    pid = int(device.read_file("/tmp/pid"))
    answer = tool("doctor", "--json", "--timeout", "0.1")
    assert answer.status == 8
    told = [one["text"] for one in json.loads(answer.stdout)["findings"] if one["topic"] == "client"]
    assert len(told) == 1 and f"1 connections: hol\x1b[2Jder ({pid})" in told[0], told
    assert "holds up all others" in told[0]
    device.send_signal(pid, signal.SIGKILL)
    wait_until(lambda: tool("ping").status == 0, "the service answers again")
    assert "client" not in problems(tool)


def test_doctor_tells_of_a_worker_that_was_started_again(tool):
    device = tool.device
    device.write_document("Network", "<Network><A>1</A></Network>")
    device.start("-l")
    assert "restart" not in problems(tool)
    killed = device.kill_worker()
    wait_until(lambda: device.worker_pid != killed and tool("ping").status == 0, "the next one answers")
    assert "this one was started in its place" in problems(tool)["restart"][0]


def test_doctor_puts_problems_first_and_tells_the_version(tool):
    device = tool.device
    device.write_document("Network", "<Network><A>1</A></Network>")
    device.start()
    device.request("writedbmem:Network.A=2")
    version = re.search(r"project\(Veltrancord VERSION ([\d.]+)",
                        (REPOSITORY / "CMakeLists.txt").read_text())[1]
    answer = tool.json("doctor", status=10)
    states = [one["state"] for one in answer["findings"]]
    ranks = [{"bad": 0, "warning": 1}.get(state, 2) for state in states]
    assert ranks == sorted(ranks) and ranks[0] < 2
    assert answer["version"] == version
    assert answer["summary"] == f"Veltrancord {version} answers: {answer['problems']} problems"
    assert answer["numbers"]["documents_unsaved"] == 1
    lines = tool("doctor").stdout.splitlines()
    assert lines[0] == answer["summary"] and lines[1].startswith("warning ")
    device.stop()
    down = tool.json("doctor", "--timeout", "0.05", status=8)
    assert re.fullmatch(r"Veltrancord does not answer: \d+ problems", down["summary"]), down["summary"]
    assert down["findings"][0]["state"] == "bad"


def test_doctor_finds_what_is_wrong_around_the_service(tool):
    device = tool.device
    device.write_document("Network", "<Network><A>1</A></Network>")
    device.start()
    device.write_file("/tmp/BackupXmlDB.sh", "#!/bin/sh\n", mode=0o644)
    device.write_document("Late", "<Late><Password>plain</Password></Late>")
    device.write_file(f"{CONFIGURATION}/.veltrancord-new.Network", "<Netw")
    _, topics = report(tool, 10)
    warnings = {one["text"] for found in topics.values() for one in found if one["state"] == "warning"}
    assert "/tmp/BackupXmlDB.sh: is not executable" in warnings
    assert "2 findings, see veltrancordctl fsck" in warnings
    assert any(".veltrancord-new.Network: 5 bytes" in text for text in warnings)
    assert topics["leftover"][0]["state"] == "warning"


def test_doctor_says_why_a_script_is_not_run(tool):
    device = tool.device
    device.write_document("Network", "<Network><A>1</A></Network>")
    device.start()
    script, trigger = "/tmp/BackupXmlDB.sh", "/tmp/trigger/EventLogCallBack.sh"
    device.write_file(script, "#!/bin/sh\n", mode=0o777)
    device.write_file(trigger, "#!/bin/sh\n", mode=0o755)
    os.chmod(device.outside("/tmp/trigger"), 0o777)
    _, topics = report(tool, 10)
    told = {one["text"]: one["state"] for one in topics["script"]}
    assert told[f"{script}: is not run: {script} may be changed by others"] == "warning"
    assert told[f"{trigger}: is not run: {trigger} lies in a directory that others may write to"] == "warning"


def test_doctor_with_nobody_behind_the_semaphores(tool):
    """Nothing was ever started: every part is told of, none of them ends the look around."""
    alive, topics = report(tool, 8)
    assert not alive
    assert all(one["state"] == "warning" for one in topics["semaphore"])
    assert topics["process"][0]["text"].startswith("no process seen")
    assert {"script", "disk", "limit", "file"} <= set(topics)


def test_doctor_sees_changes_that_wait_for_a_sync(tool):
    tool.device.write_document("Network", "<Network><A>1</A></Network>")
    tool.device.start()
    tool.device.request("writedbmem:Network.A=2")
    _, topics = report(tool, 10)
    assert topics["save"][0]["text"].startswith("Network: the service holds other values")


def test_doctor_works_with_the_service_down(tool):
    alive, topics = report(tool, 8)
    assert not alive
    assert topics["socket"][0]["state"] == "bad"
    tool.device.start()
    tool.device.stop()
    text = tool("doctor", "--timeout", "0.05")
    assert text.status == 8
    assert "the service cannot be reached: Connection refused" in text.stdout


def as_nobody(*arguments):
    """Runs the tool as a user whom nothing here belongs to."""
    if os.geteuid() != 0:
        pytest.skip("only root can become somebody else")
    return subprocess.run([command_line.program(), *arguments], capture_output=True, text=True,
                          check=False, user=65534, group=65534, extra_groups=[])


@pytest.fixture
def shared(tmp_path_factory):
    """A folder that others reach."""
    folder = tmp_path_factory.mktemp("shared")
    for each in (folder, *folder.parents[:3]):
        if each != each.parent and each.stat().st_uid == os.geteuid() and str(each) != "/tmp":
            each.chmod(0o755)
    return folder


def test_a_member_of_the_group_may_check_the_files(shared):
    """Who may read the documents and not write to them finds what the service would find."""
    directory = shared / "xml"
    directory.mkdir()
    for name, mode in (("Network", 0o640), ("Secret", 0o600), ("Broken", 0o640)):
        (directory / name).write_text(f"<{name}><A>1</A>" + ("" if name == "Broken" else f"</{name}>"))
        os.chown(directory / name, -1, 65534 if os.geteuid() == 0 else -1)
        (directory / name).chmod(mode)
    os.chown(directory, -1, 65534 if os.geteuid() == 0 else -1)
    directory.chmod(0o750)
    finished = as_nobody("fsck", str(directory), "--log-file", str(directory / "Secret"), "--json")
    assert finished.returncode == 10, finished
    assert [(one["file"], one["kind"]) for one in json.loads(finished.stdout)] == [
        ("Broken", "unparsable"), ("Secret", "not-readable"), (str(directory / "Secret"), "not-readable")]
    watched = as_nobody("watch", "*", "--directory", str(directory), "--socket", "/nonexistent")
    assert "Permission denied" not in watched.stderr  # the directory may be watched, though nobody answers


def test_who_may_not_connect_is_told_the_group(shared):
    (directory := shared / "socket").mkdir()
    with ScriptedService(directory / "s", reply(0)) as service:
        os.chmod(service.path, 0o660)
        refused = as_nobody("get", "A.B", "--socket", service.path)
        assert refused.returncode == 8
        assert refused.stderr.endswith("Permission denied; only root may connect, as the mode of the socket "
                                       "says (-100)\n"), refused
        os.chown(service.path, 0, 1)
        refused = as_nobody("get", "A.B", "--socket", service.path)
        assert ("Permission denied; root may connect, and members of the group daemon: adduser USER daemon, "
                "from the next login on (-100)") in refused.stderr
        directory.chmod(0o700)
        refused = as_nobody("ping", "--socket", service.path)
        assert "members of the group veltrancord: adduser USER veltrancord" in refused.stderr
