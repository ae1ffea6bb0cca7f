"""Runs a module of tests, or what QUORVANE_SELECT names of it, and tells failures briefly."""
# python3 -m laboratory MODULE; QUORVANE_SELECT is CLASS[.TEST[.ROW]].

import os
import socket
import sys
import traceback
import unittest
from pathlib import Path
from typing import Any

from . import rows


class Brief(unittest.TextTestResult):
    """A failure is what its assertion says and its place in the suite, on one screen."""

    def _exc_info_to_string(self, err: Any, test: Any) -> str:
        kind, value, trace = err
        places = [f"{Path(frame.filename).name}:{frame.lineno}"
                  for frame in traceback.extract_tb(trace) if "/tests/" in frame.filename]
        said = [line[:1600] for line in str(value).splitlines()[:14]]
        return "\n".join((*said, f"  {kind.__name__} at {', '.join(places[-2:])}", ""))


# Connecting a datagram socket sends nothing: it asks for a route.
if socket.socket(type=socket.SOCK_DGRAM).connect_ex(("127.0.0.1", 9)) != 0:
    print("SKIPPED: no loopback network")
    sys.exit(1 if os.environ.get("QUORVANE_TESTS_COMPLETE") == "1" else 77)
words = os.environ.get("QUORVANE_SELECT", "").split(".", 2)
rows.SELECTED_ROW = ".".join(words[2:])
loader = unittest.TestLoader()
loader.testNamePatterns = [f"*.{'.'.join(words[:2])}*"]
result = unittest.TextTestRunner(resultclass=Brief).run(loader.loadTestsFromName(sys.argv[1]))
if not result.testsRun or (rows.SELECTED_ROW and not rows.met_rows):
    sys.exit(f"nothing in {sys.argv[1]} matches {'.'.join(words)}")
sys.exit(not result.wasSuccessful())
