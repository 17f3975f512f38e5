"""Usage survives a restart and a reboot: the backup written on SIGUSR1
brings every VLAN, totals and client file back on the first tick."""

import os
import shutil
import signal

import pytest

from vlanfiles import KIB, Traffic, set_clock_marker, vlan_files

T0 = 1793613600        # Mon 2026-11-02 10:00:00 UTC
NEXT_MORNING = 1793698200  # Tue 2026-11-03 09:30:00 UTC
RESTART = 1793698800       # 09:40:00
ROOT = "/var/run/ostra/tally_sw_usage"


def vlan(first, second, history_monthly):
    """A VLAN with (first, second) KiB in each of three ticks: 10:30 and
    11:30 on 2 November, 09:30 on the 3rd."""
    f, s = first, second
    hours = f"2026-11-02-11,{f},{s}\n2026-11-02-10,{f},{s}\n"
    return {
        "usage_history.hourly": hours,
        "usage_history.daily": f"2026-11-02,{2 * f},{2 * s}\n",
        "usage_history.monthly": history_monthly,
        "sw_usage_hourly.csv": f"2026-11-03-09,{f},{s}\n" + hours,
        "sw_usage_daily.csv": f"2026-11-03,{f},{s}\n2026-11-02,{2 * f},{2 * s}\n",
        "sw_usage_monthly.csv": f"2026-11-01,2026-11-03,{3 * f},{3 * s}\n",
    }


TOTALS = {
    "sw_usage_hourly_total.csv": "2026-11-03-09,12,3\n2026-11-02-11,12,3\n2026-11-02-10,12,3\n",
    "sw_usage_daily_total.csv": "2026-11-03,12,3\n2026-11-02,24,6\n",
    "sw_usage_monthly_total.csv": "2026-11-01,2026-11-30,36,9\n",
}
CLIENT = "10.0.0.10,{},{},02:00:00:00:00:AA,0\n"
CLIENT_FILES = {
    "hourly": {"2026-11-02-10.csv": CLIENT.format(4, 1), "2026-11-02-11.csv": CLIENT.format(4, 1),
               "2026-11-03-09.csv": CLIENT.format(4, 1)},
    "daily": {"2026-11-02.csv": CLIENT.format(8, 2), "2026-11-03.csv": CLIENT.format(4, 1)},
    "monthly": {"2026-11-01.csv": CLIENT.format(12, 3)},
}


def totals(sb):
    out = {}
    for name in TOTALS:
        with open(sb.path(f"{ROOT}/{name}")) as f:
            out[name] = f.read()
    return out


def client_files(sb):
    out = {}
    for period in CLIENT_FILES:
        d = sb.path(f"{ROOT}/10/10/sw_client/sw_client_usage_{period}")
        out[period] = {}
        for name in sorted(os.listdir(d)):
            with open(os.path.join(d, name)) as f:
                out[period][name] = f.read()
    return out


def reboot(sb):
    """What a power cycle leaves: the platform's saved copy of the backup
    tree, which its restore command puts back under /tmp."""
    shutil.copytree(sb.path("/tmp/tally_sw_usage"), sb.path("/saved/tally_sw_usage"))
    for top in ("/run", "/tmp"):
        shutil.rmtree(sb.path(top))
        os.mkdir(sb.path(top))
    os.chmod(sb.path("/tmp"), 0o1777)
    sb.fake("/fakebin/load_tally_data", "cp -r /saved/tally_sw_usage /tmp/")


@pytest.mark.parametrize("power_cut", [False, True], ids=["restart", "reboot"])
def test_usage_survives(sandbox, power_cut):
    traffic = Traffic(sandbox, [10, 20])
    traffic.start(T0)
    per_vlan = {10: (4 * KIB, KIB), 20: (8 * KIB, 2 * KIB)}
    for t in (T0 + 1800, T0 + 5400, NEXT_MORNING):
        traffic.tick(t, per_vlan=per_vlan)
    assert vlan_files(sandbox, 10) == vlan(4, 1, None)
    assert totals(sandbox) == TOTALS

    sandbox.signal(signal.SIGUSR1)
    assert sandbox.stop() == 0
    if power_cut:
        reboot(sandbox)
    set_clock_marker(sandbox, True)
    sandbox.start(RESTART)
    assert not os.path.exists(sandbox.path("/tmp/tally_sw_usage"))
    # A restored client's first sample only takes its baseline again.
    traffic.tick(RESTART + 30)

    assert vlan_files(sandbox, 10) == vlan(4, 1, "")
    assert vlan_files(sandbox, 20) == vlan(8, 2, "")
    assert totals(sandbox) == TOTALS
    assert client_files(sandbox) == CLIENT_FILES

    sandbox.signal(signal.SIGHUP)
    assert sandbox.commands().count("saveconfig usage") == 1
    assert sandbox.commands().count("load_tally_data 1") == 2
