"""tally-statgen, the sFlow agent simulator, and tally-statdump, the
statistics file decoder: generated files round trip through the decoder,
handcrafted broken files are reported, and both handle their arguments."""

import collections
import os
import struct

import pytest

MAGIC = 0x098AFE01
MAC = bytes.fromhex("001122334455")
INTS = ("host", "vlan", "tag", "valid", "first", "second")


def parse(line):
    fields = dict(item.split("=", 1) for item in line.split())
    return {k: int(v) if k in INTS else v for k, v in fields.items()}


def dump(run_tool, path):
    done = run_tool("tally-statdump", path)
    assert (done.returncode, done.stderr) == (0, "")
    return [parse(line) for line in done.stdout.splitlines()]


class Agent:
    """Calls of tally-statgen sharing one state file: one agent interval each."""

    def __init__(self, run_tool, directory, *options):
        os.makedirs(directory, exist_ok=True)
        self.run_tool = run_tool
        self.out = os.path.join(directory, "stat.bin")
        self.state = os.path.join(directory, "state")
        self.options = options

    def call(self, *extra):
        done = self.run_tool("tally-statgen", "--out", self.out, "--state", self.state, *self.options, *extra)
        assert (done.returncode, done.stderr) == (0, "")
        return dump(self.run_tool, self.out)

    def raw(self):
        with open(self.out, "rb") as f:
            return f.read()


def by_ip(records):
    return {r["ip"]: r for r in records}


@pytest.mark.parametrize("hosts, per_host, vlans", [(1, 1, 1), (6, 2, 3), (5, 3, 2), (25000, 4, 20)])
def test_records_come_station_by_station_dealt_over_the_vlans(run_tool, tmp_path, hosts, per_host, vlans):
    records = Agent(run_tool, tmp_path, "--hosts", hosts, "--records-per-host", per_host,
                    "--vlans", vlans, "--first-vlan", 100).call()
    total = hosts * per_host
    assert [r["host"] for r in records] == [h for h in range(hosts) for _ in range(per_host)]
    assert collections.Counter(r["vlan"] for r in records) == collections.Counter(100 + i % vlans for i in range(total))
    assert all(r["valid"] == 1 for r in records)
    assert len({r["ip"] for r in records}) == total
    mac_of = {r["host"]: r["mac"] for r in records}
    assert len({(r["host"], r["mac"]) for r in records}) == hosts == len(set(mac_of.values()))


def test_the_seed_and_the_call_sequence_decide_the_files(run_tool, tmp_path):
    def calls(seed, name):
        agent = Agent(run_tool, tmp_path / name, "--seed", seed, "--hosts", 5, "--vlans", 3)
        return [(agent.call(*extra), agent.raw())
                for extra in [(), ("--move", 2, "--invalid", 2), ("--restart",), ("--rate", 5)]]

    seven = calls(7, "a")
    assert [raw for _, raw in calls(7, "b")] == [raw for _, raw in seven]
    eight = calls(8, "c")
    for key in ("ip", "mac", "vlan", "first"):
        assert {r[key] for r in seven[0][0]} != {r[key] for r in eight[0][0]}, key
    vlans = {r["vlan"] for r in eight[0][0]}
    assert len(vlans) == 3 and all(1 <= v <= 4095 for v in vlans)


def test_counters_grow_by_each_calls_rates_from_64_bit_bases(run_tool, tmp_path):
    agent = Agent(run_tool, tmp_path, "--hosts", 3, "--records-per-host", 2)
    calls = [agent.call("--rate", 1000), agent.call("--rate", 1000), agent.call("--rate", 7, "--second-rate", 5000)]
    for before, after, first, second in [(0, 1, 1000, 500), (1, 2, 7, 5000)]:
        old = by_ip(calls[before])
        for ip, r in by_ip(calls[after]).items():
            assert (r["first"] - old[ip]["first"], r["second"] - old[ip]["second"]) == (first, second), ip
    assert any(r["first"] > 2**32 for r in calls[0]) and any(r["second"] > 2**32 for r in calls[0])


def test_a_restart_zeroes_the_counters_which_then_grow_again(run_tool, tmp_path):
    agent = Agent(run_tool, tmp_path, "--hosts", 2, "--records-per-host", 2, "--rate", 1000)
    agent.call()
    assert {(r["first"], r["second"]) for r in agent.call("--restart")} == {(0, 0)}
    assert {(r["first"], r["second"]) for r in agent.call()} == {(1000, 500)}


def test_invalid_records_come_on_top_for_one_call(run_tool, tmp_path):
    plain = Agent(run_tool, tmp_path / "plain", "--hosts", 4, "--records-per-host", 2).call()
    agent = Agent(run_tool, tmp_path / "invalid", "--hosts", 4, "--records-per-host", 2)
    records = agent.call("--invalid", 3)
    invalid = [r for r in records if r["valid"] == 0]
    assert [r for r in records if r["valid"] == 1] == plain
    assert len(invalid) == 3 and not {r["ip"] for r in invalid} & {r["ip"] for r in plain}
    assert all(r["valid"] == 1 for r in agent.call())


def test_a_moved_address_stays_on_the_next_stations_mac(run_tool, tmp_path):
    agent = Agent(run_tool, tmp_path, "--hosts", 3, "--records-per-host", 2, "--rate", 1000)
    before = agent.call()
    moved = before[1]  # station 0's second record
    mac1 = before[2]["mac"]
    for after in (agent.call("--move", 1), agent.call()):
        now = by_ip(after)[moved["ip"]]
        assert (now["host"], now["mac"], now["vlan"], now["tag"]) == (1, mac1, moved["vlan"], moved["tag"])
        assert collections.Counter(r["host"] for r in after) == {0: 1, 1: 3, 2: 2}
    assert now["first"] == moved["first"] + 2000


def test_a_reader_holding_the_old_file_keeps_it_whole(run_tool, tmp_path):
    agent = Agent(run_tool, tmp_path, "--hosts", 3)
    agent.call()
    old = agent.raw()
    with open(agent.out, "rb") as held:
        agent.call("--restart")
        assert held.read() == old
    assert agent.raw() != old
    assert sorted(os.listdir(tmp_path)) == ["stat.bin", "state"]


def header(count, magic=MAGIC):
    return struct.pack(">II", magic, count)


def host(mac, count, offset):
    return struct.pack(">6s2xII", mac, count, offset)


def record(vlan, tag, valid, ip, first, second, filler=b"\xee"):
    return struct.pack(">HHB3sI28sQ48sQ64s", vlan, tag, valid, filler * 3, ip, filler * 28,
                       second, filler * 48, first, filler * 64)


def test_dump_reads_every_field_from_its_place(run_tool, tmp_path):
    path = tmp_path / "stat.bin"
    path.write_bytes(header(2) + host(MAC, 1, 40) + host(bytes(6), 1, 208)
                     + record(10, 3, 1, 0x0A000005, 0x200000001, 0x100000002)
                     + record(4095, 0xFFFF, 0, 0xFFFFFFFF, 2**64 - 1, 0))
    done = run_tool("tally-statdump", path)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines() == [
        "host=0 mac=00:11:22:33:44:55 vlan=10 tag=3 valid=1 ip=10.0.0.5 first=8589934593 second=4294967298",
        "host=1 mac=00:00:00:00:00:00 vlan=4095 tag=65535 valid=0 ip=255.255.255.255"
        " first=18446744073709551615 second=0",
    ]


RECORD = record(10, 1, 1, 0x0A000001, 100, 200)
BROKEN = [
    ("empty", b"", "short header", 0),
    ("short header", header(0)[:7], "short header", 0),
    ("magic read little-endian", header(0, 0x01FE8A09), "bad magic", 0),
    ("host count 0xFFFFFFFF in 20 bytes", header(0xFFFFFFFF) + bytes(12), "host count", 0),
    ("records past the end", header(1) + host(MAC, 1, 1000), "past the end", 0),
    ("offset + 168 wraps 32 bits", header(1) + host(MAC, 1, 0xFFFFFFF0) + RECORD, "past the end", 0),
    ("offset + count * 168 wraps 32 bits", header(1) + host(MAC, 25565282, 24) + RECORD, "past the end", 1),
    ("last record cut short", header(1) + host(MAC, 2, 24) + RECORD + RECORD[:100], "past the end", 1),
    ("records over the host table", header(1) + host(MAC, 1, 8) + RECORD, "overlap", 1),
    ("no such file", None, "cannot read", 0),
]


@pytest.mark.parametrize("data, problem, printed", [c[1:] for c in BROKEN], ids=[c[0] for c in BROKEN])
def test_dump_prints_what_it_can_then_reports_the_problem(run_tool, tmp_path, data, problem, printed):
    path = tmp_path / "stat.bin"
    if data is not None:
        path.write_bytes(data)
    done = run_tool("tally-statdump", path, timeout=60)
    assert done.returncode == 1
    assert len(done.stdout.splitlines()) == printed
    lines = done.stderr.splitlines()
    assert len(lines) == 1 and lines[0].startswith("tally-statdump: ") and problem in lines[0], done.stderr


@pytest.mark.parametrize("data", [header(0), header(1) + host(MAC, 0, 0)], ids=["no hosts", "host without records"])
def test_dump_accepts_files_without_records(run_tool, tmp_path, data):
    path = tmp_path / "stat.bin"
    path.write_bytes(data)
    assert dump(run_tool, path) == []


@pytest.mark.parametrize("tool", ["tally-statgen", "tally-statdump"])
def test_help_goes_to_stdout(run_tool, tool):
    done = run_tool(tool, "--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith(f"Usage: {tool} ")


@pytest.mark.parametrize("tool, args, named", [
    ("tally-statgen", [], "--out"),
    ("tally-statgen", ["--out"], "--out"),
    ("tally-statgen", ["--out", "OUT", "--hosts", "-1"], "--hosts"),
    ("tally-statgen", ["--out", "OUT", "--hosts=2x"], "--hosts"),
    ("tally-statgen", ["--out", "OUT", "--vlans", "0"], "--vlans"),
    ("tally-statgen", ["--out", "OUT", "--vlans", "2", "--first-vlan", "65535"], "--first-vlan"),
    ("tally-statgen", ["--out", "OUT", "--hosts", "1", "--move", "0"], "--move"),
    ("tally-statgen", ["--out", "OUT", "--move", "4"], "--move"),
    ("tally-statgen", ["--out", "OUT", "--hosts", "16777216", "--invalid", "1"], "records"),
    ("tally-statgen", ["--out", "OUT", "--frobnicate", "1"], "--frobnicate"),
    ("tally-statdump", [], "FILE"),
    ("tally-statdump", ["a", "b"], "FILE"),
    ("tally-statdump", ["--frobnicate"], "--frobnicate"),
])
def test_bad_arguments_exit_2_with_one_line(run_tool, tmp_path, tool, args, named):
    out = tmp_path / "stat.bin"
    done = run_tool(tool, *[out if a == "OUT" else a for a in args])
    assert (done.returncode, done.stdout) == (2, "")
    assert len(done.stderr.splitlines()) == 1 and named in done.stderr, done.stderr
    assert not out.exists()
