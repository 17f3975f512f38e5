"""The all-VLAN totals files: sums taken position by position over every
VLAN's running periods, rings and monthly history, and when a file is
rewritten in full or only has its first line replaced."""

import calendar
import os

from statfile import build, mac, record
from vlanfiles import STATS, set_clock_marker

TOTALS = {period: f"/var/run/ostra/tally_sw_usage/sw_usage_{period}_total.csv"
          for period in ("hourly", "daily", "monthly")}


def plant_backup(sb, vlan, **texts):
    d = sb.path(f"/tmp/tally_sw_usage/{vlan % 100}/{vlan}/sw_vlan")
    os.makedirs(d)
    for period, text in texts.items():
        with open(f"{d}/tally.{period}.csv", "w") as f:
            f.write(text)


def totals(sb):
    found = {}
    for period, path in TOTALS.items():
        with open(sb.path(path)) as f:
            found[period] = f.read()
    return found


def stale(first, last):
    return "".join(f"stale line {k}\n" for k in range(first, last + 1))


def plant_stale_totals(sb, hourly, daily, monthly):
    """Totals files of so many stale lines, to tell a full write, which
    replaces them, from a cheap one, which keeps all but the first."""
    for period, n in (("hourly", hourly), ("daily", daily), ("monthly", monthly)):
        with open(sb.path(TOTALS[period]), "w") as f:
            f.write(stale(1, n))


def months_back(n):
    """n monthly backup lines from January 2024 backwards; the k-th carries
    k KiB and 1 KiB."""
    out, year, month = [], 2024, 1
    for k in range(1, n + 1):
        last = calendar.monthrange(year, month)[1]
        out.append(f"{year}-{month:02d}-01,{year}-{month:02d}-{last},{k * 1024},1024\n")
        year, month = (year, month - 1) if month > 1 else (year - 1, 12)
    return "".join(out)


# The running month ends on its last day, not on the records' 10th; then
# months 1 and 2 of both VLANs and months 3 to 59 of VLAN 20.
MONTHLY_TOTAL = (
    "2024-02-01,2024-02-29,3,4\n"
    "2024-01-01,2024-01-31,2,2\n2023-12-01,2023-12-31,4,2\n2023-11-01,2023-11-30,3,1\n"
    "2023-10-01,2023-10-31,4,1\n2023-09-01,2023-09-30,5,1\n2023-08-01,2023-08-31,6,1\n"
    "2023-07-01,2023-07-31,7,1\n2023-06-01,2023-06-30,8,1\n2023-05-01,2023-05-31,9,1\n"
    "2023-04-01,2023-04-30,10,1\n2023-03-01,2023-03-31,11,1\n2023-02-01,2023-02-28,12,1\n"
    "2023-01-01,2023-01-31,13,1\n2022-12-01,2022-12-31,14,1\n2022-11-01,2022-11-30,15,1\n"
    "2022-10-01,2022-10-31,16,1\n2022-09-01,2022-09-30,17,1\n2022-08-01,2022-08-31,18,1\n"
    "2022-07-01,2022-07-31,19,1\n2022-06-01,2022-06-30,20,1\n2022-05-01,2022-05-31,21,1\n"
    "2022-04-01,2022-04-30,22,1\n2022-03-01,2022-03-31,23,1\n2022-02-01,2022-02-28,24,1\n"
    "2022-01-01,2022-01-31,25,1\n2021-12-01,2021-12-31,26,1\n2021-11-01,2021-11-30,27,1\n"
    "2021-10-01,2021-10-31,28,1\n2021-09-01,2021-09-30,29,1\n2021-08-01,2021-08-31,30,1\n"
    "2021-07-01,2021-07-31,31,1\n2021-06-01,2021-06-30,32,1\n2021-05-01,2021-05-31,33,1\n"
    "2021-04-01,2021-04-30,34,1\n2021-03-01,2021-03-31,35,1\n2021-02-01,2021-02-28,36,1\n"
    "2021-01-01,2021-01-31,37,1\n2020-12-01,2020-12-31,38,1\n2020-11-01,2020-11-30,39,1\n"
    "2020-10-01,2020-10-31,40,1\n2020-09-01,2020-09-30,41,1\n2020-08-01,2020-08-31,42,1\n"
    "2020-07-01,2020-07-31,43,1\n2020-06-01,2020-06-30,44,1\n2020-05-01,2020-05-31,45,1\n"
    "2020-04-01,2020-04-30,46,1\n2020-03-01,2020-03-31,47,1\n2020-02-01,2020-02-29,48,1\n"
    "2020-01-01,2020-01-31,49,1\n2019-12-01,2019-12-31,50,1\n2019-11-01,2019-11-30,51,1\n"
    "2019-10-01,2019-10-31,52,1\n2019-09-01,2019-09-30,53,1\n2019-08-01,2019-08-31,54,1\n"
    "2019-07-01,2019-07-31,55,1\n2019-06-01,2019-06-30,56,1\n2019-05-01,2019-05-31,57,1\n"
    "2019-04-01,2019-04-30,58,1\n2019-03-01,2019-03-31,59,1\n"
)


def test_sums_every_vlan_position_by_position(sandbox):
    """VLAN 10 has 3 closed hours, VLAN 20 has 10 (and fewer closed days),
    and halves of KiB add up before they are cut. VLAN 30 turns up in the
    statistics while the clock marker is missing, so its periods never
    start: it adds nothing, not even a running period dated 1970. VLAN 20's
    monthly history has 70 months, of which the totals take 59."""
    plant_backup(sandbox, 10,
                 hourly="2024-02-10-12,1536,1024\n2024-02-10-11,1536,0\n"
                        "2024-02-10-10,2048,0\n2024-02-10-09,3072,0\n",
                 daily="2024-02-10,3072,1024\n2024-02-09,1536,512\n2024-02-08,2048,0\n",
                 monthly="2024-02-01,2024-02-10,1536,1024\n"
                         "2024-01-01,2024-01-31,1024,1024\n2023-12-01,2023-12-31,2048,1024\n")
    plant_backup(sandbox, 20,
                 hourly="2024-02-10-12,1536,2048\n2024-02-10-11,1536,1024\n"
                        "2024-02-10-10,5120,1024\n2024-02-10-09,6144,1024\n"
                        "2024-02-10-08,7168,1024\n2024-02-10-07,8192,1024\n"
                        "2024-02-10-06,9216,1024\n2024-02-10-05,10240,1024\n"
                        "2024-02-10-04,11264,1024\n2024-02-10-03,12288,1024\n"
                        "2024-02-10-02,13312,1024\n",
                 daily="2024-02-10,1024,1024\n2024-02-09,1536,512\n",
                 monthly="2024-02-01,2024-02-10,1536,3072\n" + months_back(70))
    set_clock_marker(sandbox, False)
    sandbox.start(1707567600)  # 2024-02-10 12:20 UTC
    os.makedirs(os.path.dirname(sandbox.path(STATS)))
    with open(sandbox.path(STATS), "wb") as f:
        f.write(build([(mac(0x0200000000AA), [record(30, "10.0.0.30", 5000, 5000)])]))
    sandbox.tick(1707567630)
    assert totals(sandbox) == {
        "hourly": "2024-02-10-12,3,3\n2024-02-10-11,3,1\n2024-02-10-10,7,1\n"
                  "2024-02-10-09,9,1\n2024-02-10-08,7,1\n2024-02-10-07,8,1\n"
                  "2024-02-10-06,9,1\n2024-02-10-05,10,1\n2024-02-10-04,11,1\n"
                  "2024-02-10-03,12,1\n2024-02-10-02,13,1\n",
        "daily": "2024-02-10,4,2\n2024-02-09,3,1\n2024-02-08,2,0\n",
        "monthly": MONTHLY_TOTAL,
    }


# VLAN 10 restored on 2026-06-10 with two closed hours, one closed day and
# one closed month, and no traffic afterwards.
HOUR, DAY, MONTH = "2026-06-10-12,2,1\n", "2026-06-10,6,2\n", "2026-06-01,2026-06-30,16,3\n"
IN_FULL = {
    "hourly": HOUR + "2026-06-10-11,1,1\n2026-06-10-10,3,0\n",
    "daily": DAY + "2026-06-09,10,1\n",
    "monthly": MONTH + "2026-05-01,2026-05-31,30,5\n",
}


def test_full_writes_come_with_the_first_tick_a_clock_change_and_a_closed_period(sandbox):
    plant_backup(sandbox, 10,
                 hourly="2026-06-10-12,2560,1024\n2026-06-10-11,1024,1024\n2026-06-10-10,3072,0\n",
                 daily="2026-06-10,6144,2048\n2026-06-09,10240,1024\n",
                 monthly="2026-06-01,2026-06-10,16384,3072\n2026-05-01,2026-05-31,30720,5120\n")
    t = 1781094000  # 2026-06-10 12:20 UTC
    set_clock_marker(sandbox, True)
    sandbox.start(t)
    # A cheap write would have nothing below the first line to keep.
    sandbox.tick(t)
    assert totals(sandbox) == IN_FULL

    # A cheap write keeps at most 23 (59) old lines after the first.
    plant_stale_totals(sandbox, 30, 70, 70)
    sandbox.tick(t + 30)
    assert totals(sandbox) == {"hourly": HOUR + stale(2, 24), "daily": DAY + stale(2, 60),
                               "monthly": MONTH + stale(2, 60)}

    # The marker goes: full; it stays away: cheap; it comes back: full.
    set_clock_marker(sandbox, False)
    sandbox.tick(t + 60)
    assert totals(sandbox) == IN_FULL
    plant_stale_totals(sandbox, 3, 3, 3)
    sandbox.tick(t + 90)
    assert totals(sandbox) == {"hourly": HOUR + stale(2, 3), "daily": DAY + stale(2, 3),
                               "monthly": MONTH + stale(2, 3)}
    set_clock_marker(sandbox, True)
    sandbox.tick(t + 120)
    assert totals(sandbox) == IN_FULL

    # Hour 12 closes: only the hourly file is written in full.
    plant_stale_totals(sandbox, 3, 3, 3)
    sandbox.tick(t + 2410)  # 13:00:10
    assert totals(sandbox) == {"hourly": "2026-06-10-13,0,0\n" + IN_FULL["hourly"],
                               "daily": DAY + stale(2, 3), "monthly": MONTH + stale(2, 3)}


def test_a_running_hour_left_out_costs_a_closed_hour_at_each_cheap_write(sandbox):
    """The restored running hour lies before 2009, so its line is left out
    and every cheap write drops the first line on disk, a closed hour, in
    its place, until the clock marker brings a full write; the running hour
    then starts afresh in the current hour with its restored traffic. That
    tick also starts the record's first month, which a full write leaves
    due: the next tick writes the monthly file in full once more."""
    plant_backup(sandbox, 10, hourly="2008-12-31-23,1024,1024\n2026-06-10-11,2048,0\n"
                                     "2026-06-10-10,3072,0\n2026-06-10-09,4096,0\n")
    t = 1781094000  # 2026-06-10 12:20 UTC
    sandbox.start(t)
    found = []
    for k, marker in enumerate((False, False, False, True)):
        set_clock_marker(sandbox, marker)
        sandbox.tick(t + 30 * k)
        found.append(totals(sandbox)["hourly"])
    assert found == [
        "2026-06-10-11,2,0\n2026-06-10-10,3,0\n2026-06-10-09,4,0\n",
        "2026-06-10-10,3,0\n2026-06-10-09,4,0\n",
        "2026-06-10-09,4,0\n",
        "2026-06-10-12,1,1\n2026-06-10-11,2,0\n2026-06-10-10,3,0\n2026-06-10-09,4,0\n",
    ]
    plant_stale_totals(sandbox, 3, 3, 3)
    sandbox.tick(t + 120)
    assert totals(sandbox) == {"hourly": "2026-06-10-12,1,1\n" + stale(2, 3),
                               "daily": "2026-06-10,0,0\n" + stale(2, 3),
                               "monthly": "2026-06-01,2026-06-30,0,0\n"}
