"""tally-statgen and tally-statdump: generated files round trip through the
decoder, broken files are reported, and both tools handle their arguments."""

import collections
import struct

import pytest

from statfile import HEADER, HOST, MAGIC

GEN, DUMP = "tally-statgen", "tally-statdump"
MAC = bytes.fromhex("001122334455")


def agent(run_tool, directory, steps, *options):
    """[(records as dumped, file bytes)] of one statgen call per step, all sharing one state."""
    directory.mkdir()
    out, found = directory / "stat.bin", []
    for step in steps:
        made = run_tool(GEN, "--out", out, "--state", directory / "state", *options, *step)
        dumped = run_tool(DUMP, out)
        assert (made.returncode, made.stderr, dumped.returncode, dumped.stderr) == (0, "", 0, "")
        found.append(([{k: v if k in ("mac", "ip") else int(v) for k, v in (f.split("=") for f in line.split())}
                       for line in dumped.stdout.splitlines()], out.read_bytes()))
    return found


def test_generated_files_round_trip(run_tool, tmp_path):
    steps = [(), ("--rate", 7, "--second-rate", 5000), ("--invalid", 2), ("--move", 1), (), ("--restart",), ()]
    options = ("--seed", 7, "--hosts", 3, "--records-per-host", 3, "--vlans", 2)
    calls = agent(run_tool, tmp_path / "a", steps, *options)
    first, raws = calls[0][0], [raw for _, raw in calls]
    # Stations in turn, their records dealt over the two seeded VLANs in turn.
    v0, v1 = first[0]["vlan"], first[1]["vlan"]
    assert [(r["host"], r["vlan"], r["valid"]) for r in first] == [
        (0, v0, 1), (0, v1, 1), (0, v0, 1), (1, v1, 1), (1, v0, 1), (1, v1, 1), (2, v0, 1), (2, v1, 1), (2, v0, 1)]
    assert v0 != v1 and 1 <= min(v0, v1) and max(v0, v1) <= 4095 and len({r["ip"] for r in first}) == 9
    assert len({(r["host"], r["mac"]) for r in first}) == 3 == len({r["mac"] for r in first})
    # The same seed and calls give the same bytes; invalid records come on
    # top of one call's file only.
    plain = agent(run_tool, tmp_path / "b", steps[:2] + [()] + steps[3:], *options)
    assert [raw for _, raw in plain] == raws[:2] + [plain[2][1]] + raws[3:]
    assert [r for r in calls[2][0] if r["valid"]] == plain[2][0]
    assert [r["ip"] in {v["ip"] for v in first} for r in calls[2][0] if not r["valid"]] == [False, False]
    other = agent(run_tool, tmp_path / "c", steps[:1], *options[2:], "--seed", 8)[0][0]
    assert [k for k in ("ip", "mac", "vlan", "first") if {r[k] for r in first} == {r[k] for r in other}] == []
    # Counters grow from 64-bit bases by each call's rates, 1000 and half
    # that unless given, and from 0 after a restart.
    assert any(r["first"] > 2**32 for r in first) and any(r["second"] > 2**32 for r in first)
    for before, growth in [(0, (7, 5000))] + [(n, (1000, 500)) for n in (1, 2, 3, 5)]:
        old = {r["ip"]: r for r in calls[before][0]}
        assert {(r["first"] - old[r["ip"]]["first"], r["second"] - old[r["ip"]]["second"])
                for r in calls[before + 1][0] if r["valid"]} == {growth}
    assert {(r["first"], r["second"]) for r in calls[5][0]} == {(0, 0)}
    # Record 1, station 0's second, moves with its counters to station 1's MAC, and stays.
    for records, _ in calls[3:5]:
        moved = next(r for r in records if r["ip"] == first[1]["ip"])
        assert [moved[k] for k in ("host", "mac", "vlan", "tag")] == [1, first[3]["mac"], v1, first[1]["tag"]]
        assert collections.Counter(r["host"] for r in records) == {0: 2, 1: 4, 2: 3}
    # A hundred thousand records: more addresses than 16 bits tell apart.
    records = agent(run_tool, tmp_path / "d", [()], "--hosts", 25000, "--records-per-host", 4,
                    "--vlans", 20, "--first-vlan", 100)[0][0]
    assert tuple(r["vlan"] for r in records) == tuple(range(100, 120)) * 5000
    assert len({r["ip"] for r in records}) == 100000 and len({r["mac"] for r in records}) == 25000


def one(count, offset, *records, mac=bytes(6)):
    """A file of one station whose descriptor claims count records at offset."""
    return HEADER.pack(MAGIC, 1) + HOST.pack(mac, count, offset) + b"".join(records)


# Filler between the fields shows a field read from its neighbour's place;
# values past 15, 31 and 63 bits show one printed as signed, and none reads
# the same with its bytes reversed. A station without a MAC still gets the column.
REC = struct.pack(">HHB3sI28sQ48sQ64s", 4095, 0xFFFE, 1, b"\xee" * 3, 0x0A000005, b"\xee" * 28,
                  0x100000002, b"\xee" * 48, 2**64 - 2, b"\xee" * 64)
LINE = ("host=0 mac=00:00:00:00:00:00 vlan=4095 tag=65534 valid=1 ip=10.0.0.5"
        " first=18446744073709551614 second=4294967298")


@pytest.mark.parametrize("data, printed, problem", [
    pytest.param(one(0, 0), [], None, id="host without records"),
    pytest.param(HEADER.pack(MAGIC, 0)[:7], [], "short header", id="short header"),
    pytest.param(HEADER.pack(0x01FE8A09, 0), [], "bad magic", id="magic read little-endian"),
    pytest.param(HEADER.pack(MAGIC, 0xFFFFFFFF) + bytes(12), [], "host count", id="host count 2**32-1 in 20 bytes"),
    pytest.param(one(1, 1000), [], "past the end", id="records past the end"),
    pytest.param(one(1, 0xFFFFFFF0, REC), [], "past the end", id="offset + 168 wraps"),
    pytest.param(one(25565282, 24, REC), [LINE], "past the end", id="count * 168 wraps"),
    pytest.param(one(2, 24, REC, REC[:100]), [LINE], "past the end", id="last record cut"),
    # The record read at offset 8 starts with the host descriptor's MAC and count.
    pytest.param(one(1, 8, REC, mac=MAC), ["host=0 mac=00:11:22:33:44:55 vlan=17 tag=8755 valid=68 ip=0.0.0.1 "
                 "first=17216961135462248174 second=17216961135462248174"], "overlap", id="overlap"),
    pytest.param(None, [], "cannot read", id="no such file"),
])
def test_dump_prints_what_it_can_then_reports_the_problem(run_tool, tmp_path, data, printed, problem):
    if data is not None:
        (tmp_path / "stat.bin").write_bytes(data)
    done = run_tool(DUMP, tmp_path / "stat.bin", timeout=60)
    assert (done.returncode, done.stdout.splitlines()) == (0 if problem is None else 1, printed)
    assert [line.startswith("tally-statdump: ") and problem in line
            for line in done.stderr.splitlines()] == ([True] if problem else []), done.stderr


@pytest.mark.parametrize("tool, args, named", [
    (GEN, "--help", None), (DUMP, "--help", None), (GEN, "", "--out"), (GEN, "--out", "--out"),
    (GEN, "--out OUT --hosts -1", "--hosts"), (GEN, "--out OUT --hosts=2x", "--hosts"),
    (GEN, "--out OUT --vlans 0", "--vlans"), (GEN, "--out OUT --vlans 2 --first-vlan 65535", "--first-vlan"),
    (GEN, "--out OUT --hosts 1 --move 0", "--move"), (GEN, "--out OUT --move 4", "--move"),
    (GEN, "--out OUT --hosts 16777216 --invalid 1", "records"), (GEN, "--out OUT --frobnicate 1", "--frobnicate"),
    (DUMP, "", "FILE"), (DUMP, "a b", "FILE"), (DUMP, "--frobnicate", "--frobnicate"),
])
def test_help_goes_to_stdout_and_bad_arguments_exit_2_with_one_line(run_tool, tmp_path, tool, args, named):
    out = tmp_path / "stat.bin"
    done = run_tool(tool, *[out if a == "OUT" else a for a in args.split()])
    assert (done.returncode, done.stderr.count("\n")) == ((0, 0) if named is None else (2, 1)), done.stderr
    assert done.stdout.startswith(f"Usage: {tool} ") if named is None else (
        done.stdout == "" and named in done.stderr and not out.exists())
