"""Devices on an MQTT broker: the broker, an operator, and the bridge of a device.

The broker is the real one with the configuration that is shipped, on a loopback port of its own, which
every device shares with the machine; what a device has for itself are its files and processes.
"""

import contextlib
import os
import shutil
import signal
import socket
import subprocess
import threading
from pathlib import Path

import pytest

import command_line
import sanitizer
from device import PATIENCE, REPOSITORY, wait_until

EXAMPLES = REPOSITORY / "examples/fleet"
HOST = "127.0.0.1"
SETTINGS = "/run/bridge"  # the bridge's configuration inside a device
FLASH = "/mnt/bridge"
MEMORY = "/run/bridge-memory"
BROKER = shutil.which("mosquitto", path="/usr/sbin:/usr/bin:/sbin:/bin")
FAR_FUTURE = 4102444800  # 2100


def require():
    """Skips the test where the bridge is not built, or what it is tried with is missing."""
    if BROKER is None:
        pytest.skip("mosquitto is not installed")
    pytest.importorskip("paho.mqtt.client")
    return command_line.program("veltrancord-bridge")


def make_certificates(folder, *devices, days=None):
    """Makes what is missing there by the script that is shipped. Return: the folder."""
    environment = {**os.environ, **({"DAYS": str(days)} if days is not None else {})}
    subprocess.run(["sh", EXAMPLES / "make_certificates.sh", folder, HOST, *devices], check=True,
                   capture_output=True, env=environment)
    return Path(folder)


def free_port():
    with socket.socket() as one:
        one.bind((HOST, 0))
        return one.getsockname()[1]


class Broker:
    """A broker for a test; `close` ends it."""

    def __init__(self, folder, certificates, launch=None):
        """`launch`: starts a command on a device in its place, with the machine's files below
        /run/host."""
        self._launch = launch
        self._root = "/run/host" if launch else ""
        self.folder = Path(folder)
        self.certificates = certificates
        self.folder.mkdir(parents=True, exist_ok=True)
        self.port = free_port()
        self.plain = self.folder / "plain"  # a socket without TLS, for this machine alone
        self._process = None
        self.start()

    def _configure(self):
        text = (EXAMPLES / "mosquitto.conf").read_text()
        text = text.replace("listener 8883", f"listener {self.port} {HOST}")
        text = text.replace("/etc/mosquitto/veltrancord/access", f"{self._root}{EXAMPLES / 'access'}")
        text = text.replace("/etc/mosquitto/veltrancord", f"{self._root}{self.certificates}")
        # The tests' operator takes in everything at once.
        text = text.replace("max_queued_messages 1000", "max_queued_messages 0")
        text += (f"user {'root' if os.geteuid() == 0 else os.environ.get('USER', 'nobody')}\n"
                 f"persistence_location {self._root}{self.folder}/\n"
                 f"log_dest file {self._root}{self.folder}/log\n"
                 f"log_type all\n")
        # So the settings of security belong to the listener above them.
        text = ("per_listener_settings true\n" + text +
                f"listener 0 {self._root}{self.plain}\nallow_anonymous true\n")
        (self.folder / "conf").write_text(text)

    def start(self):
        self._configure()
        if self._launch is not None:
            self._launch(BROKER, "-c", f"{self._root}{self.folder}/conf")
            wait_until(self.plain.exists, f"the broker answers:\n{self.log()}")
            return
        self._process = subprocess.Popen([BROKER, "-c", self.folder / "conf"],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(self._answers, f"the broker answers:\n{self.log()}")

    def _answers(self):
        assert self._process.poll() is None, self.log()
        with contextlib.suppress(ConnectionRefusedError), socket.create_connection((HOST, self.port)):
            return True
        return False

    def log(self):
        path = self.folder / "log"
        return path.read_text() if path.exists() else ""

    def stop(self):
        if self._process is not None:
            self._process.terminate()
            self._process.wait(PATIENCE)
            self._process = None

    close = stop


class Forwarder:
    """A loopback port that leads one client to a socket in the file system."""

    def __init__(self, path):
        self._listener = socket.create_server((HOST, 0))
        self.port = self._listener.getsockname()[1]
        self._ends = []
        threading.Thread(target=self._serve, args=(str(path),), daemon=True).start()

    def _serve(self, path):
        with contextlib.suppress(OSError):
            client, _ = self._listener.accept()
            service = socket.socket(socket.AF_UNIX)
            self._ends = [client, service]
            service.connect(path)
            threading.Thread(target=self._copy, args=(service, client), daemon=True).start()
            self._copy(client, service)

    @staticmethod
    def _copy(source, target):
        with contextlib.suppress(OSError):
            while block := source.recv(1 << 16):
                target.sendall(block)
            target.shutdown(socket.SHUT_RDWR)

    def close(self):
        for one in [self._listener, *self._ends]:
            one.close()


def fields_of(payload):
    """The "name=value" lines before the first blank line, and what follows it."""
    head, _, rest = payload.decode("utf-8", "replace").partition("\n\n")
    return dict(line.partition("=")[::2] for line in head.splitlines()) | {"body": rest}


class Operator:
    """Hears all that the devices tell, and sends signed messages."""

    def __init__(self, broker, common_name="operator", through=None):
        """`through`: a socket of the broker's without TLS, in the place of its port."""
        from paho.mqtt import client as mqtt
        self.certificates = broker.certificates
        self.messages = []  # (topic, payload, retained), in their order
        self._lock = threading.Lock()
        self._connected = threading.Event()
        # The broker keeps for it what comes while it is away.
        self._link = mqtt.Client(client_id=f"{common_name}-{os.getpid()}-{id(self)}", clean_session=False)
        self._forwarder = Forwarder(through) if through else None
        if through is None:
            self._link.tls_set(str(broker.certificates / "ca.pem"),
                               str(broker.certificates / f"{common_name}.pem"),
                               str(broker.certificates / f"{common_name}.key"))
        self._link.on_message = self._take
        self._link.on_connect = lambda link, *_: link.subscribe("veltrancord/1/#", 1)
        self._link.on_subscribe = lambda *_: self._connected.set()
        self._link.reconnect_delay_set(0.05, 0.2)
        self._link.connect(HOST, self._forwarder.port if through else broker.port, 60)
        self._link.loop_start()
        assert self._connected.wait(PATIENCE)

    def close(self):
        self._link.disconnect()
        self._link.loop_stop()
        if self._forwarder is not None:
            self._forwarder.close()

    def _take(self, _link, _data, message):
        with self._lock:
            self.messages.append((message.topic, message.payload, message.retain))

    def wait_connected(self):
        """After the broker was started anew."""
        self._connected.clear()
        assert self._connected.wait(PATIENCE)

    def all(self, device, rest):
        """Every payload under that topic so far, as `fields_of`."""
        topic = f"veltrancord/1/{device}/{rest}"
        with self._lock:
            return [fields_of(payload) for name, payload, _ in self.messages if name == topic]

    def last(self, device, rest):
        found = self.all(device, rest)
        return found[-1] if found else {}

    def forget(self):
        with self._lock:
            self.messages.clear()

    def wait_status(self, device, **wanted):
        wait_until(lambda: wanted.items() <= self.last(device, "status").items(),
                   f"{device} is {wanted}; it said {self.last(device, 'status')}")

    def wait_result(self, device, **wanted):
        """Waits until a result has all these fields. Return: the first one."""
        def found():
            return [one for one in self.all(device, "config/result")
                    if wanted.items() <= one.items()]
        try:
            return wait_until(found, "")[0]
        except TimeoutError:
            raise TimeoutError(f"no result {wanted} of {device}, but "
                               f"{self.all(device, 'config/result')}") from None

    def publish(self, device, kind, payload, retain=None):
        retain = kind == "desired" if retain is None else retain
        message = self.hand_over(f"veltrancord/1/{device}/config/{kind}", payload, retain)
        message.wait_for_publish(PATIENCE)

    def hand_over(self, topic, payload, retain=False):
        """Publishes without waiting for the broker's word."""
        return self._link.publish(topic, payload, 1, retain)

    def sign(self, device, kind, text, key="signing"):
        """By the script that is shipped."""
        return subprocess.run(["sh", EXAMPLES / "sign.sh", self.certificates / f"{key}.key", device,
                               kind], input=text.encode(), capture_output=True, check=True).stdout

    def base(self, device, document):
        """The hash that the device has told of a document last."""
        report = wait_until(lambda: self.last(device, f"config/reported/{document}"),
                            f"{device} has reported {document}")
        return report["hash"]

    def change_text(self, device, settings, sequence=1, identity=None, trial=60, remove=(),
                    not_after=FAR_FUTURE, bases=None, to=None):
        """The text of a change: a dictionary of settings, on the documents as they were told last."""
        documents = {path.partition(".")[0] for path in [*settings, *remove]}
        bases = {one: self.base(device, one) for one in documents} if bases is None else bases
        return "".join([f"id={identity or f'change-{sequence}'}\ndevice={to or device}\n"
                        f"sequence={sequence}\nnot-after={not_after}\ntrial={trial}\n",
                        *(f"base={one} {value}\n" for one, value in bases.items()),
                        *(f"remove={one}\n" for one in remove), "\n",
                        *(f"{path}={value}\n" for path, value in settings.items())])

    def send_change(self, device, settings, kind="desired", key="signing", **arguments):
        """Signs a change and sends it. Return: the payload."""
        payload = self.sign(device, kind, self.change_text(device, settings, **arguments), key)
        self.publish(device, kind, payload)
        return payload

    def send_answer(self, device, sequence=1, answer="keep", identity=None, key="signing",
                    not_after=FAR_FUTURE, to=None):
        text = (f"id={identity or f'change-{sequence}'}\ndevice={to or device}\n"
                f"sequence={sequence}\nnot-after={not_after}\nanswer={answer}\n")
        payload = self.sign(device, "confirm", text, key)
        self.publish(device, "confirm", payload)
        return payload


class Bridge:
    """veltrancord-bridge on a device."""

    def __init__(self, device, broker, name, report=("System.Name",), writable=("Network.Lan.*",),
                 keys=("signing",), plain=False, lines=(), keep_alive=5):
        self.program = require()
        self.device = device
        self.name = name
        self.pid = None
        self._base = None
        for path in (SETTINGS, FLASH, MEMORY):
            device.make_directory(path)
        text = [f"documents=/mnt/database/xml\nstate={FLASH}\nmemory={MEMORY}\nkeep-alive={keep_alive}\n"
                "settle=0\nreport-interval=1\n"]
        if plain:
            text += [f"host=/run/host{broker.plain}\nport=0\ndevice={name}\n"]
        else:
            for source, target in (("ca.pem", "ca.pem"), (f"{name}.pem", "device.pem"),
                                   (f"{name}.key", "device.key")):
                device.write_file(f"{SETTINGS}/{target}", (broker.certificates / source).read_bytes())
            text += [f"host={HOST}\nport={broker.port}\nca={SETTINGS}/ca.pem\n"
                     f"certificate={SETTINGS}/device.pem\nprivate-key={SETTINGS}/device.key\n"]
        for key in keys:
            device.write_file(f"{SETTINGS}/{key}.pem", (broker.certificates / f"{key}.pem").read_bytes())
            text += [f"operator-key={SETTINGS}/{key}.pem\n"]
        if writable:
            device.write_file(f"{SETTINGS}/writable", "".join(f"{one}\n" for one in writable))
            text += [f"writable={SETTINGS}/writable\n"]
        text += [f"report={one}\n" for one in report] + [f"{one}\n" for one in lines]
        device.write_file(f"{SETTINGS}/bridge.conf", "".join(text))

    def run(self, *arguments):
        """Runs it with these arguments, to its end. Return: `Finished`."""
        return self.device.run("/run/host" + self.program, "--configuration",
                               f"{SETTINGS}/bridge.conf", *arguments)

    def start(self, under=()):
        variables = [f"{name}={value}" for name, value in sanitizer.environment(False).items()]
        self.pid, self._base = self.device.launch(
            "/usr/bin/env", *variables, *under, "/run/host" + self.program, "--configuration",
            f"{SETTINGS}/bridge.conf")
        return self

    def stderr(self):
        return self.device.read_file(self._base + ".err").decode()

    def kill(self, number=signal.SIGKILL):
        self.device.send_signal(self.pid, number)
        assert self.device.wait_for_end(self.pid, PATIENCE) is not None

    def guards(self):
        return [one.pid for one in self.device.processes() if " --guard " in one.command
                and one.state != "Z"]

    def value(self, path="Network.Lan.Mtu"):
        return self.device.request(f"readvalue:{path}").text

    def on_flash(self, document="Network"):
        return self.device.read_document(document).decode()

    def saves(self, document="Network"):
        """What changes with each save of a document."""
        return os.stat(self.device.outside(f"/mnt/database/xml/{document}")).st_ino
