"""tally-report over the run-time tree that the daemon wrote in the sandbox:
the examples of docs/report.md are its real output, its JSON agrees with
the files, clients are sorted and filtered, and missing parts, usage
errors and malformed lines end as documented."""

import json
import os
import re
import shutil
import subprocess

import pytest

from sandbox import Sandbox
from statfile import build, mac, record
from vlanfiles import KIB, set_clock_marker

HERE = os.path.dirname(__file__)
DOC = os.path.join(HERE, "..", "..", "docs", "report.md")
MAN = os.path.join(HERE, "..", "..", "docs", "man", "tally-report.1")
BLOCK = re.compile(r"```text command=tally-report((?: \S+)*)\n(.*?)```", re.S)
ROOT = "/var/run/ostra/tally_sw_usage"
REPORT = "tally-report"
MIB, GIB = 1024 * KIB, 1024 * 1024 * KIB

T0 = 1793484000  # Sat 2026-10-31 22:00:00 UTC
# 22:30 and 23:30, then 00:30 and 01:30 on 1 November, which closes
# October, and 09:30 on the 2nd.
TICKS = (T0 + 1800, T0 + 5400, T0 + 9000, T0 + 12600, T0 + 127800)
# (VLAN, address, station MAC, tag): bytes of (first, second) in each tick.
# VLAN 10's clients come in another order by each counter and by their
# sum; the MAC of 10.0.20.2's station is unknown (0); VLAN 110 lies in
# directory 10, beside VLAN 10.
CLIENTS = {
    (10, "10.0.10.1", 0x020000001001, 0): (300 * MIB, 20 * MIB),
    (10, "10.0.10.2", 0x020000001002, 0): (40 * MIB, 350 * MIB),
    (10, "10.0.10.3", 0x020000001003, 3): (700 * KIB, 90 * KIB),
    (20, "10.0.20.1", 0x020000002001, 0): (2 * GIB, 100 * MIB),
    (20, "10.0.20.2", 0, 0): (5 * MIB, MIB),
    (110, "10.0.110.1", 0x020000011001, 0): (400 * GIB, 50 * GIB),
}


def write_stats(sb, counters):
    stations = {}
    for (vlan, ip, station, tag), (first, second) in counters.items():
        stations.setdefault(station, []).append(record(vlan, ip, first, second, tag=tag))
    stats = sb.path("/var/run/sflow/stat.bin")
    os.makedirs(os.path.dirname(stats), exist_ok=True)
    with open(stats + ".new", "wb") as f:
        f.write(build([(mac(station), records) for station, records in sorted(stations.items())]))
    os.replace(stats + ".new", stats)


@pytest.fixture(scope="module")
def tree(request):
    """The host path of the run-time tree after the ticks above; the daemon
    stays idle in its sandbox until the module's tests are done."""
    opt = request.config.getoption
    emulator = opt("--emulator")
    with Sandbox(opt("--daemon"), opt("--fakeclock"), emulator.split() if emulator else None) as sb:
        set_clock_marker(sb, True)
        sb.start(T0)
        # A client's first two differing samples only set its baselines.
        counters = {client: [1000, 1000] for client in CLIENTS}
        for t in (T0 + 10, T0 + 40):
            write_stats(sb, counters)
            sb.tick(t)
            counters = {client: [2000, 2000] for client in CLIENTS}
        for t in TICKS:
            for client, (first, second) in CLIENTS.items():
                counters[client][0] += first
                counters[client][1] += second
            write_stats(sb, counters)
            sb.tick(t)
        yield sb.path(ROOT)


@pytest.fixture
def report(tree, run_tool):
    """report(*args, root=tree) runs tally-report on the tree at root."""
    def run(*args, root=tree):
        return run_tool(REPORT, *args, "--root", root)
    return run


def lines(path):
    with open(path) as f:
        return f.read().splitlines()


def test_every_example_of_the_report_page_is_real_output(report):
    with open(DOC) as f:
        examples = BLOCK.findall(f.read())
    assert len(examples) >= 12
    for args, text in examples:
        done = report(*args.split())
        assert (done.returncode, done.stderr, done.stdout) == (0, "", text), args
        if "--json" in args:
            json.loads(done.stdout)


def usage(period, first, second, start, end=None):
    u = {"start": start, "first_kib": int(first), "second_kib": int(second)}
    if end is not None:
        u["end"] = end
    return u


def parse_usage(line, period):
    fields = line.split(",")
    return usage(period, *fields[-2:], fields[0], fields[1] if period == "month" else None)


def test_json_holds_what_the_files_hold(tree, report):
    periods = ("hour", "day", "month")
    vlan_files = [f"{tree}/{v % 100}/{v}/sw_vlan/sw_usage_{{}}.csv" for v in (10, 20, 110)]
    totals_file = f"{tree}/sw_usage_{{}}_total.csv"
    summary = json.loads(report("--json").stdout)
    running = [{p: parse_usage(lines(pattern.format(h))[0], p)
                for p, h in zip(periods, ("hourly", "daily", "monthly"))}
               for pattern in vlan_files + [totals_file]]
    assert [v.pop("vlan") for v in summary["vlans"]] == [10, 20, 110]
    assert summary["vlans"] + [summary["total"]] == running

    for vlan, pattern in ((10, vlan_files[0]), (None, totals_file)):
        for period, history in zip(periods, ("hourly", "daily", "monthly")):
            shown = json.loads(report(history, *([vlan] if vlan else []), "--json").stdout)
            assert (shown["vlan"], shown["periods"]) == (
                vlan, [parse_usage(line, period) for line in lines(pattern.format(history))])

    for period, newest in (("hour", "2026-11-02-09"), ("day", "2026-11-02"), ("month", "2026-11-01")):
        shown = json.loads(report("clients", 20, f"--{period}", "--json").stdout)
        folder = f"{tree}/20/20/sw_client/sw_client_usage_{period.replace('day', 'dai')}ly"
        assert (shown["start"], sorted(os.listdir(folder))[-1]) == (newest, newest + ".csv")
        assert sorted((c["ip"], c["first_kib"], c["second_kib"], c["mac"] or "", str(c["tag"]))
                      for c in shown["clients"]) == sorted(
            tuple(int(x) if i in (1, 2) else x for i, x in enumerate(line.split(",")))
            for line in lines(f"{folder}/{newest}.csv"))


@pytest.mark.parametrize("args, shown", [
    ((), ["10.0.10.2", "10.0.10.1", "10.0.10.3"]),
    (("--sort", "first"), ["10.0.10.1", "10.0.10.2", "10.0.10.3"]),
    (("--sort=second", "--top", "2"), ["10.0.10.2", "10.0.10.1"]),
    (("--counters", "rx,tx", "--sort", "second", "--top=1"), ["10.0.10.2"]),
    (("--client", "10.0.10.3"), ["10.0.10.3"]),
    (("--client", "10.0.10.0/31"), ["10.0.10.1"]),
    (("--client", "10.0.10.2/30", "--sort", "first"), ["10.0.10.1", "10.0.10.2", "10.0.10.3"]),
    (("--client", "02:00:00:00:10:0a"), []),
    (("--client", "02:00:00:00:10:01"), ["10.0.10.1"]),
    (("--client", "10.0.1.1"), []),
])
def test_clients_are_sorted_filtered_and_cut(report, args, shown):
    done = report("clients", 10, "--csv", *args)
    assert done.returncode == 0, done.stderr
    assert [line.split(",")[0] for line in done.stdout.splitlines()[1:]] == shown


@pytest.mark.parametrize("root, args, message", [
    ("{tree}/none", (), "no usage tree at {tree}/none"),
    ("{tree}/10/10/sw_vlan/sw_usage_daily.csv", ("hourly",),
     "no usage tree at {tree}/10/10/sw_vlan/sw_usage_daily.csv"),
    ("{tree}", ("hourly", 30), "no VLAN 30 in {tree}"),
    ("{tree}", ("clients", 9), "no VLAN 9 in {tree}"),
    ("{tree}", ("clients", 10, "2026-10-30"), "VLAN 10 has no client file for the day 2026-10-30"),
    ("{tree}", ("clients", 10, "2026-11-01-02"), "VLAN 10 has no client file for the hour 2026-11-01-02"),
    ("{tree}", ("clients", 10, "--month", "2026-11-02"), "VLAN 10 has no client file for the month 2026-11-02"),
])
def test_what_is_missing_is_named_and_exits_1(tree, report, root, args, message):
    done = report(*args, root=root.format(tree=tree))
    assert (done.returncode, done.stdout, done.stderr) == (1, "", f"tally-report: {message.format(tree=tree)}\n")


@pytest.mark.parametrize("args, message", [
    (("weekly",), "unknown view 'weekly'"),
    (("clients",), "clients wants a VLAN"),
    (("hourly", "ten"), "'ten' is no VLAN"),
    (("hourly", 65536), "'65536' is no VLAN"),
    (("daily", 10, 20), "unexpected '20'"),
    (("clients", 10, "2026-11-02", "x"), "unexpected 'x'"),
    (("clients", 10, "--hour", "2026-11-02"), "'2026-11-02' does not name an hour (YYYY-MM-DD-HH)"),
    (("clients", 10, "2026-11"), "'2026-11' does not name a day (YYYY-MM-DD)"),
    (("--top", 3), "--top is for the clients view only"),
    (("hourly", "--month"), "--month is for the clients view only"),
    (("clients", 10, "--top", 0), "--top wants a number from 1 to 1000000000, not '0'"),
    (("clients", 10, "--sort", "size"), "--sort wants first, second or sum, not 'size'"),
    (("clients", 10, "--client", "10.0.0.1/33"),
     "--client wants an address, an address/BITS or a MAC, not '10.0.0.1/33'"),
    *[(("--counters", names), "--counters wants two different names of letters, digits, '_' or '-', "
                              f"at most 15 each, with a comma between, not '{names}'")
      for names in ("rx", "rx,t x", "rx,rx", "rx,tx,")],
    (("--json=yes",), "--json takes no value"),
    (("--frobnicate",), "unknown option '--frobnicate'"),
    (("-h",), "unknown option '-h'"),
])
def test_usage_errors_exit_2_with_the_usage(report, args, message):
    done = report(*args)
    assert (done.returncode, done.stdout) == (2, ""), done.stderr
    first, rest = done.stderr.split("\n", 1)
    assert (first, rest[:20]) == (f"tally-report: {message}", "Usage: tally-report ")


def test_help_is_the_usage_on_standard_output(run_tool):
    done = run_tool(REPORT, "daily", "--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert run_tool(REPORT, "--root").stderr == "tally-report: --root wants a value\n" + done.stdout


def test_the_manual_page_is_clean_and_every_option_is_documented(run_tool):
    lint = subprocess.run(["mandoc", "-T", "lint", MAN], capture_output=True, text=True)
    assert (lint.returncode, lint.stdout, lint.stderr) == (0, "", "")
    page = subprocess.run(["mandoc", "-T", "markdown", MAN], capture_output=True, text=True, check=True).stdout
    with open(DOC) as f:
        doc = f.read()
    options = set(re.findall(r"--[a-z]+", run_tool(REPORT, "--help").stdout))
    assert len(options) == 13
    assert [o for o in sorted(options) if o not in page or o not in doc] == []


def planted(tree, copy, edits):
    """A copy of the tree at copy, with {name: text, or None to remove it}."""
    shutil.copytree(tree, copy)
    for name, text in edits.items():
        path = copy / name
        if text is None:
            path.unlink()
        else:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
    return copy


HOURLY_10 = "10/10/sw_vlan/sw_usage_hourly.csv"
CLIENTS_10 = "10/10/sw_client/sw_client_usage_daily/2026-11-02.csv"


@pytest.mark.parametrize("args, name, line", [
    (("hourly", 10), HOURLY_10, "2026-11-01-01,12x,3"),
    (("hourly", 10), HOURLY_10, "2026-11-01-01,-5,3"),
    (("hourly", 10), HOURLY_10, "2026-11-01-01,18014398509481984,3"),  # 2**64 bytes
    (("hourly", 10), HOURLY_10, "2026-11-01,12,3"),
    (("hourly", 10), HOURLY_10, "2026-11-01-01,12,3,4"),
    (("hourly", 10), HOURLY_10, "2026-11-01-01,12"),
    (("hourly", 10), HOURLY_10, ""),
    (("hourly", 10), HOURLY_10, "2026-11-01-01,12," + "3" * 300),
    (("monthly",), "sw_usage_monthly_total.csv", "2026-10-01,2026-10,12,3"),
    (("clients", 10), CLIENTS_10, "10.0.10.256,1,2,,0"),
    (("clients", 10), CLIENTS_10, "10.0.10.9,1,2,02:00:00:00:10,0"),
    (("clients", 10), CLIENTS_10, "10.0.10.9,1,2,,65536"),
    (("clients", 10), CLIENTS_10, "10.0.10.9,1,2,"),
])
def test_a_malformed_line_is_skipped_with_a_warning(tree, report, tmp_path, args, name, line):
    with open(f"{tree}/{name}") as f:
        first, rest = f.read().split("\n", 1)
    copy = planted(tree, tmp_path / "tree", {name: f"{first}\n{line}\n{rest}"})
    done = report(*args, "--csv", root=copy)
    assert done.stderr == f"tally-report: {copy}/{name}:2: malformed line skipped\n"
    assert (done.returncode, done.stdout) == (0, report(*args, "--csv").stdout)


def test_the_summary_shows_what_it_can_of_a_damaged_tree(tree, report, tmp_path):
    with open(f"{tree}/10/110/sw_vlan/sw_usage_hourly.csv") as f:
        closed_hours = f.read().split("\n", 1)[1]
    copy = planted(tree, tmp_path / "tree", {
        "20/20/sw_vlan/sw_usage_daily.csv": "2026-11-02,1x,2\n2026-11-01,4,2\n",
        "10/110/sw_vlan/sw_usage_hourly.csv": closed_hours,
        "10/110/sw_vlan/sw_usage_monthly.csv": None,
        # Not VLANs: one in another's directory, one without sw_vlan, one named as no number prints.
        "20/110/sw_vlan/sw_usage_hourly.csv": "",
        "7/7/sw_client/x": "",
        "10/010/sw_vlan/sw_usage_hourly.csv": "",
    })
    done = report(root=copy)
    assert done.returncode == 0
    assert done.stderr == (f"tally-report: {copy}/20/20/sw_vlan/sw_usage_daily.csv:1: malformed line skipped\n"
                           f"tally-report: cannot read {copy}/10/110/sw_vlan/sw_usage_monthly.csv: "
                           "No such file or directory\n")
    assert done.stdout == """\
           hour 2026-11-02-09          day 2026-11-02         month 2026-11-01
VLAN        first      second       first      second        first      second
10     340.68 MiB  370.09 MiB  340.68 MiB  370.09 MiB  1022.05 MiB    1.08 GiB
20       2.00 GiB  101.00 MiB           -           -     6.01 GiB  303.00 MiB
110    400.00 GiB   50.00 GiB  400.00 GiB   50.00 GiB            -           -  hour 2026-11-01-01
total  402.34 GiB   50.46 GiB  402.34 GiB   50.46 GiB     1.18 TiB  151.38 GiB
"""


def test_amounts_take_the_largest_unit_that_keeps_them_under_1024(tree, report, tmp_path):
    amounts = (0, 1023, 1024, 1535, 1048063, 1048571, 2**30 - 1, 2**30, 2**54 - 1)
    days = "".join(f"2026-10-{31 - i:02},{kib},{i}\n" for i, kib in enumerate(amounts))
    copy = planted(tree, tmp_path / "tree", {"sw_usage_daily_total.csv": days})
    assert report("daily", root=copy).stdout == """\
All VLANs, daily
day                   first  second              sum
2026-10-31            0 KiB   0 KiB            0 KiB
2026-10-30         1023 KiB   1 KiB         1.00 MiB
2026-10-29         1.00 MiB   2 KiB         1.00 MiB
2026-10-28         1.50 MiB   3 KiB         1.50 MiB
2026-10-27      1023.50 MiB   4 KiB      1023.50 MiB
2026-10-26         1.00 GiB   5 KiB         1.00 GiB
2026-10-25         1.00 TiB   6 KiB         1.00 TiB
2026-10-24         1.00 TiB   7 KiB         1.00 TiB
2026-10-23  16777216.00 TiB   8 KiB  16777216.00 TiB
"""
    assert report("daily", "--kib", root=copy).stdout.splitlines()[-1] == (
        "2026-10-23  18014398509481983 KiB   8 KiB  18014398509481991 KiB")
