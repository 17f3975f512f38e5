#!/usr/bin/python3
"""Runs one fuzz target for a while in a sandbox whose /tmp and /var/run are
a scratch tree on one file system, as the daemon's paths want, starting from
the seeds that seeds.py makes; prints one line of figures and exits with the
target's status (non-zero on a finding, which is kept in the work directory).

Usage: run.py TARGET SECONDS WORKDIR
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

import seeds

LIB_ENTRIES = ("bin", "sbin", "lib", "lib32", "lib64", "libx32")


def sandboxed(root, work, binary):
    cmd = [shutil.which("bwrap"), "--bind", root, "/", "--ro-bind", "/usr", "/usr",
           "--ro-bind", "/etc", "/etc", "--proc", "/proc", "--dev", "/dev",
           "--bind", work, work, "--ro-bind", binary, binary,
           "--unshare-pid", "--die-with-parent", "--chdir", work]
    for entry in LIB_ENTRIES:
        src = "/" + entry
        if os.path.islink(src):
            cmd += ["--symlink", os.readlink(src), src]
        elif os.path.isdir(src):
            cmd += ["--ro-bind", src, src]
    return cmd


def main():
    binary, seconds, work = os.path.realpath(sys.argv[1]), int(sys.argv[2]), os.path.realpath(sys.argv[3])
    name = os.path.basename(binary).removeprefix("fuzz_")
    corpus, seed_dir = os.path.join(work, "corpus"), os.path.join(work, "seeds")
    for d in (corpus, seed_dir):
        os.makedirs(d, exist_ok=True)
    seeds.write(name, seed_dir)
    root = tempfile.mkdtemp(prefix="tally-fuzz-", dir="/dev/shm")
    try:
        for d in ("tmp", "run", "var"):
            os.mkdir(os.path.join(root, d))
        os.symlink("../run", os.path.join(root, "var/run"))
        args = [binary, f"-max_total_time={seconds}", "-print_final_stats=1",
                "-rss_limit_mb=1024", f"-artifact_prefix={work}/", corpus, seed_dir]
        done = subprocess.run(sandboxed(root, work, binary) + args,
                              capture_output=True, text=True)
    finally:
        shutil.rmtree(root, ignore_errors=True)
    runs = re.search(r"stat::number_of_executed_units: (\d+)", done.stderr)
    print(f"{name}: {int(runs[1]) if runs else 0:,} runs in {seconds} s, "
          f"corpus {len(os.listdir(corpus))} inputs, "
          + ("no finding" if done.returncode == 0 else f"FINDING (status {done.returncode})"))
    if done.returncode != 0:
        print(done.stderr[-6000:], file=sys.stderr)
    return done.returncode


if __name__ == "__main__":
    sys.exit(main())
