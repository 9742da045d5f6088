"""A few rounds of ./dev fuzz service: all commands over the socket, on a database as bad as can be."""

import random
import sys

import pytest

from device import REPOSITORY

sys.path.insert(0, str(REPOSITORY / "fuzz"))

import nasty_database
import service as fuzz_service

pytestmark = pytest.mark.fault("Z3")


def test_every_command_is_among_the_requests():
    chance = random.Random(1)
    sent = {nasty_database.payload(chance).partition(b":")[0].decode("latin-1") for _ in range(3000)}
    assert len(nasty_database.ARGUMENTS) == 35
    assert set(nasty_database.ARGUMENTS) <= sent


# Seeds that never change: what fails here once fails always.
@pytest.mark.parametrize("seed", range(8))
def test_the_service_outlives_a_bad_database(device, seed):
    fuzz_service.play(device, random.Random(f"test-{seed}"), 100)


def test_a_service_that_ends_is_a_finding(device):
    request = device.request

    def end(payload):  # in the place of a request
        device.kill_worker()
        return request(payload)

    device.request = end
    with pytest.raises(fuzz_service.Finding):
        fuzz_service.play(device, random.Random(1), 100)
