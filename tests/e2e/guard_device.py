"""A device with users beside root and an access file."""

import os

import pytest

from device import SOCKET, Device

ACCESS_FILE = "/etc/veltrancord/access"
SYSTEM_LOG = "/dev/log"

WEB, STRANGER, STAFF = 1033, 1077, 1050  # numbers of two users and of a group


class GuardedDevice(Device):
    """As a Device; others than root may connect."""

    def __init__(self):
        super().__init__(many_users=True)
        if not self.has_many_users:
            self.close()
            pytest.skip("this machine gives no other users away")
        for directory in ("/etc", "/dev"):
            self._ask("cover", path=directory)

    def write_access(self, text, mode=0o644):
        self.write_file(ACCESS_FILE, text, mode)

    def start(self, *options, **arguments):
        starter = super().start(*options, **arguments)
        os.chmod(self.outside(SOCKET), 0o777)
        return starter

    def sync(self):
        """Has the access file read anew, by root."""
        assert self.request("SyncPermit:").code == 0

