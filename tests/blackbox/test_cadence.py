"""The tick and backup cadence: a full backup with the configuration save
every 61st loop pass, SIGHUP for a tick and a full backup now, SIGUSR1 for a
backup without the save."""

import os
import signal

import pytest

from statfile import T0

BACKUP_COPY = "cp -r /var/run/ostra/tally_sw_usage/7/7/sw_client/ /tmp/tally_sw_usage/7/7/sw_client/"
HUP, USR1, ALRM, PIPE = signal.SIGHUP, signal.SIGUSR1, signal.SIGALRM, signal.SIGPIPE


@pytest.fixture
def daemon(sandbox):
    """A daemon with VLAN 7 restored, so that every backup pass shows as
    three copies of its client directory."""
    os.makedirs(sandbox.path("/tmp/tally_sw_usage/7/7/sw_vlan"))
    sandbox.start(T0)
    sandbox.clock = T0
    return sandbox


def events(sb):
    """The backup passes and saves so far, in order."""
    found = []
    copies = 0
    for line in sb.commands():
        if line == BACKUP_COPY:
            copies += 1
            if copies % 3 == 0:
                found.append("backup")
        elif line == "saveconfig usage":
            found.append("save")
    assert copies % 3 == 0, "a backup pass copies its client directory three times"
    return found


def wake(sb, *signals):
    """Advances the clock by a tick period and wakes the loop once with signals."""
    sb.clock += 30
    sb.set_clock(sb.clock)
    return sb.signal(*signals)


def test_a_full_backup_comes_with_every_61st_tick(daemon):
    for _ in range(2):
        for _ in range(60):
            wake(daemon, ALRM)
        before = events(daemon)
        wake(daemon, ALRM)
        assert events(daemon) == before + ["backup", "save"]
    assert events(daemon) == ["backup", "save"] * 2
    assert os.path.isdir(daemon.path("/tmp/tally_sw_usage/7/7/sw_vlan"))


def test_every_wake_up_counts_towards_the_cadence(daemon):
    for _ in range(30):
        ticked = wake(daemon, ALRM)
        wake(daemon, PIPE)
    idle = wake(daemon, PIPE)
    assert events(daemon) == ["backup", "save"]
    assert idle.deadline == ticked.deadline, "SIGPIPE must not tick"


def test_sigusr1_backs_up_without_saving_and_restarts_the_count(daemon):
    for _ in range(10):
        ticked = wake(daemon, ALRM)
    idle = wake(daemon, USR1)
    assert events(daemon) == ["backup"]
    assert idle.deadline == ticked.deadline, "SIGUSR1 must not tick"
    for _ in range(60):
        wake(daemon, ALRM)
    assert events(daemon) == ["backup"]
    wake(daemon, ALRM)
    assert events(daemon) == ["backup", "backup", "save"]


def test_sighup_ticks_now_and_backs_up_with_save(daemon):
    wake(daemon, ALRM)
    daemon.set_clock(daemon.clock + 10)
    idle = daemon.signal(HUP)
    assert idle.deadline == daemon.clock + 10 + 30, "the alarm restarts after the forced tick"
    assert events(daemon) == ["backup", "save"]
    for _ in range(60):
        wake(daemon, ALRM)
    assert events(daemon) == ["backup", "save"]
    wake(daemon, ALRM)
    assert events(daemon) == ["backup", "save"] * 2


@pytest.mark.parametrize("order, expected", [
    ((HUP, USR1), ["backup"]),
    ((USR1, HUP), ["backup", "save", "backup"]),
])
def test_sighup_and_sigusr1_before_one_wake_up(daemon, order, expected):
    wake(daemon, ALRM)
    idle = wake(daemon, *order)
    assert idle.deadline == daemon.clock + 30, "SIGHUP forces a tick"
    assert events(daemon) == expected
