"""The field: the RAM disk that /tmp and /var/run share fills up, other
programs plant names in /tmp, directories cannot be written. Nothing the
daemon had is lost, nothing outside its trees changes, and it keeps ticking."""

import errno
import os
import re
import signal

import pytest

from statfile import T0
from vlanfiles import KIB, Traffic

TREES = ("/var/run/ostra/tally_sw_usage", "/tmp/tally_sw_usage")
DATE = r"\d{4}-\d\d-\d\d"
LINE = re.compile("|".join([
    rf"{DATE}(-\d\d)?,\d+,\d+",                                   # hour or day
    rf"{DATE},{DATE},\d+,\d+",                                    # month
    r"\d+\.\d+\.\d+\.\d+,\d+,\d+,([0-9A-F]{2}(:[0-9A-F]{2}){5})?,\d+",  # client
]))
# The client copies that the backup pass makes with cp: once the first
# copy stands, later passes copy into a nested sw_client, which a full disk
# can leave cut. A restore reads only the first copy.
NESTED_COPY = re.compile(r"/tmp/tally_sw_usage/.*/sw_client/sw_client/")

NOV_30_2240 = 1796078400  # Mon 2026-11-30 22:40:00 UTC
# Ticks while the disk is full close an hour, then an hour, a day and the
# month of November; a backup pass runs among them.
WHILE_FULL = [NOV_30_2240 + 900, NOV_30_2240 + 1210, "backup", NOV_30_2240 + 4800,
              NOV_30_2240 + 4810]
AFTER = NOV_30_2240 + 5400


def files(sb):
    """{path: text} of every file of both trees."""
    found = {}
    for top in TREES:
        for d, _, names in os.walk(sb.path(top)):
            for name in names:
                path = os.path.join(d, name)
                with open(path) as f:
                    found[path[len(sb.root):]] = f.read()
    return found


def whole(text):
    return text == "" or (text.endswith("\n") and all(LINE.fullmatch(line)
                                                         for line in text.splitlines()))


def fill(sb):
    """Writes a file outside the daemon's trees until not a byte more fits."""
    fd = os.open(sb.path("/filler"), os.O_WRONLY | os.O_CREAT, 0o600)
    size = 1 << 20
    while size:
        try:
            os.write(fd, bytes(size))
        except OSError as e:
            assert e.errno == errno.ENOSPC
            size //= 2
    os.close(fd)


def run(sb, steps, full=None):
    """Two VLANs counting 4 and 8 KiB a tick until the disk fills, then
    nothing, through steps; full(sb) is called where the disk fills."""
    traffic = Traffic(sb, [10, 20])
    traffic.start(NOV_30_2240)
    traffic.tick(NOV_30_2240 + 600, per_vlan={10: (4 * KIB, KIB), 20: (8 * KIB, KIB)})
    sb.signal(signal.SIGUSR1)
    if full is not None:
        full(sb)
    for step in steps:
        if step == "backup":
            sb.signal(signal.SIGUSR1)
        else:
            sb.tick(step)
        if full is not None:
            full(sb)


def without_november(tree):
    """The tree without the filing of November: filed while the disk was
    full, the month is lost, and the monthly history it began is not there."""
    monthly = ("sw_usage_monthly.csv", "sw_usage_monthly_total.csv", "tally.monthly.csv")
    return {path: "".join(line for line in text.splitlines(keepends=True)
                          if not line.startswith("2026-11-01,2026-11-30,"))
            if path.endswith(monthly) else text
            for path, text in tree.items() if not path.endswith("usage_history.monthly")}


def test_a_full_disk_costs_no_file_and_one_tick_and_pass_mend_every_one(make_sandbox):
    if os.geteuid() != 0:
        pytest.skip("a RAM disk of its own size takes root to mount")
    reference = make_sandbox()
    run(reference, WHILE_FULL + [AFTER, "backup"])

    sb = make_sandbox(size=4 << 20)
    before = {}

    def full(sb):
        if not before:
            before.update(files(sb))
            fill(sb)
        now = files(sb)
        for path, text in before.items():
            assert path in now, f"{path} lost"
            if not NESTED_COPY.search(path):
                assert whole(now[path]), f"{path} cut: {now[path]!r}"
                assert now[path] or not text, f"{path} emptied"
    run(sb, WHILE_FULL, full)
    os.remove(sb.path("/filler"))
    sb.tick(AFTER)
    sb.signal(signal.SIGUSR1)
    assert files(sb) == without_november(files(reference))
    assert not os.path.lexists(sb.path("/tmp/tally.tmp"))
    assert not os.path.lexists(sb.path("/tmp/tally_client.tmp"))


def plant(sb, kind, name):
    """Puts a kind of entry at the in-sandbox path name, aimed at /victim."""
    at, victim = sb.path(name), sb.path("/victim")
    {"symlink": lambda: os.symlink("/victim", at),
     "hard link": lambda: os.link(victim, at),
     "FIFO": lambda: os.mkfifo(at),
     "directory": lambda: os.mkdir(at)}[kind]()


@pytest.mark.parametrize("name", ["/tmp/tally.tmp", "/tmp/tally_client.tmp"])
@pytest.mark.parametrize("kind", ["symlink", "hard link", "FIFO", "directory"])
def test_a_name_planted_in_tmp_is_never_written_through(sandbox, kind, name):
    """Every write makes its temporary file afresh, so a link or FIFO at the
    name is replaced by a file of the daemon's own. A directory cannot be:
    then the files that go through that name are not written."""
    with open(sandbox.path("/victim"), "w") as f:
        f.write("victim\n")
    traffic = Traffic(sandbox, [10])
    traffic.start(T0)
    plant(sandbox, kind, name)
    traffic.tick(T0 + 60, 4 * KIB, KIB)
    traffic.tick(T0 + 90, 4 * KIB, KIB)
    with open(sandbox.path("/victim")) as f:
        assert f.read() == "victim\n"
    written = files(sandbox)
    hourly = "/run/ostra/tally_sw_usage/10/10/sw_client/sw_client_usage_hourly/2026-11-21-10.csv"
    display = "/run/ostra/tally_sw_usage/10/10/sw_vlan/sw_usage_hourly.csv"
    blocked = kind == "directory"
    assert (hourly in written) == (not blocked or name != "/tmp/tally_client.tmp")
    assert (written.get(display) == "2026-11-21-10,8,2\n") == (not blocked or name != "/tmp/tally.tmp")
    assert sandbox.stop() == 0


@pytest.mark.parametrize("blocked", [
    "/tmp/tally_sw_usage",
    "/var/run/ostra/tally_sw_usage/10/10/sw_vlan",
    "/var/run/ostra/tally_sw_usage/10/10/sw_client/sw_client_usage_hourly",
])
def test_a_directory_that_cannot_be_written_costs_only_its_own_files(sandbox, blocked):
    """A file stands where the daemon writes a directory: what goes there is
    not written, the file stays as it is, and everything else is written.
    Once the way is clear again, the next tick and pass write it all."""
    traffic = Traffic(sandbox, [10, 20])
    traffic.start(T0)
    path = sandbox.path(blocked)
    if os.path.isdir(path):
        os.rename(path, path + ".away")
    with open(path, "w") as f:
        f.write("in the way\n")
    traffic.tick(T0 + 60, 4 * KIB, KIB)
    sandbox.signal(signal.SIGUSR1)
    with open(path) as f:
        assert f.read() == "in the way\n"
    written = files(sandbox)
    for vlan in (10, 20):
        top = f"/run/ostra/tally_sw_usage/{vlan % 100}/{vlan}"
        missing = {f"{top}/sw_vlan/sw_usage_hourly.csv": f"{top}/sw_vlan",
                   f"{top}/sw_client/sw_client_usage_hourly/2026-11-21-10.csv":
                       f"{top}/sw_client/sw_client_usage_hourly",
                   f"/tmp/tally_sw_usage/{vlan}/{vlan}/sw_vlan/tally.hourly.csv": "/tmp/tally_sw_usage"}
        for file, directory in missing.items():
            assert (file in written) == (directory != blocked.replace("/var/run", "/run")), file
    os.remove(path)
    if os.path.isdir(path + ".away"):
        os.rename(path + ".away", path)
    traffic.tick(T0 + 90, 4 * KIB, KIB)
    sandbox.signal(signal.SIGUSR1)
    written = files(sandbox)
    assert written["/run/ostra/tally_sw_usage/10/10/sw_vlan/sw_usage_hourly.csv"] == "2026-11-21-10,8,2\n"
    assert written["/tmp/tally_sw_usage/10/10/sw_vlan/tally.hourly.csv"] == "2026-11-21-10,8192,2048\n"
    assert not os.path.lexists(sandbox.path("/tmp/tally.tmp"))
