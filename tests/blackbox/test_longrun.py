"""Ninety simulated days of agent traffic through one daemon with the clock
set: four VLANs, three hundred clients, two agent restarts and a few address
moves. At the end and the start of every day the published files must agree
with one another, and the daemon's memory must not grow with the ticks.

Set TALLY_MEMCHECK=1 to run the same days under valgrind's memcheck as well
(a native, unsanitized daemon only)."""

import os
import random
import re
import time
from datetime import datetime
from pathlib import Path
from zoneinfo import ZoneInfo

import pytest

from sandbox import Sandbox
from statfile import STATS

ZONE = ZoneInfo("Europe/Berlin")
# Three month ends, and 29 March, which has no 02:00.
START, END = (int(datetime(2026, m, d, tzinfo=ZONE).timestamp()) for m, d in ((1, 20), (4, 20)))
FIRST_VLAN, VLANS = 98, 4  # 98, 99, 100, 101: buckets 98, 99, 0 and 1
# Every first counter grows by at least 1 KiB a call, so every client that
# counted in a period is listed in its client file.
AGENT = ["--hosts", 60, "--records-per-host", 5, "--vlans", VLANS, "--first-vlan", FIRST_VLAN, "--seed", 7]
# Agent options at local times. A restart or a move costs its clients two
# calls without traffic, so each comes with a second call a minute later.
EVENTS = {int(datetime(2026, *when, 35, tzinfo=ZONE).timestamp()): options for when, options in [
    ((2, 3, 10), ["--move", 5, "--move", 17]), ((2, 20, 16), ["--restart"]),
    ((3, 10, 8), ["--move", 123, "--invalid", 20]), ((3, 31, 21), ["--restart"]),
    ((4, 8, 13), ["--move", 5])]}
# Ticks at :15 after an agent call, so every hour and day takes traffic at
# its first tick, and at :45 on a file that has not changed; none on a
# boundary. Calls at 00:01 and 00:02 on the first day take each client's
# first samples, which only set its baselines. (time, whether the agent
# calls first)
HOURS = range(START + 900, END, 3600)
TICKS = sorted([(t, True) for t in (*HOURS, START + 60, START + 120, *EVENTS, *(t + 60 for t in EVENTS))]
               + [(t + 1800, False) for t in HOURS])
ROOT = "/var/run/ostra/tally_sw_usage"
FORMATS = {"hourly": "%Y-%m-%d-%H", "daily": "%Y-%m-%d", "monthly": "%Y-%m-01"}
SHOWN = {"hourly": 24, "daily": 60, "monthly": 60}  # lines of a VLAN's display file
CLIENT_FILES = {"hourly": 24, "daily": 32, "monthly": 60}
CLIENT_ROW = re.compile(r"10\.[\d.]+,\d+,\d+,([0-9A-F]{2}:){5}[0-9A-F]{2},\d+")
MEMCHECK = ["valgrind", "--tool=memcheck", "--error-exitcode=99", "--leak-check=full",
            "--errors-for-leak-kinds=definite", "--show-leak-kinds=definite"]


def read_rows(sb, path):
    """A file's lines split at commas; none for a file not written yet."""
    path = Path(sb.path(path))
    return [line.split(",") for line in path.read_text().splitlines()] if path.exists() else []


def amounts(row):
    return int(row[-2]), int(row[-1])


def assert_rounded_sum(whole, parts, terms, what):
    """whole is a byte sum shifted to KiB; parts are KiB figures of at most
    terms amounts, each of which lost its own remainder."""
    for i in (0, 1):
        gap = whole[i] - sum(p[i] for p in parts)
        assert 0 <= gap < max(terms, 1), f"{what}, counter {i}: {whole} against {parts}"


def memory(pid):
    """The process's memory figures in KiB, by their names in /proc."""
    with open(f"/proc/{pid}/status") as f:
        fields = [line.split(":", 1) for line in f]
    return {name: int(value.split()[0]) for name, value in fields if value.endswith(" kB\n")}


def sanitized(daemon):
    with open(daemon, "rb") as f:
        return b"__asan_init" in f.read()


def check(sb, now, seen, opened, last):
    """Checks the files against one another, the periods seen and the VLAN
    display files of the last check; returns those of this check."""
    files = {v: {kind: read_rows(sb, f"{ROOT}/{v % 100}/{v}/sw_vlan/sw_usage_{kind}.csv")
                 for kind in FORMATS} for v in range(FIRST_VLAN, FIRST_VLAN + VLANS)}
    for v, shown in files.items():
        where = f"VLAN {v} on {now:%Y-%m-%d %H:%M}"
        for kind, rows in shown.items():
            history = read_rows(sb, f"{ROOT}/{v % 100}/{v}/sw_vlan/usage_history.{kind}")
            # Every period ticked, once, newest first, over its history.
            assert ([r[0] for r in rows], rows[1:]) == (seen[kind][::-1][:SHOWN[kind]], history), where
            # A period opened on this tick, a day's first, so the last check
            # was the tick before, files the one before as that tick showed
            # it; a running day or month leaves its history alone.
            if last and (kind in opened or kind != "hourly"):
                before = last[v][kind]
                assert history == (before[:SHOWN[kind] - 1] if kind in opened else before[1:]), where
            d = f"{ROOT}/{v % 100}/{v}/sw_client/sw_client_usage_{kind}"
            names = sorted(os.listdir(sb.path(d)))
            # The newest are kept, and a period opened on this tick besides
            # them until the next tick's trim.
            keep = CLIENT_FILES[kind] + (kind in opened)
            assert names == [f"{p}.csv" for p in seen[kind][-keep:]], f"{where}, {kind} client files"
            clients = Path(sb.path(f"{d}/{names[-1]}")).read_text().splitlines()
            assert all(CLIENT_ROW.fullmatch(r) for r in clients), clients
            assert_rounded_sum(amounts(rows[0]), [amounts(r.split(",")[:3]) for r in clients],
                               len(clients), f"{where}: {kind} clients in {names[-1]} and the VLAN's")
        hours, days, months = shown.values()
        assert months[0][1] == f"{now:%Y-%m-%d}", where
        # The running day against its hours, the running month against its days.
        for whole, parts, prefix in ((days[0], hours, days[0][0]), (months[0], days, months[0][0][:7])):
            parts = [amounts(r) for r in parts if r[0].startswith(prefix)]
            assert_rounded_sum(amounts(whole), parts, len(parts), f"{where}: {prefix} and its parts")
    for kind in FORMATS:
        totals = read_rows(sb, f"{ROOT}/sw_usage_{kind}_total.csv")
        per_vlan = [f[kind] for f in files.values()]
        where = f"{kind} totals on {now:%Y-%m-%d %H:%M}"
        assert len(totals) == max(map(len, per_vlan)), where
        for i, row in enumerate(totals):
            # Closed months come back from the VLANs' files in KiB: no rounding.
            exact = kind == "monthly" and i > 0
            assert {tuple(rows[i][:1 + exact]) for rows in per_vlan} == {tuple(row[:1 + exact])}, where
            assert_rounded_sum(amounts(row), [amounts(rows[i]) for rows in per_vlan],
                               1 if exact else VLANS, f"{where}, line {i}")
    return files


def ninety_days(sb, run_tool, tmp_path):
    """Runs the days and checks them; returns the exit status and the
    daemon's heap and stack at the end of each day."""
    sb.tz = ZONE.key
    rng, began = random.Random(2026), time.monotonic()
    seen = {kind: [] for kind in FORMATS}  # the periods ticked so far, oldest first
    last, anon = None, []  # RssAnon: heap and stack, not the pages of mapped files
    sb.start(START)
    # The clock marker's directory is the daemon's run-time tree.
    open(sb.path("/var/run/ostra/time_initialized"), "w").close()
    os.makedirs(sb.path("/var/run/sflow"))
    for (t, call), (following, _) in zip(TICKS, TICKS[1:] + [(END, False)]):
        if call:
            r = run_tool("tally-statgen", "--out", sb.path(STATS), "--state",
                         tmp_path / "agent", *AGENT, "--rate", rng.randrange(1024, 16384),
                         "--second-rate", rng.randrange(0, 4096), *EVENTS.get(t, []))
            assert r.returncode == 0, r.stderr
        sb.tick(t)
        now = datetime.fromtimestamp(t, ZONE)
        opened = {kind for kind, fmt in FORMATS.items() if seen[kind][-1:] != [f"{now:{fmt}}"]}
        for kind in opened:
            seen[kind].append(f"{now:{FORMATS[kind]}}")
        last_of_day = datetime.fromtimestamp(following, ZONE).date() != now.date()
        # A day is checked at its last tick and, from the second on, at its first.
        if last_of_day or ("daily" in opened and last):
            last = check(sb, now, seen, opened, last)
        if last_of_day:
            anon.append(memory(sb.pid)["RssAnon"])
    assert len(seen["daily"]) == 90 and len(seen["monthly"]) == 4
    peak, status = memory(sb.pid)["VmHWM"], sb.stop()
    print(f"\nninety days: {time.monotonic() - began:.1f} s; in KiB: VmHWM {peak}, "
          f"RssAnon day 30 {anon[29]}, day 90 {anon[89]}")
    return status, anon


def test_ninety_days_of_agent_traffic(sandbox, run_tool, tmp_path, request):
    status, anon = ninety_days(sandbox, run_tool, tmp_path)
    assert status == 0, sandbox.stderr()
    # An emulator's or a sanitizer's own memory says nothing of the daemon's.
    # Client entries are never freed, so the moves after day 30 add a little;
    # 32 bytes lost at each agent call would add 45 KiB.
    if not request.config.getoption("--emulator") and not sanitized(sandbox.daemon):
        assert anon[89] - anon[29] <= 32, f"heap and stack grew from {anon[29]} to {anon[89]} KiB"


@pytest.mark.skipif(not os.environ.get("TALLY_MEMCHECK"), reason="TALLY_MEMCHECK is not set")
def test_ninety_days_under_memcheck(run_tool, tmp_path, request):
    opt = request.config.getoption
    if opt("--emulator") or sanitized(opt("--daemon")):
        pytest.skip("memcheck runs a native daemon built without sanitizers")
    with Sandbox(opt("--daemon"), opt("--fakeclock"), wrapper=MEMCHECK) as sb:
        status, _ = ninety_days(sb, run_tool, tmp_path)
        report = sb.stderr()
    print(report[report.find("HEAP SUMMARY"):])
    assert status == 0, report
    assert "ERROR SUMMARY: 0 errors" in report, report
    assert re.search(r"definitely lost: 0 bytes|no leaks are possible", report), report
