"""The Python module where the product describes its settings: typed values, and refusal before sending."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

import command_line
import described
from device import REPOSITORY

LIBRARY = "client/schema_library/libveltrancord-schema.so.1"
BEGIN = """
import datetime, decimal, sys
import veltrancord
from veltrancord import Kind, NotFound, ValidationError, WrongKind
service = veltrancord.Client(sys.argv[1], schema_directory=sys.argv[2])
schema = service.schema
"""
TYPES = """<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">
<xs:element name="Time"><xs:complexType><xs:all>
<xs:element name="Day" type="xs:date" minOccurs="0"/>
<xs:element name="Start" type="xs:time" minOccurs="0"/>
<xs:element name="Drift" type="xs:decimal" minOccurs="0" default="0.5"/>
<xs:element name="Light" minOccurs="0"><xs:simpleType><xs:restriction base="xs:string">
<xs:enumeration value="ON"/><xs:enumeration value="OFF"/></xs:restriction></xs:simpleType></xs:element>
</xs:all></xs:complexType></xs:element></xs:schema>
"""


@pytest.fixture
def run(service):
    """Runs a script with `service` and `schema` at hand. Return: what it printed."""
    device = service({"Network": described.DOCUMENT, "Free": described.OTHER,
                      "Time": "<Time><Day/><Start/><Light/></Time>"})
    device.require_no_sanitizer("address", "an interpreter without it cannot load the library")
    described.install(device)
    device.write_file(f"{described.SCHEMA}/Time.xsd", TYPES)
    library = Path(command_line.program()).parents[1] / LIBRARY
    if not library.exists():
        pytest.skip("libveltrancord-schema is not built")

    def run_script(script):
        done = subprocess.run(
            [sys.executable, "-c", BEGIN + script, device.socket_path,
             str(device.outside(described.SCHEMA))], capture_output=True, text=True, check=False,
            env={**os.environ, "LC_ALL": "de_DE.UTF-8", "PYTHONUTF8": "1",
                 "LD_LIBRARY_PATH": str(library.parent),
                 "PYTHONPATH": str(REPOSITORY / "client/python")})
        assert done.returncode == 0, done.stderr
        return done.stdout

    run_script.device = device
    return run_script


def test_values_come_and_go_as_what_they_are(run):
    assert run("""
assert schema.get("Network.Lan.Mtu") == 1400
assert schema.get("Network.Lan.Dhcp") is True
assert schema.get("Network.Lan.Speed") == "auto"  # its default
assert schema.get("Free.Thing") == "1"  # nothing describes it
schema.write({"Network.Lan.Mtu": 1450, "Network.Lan.Dhcp": False, "Time.Light": True,
              "Time.Day": datetime.date(2026, 11, 22), "Time.Start": datetime.time(6, 30),
              "Time.Drift": decimal.Decimal("1.25")})
print(service.read("Time.*"), service.get("Network.Lan.Dhcp"))
for path in ("Day", "Start", "Drift", "Light"):
    print(repr(schema.get("Time." + path)))
""") == ("[('Time.Day', '2026-11-22'), ('Time.Start', '06:30:00'), ('Time.Light', 'ON'), "
         "('Time.Drift', '1.25')] NO\n"
         "datetime.date(2026, 11, 22)\ndatetime.time(6, 30)\nDecimal('1.25')\nTrue\n")


def test_what_is_not_allowed_is_refused_before_it_is_sent(run):
    assert run("""
try:
    schema.write([("Network.Lan.Mtu", 67), ("Network.Lan.Dhcp", "maybe"), ("Network.Lan.Speed", "auto")])
except ValidationError as failure:
    print(failure.subject, [(one.path, one.rule, one.nearest) for one in failure.violations][0])
    print(len(failure.violations), isinstance(failure, veltrancord.Refused), int(failure.code))
print(service.get("Network.Lan.Mtu"), service.get("Network.Lan.Speed", default=None))
print([one.rule for one in schema.check({"Network.Lan.Mut": 1, "Free.Thing": "anything"})])
schema.set("Network.Lan.Mtu", 67, force=True)
print(schema.get("Network.Lan.Mtu"))
""") == ("Network.Lan.Mtu ('Network.Lan.Mtu', 'minInclusive', '68')\n2 True -136\n1400 None\n"
         "['undescribed']\n67\n")


def test_a_setting_is_described_in_the_language_of_the_user(run):
    assert run("""
mtu = schema.describe("Network.Lan.Mtu")
print(mtu.label, schema.describe("Network.Lan.Mtu", "en").label, mtu.kind == Kind.INTEGER, mtu.minimum,
      mtu.maximum, mtu.default, mtu.unit, mtu.level, mtu.program)
print(schema.describe("Network.Lan.Speed").choices, schema.describe("Network.Lan.Password").min_length,
      schema.describe("Network.Lan.Password").secret, schema.describe("Free.Thing"))
try:
    schema.describe("Network.Lan.None")
except NotFound as failure:
    print(failure.subject)
""") == ("Größtes Paket Largest packet True 68 9000 1500 byte 3 /usr/sbin/apply_network\n"
         "('auto', '10', '100') 6 True None\nNetwork.Lan.None\n")


def test_a_value_of_another_kind_is_told(run):
    run.device.request("write:Network.Lan.Mtu=14o0")
    assert run("""
try:
    schema.get("Network.Lan.Mtu")
except WrongKind as failure:
    print(failure)
""") == "Network.Lan.Mtu: the value is not of the kind asked for: '14o0' is not of type Mtu (-135)\n"


def test_without_the_library_all_else_works(run):
    done = subprocess.run(
        [sys.executable, "-c", "import sys, veltrancord\nservice = veltrancord.Client(sys.argv[1])\n"
         "print(service.get('Network.Lan.Mtu'))\n"
         "try: service.schema\nexcept veltrancord.Error as failure: print(failure.subject)",
         run.device.socket_path], capture_output=True, text=True, check=False,
        env={**os.environ, "LD_LIBRARY_PATH": "", "PYTHONPATH": str(REPOSITORY / "client/python")})
    assert done.stdout == "1400\nlibveltrancord-schema.so.1\n", done.stderr
