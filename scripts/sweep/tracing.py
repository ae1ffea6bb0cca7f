"""Watches and changes kernel calls, by strace."""

from __future__ import annotations

import re
import shutil
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import NamedTuple

STRACE = shutil.which("strace") or "strace"
PRLIMIT = shutil.which("prlimit") or "prlimit"

_BEGUN = re.compile(r"(\d+) +(\w+)\((.*)")
_RESUMED = re.compile(r"(\d+) +<\.\.\. \w+ resumed>(.*)")


class Call(NamedTuple):
    """One kernel call of the program itself (its child's are not counted)."""

    name: str
    turn: int
    """1 for the first call of this name, as strace counts."""
    text: str
    """Its arguments and result."""
    before_main: bool
    """Made by the system's loader, before `main`."""
    target: str
    """Its descriptor's kind: `file` (one that the program writes), `socket`, `output`, or empty."""


def watching(log: Path) -> list[str]:
    """A wrapper that logs all calls."""
    return [STRACE, "-f", "-qq", "--signal=none", "-o", str(log)]


def tampering(log: Path, injections: Sequence[str], paths: Sequence[str] = ()) -> list[str]:
    """A wrapper that breaks calls: `injections` as strace's inject option has them.

    With `paths`, only calls on these are counted and broken.
    """
    names = ",".join("?" + injection.partition(":")[0] for injection in injections)
    wrapper = [STRACE, "-f", "--seccomp-bpf", "-qq", "--signal=none", "-o", str(log),
               "-e", f"trace={names}"]
    for path in paths:
        wrapper += ["-P", path]
    for injection in injections:
        wrapper += ["-e", f"inject={injection}"]
    return wrapper


def signalling(log: Path, call: Call, signal: str) -> list[str]:
    """A wrapper that sends the program a signal as it enters `call`.

    KILL prevents the call.  Any other signal takes effect after it, or interrupts it if it waits.
    """
    # Without --seccomp-bpf: at its stops a signal would arrive too late, after the call.
    return [STRACE, "-f", "-qq", "--signal=none", "-o", str(log), "-e", f"trace={call.name}",
            "-e", f"inject={call.name}:signal={signal}:when={call.turn}"]


class Tampering(NamedTuple):
    """The facts of a run that are in its log."""

    happened: bool
    output_lost: bool
    """Some output was not written, or not all of it."""


def read_tampering(log: Path) -> Tampering:
    """Whether a call that prints was broken."""
    broken = [line for line in _whole_lines(log) if "(INJECTED" in line]
    return Tampering(bool(broken), any(re.search(r"write\([12],", line) for line in broken))


def limiting(option: str) -> list[str]:
    """A wrapper that lets the kernel enforce a limit."""
    return [PRLIMIT, option]


def _whole_lines(log: Path) -> Iterator[str]:
    """The lines, with the parts joined of those that another process interrupted."""
    cut: dict[str, str] = {}
    for line in log.read_text(errors="replace").splitlines():
        if line.endswith("<unfinished ...>"):
            cut[line.split()[0]] = line.removesuffix("<unfinished ...>")
        elif resumed := _RESUMED.match(line):
            yield cut.pop(resumed[1], "") + resumed[2]
        else:
            yield line


def read_calls(log: Path) -> list[Call]:
    """The calls of a watched run, in order."""
    calls: list[Call] = []
    turns: dict[str, int] = {}
    targets = {"1": "output", "2": "output"}
    program = ""
    before_main = True
    for line in _whole_lines(log):
        found = _BEGUN.match(line)
        if not found or found[1] != (program := program or found[1]):
            continue
        name, text = found[2], found[3]
        # The first step of `main`: check whether the standard streams are open.
        before_main = before_main and not (name == "fcntl" and text.startswith("0, F_GETFD"))
        turns[name] = turns.get(name, 0) + 1
        target = targets.get(re.split("[^0-9]", text)[0], "")
        calls.append(Call(name, turns[name], text, before_main, target))
        if name in ("openat", "socket"):
            made = "socket" if name == "socket" else "file" if "O_CREAT" in text else ""
            targets[text.rpartition("= ")[2]] = made
    return calls
