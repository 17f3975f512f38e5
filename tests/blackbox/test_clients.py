"""Client files through the daemon: periods closing on the hour, the day's
and month's files keeping what the hour's drop, a period reloaded from the
backup when the clock goes back into it, and files dated in the future."""

import os
import signal

from statfile import T0, build, mac, record, write_stats

CLIENTS = "/var/run/ostra/tally_sw_usage/10/10/sw_client"
A = "10.0.0.1,{},{},00:00:00:00:00:01,0\n"
B = "10.0.0.2,{},{},00:00:00:00:00:02,0\n"


def feed(sb, t, a, b):
    """Client A on MAC 1 and client B on MAC 2, VLAN 10, with these
    cumulative (first, second) counters; then one tick at t."""
    write_stats(sb, build([(mac(1), [record(10, "10.0.0.1", *a)]),
                           (mac(2), [record(10, "10.0.0.2", *b)])]))
    sb.tick(t)


def files(sb, period):
    d = sb.path(f"{CLIENTS}/sw_client_usage_{period}")
    out = {}
    for name in sorted(os.listdir(d)):
        with open(os.path.join(d, name)) as f:
            out[name] = f.read()
    return out


def test_client_periods_close_and_reload(sandbox):
    os.makedirs(sandbox.path("/var/run/sflow"))
    os.makedirs(sandbox.path("/var/run/ostra"))
    open(sandbox.path("/var/run/ostra/time_initialized"), "w").close()
    sandbox.start(T0)
    kib = 1024
    # A client's first two samples only set its baselines.
    feed(sandbox, T0 + 30, (1000, 1000), (1000, 1000))
    feed(sandbox, T0 + 60, (2000, 2000), (2000, 2000))
    feed(sandbox, T0 + 90, (2000 + 10 * kib, 2000), (2000 + 20 * kib, 2000))
    # 11:00:05, and only A moves.
    a = (2000 + 15 * kib, 2000 + kib)
    feed(sandbox, 1795258805, a, (2000 + 20 * kib, 2000))
    assert files(sandbox, "hourly") == {
        "2026-11-21-10.csv": A.format(10, 0) + B.format(20, 0),
        "2026-11-21-11.csv": A.format(5, 1),
    }
    assert files(sandbox, "daily") == {"2026-11-21.csv": A.format(15, 1) + B.format(20, 0)}
    assert files(sandbox, "monthly") == {"2026-11-01.csv": A.format(15, 1) + B.format(20, 0)}

    # Back to 10:50: the hour's figures come back from the backup; A's next
    # sample then only takes a baseline there, while the day counts it.
    sandbox.signal(signal.SIGUSR1)
    feed(sandbox, 1795258200, (a[0] + kib, a[1]), (2000 + 20 * kib, 2000))
    assert files(sandbox, "hourly") == {"2026-11-21-10.csv": A.format(10, 0) + B.format(20, 0)}, \
        "the 11 o'clock file now lies in the future and is gone"
    assert files(sandbox, "daily") == {"2026-11-21.csv": A.format(16, 1) + B.format(20, 0)}
