#!/usr/bin/python3
"""Random commands, restarts and power cuts on the service and on a plain model of its store.

    model.py SECONDS [--seed SEED] [--bin PROGRAM]     rounds until the time is over
    model.py --round SEED-NUMBER [--bin PROGRAM]       one round once more

Every reply and, after every command, every file has to be what the model says
(tests/e2e/store_model.py); a round that differs is made short first. ./dev fuzz model runs it.
"""

import random
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "tests/e2e")]

import rounds
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
    rounds.tell("model.py", name, f"{found}\nafter {steps}")
    return False


if __name__ == "__main__":
    sys.exit(rounds.play(__doc__.splitlines()[0], play_round, f"{COMMANDS} commands"))
