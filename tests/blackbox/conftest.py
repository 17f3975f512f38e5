"""Options naming the binaries under test, and the per-test sandbox fixture.

Run as: python3 -m pytest tests/blackbox --daemon BUILD/tally
        --fakeclock BUILD/libtally_fakeclock.so [--emulator "qemu-mips -L /usr/mips-linux-gnu"]
"""

import pytest

from sandbox import Sandbox


def pytest_addoption(parser):
    group = parser.getgroup("tally")
    group.addoption("--daemon", required=True, help="the tally binary to run")
    group.addoption("--fakeclock", required=True, help="the fakeclock preload built for the same target")
    group.addoption("--emulator", default=None,
                    help='command prefix for a foreign binary, e.g. "qemu-mips -L /usr/mips-linux-gnu"')


@pytest.fixture
def sandbox(request):
    """A Sandbox ready to start (set its tz attribute first if UTC will not do)."""
    opt = request.config.getoption
    emulator = opt("--emulator")
    sb = Sandbox(opt("--daemon"), opt("--fakeclock"), emulator.split() if emulator else None)
    yield sb
    sb.close()
