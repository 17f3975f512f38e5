"""Seed inputs of the fuzz targets, made here rather than kept as opaque
files: statistics files built field by field, and history, backup, totals
and client lines as the daemon writes them, with a few edited by hand."""

import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "tests", "blackbox"))
from statfile import build, mac, record  # noqa: E402

SEP = b"====\n"

HOURS = b"2026-11-30-22,4096,1024\n2026-11-30-21,2048,1024\n2026-11-30-21,1,1\n"
DAYS = b"2026-11-30,8192,2048\n2026-11-29,1024,0\n2026-11-2x,5,5\n"
MONTHS_IN_BYTES = b"2026-11-01,2026-11-30,8192,2048\n2026-10-01,2026-10-31,10240,20480\n"
MONTHS_IN_KIB = (b"2026-10-01,2026-10-31,10,20\n2026-09-01,2026-09-xx,1,2\n"
                 b"2026-08-01,2026-08-31,5000000000,4294967296\n2008-12-01,2008-12-31,1,1\n")
CLIENTS = (b"10.0.0.1,4,1,00:11:22:33:44:55,0\n10.0.0.2,1,0,,7\n010.0.0.9,3,3,0A:0B,65535\n"
           b"10.0.0.1,9,9,00:11:22:33:44:55,0\nnot a client line\n")
TOTALS = (b"2026-11-30-22,12,3\n2026-11-30-21,2,1\n", b"2026-11-30,12,3\n",
          b"2026-11-01,2026-11-30,12,3\n2026-10-01,2026-10-31,10,20\n")


def stats(step=1):
    return build([(mac(0x0200000000AA), [record(10, "10.0.0.1", 4096 * step, 1024 * step),
                                         record(20, "10.0.0.2", 8192 * step, 2048 * step)]),
                  (mac(0x0200000000BB), [record(10, "10.0.0.1", 100 * step, 10 * step, tag=7),
                                         record(0, "0.0.0.0", 1, 1, valid=0)])])


def seeds(name):
    if name == "stats":
        return [stats(), stats(3), build([])]
    if name == "lines":
        return [line for text in (HOURS, DAYS, MONTHS_IN_BYTES, MONTHS_IN_KIB)
                for line in text.splitlines(keepends=True)]
    if name == "client_lines":
        return [CLIENTS]
    if name == "restore":
        return [SEP.join((HOURS, DAYS, MONTHS_IN_BYTES)), SEP.join((b"", b"", MONTHS_IN_BYTES[:40]))]
    if name == "tick":
        return [SEP.join((settings, stats(), MONTHS_IN_KIB) + TOTALS)
                for settings in (b"\x00\x00", b"\x00\x01", b"\x00\x02", b"\x00\x03", b"\x01\x04",
                                 b"\x00\x05")]
    raise ValueError(f"no seeds for {name}")


def write(name, directory):
    for i, data in enumerate(seeds(name)):
        with open(os.path.join(directory, f"seed-{i}"), "wb") as f:
            f.write(data)
