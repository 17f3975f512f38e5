"""tally-stop and the init scripts: a stop through the helper brings back
on restart every figure counted before it, where SIGTERM alone loses the
ticks since the last backup pass; the helper's refusals and time bounds;
what the init scripts register and do when the helper fails."""

import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile

import pytest

from statfile import build, mac, record, write_stats
from vlanfiles import KIB, Traffic

HERE = os.path.dirname(__file__)
HELPER = os.path.realpath(os.path.join(HERE, "..", "..", "tools", "tally-stop"))
INIT = os.path.realpath(os.path.join(HERE, "..", "..", "tools", "init"))
ROOT = "/var/run/ostra/tally_sw_usage"
PID_FILE = "/var/run/tally.pid"

T0 = 1793613600  # Mon 2026-11-02 10:00:00 UTC
EARLY = (T0 + 1800, T0 + 5400)  # 10:30, 11:30
CROSSING = (T0 + 6300, T0 + 8100)  # 11:45, 12:15: hour 11 closes
SAME_HOUR = (T0 + 6000, T0 + 6600)  # 11:40, 11:50
# (VLAN, address): bytes of (first, second) in each tick. VLAN 110's
# files lie in directory 10, beside VLAN 10's.
CLIENTS = {
    (10, "10.0.10.1"): (300 * KIB, 20 * KIB),
    (10, "10.0.10.2"): (7 * KIB, 90 * KIB),
    (20, "10.0.20.1"): (2048 * KIB, 100 * KIB),
    (110, "10.0.110.1"): (40 * KIB, 5 * KIB),
    (110, "10.0.110.2"): (3 * KIB, 1 * KIB),
}


@pytest.fixture(scope="module")
def shared_dir():
    """A directory every user can read: the stand-ins, pid files and BusyBox
    applets that the helper, also run as nobody, reads or runs."""
    d = tempfile.mkdtemp(prefix="tally-stop-", dir="/dev/shm")
    os.chmod(d, 0o755)
    yield d
    shutil.rmtree(d)


@pytest.fixture(scope="module")
def shells(shared_dir):
    """{name: (argv prefix, environment)} of the shells the helper runs
    under: BusyBox alone, as on an appliance, and the system's sh."""
    applets = os.path.join(shared_dir, "busybox")
    os.mkdir(applets)
    listed = subprocess.run(["busybox", "--list"], capture_output=True, text=True, check=True, timeout=60)
    for name in listed.stdout.split():
        os.symlink(shutil.which("busybox"), os.path.join(applets, name))
    return {"busybox": ([os.path.join(applets, "sh")], {"PATH": applets}),
            "sh": (["/bin/sh"], {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})}


class Clients(Traffic):
    """The clients above, each behind a station of its own."""

    def __init__(self, sb):
        super().__init__(sb, CLIENTS)

    def tick(self, t):
        return super().tick(t, per_vlan=CLIENTS)

    def _write(self):
        write_stats(self.sb, build([(mac(0x020000000000 + n), [record(vlan, ip, first, second)])
                                    for n, ((vlan, ip), (first, second)) in enumerate(self.counters.items())]))


def published(sb):
    """The run-time tree as ({path: text} of the VLAN and totals files,
    {path: text} of the client files). An empty file counts as none: a
    restored VLAN writes its monthly history, empty, where a VLAN that has
    filed no month has none yet."""
    vlans, clients = {}, {}
    base = sb.path(ROOT)
    for dirpath, _, files in os.walk(base):
        for name in files:
            with open(os.path.join(dirpath, name)) as f:
                text = f.read()
            path = os.path.relpath(os.path.join(dirpath, name), base)
            if text:
                (clients if "/sw_client/" in path else vlans)[path] = text
    return vlans, clients


@pytest.mark.parametrize("stop, earlier_pass, late, restored", [
    # How the daemon is stopped; whether a backup pass (SIGUSR1) follows
    # the early ticks; the late ticks; whence the VLAN and totals figures,
    # and the client figures, come back: as they stood at that pass or at
    # the stop.
    pytest.param("busybox", False, CROSSING, ("stop", "stop"), id="tally-stop"),
    # Client figures come back from the first pass after start (files.md).
    pytest.param("sh", True, CROSSING, ("stop", "pass"), id="tally-stop after a pass"),
    pytest.param("SIGTERM", True, SAME_HOUR, ("pass", "pass"), id="SIGTERM alone"),
])
def test_a_restart_brings_back_what_was_counted(sandbox, shells, tmp_path, stop, earlier_pass, late, restored):
    clients = Clients(sandbox)
    clients.start(T0)
    for t in EARLY:
        clients.tick(t)
    if earlier_pass:
        sandbox.signal(signal.SIGUSR1)
    at = {"pass": published(sandbox)}
    for t in late:
        clients.tick(t)
    at["stop"] = published(sandbox)
    # The late ticks move VLAN and client figures: each comparison below tells the two apart.
    assert at["stop"][0] != at["pass"][0] and at["stop"][1] != at["pass"][1]

    if stop == "SIGTERM":
        assert sandbox.stop() == 0
    else:
        # The pid file inside holds the pid in the sandbox's namespace.
        pid_file = tmp_path / "tally.pid"
        pid_file.write_text(f"{sandbox.pid}\n")
        prefix, env = shells[stop]
        done = sandbox.alongside(prefix + [HELPER, "-p", pid_file, "-t", str(sandbox.timeout)], env=env)
        assert (done.returncode, done.stderr, sandbox.returncode) == (0, "", 0)
    assert not os.path.exists(sandbox.path(PID_FILE))

    sandbox.start(late[-1] + 300)
    # The counters stand still: a restored client's first sample only
    # takes its baseline again.
    sandbox.tick(late[-1] + 330)
    vlans, client_files = published(sandbox)
    assert vlans == at[restored[0]][0]
    assert client_files == at[restored[1]][1]


STANDIN = """\
import os, signal
signal.signal(signal.SIGUSR1, lambda *_: None)
if os.environ["STANDIN"] == "ignores SIGTERM":
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
print("ready", flush=True)
signal.pause()
if os.environ["STANDIN"] == "busy after SIGUSR1":
    os.read(os.pipe()[0], 1)
while True:
    signal.pause()
"""


@pytest.fixture
def standin(shared_dir):
    """standin(name, mode) starts a process whose command line names the
    program name: it sleeps in pause() and takes SIGUSR1, then per mode
    sleeps in another system call for good ("busy after SIGUSR1"), or
    pauses again and ignores SIGTERM ("ignores SIGTERM"); returns it once
    it waits."""
    started = []

    def start(name, mode):
        script = os.path.join(shared_dir, name)
        with open(script, "w") as f:
            f.write(STANDIN)
        started.append(subprocess.Popen([sys.executable, script], env={"STANDIN": mode},
                                        stdout=subprocess.PIPE, text=True))
        ready = select.select([started[-1].stdout], [], [], 60)[0]
        assert ready and started[-1].stdout.readline() == "ready\n"
        return started[-1]
    yield start
    for p in started:
        p.kill()
        p.wait()
        p.stdout.close()


@pytest.mark.parametrize("shell", ["busybox", "sh"])
@pytest.mark.parametrize("pid, mode, user, status, message", [
    (None, None, None, 1, "no tally running: cannot read {pid_file}"),
    ("", None, None, 1, "no tally running: {pid_file} holds no process id"),
    ("12x", None, None, 1, "no tally running: {pid_file} holds no process id"),
    ("ended", None, None, 1, "no tally running: no process {pid} ({pid_file} is stale)"),
    ("other", "ignores SIGTERM", None, 1, "no tally running: process {pid} is another program ({pid_file} is stale)"),
    ("tally", "ignores SIGTERM", 65534, 5, "cannot watch or signal tally (pid {pid}): run as root"),
    ("tally", "busy after SIGUSR1", None, 3,
     "tally's backup pass not seen to finish in 1 s; SIGTERM not sent, tally (pid {pid}) left running"),
    ("tally", "ignores SIGTERM", None, 4, "tally (pid {pid}) still running 1 s after SIGTERM"),
])
def test_the_helper_refuses_or_gives_up_with_one_line(shells, shared_dir, standin, shell, pid, mode, user,
                                                       status, message):
    pid_file = os.path.join(shared_dir, f"{shell}.pid")
    if os.path.exists(pid_file):
        os.unlink(pid_file)
    process = None
    if pid == "ended":
        ended = subprocess.Popen(["true"])
        ended.wait()
        pid = str(ended.pid)
    elif pid in ("tally", "other"):
        process = standin(pid, mode)
        pid = str(process.pid)
    if pid is not None:
        with open(pid_file, "w") as f:
            f.write(pid + "\n")
    prefix, env = shells[shell]
    if user:
        prefix = [shutil.which("setpriv"), f"--reuid={user}", f"--regid={user}", "--clear-groups"] + prefix
    done = subprocess.run(prefix + [HELPER, "-p", pid_file, "-t", "1"], env=env, capture_output=True, text=True,
                          timeout=60)
    assert (done.returncode, done.stdout, done.stderr) == (
        status, "", f"tally-stop: {message.format(pid=pid, pid_file=pid_file)}\n")
    if process is not None:
        assert process.poll() is None  # neither stopped nor killed


@pytest.mark.parametrize("args, message", [
    (("-t", "0"), "-t wants a whole number of seconds from 1, not '0'"),
    (("-t", "1.5"), "-t wants a whole number of seconds from 1, not '1.5'"),
    (("-t",), "-t wants a value"),
    (("-x",), "unknown option -x"),
    (("now",), "unexpected 'now'"),
])
def test_usage_errors_exit_2_with_the_usage(shells, args, message):
    prefix, env = shells["busybox"]
    done = subprocess.run(prefix + [HELPER, *args], env=env, capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stdout, done.stderr) == (
        2, "", f"tally-stop: {message}\nUsage: tally-stop [-p PIDFILE] [-t SECONDS]\n")


@pytest.mark.parametrize("shell", ["/bin/sh", "busybox sh"])
@pytest.mark.parametrize("script", ["tally-stop", "init/tally.procd", "init/tally.sysv"])
def test_the_scripts_parse(shell, script):
    done = subprocess.run(shell.split() + ["-n", os.path.join(INIT, "..", script)], capture_output=True, text=True,
                          timeout=60)
    assert (done.returncode, done.stderr) == (0, "")


# procd's shell functions, recording their calls.
PROCD_STUBS = """\
procd_open_instance() { echo "open $*"; }
procd_set_param() { echo "param $*"; }
procd_close_instance() { echo close; }
procd_send_signal() { echo "signal $*"; }
logger() { echo "logger $*"; }
"""


def procd(body, tmp_path, helper_status=0, helper_says=""):
    """The output of body run after the procd script is sourced with
    procd's functions stubbed and the helper replaced by one that says
    helper_says on standard error and exits with helper_status."""
    (tmp_path / "says").write_text(helper_says)
    helper = tmp_path / "tally-stop"
    helper.write_text(f"#!/bin/sh\ncat {tmp_path}/says >&2\nexit {helper_status}\n")
    helper.chmod(0o755)
    script = f"{PROCD_STUBS}. {INIT}/tally.procd\nSTOP_PROG={helper}\n{body}"
    done = subprocess.run(["/bin/sh", "-c", script], capture_output=True, text=True, timeout=60)
    return done.returncode, done.stdout.splitlines(), done.stderr


def test_procd_starts_tally_respawned_after_the_agent_and_reload_sends_sighup(tmp_path):
    assert procd('echo "$USE_PROCD $START"; start_service; reload_service', tmp_path) == (0, [
        "1 99", "open ", "param command /usr/sbin/tally", "param respawn 3600 5 0", "close", "signal tally * 1"], "")


@pytest.mark.parametrize("status, says, goes_on", [
    (0, "", True),
    (1, "tally-stop: no tally running: cannot read /var/run/tally.pid", True),
    (3, "tally-stop: tally's backup pass not seen to finish in 120 s; SIGTERM not sent, tally (pid 9) left running",
     False),
    (4, "tally-stop: tally (pid 9) still running 120 s after SIGTERM", True),
    (5, "tally-stop: cannot watch or signal tally (pid 9): run as root", False),
])
def test_procd_stop_keeps_tally_running_when_no_backup_was_made(tmp_path, status, says, goes_on):
    # rc.common's stop kills the instance once stop_service returns.
    code, out, err = procd("stop_service\necho procd_kill", tmp_path, status, says)
    assert out == ([f"logger -t tally -p daemon.warn {says}"] if says else []) + (["procd_kill"] if goes_on else [])
    assert (code, err) == (0 if goes_on else 1, says + "\n" if says else "")
