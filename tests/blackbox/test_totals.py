"""The all-VLAN totals files: sums taken position by position over every
VLAN's running periods, rings and monthly history, and when a file is
rewritten in full or only has its first line replaced."""

import datetime

from vlanfiles import Traffic, period_files, plant_backup, set_clock_marker

TOTALS = "/var/run/ostra/tally_sw_usage/sw_usage_{}_total.csv"


def stale(first, last):
    return "".join(f"stale line {k}\n" for k in range(first, last + 1))


def plant_stale_totals(sb, *counts):
    """Totals files of so many stale lines, to tell a full write, which
    replaces them, from a cheap one, which keeps all but the first."""
    for period, n in zip(("hourly", "daily", "monthly"), counts):
        with open(sb.path(TOTALS.format(period)), "w") as f:
            f.write(stale(1, n))


def months_back(n):
    """n monthly backup lines from January 2024 backwards; the k-th carries
    k KiB and 1 KiB."""
    out, end = [], datetime.date(2024, 2, 1)
    for k in range(1, n + 1):
        end = end.replace(day=1) - datetime.timedelta(days=1)
        out.append(f"{end:%Y-%m}-01,{end},{k * 1024},1024\n")
    return "".join(out)


def test_sums_every_vlan_position_by_position(sandbox):
    """VLAN 10 has 3 closed hours, VLAN 20 has 10 (and fewer closed days),
    and halves of KiB add up before they are cut. VLAN 30 turns up in the
    statistics while the clock marker is missing, so its periods never
    start: it adds nothing, not even a running period dated 1970. VLAN 20's
    monthly history has 70 months, of which the totals take 59; the running
    month ends on its last day, not on the records' 10th."""
    plant_backup(sandbox, 10,
                 hourly="2024-02-10-12,1536,1024\n2024-02-10-11,1536,0\n"
                        "2024-02-10-10,2048,0\n2024-02-10-09,3072,0\n",
                 daily="2024-02-10,3072,1024\n2024-02-09,1536,512\n2024-02-08,2048,0\n",
                 monthly="2024-02-01,2024-02-10,1536,1024\n"
                         "2024-01-01,2024-01-31,1024,1024\n2023-12-01,2023-12-31,2048,1024\n")
    plant_backup(sandbox, 20,
                 hourly="2024-02-10-12,1536,2048\n2024-02-10-11,1536,1024\n"
                        + "".join(f"2024-02-10-{h:02d},{(15 - h) * 1024},1024\n" for h in range(10, 1, -1)),
                 daily="2024-02-10,1024,1024\n2024-02-09,1536,512\n",
                 monthly="2024-02-01,2024-02-10,1536,3072\n" + months_back(70))
    set_clock_marker(sandbox, False)
    sandbox.start(1707567600)  # 2024-02-10 12:20 UTC
    Traffic(sandbox, [30]).tick(1707567630)
    found = period_files(sandbox, TOTALS)
    months = found.pop("monthly").splitlines()
    assert found == {
        "hourly": "2024-02-10-12,3,3\n2024-02-10-11,3,1\n2024-02-10-10,7,1\n"
                  "2024-02-10-09,9,1\n2024-02-10-08,7,1\n2024-02-10-07,8,1\n"
                  "2024-02-10-06,9,1\n2024-02-10-05,10,1\n2024-02-10-04,11,1\n"
                  "2024-02-10-03,12,1\n2024-02-10-02,13,1\n",
        "daily": "2024-02-10,4,2\n2024-02-09,3,1\n2024-02-08,2,0\n",
    }
    # Months 1 and 2 of both VLANs, then VLAN 20's alone up to its 59th.
    assert (len(months), months[:4], months[-1]) == (60, [
        "2024-02-01,2024-02-29,3,4", "2024-01-01,2024-01-31,2,2", "2023-12-01,2023-12-31,4,2",
        "2023-11-01,2023-11-30,3,1"], "2019-03-01,2019-03-31,59,1")


# VLAN 10 restored on 2026-06-10 with two closed hours, one closed day and
# one closed month, and no traffic afterwards.
HOUR, DAY, MONTH = "2026-06-10-12,2,1\n", "2026-06-10,6,2\n", "2026-06-01,2026-06-30,16,3\n"
IN_FULL = {"hourly": HOUR + "2026-06-10-11,1,1\n2026-06-10-10,3,0\n", "daily": DAY + "2026-06-09,10,1\n",
           "monthly": MONTH + "2026-05-01,2026-05-31,30,5\n"}


def cheap(hours, days, months):
    """The running lines over the stale lines 2 to n that a cheap write keeps."""
    return {"hourly": HOUR + stale(2, hours), "daily": DAY + stale(2, days),
            "monthly": MONTH + stale(2, months)}


def test_full_writes_come_with_the_first_tick_a_clock_change_and_a_closed_period(sandbox):
    plant_backup(sandbox, 10,
                 hourly="2026-06-10-12,2560,1024\n2026-06-10-11,1024,1024\n2026-06-10-10,3072,0\n",
                 daily="2026-06-10,6144,2048\n2026-06-09,10240,1024\n",
                 monthly="2026-06-01,2026-06-10,16384,3072\n2026-05-01,2026-05-31,30720,5120\n")
    t = 1781094000  # 2026-06-10 12:20 UTC
    set_clock_marker(sandbox, True)
    sandbox.start(t)
    for seconds, marker, planted, expected in [
            # A cheap write would have nothing below the first line to keep.
            (0, True, None, IN_FULL),
            # A cheap write keeps at most 23 (59) old lines after the first.
            (30, True, (30, 70, 70), cheap(24, 60, 60)),
            # The marker goes: full; it stays away: cheap; it comes back: full.
            (60, False, None, IN_FULL),
            (90, False, (3, 3, 3), cheap(3, 3, 3)),
            (120, True, None, IN_FULL),
            # Hour 12 closes at 13:00:10: only the hourly file is written in full.
            (2410, True, (3, 3, 3), dict(cheap(3, 3, 3), hourly="2026-06-10-13,0,0\n" + IN_FULL["hourly"])),
    ]:
        if planted:
            plant_stale_totals(sandbox, *planted)
        set_clock_marker(sandbox, marker)
        sandbox.tick(t + seconds)
        assert period_files(sandbox, TOTALS) == expected, f"{seconds} s on"


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
        found.append(period_files(sandbox, TOTALS)["hourly"])
    assert found == [
        "2026-06-10-11,2,0\n2026-06-10-10,3,0\n2026-06-10-09,4,0\n",
        "2026-06-10-10,3,0\n2026-06-10-09,4,0\n",
        "2026-06-10-09,4,0\n",
        "2026-06-10-12,1,1\n2026-06-10-11,2,0\n2026-06-10-10,3,0\n2026-06-10-09,4,0\n",
    ]
    plant_stale_totals(sandbox, 3, 3, 3)
    sandbox.tick(t + 120)
    assert period_files(sandbox, TOTALS) == {"hourly": "2026-06-10-12,1,1\n" + stale(2, 3),
                                             "daily": "2026-06-10,0,0\n" + stale(2, 3),
                                             "monthly": "2026-06-01,2026-06-30,0,0\n"}
