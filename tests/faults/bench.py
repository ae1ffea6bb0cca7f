"""Where the commands are broken: the service and its browser, every command, a home for each run."""

import ctypes
import json
import multiprocessing
import os
import re
import shutil
import socket
import subprocess
import threading
import time
from collections.abc import Iterator, Sequence
from contextlib import suppress
from pathlib import Path
from typing import Any, NamedTuple

from laboratory.home import TOKEN, File, Home, Result, finish, private
from laboratory.network import Authority, serving
from laboratory.peers import Connection, Peer, answer, reply

WAIT_S = 20
"""Two waits of 10 s: two calls have three each, of which one fault makes one run out."""
idle_s = multiprocessing.Value("d", WAIT_S)
"""How long the service waits for the rest of a request: longer than any delay of a run that works."""

# The service's answers are constants, so that the files they lead to are known byte for byte.
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
        self.browsers: list[threading.Thread] = []
        for peer in self._peers:
            peer.connections.clear()
            peer.idle_limit_s = idle_s.value

    @property
    def requests(self) -> list[bytes]:
        """All that was sent, incomplete requests too."""
        return [request for peer in self._peers for request in peer.requests]

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
            self.browsers.append(browser)
        elif name == "exchange":
            self.secrets["verifier"] = json.loads(body)["verifier"]
        refused = name == "project-configure" and self.refusing
        connection.socket.sendall(answer({"error": REFUSAL}, 409) if refused
                                  else answer(ANSWERS.get(name, {})))

    def _browse(self, port: int, state: str) -> None:
        """The browser comes back, and again when it was not understood, as a person would."""
        for _ in range(8):
            page = b""
            try:
                with socket.create_connection(("127.0.0.1", port), timeout=25) as connection:
                    connection.sendall(f"GET /callback?request=req-1&state={state}&code=c HTTP/1.1\r\n"
                                       f"Host: 127.0.0.1:{port}\r\n\r\n".encode())
                    while data := connection.recv(4096):
                        page += data
            except ConnectionRefusedError:
                return
            except OSError:
                continue
            self.pages.append(page.partition(b"\r\n\r\n")[2].decode())
            if self.pages[-1] not in ("", "Unknown login callback"):
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
        """All files of the home, by name: the credential, the configuration and its record."""
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
WRITERS = [row for row, command in enumerate(COMMANDS)
           if any(change.old != change.new for change in command.files(Home("x")).values())]
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
        limit_s = WAIT_S + 4 * idle_s.value
        process = self.home.start(*command.words.split(), wrapper=wrapper)
        try:
            result = finish(process, limit_s)
        except subprocess.TimeoutExpired:
            result = Result(None, *process.communicate())
        for browser in self.service.browsers:
            browser.join()
        deadline = time.monotonic() + limit_s
        with suppress(ChildProcessError):  # Until no child is left.
            while time.monotonic() < deadline and os.waitpid(-1, os.WNOHANG) == (0, 0):
                time.sleep(0.005)
        return result

    def shell(self, script: str) -> list[str]:
        """A wrapper that runs a script in the very process that then becomes the program."""
        return ["/bin/sh", "-c", f'PATH=/bin:/usr/bin; {script}'
                f' PATH={self.home.environment["PATH"]}; exec "$@"', "sh"]

    def opener_log(self) -> str:
        """What the launched opener saw of itself; empty when none was launched."""
        log = Path(f"{self.opener}.log")
        return log.read_text() if log.exists() else ""

    def found(self) -> dict[str, File]:
        """All that is where the program writes, by name."""
        return {name: file for name, file in self.home.files().items()
                if name.startswith(("config/", "work/"))}
