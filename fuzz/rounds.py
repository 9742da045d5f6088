"""Rounds that are made up by chance until the time is over: what service.py and model.py share.

A round has a name, SEED-NUMBER, from which it is made up again.
"""

import argparse
import random
import time

import device as device_module

MOST_FINDINGS = 5  # after which it is time to look at them


def play(title, play_round, length):
    """Reads the command line and plays rounds, or the one that it names.

    `play_round` takes a round's name, and tells whether nothing was found; `length` says of how much a
    round consists. Return: the exit status.
    """
    parser = argparse.ArgumentParser(description=title)
    parser.add_argument("seconds", type=float, nargs="?", default=60)
    parser.add_argument("--seed", default=str(random.SystemRandom().randrange(1 << 32)))
    parser.add_argument("--round")
    parser.add_argument("--bin", default=device_module.default_program)
    arguments = parser.parse_args()
    device_module.default_program = arguments.bin
    if arguments.round:
        return 0 if play_round(arguments.round) else 1
    print(f"fuzz: {parser.prog}, seed {arguments.seed}, {arguments.seconds:.0f} s", flush=True)
    end, rounds, found = time.monotonic() + arguments.seconds, 0, 0
    while time.monotonic() < end and found < MOST_FINDINGS:
        found += not play_round(f"{arguments.seed}-{rounds}")
        rounds += 1
    print(f"{rounds} rounds of {length}, {found} findings")
    return 1 if found or rounds == 0 else 0


def tell(program, name, finding):
    print(f"FOUND in round {name} (again: fuzz/{program} --round {name} --bin PROGRAM)\n{finding}",
          flush=True)
