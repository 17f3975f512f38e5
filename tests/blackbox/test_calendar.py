"""The calendar as the VLAN files see it: days of 23, 24.5 and 25 hours,
month ends of every length, the 63-day ring and the monthly history's limit,
and monthly history lines that someone else has edited."""

import pytest

from vlanfiles import KIB, Traffic, rollover_logs, vlan_files, write_vlan_file

VLAN = 142  # files under 42/142: the bucket is the VLAN modulo 100
NY_FIRST_ROLLOVER = (
    # West of UTC the epoch falls on 31 December 1969, so a new record's
    # first rollover repairs its zero month start before it files nothing.
    "wu_monthly_rollover(): start_tm.tm_day not at month start month 11 mday 31, "
    "wu->month_start 0. fixing...")


def day_case(tz, midnight, next_midnight, extra, hours, next_hour, closed_day, next_day, month,
             logs=(), id=None):
    """The daemon starts at midnight and ticks every real hour from 00:30 on,
    and at the extra times; the k-th of these ticks carries k KiB and 1 KiB.
    A tick just after the next midnight carries 100 KiB and 1 KiB."""
    files = {
        "usage_history.hourly": hours,
        "usage_history.daily": closed_day,
        "usage_history.monthly": None,
        "sw_usage_hourly.csv": next_hour + hours,
        "sw_usage_daily.csv": next_day + closed_day,
        "sw_usage_monthly.csv": month,
    }
    return pytest.param(tz, midnight, next_midnight, extra, files, list(logs), id=id)


DAYS = [
    # Clocks go from 02:00 to 03:00: no hour 02, 23 hours, all of them in the
    # 23 lines the hourly history shows.
    day_case("Europe/Berlin", 1774738800, 1774821600, (),  # 2026-03-29 00:00 CET, 03-30 00:00 CEST
             (
             "2026-03-29-23,23,1\n"
             "2026-03-29-22,22,1\n"
             "2026-03-29-21,21,1\n"
             "2026-03-29-20,20,1\n"
             "2026-03-29-19,19,1\n"
             "2026-03-29-18,18,1\n"
             "2026-03-29-17,17,1\n"
             "2026-03-29-16,16,1\n"
             "2026-03-29-15,15,1\n"
             "2026-03-29-14,14,1\n"
             "2026-03-29-13,13,1\n"
             "2026-03-29-12,12,1\n"
             "2026-03-29-11,11,1\n"
             "2026-03-29-10,10,1\n"
             "2026-03-29-09,9,1\n"
             "2026-03-29-08,8,1\n"
             "2026-03-29-07,7,1\n"
             "2026-03-29-06,6,1\n"
             "2026-03-29-05,5,1\n"
             "2026-03-29-04,4,1\n"
             "2026-03-29-03,3,1\n"
             "2026-03-29-01,2,1\n"
             "2026-03-29-00,1,1\n"
             ),
             "2026-03-30-00,100,1\n", "2026-03-29,276,23\n", "2026-03-30,100,1\n",
             "2026-03-01,2026-03-30,376,24\n", id="berlin-spring-forward"),
    # 03:00 CEST goes back to 02:00 CET: hour 02 comes twice, and each pass
    # is an hour of its own under the same name. The two oldest hours, 00 and
    # 01, fall out of the 23 lines shown.
    day_case("Europe/Berlin", 1792879200, 1792969200, (),  # 2026-10-25 00:00 CEST, 10-26 00:00 CET
             (
             "2026-10-25-23,25,1\n"
             "2026-10-25-22,24,1\n"
             "2026-10-25-21,23,1\n"
             "2026-10-25-20,22,1\n"
             "2026-10-25-19,21,1\n"
             "2026-10-25-18,20,1\n"
             "2026-10-25-17,19,1\n"
             "2026-10-25-16,18,1\n"
             "2026-10-25-15,17,1\n"
             "2026-10-25-14,16,1\n"
             "2026-10-25-13,15,1\n"
             "2026-10-25-12,14,1\n"
             "2026-10-25-11,13,1\n"
             "2026-10-25-10,12,1\n"
             "2026-10-25-09,11,1\n"
             "2026-10-25-08,10,1\n"
             "2026-10-25-07,9,1\n"
             "2026-10-25-06,8,1\n"
             "2026-10-25-05,7,1\n"
             "2026-10-25-04,6,1\n"
             "2026-10-25-03,5,1\n"
             "2026-10-25-02,4,1\n"
             "2026-10-25-02,3,1\n"
             ),
             "2026-10-26-00,100,1\n", "2026-10-25,325,25\n", "2026-10-26,100,1\n",
             "2026-10-01,2026-10-26,425,26\n", id="berlin-fall-back"),
    day_case("America/New_York", 1772946000, 1773028800, (),  # 2026-03-08 00:00 EST, 03-09 00:00 EDT
             (
             "2026-03-08-23,23,1\n"
             "2026-03-08-22,22,1\n"
             "2026-03-08-21,21,1\n"
             "2026-03-08-20,20,1\n"
             "2026-03-08-19,19,1\n"
             "2026-03-08-18,18,1\n"
             "2026-03-08-17,17,1\n"
             "2026-03-08-16,16,1\n"
             "2026-03-08-15,15,1\n"
             "2026-03-08-14,14,1\n"
             "2026-03-08-13,13,1\n"
             "2026-03-08-12,12,1\n"
             "2026-03-08-11,11,1\n"
             "2026-03-08-10,10,1\n"
             "2026-03-08-09,9,1\n"
             "2026-03-08-08,8,1\n"
             "2026-03-08-07,7,1\n"
             "2026-03-08-06,6,1\n"
             "2026-03-08-05,5,1\n"
             "2026-03-08-04,4,1\n"
             "2026-03-08-03,3,1\n"
             "2026-03-08-01,2,1\n"
             "2026-03-08-00,1,1\n"
             ),
             "2026-03-09-00,100,1\n", "2026-03-08,276,23\n", "2026-03-09,100,1\n",
             "2026-03-01,2026-03-09,376,24\n", logs=[NY_FIRST_ROLLOVER], id="new-york-spring-forward"),
    # The repeated hour is 01, on the first day of the month: two hours 01.
    day_case("America/New_York", 1793505600, 1793595600, (),  # 2026-11-01 00:00 EDT, 11-02 00:00 EST
             (
             "2026-11-01-23,25,1\n"
             "2026-11-01-22,24,1\n"
             "2026-11-01-21,23,1\n"
             "2026-11-01-20,22,1\n"
             "2026-11-01-19,21,1\n"
             "2026-11-01-18,20,1\n"
             "2026-11-01-17,19,1\n"
             "2026-11-01-16,18,1\n"
             "2026-11-01-15,17,1\n"
             "2026-11-01-14,16,1\n"
             "2026-11-01-13,15,1\n"
             "2026-11-01-12,14,1\n"
             "2026-11-01-11,13,1\n"
             "2026-11-01-10,12,1\n"
             "2026-11-01-09,11,1\n"
             "2026-11-01-08,10,1\n"
             "2026-11-01-07,9,1\n"
             "2026-11-01-06,8,1\n"
             "2026-11-01-05,7,1\n"
             "2026-11-01-04,6,1\n"
             "2026-11-01-03,5,1\n"
             "2026-11-01-02,4,1\n"
             "2026-11-01-01,3,1\n"
             ),
             "2026-11-02-00,100,1\n", "2026-11-01,325,25\n", "2026-11-02,100,1\n",
             "2026-11-01,2026-11-02,425,26\n", logs=[NY_FIRST_ROLLOVER], id="new-york-fall-back"),
    # 02:00 +10:30 becomes 02:30 +11: hour 02 lasts half an hour, and mktime
    # puts the missing 02:00 at 02:30, so the extra tick at 02:45 closes hour 01.
    day_case("Australia/Lord_Howe", 1791034200, 1791118800,  # 2026-10-04 00:00 +1030, 10-05 00:00 +11
             (1791042300,),  # 2026-10-04 02:45 +11
             (
             "2026-10-04-23,24,1\n"
             "2026-10-04-22,23,1\n"
             "2026-10-04-21,22,1\n"
             "2026-10-04-20,21,1\n"
             "2026-10-04-19,20,1\n"
             "2026-10-04-18,19,1\n"
             "2026-10-04-17,18,1\n"
             "2026-10-04-16,17,1\n"
             "2026-10-04-15,16,1\n"
             "2026-10-04-14,15,1\n"
             "2026-10-04-13,14,1\n"
             "2026-10-04-12,13,1\n"
             "2026-10-04-11,12,1\n"
             "2026-10-04-10,11,1\n"
             "2026-10-04-09,10,1\n"
             "2026-10-04-08,9,1\n"
             "2026-10-04-07,8,1\n"
             "2026-10-04-06,7,1\n"
             "2026-10-04-05,6,1\n"
             "2026-10-04-04,5,1\n"
             "2026-10-04-03,4,1\n"
             "2026-10-04-02,3,1\n"
             "2026-10-04-01,2,1\n"
             ),
             "2026-10-05-00,100,1\n", "2026-10-04,300,24\n", "2026-10-05,100,1\n",
             "2026-10-01,2026-10-05,400,25\n", id="lord-howe-spring-forward"),
    # 02:00 +11 becomes 01:30 +10:30: hour 01 lasts 90 minutes. The extra
    # tick at the second 01:40 lies within the bounds 01:00-01:59:59 +11.
    day_case("Australia/Lord_Howe", 1775307600, 1775395800,  # 2026-04-05 00:00 +11, 04-06 00:00 +1030
             (1775315400,),  # 2026-04-05 01:40 +1030
             (
             "2026-04-05-23,25,1\n"
             "2026-04-05-22,24,1\n"
             "2026-04-05-21,23,1\n"
             "2026-04-05-20,22,1\n"
             "2026-04-05-19,21,1\n"
             "2026-04-05-18,20,1\n"
             "2026-04-05-17,19,1\n"
             "2026-04-05-16,18,1\n"
             "2026-04-05-15,17,1\n"
             "2026-04-05-14,16,1\n"
             "2026-04-05-13,15,1\n"
             "2026-04-05-12,14,1\n"
             "2026-04-05-11,13,1\n"
             "2026-04-05-10,12,1\n"
             "2026-04-05-09,11,1\n"
             "2026-04-05-08,10,1\n"
             "2026-04-05-07,9,1\n"
             "2026-04-05-06,8,1\n"
             "2026-04-05-05,7,1\n"
             "2026-04-05-04,6,1\n"
             "2026-04-05-03,5,1\n"
             "2026-04-05-02,4,1\n"
             "2026-04-05-01,5,2\n"
             ),
             "2026-04-06-00,100,1\n", "2026-04-05,325,25\n", "2026-04-06,100,1\n",
             "2026-04-01,2026-04-06,425,26\n", id="lord-howe-fall-back"),
]


@pytest.mark.parametrize("tz, midnight, next_midnight, extra, files, logs", DAYS)
def test_a_day_with_a_daylight_saving_change(sandbox, tz, midnight, next_midnight, extra, files, logs):
    sandbox.tz = tz
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(midnight)
    ticks = sorted([*range(midnight + 1800, next_midnight, 3600), *extra])
    for k, t in enumerate(ticks, 1):
        traffic.tick(t, k * KIB, KIB)
    traffic.tick(next_midnight + 10, 100 * KIB, KIB)
    assert vlan_files(sandbox, VLAN) == files
    assert rollover_logs(sandbox) == logs


@pytest.mark.parametrize("tz, start, ticks, day, hours", [
    # 2026-10-24 23:00 CEST; then 23:30, 10-25 00:30, 02:59:00 and 02:59:30
    # CEST, 02:00:00, 02:00:30 and 02:01:00 CET, 03:00:00 CET. Each pass of
    # hour 02 is closed as an hour of its own.
    pytest.param("Europe/Berlin", 1792875600,
                 (1792877400, 1792881000, 1792889940, 1792889970,
                  1792890000, 1792890030, 1792890060, 1792893600),
                 ("2026-10-24", "2026-10-25"),
                 ("2026-10-25-03,128,1\n", "2026-10-25-02,112,3\n2026-10-25-02,12,2\n"
                  "2026-10-25-00,2,1\n2026-10-24-23,1,1\n"), id="berlin"),
    # 2026-04-04 23:00 +11; then 23:30, 04-05 00:30, 01:59:00 and 01:59:30
    # +11, 01:30:00, 01:30:30 and 01:31:00 +1030, 02:00:00 +1030. Hour 01
    # runs from 01:00 +11 to 02:00 +1030: 90 minutes, one hour.
    pytest.param("Australia/Lord_Howe", 1775304000,
                 (1775305800, 1775309400, 1775314740, 1775314770,
                  1775314800, 1775314830, 1775314860, 1775316600),
                 ("2026-04-04", "2026-04-05"),
                 ("2026-04-05-02,128,1\n", "2026-04-05-01,124,5\n"
                  "2026-04-05-00,2,1\n2026-04-04-23,1,1\n"), id="lord-howe"),
])
def test_ticks_every_30_seconds_through_the_repeated_hour(sandbox, tz, start, ticks, day, hours):
    """Ticks on either side of each change of offset: the hour bounds are
    those of the occurrence of the hour that the clock is in, so no tick
    looks as if the clock had gone back."""
    sandbox.tz = tz
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(start)
    for n, t in enumerate(ticks):
        traffic.tick(t, (1 << n) * KIB, KIB)
    previous_day, today = day
    running, closed = hours
    assert vlan_files(sandbox, VLAN) == {
        "usage_history.hourly": closed,
        "usage_history.daily": f"{previous_day},1,1\n",
        "usage_history.monthly": None,
        "sw_usage_hourly.csv": running + closed,
        "sw_usage_daily.csv": f"{today},254,7\n{previous_day},1,1\n",
        "sw_usage_monthly.csv": f"{today[:8]}01,{today},255,8\n",
    }


@pytest.mark.parametrize("start, on_the_1st, files", [
    # Start 2026-03-30 23:50 CET.
    pytest.param(1774907400, "2026-04-01,2026-04-01,8,80\n2026-03-01,2026-03-31,7,70\n", {
        "usage_history.hourly": "2026-04-01-00,8,80\n2026-03-31-23,4,40\n"
                                "2026-03-31-00,2,20\n2026-03-30-23,1,10\n",
        "usage_history.daily": "2026-04-01,8,80\n2026-03-31,6,60\n2026-03-30,1,10\n",
        "usage_history.monthly": "2026-03-01,2026-03-31,7,70\n",
        "sw_usage_hourly.csv": "2026-04-02-00,16,160\n2026-04-01-00,8,80\n2026-03-31-23,4,40\n"
                               "2026-03-31-00,2,20\n2026-03-30-23,1,10\n",
        "sw_usage_daily.csv": "2026-04-02,16,160\n2026-04-01,8,80\n2026-03-31,6,60\n"
                              "2026-03-30,1,10\n",
        "sw_usage_monthly.csv": "2026-04-01,2026-04-02,24,240\n2026-03-01,2026-03-31,7,70\n",
    }, id="31-march"),
    # Start 2028-02-28 23:50 CET.
    pytest.param(1835391000, "2028-03-01,2028-03-01,8,80\n2028-02-01,2028-02-29,7,70\n", {
        "usage_history.hourly": "2028-03-01-00,8,80\n2028-02-29-23,4,40\n"
                                "2028-02-29-00,2,20\n2028-02-28-23,1,10\n",
        "usage_history.daily": "2028-03-01,8,80\n2028-02-29,6,60\n2028-02-28,1,10\n",
        "usage_history.monthly": "2028-02-01,2028-02-29,7,70\n",
        "sw_usage_hourly.csv": "2028-03-02-00,16,160\n2028-03-01-00,8,80\n2028-02-29-23,4,40\n"
                               "2028-02-29-00,2,20\n2028-02-28-23,1,10\n",
        "sw_usage_daily.csv": "2028-03-02,16,160\n2028-03-01,8,80\n2028-02-29,6,60\n"
                              "2028-02-28,1,10\n",
        "sw_usage_monthly.csv": "2028-03-01,2028-03-02,24,240\n2028-02-01,2028-02-29,7,70\n",
    }, id="february-leap-year"),
    # Start 2027-02-27 23:50 CET.
    pytest.param(1803768600, "2027-03-01,2027-03-01,8,80\n2027-02-01,2027-02-28,7,70\n", {
        "usage_history.hourly": "2027-03-01-00,8,80\n2027-02-28-23,4,40\n"
                                "2027-02-28-00,2,20\n2027-02-27-23,1,10\n",
        "usage_history.daily": "2027-03-01,8,80\n2027-02-28,6,60\n2027-02-27,1,10\n",
        "usage_history.monthly": "2027-02-01,2027-02-28,7,70\n",
        "sw_usage_hourly.csv": "2027-03-02-00,16,160\n2027-03-01-00,8,80\n2027-02-28-23,4,40\n"
                               "2027-02-28-00,2,20\n2027-02-27-23,1,10\n",
        "sw_usage_daily.csv": "2027-03-02,16,160\n2027-03-01,8,80\n2027-02-28,6,60\n"
                              "2027-02-27,1,10\n",
        "sw_usage_monthly.csv": "2027-03-01,2027-03-02,24,240\n2027-02-01,2027-02-28,7,70\n",
    }, id="february"),
    # Start 2026-12-30 23:50 CET.
    pytest.param(1798671000, "2027-01-01,2027-01-01,8,80\n2026-12-01,2026-12-31,7,70\n", {
        "usage_history.hourly": "2027-01-01-00,8,80\n2026-12-31-23,4,40\n"
                                "2026-12-31-00,2,20\n2026-12-30-23,1,10\n",
        "usage_history.daily": "2027-01-01,8,80\n2026-12-31,6,60\n2026-12-30,1,10\n",
        "usage_history.monthly": "2026-12-01,2026-12-31,7,70\n",
        "sw_usage_hourly.csv": "2027-01-02-00,16,160\n2027-01-01-00,8,80\n2026-12-31-23,4,40\n"
                               "2026-12-31-00,2,20\n2026-12-30-23,1,10\n",
        "sw_usage_daily.csv": "2027-01-02,16,160\n2027-01-01,8,80\n2026-12-31,6,60\n"
                              "2026-12-30,1,10\n",
        "sw_usage_monthly.csv": "2027-01-01,2027-01-02,24,240\n2026-12-01,2026-12-31,7,70\n",
    }, id="december"),
])
def test_a_month_end(sandbox, start, on_the_1st, files):
    """Ticks at 23:59:00 on the day before the last, 00:00:10 and 23:59:30
    on the last day, 00:00:10 on the 1st and on the 2nd. The month filed on
    the 1st holds the closed day before the last and the running last day;
    the new month counts only days that began on or after its 1st."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(start)
    last_day = start + 600  # 00:00 on the last day of the month
    traffic.tick(start + 540, 1 * KIB, 10 * KIB)
    traffic.tick(last_day + 10, 2 * KIB, 20 * KIB)
    traffic.tick(last_day + 86400 - 30, 4 * KIB, 40 * KIB)
    traffic.tick(last_day + 86400 + 10, 8 * KIB, 80 * KIB)
    assert vlan_files(sandbox, VLAN, ["sw_usage_monthly.csv"]) == {
        "sw_usage_monthly.csv": on_the_1st}
    traffic.tick(last_day + 2 * 86400 + 10, 16 * KIB, 160 * KIB)
    assert vlan_files(sandbox, VLAN) == files


DAYS_6_TO_64 = (  # day k of 2027 carried k KiB and 1 KiB
    "2027-03-05,64,1\n"
    "2027-03-04,63,1\n"
    "2027-03-03,62,1\n"
    "2027-03-02,61,1\n"
    "2027-03-01,60,1\n"
    "2027-02-28,59,1\n"
    "2027-02-27,58,1\n"
    "2027-02-26,57,1\n"
    "2027-02-25,56,1\n"
    "2027-02-24,55,1\n"
    "2027-02-23,54,1\n"
    "2027-02-22,53,1\n"
    "2027-02-21,52,1\n"
    "2027-02-20,51,1\n"
    "2027-02-19,50,1\n"
    "2027-02-18,49,1\n"
    "2027-02-17,48,1\n"
    "2027-02-16,47,1\n"
    "2027-02-15,46,1\n"
    "2027-02-14,45,1\n"
    "2027-02-13,44,1\n"
    "2027-02-12,43,1\n"
    "2027-02-11,42,1\n"
    "2027-02-10,41,1\n"
    "2027-02-09,40,1\n"
    "2027-02-08,39,1\n"
    "2027-02-07,38,1\n"
    "2027-02-06,37,1\n"
    "2027-02-05,36,1\n"
    "2027-02-04,35,1\n"
    "2027-02-03,34,1\n"
    "2027-02-02,33,1\n"
    "2027-02-01,32,1\n"
    "2027-01-31,31,1\n"
    "2027-01-30,30,1\n"
    "2027-01-29,29,1\n"
    "2027-01-28,28,1\n"
    "2027-01-27,27,1\n"
    "2027-01-26,26,1\n"
    "2027-01-25,25,1\n"
    "2027-01-24,24,1\n"
    "2027-01-23,23,1\n"
    "2027-01-22,22,1\n"
    "2027-01-21,21,1\n"
    "2027-01-20,20,1\n"
    "2027-01-19,19,1\n"
    "2027-01-18,18,1\n"
    "2027-01-17,17,1\n"
    "2027-01-16,16,1\n"
    "2027-01-15,15,1\n"
    "2027-01-14,14,1\n"
    "2027-01-13,13,1\n"
    "2027-01-12,12,1\n"
    "2027-01-11,11,1\n"
    "2027-01-10,10,1\n"
    "2027-01-09,9,1\n"
    "2027-01-08,8,1\n"
    "2027-01-07,7,1\n"
    "2027-01-06,6,1\n"
)


def test_sixty_four_closed_days_wrap_the_day_ring(sandbox):
    """The ring keeps 63 closed days and the history shows 59 of them. The
    clock then goes back into day 5: days 5 and later leave the ring, day 5
    resumes, and what is left shows how far back the ring reached."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(1798797600)  # 2027-01-01 11:00 CET
    for k in range(1, 66):
        traffic.tick(1798801200 + (k - 1) * 86400, k * KIB, KIB)  # day k, 12:00 CET
    assert vlan_files(sandbox, VLAN, ["usage_history.daily", "sw_usage_daily.csv"]) == {
        "usage_history.daily": DAYS_6_TO_64,
        "sw_usage_daily.csv": "2027-03-06,65,1\n" + DAYS_6_TO_64,
    }
    traffic.tick(1799168400, 100 * KIB, KIB)  # 2027-01-05 18:00 CET
    assert vlan_files(sandbox, VLAN, ["usage_history.daily", "sw_usage_daily.csv"]) == {
        "usage_history.daily": "2027-01-04,4,1\n2027-01-03,3,1\n2027-01-02,2,1\n",
        "sw_usage_daily.csv": "2027-01-05,105,2\n2027-01-04,4,1\n2027-01-03,3,1\n2027-01-02,2,1\n",
    }


FILED_JUNE_AND_60_OLDER = (
    "2026-06-01,2026-06-30,3,1\n"
    "2026-05-01,2026-05-31,1,100\n"
    "2026-04-01,2026-04-30,2,101\n"
    "2026-03-01,2026-03-31,3,102\n"
    "2026-02-01,2026-02-28,4,103\n"
    "2026-01-01,2026-01-31,5,104\n"
    "2025-12-01,2025-12-31,6,105\n"
    "2025-11-01,2025-11-30,7,106\n"
    "2025-10-01,2025-10-31,8,107\n"
    "2025-09-01,2025-09-30,9,108\n"
    "2025-08-01,2025-08-31,10,109\n"
    "2025-07-01,2025-07-31,11,110\n"
    "2025-06-01,2025-06-30,12,111\n"
    "2025-05-01,2025-05-31,13,112\n"
    "2025-04-01,2025-04-30,14,113\n"
    "2025-03-01,2025-03-31,15,114\n"
    "2025-02-01,2025-02-28,16,115\n"
    "2025-01-01,2025-01-31,17,116\n"
    "2024-12-01,2024-12-31,18,117\n"
    "2024-11-01,2024-11-30,19,118\n"
    "2024-10-01,2024-10-31,20,119\n"
    "2024-09-01,2024-09-30,21,120\n"
    "2024-08-01,2024-08-31,22,121\n"
    "2024-07-01,2024-07-31,23,122\n"
    "2024-06-01,2024-06-30,24,123\n"
    "2024-05-01,2024-05-31,25,124\n"
    "2024-04-01,2024-04-30,26,125\n"
    "2024-03-01,2024-03-31,27,126\n"
    "2024-02-01,2024-02-29,28,127\n"
    "2024-01-01,2024-01-31,29,128\n"
    "2023-12-01,2023-12-31,30,129\n"
    "2023-11-01,2023-11-30,31,130\n"
    "2023-10-01,2023-10-31,32,131\n"
    "2023-09-01,2023-09-30,33,132\n"
    "2023-08-01,2023-08-31,34,133\n"
    "2023-07-01,2023-07-31,35,134\n"
    "2023-06-01,2023-06-30,36,135\n"
    "2023-05-01,2023-05-31,37,136\n"
    "2023-04-01,2023-04-30,38,137\n"
    "2023-03-01,2023-03-31,39,138\n"
    "2023-02-01,2023-02-28,40,139\n"
    "2023-01-01,2023-01-31,41,140\n"
    "2022-12-01,2022-12-31,42,141\n"
    "2022-11-01,2022-11-30,43,142\n"
    "2022-10-01,2022-10-31,44,143\n"
    "2022-09-01,2022-09-30,45,144\n"
    "2022-08-01,2022-08-31,46,145\n"
    "2022-07-01,2022-07-31,47,146\n"
    "2022-06-01,2022-06-30,48,147\n"
    "2022-05-01,2022-05-31,49,148\n"
    "2022-04-01,2022-04-30,50,149\n"
    "2022-03-01,2022-03-31,51,150\n"
    "2022-02-01,2022-02-28,52,151\n"
    "2022-01-01,2022-01-31,53,152\n"
    "2021-12-01,2021-12-31,54,153\n"
    "2021-11-01,2021-11-30,55,154\n"
    "2021-10-01,2021-10-31,56,155\n"
    "2021-09-01,2021-09-30,57,156\n"
    "2021-08-01,2021-08-31,58,157\n"
    "2021-07-01,2021-07-31,59,158\n"
    "2021-06-01,2021-06-30,60,159\n"
)


def test_the_monthly_history_keeps_the_new_month_and_sixty_older_ones(sandbox):
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    last = traffic.start(1782856200)  # 2026-06-30 23:50 CEST
    # Seventy months, May 2026 back to August 2020, the i-th with i and 99 + i.
    seeded, year, month = [], 2026, 5
    for i in range(1, 71):
        days = [31, 29 if year % 4 == 0 else 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31][month - 1]
        seeded.append(f"{year}-{month:02d}-01,{year}-{month:02d}-{days},{i},{99 + i}\n")
        year, month = (year, month - 1) if month > 1 else (year - 1, 12)
    write_vlan_file(sandbox, VLAN, "usage_history.monthly", "".join(seeded))
    traffic.tick(last + 300, 3 * KIB, KIB)  # 23:55
    shown = FILED_JUNE_AND_60_OLDER.splitlines(keepends=True)
    assert vlan_file_pair(sandbox) == ("".join(seeded), "2026-06-01,2026-06-30,3,1\n" + "".join(shown[1:60]))
    traffic.tick(1782856810, 4 * KIB, KIB)  # 2026-07-01 00:00:10 CEST
    assert vlan_file_pair(sandbox) == (FILED_JUNE_AND_60_OLDER,
                                       "2026-07-01,2026-07-01,4,1\n" + "".join(shown[:59]))


def vlan_file_pair(sb):
    files = vlan_files(sb, VLAN, ["usage_history.monthly", "sw_usage_monthly.csv"])
    return files["usage_history.monthly"], files["sw_usage_monthly.csv"]


EDITED = (
    # 281 bytes: read as its first 255 bytes and then the rest.
    "2026-05-01,2026-05-31,5,6" + " " * 230 + "2026-04-01,2026-04-30,7,8\n"
    "2026-03-01,2026-03-31\n"
    "no numbers here\n"
    "2026-13-01,2026-13-31,1,2\n"
    "2026-02-01,Feb 28,3,4\n"
    "2025-02-30,2025-02-31,9,9\n"
    "2008-12-01,2008-12-31,1,2\n"
    "2026-01-01,2026-01-31,5000000000,4294967296\n"
    "2025-12-01,2025-12-31,4294967295,0\n"
    "2025-11-01,2025-11-30,11,12"
)


def test_a_month_end_over_a_monthly_history_edited_by_hand(sandbox):
    """Until the month ends the display copies the history's lines as they
    are; the month end reads each line back: amounts that are missing are 0,
    amounts beyond 32 bits are 4294967295, a date that does not parse or
    lies before 2009 drops its line, and a date that parses is kept as
    written even when no such day exists."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    last = traffic.start(1782856200)  # 2026-06-30 23:50 CEST
    write_vlan_file(sandbox, VLAN, "usage_history.monthly", EDITED)
    traffic.tick(last + 300, 3 * KIB, KIB)  # 23:55
    assert vlan_file_pair(sandbox) == (EDITED, "2026-06-01,2026-06-30,3,1\n" + EDITED)
    traffic.tick(1782856810, 4 * KIB, KIB)  # 2026-07-01 00:00:10 CEST
    history = (
        "2026-06-01,2026-06-30,3,1\n"
        "2026-05-01,2026-05-31,5,6\n"
        "2026-04-01,2026-04-30,7,8\n"
        "2026-03-01,2026-03-31,0,0\n"
        "2025-02-30,2025-02-31,9,9\n"
        "2026-01-01,2026-01-31,4294967295,4294967295\n"
        "2025-12-01,2025-12-31,4294967295,0\n"
        "2025-11-01,2025-11-30,11,12\n"
    )
    assert vlan_file_pair(sandbox) == (history, "2026-07-01,2026-07-01,4,1\n" + history)
