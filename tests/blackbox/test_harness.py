"""Checks the harness itself: no signal is lost at the idle hand-off, and
background commands are waited for."""

import os
import signal

from statfile import T0


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
