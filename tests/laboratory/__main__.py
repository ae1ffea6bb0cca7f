"""Runs a module of tests, or what QUORVANE_SELECT names of it, and tells failures briefly."""
# python3 -m laboratory MODULE; QUORVANE_SELECT is CLASS[.TEST[.ROW]].

import os
import sys
import traceback
import unittest
from pathlib import Path
from typing import Any

from . import rows

SELECTED = os.environ.get("QUORVANE_SELECT", "")
MOST_LINES = 14


class Brief(unittest.TextTestResult):
    """A failure is its place in the suite and what its assertion says, on one screen."""

    def _exc_info_to_string(self, error: Any, test: Any) -> str:
        kind, value, trace = error
        frames = traceback.extract_tb(trace)
        said = [line[:400] for line in str(value).splitlines()] or [""]
        said[MOST_LINES:] = ["..."] * (len(said) > MOST_LINES)
        shown = [f for f in frames if "/tests/" in f.filename][-2:] if (
            kind is not AssertionError or "wanted: " not in str(value)) else []
        said += [f"  {kind.__name__} at {Path(f.filename).name}:{f.lineno}" for f in shown]
        return "\n".join((*said, ""))


def main() -> int:
    """The exit status."""
    words = SELECTED.split(".", 2)
    rows.SELECTED_ROW = ".".join(words[2:])
    loader = unittest.TestLoader()
    loader.testNamePatterns = [f"*.{'.'.join(words[:2])}*"] if SELECTED else None
    result = unittest.TextTestRunner(resultclass=Brief).run(loader.loadTestsFromName(sys.argv[1]))
    if SELECTED and (not result.testsRun or (rows.SELECTED_ROW and not rows.met_rows)):
        print(f"nothing in {sys.argv[1]} matches {SELECTED}")
        return 1
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
