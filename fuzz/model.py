#!/usr/bin/python3
"""Random commands, restarts and power cuts on the service and on a plain model of its store.

    model.py SECONDS [--seed SEED] [--bin PROGRAM]     rounds until the time is over
    model.py --round SEED-NUMBER [--bin PROGRAM]       one round once more

Every reply and, after every command, every file has to be what the model says
(tests/e2e/store_model.py); a round that differs is made short first. ./dev fuzz model runs it.
"""

import argparse
import random
import sys
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "tests/e2e")]

import device as device_module
from test_store_model import difference_on_a_fresh_device, random_command, shortest

COMMANDS = 400  # of a round


def play_round(name):
    """Return: whether service and model have agreed in the round of that name."""
    chance = random.Random(name)
    commands = [random_command(chance) for _ in range(COMMANDS)]
    found = difference_on_a_fresh_device(commands)
    if not found:
        return True
    few = shortest(commands, difference_on_a_fresh_device)
    found = difference_on_a_fresh_device(few) or f"{found} (but not on its own)"
    steps = "\n      ".join(f"{command}:{argument!r}" for command, argument in few)
    print(f"FOUND in round {name} (again: fuzz/model.py --round {name} --bin PROGRAM)\n{found}\nafter {steps}",
          flush=True)
    return False


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("seconds", type=float, nargs="?", default=60)
    parser.add_argument("--seed", default=str(random.SystemRandom().randrange(1 << 32)))
    parser.add_argument("--round")
    parser.add_argument("--bin", default=device_module.default_program)
    arguments = parser.parse_args()
    device_module.default_program = arguments.bin
    if arguments.round:
        return 0 if play_round(arguments.round) else 1
    print(f"fuzz: model, seed {arguments.seed}, {arguments.seconds:.0f} s", flush=True)
    end, rounds, found = time.monotonic() + arguments.seconds, 0, 0
    while time.monotonic() < end and found < 5:
        found += not play_round(f"{arguments.seed}-{rounds}")
        rounds += 1
    print(f"{rounds} rounds of {COMMANDS} commands, {found} findings")
    return 1 if found or rounds == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
