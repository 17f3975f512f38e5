"""Start-up and exit of the daemon: the start line, the pid file, stale
files, the platform's restore command and the VLANs found in the backup tree."""

import os
import signal

import pytest

from statfile import T0
STALE = ("hourly", "daily", "monthly", "billing")
STARTUP_REMOVALS = [
    "rm -rf /var/run/ostra/sw_client_usage_hourly",
    "rm -rf /var/run/ostra/sw_client_usage_daily",
    "rm -rf /var/run/ostra/sw_client_usage_monthly",
]


def write(sb, path, text=""):
    host = sb.path(path)
    os.makedirs(os.path.dirname(host), exist_ok=True)
    with open(host, "w") as f:
        f.write(text)


def tree(sb, top):
    """Every path below top, relative to it, directories with a trailing /."""
    base = sb.path(top)
    found = []
    for dirpath, dirs, files in os.walk(base):
        rel = os.path.relpath(dirpath, base)
        found += [os.path.normpath(os.path.join(rel, d)) + "/" for d in dirs]
        found += [os.path.normpath(os.path.join(rel, f)) for f in files]
    return sorted(found)


def vlan_run_dirs(bucket, vlan):
    top = f"{bucket}/{vlan}"
    return [f"{bucket}/", f"{top}/", f"{top}/sw_client/",
            f"{top}/sw_client/sw_client_usage_daily/",
            f"{top}/sw_client/sw_client_usage_hourly/",
            f"{top}/sw_client/sw_client_usage_monthly/", f"{top}/sw_vlan/"]


@pytest.mark.parametrize("tz, clock, text", [
    ("UTC", T0, "Sat Nov 21 10:17:05 2026 UTC(+0000)"),
    ("Europe/Berlin", 1774780200, "Sun Mar 29 12:30:00 2026 CEST(+0200)"),
    # A time zone whose name does not leave the text room: no text at all.
    ("<" + "A" * 240 + ">0", T0, ""),
])
@pytest.mark.parametrize("stop_signal", [signal.SIGTERM, signal.SIGINT])
def test_logs_its_start_keeps_a_pid_file_and_removes_it_on_exit(sandbox, tz, clock, text, stop_signal):
    sandbox.tz = tz
    sandbox.start(clock)
    assert sandbox.logs() == [(29, "tally", "starting Corvane Usage Monitor (tally). " + text)]
    with open(sandbox.path("/var/run/tally.pid")) as f:
        assert f.read().rstrip("\n").isdigit()
    assert sandbox.stop(stop_signal) == 0
    assert not os.path.exists(sandbox.path("/var/run/tally.pid"))


@pytest.mark.parametrize("wanno, wan_count", [
    (None, 2), ("", 2), ("1", 2), ("0", 2), ("-5", 2), ("abc", 2), ("3\n", 3), ("8", 8),
])
def test_removes_stale_history_files_of_each_wan(sandbox, wanno, wan_count):
    if wanno is not None:
        write(sandbox, "/etc/ZERIC_wanno", wanno)
    for wan in range(1, 10):
        for kind in STALE + ("keep",):
            write(sandbox, f"/var/run/ostra/wan{wan}/usage_history.{kind}")
    sandbox.start(T0)
    for wan in range(1, 10):
        left = sorted(os.listdir(sandbox.path(f"/var/run/ostra/wan{wan}")))
        expected = ["usage_history.keep"] if wan <= wan_count else \
            sorted(f"usage_history.{k}" for k in STALE + ("keep",))
        assert left == expected, f"wan{wan}"


@pytest.mark.parametrize("marker, restored", [
    (None, True), ("file", True), ("dir", False),
])
def test_runs_the_restore_command_unless_its_marker_directory_is_there(sandbox, marker, restored):
    if marker == "file":
        write(sandbox, "/tmp/tally_backup")
    elif marker == "dir":
        os.makedirs(sandbox.path("/tmp/tally_backup/inner"))
    sandbox.start(T0)
    assert sandbox.commands() == (["load_tally_data 1"] if restored else []) + STARTUP_REMOVALS
    assert not os.path.lexists(sandbox.path("/tmp/tally_backup"))


def test_without_backup_tree_starts_with_an_empty_run_time_tree(sandbox):
    write(sandbox, "/var/run/ostra/tally_sw_usage/5/5/sw_vlan/usage_history.hourly", "old\n")
    sandbox.start(T0)
    assert tree(sandbox, "/var/run/ostra/tally_sw_usage") == []


def test_a_backup_root_that_is_a_file_is_no_backup_tree(sandbox):
    write(sandbox, "/tmp/tally_sw_usage", "junk")
    sandbox.start(T0)
    assert tree(sandbox, "/var/run/ostra/tally_sw_usage") == []
    sandbox.tick(T0 + 30)
    assert tree(sandbox, "/var/run/ostra/tally_sw_usage") == [
        "sw_usage_daily_total.csv", "sw_usage_hourly_total.csv", "sw_usage_monthly_total.csv"]


def test_restores_the_vlans_of_the_backup_tree(sandbox):
    names = {
        "1": ["1"], "95": ["4095", "4096"], "12": ["0012", "12abc"], "0": ["0", "-3"],
        "x": ["abc", "4294967297", "99999999999999999999"],
    }
    for bucket, vlans in names.items():
        for vlan in vlans:
            os.makedirs(sandbox.path(f"/tmp/tally_sw_usage/{bucket}/{vlan}/sw_vlan"))
    # Client files of the backup tree are copied into the run-time tree;
    # this also makes a third name, 12, in bucket 12.
    write(sandbox, "/tmp/tally_sw_usage/12/12/sw_client/sw_client_usage_daily/2026-11-21.csv",
          "10.0.0.1,5,6,00:11:22:33:44:55,0\n")
    write(sandbox, "/tmp/tally_sw_usage/stray-file", "not a bucket")
    sandbox.start(T0)

    run = "/var/run/ostra/tally_sw_usage"
    assert tree(sandbox, run) == sorted(
        vlan_run_dirs(1, 1) + vlan_run_dirs(12, 12) + vlan_run_dirs(95, 4095)
        + ["12/12/sw_client/sw_client_usage_daily/2026-11-21.csv"])
    with open(sandbox.path(run + "/12/12/sw_client/sw_client_usage_daily/2026-11-21.csv")) as f:
        assert f.read() == "10.0.0.1,5,6,00:11:22:33:44:55,0\n"
    assert not os.path.lexists(sandbox.path("/tmp/tally_sw_usage"))

    # Each of the three names that read as 12 (12, 0012, 12abc) makes an entry.
    copied = sorted(c.split()[2] for c in sandbox.commands() if c.startswith("cp "))
    expected = []
    for vlan, entries in ((1, 1), (12, 3), (4095, 1)):
        for period in ("daily", "hourly", "monthly"):
            source = f"//tmp/tally_sw_usage/{vlan % 100}/{vlan}/sw_client/sw_client_usage_{period}/"
            source += "2026-11-21.csv" if (vlan, period) == (12, "daily") else "*"
            expected += [source] * entries
    assert copied == sorted(expected)
