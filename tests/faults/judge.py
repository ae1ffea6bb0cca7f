"""Whether a run kept the program's promises, whatever was broken under it."""

import re
import signal
from collections.abc import Iterator
from pathlib import Path

from laboratory.home import FOLDER, TOKEN, File, private
from laboratory.messages import Messages

from .bench import NEW_TOKEN, Bench
from .cases import Case
from .trace import left_open, read_calls

MESSAGES = Messages()
KILLED = -signal.SIGKILL


def judge(bench: Bench, case: Case) -> Iterator[str]:
    """What is wrong."""
    logs, found = bench.logs(), bench.found()
    lossy = not case.harmless and re.search(r"^write\([12],.*INJECTED", "\n".join(logs), re.M)
    if not case.signal:
        yield from judge_output(bench, case, bool(lossy))
    if bench.result.status in (0, 1):
        yield from left_open(read_calls(logs[0]), bench)
    yield from judge_files(bench, case, found, bool(lossy))
    yield from judge_secrets(bench, found)


def judge_output(bench: Bench, case: Case, lossy: bool) -> Iterator[str]:
    """Output and status fit together, and both to what was broken; `lossy`: output was lost."""
    status, out, err = bench.result
    expected = case.command.out.format(origin=bench.origin).encode()
    line = err.decode(errors="replace").removesuffix("\n")
    if status == 0:
        if not lossy and (out, err) != (expected, b""):
            yield f"status 0, but printed {out!r} {err!r}"
    elif status == 1:
        message = MESSAGES.explain(line, "stderr, 1") if err.count(b"\n") == 1 else None
        documented = message and message.is_for(case.command.name.partition(",")[0])
        if not documented and not (lossy and "\n" not in line):
            yield f"undocumented on standard error: {err!r}"
        if not expected.startswith(out) and not lossy:
            yield f"printed {out!r}"
    elif not (status == -signal.SIGABRT and err == b"memory limit exceeded\n"
              and re.search("inject=(brk|mmap|mremap)", case.options)):
        yield f"ended with status {status} (None: not in time): {err!r}"
    if case.harmless and status != 0:
        yield f"this is to be survived, but: {err!r}"
    if case.grave and status == 0:
        yield "status 0, although a file was not surely written or removed"


def judge_files(bench: Bench, case: Case, found: dict[Path, File], lossy: bool) -> Iterator[str]:
    """Every file is all old or all new, as the message says, and private; no other one is there."""
    status, others, new = bench.result.status, dict(found), []
    for path, change in bench.changes.items():
        # A failure has changed nothing, but for the one message about the second of two files.
        written = status == 0 or (path == bench.path / case.command.file and
                                  bench.result.err == b"Cannot write revision metadata\n")
        told = status == 0 or (status == 1 and not lossy)
        got = others.pop(path, None)
        if got not in [content if content is None else private(content)
                       for content in ((change[written],) if told else change)]:
            yield f"after status {status}, {bench.result.err!r}: {path.name} is {got}"
        if change.old != change.new:
            new.append((got and got[1]) == change.new)
    # Only the death that nothing can hold back, or a failure that is told, comes between the two.
    if new == [False, True] or (new == [True, False] and status not in (1, KILLED)):
        yield "the configuration and its record do not belong together"
    for path, file in others.items():
        stale = case.stale and ".tmp." in str(path) and file[0] == private(b"")[0]
        if file != FOLDER and not stale:
            yield f"left behind, or open to others: {path} {file[0]}"
    if (bench.path / "victim").read_text() != "untouched" or (bench.path / "victim2").exists():
        yield "a link was followed"
    if "mine" in str(case.wrapper) and not any(file[1] == b"mine\n" for file in others.values()):
        yield "a file of others is gone"


def judge_secrets(bench: Bench, found: dict[Path, File]) -> Iterator[str]:
    """Secrets are where they belong and nowhere else; the browser reads documented pages."""
    places = {"standard output": bench.result.out, "standard error": bench.result.err,
              "the opener": bench.opener_log().encode(), "a page": "".join(bench.pages).encode()}
    for path, (_, content) in found.items():
        secret = (bench.path / "config") in path.parents
        places[str(path)] = path.name.encode() + (b"" if secret else content)
    for request in bench.peer.requests:
        line = request.partition(b"\r\n")[0].decode(errors="replace")
        own = "state" if "/start " in line else "verifier" if "/exchange " in line else ""
        rest = request.replace(f"\r\nAuthorization: Bearer {TOKEN}\r\n".encode(), b"")
        places[line] = rest.replace(bench.secrets.get(own, "\n").encode(), b"")
    for name, value in {"token": TOKEN, "new token": NEW_TOKEN, **bench.secrets}.items():
        yield from (f"the {name} is in {place}" for place, text in places.items()
                    if value.encode() in text)
    yield from (f"the browser read {words!r}" for words in bench.pages
                if words and not MESSAGES.explain(words, "browser"))
