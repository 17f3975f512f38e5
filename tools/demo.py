#!/usr/bin/env python3
"""Runs the built daemon in a sandbox through one fast-forwarded day of
30-second ticks, fed by the sFlow agent simulator, and shows what it wrote,
logged and ran, and what tally-report makes of it."""

import argparse
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "sandbox"))
from sandbox import Sandbox  # noqa: E402

START = 1795215600  # Fri 2026-11-20 23:00:00 UTC: the day closes on the way
TICK = 30
TICKS = 25 * 3600 // TICK
AGENT_INTERVAL = 10  # ticks between two statistics files
STATS = "/var/run/sflow/stat.bin"
RUN_ROOT = "/var/run/ostra/tally_sw_usage"
TOTALS = ["sw_usage_hourly_total.csv", "sw_usage_daily_total.csv", "sw_usage_monthly_total.csv"]
VLAN_FILES = ["sw_usage_hourly.csv", "sw_usage_daily.csv", "sw_usage_monthly.csv",
              "usage_history.hourly", "usage_history.daily", "usage_history.monthly"]


def show_tree(sb, top):
    print(f"\n{top}:")
    base = sb.path(top)
    for dirpath, dirs, files in sorted(os.walk(base)):
        dirs.sort()
        rel = os.path.relpath(dirpath, base)
        depth = 0 if rel == "." else rel.count("/") + 1
        if rel != ".":
            print("  " * depth + os.path.basename(dirpath) + "/")
        for name in sorted(files):
            size = os.path.getsize(os.path.join(dirpath, name))
            print("  " * (depth + 1) + f"{name} ({size} bytes)")


def show_file(sb, path, head=6):
    if not os.path.exists(sb.path(path)):
        print(f"\n{path}: not written yet")
        return
    with open(sb.path(path)) as f:
        lines = f.read().splitlines()
    print(f"\n{path} ({len(lines)} lines):")
    for line in lines[:head]:
        print("  " + line)
    if len(lines) > head:
        print(f"  ... {len(lines) - head} more")


def show_report(report, root, *view):
    shown = subprocess.run([report, *view, "--root", root], capture_output=True, text=True, check=True)
    print(f"\n{' '.join(['tally-report', *view])}:")
    for line in shown.stdout.splitlines():
        print("  " + line)


def main():
    ap = argparse.ArgumentParser(description=__doc__)
    ap.add_argument("--daemon", required=True)
    ap.add_argument("--fakeclock", required=True)
    ap.add_argument("--statgen", required=True, help="a tally-statgen that runs on this host")
    ap.add_argument("--report", required=True, help="a tally-report that runs on this host")
    ap.add_argument("--emulator", default=None)
    args = ap.parse_args()

    emulator = args.emulator.split() if args.emulator else None
    with Sandbox(args.daemon, args.fakeclock, emulator) as sb, \
            tempfile.TemporaryDirectory() as work:
        def agent():
            subprocess.run([args.statgen, "--out", sb.path(STATS), "--state", f"{work}/agent",
                            "--hosts", "40", "--vlans", "3", "--first-vlan", "10",
                            "--rate", "300000", "--seed", "7"], check=True)

        os.makedirs(sb.path("/var/run/sflow"))
        os.makedirs(sb.path("/var/run/ostra"))
        open(sb.path("/var/run/ostra/time_initialized"), "w").close()
        agent()
        sb.start(START)
        for n in range(1, TICKS + 1):
            if n % AGENT_INTERVAL == 0:
                agent()
            sb.tick(START + n * TICK)
        sb.signal(__import__("signal").SIGUSR1)
        print(f"ran {TICKS} ticks of {TICK} s from {START} (2026-11-20 23:00 UTC), "
              f"40 clients on VLANs 10 to 12, the agent writing every {AGENT_INTERVAL} ticks")
        status = sb.stop()

        print("\nsyslog:")
        for prio, ident, text in sb.logs():
            print(f"  <{prio}> {ident}: {text}")
        commands = sb.commands()
        print(f"\ncommands run: {len(commands)}, of which configuration saves: "
              f"{commands.count('saveconfig usage')}")
        show_tree(sb, "/var/run/ostra/tally_sw_usage/10")
        for name in VLAN_FILES:
            show_file(sb, f"/var/run/ostra/tally_sw_usage/10/10/sw_vlan/{name}")
        clients = "/var/run/ostra/tally_sw_usage/10/10/sw_client"
        for period, name in (("hourly", "2026-11-21-23.csv"), ("daily", "2026-11-21.csv"),
                             ("monthly", "2026-11-01.csv")):
            show_file(sb, f"{clients}/sw_client_usage_{period}/{name}", head=4)
        for name in TOTALS:
            show_file(sb, f"/var/run/ostra/tally_sw_usage/{name}", head=4)
        show_tree(sb, "/tmp/tally_sw_usage/10")
        print(f"\nexit status after SIGTERM: {status}")
        show_report(args.report, sb.path(RUN_ROOT))
        show_report(args.report, sb.path(RUN_ROOT), "clients", "10", "2026-11-21")


if __name__ == "__main__":
    main()
