"""The VLAN backup CSVs: what a backup pass writes from a usage record, and
what a restore at start makes of them, in the record and in the run-time
history files."""

import datetime
import os
import signal

import pytest

from vlanfiles import Traffic, set_clock_marker, vlan_files, write_vlan_file

VLAN = 142
PERIODS = ("hourly", "daily", "monthly")


def backup_path(sb, period):
    return sb.path(f"/tmp/tally_sw_usage/{VLAN % 100}/{VLAN}/sw_vlan/tally.{period}.csv")


def plant_backup(sb, **texts):
    """A backup tree holding VLAN 142 with the given files."""
    os.makedirs(os.path.dirname(backup_path(sb, "hourly")))
    for period, text in texts.items():
        with open(backup_path(sb, period), "w") as f:
            f.write(text)


def backup_files(sb):
    found = {}
    for period in PERIODS:
        with open(backup_path(sb, period)) as f:
            found[period] = f.read()
    return found


def lines(text, first, last):
    """Lines first to last of text, counted from 1."""
    return "".join(text.splitlines(keepends=True)[first - 1:last])


def test_a_backup_pass_writes_the_running_period_first_in_bytes(sandbox):
    """Hours and a day close, and the month of June is filed in the run-time
    monthly history in KiB: the monthly backup copies that line back in
    bytes, remainders lost. Past midnight CEST the UTC date is a day behind."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    t0 = 1782849600  # 2026-06-30 22:00 CEST
    traffic.start(t0)
    traffic.tick(t0 + 1800, 1000, 3000)  # 22:30
    traffic.tick(t0 + 5400, 2000, 5000)  # 23:30
    traffic.tick(t0 + 9000, 4000, 7000)  # 2026-07-01 00:30
    traffic.tick(t0 + 11400, 8000, 9000)  # 01:10
    sandbox.signal(signal.SIGUSR1)
    assert backup_files(sandbox) == {
        "hourly": "2026-07-01-01,8000,9000\n2026-07-01-00,4000,7000\n"
                  "2026-06-30-23,2000,5000\n2026-06-30-22,1000,3000\n",
        "daily": "2026-07-01,12000,16000\n2026-06-30,3000,8000\n",
        "monthly": "2026-07-01,2026-07-01,12000,16000\n2026-06-01,2026-06-30,2048,7168\n",
    }


def test_the_monthly_backup_is_the_run_time_history_in_bytes(sandbox):
    """A VLAN restored from an empty directory has no running period yet
    (its periods are dated 1970), so no backup file gets a running line.
    Amounts of the history are 32-bit KiB: 5000000000 saturates. Lines
    whose dates do not parse or lie before 2009 are dropped; a line with no
    amounts gets 0 and 0, not the amounts of the line before it."""
    plant_backup(sandbox)
    sandbox.start(1781184000)
    write_vlan_file(sandbox, VLAN, "usage_history.monthly",
                    "2024-03-01,2024-03-31,5000000000,7\n"
                    "2024-02-01,2024-02-29,10,20\n"
                    "2024-01-01,2024-01-31\n"
                    "2023-13-01,2023-12-31,1,1\n"
                    "2023-11-01,2023-11-xx,1,1\n"
                    "2023-10-01,2023-10-31,3,4\n"
                    "2008-12-01,2008-12-31,30,40\n")
    sandbox.signal(signal.SIGUSR1)
    assert backup_files(sandbox) == {
        "hourly": "",
        "daily": "",
        "monthly": "2024-03-01,2024-03-31,4398046510080,7168\n"
                   "2024-02-01,2024-02-29,10240,20480\n"
                   "2024-01-01,2024-01-31,0,0\n"
                   "2023-10-01,2023-10-31,3072,4096\n",
    }


def periods_back(n, step, fmt):
    """n backup lines from 2026-06-11 15:00 backwards, carrying nothing, so
    that they read the same in bytes and in KiB."""
    start = datetime.datetime(2026, 6, 11, 15)
    return "".join(f"{(start - k * step).strftime(fmt)},0,0\n" for k in range(n))


HOURS_40 = periods_back(40, datetime.timedelta(hours=1), "%Y-%m-%d-%H")
DAYS_70 = periods_back(70, datetime.timedelta(days=1), "%Y-%m-%d")


@pytest.mark.parametrize("period, backup, history, backed_up", [
    # The ring takes 31 hours and the history shows the 23 newest.
    pytest.param("hourly", HOURS_40, lines(HOURS_40, 2, 24), lines(HOURS_40, 1, 32),
                 id="40-hours"),
    pytest.param("daily", DAYS_70, lines(DAYS_70, 2, 60), lines(DAYS_70, 1, 64), id="70-days"),
    # A repeat of the line just before is dropped, the running hour's too;
    # hour 14 coming back after hour 13 is a period of its own.
    pytest.param("hourly",
                 "2026-06-11-15,5120,1024\n2026-06-11-15,9999,9999\n2026-06-11-14,4096,1024\n"
                 "2026-06-11-14,8888,8888\n2026-06-11-13,3072,1024\n2026-06-11-14,2048,1024\n",
                 "2026-06-11-14,4,1\n2026-06-11-13,3,1\n2026-06-11-14,2,1\n",
                 "2026-06-11-15,5120,1024\n2026-06-11-14,4096,1024\n"
                 "2026-06-11-13,3072,1024\n2026-06-11-14,2048,1024\n", id="repeated-hours"),
    pytest.param("hourly", "", "", "", id="empty-file"),
    pytest.param("hourly", None, None, "", id="no-file"),
    pytest.param("hourly", "2026-13-11-15,7168,7168\n2026-06-11-14,4096,1024\n",
                 "2026-06-11-14,4,1\n", "2026-06-11-14,4096,1024\n", id="running-hour-unreadable"),
    # 01:00 CET on 1 January 2009 is 00:00 UTC, the first time written out.
    pytest.param("hourly", "2009-01-01-02,3072,1\n2009-01-01-01,2048,1\n2009-01-01-00,1024,1\n",
                 "2009-01-01-01,2,0\n", "2009-01-01-02,3072,1\n2009-01-01-01,2048,1\n",
                 id="hours-before-2009"),
    # A second line for a month already taken is dropped.
    pytest.param("monthly",
                 "2026-06-01,2026-06-11,6144,3072\n2026-06-01,2026-06-30,1,1\n"
                 "2026-05-01,2026-05-31,10240,20479\n2026-05-15,2026-05-31,9,9\n"
                 "2026-04-01,2026-04-30,2048,0\n",
                 "2026-05-01,2026-05-31,10,19\n2026-04-01,2026-04-30,2,0\n",
                 "2026-06-01,2026-06-11,6144,3072\n2026-05-01,2026-05-31,10240,19456\n"
                 "2026-04-01,2026-04-30,2048,0\n", id="months"),
    pytest.param("monthly", "2026-06-01,2026-06-11,6144,3072\n", "",
                 "2026-06-01,2026-06-11,6144,3072\n", id="running-month-only"),
])
def test_a_restore_rewrites_the_history_and_comes_back_in_the_next_backup(
        sandbox, period, backup, history, backed_up):
    """No tick runs, so the backup pass writes out what the restore left in
    the record, and the restore alone wrote the history file."""
    sandbox.tz = "Europe/Berlin"
    plant_backup(sandbox, **({period: backup} if backup is not None else {}))
    sandbox.start(1781184000)  # 2026-06-11 15:20 CEST
    assert vlan_files(sandbox, VLAN, [f"usage_history.{period}"]) == {
        f"usage_history.{period}": history}
    sandbox.signal(signal.SIGUSR1)
    assert backup_files(sandbox)[period] == backed_up


def test_the_first_tick_after_a_restore_closes_what_the_clock_has_left(sandbox):
    """Restored on 1 June at 00:10 CEST: the running hour of 31 May 23:00
    closes and May is filed with its restored amounts. The running day's
    line does not parse, so the day starts again from nothing, not from
    the line's 9 KiB."""
    sandbox.tz = "Europe/Berlin"
    plant_backup(sandbox,
                 hourly="2026-05-31-23,3072,1024\n2026-05-31-22,2048,1024\n",
                 daily="2026-05-32,9216,9216\n2026-05-30,1024,1024\n",
                 monthly="2026-05-01,2026-05-31,6144,3072\n2026-04-01,2026-04-30,10240,20479\n")
    set_clock_marker(sandbox, True)
    sandbox.start(1780265400)  # 2026-06-01 00:10 CEST
    assert vlan_files(sandbox, VLAN) == {
        "usage_history.hourly": "2026-05-31-22,2,1\n",
        "usage_history.daily": "2026-05-30,1,1\n",
        "usage_history.monthly": "2026-04-01,2026-04-30,10,19\n",
        "sw_usage_hourly.csv": None,
        "sw_usage_daily.csv": None,
        "sw_usage_monthly.csv": None,
    }
    sandbox.tick(1780265430)
    assert vlan_files(sandbox, VLAN) == {
        "usage_history.hourly": "2026-05-31-23,3,1\n2026-05-31-22,2,1\n",
        "usage_history.daily": "2026-05-30,1,1\n",
        "usage_history.monthly": "2026-05-01,2026-05-31,6,3\n2026-04-01,2026-04-30,10,19\n",
        "sw_usage_hourly.csv": "2026-06-01-00,0,0\n2026-05-31-23,3,1\n2026-05-31-22,2,1\n",
        "sw_usage_daily.csv": "2026-06-01,0,0\n2026-05-30,1,1\n",
        "sw_usage_monthly.csv": "2026-06-01,2026-06-01,0,0\n2026-05-01,2026-05-31,6,3\n"
                                "2026-04-01,2026-04-30,10,19\n",
    }
