"""cmake --install of the tree under test puts exactly the shipped files in
place, under DESTDIR and the prefix given: the daemon, the operators'
programs and their manual pages, and the stop helper and init scripts
where asked for."""

import os
import re
import shutil
import subprocess

import pytest

# Path under the prefix: mode.
SHIPPED = {
    "sbin/tally": 0o755,
    "bin/tally-report": 0o755,
    "bin/tally-statdump": 0o755,
    "share/man/man1/tally-report.1": 0o644,
    "share/man/man1/tally-statdump.1": 0o644,
    "share/man/man8/tally.8": 0o644,
}
SCRIPTS = {
    "sbin/tally-stop": 0o755,
    "share/man/man8/tally-stop.8": 0o644,
    "share/tally/init/tally.procd": 0o755,
    "share/tally/init/tally.sysv": 0o755,
}


@pytest.fixture(scope="module")
def build_dir(request):
    """The build tree of the daemon under test, and whether it was
    configured with TALLY_INSTALL_SCRIPTS."""
    build = os.path.dirname(os.path.realpath(request.config.getoption("--daemon")))
    with open(os.path.join(build, "CMakeCache.txt")) as f:
        option = re.search(r"^TALLY_INSTALL_SCRIPTS:BOOL=(\w+)$", f.read(), re.M)
    return build, option[1].upper() in ("ON", "1", "TRUE", "YES")


@pytest.mark.parametrize("args", [(), ("--component", "scripts")], ids=["install", "scripts component"])
def test_install_puts_exactly_the_shipped_files(build_dir, tmp_path, args):
    build, scripts = build_dir
    done = subprocess.run([shutil.which("cmake"), "--install", build, "--prefix", "/usr", *args],
                          env=dict(os.environ, DESTDIR=str(tmp_path)), capture_output=True, text=True, timeout=120)
    assert (done.returncode, done.stderr) == (0, "")
    found = {}
    for dirpath, _, files in os.walk(tmp_path):
        for name in files:
            path = os.path.join(dirpath, name)
            found[os.path.relpath(path, tmp_path / "usr")] = os.stat(path).st_mode & 0o7777
    assert found == (SCRIPTS if args else {**SHIPPED, **(SCRIPTS if scripts else {})})
