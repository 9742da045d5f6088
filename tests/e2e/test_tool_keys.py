"""veltrancordctl against a service whose secrets are stored with another key than the tool's."""

import re

import pytest

import device as device_module
from command_line import Tool
from device import REPOSITORY, Device

KEY = re.search(r'VELTRANCORD_VALUE_KEY "(.{7})"', (REPOSITORY / "CMakeLists.txt").read_text())[1]
ACCOUNT = "<Account><User1><Username>a</Username></User1><User2><Username>b</Username></User2></Account>"


def changed_key():
    return KEY[:-1] + chr(ord(KEY[-1]) ^ 1)


@pytest.fixture
def other(tmp_path):
    """The tool on a service of another product, whose key differs in the last byte."""
    program = open(device_module.default_program, "rb").read()
    key = KEY.encode()
    assert program.count(key) == 1
    changed = tmp_path / "Veltrancord"
    changed.write_bytes(program.replace(key, changed_key().encode()))
    changed.chmod(0o755)
    with Device(str(changed)) as device:
        device.write_document("Account", ACCOUNT)
        device.start()
        yield Tool(device)


@pytest.fixture
def own(service):
    return Tool(service({"Account": ACCOUNT}))


def give_secret(tool, user, secret):
    tool.device.request(f"write:Account.{user}.Password={secret}")


def secret_of(tool, user):
    return tool("get", f"Account.{user}.Password", "--reveal").stdout


def test_a_dump_of_another_key_is_refused_before_anything_is_written(other):
    give_secret(other, "User1", "crane-07")
    assert other("dump", "/tmp/all.xml").status == 0
    for words in (["apply", "/tmp/all.xml"], ["diff", "/tmp/all.xml"], ["apply", "-"]):
        refused = other(*words, stdin=other.device.read_file("/tmp/all.xml").decode())
        assert refused.status == 17, refused
        assert "another key than this tool uses; give the product's key with --key" in refused.stderr
    assert secret_of(other, "User1") == "crane-07\n"
    give_secret(other, "User1", "changed-8")
    assert other("apply", "/tmp/all.xml", "--key", changed_key()).status == 0
    assert secret_of(other, "User1") == "crane-07\n"
    give_secret(other, "User1", "changed-8")
    assert other("merge", "/tmp/all.xml", "--yes").status == 0
    assert secret_of(other, "User1") == "crane-07\n"
    found = other.json("doctor", status=10)["findings"]
    assert ["key"] == [one["topic"] for one in found if "another key" in one["text"]]


def test_secrets_are_written_to_a_service_of_another_key(other):
    done = other("set", "--create", "Account.User1.Password", "-", stdin="crane-07")
    assert (done.status, secret_of(other, "User1")) == (0, "crane-07\n"), done
    assert other("sync").status == 0


def test_a_short_secret_is_no_proof_for_a_long_one(other):
    """The keys differ in their seventh byte, which a secret of six never meets."""
    give_secret(other, "User1", "sixsix")
    give_secret(other, "User2", "crane-07")
    assert other("dump", "/tmp/all.xml").status == 0
    assert other("unset", "Account.User2.Password", "--yes").status == 0
    refused = other("apply", "/tmp/all.xml", "--create")
    assert refused.status == 17 and "holds none that is long enough" in refused.stderr
    assert other("get", "Account.User2.Password").status == 1
    give_secret(other, "User1", "six")
    assert other("dump", "/tmp/short.xml").status == 0
    assert other("apply", "/tmp/short.xml").status == 0  # all that is decoded is told


def test_the_same_key_is_found_to_be_so(own):
    give_secret(own, "User1", "crane-07")
    assert own("dump", "/tmp/all.xml").status == 0
    give_secret(own, "User1", "other-08")
    assert own("apply", "/tmp/all.xml").status == 0
    assert secret_of(own, "User1") == "crane-07\n"
    assert "key" not in {one["topic"] for one in own.json("doctor", status=own("doctor").status)["findings"]}


def test_without_secrets_no_key_matters(other):
    assert other("dump", "/tmp/all.xml").status == 0
    other.device.request("write:Account.User1.Username=c")
    assert other("apply", "/tmp/all.xml").status == 0
    assert other("get", "Account.User1.Username").stdout == "a\n"
