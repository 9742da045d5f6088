"""Permissions on a running service: what SyncPermit does, Permit.db, the script, and the sample."""

import os

import pytest

from account_text import account_text
from device import wait_until

DENIED, NOT_FOUND = -12, -4
PERMIT_DB = "/tmp/Permit.db"
SCRIPT = "/bin/PermitSyncCb.sh"

HOUSEHOLD = {
    "User1.Username": "root", "User1.Level": "Admin",
    "User2.Username": "joe", "User2.Level": "Operator",
    "Permission.Define.Permit1": "Network", "Permission.Define.Permit1#Type": "Switch",
    "Permission.Define.Permit2": "Channels", "Permission.Define.Permit2#Type": "Channel",
    "Permission.Group1.Name": "Admin", "Permission.Group1.Permit1": "YES",
    "Permission.Group2.Name": "Operator", "Permission.Group2.Permit2": "1,3",
}
LISTING = (b"Account.Permission.Define.Permit1=Network\n"
           b"Account.Permission.Define.Permit2=Channels\n"
           b"Account.Permission.Group1.Name=Admin\n"
           b"Account.Permission.Group1.Permit1=YES\n"
           b"Account.Permission.Group2.Name=Operator\n"
           b"Account.Permission.Group2.Permit2=1,3\n")


@pytest.fixture
def household(service):
    return service({"Account": account_text(HOUSEHOLD)})


def write(device, line):
    assert device.request(f"writedbmem:Account.{line}").code == 1


def test_the_sample_configuration_shows_the_model_at_work(sample):
    ask = sample.request
    assert ask("getGroupName:operator") == (8, b"OPERATOR")
    assert ask("isPermitAllowByUser:operator&StorageFormat").code == DENIED
    assert ask("isPermitAllowByUser:admin&StorageFormat").code == 0
    assert ask("isPermitAllow:OPERATOR&PtzControl&2").code == 0
    assert ask("isPermitAllow:OPERATOR&PtzControl&3").code == DENIED
    assert ask("isPermitAllow:GUEST&StorageFormat").code == NOT_FOUND
    assert ask("getPermitValue:VIEWER&LiveView") == (3, b"1,2")
    assert ask("getGroupName:supervisor@cloud.example.net") == (10, b"SUPERVISOR")
    assert ask("isPermitAllowByUser:supervisor@cloud.example.net&CloudSetup").code == 0
    assert ask("getGroupName:installer") == (10, b"POWER USER")
    assert ask("isPermitAllowByUser:installer&NetworkSetup").code == 0
    # The same person through the cloud: the name found is that of no group.
    assert ask("getGroupName:installer@cloud.example.net") == (9, b"POWERUSER")
    assert ask("isPermitAllowByUser:installer@cloud.example.net&NetworkSetup").code == DENIED
    listing = ask("listPermits:")
    assert listing.lines[0] == "permit1=LiveView&type=Channel&value=1"
    assert listing.lines[-1] == "permit22=CloudSetup&type=Switch&value=NO"
    assert len(listing.lines) == 17


def test_users_count_at_once_and_permissions_with_syncpermit(household):
    write(household, "User2.Level=Admin")
    assert household.request("isPermitAllowByUser:joe&Network").code == 0

    write(household, "Permission.Group1.Permit1=NO")
    assert household.request("isPermitAllow:Admin&Network").code == 0
    assert household.request("SyncPermit:") == (0, b"")
    assert household.request("isPermitAllow:Admin&Network").code == DENIED


def test_a_group_that_is_gone_is_unknown_after_syncpermit(household):
    write(household, "Permission.Group1.Name=")
    assert household.request("isPermitAllow:Admin&Network").code == 0
    household.request("SyncPermit:whatever&stands&here")
    assert household.request("isPermitAllow:Admin&Network").code == DENIED
    assert household.request("isPermitAllow:Admin&NoSuchPermit").code == DENIED


def test_permit_db_is_written_at_the_start_without_the_script(device):
    device.install_script(SCRIPT, "#!/bin/sh\n: > /tmp/ran\n")
    device.write_documents({"Account": account_text(HOUSEHOLD)})
    device.write_file(PERMIT_DB, "x" * 10000)
    device.start()
    assert device.read_file(PERMIT_DB) == LISTING
    assert device.request("read:Account.Permission.*").body == LISTING
    assert not device.file_exists("/tmp/ran")
    assert "fork" not in device.stderr()


def test_syncpermit_rewrites_permit_db_and_starts_the_script(household):
    household.install_script(SCRIPT, "#!/bin/sh\n"
                             "{ echo \"$0 $#\"; /usr/bin/env | /usr/bin/sort; /bin/ls /proc/self/fd;"
                             " } > /tmp/seen.part\n/bin/mv /tmp/seen.part /tmp/seen\n")
    write(household, "Permission.Group1.Permit1=off")
    assert household.request("SyncPermit:") == (0, b"")
    assert household.read_file(PERMIT_DB) == LISTING.replace(b"YES", b"off")
    wait_until(lambda: household.file_exists("/tmp/seen"), "the script has run")
    lines = household.read_file("/tmp/seen").decode().splitlines()
    assert lines[0] == f"{SCRIPT} 0"
    variables = [line for line in lines if "=" in line]
    # The shell adds its own working directory and the name of what it runs.
    assert [v for v in variables if not v.startswith(("PWD=", "_=", "SHLVL=", "OLDPWD="))] == [
        "HOME=/home", "PATH=/usr/bin:/usr/sbin:/bin:/sbin", "SHELL=/bin/sh"]
    # Standard input, output and error, and the listed directory itself.
    assert lines[-4:] == ["0", "1", "2", "3"]


def test_the_scripts_start_is_exactly_as_promised(device):
    device.install_script(SCRIPT, "#!/bin/sh\n: > /tmp/ran\n")
    device.write_documents({"Account": account_text(HOUSEHOLD)})
    device.start_traced(calls="execve")
    device.request("SyncPermit:")
    wait_until(lambda: device.file_exists("/tmp/ran"), "the script has run")
    calls = [line for line in device.trace() if SCRIPT in line and "execve" in line]
    assert len(calls) == 1
    assert f'execve("{SCRIPT}", ["{SCRIPT}"], ' in calls[0]
    assert "/* 3 vars */" in calls[0]


def test_a_script_that_goes_on_running_holds_nobody(household):
    household.install_script(SCRIPT, "#!/bin/sh\n: > /tmp/runs\nexec /bin/sleep 1000\n")
    with household.connect() as client:
        client.send_request("SyncPermit:")
        assert client.receive_reply() == (0, b"")  # and the end of the connection
    household.wait_for_file("/tmp/runs")
    assert household.request("isPermitAllow:Admin&Network").code == 0


def test_a_missing_script_is_no_matter(household):
    household.forget_output()
    assert household.request("SyncPermit:").code == 0
    assert household.stderr() == ""


def test_a_script_that_cannot_be_run_is_reported(household):
    household.install_script(SCRIPT, "no interpreter, and no program either")
    household.outside(SCRIPT).chmod(0o600)
    household.forget_output()
    assert household.request("SyncPermit:").code == 0
    household.wait_for_stderr("execve: Permission denied\n")
    assert household.request("isPermitAllow:Admin&Network").code == 0


def test_permit_db_takes_its_name_from_whatever_has_it(household):
    household.write_file("/tmp/other", "old")
    household.outside(PERMIT_DB).unlink()
    household.outside(PERMIT_DB).symlink_to("other")
    assert household.request("SyncPermit:").code == 0
    assert household.read_file("/tmp/other") == b"old"
    assert not household.outside(PERMIT_DB).is_symlink()
    made = household.read_file(PERMIT_DB)
    assert made.startswith(b"Account.Permission.")
    # A file that somebody made beforehand does not stay his either.
    household.outside(PERMIT_DB).unlink()
    os.link(household.outside("/tmp/other"), household.outside(PERMIT_DB))
    assert household.request("SyncPermit:").code == 0
    assert household.read_file("/tmp/other") == b"old"
    assert household.read_file(PERMIT_DB) == made
    assert household.stderr().count("Permit save file error") == 0


@pytest.mark.parametrize("trouble", ["a directory in the way", "no room"])
def test_a_permit_db_that_cannot_be_written_stays(service, device, trouble):
    device.mount_tmpfs("/tmp", size="4m")
    device.install_script(SCRIPT, "#!/bin/sh\n: > /mnt/ran\n")
    household = service({"Account": account_text(HOUSEHOLD)})
    old = household.read_file(PERMIT_DB)
    if trouble == "no room":
        with open(household.outside("/tmp/filler"), "wb", buffering=0) as filler:
            with pytest.raises(OSError):
                while True:
                    filler.write(b"x" * 4096)
    else:
        household.outside(PERMIT_DB).unlink()
        household.make_directory(PERMIT_DB)
    household.forget_output()
    write(household, "Permission.Group1.Permit1=NO")
    assert household.request("SyncPermit:").code == 0
    assert household.stderr().endswith("can't open /tmp/Permit.db\nPermit save file error\n")
    if trouble == "no room":
        assert household.read_file(PERMIT_DB) == old != b""
    assert not household.file_exists("/mnt/ran")
    # The lists are rebuilt all the same.
    assert household.request("isPermitAllow:Admin&Network").code == DENIED


def test_without_permissions_the_old_file_stays_and_the_script_is_told(service, device):
    device.install_script(SCRIPT, "#!/bin/sh\n: > /tmp/ran\n")
    device.write_file(PERMIT_DB, "old")
    service({"Account": "<Account><Permission/></Account>"})
    assert "read xml error 0!!\n" in device.stderr()
    device.forget_output()
    assert device.request("SyncPermit:").code == 0
    wait_until(lambda: device.file_exists("/tmp/ran"), "the script has run")
    assert device.stderr().startswith("read xml error 0!!\n")
    assert device.read_file(PERMIT_DB) == b"old"


def test_without_the_branch_the_script_is_not_started(service, device):
    device.install_script(SCRIPT, "#!/bin/sh\n: > /tmp/ran\n")
    service({"Other": "<Other/>"})
    assert "read xml error -4!!\n" in device.stderr()
    device.forget_output()
    assert device.request("SyncPermit:").code == 0
    assert device.stderr() == "read xml error -4!!\nPermit save file error\n"
    assert not device.file_exists(PERMIT_DB)
    assert not device.file_exists("/tmp/ran")


def test_permit_db_is_never_seen_in_part(device):
    """It is written aside, flushed and renamed, at the start and now; the file itself is not opened."""
    device.write_documents({"Account": account_text(HOUSEHOLD)})
    device.start_traced(calls="openat,open,write,renameat,fsync")
    device.request("SyncPermit:")
    calls = [line.split(maxsplit=1)[1] for line in device.trace()]
    assert not [call for call in calls if PERMIT_DB in call or '"Permit.db", O_' in call]
    aside = [i for i, call in enumerate(calls) if ".veltrancord-new.Permit.db" in call and "O_EXCL" in call]
    assert len(aside) == 2
    for i in aside:
        assert "O_NOFOLLOW" in calls[i] and "O_CREAT" in calls[i] and "O_CLOEXEC" in calls[i]
        names = [call.split("(")[0] for call in calls[i:i + 4]]
        assert names == ["openat", "write", "fsync", "renameat"]
        assert '"Account.Permission.Define' in calls[i + 1] and calls[i + 1].endswith(f"= {len(LISTING)}")


def test_huge_configured_numbers_hold_nobody_up(service):
    """Two thousand million numbers tried one by one would take hours."""
    settings = {**HOUSEHOLD, "Maxuser": "2147483647", "Permission.MaxPermDefNum": "2147483647",
                "Permission.MaxGroupNum": "99999999999999999999",
                "User2147483647.Username": "last", "User2147483647.Level": "Admin"}
    device = service({"Account": account_text(settings)})
    assert device.request("isPermitAllowByUser:last&Network").code == 0
    assert device.request("isPermitAllowByUser:nobody&Network").code == DENIED
    assert device.request("SyncPermit:").code == 0
    assert device.request("GetCGIPermitFilter:nobody&x").code == DENIED
