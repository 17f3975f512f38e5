"""The VLAN backup CSVs: what a backup pass writes from a usage record, and
what a restore at start makes of them, in the record and in the run-time
history files."""

import datetime
import signal

import pytest

from vlanfiles import (period_files, plant_backup, rollover_logs, set_clock_marker, shown,
                       vlan_files, write_vlan_file)

VLAN = 142
BACKUP = f"/tmp/tally_sw_usage/{VLAN % 100}/{VLAN}/sw_vlan/tally.{{}}.csv"


def test_the_monthly_backup_is_the_run_time_history_in_bytes(sandbox):
    """A VLAN restored from an empty directory has no running period yet
    (its periods are dated 1970), so no backup file gets a running line.
    History amounts are 32-bit KiB, so 5000000000 saturates, and the way
    back to bytes needs 64 bits. A line with no amounts gets 0 and 0, not
    the amounts of the line before it; a line whose dates do not parse is
    dropped."""
    plant_backup(sandbox, VLAN)
    sandbox.start(1781184000)
    write_vlan_file(sandbox, VLAN, "usage_history.monthly",
                    "2024-03-01,2024-03-31,5000000000,7\n2024-02-01,2024-02-29,10,20\n"
                    "2024-01-01,2024-01-31\n2023-11-01,2023-11-xx,1,1\n"
                    "2023-10-01,2023-10-31,3,4\n")
    sandbox.signal(signal.SIGUSR1)
    assert period_files(sandbox, BACKUP) == {
        "hourly": "", "daily": "",
        "monthly": "2024-03-01,2024-03-31,4398046510080,7168\n2024-02-01,2024-02-29,10240,20480\n"
                   "2024-01-01,2024-01-31,0,0\n2023-10-01,2023-10-31,3072,4096\n"}


def periods_back(n, step, fmt):
    """n backup lines from 2026-06-11 15:00 backwards, carrying nothing, so
    that they read the same in bytes and in KiB."""
    start = datetime.datetime(2026, 6, 11, 15)
    return "".join(f"{start - k * step:{fmt}},0,0\n" for k in range(n))


def lines(text, first, last):
    """Lines first to last of text, counted from 1."""
    return "".join(text.splitlines(keepends=True)[first - 1:last])


HOURS_40 = periods_back(40, datetime.timedelta(hours=1), "%Y-%m-%d-%H")
DAYS_70 = periods_back(70, datetime.timedelta(days=1), "%Y-%m-%d")


@pytest.mark.parametrize("period, backup, history, backed_up", [
    # The ring takes 31 hours and the history shows the 23 newest.
    pytest.param("hourly", HOURS_40, lines(HOURS_40, 2, 24), lines(HOURS_40, 1, 32), id="40-hours"),
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
    the record, and the restore alone wrote the history file: the display
    file waits for the first tick."""
    sandbox.tz = "Europe/Berlin"
    plant_backup(sandbox, VLAN, **({period: backup} if backup is not None else {}))
    sandbox.start(1781184000)  # 2026-06-11 15:20 CEST
    names = [f"usage_history.{period}", f"sw_usage_{period}.csv"]
    assert vlan_files(sandbox, VLAN, names) == dict(zip(names, (history, None)))
    sandbox.signal(signal.SIGUSR1)
    assert period_files(sandbox, BACKUP)[period] == backed_up


def test_a_running_month_with_a_damaged_end_date_keeps_its_start(sandbox):
    """The running month's start parses, so it is restored although the end
    date behind it does not, and the month keeps its line; its amounts are
    read only after both dates, so it starts from nothing. The clock is not
    known to be set, so the month only takes the tick's clock."""
    sandbox.tz = "Europe/Berlin"
    plant_backup(sandbox, VLAN, monthly="2026-06-01,2026-06-xx,6144,3072\n"
                                        "2026-05-01,2026-05-31,10240,20479\n")
    set_clock_marker(sandbox, False)
    sandbox.start(1781184000)  # 2026-06-11 15:20 CEST
    sandbox.tick(1781184030)
    assert vlan_files(sandbox, VLAN, ["sw_usage_monthly.csv"]) == {
        "sw_usage_monthly.csv": "2026-06-01,2026-06-11,0,0\n2026-05-01,2026-05-31,10,19\n"}
    assert rollover_logs(sandbox) == []


def test_the_first_tick_after_a_restore_closes_what_the_clock_has_left(sandbox):
    """Restored on 1 June at 00:10 CEST: the running hour of 31 May 23:00
    closes and May is filed with its restored amounts. The running day's
    line does not parse, so the day starts again from nothing, not from
    the line's 9 KiB."""
    sandbox.tz = "Europe/Berlin"
    plant_backup(sandbox, VLAN,
                 hourly="2026-05-31-23,3072,1024\n2026-05-31-22,2048,1024\n",
                 daily="2026-05-32,9216,9216\n2026-05-30,1024,1024\n",
                 monthly="2026-05-01,2026-05-31,6144,3072\n2026-04-01,2026-04-30,10240,20479\n")
    set_clock_marker(sandbox, True)
    sandbox.start(1780265400)  # 2026-06-01 00:10 CEST
    sandbox.tick(1780265430)
    assert vlan_files(sandbox, VLAN) == shown(
        ("2026-05-31-23,3,1\n2026-05-31-22,2,1\n", "2026-05-30,1,1\n",
         "2026-05-01,2026-05-31,6,3\n2026-04-01,2026-04-30,10,19\n"),
        ("2026-06-01-00,0,0\n", "2026-06-01,0,0\n", "2026-06-01,2026-06-01,0,0\n"))
