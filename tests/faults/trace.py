"""What the trace of a run says beyond its last state: descriptors, order of calls, power cuts."""

import itertools
import os
import re
from collections import Counter
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any, NamedTuple

from .bench import Bench

ENDING = ("HUP", "INT", "QUIT", "TERM")
MAKES = ("openat", "socket", "accept4", "dup3", "dup")
"""The calls that return a new descriptor."""


class Call(NamedTuple):
    """One kernel call of the program itself."""

    name: str
    turn: int
    """1 for the first of this name: what strace counts by."""
    text: str
    """Its arguments and result."""
    fd: str
    """The descriptor that it is made on."""
    result: str
    """What it returned; of a failure "-1" and the error."""
    target: str
    """What it is made on: `file` (one that the program makes), `socket`, `output`, or nothing."""

    def texts(self) -> list[bytes]:
        """Its texts, such as paths or what it writes."""
        return [text.encode().decode("unicode_escape").encode("latin-1")
                for text in re.findall(r'"((?:[^"\\]|\\.)*)"', self.text)]

    def paths(self, folder: Path) -> list[Path]:
        """Its texts as paths, those that begin in the program's own folder completed."""
        return [Path(os.path.normpath(folder / os.fsdecode(text))) for text in self.texts()]


def read_calls(log: str) -> list[Call]:
    """The calls of a run from the first that `main` makes: those before are the loader's."""
    calls: list[Call] = []
    turns: Counter[str] = Counter()
    targets = {"1": "output", "2": "output"}
    for name, text, fd in re.findall(r"^(\w+)\(((\d*).*)", log, re.M):
        turns[name] += 1
        result = text.rpartition(" = ")[2].partition(" (")[0]
        target = "file" if "O_CREAT" in text else targets.get(fd, "")
        if name in MAKES:
            targets[result] = target or ("" if name == "openat" else "socket")
        if calls or (name == "fcntl" and text.startswith("0, F_GETFD")):
            calls.append(Call(name, turns[name], text, fd, result, target))
    return calls


def left_open(calls: Sequence[Call], bench: Bench) -> Iterator[str]:
    """The descriptors that the program opened and did not close, or did not keep to itself."""
    # What OpenSSL opens are files elsewhere, and its own to close.
    home = re.escape(str(bench.path))
    ours = re.compile(rf'AT_FDCWD, "([^/]|/"|/dev/null|/etc/resolv\.conf|{home})')
    opened: dict[str, str] = {}
    for call in calls:
        if call.name == "close":
            opened.pop(call.fd, None)
        elif call.name in MAKES and "-1" not in call.result and (
                call.name != "openat" or ours.match(call.text)):
            opened[call.result] = f"{call.name}({call.text} is never closed"
            if "CLOEXEC" not in call.text:
                yield f"{call.name}({call.text} is inherited by the browser"
    yield from opened.values()


def judge_order(calls: Sequence[Call], bench: Bench) -> Iterator[str]:
    """Every file is replaced by the same steps, under held signals, where the folder answers."""
    steps, made, answered = "", Path(), set()
    held: list[bool] = []
    for call in calls:
        paths = call.paths(bench.work)
        if call.name == "rt_sigprocmask" and "SIG_SETMASK" in call.text:
            held = held[:-1]
        elif call.name == "rt_sigprocmask":
            held.append(all(name in call.text for name in ENDING))
        elif call.name == "newfstatat" and not held:
            answered.add(paths[0].parent)
        elif "O_RDONLY" in call.text and str(bench.path) in call.text:
            if "O_NONBLOCK" not in call.text:
                yield f"{call.text} could block: a FIFO can take the file's place"
        if call.target != "file" and made not in paths:
            continue
        if not any(held):
            yield f"{call.name} {call.turn} is made while signals can end the program"
        if call.name == "openat":
            made, steps = paths[0], "exclusive " if "O_EXCL" in call.text else ""
            if made.parent not in answered:
                yield f"nothing asks for {made} before the signals are held"
        steps += call.name + " "
        if call.name.startswith("rename"):
            if not re.fullmatch("exclusive openat (write )+fsync close rename(at2)? ", steps):
                yield f"{made} was replaced by these steps: {steps}"
            made = Path()


def cuts(content: bytes, synchronised: bool) -> list[bytes]:
    """What a power cut can leave of a file's data."""
    size = len(content)
    return [content] if synchronised else [content[:n] for n in {0, 1, size // 2, size - 1, size}]


def judge_power_cuts(calls: Sequence[Call], bench: Bench) -> Iterator[str]:
    """What a power cut can leave is old or new, and a record no newer than its configuration."""
    # Names change in the order of the calls, and the last changes may not have been made.
    opened: dict[str, list[Any]] = {}
    states = [{path: [change.old, True] for path, change in bench.changes.items()
               if change.old is not None}]
    for call in calls:
        paths, names = call.paths(bench.work), dict(states[-1])
        if call.name == "openat" and call.target == "file":
            names[paths[0]] = opened[call.result] = [b"", False]
        elif call.name.startswith("rename") and paths[0] in names:
            names[paths[1]] = names.pop(paths[0])
        elif call.name.startswith("unlink"):
            names.pop(paths[0], None)
        elif call.target == "file" and call.name == "write":
            opened[call.fd][:] = opened[call.fd][0] + call.texts()[0], False
        elif call.target == "file" and call.name == "fsync":
            opened[call.fd][1] = True
        else:
            continue
        states.append(names)
        for state in states:
            for cut in itertools.product(*(cuts(*data) for data in state.values())):
                left = dict(zip(state, cut))
                bad = [path.name for path, change in bench.changes.items()
                       if left.get(path) not in change]
                new = [left.get(path) == change.new for path, change in bench.changes.items()]
                if bad or new[-2:] == [False, True]:
                    yield f"a power cut can leave {bad or 'a new record of an old file'}"
                    return
