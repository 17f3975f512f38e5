#!/usr/bin/python3
"""The daemon's real tick, whole, in the sandbox: fed a statistics file of
C clients over V VLANs (the agent simulator's), the clock marker set, ticks
that close no period. Prints per scenario the CPU time of a tick, its
instructions (callgrind, counting only the update cycle, natively), the
tick against its I/O floor (all of its CPU time against the kernel's part,
which is what its file-system calls cost), and the daemon's memory: its
resident set, the anonymous part of it (heap, stack) and its peak. Under
an emulator the figures are the emulator's process, guest and all. --aged
starts every VLAN from a backup tree of full rings and sixty filed months,
as on an appliance that has run for years.
--hostile VxC adds files of the same size as that scenario's that no agent
writes, to compare their cost with it.

Usage: bench/tick.py --daemon BUILD/tally --fakeclock BUILD/libtally_fakeclock.so
                     --statgen HOST_BUILD/tally-statgen [--emulator "qemu-mips -L ..."]
                     [--grid 1x50,16x1000] [--ticks N] [--hostile VxC] [--no-callgrind]
"""

import argparse
import datetime
import glob
import os
import re
import statistics
import struct
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "tools", "sandbox"))
from sandbox import Sandbox  # noqa: E402

STATS = "/var/run/sflow/stat.bin"
START = 1795258200  # Sat 2026-11-21 10:50:00 UTC: ten minutes of ticks in one hour
WARM_UP = 3  # a client's first sighting and first change only set baselines
HEADER, HOST, RECORD = struct.Struct(">II"), struct.Struct(">6s2xII"), 168


def agent(statgen, out, state, vlans, clients):
    """The next interval of an agent with one station per client."""
    argv = [statgen, "--out", out, "--state", state, "--hosts", clients, "--records-per-host", 1,
            "--vlans", vlans, "--first-vlan", 1, "--rate", 3000]
    subprocess.run([str(a) for a in argv], check=True, capture_output=True)


def hostile(well_formed, kind):
    """A file of the same size as well_formed that no agent writes."""
    data = bytearray(well_formed)
    hosts = HEADER.unpack_from(data)[1]
    records_at = HEADER.size + hosts * HOST.size
    records = (len(data) - records_at) // RECORD
    for i in range(hosts):
        at = HEADER.size + i * HOST.size
        mac, count, offset = HOST.unpack_from(data, at)
        if kind == "all claim all":
            HOST.pack_into(data, at, mac, records, records_at)
        elif kind == "each claims the rest":
            HOST.pack_into(data, at, mac, 0xFFFFFFFF, offset)
    if kind == "hosts everywhere":
        struct.pack_into(">I", data, 4, 0xFFFFFFFF)
    if kind == "noise":
        data[8:] = bytes((i * 131 + 7) % 256 for i in range(len(data) - 8))
    return bytes(data)


def plant_history(sb, vlans):
    """A backup tree of VLANs 1 to vlans that have run for years: full rings
    of hours and days, and sixty filed months, all restored at start."""
    start = datetime.datetime.fromtimestamp(START, datetime.timezone.utc)
    hours = "".join(f"{start - datetime.timedelta(hours=k):%Y-%m-%d-%H},{k << 20},{k << 10}\n"
                    for k in range(32))
    days = "".join(f"{start - datetime.timedelta(days=k):%Y-%m-%d},{k << 24},{k << 14}\n"
                   for k in range(64))
    months, year, month = [], start.year, start.month
    for k in range(61):
        last = (datetime.date(year + month // 12, month % 12 + 1, 1) - datetime.timedelta(days=1)).day
        months.append(f"{year}-{month:02d}-01,{year}-{month:02d}-{last:02d},{k << 30},{k << 20}\n")
        year, month = (year, month - 1) if month > 1 else (year - 1, 12)
    for vlan in range(1, vlans + 1):
        d = sb.path(f"/tmp/tally_sw_usage/{vlan % 100}/{vlan}/sw_vlan")
        os.makedirs(d)
        for name, text in (("hourly", hours), ("daily", days), ("monthly", "".join(months))):
            with open(f"{d}/tally.{name}.csv", "w") as f:
                f.write(text)


def status_kib(pid, field):
    with open(f"/proc/{pid}/status") as f:
        return int(re.search(rf"^{field}:\s+(\d+)", f.read(), re.M)[1])


def cpu_ns(pid):
    with open(f"/proc/{pid}/schedstat") as f:
        return int(f.read().split()[0])


def user_system(pid):
    """CPU time in user space and in the kernel, in clock ticks."""
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return int(fields[11]), int(fields[12])


# Counts only inside the update cycle; the loop arms the alarm right after
# each, so a dump there holds one tick (and the dump at the loop's other
# alarm call holds nothing).
CALLGRIND = ["valgrind", "--tool=callgrind", "--collect-atstart=no",
             "--toggle-collect=*tally_sw_usage_update*", "--dump-before=alarm",
             "--callgrind-out-file=/callgrind/out.%p"]


def dumps(sb):
    """The instructions of each update cycle, from callgrind's dumps."""
    paths = glob.glob(sb.path("/callgrind/out.*.*"))
    totals = []
    for path in sorted(paths, key=lambda p: int(p.rsplit(".", 1)[1])):
        with open(path) as f:
            m = re.search(r"^summary: (\d+)", f.read(), re.M)
        if m and int(m[1]):
            totals.append(int(m[1]))
    return totals


def run(args, files, callgrind=False):
    """Ticks the daemon over the statistics files that files() writes, one a
    tick; returns the CPU ms and, under callgrind, the instructions of each
    measured tick, and the daemon's memory in KiB and CPU time in user space
    against the kernel's."""
    emulator = args.emulator.split() if args.emulator else None
    with tempfile.TemporaryDirectory() as tmp, \
            Sandbox(args.daemon, args.fakeclock, emulator, wrapper=CALLGRIND if callgrind else None,
                    timeout=3600) as sb:
        os.makedirs(sb.path("/callgrind"))
        if args.aged:
            plant_history(sb, files.vlans)
        sb.start(START)
        os.makedirs(sb.path("/var/run/sflow"), exist_ok=True)
        open(sb.path("/var/run/ostra/time_initialized"), "w").close()
        cpu, user, system = [], 0, 0
        ticks = args.callgrind_ticks if callgrind else args.ticks
        for n, write in enumerate(files(sb, tmp, ticks)):
            write()
            before, (u0, s0) = cpu_ns(sb.pid), user_system(sb.pid)
            sb.tick(START + 30 * (n + 1))
            if n >= WARM_UP:
                cpu.append((cpu_ns(sb.pid) - before) / 1e6)
                u1, s1 = user_system(sb.pid)
                user, system = user + u1 - u0, system + s1 - s0
        memory = {f: status_kib(sb.pid, f) for f in ("VmRSS", "RssAnon", "VmHWM")}
        # Clock ticks of 10 ms: too few say nothing.
        memory["floor"] = (user + system) / system if system >= 20 else None
        assert sb.stop() == 0, sb.stderr()
        return cpu, dumps(sb)[WARM_UP:], memory


def agent_files(args, vlans, clients, spoil=None):
    """The agent's intervals, each spoiled by spoil(data) if given."""
    def files(sb, tmp, ticks):
        def write():
            agent(args.statgen, os.path.join(tmp, "stat.bin"), os.path.join(tmp, "agent"),
                  vlans, clients)
            with open(os.path.join(tmp, "stat.bin"), "rb") as f:
                data = f.read()
            with open(sb.path(STATS + ".new"), "wb") as f:
                f.write(spoil(data) if spoil else data)
            os.replace(sb.path(STATS + ".new"), sb.path(STATS))
        for _ in range(WARM_UP + ticks):
            yield write
    files.vlans = vlans
    return files


def report(args, name, clients, files):
    cpu, _, memory = run(args, files)
    line = f"{name:>22} {clients:>8,} clients | {statistics.median(cpu):9.2f} ms/tick (CPU)"
    if not args.no_callgrind and not args.emulator:
        per_tick = statistics.median(run(args, files, callgrind=True)[1])
        line += f" | {per_tick / 1e6:9.2f} M instr/tick {per_tick / clients:9,.0f} /client"
    floor = memory["floor"]
    line += f" | {floor:.2f} x kernel time" if floor else " |    - x kernel time"
    line += (f" | RSS {memory['VmRSS']:,} KiB ({memory['RssAnon']:,} anonymous),"
             f" peak {memory['VmHWM']:,} KiB")
    print(line, flush=True)
    return per_tick if not args.no_callgrind and not args.emulator else statistics.median(cpu)


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--daemon", required=True)
    ap.add_argument("--fakeclock", required=True)
    ap.add_argument("--statgen", required=True, help="a tally-statgen that runs on this host")
    ap.add_argument("--emulator", default=None)
    ap.add_argument("--grid", default="1x50,16x1000,64x10000,1000x100000",
                    help="scenarios of V VLANs and C clients; empty for none")
    ap.add_argument("--ticks", type=int, default=20, help="ticks timed")
    ap.add_argument("--callgrind-ticks", type=int, default=3, help="ticks counted")
    ap.add_argument("--hostile", metavar="VxC", default=None,
                    help="also files of that scenario's size that no agent writes")
    ap.add_argument("--no-callgrind", action="store_true")
    ap.add_argument("--aged", action="store_true",
                    help="VLANs restored with full rings and sixty months of history")
    args = ap.parse_args()

    grid = [tuple(int(n) for n in point.split("x")) for point in args.grid.split(",") if point]
    print(f"{'scenario':>22} {'':>17} | medians of {args.ticks} ticks timed and "
          f"{args.callgrind_ticks} counted, after {WARM_UP} to warm up")
    for vlans, clients in grid:
        report(args, f"{vlans}x{clients}", clients, agent_files(args, vlans, clients))
    if args.hostile:
        vlans, clients = (int(n) for n in args.hostile.split("x"))
        cost = report(args, f"{vlans}x{clients}", clients, agent_files(args, vlans, clients))
        for kind in ("all claim all", "each claims the rest", "hosts everywhere", "noise"):
            files = agent_files(args, vlans, clients, lambda data, kind=kind: hostile(data, kind))
            bad = report(args, kind, clients, files)
            print(f"{'':>22} {'':>17} | {bad / cost:.2f} times the well-formed file's cost")


if __name__ == "__main__":
    main()
