"""The filter for CGI commands on a running service."""

from account_text import account_text

DENIED, NOT_FOUND = -12, -4

HOUSEHOLD = {
    "User1.Username": "root", "User1.Level": "Admin",
    "User2.Username": "joe", "User2.Level": "Operator",
    "Permission.Define.Permit1": "Disk", "Permission.Define.Permit1#Type": "Switch",
    "Permission.Define.Permit2": "View", "Permission.Define.Permit2#Type": "Channel",
    "Permission.Group1.Name": "Admin", "Permission.Group1.Permit1": "yes",
    "Permission.Group1.Permit2": "1,2",
    "Permission.Group2.Name": "Operator", "Permission.Group2.Permit1": "no",
    "Permission.Group2.Permit2": "1,-1",
    "CGIPermitDenyFilter.R1.RelatedPermit": "Permit1",
    "CGIPermitDenyFilter.R1.C1.CMD": "apply",
    "CGIPermitDenyFilter.R1.C1.P1": "reboot",
    "CGIPermitDenyFilter.R1.C1.P2": "reset",
    "CGIPermitDenyFilter.R2.RelatedPermit": "Permit2",
    "CGIPermitDenyFilter.R2.C1.CMD": "view",
}


def ask(device, question):
    reply = device.request(f"GetCGIPermitFilter:{question}")
    assert reply.body == b""
    return reply.code


def test_the_sample_configurations_rules(sample):
    assert ask(sample, "operator&storage&action=format") == DENIED
    assert ask(sample, "operator&storage&action=list") == 0
    assert ask(sample, "admin&storage&action=format") == 0
    assert ask(sample, "operator&diskformat") == DENIED
    assert ask(sample, "operator&ptz&pan=3") == 0
    assert ask(sample, "viewer&ptz&pan=3") == DENIED  # no channel at all
    assert ask(sample, "viewer&upgrade") == DENIED
    assert ask(sample, "nobody&storage&action=list") == DENIED


def test_rules_with_parameters(service):
    device = service({"Account": account_text(HOUSEHOLD)})
    assert ask(device, "joe&apply&action=reboot_now") == DENIED
    assert ask(device, "joe&apply&action=save") == 0
    assert ask(device, "joe&apply") == 0
    assert ask(device, "root&apply&action=reboot_now") == 0
    assert ask(device, "joe&view&channel=1") == DENIED
    assert ask(device, "root&view&channel=9") == 0
    assert ask(device, "joe") == NOT_FOUND


def test_without_rules_everything_is_allowed_to_those_who_are_known(service):
    settings = {key: value for key, value in HOUSEHOLD.items() if "Filter" not in key}
    device = service({"Account": account_text(settings)})
    assert ask(device, "joe&apply&reboot") == 0
    assert ask(device, "joe&anything") == 0
    assert ask(device, "nobody&anything") == DENIED


def test_rules_count_as_they_were_at_the_start(service):
    device = service({"Account": account_text(HOUSEHOLD)})
    write = "writedbmem:Account.CGIPermitDenyFilter.R1."
    assert device.request(write + "C1.CMD=format").code == 1
    assert device.request("SyncPermit:").code == 0
    assert ask(device, "joe&apply&reboot") == DENIED
    assert ask(device, "joe&format&reboot") == 0
    # The permits that they refer to by number are those of now.
    assert device.request("writedbmem:Account.Permission.Group2.Permit1=on").code == 1
    assert device.request("SyncPermit:").code == 0
    assert ask(device, "joe&apply&reboot") == 0

    device.request("syncmemtoflash:")
    device.restart()
    assert device.request("writedbmem:Account.Permission.Group2.Permit1=no").code == 1
    assert device.request("SyncPermit:").code == 0
    assert ask(device, "joe&apply&reboot") == 0
    assert ask(device, "joe&format&reboot") == DENIED


def test_limits_are_inclusive(service):
    settings = {key: value for key, value in HOUSEHOLD.items() if "Filter" not in key}
    for rule in range(1, 102):
        base = f"CGIPermitDenyFilter.R{rule}."
        settings[base + "RelatedPermit"] = "Permit1"
        settings[base + "C1.CMD"] = f"rule{rule}"
    for number in range(2, 32):
        settings[f"CGIPermitDenyFilter.R1.C{number}.CMD"] = f"command{number}"
    for number in range(1, 32):
        settings[f"CGIPermitDenyFilter.R1.C2.P{number}"] = f"<{number}>"
    device = service({"Account": account_text(settings)})
    assert [ask(device, f"joe&rule{n}") for n in (99, 100, 101)] == [DENIED, DENIED, 0]
    assert [ask(device, f"joe&command{n}") for n in (29, 30, 31)] == [DENIED, DENIED, 0]
    assert [ask(device, f"joe&command2&<{n}>") for n in (29, 30, 31)] == [DENIED, DENIED, 0]
