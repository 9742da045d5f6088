"""Options, fixtures and safety nets of the end-to-end suite; README.md tells how to use them."""

import faulthandler
import os
import resource
import signal
import threading

import pytest

import device as device_module
import machine as machine_module
import valgrind
from device import Device
from supervision import ACCOUNT

TEST_SECONDS = float(os.environ.get("E2E_TEST_SECONDS", "300"))


def pytest_addoption(parser):
    parser.addoption("--bin", metavar="PROGRAM", default=device_module.default_program,
                     help="the program to test (default: %(default)s)")
    parser.addoption("--valgrind", action="store_true",
                     help="run the service under valgrind; what that finds fails the test")
    parser.addoption("--slow", action="store_true", help="run the tests marked slow too")
    parser.addoption("--list-promises", action="store_true",
                     help="print what each test marked fault proves")


def pytest_configure(config):
    # The options are there only when pytest was called with this folder's path.
    program = config.getoption("--bin", default=device_module.default_program)
    device_module.default_program = os.path.realpath(program)
    if not os.access(device_module.default_program, os.X_OK):
        raise pytest.UsageError(f"no program {device_module.default_program}: build it first")
    if config.getoption("--valgrind", default=False):
        device_module.default_under = valgrind.COMMAND
        device_module.PATIENCE = machine_module.PATIENCE = max(600.0, machine_module.PATIENCE)
    # Some tests hold more connections than the usual soft limit allows.
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft != resource.RLIM_INFINITY and soft < 8192:
        wanted = 8192 if hard == resource.RLIM_INFINITY else min(8192, hard)
        resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, wanted), hard))


def pytest_collection_modifyitems(config, items):
    for item in items:
        for marker in item.iter_markers("fault"):
            for promise in marker.args:
                item.user_properties.append(("promise", promise))
                if config.getoption("--list-promises", default=False):
                    print(f"\npromise {promise} {item.nodeid.split('[')[0]}")
    if config.getoption("--slow", default=False) or os.environ.get("E2E_SLOW"):
        return
    for item in items:
        if item.get_closest_marker("slow"):
            item.add_marker(pytest.mark.skip(reason="slow: run with --slow or E2E_SLOW=1"))


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_protocol():
    """Ends a test that hangs where no wait of its own has a limit."""
    if threading.current_thread() is not threading.main_thread():
        yield
        return

    def give_up(*_):
        faulthandler.dump_traceback()
        raise TimeoutError(f"the test has run for over {TEST_SECONDS} s")

    before = signal.signal(signal.SIGALRM, give_up)
    signal.setitimer(signal.ITIMER_REAL, TEST_SECONDS)
    yield
    signal.setitimer(signal.ITIMER_REAL, 0)
    signal.signal(signal.SIGALRM, before)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A failing test shows what the service printed."""
    outcome = yield
    report = outcome.get_result()
    if not report.failed or call.when != "call":
        return
    for name, value in getattr(item, "funcargs", {}).items():
        for one in value if isinstance(value, list) else [value]:
            if isinstance(one, Device):
                try:
                    report.sections.append((f"output of {name}", one.output()[-8000:]))
                except OSError:
                    pass


def _check_and_close(device):
    findings = device.sanitizer_findings() + valgrind.findings(device)
    device.close()
    if findings:
        pytest.fail(f"a sanitizer or valgrind found:\n{findings}", pytrace=False)


@pytest.fixture
def check_and_close():
    """What the fixtures here end a device with, for a module's own."""
    return _check_and_close


@pytest.fixture
def device():
    """A fresh device: default directories empty, the service not started."""
    with Device() as fresh:
        yield fresh
        _check_and_close(fresh)


@pytest.fixture
def service(device):
    """A function that writes the given documents, starts the service and returns its device:
    service({"Account": "<Account/>"}, "-t", "600")."""

    def start(documents=None, *options, **start_arguments):
        device.write_documents(documents or {})
        device.start(*options, **start_arguments)
        return device

    return start


@pytest.fixture(scope="module")
def running(request):
    """One started service on the module's DOCUMENTS for all of its tests that change nothing."""
    with Device() as one:
        one.write_documents(request.module.DOCUMENTS)
        one.start()
        yield one
        _check_and_close(one)


@pytest.fixture
def ready(service):
    """A service with one user, and nothing printed yet."""
    device = service({"Account": ACCOUNT})
    device.forget_output()
    return device


@pytest.fixture
def restarting(service):
    """The same, whose worker is started again whenever it ends."""
    device = service({"Account": ACCOUNT}, "-l")
    device.forget_output()
    return device


@pytest.fixture
def sample(device):
    """A started service on the repository's sample configuration."""
    device.copy_sample_database()
    device.start()
    return device
