"""Drives a VLAN's traffic through the statistics file, one client per VLAN,
and reads back the six files the daemon publishes for the VLAN."""

import os

from statfile import build, mac, record, write_stats

CLOCK_MARKER = "/var/run/ostra/time_initialized"
KIB = 1024
VLAN_FILES = ("usage_history.hourly", "usage_history.daily", "usage_history.monthly",
              "sw_usage_hourly.csv", "sw_usage_daily.csv", "sw_usage_monthly.csv")


def vlan_dir(vlan):
    return f"/var/run/ostra/tally_sw_usage/{vlan % 100}/{vlan}/sw_vlan"


def set_clock_marker(sb, present):
    host = sb.path(CLOCK_MARKER)
    if present:
        os.makedirs(os.path.dirname(host), exist_ok=True)
        open(host, "w").close()
    elif os.path.exists(host):
        os.unlink(host)


class Traffic:
    """One client per VLAN whose cumulative counters grow by the traffic
    wanted in each tick. A client's first two differing samples only set
    its baselines, so start() spends two ticks on that before any traffic
    counts."""

    def __init__(self, sb, vlans):
        self.sb = sb
        # Baselines of zero would be taken again rather than counted from.
        self.counters = {vlan: [1000, 1000] for vlan in vlans}

    def start(self, t, marker=True):
        """Starts the daemon at t and primes the clients with ticks at t + 10
        and t + 40, which carry no traffic; returns the time of the last."""
        set_clock_marker(self.sb, marker)
        self.sb.start(t)
        self._write()
        self.sb.tick(t + 10)
        for c in self.counters.values():
            c[0] += 1000
            c[1] += 1000
        self._write()
        self.sb.tick(t + 40)
        return t + 40

    def tick(self, t, first=0, second=0, per_vlan=None):
        """Ticks at t with first and second bytes of traffic on every VLAN,
        or with per_vlan {vlan: (first, second)}."""
        for vlan, c in self.counters.items():
            f, s = per_vlan.get(vlan, (0, 0)) if per_vlan is not None else (first, second)
            c[0] += f
            c[1] += s
        self._write()
        return self.sb.tick(t)

    def _write(self):
        records = [record(vlan, f"10.0.{vlan // 256}.{vlan % 256}", first, second)
                   for vlan, (first, second) in self.counters.items()]
        write_stats(self.sb, build([(mac(0x0200000000AA), records)]))


def plant_backup(sb, vlan, **texts):
    """A backup tree holding the VLAN, with tally.<period>.csv for each
    period=text given."""
    d = sb.path(f"/tmp/tally_sw_usage/{vlan % 100}/{vlan}/sw_vlan")
    os.makedirs(d)
    for period, text in texts.items():
        with open(f"{d}/tally.{period}.csv", "w") as f:
            f.write(text)


def period_files(sb, pattern):
    """{period: text} of the hourly, daily and monthly files named by
    pattern with the period in place of {}; a missing file reads as None."""
    found = {}
    for period in ("hourly", "daily", "monthly"):
        try:
            with open(sb.path(pattern.format(period))) as f:
                found[period] = f.read()
        except FileNotFoundError:
            found[period] = None
    return found


def vlan_file(sb, vlan, name):
    with open(sb.path(f"{vlan_dir(vlan)}/{name}")) as f:
        return f.read()


def write_vlan_file(sb, vlan, name, text):
    with open(sb.path(f"{vlan_dir(vlan)}/{name}"), "w") as f:
        f.write(text)


def vlan_files(sb, vlan, names=VLAN_FILES):
    """{name: text} of the VLAN's files; a missing file reads as None."""
    found = {}
    for name in names:
        try:
            found[name] = vlan_file(sb, vlan, name)
        except FileNotFoundError:
            found[name] = None
    return found


def rollover_logs(sb):
    """The texts of the monthly rollover's log messages so far."""
    return [text for _, ident, text in sb.logs()
            if ident == "tally" and text.startswith("wu_monthly_rollover()")]


def shown(histories, running):
    """The six files of a VLAN as vlan_files() reads them, from the texts of
    the hourly, daily and monthly histories (None where never written) and
    the running hour's, day's and month's lines, each display file being
    its running line over its history."""
    files = dict(zip(VLAN_FILES[:3], histories))
    files.update((name, line + (history or ""))
                 for name, line, history in zip(VLAN_FILES[3:], running, histories))
    return files
