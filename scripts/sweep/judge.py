"""Whether a run kept the program's promises, whatever was broken under it."""

from __future__ import annotations

import stat
from collections.abc import Iterator
from pathlib import Path

from .laboratory import Command, Laboratory, Result
from .messages import read_messages
from .service import NEW_TOKEN, REFUSAL, TOKEN

MESSAGES = read_messages()


def judge_line(err: str) -> Iterator[str]:
    """A failure is one documented line."""
    if err == REFUSAL + "\n":
        return
    if err.count("\n") != 1 or not MESSAGES.explain(err[:-1], "stderr, 1"):
        yield f"undocumented on standard error: {err!r}"


def judge_output(command: Command, origin: str, result: Result, lossy: bool) -> Iterator[str]:
    """Output and status fit together.  `lossy`: some output may be lost."""
    out = command.out.format(origin=origin)
    if result.status == 0:
        whole = result.out == out and result.err == command.err
        if command.err or not (whole or lossy):
            yield f"status 0, but printed {result.out!r} {result.err!r}"
    elif result.status == 1:
        if not lossy:
            yield from judge_line(result.err)
        elif result.err.count("\n") > 1:
            yield f"more than one line: {result.err!r}"
        if not out.startswith(result.out) and not lossy:
            yield f"printed {result.out!r}"
    elif result.status is None:
        yield "did not end in time"
    else:
        yield f"ended with status {result.status}: {result.err!r}"


def judge_files(laboratory: Laboratory, command: Command, origin: str, result: Result,
                temporary_allowed: bool) -> Iterator[str]:
    """Every file is entirely old or entirely new, private, and no other file is there."""
    found = laboratory.found_files()
    fresh = {}
    for name, change in command.files(origin).items():
        path = found.pop(name, None)
        if path and not path.is_file():
            yield f"{name} is not a file any more"
            path = None
        content = path.read_bytes() if path else None
        fresh[name] = content == change.new
        if content not in change:
            yield f"{name} is neither old nor new: {content!r}"
        elif result.status == 0 and not fresh[name]:
            yield f"status 0, but {name} is old"
        if path:
            yield from _judge_mode(path)
    if fresh.get(command.file + ".sync.json") and not fresh.get(command.file, True):
        yield "a new revision is recorded for an old configuration"
    for name, path in found.items():
        if not (temporary_allowed and ".tmp." in name):
            yield f"left behind: {name}"
        yield from _judge_mode(path)
    for folder in (path for path in laboratory.home.rglob("*") if path.is_dir()):
        if stat.S_IMODE(folder.stat().st_mode) != 0o700:
            yield f"the folder {folder.name} is open to others"


def _judge_mode(path: Path) -> Iterator[str]:
    if stat.S_IMODE(path.lstat().st_mode) != 0o600 and not path.is_symlink():
        yield f"{path.name} is open to others"


def judge_secrets(laboratory: Laboratory, result: Result) -> Iterator[str]:
    """Secrets are in the credential file and in the requests, and nowhere else."""
    service = laboratory.service
    opener = laboratory.opener_log()
    places = {"standard output": result.out, "standard error": result.err, "the opener": opener,
              "a page": "".join(service.pages)}
    for name, path in laboratory.found_files().items():
        places["the name " + name] = name
        if not name.startswith("config/") and path.is_file():
            places[name] = path.read_text(errors="replace")
    for secret, value in {"token": TOKEN, "new token": NEW_TOKEN, **service.secrets}.items():
        yield from (f"the {secret} is in {place}" for place, text in places.items()
                    if value in text)
    if "-> socket:" in opener or f"-> {laboratory.home}/" in opener:
        yield "the opener has inherited a descriptor"
    for request in service.requests:
        head, _, body = request.partition(b"\r\n\r\n")
        line = f"\r\nAuthorization: Bearer {TOKEN}\r\n".encode()
        if TOKEN.encode() in head.replace(line, b"") + body:
            yield "the token is outside the Authorization header"
        for secret, value in service.secrets.items():
            call = b"/api/cli/start " if secret == "state" else b"/api/cli/exchange "
            if value.encode() in request and call not in head.partition(b"\r\n")[0]:
                yield f"the {secret} was sent with another call"


def judge_pages(laboratory: Laboratory) -> Iterator[str]:
    """The browser reads documented pages; a cut one counts like a closed connection."""
    for words in laboratory.service.pages:
        if words and not MESSAGES.explain(words, "browser"):
            yield f"the browser read {words!r}"
