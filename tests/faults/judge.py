"""Whether a run kept the program's promises, whatever was broken under it."""

from collections.abc import Iterator
from typing import NamedTuple

from laboratory.home import FOLDER, TOKEN, File, Result, private
from laboratory.messages import Messages

from .bench import COMMANDS, NEW_TOKEN, REFUSAL, Bench, Command

MESSAGES = Messages()


class Outcome(NamedTuple):
    """One run and its verdict."""

    row: int
    tls: bool
    what: str
    kind: str
    """Of a fault how the run ended, of a crash the state of the files, or `missed`."""
    violations: list[str]
    message: str = ""
    """The documented message that was printed."""

    @property
    def title(self) -> str:
        """What the command is called, over which transport."""
        return f"{COMMANDS[self.row].name} ({'tls' if self.tls else 'plain'})"


def judge(bench: Bench, command: Command, result: Result, lossy: bool = False,
          stale: bool = False, ended: bool = True) -> Iterator[str]:
    """What is wrong.  `lossy`: what was printed may not have arrived.  `stale`: temporary files may
    have stayed.  Not `ended`: something else ended the program."""
    if ended:
        yield from judge_output(bench, command, result, lossy)
    yield from judge_files(bench, command, result, lossy, stale)
    yield from judge_secrets(bench, result)


def judge_output(bench: Bench, command: Command, result: Result, lossy: bool) -> Iterator[str]:
    """Output and status fit together."""
    expected = command.out.format(origin=bench.home.origin).encode()
    out, err = result.out, result.err.decode(errors="replace")
    if result.status == 0:
        if command.err or not (lossy or (out, err) == (expected, "")):
            yield f"status 0, but printed {out!r} {err!r}"
    elif result.status == 1:
        message = MESSAGES.explain(err[:-1], "stderr, 1") if err.count("\n") == 1 else None
        documented = err == REFUSAL + "\n" or (
            message and message.is_for(command.name.partition(",")[0]))
        if not documented and not (lossy and err.count("\n") < 2):
            yield f"undocumented on standard error: {err!r}"
        if not expected.startswith(out) and not lossy:
            yield f"printed {out!r}"
    elif result.status is None:
        yield "did not end in time"
    else:
        yield f"ended with status {result.status}: {err!r}"


def judge_files(bench: Bench, command: Command, result: Result, lossy: bool = False,
                stale: bool = False) -> Iterator[str]:
    """Every file is entirely old or entirely new, as the message says, and private; no other file is
    there."""
    found, fresh = bench.found(), {}
    # A failure has changed nothing, but for the one message about the second of two files.
    told = result.status == 0 or (result.status == 1 and not lossy)
    for name, change in command.files(bench.home).items():
        new = result.status == 0 or (name == command.file and
                                     result.err == b"Cannot write revision metadata\n")
        allowed: list[File | None] = [None if content is None else private(content) for content in (
            (change.new if new else change.old,) if told else change)]
        got = found.pop(name, None)
        fresh[name] = got == allowed[-1]
        if got not in allowed:
            yield f"after status {result.status}, {result.err!r}: {name} is {got}"
    if fresh.get(command.file + ".sync.json") and not (told or fresh.get(command.file, True)):
        yield "a new revision is recorded for an old configuration"
    for name, file in found.items():
        if file != FOLDER and not (stale and ".tmp." in name and file[0] == private(b"")[0]):
            yield f"left behind, or open to others: {name} {file[0]}"


def judge_secrets(bench: Bench, result: Result) -> Iterator[str]:
    """Secrets are in the credential file and in the requests, and nowhere else; the browser reads
    documented pages, of which a cut one is no worse than a closed connection."""
    service, opener = bench.service, bench.opener_log()
    places = {"standard output": result.out, "standard error": result.err,
              "the opener": opener.encode(), "a page": "".join(service.pages).encode()}
    for name, (_, content) in bench.found().items():
        places[name] = name.encode() + (b"" if name.startswith("config/") else content)
    for secret, value in {"token": TOKEN, "new token": NEW_TOKEN, **service.secrets}.items():
        yield from (f"the {secret} is in {place}" for place, text in places.items()
                    if value.encode() in text)
    inherited = opener.replace(f"-> {bench.opener}", "")  # The shell's own.
    if "-> socket:" in inherited or f"-> {bench.home.path}/" in inherited:
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
    yield from (f"the browser read {words!r}" for words in service.pages
                if words and not MESSAGES.explain(words, "browser"))
