"""The calendar as the VLAN files see it: days of 23, 24.5 and 25 hours,
month ends of every length, the 63-day ring and the monthly history's limit,
and monthly history lines that someone else has edited."""

import pytest

from vlanfiles import KIB, Traffic, rollover_logs, shown, vlan_files, write_vlan_file

VLAN = 142  # files under 42/142: the bucket is the VLAN modulo 100
# West of UTC the epoch falls on 31 December 1969, so a new record's first
# rollover repairs its zero month start before it files nothing.
NY_LOGS = ["wu_monthly_rollover(): start_tm.tm_day not at month start month 11 mday 31, "
           "wu->month_start 0. fixing..."]


def ramp(prefix, keys, amounts):
    """Lines "<prefix><key>,<amount>,1", keys and amounts each counting down
    by one from the first to the last value of its pair."""
    keys, amounts = range(keys[0], keys[1] - 1, -1), range(amounts[0], amounts[1] - 1, -1)
    assert len(keys) == len(amounts)
    return "".join(f"{prefix}{key:02d},{amount},1\n" for key, amount in zip(keys, amounts))


@pytest.mark.parametrize("tz, midnight, next_midnight, extra, hours, day, month, logs", [
    # Clocks go from 02:00 to 03:00: no hour 02, 23 hours, all of them in the
    # 23 lines the hourly history shows.
    pytest.param("Europe/Berlin", 1774738800, 1774821600, (),  # 2026-03-29 00:00 CET, 03-30 00:00 CEST
                 ramp("2026-03-29-", (23, 3), (23, 3)) + "2026-03-29-01,2,1\n2026-03-29-00,1,1\n",
                 "2026-03-29,276,23\n", "2026-03-01,2026-03-30,376,24\n", [], id="berlin-spring-forward"),
    # 03:00 CEST goes back to 02:00 CET: hour 02 comes twice, and each pass
    # is an hour of its own under the same name. The two oldest hours, 00 and
    # 01, fall out of the 23 lines shown.
    pytest.param("Europe/Berlin", 1792879200, 1792969200, (),  # 2026-10-25 00:00 CEST, 10-26 00:00 CET
                 ramp("2026-10-25-", (23, 2), (25, 4)) + "2026-10-25-02,3,1\n",
                 "2026-10-25,325,25\n", "2026-10-01,2026-10-26,425,26\n", [], id="berlin-fall-back"),
    pytest.param("America/New_York", 1772946000, 1773028800, (),  # 2026-03-08 00:00 EST, 03-09 00:00 EDT
                 ramp("2026-03-08-", (23, 3), (23, 3)) + "2026-03-08-01,2,1\n2026-03-08-00,1,1\n",
                 "2026-03-08,276,23\n", "2026-03-01,2026-03-09,376,24\n", NY_LOGS,
                 id="new-york-spring-forward"),
    # The repeated hour is 01, on the first day of the month: two hours 01.
    pytest.param("America/New_York", 1793505600, 1793595600, (),  # 2026-11-01 00:00 EDT, 11-02 00:00 EST
                 ramp("2026-11-01-", (23, 1), (25, 3)),
                 "2026-11-01,325,25\n", "2026-11-01,2026-11-02,425,26\n", NY_LOGS, id="new-york-fall-back"),
    # 02:00 +10:30 becomes 02:30 +11: hour 02 lasts half an hour, and mktime
    # puts the missing 02:00 at 02:30, so the extra tick at 02:45 closes hour 01.
    pytest.param("Australia/Lord_Howe", 1791034200, 1791118800,  # 2026-10-04 00:00 +1030, 10-05 00:00 +11
                 (1791042300,),  # 2026-10-04 02:45 +11
                 ramp("2026-10-04-", (23, 1), (24, 2)),
                 "2026-10-04,300,24\n", "2026-10-01,2026-10-05,400,25\n", [], id="lord-howe-spring-forward"),
    # 02:00 +11 becomes 01:30 +10:30: hour 01 lasts 90 minutes. The extra
    # tick at the second 01:40 lies within the bounds 01:00-01:59:59 +11.
    pytest.param("Australia/Lord_Howe", 1775307600, 1775395800,  # 2026-04-05 00:00 +11, 04-06 00:00 +1030
                 (1775315400,),  # 2026-04-05 01:40 +1030
                 ramp("2026-04-05-", (23, 2), (25, 4)) + "2026-04-05-01,5,2\n",
                 "2026-04-05,325,25\n", "2026-04-01,2026-04-06,425,26\n", [], id="lord-howe-fall-back"),
])
def test_a_day_with_a_daylight_saving_change(sandbox, tz, midnight, next_midnight, extra, hours, day, month,
                                             logs):
    """The daemon starts at midnight and ticks every real hour from 00:30 on,
    and at the extra times; the k-th of these ticks carries k KiB and 1 KiB.
    A tick just after the next midnight carries 100 KiB and 1 KiB."""
    sandbox.tz = tz
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(midnight)
    for k, t in enumerate(sorted([*range(midnight + 1800, next_midnight, 3600), *extra]), 1):
        traffic.tick(t, k * KIB, KIB)
    traffic.tick(next_midnight + 10, 100 * KIB, KIB)
    next_day = month[11:21]  # the day on which the month line ends
    assert vlan_files(sandbox, VLAN) == shown((hours, day, None),
                                              (f"{next_day}-00,100,1\n", f"{next_day},100,1\n", month))
    assert rollover_logs(sandbox) == logs


@pytest.mark.parametrize("tz, start, ticks, yesterday, closed, running", [
    # 2026-10-24 23:00 CEST; then 23:30, 10-25 00:30, 02:59:00 and 02:59:30
    # CEST, 02:00:00, 02:00:30 and 02:01:00 CET, 03:00:00 CET. Each pass of
    # hour 02 is closed as an hour of its own.
    pytest.param("Europe/Berlin", 1792875600,
                 (1792877400, 1792881000, 1792889940, 1792889970,
                  1792890000, 1792890030, 1792890060, 1792893600), "2026-10-24",
                 "2026-10-25-02,112,3\n2026-10-25-02,12,2\n2026-10-25-00,2,1\n2026-10-24-23,1,1\n",
                 "2026-10-25-03,128,1\n", id="berlin"),
    # 2026-04-04 23:00 +11; then 23:30, 04-05 00:30, 01:59:00 and 01:59:30
    # +11, 01:30:00, 01:30:30 and 01:31:00 +1030, 02:00:00 +1030. Hour 01
    # runs from 01:00 +11 to 02:00 +1030: 90 minutes, one hour.
    pytest.param("Australia/Lord_Howe", 1775304000,
                 (1775305800, 1775309400, 1775314740, 1775314770,
                  1775314800, 1775314830, 1775314860, 1775316600), "2026-04-04",
                 "2026-04-05-01,124,5\n2026-04-05-00,2,1\n2026-04-04-23,1,1\n",
                 "2026-04-05-02,128,1\n", id="lord-howe"),
])
def test_ticks_every_30_seconds_through_the_repeated_hour(sandbox, tz, start, ticks, yesterday, closed,
                                                          running):
    """Ticks on either side of each change of offset carry 1, 2, 4, ... KiB:
    the hour bounds are those of the occurrence of the hour that the clock
    is in, so no tick looks as if the clock had gone back."""
    sandbox.tz = tz
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(start)
    for n, t in enumerate(ticks):
        traffic.tick(t, (1 << n) * KIB, KIB)
    today = running[:10]
    assert vlan_files(sandbox, VLAN) == shown(
        (closed, f"{yesterday},1,1\n", None),
        (running, f"{today},254,7\n", f"{today[:8]}01,{today},255,8\n"))


@pytest.mark.parametrize("start, before_last, last, first, second", [
    (1774907400, "2026-03-30", "2026-03-31", "2026-04-01", "2026-04-02"),  # 2026-03-30 23:50 CEST
    (1835391000, "2028-02-28", "2028-02-29", "2028-03-01", "2028-03-02"),  # 2028-02-28 23:50 CET
    (1803768600, "2027-02-27", "2027-02-28", "2027-03-01", "2027-03-02"),  # 2027-02-27 23:50 CET
    (1798671000, "2026-12-30", "2026-12-31", "2027-01-01", "2027-01-02"),  # 2026-12-30 23:50 CET
], ids=["31-march", "february-leap-year", "february", "december"])
def test_a_month_end(sandbox, start, before_last, last, first, second):
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
    filed = f"{last[:8]}01,{last},7,70\n"
    assert vlan_files(sandbox, VLAN, ["sw_usage_monthly.csv"]) == {
        "sw_usage_monthly.csv": f"{first},{first},8,80\n" + filed}
    traffic.tick(last_day + 2 * 86400 + 10, 16 * KIB, 160 * KIB)
    assert vlan_files(sandbox, VLAN) == shown(
        (f"{first}-00,8,80\n{last}-23,4,40\n{last}-00,2,20\n{before_last}-23,1,10\n",
         f"{first},8,80\n{last},6,60\n{before_last},1,10\n", filed),
        (f"{second}-00,16,160\n", f"{second},16,160\n", f"{first},{second},24,240\n"))


def test_sixty_four_closed_days_wrap_the_day_ring(sandbox):
    """Day k of 2027 carries k KiB and 1 KiB at noon. The ring keeps 63
    closed days and the history shows 59 of them. The clock then goes back
    into day 5: days 5 and later leave the ring, day 5 resumes, and what is
    left shows how far back the ring reached."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    traffic.start(1798797600)  # 2027-01-01 11:00 CET
    for k in range(1, 66):
        traffic.tick(1798801200 + (k - 1) * 86400, k * KIB, KIB)  # day k, 12:00 CET
    days_6_to_64 = (ramp("2027-03-", (5, 1), (64, 60)) + ramp("2027-02-", (28, 1), (59, 32))
                    + ramp("2027-01-", (31, 6), (31, 6)))
    assert vlan_files(sandbox, VLAN, ["usage_history.daily", "sw_usage_daily.csv"]) == {
        "usage_history.daily": days_6_to_64, "sw_usage_daily.csv": "2027-03-06,65,1\n" + days_6_to_64}
    traffic.tick(1799168400, 100 * KIB, KIB)  # 2027-01-05 18:00 CET
    left = "2027-01-04,4,1\n2027-01-03,3,1\n2027-01-02,2,1\n"
    assert vlan_files(sandbox, VLAN, ["usage_history.daily", "sw_usage_daily.csv"]) == {
        "usage_history.daily": left, "sw_usage_daily.csv": "2027-01-05,105,2\n" + left}


def month_end_over(sandbox, seeded):
    """Seeds the monthly history at 2026-06-30 23:50 CEST, ticks with 3 KiB
    at 23:55 and with 4 KiB at 00:00:10 on 1 July, and returns the monthly
    history and display after each of the two ticks."""
    sandbox.tz = "Europe/Berlin"
    traffic = Traffic(sandbox, [VLAN])
    last = traffic.start(1782856200)  # 2026-06-30 23:50 CEST
    write_vlan_file(sandbox, VLAN, "usage_history.monthly", seeded)
    found = []
    for t, first in ((last + 300, 3), (1782856810, 4)):
        traffic.tick(t, first * KIB, KIB)
        files = vlan_files(sandbox, VLAN, ["usage_history.monthly", "sw_usage_monthly.csv"])
        found.append(tuple(files.values()))
    return found


def test_the_monthly_history_keeps_the_new_month_and_sixty_older_ones(sandbox):
    # Seventy months, May 2026 back to August 2020, the i-th with i and 99 + i.
    seeded, year, month = [], 2026, 5
    for i in range(1, 71):
        days = [31, 29 if year % 4 == 0 else 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31][month - 1]
        seeded.append(f"{year}-{month:02d}-01,{year}-{month:02d}-{days},{i},{99 + i}\n")
        year, month = (year, month - 1) if month > 1 else (year - 1, 12)
    (history, display), after = month_end_over(sandbox, "".join(seeded))
    # The display shows 59 history lines under the running month.
    assert (history, display) == ("".join(seeded), "2026-06-01,2026-06-30,3,1\n" + "".join(seeded[:59]))
    assert seeded[58] == "2021-07-01,2021-07-31,59,158\n"
    history, display = (text.splitlines(keepends=True) for text in after)
    assert history == ["2026-06-01,2026-06-30,3,1\n"] + seeded[:60]
    assert history[-1] == "2021-06-01,2021-06-30,60,159\n"
    assert display == ["2026-07-01,2026-07-01,4,1\n"] + history[:59]


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
    before, after = month_end_over(sandbox, EDITED)
    assert before == (EDITED, "2026-06-01,2026-06-30,3,1\n" + EDITED)
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
    assert after == (history, "2026-07-01,2026-07-01,4,1\n" + history)
