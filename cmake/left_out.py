#!/usr/bin/env python3
"""Says in one line which tests were left out and why: left_out.py BUILD_FOLDER

CMake names in left-out.txt those that lack a tool; a test that cannot run here, or a part of one,
prints "SKIPPED: reason".  With QUORVANE_TESTS_COMPLETE=1 the exit status is 1 if there is any.
"""

import os
import sys
import xml.etree.ElementTree as xml
from pathlib import Path

build = Path(sys.argv[1])
names: dict[str, list[str]] = {}
for line in (build / "left-out.txt").read_text().splitlines():
    name, _, reason = line.partition(": ")
    names.setdefault(reason, []).append(name)
if (build / "tests.xml").exists():
    for case in xml.parse(build / "tests.xml").iter("testcase"):
        lines = case.findtext("system-out", "").splitlines()
        for reason in {line[9:] for line in lines if line.startswith("SKIPPED: ")}:
            names.setdefault(reason, []).append(case.get("name", ""))
if names:
    print("Left out: " + "; ".join(f"{', '.join(sorted(which))} ({reason})"
                                   for reason, which in sorted(names.items())))
    sys.exit(os.environ.get("QUORVANE_TESTS_COMPLETE") == "1")
