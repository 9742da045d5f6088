"""Scripts and programs that somebody else may have placed or can change: they are not run."""

import os

import pytest

from device import wait_until

SCRIPTS = {
    "backup": ("/tmp/BackupXmlDB.sh", b"XMLDBCallBack:now"),
    "event": ("/tmp/trigger/EventLogCallBack.sh", b"writelog:" + bytes(11) + b"x" + bytes(20)),
    "permissions": ("/bin/PermitSyncCb.sh", b"SyncPermit:"),
    "write": ("/tmp/hooks/hook.sh", b"write:Doc.A=1"),
}
RAN = "#!/bin/sh\n: >/run/ran\n"
DOCUMENTS = {"Doc": '<Doc><A DispatchW="/tmp/hooks/hook.sh"/></Doc>',
             "Account": "<Account><Permission><P>1</P></Permission></Account>"}


def is_run(device, what):
    """Whether the script runs, once the service has done all that it does for the request."""
    device.outside("/run/ran").unlink(missing_ok=True)
    device.forget_output()
    assert device.request(SCRIPTS[what][1]).code >= 0
    assert device.request("maxlogcount:").code >= 0  # a program is started behind its reply
    refused = device.stderr().count("program not run: " + SCRIPTS[what][0] + " : ")
    if refused:
        assert refused == 1
        assert not device.file_exists("/run/ran")
        return False
    wait_until(lambda: device.file_exists("/run/ran"), "the script has run")
    return True


@pytest.fixture(params=SCRIPTS)
def running(service, request):
    device = service(DOCUMENTS)
    device.install_script(SCRIPTS[request.param][0], RAN)
    return device, request.param


@pytest.mark.fault("T1")
def test_what_others_can_write_to_is_not_run(running):
    device, what = running
    script = device.outside(SCRIPTS[what][0])
    assert is_run(device, what)
    for mode in (0o775, 0o757):
        os.chmod(script, mode)
        assert not is_run(device, what)
        assert f"{SCRIPTS[what][0]} may be changed by others\n" in device.stderr()
    os.chmod(script, 0o755)
    assert is_run(device, what)


@pytest.mark.fault("T1")
def test_what_others_can_exchange_is_not_run(running):
    device, what = running
    path = SCRIPTS[what][0]
    script = device.outside(path)
    if what == "backup":  # /tmp itself: with its sticky bit others can only add to it
        assert is_run(device, what)
        os.chmod(script.parent, 0o777)
        assert not is_run(device, what)
        os.chmod(script.parent, 0o1777)
    elif what != "permissions":
        os.chmod(script.parent, 0o777)
        assert not is_run(device, what)
        assert f"{path} lies in a directory that others may write to\n" in device.stderr()
        os.chmod(script.parent, 0o755)
    # A link is judged by what it leads to, and by the way there.
    device.write_file("/run/open/script", RAN, mode=0o755)
    script.unlink()
    script.symlink_to("/run/open/script")
    assert is_run(device, what)
    os.chmod(device.outside("/run/open"), 0o777)
    assert not is_run(device, what)
    assert "/run/open/script lies in a directory that others may write to\n" in device.stderr()


@pytest.mark.fault("T1")
def test_what_belongs_to_somebody_else_is_not_run(running):
    if os.geteuid() != 0:
        pytest.skip("only the superuser gives files away")
    device, what = running
    script = device.outside(SCRIPTS[what][0])
    os.chown(script, 54321, 54321)
    assert not is_run(device, what)
    assert f"{SCRIPTS[what][0]} belongs to another user\n" in device.stderr()
    script.unlink()
    device.write_file("/run/script", RAN, mode=0o755)
    script.symlink_to("/run/script")
    os.chown(script, 54321, 54321, follow_symlinks=False)
    assert not is_run(device, what)
    assert f"{SCRIPTS[what][0]} belongs to another user\n" in device.stderr()
