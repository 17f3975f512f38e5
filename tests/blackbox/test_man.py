"""The manual pages are clean under mandoc's lint, with their references
to one another found as they are once installed side by side."""

import glob
import os
import subprocess

HERE = os.path.dirname(__file__)
PAGES = sorted(glob.glob(os.path.join(HERE, "..", "..", "docs", "man", "*.[18]")))
MAN = "/usr/share/man"


def test_every_page_is_clean_under_mandoc_lint():
    assert len(PAGES) == 4
    # mandoc looks up the pages that .Xr names in the system's directory and
    # its database: the pages alone stand in it here, indexed.
    binds = []
    for page in PAGES:
        binds += ["--ro-bind", page, f"{MAN}/man{page[-1]}/{os.path.basename(page)}"]
    lint = subprocess.run(["bwrap", "--dev-bind", "/", "/", "--tmpfs", MAN, *binds, "sh", "-c",
                           f'makewhatis {MAN} && exec mandoc -T lint "$@"', "sh", *PAGES],
                          capture_output=True, text=True, timeout=60)
    assert (lint.returncode, lint.stdout, lint.stderr) == (0, "", "")
