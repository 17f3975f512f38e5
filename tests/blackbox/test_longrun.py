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
from datetime import datetime, timedelta
from zoneinfo import ZoneInfo

import pytest

from sandbox import Sandbox

TZ = "Europe/Berlin"
ZONE = ZoneInfo(TZ)
# Three month ends, and 29 March, which has no 02:00.
START = datetime(2026, 1, 20, tzinfo=ZONE)
END = datetime(2026, 4, 20, tzinfo=ZONE)
# The daemon ticks every quarter of an hour, at :07:30, :22:30, ..., so no
# tick lies on a boundary; the agent writes before every other tick, the
# first of each half hour, so every hour and day takes traffic at its first
# tick, and the ticks between read a file that has not changed.
STEP = 900
AGENT_EVERY = 2
FIRST_TICK = int(START.timestamp()) + STEP // 2
FIRST_VLAN, VLANS = 98, 4  # 98, 99, 100, 101: buckets 98, 99, 0 and 1
HOSTS, RECORDS_PER_HOST = 60, 5
ROOT = "/var/run/ostra/tally_sw_usage"
STATS = "/var/run/sflow/stat.bin"
CLIENT_LIMITS = {"hourly": 24, "daily": 32, "monthly": 60}
CLIENT_PERIODS = {"hourly": "hour", "daily": "day", "monthly": "month"}
# Agent options for its first call at or after each local time. A restart
# or a move costs its clients two calls without traffic; none comes near
# midnight, where the checks expect the new hour's and day's client files
# from their first tick.
EVENTS = [
    (datetime(2026, 2, 3, 10, 35, tzinfo=ZONE), ["--move", 5, "--move", 17]),
    (datetime(2026, 2, 20, 16, 35, tzinfo=ZONE), ["--restart"]),
    (datetime(2026, 3, 10, 8, 35, tzinfo=ZONE), ["--move", 123, "--invalid", 20]),
    (datetime(2026, 3, 31, 21, 35, tzinfo=ZONE), ["--restart"]),
    (datetime(2026, 4, 8, 13, 35, tzinfo=ZONE), ["--move", 5]),
]
MEMCHECK = ["valgrind", "--tool=memcheck", "--error-exitcode=99", "--leak-check=full",
            "--errors-for-leak-kinds=definite", "--show-leak-kinds=definite"]


def local(t):
    return datetime.fromtimestamp(t, ZONE)


def last_day_of_month(day):
    return (day.replace(day=28) + timedelta(days=4)).replace(day=1) - timedelta(days=1)


def read_rows(sb, path):
    try:
        with open(sb.path(path)) as f:
            return [line.split(",") for line in f.read().splitlines()]
    except FileNotFoundError:
        return []


def amounts(row):
    return int(row[-2]), int(row[-1])


def assert_rounded_sum(whole, parts, terms, what):
    """whole is a byte sum shifted to KiB; parts are KiB figures of at most
    terms amounts, each of which lost its own remainder."""
    for i, counter in enumerate(("first", "second")):
        gap = whole[i] - sum(p[i] for p in parts)
        assert 0 <= gap < max(terms, 1), \
            f"{what}, {counter} counter: {whole[i]} KiB against parts summing to " \
            f"{sum(p[i] for p in parts)} KiB over {terms} amounts"


def memory(pid):
    """The process's memory figures in KiB, by their names in /proc."""
    with open(f"/proc/{pid}/status") as f:
        fields = [line.split(":", 1) for line in f]
    return {name: int(value.split()[0]) for name, value in fields if value.endswith(" kB\n")}


def sanitized(daemon):
    with open(daemon, "rb") as f:
        return b"__asan_init" in f.read()


class Calendar:
    """The periods the ticks so far have touched, oldest first, as the daemon
    names them."""

    def __init__(self):
        self.hours, self.days, self.months = [], [], []
        self.opened = set()  # the kinds of period this tick opened

    def advance(self, t):
        now = local(t)
        self.opened = set()
        for kind, seen, label in (("hour", self.hours, now.strftime("%Y-%m-%d-%H")),
                                  ("day", self.days, now.strftime("%Y-%m-%d")),
                                  ("month", self.months, now.strftime("%Y-%m-01"))):
            if not seen or seen[-1] != label:
                seen.append(label)
                self.opened.add(kind)

    def client_files(self, kind):
        """Names the retention keeps: the newest, and the period opened on
        this tick besides them until the next tick's trim."""
        seen = {"hourly": self.hours, "daily": self.days, "monthly": self.months}[kind]
        keep = CLIENT_LIMITS[kind] + (CLIENT_PERIODS[kind] in self.opened)
        return sorted(name + ".csv" for name in seen[-keep:])


class LongRun:
    """Drives the agent and the daemon tick by tick and checks the files."""

    def __init__(self, sb, run_tool, state):
        self.sb = sb
        self.run_tool = run_tool
        self.state = state
        self.rng = random.Random(2026)
        self.events = list(EVENTS)
        self.moves = {v: 0 for v in self.vlans()}
        self.calendar = Calendar()
        self.last = None  # the VLAN files at the last check

    @staticmethod
    def vlans():
        return range(FIRST_VLAN, FIRST_VLAN + VLANS)

    def agent(self, t):
        extra = []
        while self.events and self.events[0][0].timestamp() <= t:
            extra += self.events.pop(0)[1]
        for option, value in zip(extra, extra[1:]):
            if option == "--move":
                self.moves[FIRST_VLAN + value % VLANS] += 1
        # Every first counter grows by at least 1 KiB a call, so every client
        # that counted in a period is listed in its client file.
        r = self.run_tool("tally-statgen", "--out", self.sb.path(STATS), "--state", self.state,
                          "--hosts", HOSTS, "--records-per-host", RECORDS_PER_HOST,
                          "--vlans", VLANS, "--first-vlan", FIRST_VLAN, "--seed", 7,
                          "--rate", self.rng.randrange(1024, 16384),
                          "--second-rate", self.rng.randrange(0, 4096), *extra)
        assert r.returncode == 0, r.stderr

    def start(self):
        os.makedirs(self.sb.path("/var/run/sflow"))
        os.makedirs(self.sb.path("/var/run/ostra"))
        open(self.sb.path("/var/run/ostra/time_initialized"), "w").close()
        self.agent(FIRST_TICK - STEP)
        self.sb.start(FIRST_TICK - STEP)

    def ticks(self):
        t, end = FIRST_TICK, END.timestamp()
        while t < end:
            yield t, t + STEP >= end or local(t + STEP).date() != local(t).date()
            t += STEP

    def tick(self, t):
        if (t - FIRST_TICK) // STEP % AGENT_EVERY == 0:
            self.agent(t)
        self.sb.tick(t)
        self.calendar.advance(t)

    def vlan_files(self, vlan):
        d = f"{ROOT}/{vlan % 100}/{vlan}/sw_vlan"
        return {name: read_rows(self.sb, f"{d}/{name}") for name in (
            "usage_history.hourly", "usage_history.daily", "usage_history.monthly",
            "sw_usage_hourly.csv", "sw_usage_daily.csv", "sw_usage_monthly.csv")}

    def check(self, t):
        now = local(t)
        files = {v: self.vlan_files(v) for v in self.vlans()}
        if "day" in self.calendar.opened:
            for v in self.vlans():
                self.check_closing(now, v, self.last[v], files[v])
        for v in self.vlans():
            self.check_vlan(now, v, files[v])
            self.check_clients(v, files[v])
        self.check_totals(now, files)
        self.last = files

    def check_closing(self, now, v, before, after):
        """The first tick of a day files the hour, the day and perhaps the
        month exactly as the last tick of the day before showed them."""
        where = f"VLAN {v} on {now:%Y-%m-%d %H:%M}"
        assert after["usage_history.hourly"][0] == before["sw_usage_hourly.csv"][0], where
        assert after["usage_history.daily"][0] == before["sw_usage_daily.csv"][0], where
        months = after["usage_history.monthly"]
        if "month" in self.calendar.opened:
            ended = before["sw_usage_monthly.csv"][0]
            start = datetime.strptime(ended[0], "%Y-%m-%d")
            assert months[0] == [ended[0], f"{last_day_of_month(start):%Y-%m-%d}", *ended[2:]], \
                where
            assert months[1:] == before["usage_history.monthly"], where
        else:
            assert months == before["usage_history.monthly"], where

    def check_vlan(self, now, v, f):
        where = f"VLAN {v} on {now:%Y-%m-%d %H:%M}"
        hours, days = f["sw_usage_hourly.csv"], f["sw_usage_daily.csv"]
        month, history = f["sw_usage_monthly.csv"], f["usage_history.monthly"]
        assert hours[1:] == f["usage_history.hourly"] and len(hours) <= 24, where
        assert days[1:] == f["usage_history.daily"] and len(days) <= 60, where
        assert month[1:] == history and len(month) <= 60, where
        # Every hour and day the ticks touched, once, newest first.
        assert [r[0] for r in hours] == self.calendar.hours[::-1][:24], where
        assert [r[0] for r in days] == self.calendar.days[::-1][:60], where
        closed = self.calendar.months[-2::-1]
        assert [r[:2] for r in history] == [
            [m, f"{last_day_of_month(datetime.strptime(m, '%Y-%m-%d')):%Y-%m-%d}"]
            for m in closed], where
        assert month[0][:2] == [f"{now:%Y-%m-01}", f"{now:%Y-%m-%d}"], where

        today = [amounts(r) for r in hours if r[0].startswith(f"{now:%Y-%m-%d}-")]
        assert_rounded_sum(amounts(days[0]), today, len(today), f"{where}: the day and its hours")
        this_month = [amounts(r) for r in days if r[0] >= f"{now:%Y-%m-01}"]
        assert_rounded_sum(amounts(month[0]), this_month, len(this_month),
                           f"{where}: the month and its days")

    def check_clients(self, v, f):
        keys = RECORDS_PER_HOST * HOSTS // VLANS + self.moves[v]
        running = {"hourly": f["sw_usage_hourly.csv"][0], "daily": f["sw_usage_daily.csv"][0],
                   "monthly": f["sw_usage_monthly.csv"][0]}
        for kind, line in running.items():
            d = f"{ROOT}/{v % 100}/{v}/sw_client/sw_client_usage_{kind}"
            names = sorted(os.listdir(self.sb.path(d)))
            assert names == self.calendar.client_files(kind), f"VLAN {v}, {kind} client files"
            rows = read_rows(self.sb, f"{d}/{names[-1]}")
            for r in rows:
                assert len(r) == 5 and r[0].startswith("10.") and len(r[3]) == 17, r
            assert_rounded_sum(amounts(line), [(int(r[1]), int(r[2])) for r in rows], keys,
                               f"VLAN {v}: {kind} clients in {names[-1]} and the VLAN's {line}")

    def check_totals(self, now, files):
        where = f"totals on {now:%Y-%m-%d %H:%M}"
        for name, vlan_name in (("hourly", "sw_usage_hourly.csv"), ("daily", "sw_usage_daily.csv")):
            totals = read_rows(self.sb, f"{ROOT}/sw_usage_{name}_total.csv")
            per_vlan = [files[v][vlan_name] for v in self.vlans()]
            assert len(totals) == max(len(rows) for rows in per_vlan), f"{where}, {name}"
            for i, row in enumerate(totals):
                assert all(rows[i][0] == row[0] for rows in per_vlan), f"{where}, {name} line {i}"
                assert_rounded_sum(amounts(row), [amounts(rows[i]) for rows in per_vlan], VLANS,
                                   f"{where}, {name} line {i}")
        totals = read_rows(self.sb, f"{ROOT}/sw_usage_monthly_total.csv")
        first = [files[v]["sw_usage_monthly.csv"][0] for v in self.vlans()]
        history = [files[v]["usage_history.monthly"] for v in self.vlans()]
        assert totals[0][:2] == [f"{now:%Y-%m-01}", f"{last_day_of_month(now):%Y-%m-%d}"], where
        assert_rounded_sum(amounts(totals[0]), [amounts(r) for r in first], VLANS,
                           f"{where}, running month")
        # The closed months come back from the VLANs' files in KiB: no rounding.
        assert len(totals) == 1 + len(history[0]), where
        for i, row in enumerate(totals[1:]):
            assert row[:2] == history[0][i][:2], where
            assert amounts(row) == tuple(map(sum, zip(*(amounts(h[i]) for h in history)))), \
                f"{where}, closed month {row[0]}"


def ninety_days(sb, run_tool, tmp_path):
    """Runs the days and checks them; returns figures for the report."""
    sb.tz = TZ
    run = LongRun(sb, run_tool, tmp_path / "agent")
    began = time.monotonic()
    run.start()
    anon = {}  # heap and stack, not the pages of mapped files
    for t, last_of_day in run.ticks():
        run.tick(t)
        # A day is checked at its last tick and, from the second on, at its first.
        if last_of_day or ("day" in run.calendar.opened and run.last is not None):
            run.check(t)
        if last_of_day:
            anon[len(run.calendar.days)] = memory(sb.pid)["RssAnon"]
    assert run.events == [], "every agent event took place"
    assert len(run.calendar.days) == 90 and len(run.calendar.months) == 4
    figures = memory(sb.pid)
    figures["RssAnon"] = anon
    figures["status"] = sb.stop()
    figures["seconds"] = round(time.monotonic() - began, 1)
    print(f"\nninety days: {figures['seconds']} s; in KiB: VmHWM {figures['VmHWM']}, "
          f"VmRSS {figures['VmRSS']}, RssAnon day 30 {anon[30]}, day 90 {anon[90]}")
    return figures


def test_ninety_days_of_agent_traffic(sandbox, run_tool, tmp_path, request):
    figures = ninety_days(sandbox, run_tool, tmp_path)
    assert figures["status"] == 0, sandbox.stderr()
    # An emulator's or a sanitizer's own memory says nothing of the daemon's.
    # Client entries are never freed, so the moves after day 30 add a little.
    if not request.config.getoption("--emulator") and not sanitized(sandbox.daemon):
        growth = figures["RssAnon"][90] - figures["RssAnon"][30]
        assert growth <= 64, f"heap and stack grew by {growth} KiB from day 30 to day 90"


@pytest.mark.skipif(not os.environ.get("TALLY_MEMCHECK"), reason="TALLY_MEMCHECK is not set")
def test_ninety_days_under_memcheck(run_tool, tmp_path, request):
    opt = request.config.getoption
    if opt("--emulator") or sanitized(opt("--daemon")):
        pytest.skip("memcheck runs a native daemon built without sanitizers")
    with Sandbox(opt("--daemon"), opt("--fakeclock"), wrapper=MEMCHECK) as sb:
        figures = ninety_days(sb, run_tool, tmp_path)
        report = sb.stderr()
    print(report[report.find("HEAP SUMMARY"):])
    assert figures["status"] == 0, report
    assert "ERROR SUMMARY: 0 errors" in report, report
    assert re.search(r"definitely lost: 0 bytes|no leaks are possible", report), report
