"""Line differences between two texts, with a few unchanged lines around each."""

from __future__ import annotations

import difflib
import os
from dataclasses import dataclass

CONTEXT_LINES = 3
"""Unchanged lines shown before and after a change."""

MAX_LINES = 3000
"""Lines compared, those equal at both ends not counted: the work can grow with their square."""


@dataclass(frozen=True)
class Line:
    """A removed line "-", an added one "+", an unchanged one " ", or a mark "@" for omitted lines.

    `old` and `new` are its numbers on the two sides, from 1; None where it does not exist.
    """

    kind: str
    old: int | None
    new: int | None
    text: str


def differences(old_text: str, new_text: str) -> list[Line] | None:
    """The changed lines and their surroundings: empty for equal texts, None for too many."""
    if old_text == new_text:
        return []
    old, new = old_text.split("\n"), new_text.split("\n")
    # Equal lines at both ends are skipped, except for the surroundings of a change.
    start = max(0, len(os.path.commonprefix([old, new])) - CONTEXT_LINES)
    rest = max(0, len(os.path.commonprefix([old[start:][::-1], new[start:][::-1]])) - CONTEXT_LINES)
    old_part, new_part = old[start:len(old) - rest], new[start:len(new) - rest]
    if max(len(old_part), len(new_part)) > MAX_LINES:
        return None
    lines: list[Line] = []
    shown = 0
    matcher = difflib.SequenceMatcher(None, old_part, new_part)
    for group in matcher.get_grouped_opcodes(CONTEXT_LINES):
        if start + group[0][1] > shown:
            lines.append(Line("@", None, None, ""))
        for tag, a, b, c, d in group:
            if tag == "equal":
                lines += [Line(" ", start + a + i + 1, start + c + i + 1, old_part[a + i])
                          for i in range(b - a)]
            else:
                lines += [Line("-", start + i + 1, None, old_part[i]) for i in range(a, b)]
                lines += [Line("+", None, start + i + 1, new_part[i]) for i in range(c, d)]
            shown = start + b
    return lines if shown == len(old) else [*lines, Line("@", None, None, "")]
