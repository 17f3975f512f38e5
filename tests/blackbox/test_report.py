"""tally-report over the run-time tree that the daemon wrote in the sandbox,
and over damaged copies of it: the examples of docs/report.md are its real
output, every format shows what the files hold, clients are sorted and
filtered, and missing parts, usage errors and malformed lines end as
documented."""

import ipaddress
import json
import os
import random
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
HISTORIES = {"hour": "hourly", "day": "daily", "month": "monthly"}

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


def planted(tree, copy, edits):
    """A copy of the tree at copy, with {name: text, or None to remove it}."""
    shutil.copytree(tree, copy)
    for name, text in edits.items():
        path = copy / name
        if text is None:
            shutil.rmtree(path) if path.is_dir() else path.unlink()
        else:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
    return copy


@pytest.fixture(scope="module")
def damaged(tree, tmp_path_factory):
    """A copy of the tree in which VLAN 20's running day is malformed,
    VLAN 110's files stand still at a closed hour, its monthly file and its
    hours' client files are gone, VLAN 10's daily client files have files
    beside them that are none, and some directories are no VLANs."""
    with open(f"{tree}/10/110/sw_vlan/sw_usage_hourly.csv") as f:
        closed_hours = f.read().split("\n", 1)[1]
    return planted(tree, tmp_path_factory.mktemp("damaged") / "tree", {
        "20/20/sw_vlan/sw_usage_daily.csv": "2026-11-02,1x,2\n2026-11-01,4,2\n",
        "10/110/sw_vlan/sw_usage_hourly.csv": closed_hours,
        "10/110/sw_vlan/sw_usage_monthly.csv": None,
        "10/110/sw_client/sw_client_usage_hourly": None,
        **{f"10/10/sw_client/sw_client_usage_daily/{name}": "10.0.10.9,1,1,,0\n"
           for name in ("2026-11-03-01.csv", "2026-11-09.csv.tmp", "2026-11-1.csv", "zz.csv")},
        # One in another's directory, one without sw_vlan, one named as no number prints.
        "20/110/sw_vlan/sw_usage_hourly.csv": "",
        "7/7/sw_client/x": "",
        "10/010/sw_vlan/sw_usage_hourly.csv": "",
    })


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


def parse_usage(line):
    """A line of a period file as the JSON shows it."""
    start, *end, first, second = line.split(",")
    return {"start": start, **({"end": end[0]} if end else {}), "first_kib": int(first), "second_kib": int(second)}


def parse_client(line):
    """A line of a client file as the JSON shows it."""
    ip, first, second, mac, tag = line.split(",")
    return {"ip": ip, "mac": mac or None, "tag": int(tag), "first_kib": int(first), "second_kib": int(second)}


def test_json_holds_what_the_files_hold(tree, report):
    vlan_files = [f"{tree}/{v % 100}/{v}/sw_vlan/sw_usage_{{}}.csv" for v in (10, 20, 110)]
    totals_file = f"{tree}/sw_usage_{{}}_total.csv"
    summary = json.loads(report("--json").stdout)
    running = [{p: parse_usage(lines(pattern.format(history))[0]) for p, history in HISTORIES.items()}
               for pattern in vlan_files + [totals_file]]
    assert [v.pop("vlan") for v in summary["vlans"]] == [10, 20, 110]
    assert summary["vlans"] + [summary["total"]] == running

    for vlan, pattern in ((10, vlan_files[0]), (None, totals_file)):
        for history in HISTORIES.values():
            shown = json.loads(report(history, *([vlan] if vlan else []), "--json").stdout)
            assert (shown["vlan"], shown["periods"]) == (
                vlan, [parse_usage(line) for line in lines(pattern.format(history))])

    for period, newest in (("hour", "2026-11-02-09"), ("day", "2026-11-02"), ("month", "2026-11-01")):
        shown = json.loads(report("clients", 20, f"--{period}", "--json").stdout)
        folder = f"{tree}/20/20/sw_client/sw_client_usage_{HISTORIES[period]}"
        assert (shown["start"], sorted(os.listdir(folder))[-1]) == (newest, newest + ".csv")
        in_file = [parse_client(line) for line in lines(f"{folder}/{newest}.csv")]
        assert sorted(shown["clients"], key=lambda c: c["ip"]) == sorted(in_file, key=lambda c: c["ip"])


@pytest.mark.parametrize("args, shown", [
    ((), ["10.0.10.2", "10.0.10.1", "10.0.10.3"]),
    (("--sort", "first"), ["10.0.10.1", "10.0.10.2", "10.0.10.3"]),
    (("--sort=second", "--top", "2"), ["10.0.10.2", "10.0.10.1"]),
    (("--counters", "rx,tx", "--sort", "second", "--top=1"), ["10.0.10.2"]),
    (("--client", "10.0.10.3"), ["10.0.10.3"]),
    (("--client", "10.0.10.3/32"), ["10.0.10.3"]),
    (("--client", "0.0.0.0/0", "--sort", "first"), ["10.0.10.1", "10.0.10.2", "10.0.10.3"]),
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
    ("{damaged}", ("monthly", 110),
     "cannot read {damaged}/10/110/sw_vlan/sw_usage_monthly.csv: No such file or directory"),
    ("{damaged}", ("clients", 110, "--hour"), "VLAN 110 has no client files for any hour"),
    ("{tree}/10/10/sw_vlan/sw_usage_daily.csv", ("hourly",),
     "no usage tree at {tree}/10/10/sw_vlan/sw_usage_daily.csv"),
    ("{tree}", ("hourly", 30), "no VLAN 30 in {tree}"),
    ("{tree}", ("clients", 9), "no VLAN 9 in {tree}"),
    ("{tree}", ("clients", 10, "2026-10-30"), "VLAN 10 has no client file for the day 2026-10-30"),
    ("{tree}", ("clients", 10, "2026-11-01-02"), "VLAN 10 has no client file for the hour 2026-11-01-02"),
    ("{tree}", ("clients", 10, "--month", "2026-11-02"), "VLAN 10 has no client file for the month 2026-11-02"),
])
def test_what_is_missing_is_named_and_exits_1(tree, damaged, report, root, args, message):
    done = report(*args, root=root.format(tree=tree, damaged=damaged))
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"tally-report: {message.format(tree=tree, damaged=damaged)}\n"


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


def test_every_option_is_documented(run_tool):
    page = subprocess.run(["mandoc", "-T", "markdown", MAN], capture_output=True, text=True, check=True,
                          timeout=60).stdout
    with open(DOC) as f:
        doc = f.read()
    options = set(re.findall(r"--[a-z]+", run_tool(REPORT, "--help").stdout))
    assert len(options) == 13
    assert [o for o in sorted(options) if o not in page or o not in doc] == []


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


def test_the_summary_shows_what_it_can_of_a_damaged_tree(report, damaged):
    done = report(root=damaged)
    assert done.returncode == 0
    assert done.stderr == (f"tally-report: {damaged}/20/20/sw_vlan/sw_usage_daily.csv:1: malformed line skipped\n"
                           f"tally-report: cannot read {damaged}/10/110/sw_vlan/sw_usage_monthly.csv: "
                           "No such file or directory\n")
    assert done.stdout == """\
           hour 2026-11-02-09          day 2026-11-02         month 2026-11-01
VLAN        first      second       first      second        first      second
10     340.68 MiB  370.09 MiB  340.68 MiB  370.09 MiB  1022.05 MiB    1.08 GiB
20       2.00 GiB  101.00 MiB           -           -     6.01 GiB  303.00 MiB
110    400.00 GiB   50.00 GiB  400.00 GiB   50.00 GiB            -           -  hour 2026-11-01-01
total  402.34 GiB   50.46 GiB  402.34 GiB   50.46 GiB     1.18 TiB  151.38 GiB
"""


def test_the_clients_period_is_the_newest_file_named_by_a_date(report, damaged):
    assert report("clients", 10, root=damaged).stdout == report("clients", 10).stdout


def test_many_clients_with_equal_figures_come_by_address(tree, report, tmp_path):
    # 10.0.0.9 before 10.0.0.10: addresses compare as numbers, not as text.
    clients = [(f"10.0.{n >> 8}.{n & 255}", n % 7, n % 3) for n in range(1, 50001)]
    random.Random(7).shuffle(clients)
    text = "".join(f"{ip},{first},{second},,0\n" for ip, first, second in clients)
    copy = planted(tree, tmp_path / "tree", {CLIENTS_10: text})
    clients.sort(key=lambda c: (-c[1] - c[2], ipaddress.IPv4Address(c[0])))
    done = report("clients", 10, "--csv", root=copy)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines()[1:] == [f"{ip},{first},{second},,0" for ip, first, second in clients]


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


SAMPLE = re.compile(r'(tally_[a-z_]+)\{((?:[a-z]+="[^"]*",)*counter="[^"]*")\} (\d+)')


def prometheus_samples(text):
    """{(metric, labels): bytes} of a text exposition whose families each
    come with HELP and TYPE gauge, with no series twice."""
    samples, family = {}, None
    for line in text.splitlines():
        words = line.split(" ", 3)
        if words[:2] == ["#", "HELP"]:
            family = words[2]
        elif words[:2] == ["#", "TYPE"]:
            assert words[2:] == [family, "gauge"], line
        else:
            m = SAMPLE.fullmatch(line)
            assert m and m[1] == family, line
            key = (m[1], tuple(re.findall(r'([a-z]+)="([^"]*)"', m[2])))
            assert key not in samples, line
            samples[key] = int(m[3])
    return samples


def expected(shown):
    """The CSV rows and the Prometheus samples that show the figures of a
    JSON view, the counters named rx and tx."""
    rows, series = [], []  # series: (metric, labels but counter, figures)
    view = shown["view"]

    def kib(u):
        return [str(u["first_kib"]), str(u["second_kib"])]

    if view == "summary":
        for v in shown["vlans"] + [dict(shown["total"], vlan=None)]:
            scope = (("vlan", str(v["vlan"])),) if v["vlan"] else ()
            row = [str(v["vlan"] or "total")]
            for p in ("hour", "day", "month"):
                u, dates = v[p], 2 if p == "month" else 1
                row += [u["start"], u.get("end")][:dates] + kib(u) if u else [""] * (dates + 2)
                if u:
                    series.append((f"tally_{'vlan' if scope else 'total'}_usage_bytes", scope + (("period", p),), u))
            rows.append(row)
    elif view == "clients":
        scope = (("vlan", str(shown["vlan"])), ("period", shown["period"]), ("start", shown["start"]))
        for c in shown["clients"]:
            mac, tag = c["mac"] or "", str(c["tag"])
            rows.append([c["ip"]] + kib(c) + [mac, tag])
            series.append(("tally_client_usage_bytes", scope + (("ip", c["ip"]), ("mac", mac), ("tag", tag)), c))
    else:
        scope = (("vlan", str(shown["vlan"])),) if shown["vlan"] else ()
        period = next(p for p, history in HISTORIES.items() if history == view)
        for u in shown["periods"]:
            rows.append([u["start"]] + ([u["end"]] if "end" in u else []) + kib(u))
            series.append((f"tally_{'vlan' if scope else 'total'}_history_bytes",
                           scope + (("period", period), ("start", u["start"])), u))
    samples = {(metric, labels + (("counter", name),)): u[key] * 1024
               for metric, labels, u in series for name, key in (("rx", "first_kib"), ("tx", "second_kib"))}
    return [",".join(row) for row in rows], samples


@pytest.mark.parametrize("view", [(), ("hourly", 10), ("monthly",), ("daily", 110), ("clients", 10, "--hour"),
                                  ("clients", 20, "--month", "2026-10-01")])
def test_json_csv_and_prometheus_show_the_same_figures(report, damaged, view):
    names = ("--counters", "rx,tx")
    shown = json.loads(report(*view, "--json", *names, root=damaged).stdout)
    header, *rows = report(*view, "--csv", *names, root=damaged).stdout.splitlines()
    samples = prometheus_samples(report(*view, "--prometheus", *names, root=damaged).stdout)
    assert shown["counters"] == ["rx", "tx"] and "rx_kib,tx_kib" in header.replace("hour_", "")
    assert len(rows) >= 2 and (rows, samples) == expected(shown)
