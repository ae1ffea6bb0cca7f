"""The commands that are broken, and one run of one of them: its home, its service, its browser."""

import json
import socket
import ssl
import subprocess
from collections.abc import Sequence
from contextlib import suppress
from pathlib import Path
from typing import Any, NamedTuple

from laboratory.home import TOKEN, File, Home, Result, finish
from laboratory.peers import Connection, Peer, answer, reply
from laboratory.tracing import tracing

WAIT_S = 20
"""Two waits of 10 s: two calls have three each, of which one fault makes one run out."""

# The service's answers are constants, so that the files they lead to are known byte for byte.
HOST = "sweep.test"
NEW_TOKEN = "qvt-canary-77ac2d"
EMAIL = "ada@example.org"
CONFIG: dict[str, Any] = {"units": "metres", "stations": [{"depth": -4.5}, None]}
ANSWERS: dict[str, Any] = {
    "start": {"request": "req-1"},
    "exchange": {"token": NEW_TOKEN, "email": EMAIL},
    "account": {"account": {"canonical_email": EMAIL}},
    "projects": {"projects": [{"id": "p", "name": "Tides"}, {"id": "q", "name": "Wind"}]},
    "project": {"project": {"config": {"id": "p", **CONFIG}, "revision": 8}},
    "project-configure": {"project": {"revision": 8}},
}


class Change(NamedTuple):
    """A file's contents before a run and after one that succeeded; None: no file."""

    old: bytes | None
    new: bytes | None


def _json(value: object) -> bytes:
    return json.dumps(value, separators=(",", ":")).encode()


OLD_CREDENTIAL = json.dumps({"token": TOKEN, "email": "old"}).encode()
NEW_CREDENTIAL = _json({"token": NEW_TOKEN, "email": EMAIL})
OLD_CONFIG = b'{ "units": "feet" }\n'
NEW_CONFIG = json.dumps(CONFIG, indent=2).encode() + b"\n"


class Command(NamedTuple):
    """One command line, its output and the files that it may change."""

    name: str
    words: str
    out: str
    """`{origin}` stands for the origin."""
    credential: Change = Change(OLD_CREDENTIAL, OLD_CREDENTIAL)
    file: str = "work/quorvane.config.json"
    config: Change = Change(OLD_CONFIG, OLD_CONFIG)
    revision: tuple[int | None, int | None] = (7, 7)

    def changes(self, home: Home) -> dict[Path, Change]:
        """All files of the home: the credential, the configuration and its record."""
        recorded = (revision and _json({"projectId": "p", "baseUrl": home.origin,
                                        "revision": revision}) for revision in self.revision)
        changes = {home.credential(): self.credential, home.path / self.file: self.config,
                   home.path / (self.file + ".sync.json"): Change(*recorded)}
        return {path: change for path, change in changes.items() if change != (None, None)}


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


class Bench(Home):
    """A command's home in the state before it, and its service; a context for one run."""

    tls_context: ssl.SSLContext
    trust_file: str
    idle_s = float(WAIT_S)
    """How long the service waits for the rest of a request: longer than any that is complete."""

    def __init__(self, command: Command, tls: bool) -> None:
        super().__init__()
        self.command, self.result = command, Result(None, b"", b"")
        self.secrets: dict[str, str] = {}
        self.pages: list[str] = []
        self.peer = Peer(reply(self._serve), address="::", tls=self.tls_context if tls else None)
        self.peer.idle_limit_s = self.idle_s
        self.origin = (f"https://{HOST}" if tls else "http://127.0.0.1") + f":{self.peer.port}"
        self.environment |= {"SSL_CERT_FILE": self.trust_file,
                             "PATH": f"/nowhere:{self.path}/bin"}
        self.opener = self.equip("xdg-open", OPENER)
        self.changes = command.changes(self)
        (self.path / "victim").write_text("untouched")
        for path, change in self.changes.items():
            if change.old is not None:
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_bytes(change.old)

    def run(self, options: str = "", wrapper: Sequence[str] = ()) -> None:
        """Runs the command after `wrapper` under strace with `options`, until no child is left."""
        # In both {0} is the first file that is written, {1} the second.
        files = [path for path, change in self.changes.items()
                 if change.new not in (None, change.old)]
        words = [word.format(*files, opener=self.opener, victim=self.path / "victim")
                 for word in (*options.split(), *wrapper)]
        before = tracing("-ff", "-o", f"{self.path}/calls", *words)
        with self.peer, suppress(subprocess.TimeoutExpired):
            # Anything private must come from the program itself.
            self.result = finish(self.start(*self.command.words.split(), wrapper=before, umask=0),
                                 WAIT_S + 4 * self.idle_s)

    def logs(self) -> list[str]:
        """The kernel calls of each process of the run, the program's first."""
        logs = [log.read_text(errors="replace") for log in self.path.glob("calls.*")]
        return sorted(logs, key=lambda log: "fcntl(0, F_GETFD" not in log)

    def opener_log(self) -> str:
        """What the launched opener saw of itself; empty when none was launched."""
        log = Path(f"{self.opener}.log")
        return log.read_text() if log.exists() else ""

    def found(self) -> dict[Path, File]:
        """All that is where the program writes."""
        return {self.path / name: file for name, file in self.files().items()
                if name.startswith(("config/", "work/"))}

    def _serve(self, connection: Connection) -> None:
        head, _, body = connection.received.partition(b"\r\n\r\n")
        call = head.partition(b" HTTP/")[0].rpartition(b"/")[2].decode(errors="replace")
        said = json.loads(body)
        self.secrets |= {name: said[name] for name in ("state", "verifier") if name in said}
        connection.socket.sendall(answer(ANSWERS.get(call, {})))
        connection.socket.close()
        if call == "start":
            self._browse(said["port"], f"GET /callback?request=req-1&state={said['state']}&code=c "
                         f"HTTP/1.1\r\nHost: 127.0.0.1:{said['port']}\r\n\r\n".encode())

    def _browse(self, port: int, request: bytes) -> None:
        """The browser comes back, and again when it was not understood, as a person would."""
        for _ in range(8):
            with suppress(OSError), socket.create_connection(("127.0.0.1", port), 25) as browser:
                browser.sendall(request)
                page = b"".join(iter(lambda: browser.recv(4096), b"")).partition(b"\r\n\r\n")[2]
                self.pages.append(page.decode())
            if self.pages and self.pages[-1] not in ("", "Unknown login callback"):
                break
