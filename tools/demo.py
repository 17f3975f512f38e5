#!/usr/bin/env python3
"""Runs the built daemon in a sandbox through one fast-forwarded day of
30-second ticks and shows what it wrote, logged and ran."""

import argparse
import os
import signal
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "tests", "blackbox"))
from sandbox import Sandbox  # noqa: E402

START = 1795219200  # Sat 2026-11-21 00:00:00 UTC
TICK = 30
DAY = 24 * 3600


def show_tree(sb, top):
    print(f"\n{top}:")
    base = sb.path(top)
    if not os.path.exists(base):
        print("  (absent)")
        return
    for dirpath, dirs, files in sorted(os.walk(base)):
        dirs.sort()
        rel = os.path.relpath(dirpath, base)
        depth = 0 if rel == "." else rel.count("/") + 1
        if rel != ".":
            print("  " * depth + os.path.basename(dirpath) + "/")
        for name in sorted(files):
            print("  " * (depth + 1) + f"{name} ({os.path.getsize(os.path.join(dirpath, name))} bytes)")


def main():
    ap = argparse.ArgumentParser(description=__doc__)
    ap.add_argument("--daemon", required=True)
    ap.add_argument("--fakeclock", required=True)
    ap.add_argument("--emulator", default=None)
    args = ap.parse_args()

    emulator = args.emulator.split() if args.emulator else None
    with Sandbox(args.daemon, args.fakeclock, emulator) as sb:
        # What the platform put back after a reboot: two VLANs in the backup tree.
        for vlan in (10, 205):
            os.makedirs(sb.path(f"/tmp/tally_sw_usage/{vlan % 100}/{vlan}/sw_vlan"))
        os.makedirs(sb.path("/var/run/ostra"))
        open(sb.path("/var/run/ostra/time_initialized"), "w").close()

        sb.start(START)
        ticks = DAY // TICK
        for n in range(1, ticks + 1):
            sb.tick(START + n * TICK)
        print(f"ran {ticks} ticks, one simulated day from {START}")
        sb.signal(signal.SIGUSR1)
        status = sb.stop()

        print("\nsyslog:")
        for prio, ident, text in sb.logs():
            print(f"  <{prio}> {ident}: {text}")
        commands = sb.commands()
        print(f"\ncommands run ({len(commands)}), first and last five:")
        for line in commands[:5] + ["..."] + commands[-5:]:
            print("  " + line)
        print(f"\nconfiguration saves: {commands.count('saveconfig usage')}")
        show_tree(sb, "/var/run/ostra/tally_sw_usage")
        show_tree(sb, "/tmp/tally_sw_usage")
        print(f"\nexit status after SIGTERM: {status}")


if __name__ == "__main__":
    main()
