"""Statistics files as the appliance's sFlow agent writes them, big-endian,
built field by field for the black-box tests."""

import struct

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
