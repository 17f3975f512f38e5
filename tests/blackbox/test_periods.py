"""How a VLAN's running hour, day and month follow the clock: a clock set
back by a little or a lot, a clock that jumps forward, and the clock marker
that allows period updates at all."""

import pytest

from vlanfiles import (KIB, Traffic, rollover_logs, set_clock_marker, shown, vlan_files,
                       write_vlan_file)

VLAN = 142
CLOSED = ["2026-06-10-09,16,1\n", "2026-06-10-08,8,1\n", "2026-06-10-07,4,1\n",
          "2026-06-10-06,2,1\n", "2026-06-10-05,1,1\n"]


@pytest.mark.parametrize("hours, back_to, history, running", [
    # Back to 04:50 with only the running hour 05: it gives way to the new clock's hour.
    pytest.param(1, 1781059800, None, "2026-06-10-04,64,1\n", id="empty-ring"),
    # Back to 10:10, inside the running hour.
    pytest.param(6, 1781079000, "".join(CLOSED), "2026-06-10-10,96,2\n", id="within-the-running-hour"),
    # Back to 09:45: hour 09 resumes with its 16 KiB; the running hour's 32 KiB are lost.
    pytest.param(6, 1781077500, "".join(CLOSED[1:]), "2026-06-10-09,80,2\n", id="into-the-last-closed-hour"),
    # Back to 07:20.
    pytest.param(6, 1781068800, "".join(CLOSED[3:]), "2026-06-10-07,68,2\n", id="across-closed-hours"),
    # Back to 05:20. The walk stops before the oldest hour without looking
    # at it and drops it too; the running hour resumes with what the last
    # hour it looked at, 06, held, since the new clock lies before that
    # hour's end.
    pytest.param(6, 1781061600, "", "2026-06-10-05,66,2\n", id="into-the-oldest-hour"),
    # Back to 05:40: one closed hour is dropped unseen, although the clock is back inside it.
    pytest.param(2, 1781062800, "", "2026-06-10-05,64,1\n", id="into-the-only-closed-hour"),
])
def test_the_clock_set_back_within_the_hours(sandbox, hours, back_to, history, running):
    """Ticks at 05:30, 06:30, ... on 2026-06-10 carry 1, 2, 4, ... KiB, so
    hours 05 to 09 close with 1 to 16 KiB and 10 runs with 32; then the
    clock goes back with 64 KiB."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(1781060400)  # 2026-06-10 05:00 CEST
    for j in range(hours):
        traffic.tick(1781062200 + 3600 * j, (1 << j) * KIB, KIB)
    traffic.tick(back_to, 64 * KIB, KIB)
    assert vlan_files(sandbox, VLAN, ["usage_history.hourly", "sw_usage_hourly.csv"]) == {
        "usage_history.hourly": history, "sw_usage_hourly.csv": running + (history or "")}


def test_the_clock_set_back_across_days(sandbox):
    """Noon ticks from 7 to 10 June carry 1, 2, 4 and 8 KiB; the clock then
    goes back to 8 June 18:00. Day 8 resumes with its 2 KiB since the clock
    lies inside it; its hour 12 does not, so that hour is lost."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(1780826400)  # 2026-06-07 12:00 CEST
    for day in range(4):
        traffic.tick(1780828200 + 86400 * day, (1 << day) * KIB, KIB)  # 12:30
    traffic.tick(1780934400, 16 * KIB, KIB)  # 2026-06-08 18:00 CEST
    assert vlan_files(sandbox, VLAN) == shown(
        ("2026-06-07-12,1,1\n", "2026-06-07,1,1\n", None),
        ("2026-06-08-18,16,1\n", "2026-06-08,18,2\n", "2026-06-01,2026-06-08,19,3\n"))


@pytest.mark.parametrize("seeded, back_to, log_end, running, history", [
    # Back to April: May and April now lie ahead and go; the lines kept are
    # read and printed again.
    pytest.param("2026-05-01,2026-05-31,500,50\n2026-04-01,2026-04-30,400,40\n"
                 "2026-03-01,2026-03-31,0300,30\n2026-02-01,2026-02-28,200,20\n",
                 1776247200, "mon 3 day 15", "2026-04-01,2026-04-15,4,1\n",  # 2026-04-15 12:00 CEST
                 "2026-03-01,2026-03-31,300,30\n2026-02-01,2026-02-28,200,20\n", id="lines-ahead-are-pruned"),
    # Back to May with nothing from May on: the file is left as it is.
    pytest.param("2026-04-01,2026-04-30,400,40\n2026-03-01,2026-03-31,0300,30\n",
                 1779271200, "mon 4 day 20", "2026-05-01,2026-05-20,4,1\n",  # 2026-05-20 12:00 CEST
                 "2026-04-01,2026-04-30,400,40\n2026-03-01,2026-03-31,0300,30\n", id="nothing-ahead"),
    # The newest line's end date is damaged: its start still says May lies
    # ahead, so the file is pruned, that line too.
    pytest.param("2026-05-01,2026-05-xx,500,50\n2026-04-01,2026-04-30,400,40\n"
                 "2026-03-01,2026-03-31,0300,30\n",
                 1776247200, "mon 3 day 15", "2026-04-01,2026-04-15,4,1\n",
                 "2026-03-01,2026-03-31,300,30\n", id="newest-end-date-damaged"),
])
def test_the_clock_set_back_before_the_month(sandbox, seeded, back_to, log_end, running, history):
    """The running June's closed hour and day are the rings' only entries,
    so they are dropped; the month is only the new clock's first tick."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(1780350600)  # 2026-06-01 23:50 CEST
    write_vlan_file(sandbox, VLAN, "usage_history.monthly", seeded)
    traffic.tick(1780351140, 1 * KIB, KIB)  # 2026-06-01 23:59:00
    traffic.tick(1780351210, 2 * KIB, KIB)  # 2026-06-02 00:00:10
    traffic.tick(back_to, 4 * KIB, KIB)
    assert vlan_files(sandbox, VLAN, ["usage_history.monthly", "sw_usage_monthly.csv"]) == {
        "usage_history.monthly": history, "sw_usage_monthly.csv": running + history}
    assert rollover_logs(sandbox) == ["wu_monthly_rollover(): > update_monthly_history start_tm:year 126 "
                                      f"mon 5 day 1, _time:year 126 {log_end}"]


@pytest.mark.parametrize("jump_to, histories, running", [
    # Not ticking from 09:40 to 12:50 CEST: the running hour is filed as
    # 09, and 10 and 11 get nothing.
    pytest.param(1781088600, ("2026-06-10-09,3,2\n", None, None),
                 ("2026-06-10-12,4,1\n", "2026-06-10,7,3\n", "2026-06-01,2026-06-10,7,3\n"), id="three-hours"),
    # To 2026-10-10 12:50 CEST: one line for June with all of its usage;
    # July to September get none.
    pytest.param(1791629400, ("2026-06-10-09,3,2\n", "2026-06-10,3,2\n", "2026-06-01,2026-06-30,3,2\n"),
                 ("2026-10-10-12,4,1\n", "2026-10-10,4,1\n", "2026-10-01,2026-10-10,4,1\n"), id="four-months"),
])
def test_the_clock_jumps_forward(sandbox, jump_to, histories, running):
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(1781074800)  # 2026-06-10 09:00 CEST
    traffic.tick(1781076000, 1 * KIB, KIB)  # 09:20
    traffic.tick(1781077200, 2 * KIB, KIB)  # 09:40
    traffic.tick(jump_to, 4 * KIB, KIB)
    assert vlan_files(sandbox, VLAN) == shown(histories, running)


def test_periods_follow_the_clock_only_while_the_clock_marker_is_there(sandbox):
    """Two VLANs carry n KiB each in each tick. Without the marker the
    records take no period traffic: the files show nothing at first and
    later stay as they were, but for the running month's end date, which
    follows the clock. The marker's first tick syncs every record, the
    second as well as the first, in that one tick."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN, 8])

    def tick(t, n, marker, histories, running):
        set_clock_marker(sandbox, marker)
        traffic.tick(t, n * KIB, KIB)
        if histories:
            assert [vlan_files(sandbox, vlan) for vlan in (VLAN, 8)] == [shown(histories, running)] * 2

    traffic.start(1781071200, marker=False)  # 2026-06-10 08:00 CEST
    tick(1781072400, 1, False, (None, None, None), ("", "", ""))  # 08:20
    tick(1781073600, 2, True, (None, None, None),  # 08:40
         ("2026-06-10-08,2,1\n", "2026-06-10,2,1\n", "2026-06-01,2026-06-10,2,1\n"))
    tick(1781075400, 4, True, None, None)  # 09:10
    tick(1781079000, 8, False, None, None)  # 10:10
    tick(1781129400, 16, False, ("2026-06-10-08,2,1\n", None, None),  # 2026-06-11 00:10
         ("2026-06-10-09,4,1\n", "2026-06-10,6,2\n", "2026-06-01,2026-06-11,6,2\n"))
    # At 00:40 the hour and day last counted at 09:10 yesterday are closed as such.
    tick(1781131200, 32, True, ("2026-06-10-09,4,1\n2026-06-10-08,2,1\n", "2026-06-10,6,2\n", None),
         ("2026-06-11-00,32,1\n", "2026-06-11,32,1\n", "2026-06-01,2026-06-11,38,3\n"))
