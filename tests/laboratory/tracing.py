"""Kernel calls seen and tampered with, by strace, and its log as records."""

import os
import re
import shutil
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import NamedTuple

STRACE = shutil.which("strace") or "strace"
MAKES = ("openat", "socket", "accept4", "dup3", "dup")
"""The calls that return a new descriptor."""


def tracing(*options: str) -> Sequence[str]:
    """A wrapper that runs the program under strace, nothing but calls in its log."""
    return (STRACE, "-qq", "--signal=none", "-s", "4096", *options)


def tampering(log: Path, injections: Sequence[str], paths: Sequence[str] = ()) -> Sequence[str]:
    """A wrapper that changes calls, with `paths` only those on them."""
    # `injections` are as strace's option inject has them.  Descriptors are followed, too.
    names = ",".join("?" + name for name in (*(each.partition(":")[0] for each in injections),
                                             *MAKES, "close"))
    options = [word for path in paths for word in ("-P", path)]
    options += [word for injection in injections for word in ("-e", f"inject={injection}")]
    # At the stops that --seccomp-bpf makes a signal comes too late, after the call.
    quick = () if any(":signal=" in injection for injection in injections) else ("--seccomp-bpf",)
    return tracing("-f", *quick, "-o", str(log), "-e", f"trace={names}", *options)


class Call(NamedTuple):
    """One kernel call of the program itself (its child's are not counted)."""

    name: str
    turn: int
    """1 for the first of this name: what strace counts by."""
    text: str
    """Its arguments and result."""
    before_main: bool
    """Made by the system's loader, before the program had its first say."""
    target: str
    """What it is made on: `file` (one that the program makes), `socket`, `output`, or nothing."""

    @property
    def fd(self) -> str:
        """The descriptor that it is made on."""
        return re.split("[^0-9]", self.text)[0]

    @property
    def result(self) -> str:
        """What it returned; of a failure "-1" and the error."""
        return self.text.rpartition(" = ")[2].partition(" (")[0]

    @property
    def texts(self) -> list[bytes]:
        """Its texts, such as paths or what it writes."""
        return [text.encode().decode("unicode_escape").encode("latin-1")
                for text in re.findall(r'"((?:[^"\\]|\\.)*)"', self.text)]

    def paths(self, folder: Path) -> list[str]:
        """Its texts as paths, those that begin in the program's own folder completed."""
        return [os.path.normpath(folder / os.fsdecode(text)) for text in self.texts]


def complete_lines(log: Path) -> Iterator[str]:
    """The lines of a log, those put together that were cut by another process's."""
    cut: dict[str, str] = {}
    for line in log.read_text(errors="replace").splitlines() if log.exists() else ():
        if line.endswith("<unfinished ...>"):
            cut[line.split()[0]] = line.removesuffix("<unfinished ...>")
        elif resumed := re.match(r"(\d+) +<\.\.\. \w+ resumed>(.*)", line):
            yield cut.pop(resumed[1], "") + resumed[2]
        else:
            yield line


def read_calls(log: Path) -> list[Call]:
    """The calls of a run that was traced with -f, in order."""
    calls: list[Call] = []
    turns: dict[str, int] = {}
    targets = {"1": "output", "2": "output"}
    program, before_main = "", True
    for line in complete_lines(log):
        found = re.match(r"(\d+) +(\w+)\((.*)", line)
        if not found or found[1] != (program := program or found[1]):
            continue
        name, text = found[2], found[3]
        # The first thing `main` does: see whether the standard streams are open.
        before_main = before_main and not (name == "fcntl" and text.startswith("0, F_GETFD"))
        turns[name] = turns.get(name, 0) + 1
        calls.append(Call(name, turns[name], text, before_main, ""))
        if name in MAKES:
            made = "file" if "O_CREAT" in text else "" if name == "openat" else "socket"
            targets[calls[-1].result] = made
            calls[-1] = calls[-1]._replace(target=made if made == "file" else "")
        else:
            calls[-1] = calls[-1]._replace(target=targets.get(calls[-1].fd, ""))
    return calls
