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
    """A line that is removed "-", added "+" or unchanged " ", or the mark "@" of left out ones.

    `old` and `new` are its numbers on the two sides, from 1; None where it does not exist.
    """

    kind: str
    old: int | None
    new: int | None
    text: str


def _all_lines(old: list[str], new: list[str]) -> list[Line] | None:
    start = len(os.path.commonprefix([old, new]))
    end = len(os.path.commonprefix([old[start:][::-1], new[start:][::-1]]))
    old_end, new_end = len(old) - end, len(new) - end
    if max(old_end, new_end) - start > MAX_LINES:
        return None
    matcher = difflib.SequenceMatcher(None, old[start:old_end], new[start:new_end])
    spans = [("equal", 0, start, 0, start)]
    spans += [(tag, a + start, b + start, c + start, d + start)
              for tag, a, b, c, d in matcher.get_opcodes()]
    spans += [("equal", old_end, len(old), new_end, len(new))]
    lines: list[Line] = []
    for tag, a, b, c, d in spans:
        if tag == "equal":
            lines += [Line(" ", a + i + 1, c + i + 1, old[a + i]) for i in range(b - a)]
        else:
            lines += [Line("-", i + 1, None, old[i]) for i in range(a, b)]
            lines += [Line("+", None, i + 1, new[i]) for i in range(c, d)]
    return lines


def differences(old: str, new: str) -> list[Line] | None:
    """The changed lines and their surroundings: empty for equal texts, None for too many."""
    lines = _all_lines(old.split("\n"), new.split("\n"))
    if lines is None:
        return None
    shown = bytearray(len(lines))
    for index, line in enumerate(lines):
        if line.kind != " ":
            first = max(0, index - CONTEXT_LINES)
            last = min(len(lines), index + CONTEXT_LINES + 1)
            shown[first:last] = b"\1" * (last - first)
    result: list[Line] = []
    for index, line in enumerate(lines):
        if shown[index]:
            result.append(line)
        elif 1 in shown and (index == 0 or shown[index - 1]):
            result.append(Line("@", None, None, ""))
    return result
