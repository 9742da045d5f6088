"""A tour of a fleet, for ./dev fleet: fleet_tour.py NUMBER [PROGRAM]

Prints what travels between a broker, an operator and so many devices, and ends with 1 where that is not
what it should be.
"""

import contextlib
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/e2e"))

import device as device_module
import fleet
from device import Device


def say(text=""):
    print(text, flush=True)


def show(topic, payload):
    """A message: its topic, and its lines set in, the signature cut."""
    say(f"  {topic}")
    for line in payload.rstrip("\n").splitlines():
        say(f"    {line[:60] + '...' if line.startswith('signature=') else line}")


def fields(message):
    body = message["body"]
    return "".join(f"{name}={value}\n" for name, value in message.items() if name != "body") + (
        f"\n{body}" if body else "")


class Tour:
    def __init__(self, operator, broker, members):
        self.operator = operator
        self.broker = broker
        self.members = members  # name to (device, bridge)
        self.name = next(iter(members))

    def told(self, name, rest):
        show(f"veltrancord/1/{name}/{rest}", fields(self.operator.last(name, rest)))

    def greet(self):
        for name in self.members:
            self.operator.wait_status(name, state="online")
        say(f"{len(self.members)} devices are online. One of them says:")
        self.told(self.name, "status")

    def event(self):
        record = (4).to_bytes(4, "little") + bytes(7) + b"gate".ljust(16, b"\0") + bytes(5)
        self.members[self.name][0].request(b"writelog:" + record)
        device_module.wait_until(lambda: self.operator.all(self.name, "event"), "the event is told")
        say("\nA program on it reports an event:")
        self.told(self.name, "event")

    def change(self, name, sequence, answer):
        self.operator.base(name, "Network")
        say(f"\nThe operator wants another setting of {name}, and signs it:")
        payload = self.operator.send_change(name, {"Network.Lan.Mtu": "1400"}, sequence=sequence,
                                            trial=60 if answer else 2)
        show(f"veltrancord/1/{name}/config/desired", payload.decode())
        if answer:
            say("\nThe device tries it, and says so over a new connection:")
            show(f"veltrancord/1/{name}/config/result",
                 fields(self.operator.wait_result(name, state="trial", sequence=str(sequence))))
            self.operator.send_answer(name, sequence)
            say("\nThe operator says over it that it is to stay:")
        else:
            say("\nThe device tries it, nobody says a word, and after two seconds:")
        show(f"veltrancord/1/{name}/config/result", fields(self.operator.wait_result(
            name, state="applied" if answer else "rolled-back", sequence=str(sequence))))

    def refuse(self):
        say("\nA change that no operator has signed:")
        text = self.operator.change_text(self.name, {"Network.Lan.Mtu": "1300"}, sequence=9)
        self.operator.publish(self.name, "desired", text)
        show(f"veltrancord/1/{self.name}/config/result",
             fields(self.operator.wait_result(self.name, reason="not signed by an operator")))

    def restart(self):
        self.operator.forget()
        self.broker.stop()
        self.broker.start()
        for name in self.members:
            self.operator.wait_status(name, state="online")
        say("\nThe broker was started anew. All devices are back, and nothing has changed:")
        for name in list(self.members)[:3]:
            say(f"  {name}: Network.Lan.Mtu={self.members[name][1].value()}")


def make_member(name, broker):
    device = Device()
    device.copy_sample_database()
    device.start()
    return name, (device, fleet.Bridge(device, broker, name, report=["System.Name", "Network.Lan.*"],
                                       keep_alive=60).start())


def main():
    names = [f"yard-{number}" for number in range(1, int(sys.argv[1]) + 1)]
    if len(sys.argv) > 2:
        device_module.default_program = sys.argv[2]
    with contextlib.ExitStack() as stack, ThreadPoolExecutor(8) as pool:
        folder = Path(stack.enter_context(tempfile.TemporaryDirectory()))
        broker = fleet.Broker(folder / "broker", fleet.make_certificates(folder / "certificates", *names))
        stack.callback(broker.close)
        operator = stack.enter_context(contextlib.closing(fleet.Operator(broker)))
        members = dict(pool.map(lambda name: make_member(name, broker), names))
        for device, _ in members.values():
            stack.callback(device.close)
        tour = Tour(operator, broker, members)
        tour.greet()
        tour.event()
        tour.change(names[0], 1, answer=True)
        tour.change(names[-1], 2, answer=False)
        tour.refuse()
        tour.restart()
        if sys.stdin.isatty():
            say(f"\nThe broker is at {fleet.HOST} port {broker.port}, certificates and keys are in\n"
                f"{broker.certificates}. Press Enter to end all of it.")
            sys.stdin.readline()
    return 0


sys.exit(main())
