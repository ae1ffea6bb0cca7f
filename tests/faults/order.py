"""What the trace of a run says beyond its last state: descriptors, the order of calls, power cuts."""

import itertools
import re
from collections.abc import Iterator, Mapping, Sequence
from pathlib import Path

from laboratory.home import Home
from laboratory.tracing import MAKES, Call

ENDING = ("HUP", "INT", "QUIT", "TERM")


def left_open(calls: Sequence[Call], home: Home) -> list[str]:
    """The descriptors that the program opened and did not close, or did not keep to itself."""
    # What the loader and OpenSSL open are files elsewhere, and theirs to close.
    ours = re.compile(rf'AT_FDCWD, "([^/]|/"|/dev/null|/etc/resolv\.conf|{re.escape(str(home.path))})')
    opened: dict[str, str] = {}
    for call in calls:
        if call.name == "close":
            opened.pop(call.fd, None)
        elif call.name in MAKES and "-1" not in call.result and (
                call.name != "openat" or ours.match(call.text)):
            opened[call.result] = f"{call.name}({call.text} is never closed"
            if "CLOEXEC" not in call.text:
                opened["-" + call.result] = f"{call.name}({call.text} is inherited by the browser"
    return list(opened.values())


def judge_order(calls: Sequence[Call], home: Home) -> Iterator[str]:
    """Every file is replaced by the same steps, under held signals and after one query."""
    steps, made, seen = "", "", ""
    asked: str | None = ""
    held: list[bool] = []
    for call in calls:
        paths = call.paths(home.work)
        if call.name == "rt_sigprocmask" and "SIG_" in call.text:
            held = held[:-1] if "SIG_SETMASK" in call.text else [
                *held, all(re.search(rf"\b{name}\b", call.text) for name in ENDING)]
            if len(held) == 1 and "SIG_BLOCK" in call.text:
                asked = seen
        elif call.target == "socket":
            seen = ""
        elif call.name.startswith(("newfstatat", "mkdir", "getpid")):
            seen += f"{call.name} {''.join(paths[:1])}\n"
        if call.target != "file" and not (made and made in paths):
            continue
        if not any(held):
            yield f"{call.name} {call.turn} is made while signals can end the program"
        if call.name == "openat":
            made, steps = paths[0], "exclusive " if "O_EXCL" in call.text else ""
            name = made.rpartition(".tmp.")[0]
            # For the second file of two that belong together, the first one's folder has answered.
            if asked is not None and f"newfstatat {name}\n" not in asked:
                yield f"nothing asks for {name} before the signals are held"
            if re.search("getpid.*mkdir", seen, re.S):
                yield f"{made} is named before its folder is made"
            seen, asked = "", None
        steps += call.name + " "
        if call.name.startswith("rename"):
            if not re.fullmatch("exclusive openat (write )+fsync close rename(at2)? ", steps):
                yield f"{made} was replaced by these steps: {steps}"
            made = ""


class Kept:
    """A file's data, and whether it is on the disk."""

    def __init__(self, content: bytes, safe: bool) -> None:
        self.content, self.safe = content, safe

    def cuts(self) -> list[bytes]:
        """What a power cut can leave of it."""
        size = len(self.content)
        return [self.content] if self.safe else [
            self.content[:kept] for kept in sorted({0, 1, size // 2, size - 1, size})]


def power_cuts(calls: Sequence[Call], home: Home, before: Mapping[str, bytes]
               ) -> Iterator[dict[str, bytes]]:
    """Every state in which a power cut during a run can leave the files that were there `before`."""
    # Names change in the order of the calls, and the last changes may not have been made.  Data that
    # was not synchronised can end anywhere.
    states = [{str(home.path / name): Kept(content, True) for name, content in before.items()}]
    files: dict[str, Kept] = {}
    for call in calls:
        paths, names = call.paths(home.work), dict(states[-1])
        if call.name == "openat" and call.target:
            names[paths[0]] = files[call.result] = Kept(b"", False)
        elif call.name.startswith("rename") and call.result == "0" and paths[0] in names:
            names[paths[1]] = names.pop(paths[0])
        elif call.name.startswith("unlink"):
            names.pop(paths[0], None)
        elif call.target == "file" and call.name == "write":
            files[call.fd].content += call.texts[0]
            files[call.fd].safe = False
        elif call.target == "file" and call.name == "fsync":
            files[call.fd].safe = True
        else:
            continue
        states.append(names)
        for state in states:
            for cut in itertools.product(*(kept.cuts() for kept in state.values())):
                yield {str(Path(name).relative_to(home.path)): content
                       for name, content in zip(state, cut) if name.startswith(str(home.path))}
