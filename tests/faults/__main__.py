"""Runs every command of the shipped program with something broken under it, and judges each run.

    scripts/sweep faults [--short] [PROGRAM]    each kernel call fails in turn
    scripts/sweep crashes [--short] [PROGRAM]   the process is killed at each kernel call in turn

faults: for each call that a command makes and each error that fits the call, once and from then on,
strace makes that one call fail.  The exit status is then 0 or 1, with at most one documented line on
standard error; files are entirely old or entirely new and private, no temporary file is left, no
secret is anywhere but in the credential file and in the requests, and the run ends within the time
limits.  strace ends only when every child has ended, so that none is left either.

crashes: SIGKILL comes as the program enters a call, which is then not made: so each run ends after
one call and before the next.  What is left is judged, and the command is run again in a process of
the number that a stale temporary file is named after.  SIGINT, SIGTERM and SIGHUP come there, too:
after these no temporary file is left, and the two files of a pull belong together.  Then things that
others may have put at a temporary file's name: they are neither followed nor written to.

Exit status 0 means: no violation.  --short takes a sample that differs from commit to commit.
"""

from __future__ import annotations

import argparse
import ctypes
import json
import multiprocessing
import os
import random
import re
import resource
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter
from collections.abc import Callable, Iterable, Iterator, Sequence
from contextlib import suppress
from pathlib import Path
from typing import Any, NamedTuple

from laboratory import ROOT
from laboratory.home import TOKEN, Home
from laboratory.messages import Messages
from laboratory.network import RESOLVER_FILE, Authority, replace, serving
from laboratory.peers import (Connection, NameServer, Peer, address, answer,
                              dns_reply, reply)
from laboratory.tracing import tampering, tracing

SHORT_COUNTS = {"faults": 1500, "crashes": 500}
WAIT_S = 20
"""Two waits of 10 s: two calls have three each, of which one fault makes one run out."""
MIN_IDLE_S = 1.5
_idle_s = multiprocessing.Value("d", WAIT_S)
"""How long the service waits for the rest of a request: longer than any delay of a run that works,
which `sweep` measures first."""
MESSAGES = Messages()
PRLIMIT = shutil.which("prlimit") or "prlimit"

# The service, whose answers are constants, so that the files they lead to are known byte for byte.

HOST = "sweep.test"
NEW_TOKEN = "qvt-canary-77ac2d"
EMAIL = "ada@example.org"
PULLED: dict[str, Any] = {
    "config": {"id": "p", "units": "metres", "stations": [{"depth": -4.5}, None]}, "revision": 8}
REFUSAL = "Revision 7 is out of date"
ANSWERS: dict[str, Any] = {
    "start": {"request": "req-1"},
    "exchange": {"token": NEW_TOKEN, "email": EMAIL},
    "account": {"account": {"canonical_email": EMAIL}},
    "projects": {"projects": [{"id": "p", "name": "Tides"}, {"id": "q", "name": "Wind"}]},
    "project": {"project": PULLED},
    "project-configure": {"project": {"revision": 8}},
}


class Service:
    """The service, plain and over TLS, what it was told, and what its browser read."""

    def __init__(self, authority: Authority) -> None:
        self._peers = [Peer(reply(self._answer), address="::", tls=tls).__enter__()
                       for tls in (None, serving(authority, "service"))]
        self.ports = [peer.port for peer in self._peers]
        self.begin(False)

    def begin(self, refusing: bool) -> None:
        """Forgets the last run.  `refusing` makes every push meet a conflict."""
        self.refusing = refusing
        self.secrets: dict[str, str] = {}
        self.pages: list[str] = []
        self._browsers: list[threading.Thread] = []
        for peer in self._peers:
            peer.connections.clear()
            peer.idle_limit_s = _idle_s.value

    @property
    def requests(self) -> list[bytes]:
        """All that was sent, incomplete requests too."""
        return [request for peer in self._peers for request in peer.requests]

    def settle(self) -> None:
        """Waits for the browser."""
        for browser in self._browsers:
            browser.join()

    def _answer(self, connection: Connection) -> None:
        head, _, body = connection.received.partition(b"\r\n\r\n")
        length = re.search(rb"Content-Length: (\d+)", head)
        if not length or len(body) < int(length[1]):
            return
        name = head.split(b" ")[1].decode(errors="replace").rpartition("/")[2]
        if name == "start":
            start = json.loads(body)
            self.secrets["state"] = start["state"]
            browser = threading.Thread(target=self._browse, args=(start["port"], start["state"]))
            browser.start()
            self._browsers.append(browser)
        elif name == "exchange":
            self.secrets["verifier"] = json.loads(body)["verifier"]
        refused = name == "project-configure" and self.refusing
        connection.socket.sendall(answer({"error": REFUSAL}, 409) if refused
                                  else answer(ANSWERS.get(name, {})))

    def _browse(self, port: int, state: str) -> None:
        """The browser comes back, and again when it was not understood, as a person would."""
        request = (f"GET /callback?request=req-1&state={state}&code=c HTTP/1.1\r\n"
                   f"Host: 127.0.0.1:{port}\r\n\r\n").encode()
        for _ in range(8):
            page = b""
            try:
                with socket.create_connection(("127.0.0.1", port), timeout=25) as connection:
                    connection.sendall(request)
                    while data := connection.recv(4096):
                        page += data
            except ConnectionRefusedError:
                return
            except OSError:
                continue
            words = page.partition(b"\r\n\r\n")[2].decode()
            self.pages.append(words)
            if words and words != "Unknown login callback":
                return


# The commands, and their files before and after.

class Change(NamedTuple):
    """A file's contents before a run and after one that succeeded; None: no file."""

    old: bytes | None
    new: bytes | None


def _json(value: object) -> bytes:
    return json.dumps(value, separators=(",", ":")).encode()


OLD_CREDENTIAL = json.dumps({"token": TOKEN, "email": "old"}).encode()
NEW_CREDENTIAL = _json({"token": NEW_TOKEN, "email": EMAIL})
OLD_CONFIG = b'{ "units": "feet" }\n'
NEW_CONFIG = (json.dumps({key: value for key, value in PULLED["config"].items() if key != "id"},
                         indent=2) + "\n").encode()


class Command(NamedTuple):
    """One command line, its output and the files that it may change."""

    name: str
    words: str
    out: str
    """`{origin}` stands for the origin."""
    err: str = ""
    credential: Change = Change(OLD_CREDENTIAL, OLD_CREDENTIAL)
    file: str = "work/quorvane.config.json"
    config: Change = Change(OLD_CONFIG, OLD_CONFIG)
    revision: tuple[int | None, int | None] = (7, 7)

    def files(self, home: Home) -> dict[str, Change]:
        """All files of the home, by name."""
        recorded = (revision and _json({"projectId": "p", "baseUrl": home.origin,
                                        "revision": revision}) for revision in self.revision)
        changes = {str(home.credential().relative_to(home.path)): self.credential,
                   self.file: self.config, self.file + ".sync.json": Change(*recorded)}
        return {name: change for name, change in changes.items() if change != (None, None)}


_LOGIN_OUT = ("Open this URL to authorize the CLI:\n{origin}/cli/authorize?request=req-1\n"
              f"Signed in as {EMAIL}\n")
COMMANDS = (
    Command("login", "login", _LOGIN_OUT, credential=Change(OLD_CREDENTIAL, NEW_CREDENTIAL)),
    Command("login, first", "login --no-browser", _LOGIN_OUT, config=Change(None, None),
            credential=Change(None, NEW_CREDENTIAL), revision=(None, None)),
    Command("whoami", "whoami", EMAIL + "\n"),
    Command("projects", "projects", "p  Tides\nq  Wind\n"),
    Command("config pull", "config pull -p p", "Saved quorvane.config.json\n",
            config=Change(OLD_CONFIG, NEW_CONFIG), revision=(7, 8)),
    Command("config pull, first", "config pull -p p -f new/folder/c.json",
            "Saved new/folder/c.json\n", file="work/new/folder/c.json",
            config=Change(None, NEW_CONFIG), revision=(None, 8)),
    Command("config push", "config push -p p", "Configuration synchronized\n", revision=(7, 8)),
    Command("config push, refused", "config push -p p", "", REFUSAL + "\n"),
    Command("logout", "logout", "Signed out\n", credential=Change(OLD_CREDENTIAL, None)),
)
OPENER = """#!/bin/sh
printf '%s\\n' "$@" >"$0.log"
while read -r name value; do case $name in Sig[BI]*) echo "$name $value"; esac; done \\
    </proc/$$/status >>"$0.log"
read -r pid name state parent group session rest </proc/$$/stat
{ umask; echo "$((session - pid)) from its session"; export -p; } >>"$0.log"
exec /bin/ls -n /proc/self/fd >>"$0.log"
"""
OPENER_SAW = ("{origin}/cli/authorize?request=req-1\nSigBlk: 0000000000000000\n"
              "SigIgn: 0000000000000000\n0000\n0 from its session\n",
              "0 -> /dev/null", "2 -> /dev/null")


class Result(NamedTuple):
    """How a run ended; a negative status is the signal that ended it, None: not in time."""

    status: int | None
    out: str
    err: str
    seconds: float


class Bench:
    """One worker's service, and one home after the other."""

    def __init__(self, authority: Authority) -> None:
        self.service = Service(authority)
        self.home = Home()
        self._trust_file = str(authority.trust_file)
        # A browser outlives the program that launched it; then it is this process's child.
        ctypes.CDLL(None).prctl(36, 1)  # PR_SET_CHILD_SUBREAPER

    def prepare(self, command: Command, tls: bool) -> Path:
        """A home in the state before the command; returns where its calls are to be logged."""
        self.home.__exit__()
        self.home = Home(f"https://{HOST}:{self.service.ports[1]}" if tls
                         else f"http://127.0.0.1:{self.service.ports[0]}")
        self.home.environment |= {"TZ": "UTC", "SSL_CERT_FILE": self._trust_file,
                                  "PATH": f"/nowhere:{self.home.path}/bin"}
        self.opener = self.home.equip("xdg-open", OPENER)
        self.home.credential().unlink()
        if command.credential.old is None:
            shutil.rmtree(self.home.path / "config")
        for name, change in command.files(self.home).items():
            if change.old is not None:
                (self.home.path / name).write_bytes(change.old)
                (self.home.path / name).chmod(0o600)
        self.close_folders()
        self.service.begin("refused" in command.name)
        return self.home.path / "log"

    def close_folders(self) -> None:
        """Makes all folders private."""
        for folder in self.home.path.rglob("*/"):
            folder.chmod(0o700)

    def run(self, command: Command, wrapper: Sequence[str] = ()) -> Result:
        """Runs the program, with `wrapper` before it, and waits for its browser."""
        began = time.monotonic()
        with self.home.start(*command.words.split(), wrapper=wrapper,
                             start_new_session=True) as process:
            status: int | None = None
            try:
                out, err = process.communicate(timeout=WAIT_S + 4 * _idle_s.value)
                status = process.returncode
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, 9)
                out, err = process.communicate()
        seconds = time.monotonic() - began
        self.service.settle()
        with suppress(ChildProcessError):  # Until no child is left.
            while time.monotonic() < began + 2 * WAIT_S + 4 * _idle_s.value:
                if os.waitpid(-1, os.WNOHANG) == (0, 0):
                    time.sleep(0.005)
        return Result(status, out.decode(errors="replace"), err.decode(errors="replace"), seconds)

    def shell(self, script: str) -> list[str]:
        """A wrapper that runs a script in the very process that then becomes the program."""
        return ["/bin/sh", "-c", f'PATH=/bin:/usr/bin; {script}'
                f' PATH={self.home.environment["PATH"]}; exec "$@"', "sh"]

    def opener_log(self) -> str:
        """What the launched opener saw of itself; empty when none was launched."""
        log = Path(f"{self.opener}.log")
        return log.read_text() if log.exists() else ""

    def found(self) -> dict[str, Path]:
        """All that is where the program writes, except folders, by name."""
        return {str(path.relative_to(self.home.path)): path for folder in ("config", "work")
                for path in (self.home.path / folder).rglob("*")
                if path.is_symlink() or not path.is_dir()}


# The judge: whether a run kept the program's promises, whatever was broken under it.

def judge_output(bench: Bench, command: Command, result: Result, lossy: bool) -> Iterator[str]:
    """Output and status fit together.  `lossy`: what was printed may not have arrived."""
    out = command.out.format(origin=bench.home.origin)
    if result.status == 0:
        complete = result.out == out and result.err == command.err
        if command.err or not (complete or lossy):
            yield f"status 0, but printed {result.out!r} {result.err!r}"
    elif result.status == 1:
        documented = result.err == REFUSAL + "\n" or (
            result.err.count("\n") == 1 and MESSAGES.explain(result.err[:-1], "stderr, 1"))
        if not documented and not lossy:
            yield f"undocumented on standard error: {result.err!r}"
        if lossy and result.err.count("\n") > 1:
            yield f"more than one line: {result.err!r}"
        if not out.startswith(result.out) and not lossy:
            yield f"printed {result.out!r}"
    elif result.status is None:
        yield "did not end in time"
    else:
        yield f"ended with status {result.status}: {result.err!r}"


def judge_files(bench: Bench, command: Command, result: Result, stale: bool) -> Iterator[str]:
    """Every file is entirely old or entirely new, and private, and no other file is there, but with
    `stale` temporary ones."""
    found, fresh = bench.found(), {}
    for name, path in found.items():
        if stat.S_IMODE(path.lstat().st_mode) != 0o600 and not path.is_symlink():
            yield f"{name} is open to others"
    for name, change in command.files(bench.home).items():
        path = found.pop(name, None)
        if path and not path.is_file():
            yield f"{name} is not a file any more"
        content = path.read_bytes() if path and path.is_file() else None
        fresh[name] = content == change.new
        if content not in change:
            yield f"{name} is neither old nor new: {content!r}"
        elif result.status == 0 and not fresh[name]:
            yield f"status 0, but {name} is old"
    if fresh.get(command.file + ".sync.json") and not fresh.get(command.file, True):
        yield "a new revision is recorded for an old configuration"
    yield from (f"left behind: {name}" for name in found if not (stale and ".tmp." in name))
    for folder in bench.home.path.rglob("*/"):
        if stat.S_IMODE(folder.stat().st_mode) != 0o700:
            yield f"the folder {folder.name} is open to others"


def judge_secrets(bench: Bench, result: Result) -> Iterator[str]:
    """Secrets are in the credential file and in the requests, and nowhere else; the browser reads
    documented pages, of which a cut one is no worse than a closed connection."""
    service, opener = bench.service, bench.opener_log()
    places = {"standard output": result.out, "standard error": result.err, "the opener": opener,
              "a page": "".join(service.pages)}
    for name, path in bench.found().items():
        places["the name " + name] = name
        if not name.startswith("config/") and path.is_file():
            places[name] = path.read_text(errors="replace")
    for secret, value in {"token": TOKEN, "new token": NEW_TOKEN, **service.secrets}.items():
        yield from (f"the {secret} is in {place}" for place, text in places.items()
                    if value in text)
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


# The calls of a run.

_BEGUN = re.compile(r"(\d+) +(\w+)\((.*)")
_RESUMED = re.compile(r"(\d+) +<\.\.\. \w+ resumed>(.*)")


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


def complete_lines(log: Path) -> Iterator[str]:
    """The lines of a log, those put together that were cut by another process's."""
    cut: dict[str, str] = {}
    for line in log.read_text(errors="replace").splitlines():
        if line.endswith("<unfinished ...>"):
            cut[line.split()[0]] = line.removesuffix("<unfinished ...>")
        elif resumed := _RESUMED.match(line):
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
        found = _BEGUN.match(line)
        if not found or found[1] != (program := program or found[1]):
            continue
        name, text = found[2], found[3]
        # The first thing `main` does: see whether the standard streams are open.
        before_main = before_main and not (name == "fcntl" and text.startswith("0, F_GETFD"))
        turns[name] = turns.get(name, 0) + 1
        target = targets.get(re.split("[^0-9]", text)[0], "")
        calls.append(Call(name, turns[name], text, before_main, target))
        if name in ("openat", "socket"):
            made = "socket" if name == "socket" else "file" if "O_CREAT" in text else ""
            targets[text.rpartition("= ")[2]] = made
    return calls


def watch(bench: Bench, row: int, tls: bool) -> tuple[int, bool, list[Call], list[str], float]:
    """Runs a command with nothing broken: its calls, what is wrong already, and its seconds."""
    command = COMMANDS[row]
    log = bench.prepare(command, tls)
    result = bench.run(command, tracing("-f", "-o", str(log)))
    violations = [*judge_output(bench, command, result, False), *judge_secrets(bench, result),
                  *judge_files(bench, command, result, False)]
    if result.status != (1 if command.err else 0) or result.err != command.err:
        violations.append(f"status {result.status}, {result.err!r}")
    if command.name == "login":
        violations += [f"the opener did not see {words!r}, but {bench.opener_log()!r}"
                       for words in OPENER_SAW
                       if words.format(origin=bench.home.origin) not in bench.opener_log()]
    calls = read_calls(log)
    # A FIFO that takes a file's place must not block the open.
    violations += [f"{call.text} could block" for call in calls
                   if call.name == "openat" and str(bench.home.path) in call.text
                   and "O_RDONLY" in call.text and "O_NONBLOCK" not in call.text]
    return row, tls, calls, violations, result.seconds


# Faults: the errors of each kernel call.

_OPEN = "EACCES EMFILE ENFILE ENOMEM EIO ENOSPC EDQUOT EROFS EEXIST ENOENT EINTR"
_NEW_NAME = "EACCES ENOSPC EDQUOT EROFS EIO ENOENT ENOTDIR"
_MEMORY = "ENOMEM EACCES"

ERRORS: dict[str, str] = {
    # Files.
    "openat": _OPEN,
    "newfstatat": "EACCES EIO ENOMEM ENOENT EOVERFLOW",
    "read": "EIO EINTR EAGAIN ECONNRESET ETIMEDOUT ENETUNREACH ENOMEM",
    "pread64": "EIO EINTR ENOMEM",
    "write": "EIO ENOSPC EDQUOT EFBIG EINTR EAGAIN EPIPE ECONNRESET ETIMEDOUT ENETUNREACH",
    "fsync": "EIO ENOSPC EDQUOT EROFS EINTR",
    "close": "EIO EINTR ENOSPC EDQUOT",
    "rename": "EACCES EXDEV EISDIR " + _NEW_NAME,
    "unlink": "EACCES EPERM EIO EROFS EBUSY ENOENT",
    "mkdir": "EEXIST EMLINK " + _NEW_NAME,
    "fcntl": "EINVAL EPERM EINTR",
    "lseek": "ESPIPE",
    "getdents64": "EIO",
    "access": "EACCES ENOENT ENOMEM EIO",
    # The process.
    "umask": "EPERM ENOSYS",
    "getpid": "ENOSYS",
    "fork": "EAGAIN ENOMEM ENOSYS",
    "rt_sigaction": "EINVAL ENOSYS",
    "rt_sigprocmask": "EINVAL ENOSYS",
    "sysinfo": "EFAULT ENOSYS",
    "prlimit64": "EPERM ENOSYS",
    "arch_prctl": "EPERM",
    "set_tid_address": "ENOSYS",
    "set_robust_list": "ENOSYS",
    "rseq": "ENOSYS EINVAL",
    # Memory.
    "brk": "",
    "mmap": _MEMORY,
    "mremap": "ENOMEM",
    "mprotect": _MEMORY,
    "munmap": "ENOMEM EINVAL",
    "madvise": "ENOMEM EINVAL EAGAIN",
    # Randomness and time.
    "getrandom": "ENOSYS EINTR EAGAIN EPERM",
    "clock_gettime": "EINVAL ENOSYS EPERM",
    # The network.
    "socket": "EMFILE ENFILE ENOBUFS ENOMEM EACCES EAFNOSUPPORT EPERM",
    "connect": "ECONNREFUSED ENETUNREACH EHOSTUNREACH ETIMEDOUT EACCES EADDRNOTAVAIL EINTR EAGAIN",
    "poll": "EINTR ENOMEM EINVAL",
    "getsockopt": "ENOBUFS ENOPROTOOPT",
    "setsockopt": "ENOMEM ENOPROTOOPT EPERM",
    "bind": "EADDRINUSE EACCES ENOMEM",
    "listen": "EADDRINUSE EOPNOTSUPP",
    "accept4": "ECONNABORTED EMFILE ENFILE ENOMEM EINTR EAGAIN EPERM",
    "getsockname": "ENOBUFS",
    "sendto": "ECONNRESET EPIPE ENOBUFS ENOMEM EINTR EAGAIN ENETUNREACH ETIMEDOUT EPERM",
    "recvfrom": "EAGAIN ECONNREFUSED ENOMEM EINTR",
    "shutdown": "ENOTCONN",
}
# The replacements on newer architectures and in newer C libraries.
for _old, _new in (("newfstatat", "fstat"), ("rename", "renameat2"), ("unlink", "unlinkat"), ("mkdir", "mkdirat"),
                   ("access", "faccessat"), ("fork", "clone"), ("poll", "ppoll")):
    ERRORS[_new] = ERRORS[_old]

RESULTS: dict[str, str] = {"read": "0 1", "write": "0 1", "sendto": "1", "recvfrom": "0 5",
                           "getrandom": "0 1", "poll": "0", "ppoll": "0", "brk": "0"}
"""Results that are not errors: an early end, a short count, a wait that runs out.  (brk(2): the
kernel answers a refused request with the old break.)"""

NEVER_FAIL = ("execve", "exit_group", "futex", "restart_syscall")
"""The first makes the process; the others cannot fail, a futex's wake included."""

PASSING = ("EINTR", "EAGAIN", "EEXIST")
"""Errors that no machine returns for ever."""


class Fault(NamedTuple):
    """One way to break a run."""

    label: str
    injections: tuple[str, ...] = ()
    """In strace's words; without any, `limit` is set instead."""
    limit: str = ""
    """An option of prlimit."""
    path: str = ""
    """Only calls on this path; OPENER means the home's."""
    loader: bool = False
    """The system's loader may fail."""
    no_memory: bool = False
    """The documented abort is an answer to this."""
    no_removal: bool = False
    """Files cannot be removed, so that a temporary file may stay."""
    harmless: bool = False
    """The command has to succeed all the same."""
    grave: bool = False
    """The command must not report success: a file may not have been written or removed."""


def _is_retried(call: Call, tls: bool) -> bool:
    """Whether an interrupted call is made again."""
    return (call.name in ("poll", "ppoll", "accept4", "getrandom")
            or (call.name == "write" and call.target == "output")
            or (call.name in ("read", "write") and call.target == "socket" and tls))


def _is_optional(call: Call) -> bool:
    """Whether the program can do without what it asks for."""
    return (call.name == "rt_sigprocmask" and not call.before_main
            or re.search("IP_RECVERR|TCP_NODELAY", call.text) is not None)


def _is_grave(call: Call) -> bool:
    """Whether a file is not what it should be when this call has failed."""
    return (call.name in ("fsync", "rename", "renameat2", "unlink", "unlinkat")
            or (call.name in ("write", "close") and call.target == "file"))


def jump_of_time(calls: list[Call]) -> tuple[str, ...]:
    """For a command that waits for a browser: soon after the usual number of clock readings,
    34 years pass.  So a fault that keeps the browser away does not cost the sweep five minutes."""
    if not any(call.name == "accept4" for call in calls):
        return ()
    turn = sum(call.name == "clock_gettime" for call in calls) + 20
    return (f"clock_gettime:poke_exit=@arg2=0000004000000000:when={turn}+",)


def faults_of(call: Call, tls: bool, later: tuple[str, ...]) -> Iterator[Fault]:
    """Every fault of one call, for once and, where a machine can be like that, from then on; in
    the latter case `later` happens too."""
    errors = dict.fromkeys(ERRORS[call.name].split())
    effects = [f"error={error}:when={call.turn}" for error in errors]
    # A pretended short write would itself damage the file: limits cause real ones.
    effects += [f"retval={result}:when={call.turn}" for result in RESULTS.get(call.name, "").split()
                if result == "0" or call.target != "file"]
    lasting = [effect for effect in effects if not any(error in effect for error in PASSING)]
    if lasting:
        effects.append(lasting[0] + "+")
    for effect in effects:
        injection = f"{call.name}:{effect}"
        more = later if effect.endswith("+") and call.name != "clock_gettime" else ()
        retried = "EINTR" in effect and _is_retried(call, tls)
        yield Fault(injection, (injection, *more), loader=call.before_main,
                    no_memory=call.name in ("brk", "mmap", "mremap"),
                    harmless=retried or (_is_optional(call) and not effect.endswith("+")),
                    grave=_is_grave(call))


def joint_faults(calls: list[Call]) -> Iterator[Fault]:
    """Faults of more than one call, and limits that the kernel enforces."""
    removals = tuple(f"{name}:error=EIO:when=1+" for name in ("unlink", "rmdir", "unlinkat"))
    for first in calls:
        if first.target == "file" or first.name in ("fsync", "rename", "renameat2"):
            failed = f"{first.name}:error=EIO:when={first.turn}+"
            yield Fault(f"{failed}, no file can be removed", (failed, *removals), no_removal=True)
    first_turns = {name: 1 + sum(call.before_main and call.name == name for call in calls)
                   for name in ("brk", "mmap")}
    for turn in range(first_turns["mmap"], first_turns["mmap"] + 12):
        gone = (f"brk:retval=0:when={first_turns['brk']}+", f"mmap:error=ENOMEM:when={turn}+")
        yield Fault(f"no memory from {gone[1]}", gone, no_memory=True)
    if any(call.name in ("fork", "clone") for call in calls):
        for path, injection in (
                ("OPENER", "execve:error=EACCES"), ("OPENER", "execve:error=ENOMEM"),
                ("OPENER", "access:error=EACCES"), ("OPENER", "faccessat:error=EACCES"),
                ("/dev/null", "openat:error=EMFILE"), ("", "dup3:error=EBADF:when=1"),
                ("", "dup3:error=EINTR:when=2"), ("", "dup3:error=EMFILE:when=3")):
            yield Fault(f"the opener's {injection}", (injection,), path=path)
    for call in calls:
        if call.name in ("poll", "ppoll") and re.search(r"1, (1000\b|\{tv_sec=1,)", call.text):
            yield Fault("no clock, and no browser", (
                "clock_gettime:error=EPERM:when=1+", f"{call.name}:retval=0:when={call.turn}+"))
            break
    for size in (*range(0, 90), 2000):
        yield Fault(f"files of at most {size} bytes", limit=f"--fsize={size}")
    for count in range(3, 12):
        yield Fault(f"descriptors below {count}", limit=f"--nofile={count}", loader=True)
    for size in range(2 << 20, 40 << 20, 1 << 19):
        yield Fault(f"{size} bytes of address space", limit=f"--as={size}", loader=True,
                    no_memory=True)


class Outcome(NamedTuple):
    """What became of one run."""

    row: int
    tls: bool
    what: str
    kind: str
    """Of a fault how the run ended, of a crash the state of the files, or `missed`."""
    violations: list[str]
    seconds: float = 0
    message: str = ""
    """The documented message that was printed."""
    stale: int = 0


def try_fault(bench: Bench, row: int, tls: bool, fault: Fault) -> Outcome:
    """Breaks a run and judges it."""
    command = COMMANDS[row]
    for _ in range(3):
        # How many reads a run needs depends on the network's timing: the last ones may not come.
        log = bench.prepare(command, tls)
        paths = [fault.path.replace("OPENER", str(bench.opener))] if fault.path else []
        result = bench.run(command, tampering(log, fault.injections, paths) if fault.injections
                           else [PRLIMIT, fault.limit])
        broken = [line for line in complete_lines(log) if "(INJECTED" in line
                  ] if fault.injections else [""]
        if broken:
            break
    lossy = any(re.search(r"write\([12],", line) for line in broken)
    violations, kind = [], "succeeded" if result.status == 0 else "failed"
    if fault.loader and result.status in (127, -11) and not result.out:
        kind = "loader"
    elif fault.no_memory and result.status == -6 and result.err == "memory limit exceeded\n":
        kind = "memory"
    else:
        violations += judge_output(bench, command, result, lossy and not fault.harmless)
    if fault.harmless and broken and result.status != (1 if command.err else 0):
        violations.append(f"a call that is to be made again was not: {result.err!r}")
    if fault.grave and broken and result.status == 0:
        violations.append("status 0, although a file was not surely written or removed")
    violations += judge_files(bench, command, result, fault.no_removal)
    violations += judge_secrets(bench, result)
    message = MESSAGES.explain(result.err.rstrip("\n"), "stderr")
    return Outcome(row, tls, fault.label, kind if broken else "missed", violations, result.seconds,
                   message.text if message else "")


Watched = list[tuple[int, bool, list[Call], list[str], float]]


def collect_faults(watched: Watched) -> list[tuple[int, bool, Fault]]:
    """All faults of all commands; those of the loader, the same for all, only once."""
    tasks = []
    for row, tls, calls, *_ in watched:
        unknown = {call.name for call in calls} - ERRORS.keys() - {*NEVER_FAIL}
        if unknown:
            sys.exit(f"{title(row, tls)}: no faults are known for {', '.join(sorted(unknown))}")
        first = (row, tls) == (0, False)
        later = jump_of_time(calls)
        faults = [fault for call in calls if call.name not in NEVER_FAIL
                  and (first or not call.before_main) for fault in faults_of(call, tls, later)]
        tasks += [(row, tls, fault) for fault in (*faults, *joint_faults(calls))]
    return tasks


# Crashes.

WRITERS = [row for row, command in enumerate(COMMANDS)
           if any(change.old != change.new for change in command.files(Home("x")).values())]
OBSTACLES = (
    # What stands at the temporary name, made by a shell with that name as $1, and whether it can
    # be removed.
    ("nothing", ":", True),
    ("a file of others", "umask 0; echo foreign >$1", True),
    ("a link to a file", "ln -s ../victim $1", True),
    ("a link to a missing file", "ln -s ../missing $1", True),
    ("a FIFO", "mkfifo $1", True),
    ("a folder", "mkdir $1", True),
    ("a folder with a file", "mkdir $1; echo mine >$1/file", False),
)


def run_again(bench: Bench, command: Command) -> Iterator[str]:
    """The next run has the number that the stale temporary files are named after."""
    out = command.name == "logout" and not bench.home.credential().exists()
    moves = "".join(f"mv '{path}' '{path.with_suffix('')}'.$$; "
                    for name, path in bench.found().items() if ".tmp." in name)
    result = bench.run(command, bench.shell(moves))
    if (result.status, result.err) != ((1, "Run quorvane login first\n") if out else (0, "")):
        yield f"the next run: status {result.status}, {result.err!r}"
    if not out:
        yield from judge_output(bench, command, result, False)
    for violation in judge_files(bench, command, result, False):
        yield f"the next run: {violation}"


def crash(bench: Bench, row: int, tls: bool, call: Call, name: str) -> Outcome:
    """Sends a signal at the beginning of `call`, judges what is left, and runs the command again."""
    command, what = COMMANDS[row], f"SIG{name} at {call.name} {call.turn}"
    for _ in range(3):
        # How many reads a run needs depends on the network's timing.
        log = bench.prepare(command, tls)
        result = bench.run(command, tampering(log, [
            f"{call.name}:signal={name}:when={call.turn}"]))
        # The last call ends the program before a signal that can wait does.
        if result.status == (0 if call.name == "exit_group" and name != "KILL"
                             else -getattr(signal, "SIG" + name)):
            break
    else:
        return Outcome(row, tls, what, "missed", [])
    violations = list(judge_files(bench, command, result, name == "KILL"))
    violations += judge_secrets(bench, result)
    found, files = bench.found(), command.files(bench.home)
    states = {"new" if (found[file].read_bytes() if file in found else None) == change.new else "old"
              for file, change in files.items() if change.old != change.new}
    if len(states) > 1 and name != "KILL":
        violations.append("a configuration and a revision that do not belong together")
    stale = sum(".tmp." in file for file in found)
    violations += run_again(bench, command)
    return Outcome(row, tls, what, states.pop() if len(states) == 1 else "both", violations,
                   result.seconds, stale=stale)


def obstruct(bench: Bench, row: int, place: int, obstacle: str, script: str,
             removable: bool) -> Outcome:
    """Runs a command with something at the temporary name of its file number `place`."""
    command = COMMANDS[row]
    bench.prepare(command, False)
    target = bench.home.path / list(command.files(bench.home))[place]
    target.parent.mkdir(parents=True, exist_ok=True)
    bench.close_folders()
    victim = target.parent.parent / "victim"
    victim.write_text("untouched")
    victim.chmod(0o600)
    named = f"set -- '{target}'.tmp.$$ \"$@\"; {script}; shift; "
    result = bench.run(command, bench.shell(named))
    violations = list(judge_output(bench, command, result, False))
    if result.status != (0 if removable else 1):
        violations.append(f"status {result.status}")
    if victim.read_text() != "untouched" or (victim.parent / "missing").exists():
        violations.append("a link was followed")
    victim.unlink()
    kept = next(target.parent.glob("*.tmp.*/file"), None)
    if not removable and (kept is None or kept.read_text() != "mine\n"):
        violations.append("a file of others is gone")
    elif removable:
        violations += judge_files(bench, command, result, False)
    return Outcome(row, False, f"{obstacle} at the temporary name of {target.name}", "", violations)


def collect_crashes(watched: Watched) -> list[tuple[int, bool, Call, str]]:
    """Every call of every writing command; the loader's, the same for all, only once.  The signals
    that can be held back come over one transport."""
    return [(row, tls, call, name) for row, tls, calls, *_ in watched for call in calls
            if call.name != "execve"
            and (not call.before_main or (row, tls) == (WRITERS[0], False))
            for name in ("KILL", *(() if tls or call.before_main else ("INT", "TERM", "HUP")))]


def collect_obstacles() -> list[tuple[int, int, str, str, bool]]:
    """Every obstacle for every file that is written."""
    return [(row, place, *obstacle) for row in WRITERS
            for place, change in enumerate(COMMANDS[row].files(Home("x")).values())
            if change.new is not None and change.old != change.new for obstacle in OBSTACLES]


# Tasks on all processors, and the table at the end.

_bench: Bench  # pylint: disable=invalid-name


def _begin_worker(authority: Authority) -> None:
    global _bench  # pylint: disable=global-statement
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    os.umask(0)  # Anything private must come from the program itself.
    _bench = Bench(authority)


def _run_task(task: tuple[Callable[..., Any], tuple[Any, ...]]) -> Any:
    return task[0](_bench, *task[1])


def title(row: int, tls: bool) -> str:
    """What a row of COMMANDS is called, over which transport."""
    return f"{COMMANDS[row].name} ({'tls' if tls else 'plain'})"


def sample(tasks: Sequence[Any], count: int) -> list[Any]:
    """At most `count` tasks, one of each kind before there are two of any.

    It differs from commit to commit where git tells them apart, and not from run to run.
    """
    def kind(task: tuple[Any, ...]) -> object:
        row, tls, what, *more = task
        if isinstance(what, Call):
            return row, what.name, *more
        return tls, re.sub("when=[0-9]+", "", what.label), what.harmless, what.grave
    commit = b""
    if shutil.which("git"):
        commit = subprocess.run(["git", "rev-parse", "HEAD"], cwd=ROOT,
                                capture_output=True, check=False).stdout
    shuffled = list(tasks)
    random.Random(commit).shuffle(shuffled)
    rounds: Counter[object] = Counter()
    order = []
    for place, task in enumerate(shuffled):
        order.append((rounds[kind(task)], place))
        rounds[kind(task)] += 1
    return [shuffled[place] for _, place in sorted(order)[:count]]


def print_outcomes(watched: Watched, outcomes: list[Outcome], kinds: Iterable[str]) -> None:
    """The table, and which documented failures came up."""
    heads = ["calls", "broken", *kinds, "stale", "violations"]
    print(" " * 28, "".join(f"{head:>11}" for head in heads))
    totals: Counter[str] = Counter()
    for row, tls, calls, *_ in watched:
        own = [outcome for outcome in outcomes if (outcome.row, outcome.tls) == (row, tls)]
        count = Counter(outcome.kind for outcome in own)
        count.update(calls=len(calls), broken=len(own) - count["missed"],
                     stale=sum(outcome.stale for outcome in own),
                     violations=sum(len(outcome.violations) for outcome in own))
        print(f"{title(row, tls):28}", "".join(f"{count[head]:11}" for head in heads))
        totals += count
    print(f"{'all':28}", "".join(f"{totals[head]:11}" for head in heads))
    print(f"\nslowest run: {max(outcome.seconds for outcome in outcomes):.1f} s; missed: the call"
          " did not come up again;\nmemory: the documented abort; loader: the system's loader gave"
          " up or fell (status 127, SIGSEGV)\n")
    seen = Counter(outcome.message for outcome in outcomes if outcome.message)
    for message in MESSAGES.messages:
        if message.where.startswith("stderr") and message.text in seen:
            print(f"{seen[message.text]:6}  {message.text}")


def sweep(options: argparse.Namespace, run: Callable[..., Iterator[Any]]) -> int:
    """Sweeps; the exit status."""
    faults = options.sweep == "faults"
    watched: Watched = sorted(run(watch, [
        (row, tls) for row in (range(len(COMMANDS)) if faults else WRITERS) for tls in (False, True)
        if options.command in (None, COMMANDS[row].name)]), key=lambda each: each[:2])
    outcomes = [Outcome(row, tls, "nothing broken", "", violations)
                for row, tls, _, violations, _ in watched if violations]
    _idle_s.value = max([MIN_IDLE_S, *(3 * seconds for *_, seconds in watched)])
    if not outcomes:
        tasks: list[Any] = collect_faults(watched) if faults else collect_crashes(watched)
        tasks = [task for task in tasks if options.only in str(task[2:])]
        if options.short:
            tasks = sample(tasks, options.count or SHORT_COUNTS[options.sweep])
        # The slow ones lie together: apart they do not hold one another up.
        random.Random(0).shuffle(tasks)
        outcomes = list(run(try_fault if faults else crash, tasks))
        print_outcomes(watched, outcomes, ("succeeded", "failed", "memory", "loader", "missed")
                       if faults else ("old", "both", "new", "missed"))
    missed = sum(outcome.kind == "missed" for outcome in outcomes) * 20 > len(outcomes)
    if missed:
        print("VIOLATION too many calls did not come up again")
    if not faults:
        obstructed = list(run(obstruct, collect_obstacles()))
        print(f"{len(obstructed)} runs with something at the temporary name")
        outcomes += obstructed
    for outcome in outcomes:
        for violation in outcome.violations:
            print(f"VIOLATION {title(outcome.row, outcome.tls)}, {outcome.what}: {violation}")
    return int(missed or any(outcome.violations for outcome in outcomes))


def main() -> int:
    """Goes on in namespaces of its own, network, mounts and process ids, and sweeps there.

    Nothing started inside outlives this process, and no port of the machine is touched.
    """
    parser = argparse.ArgumentParser("scripts/sweep", description="Runs every command with something broken.")
    parser.add_argument("sweep", choices=SHORT_COUNTS)
    parser.add_argument("program", nargs="?", default=ROOT / "build/release/quorvane", type=Path)
    parser.add_argument("--short", action="store_true", help="a sample")
    parser.add_argument("--count", type=int, help="how large a sample")
    parser.add_argument("--command", help="only this command")
    parser.add_argument("--only", default="", help="only what this text occurs in")
    parser.add_argument("--jobs", type=int, default=2 * (os.cpu_count() or 1))
    options = parser.parse_intermixed_args()
    missing = [tool for tool in ("openssl", "prlimit", "strace", "unshare")
               if not shutil.which(tool)]
    if missing:
        sys.exit(f"scripts/sweep: {', '.join(missing)} missing: see scripts/setup")
    if os.environ.get("QUORVANE_SWEEP_INSIDE") != "yes":
        os.environ["QUORVANE_SWEEP_INSIDE"] = "yes"
        os.execv(ROOT / "dev/namespace", ["namespace", "unshare", "--pid", "--fork", "--kill-child",
                                          "--mount-proc", sys.executable, "-B", "-m", "faults",
                                          *sys.argv[1:]])
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    # The first process of a namespace is spared what it does not handle, and what is ignored here
    # would be ignored by the program, too.
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT):
        signal.signal(number, signal.default_int_handler)
    Home.program = options.program.resolve()
    began = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="quorvane-sweep-") as folder:
        replace(RESOLVER_FILE, "nameserver 127.0.0.1\n", Path(folder))
        authority = Authority(folder)
        authority.issue("service", HOST)
        with multiprocessing.get_context("fork").Pool(
                options.jobs, _begin_worker, (authority,)) as pool:
            NameServer(lambda query, _: dns_reply(query, address(
                "::1" if query[-3] == 28 else "127.0.0.1")))
            status = sweep(options, lambda function, tasks: pool.imap_unordered(
                _run_task, ((function, task) for task in tasks), 4))
    print(f"\n{time.monotonic() - began:.0f} s")
    return status


if __name__ == "__main__":
    sys.exit(main())
