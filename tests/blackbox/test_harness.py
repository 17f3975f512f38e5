"""Checks the harness itself: the virtual clock reaches the daemon, no signal
is lost at the idle hand-off, and background commands are waited for."""

import os
import signal

# Tue Nov 14 22:13:20 2023 UTC
T0 = 1_700_000_000


def test_daemon_sees_virtual_clock(sandbox):
    idle = sandbox.start(T0)
    assert idle.deadline == T0 + 30
    start_lines = [text for pri, ident, text in sandbox.logs() if ident == "tally" and pri == 29]
    assert len(start_lines) == 1
    assert start_lines[0].endswith(" Tue Nov 14 22:13:20 2023 UTC(+0000)")

    assert sandbox.tick(T0 + 31).deadline == T0 + 61
    # A signal that is not a tick leaves the virtual alarm alone.
    assert sandbox.signal(signal.SIGPIPE).deadline == T0 + 61


def test_signal_sent_at_idle_report_is_never_lost(sandbox):
    # Each signal goes out the moment the report arrives, which is when a
    # pause() that reports and then waits without blocking signals drops one
    # (seen within a few hundred rounds, natively and under qemu).
    seq = sandbox.start(T0).seq
    assert sandbox.signal(signal.SIGPIPE, repeat=2000) == (seq + 2000, T0 + 30)


def test_signal_waits_for_background_command(sandbox):
    # The pause only widens the window: signal() must wait for the command's end.
    sandbox.fake("/usr/local/ostra/bin/saveconfig", "sleep 0.5; touch /tmp/saveconfig.done")
    sandbox.start(T0)
    sandbox.signal(signal.SIGHUP)
    assert os.path.exists(sandbox.path("/tmp/saveconfig.done"))
    assert "saveconfig usage" in sandbox.commands()
    assert sandbox.stop() == 0
