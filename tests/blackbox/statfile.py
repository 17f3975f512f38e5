"""Statistics files as the appliance's sFlow agent writes them, big-endian,
built field by field and put in place whole, as the agent does; and T0, the
clock at which most scenarios start."""

import os
import struct

T0 = 1795256225  # Sat 2026-11-21 10:17:05 UTC
STATS = "/var/run/sflow/stat.bin"
MAGIC = 0x098AFE01
HEADER = struct.Struct(">II")      # magic, host count
HOST = struct.Struct(">6s2xII")    # MAC, record count, record offset
RECORD_SIZE = 168


def record(vlan, ip, first, second, tag=0, valid=1):
    """One client record; ip is dotted text."""
    out = bytearray(RECORD_SIZE)
    struct.pack_into(">HHB", out, 0, vlan, tag, valid)
    out[8:12] = bytes(int(part) for part in ip.split("."))
    struct.pack_into(">Q", out, 40, second)
    struct.pack_into(">Q", out, 96, first)
    return bytes(out)


def build(stations, magic=MAGIC):
    """stations: list of (mac bytes, [records]); records follow the descriptors."""
    at = HEADER.size + HOST.size * len(stations)
    head = bytearray(HEADER.pack(magic, len(stations)))
    body = bytearray()
    for mac, records in stations:
        head += HOST.pack(mac, len(records), at + len(body))
        for r in records:
            body += r
    return bytes(head + body)


def mac(n):
    return n.to_bytes(6, "big")


def write_stats(sb, data):
    """Replaces the sandbox's statistics file by data; the daemon never
    sees half a file."""
    host = sb.path(STATS)
    os.makedirs(os.path.dirname(host), exist_ok=True)
    with open(host + ".new", "wb") as f:
        f.write(data)
    os.replace(host + ".new", host)
