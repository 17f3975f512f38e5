"""Options naming the binaries under test, and the per-test sandbox fixture.

Run as: python3 -m pytest tests/blackbox --daemon BUILD/tally
        --fakeclock BUILD/libtally_fakeclock.so [--emulator "qemu-mips -L /usr/mips-linux-gnu"]
        [--tools DIR]
"""

import os
import subprocess
import sys

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "tools", "sandbox"))
from sandbox import Sandbox  # noqa: E402


def pytest_addoption(parser):
    group = parser.getgroup("tally")
    group.addoption("--daemon", required=True, help="the tally binary to run")
    group.addoption("--fakeclock", required=True, help="the fakeclock preload built for the same target")
    group.addoption("--emulator", default=None,
                    help='command prefix for a foreign binary, e.g. "qemu-mips -L /usr/mips-linux-gnu"')
    group.addoption("--tools", default=None,
                    help="directory of tally-statgen and tally-statdump (default: that of --daemon)")


@pytest.fixture
def make_sandbox(request):
    """make_sandbox(**options) makes a Sandbox of the binaries under test with
    further options (tz, size, ...); each is closed after the test."""
    opt = request.config.getoption
    emulator = opt("--emulator")
    made = []

    def make(**options):
        made.append(Sandbox(opt("--daemon"), opt("--fakeclock"),
                            emulator.split() if emulator else None, **options))
        return made[-1]
    yield make
    for sb in made:
        sb.close()


@pytest.fixture
def sandbox(make_sandbox):
    """A Sandbox ready to start (set its tz attribute first if UTC will not do)."""
    return make_sandbox()


@pytest.fixture
def run_tool(request):
    """run_tool(name, *args) runs one of the tools, through the emulator if
    one is given, and returns its CompletedProcess with text output."""
    opt = request.config.getoption
    tools = opt("--tools") or os.path.dirname(os.path.abspath(opt("--daemon")))
    emulator = opt("--emulator")
    prefix = emulator.split() if emulator else []

    def run(name, *args, timeout=120):
        argv = prefix + [os.path.join(tools, name)] + [str(a) for a in args]
        return subprocess.run(argv, capture_output=True, text=True, timeout=timeout)
    return run
