"""Runs the unmodified tally binary in a bubblewrap sandbox on a virtual clock.

The sandbox's / is one fresh directory on tmpfs, so the daemon's renames from
/tmp into /var/run stay on one mount; the host's /usr, /etc and libraries are
bound back read-only. The fakeclock preload reports each pause() on a control
socket, which is how the harness knows the daemon is idle and what its pid is,
and after each wake-up asks whether another signal follows before the daemon's
loop runs.
"""

import collections
import os
import re
import select
import shutil
import signal as _signal
import socket
import struct
import subprocess
import tempfile
import time

SANDBOX_PATH = "/fakebin:/usr/sbin:/usr/bin:/sbin:/bin"
# The virtual clock's directory lies outside the root, so that the clock
# still moves when the daemon's file system is full.
CLOCK_DIR = "/.fakeclock"
CLOCK_FILE = CLOCK_DIR + "/clock"
CTL_SOCKET = CLOCK_DIR + "/ctl.sock"
CMDLOG = "/cmdlog"
# Top-level host entries that are symlinks into /usr on merged-/usr systems.
LIB_ENTRIES = ("bin", "sbin", "lib", "lib32", "lib64", "libx32")
# How often to rescan /proc while waiting for background commands to end.
PROC_POLL_SECONDS = 0.01

Idle = collections.namedtuple("Idle", "seq deadline")

# "<29>Jan  5 12:00:00 tally: text"; the timestamp is the real clock, so it is dropped.
_SYSLOG_RE = re.compile(r"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d ([^:\[ ]*)(?:\[\d+\])?: (.*)", re.S)
_CRED = struct.Struct("3i")  # struct ucred: pid, uid, gid

FAKE_PROGRAMS = {
    "/fakebin/load_tally_data": "",
    "/fakebin/cp": 'exec /bin/cp "$@"',
    "/fakebin/rm": 'exec /bin/rm "$@"',
    "/usr/local/ostra/bin/saveconfig": "",
}


class SandboxError(Exception):
    pass


class DaemonExited(SandboxError):
    """The daemon ended where the harness expected it to go idle."""

    def __init__(self, status, stderr):
        super().__init__(f"daemon exited with status {status}\n--- stderr ---\n{stderr}")
        self.status = status
        self.stderr = stderr


class Sandbox:
    """One daemon run. emulator is None or an argv prefix such as
    ["qemu-mips", "-L", "/usr/mips-linux-gnu"]; wrapper is None or the argv
    prefix of a host tool that runs a native daemon in its own process, such
    as ["valgrind", "--error-exitcode=99"]; timeout bounds every wait; size,
    in bytes, makes the root a file system of that size of its own, as the
    appliance's RAM disk is (mounting it takes root)."""

    def __init__(self, daemon, preload, emulator=None, tz="UTC", timeout=None, wrapper=None,
                 size=None):
        self.daemon = os.path.realpath(daemon)
        self.preload = os.path.realpath(preload)
        self.emulator = list(emulator) if emulator else []
        self.wrapper = list(wrapper) if wrapper else []
        self.tz = tz
        self.timeout = timeout or (60 if self.emulator or self.wrapper else 10)
        self.pid = None  # the daemon's pid (the emulator's or wrapper's process), host view
        self._proc = None
        self._pidfd = None
        self._ns = None
        self._init_pid = None
        self._reports = []  # (Idle, sender pid)
        self._wakes = []  # addresses of wake-ups waiting for an answer
        self._logs = []
        self._base = tempfile.mkdtemp(prefix="tally-sb-", dir="/dev/shm")
        self.root = os.path.join(self._base, "root")
        self._stderr_path = os.path.join(self._base, "stderr")
        self._devlog_path = os.path.join(self._base, "devlog.sock")
        self._clock_dir = os.path.join(self._base, "fakeclock")
        self._mounted = False
        try:
            if size is not None:
                os.mkdir(self.root)
                subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", self.root],
                               check=True, capture_output=True)
                self._mounted = True
            self._binds = self._build_root()
            self._devlog = self._bound_socket(self._devlog_path)
            self._ctl = self._bound_socket(self._clock_path(CTL_SOCKET))
            self._ctl.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        except BaseException:
            self._unmount()
            shutil.rmtree(self._base, ignore_errors=True)
            raise

    # ---- files -------------------------------------------------------

    def path(self, p):
        """Host path of the absolute in-sandbox path p."""
        if not p.startswith("/"):
            raise ValueError(f"not an absolute path: {p}")
        if p == "/var/run" or p.startswith("/var/run/"):
            p = "/run" + p[len("/var/run"):]
        return self.root + p

    def fake(self, path, body=""):
        """Installs a shell script at the in-sandbox path that appends
        "<name> <args>" to the command log, then runs body."""
        host = self.path(path)
        os.makedirs(os.path.dirname(host), exist_ok=True)
        name = os.path.basename(path)
        with open(host, "w") as f:
            f.write(f"#!/bin/sh\nprintf '%s\\n' \"{name} $*\" >> {CMDLOG}\n{body}\n")
        os.chmod(host, 0o755)

    def commands(self):
        """Lines of the command log, oldest first."""
        try:
            with open(self.path(CMDLOG)) as f:
                return f.read().splitlines()
        except FileNotFoundError:
            return []

    def set_clock(self, t):
        tmp = self._clock_path(CLOCK_FILE + ".new")
        with open(tmp, "w") as f:
            f.write(f"{int(t)}\n")
        os.replace(tmp, self._clock_path(CLOCK_FILE))  # the preload never sees a half-written file

    def stderr(self):
        try:
            with open(self._stderr_path, errors="replace") as f:
                return f.read()
        except FileNotFoundError:
            return ""

    def logs(self):
        """Syslog messages so far, as (priority, ident, text)."""
        self._drain()
        return list(self._logs)

    # ---- the daemon --------------------------------------------------

    def start(self, clock):
        """Starts the daemon at virtual time clock; returns its first Idle
        report, or raises DaemonExited if it ends before going idle. Once a
        daemon has ended, another can be started on the same files."""
        if self._proc is not None and self._proc.poll() is None:
            raise SandboxError("already started")
        if self._pidfd is not None:
            os.close(self._pidfd)
        reports = len(self._reports)
        self.set_clock(clock)
        with open(self._stderr_path, "wb") as err:
            self._proc = subprocess.Popen(
                self._command(), env=self._host_env(), stdin=subprocess.DEVNULL,
                stdout=err, stderr=err, close_fds=True)
        self._pidfd = os.pidfd_open(self._proc.pid)
        self._wait_until(lambda: len(self._reports) > reports or self._exited(),
                         "the first idle report")
        if len(self._reports) == reports:
            raise DaemonExited(self._proc.returncode, self.stderr())
        self.pid = self._reports[reports][1]
        self._ns = os.readlink(f"/proc/{self.pid}/ns/pid")
        with open(f"/proc/{self.pid}/stat") as f:
            self._init_pid = int(f.read().rsplit(")", 1)[1].split()[1])
        self._wait_quiet()
        return self._reports[-1][0]

    def signal(self, *sigs, repeat=1):
        """Wakes the daemon once with sigs, which reach its handlers in this
        order before its loop runs; waits until it is idle again and nothing
        else runs in the sandbox, and returns that Idle report. repeat wakes
        it that many times, each as soon as it reports idle."""
        if not sigs:
            raise ValueError("no signal to send")
        self._drain()
        for _ in range(repeat):
            idles = len(self._reports)
            os.kill(self.pid, sigs[0])
            for following in sigs[1:] + (None,):
                self._wait_until(lambda: self._wakes or self._exited(), f"a wake-up by {sigs}")
                if not self._wakes:
                    raise DaemonExited(self._proc.returncode, self.stderr())
                # Sent before the answer, the next signal is pending when the daemon waits again.
                if following is not None:
                    os.kill(self.pid, following)
                self._ctl.sendto(b"done" if following is None else b"more", self._wakes.pop(0))
            self._wait_until(lambda: len(self._reports) > idles or self._exited(),
                             f"idle after {sigs}")
            if len(self._reports) == idles:
                raise DaemonExited(self._proc.returncode, self.stderr())
        self._wait_quiet()
        return self._reports[-1][0]

    def tick(self, t=None):
        if t is not None:
            self.set_clock(t)
        return self.signal(_signal.SIGALRM)

    def stop(self, sig=_signal.SIGTERM):
        """Sends sig and returns the exit status (128 + n when killed by signal n)."""
        os.kill(self.pid, sig)

        def ended():
            # A daemon that leaves its loop only after waking must not wait on us.
            while self._wakes:
                self._ctl.sendto(b"done", self._wakes.pop(0))
            return self._exited()
        self._wait_until(ended, f"exit after signal {sig}")
        return self._proc.returncode

    def alongside(self, argv, env=None):
        """Runs the host command argv (env: its environment, else ours) while
        answering the daemon's wake-ups as signal() does, so that a command
        that signals the daemon sees its loop run. Returns the command's
        CompletedProcess with text output once it has ended and the daemon
        is idle again or has ended (returncode then tells its status)."""
        self._drain()
        idles, answered = len(self._reports), 0
        daemon = os.pidfd_open(self.pid)

        def answer():
            nonlocal answered
            while self._wakes:
                self._ctl.sendto(b"done", self._wakes.pop(0))
                answered += 1

        def daemon_ended():
            # A zombie whose emulator's other threads are still leaving has ended too.
            if select.select([daemon], [], [], 0)[0]:
                return True
            try:
                with open(f"/proc/{self.pid}/stat") as f:
                    return f.read().rsplit(")", 1)[1].split()[0] in "ZX"
            except FileNotFoundError:
                return True

        def command_ended():
            answer()
            return command.poll() is not None

        def settled():
            # Each answered wake-up ends in pause() again, unless the daemon ends.
            answer()
            return len(self._reports) >= idles + answered or daemon_ended()

        with tempfile.TemporaryFile("w+") as out, tempfile.TemporaryFile("w+") as err:
            command = subprocess.Popen(argv, env=env, stdin=subprocess.DEVNULL, stdout=out, stderr=err)
            try:
                self._wait_until(command_ended, f"{argv[0]} to end", poll=PROC_POLL_SECONDS)
                self._wait_until(settled, f"the daemon to settle after {argv[0]}", poll=PROC_POLL_SECONDS)
                ended = daemon_ended()
            finally:
                os.close(daemon)
                if command.poll() is None:
                    command.kill()
                    command.wait()
            out.seek(0)
            err.seek(0)
            done = subprocess.CompletedProcess(argv, command.returncode, out.read(), err.read())
        if ended:
            self._wait_until(self._exited, f"the sandbox to end after {argv[0]}")
        else:
            self._wait_quiet()
        return done

    @property
    def returncode(self):
        """The daemon's exit status once it has ended (128 + n when killed
        by signal n), else None."""
        return self._proc.poll()

    def close(self):
        if self._proc is not None and self._proc.poll() is None:
            self._kill()
        for s in (self._devlog, self._ctl):
            s.close()
        if self._pidfd is not None:
            os.close(self._pidfd)
            self._pidfd = None
        self._unmount()
        shutil.rmtree(self._base, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    # ---- internals ---------------------------------------------------

    def _clock_path(self, p):
        return os.path.join(self._clock_dir, os.path.relpath(p, CLOCK_DIR))

    def _unmount(self):
        if self._mounted:
            subprocess.run(["umount", self.root], check=True)
            self._mounted = False

    def _build_root(self):
        """Lays out the root directory; returns bwrap's binds."""
        binds = []
        os.mkdir(self._clock_dir)
        binds += ["--bind", self._clock_dir, CLOCK_DIR]

        def mirror(host_dir, skip):
            os.makedirs(self.root + host_dir, exist_ok=True)
            for entry in sorted(os.listdir(host_dir)):
                if entry in skip:
                    continue
                src = os.path.join(host_dir, entry)
                if os.path.islink(src):
                    os.symlink(os.readlink(src), self.root + src)
                else:
                    binds.extend(["--ro-bind", src, src])

        # /usr/local must be writable and share the mount of /run and /tmp.
        mirror("/usr", {"local"})
        mirror("/etc", {"ZERIC_wanno"})
        for entry in LIB_ENTRIES:
            src = "/" + entry
            if os.path.islink(src):
                os.symlink(os.readlink(src), self.root + src)
            elif os.path.isdir(src):
                binds += ["--ro-bind", src, src]
        for binary in (self.daemon, self.preload):
            if not binary.startswith("/usr/"):
                binds += ["--ro-bind", binary, binary]

        for d in ("run", "var", "usr/local", "fakebin", CLOCK_DIR[1:]):
            os.makedirs(os.path.join(self.root, d), exist_ok=True)
        os.symlink("../run", os.path.join(self.root, "var/run"))
        tmp = os.path.join(self.root, "tmp")
        os.mkdir(tmp)
        os.chmod(tmp, 0o1777)
        for path, body in FAKE_PROGRAMS.items():
            self.fake(path, body)
        return binds

    @staticmethod
    def _bound_socket(path):
        s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        s.bind(path)
        s.setblocking(False)
        return s

    def _host_env(self):
        # A sanitizer build refuses to run when a preload comes before its
        # runtime; the preload only adds entry points, so the order is harmless.
        asan = ":".join(filter(None, ["verify_asan_link_order=0", os.environ.get("ASAN_OPTIONS")]))
        return {"PATH": SANDBOX_PATH, "TZ": self.tz, "HOME": "/", "LANG": "C", "ASAN_OPTIONS": asan}

    def _command(self):
        preload_env = {"LD_PRELOAD": self.preload, "TALLY_FAKE_CLOCK": CLOCK_FILE,
                       "TALLY_FAKE_CTL": CTL_SOCKET}
        cmd = [shutil.which("bwrap"), "--bind", self.root, "/", *self._binds,
               "--proc", "/proc", "--dev", "/dev", "--bind", self._devlog_path, "/dev/log",
               "--unshare-pid", "--die-with-parent", "--chdir", "/"]
        if self.emulator:
            # The emulator is a host program: the preload goes to the guest only.
            emu = [shutil.which(self.emulator[0]) or self.emulator[0], *self.emulator[1:]]
            for k, v in preload_env.items():
                emu += ["-E", f"{k}={v}"]
            return cmd + ["--", *emu, self.daemon]
        if self.wrapper:
            # The preload drops LD_PRELOAD from the environment of any process
            # that loads it, the wrapper's own included, so the daemon's
            # dynamic loader is the wrapper's program and takes the preload
            # as an option.
            headers = subprocess.run(["readelf", "-l", self.daemon], capture_output=True,
                                     text=True, check=True).stdout
            loader = re.search(r"program interpreter: (.*)\]", headers)[1]
            for k, v in preload_env.items():
                if k != "LD_PRELOAD":
                    cmd += ["--setenv", k, v]
            tool = [shutil.which(self.wrapper[0]) or self.wrapper[0], *self.wrapper[1:]]
            return cmd + ["--", *tool, loader, "--preload", self.preload, self.daemon]
        for k, v in preload_env.items():
            cmd += ["--setenv", k, v]
        return cmd + ["--", self.daemon]

    def _exited(self):
        return self._proc.poll() is not None

    def _drain(self):
        while True:
            try:
                data = self._devlog.recv(65536)
            except BlockingIOError:
                break
            text = data.decode(errors="replace").rstrip("\0\n")
            m = _SYSLOG_RE.fullmatch(text)
            self._logs.append((int(m[1]), m[2], m[3]) if m else (-1, "", text))
        cred_space = socket.CMSG_SPACE(_CRED.size)
        while True:
            try:
                data, anc, _, sender = self._ctl.recvmsg(256, cred_space)
            except BlockingIOError:
                break
            words = data.decode().split()
            if words == ["woke"]:
                self._wakes.append(sender)
                continue
            pid = None
            for level, kind, value in anc:
                if level == socket.SOL_SOCKET and kind == socket.SCM_CREDENTIALS:
                    pid = _CRED.unpack(value[:_CRED.size])[0]
            if len(words) != 3 or words[0] != "idle" or pid is None:
                raise SandboxError(f"unexpected control message {data!r}")
            self._reports.append((Idle(int(words[1]), int(words[2])), pid))

    def _sandbox_pids(self):
        """Host pids of every process in the daemon's pid namespace."""
        pids = []
        for entry in os.listdir("/proc"):
            if entry.isdigit():
                try:
                    if os.readlink(f"/proc/{entry}/ns/pid") == self._ns:
                        pids.append(int(entry))
                except OSError:
                    pass  # gone, or a zombie
        return pids

    def _wait_quiet(self):
        """Background commands (saveconfig ... &) outlive the tick that started them."""
        def quiet():
            return not [p for p in self._sandbox_pids() if p not in (self.pid, self._init_pid)]
        self._wait_until(lambda: quiet() or self._exited(), "background commands to end",
                         poll=PROC_POLL_SECONDS)
        if self._exited():
            raise DaemonExited(self._proc.returncode, self.stderr())

    def _wait_until(self, done, what, poll=None):
        """Waits for done(), reading both sockets all along: the kernel queues
        only a few datagrams and a daemon that logs more would block."""
        deadline = time.monotonic() + self.timeout
        while True:
            self._drain()
            if done():
                return
            left = deadline - time.monotonic()
            if left <= 0:
                self._kill()
                raise SandboxError(f"timed out after {self.timeout}s waiting for {what}\n"
                                   f"--- stderr ---\n{self.stderr()}")
            select.select([self._devlog, self._ctl, self._pidfd], [], [],
                          min(left, poll) if poll else left)

    def _kill(self):
        """Kills the sandbox's processes by pid. With its init gone the whole
        pid namespace goes, and bwrap, which waits for that init, exits."""
        pids = self._sandbox_pids() if self._ns is not None else []
        try:
            with open(f"/proc/{self._proc.pid}/task/{self._proc.pid}/children") as f:
                pids += [int(p) for p in f.read().split()]
        except OSError:
            pass
        for pid in pids:
            try:
                os.kill(pid, _signal.SIGKILL)
            except ProcessLookupError:
                pass
        try:
            self._proc.wait(timeout=self.timeout)
        except subprocess.TimeoutExpired:
            self._proc.kill()
            self._proc.wait()
