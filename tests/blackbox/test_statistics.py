"""The statistics file read every tick: VLANs met there for the first time,
and files that are broken or hostile."""

import os
import signal


from statfile import HEADER, HOST, RECORD_SIZE, STATS, T0, build, mac, record, write_stats
from vlanfiles import KIB

SUBDIRS = ["sw_client", "sw_client/sw_client_usage_daily", "sw_client/sw_client_usage_hourly",
           "sw_client/sw_client_usage_monthly", "sw_vlan"]


def has_run_dirs(sb, vlan):
    top = sb.path(f"/var/run/ostra/tally_sw_usage/{vlan % 100}/{vlan}")
    return all(os.path.isdir(os.path.join(top, d)) for d in SUBDIRS)


def backed_up_vlans(sb):
    """VLANs in the order of the last backup pass's copies."""
    copies = [c.split()[2] for c in sb.commands() if c.startswith("cp -r /var/run/")]
    return [int(c.split("/")[6]) for c in copies[::3]]


def test_vlans_met_in_the_statistics_join_the_list_in_order_of_discovery(sandbox):
    os.makedirs(sandbox.path("/tmp/tally_sw_usage/7/7/sw_vlan"))
    sandbox.start(T0)
    write_stats(sandbox, build([
        (mac(1), [record(0, "10.0.0.1", 1, 1), record(65535, "10.0.0.2", 1, 1)]),
        (mac(2), [record(4096, "10.0.0.3", 1, 1, valid=0), record(7, "10.0.0.4", 1, 1),
                  record(300, "10.0.0.5", 1, 1), record(0, "10.0.0.6", 1, 1)]),
    ]))
    sandbox.tick(T0 + 30)
    for vlan in (0, 65535, 300):
        assert has_run_dirs(sandbox, vlan), vlan
    assert not os.path.exists(sandbox.path("/var/run/ostra/tally_sw_usage/96/4096")), \
        "an invalid record makes no VLAN"
    sandbox.signal(signal.SIGUSR1)
    assert backed_up_vlans(sandbox) == [7, 0, 65535, 300]


def test_hostile_files_leave_the_daemon_running_with_their_vlans_made(sandbox):
    """The reader's cases of broken files are unit tests; here the whole
    daemon meets the two worst: descriptors that all claim every record of
    the file, and noise."""
    shared = bytearray(HEADER.pack(0x098AFE01, 2000))
    records_at = HEADER.size + 2000 * HOST.size
    for i in range(2000):
        shared += HOST.pack(mac(i + 1), 0xFFFFFFFF, records_at)
    for i in range(2000):
        shared += record(20 + i % 5, f"10.1.{i // 250}.{i % 250}", i, i)
    sandbox.start(T0)
    for n, data in enumerate([bytes(shared), bytes((i * 131 + 7) % 256 for i in range(4096))]):
        write_stats(sandbox, data)
        sandbox.tick(T0 + 30 * (n + 1))
    assert all(has_run_dirs(sandbox, v) for v in range(20, 25))
    assert sandbox.stop() == 0


def test_records_claimed_twice_are_read_for_each_claim(sandbox):
    """Station 1 claims its two records and the first of station 2's: that
    record is read for both MACs. Its counters belong to its address, so the
    claim read last before a change takes the change: station 1's, here."""
    records_at = HEADER.size + 2 * HOST.size

    def stats(n):
        head = HEADER.pack(0x098AFE01, 2) + HOST.pack(mac(1), 3, records_at) + \
            HOST.pack(mac(2), 2, records_at + 2 * RECORD_SIZE)
        return head + b"".join(record(10, f"10.0.0.{ip}", 1000 + n * ip * KIB, 1000)
                               for ip in (1, 2, 3, 4))

    os.makedirs(sandbox.path("/var/run/ostra"))
    sandbox.start(T0)
    for n in range(4):
        write_stats(sandbox, stats(n))
        sandbox.tick(T0 + 30 * (n + 1))
    with open(sandbox.path("/var/run/ostra/tally_sw_usage/10/10/sw_client/"
                           "sw_client_usage_hourly/2026-11-21-10.csv")) as f:
        assert f.read() == ("10.0.0.1,2,0,00:00:00:00:00:01,0\n10.0.0.2,4,0,00:00:00:00:00:01,0\n"
                            "10.0.0.3,6,0,00:00:00:00:00:01,0\n10.0.0.4,8,0,00:00:00:00:00:02,0\n")


def test_a_file_naming_every_vlan_number(sandbox):
    sandbox.timeout *= 6
    write_stats(sandbox, build([(mac(1), [record(v, "10.0.0.1", 1, 1) for v in range(65536)])]))
    sandbox.start(T0)
    sandbox.tick(T0 + 30)
    sandbox.tick(T0 + 60)
    made = sum(len(os.listdir(sandbox.path(f"/var/run/ostra/tally_sw_usage/{b}")))
               for b in range(100))
    assert made == 65536
    assert sandbox.stop() == 0


def test_agent_traffic_reaches_the_vlan_files(sandbox, run_tool, tmp_path):
    """Three clients on VLAN 10 move 10 KiB and 2 KiB each per agent interval."""
    def agent(*extra):
        r = run_tool("tally-statgen", "--out", sandbox.path(STATS), "--state", tmp_path / "agent",
                     "--hosts", 6, "--vlans", 2, "--first-vlan", 10, "--rate", 10240,
                     "--second-rate", 2048, *extra)
        assert r.returncode == 0, r.stderr

    def vlan10(name):
        with open(sandbox.path(f"/var/run/ostra/tally_sw_usage/10/10/sw_vlan/{name}")) as f:
            return f.read()

    os.makedirs(sandbox.path("/var/run/sflow"))
    os.makedirs(sandbox.path("/var/run/ostra"))
    open(sandbox.path("/var/run/ostra/time_initialized"), "w").close()
    agent()
    sandbox.start(T0)
    clock = T0
    # A client's first two samples only set its baselines.
    for extra in [(), (), (), (), ()]:
        agent(*extra)
        clock += 30
        sandbox.tick(clock)
    assert vlan10("sw_usage_hourly.csv") == "2026-11-21-10,90,18\n"
    assert vlan10("sw_usage_daily.csv") == "2026-11-21,90,18\n"
    assert vlan10("sw_usage_monthly.csv") == "2026-11-01,2026-11-21,90,18\n"

    # No file: the last tick's traffic is counted once more.
    os.remove(sandbox.path(STATS))
    sandbox.tick(clock + 30)
    assert vlan10("sw_usage_hourly.csv") == "2026-11-21-10,120,24\n"

    # The agent restarts: counters back at 0 re-baseline, and a baseline of
    # 0 is taken again before traffic counts.
    for extra in [("--restart",), (), ()]:
        agent(*extra)
        clock += 30
        sandbox.tick(clock + 30)
    assert vlan10("sw_usage_hourly.csv") == "2026-11-21-10,150,30\n"
