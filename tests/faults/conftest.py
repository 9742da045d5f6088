"""The fault tests run on the devices of the end-to-end tests, with their options and safety nets."""

import importlib.util
import os
import sys
from pathlib import Path

import pytest

E2E = Path(__file__).resolve().parents[1] / "e2e"
sys.path.insert(0, str(E2E))
os.environ.setdefault("E2E_TEST_SECONDS", "1800")

_SPEC = importlib.util.spec_from_file_location("e2e_conftest", E2E / "conftest.py")
_E2E_CONFTEST = importlib.util.module_from_spec(_SPEC)
_SPEC.loader.exec_module(_E2E_CONFTEST)
globals().update({name: value for name, value in vars(_E2E_CONFTEST).items()
                  if name.startswith("pytest_") or name in ("device", "service", "sample")})


@pytest.fixture
def long_form(request):
    """Whether the long form was asked for: more rounds, every combination."""
    return request.config.getoption("--slow") or bool(os.environ.get("E2E_SLOW"))


@pytest.fixture
def figure(record_property):
    """A function that keeps a figure of this run for the report: figure("requests", 1000)."""
    return lambda name, value: record_property("figure", f"{name}: {value}")
