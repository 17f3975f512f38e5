"""The examples of docs/files.md are what the daemon writes: each block
tagged with a file (or a command) is compared with the real thing."""

import os
import re
import signal

from vlanfiles import KIB, Traffic
from test_restart import NEXT_MORNING, T0

DOC = os.path.join(os.path.dirname(__file__), "..", "..", "docs", "files.md")
BLOCK = re.compile(r"```text (file|command)=(\S+(?: /\S+)?)(?: when=(\S+))?\n(.*?)```", re.S)
DECEMBER = 1796083230  # Tue 2026-12-01 00:00:30 UTC


def examples():
    with open(DOC) as f:
        return BLOCK.findall(f.read())


def check(sb, run_tool, found, when):
    for kind, what, at, text in found:
        if at != when:
            continue
        if kind == "file":
            with open(sb.path(what)) as f:
                assert f.read() == text, what
        else:
            tool, path = what.split()
            assert run_tool(tool, sb.path(path)).stdout == text, what


def test_every_example_is_what_the_daemon_writes(sandbox, run_tool):
    found = examples()
    assert len(found) >= 15
    traffic = Traffic(sandbox, [10, 20])
    traffic.start(T0)
    for t in (T0 + 1800, T0 + 5400, NEXT_MORNING):
        traffic.tick(t, per_vlan={10: (4 * KIB, KIB), 20: (8 * KIB, 2 * KIB)})
    sandbox.signal(signal.SIGUSR1)
    check(sandbox, run_tool, found, "")
    traffic.tick(DECEMBER)
    check(sandbox, run_tool, found, "2026-12-01")
