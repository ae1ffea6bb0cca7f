"""What the end-to-end tests share: scenes of a user's home and a scripted peer, and tables of runs.

ctest sets QUORVANE to the program under test.  Nothing here uses a fixed port, a fixed path or a
pause: every wait ends with what it waits for, or fails after TIME_LIMIT_S.
"""

from __future__ import annotations

import hashlib
import json
import os
import shutil
import socket
import stat
import struct
import subprocess
import tempfile
import threading
import unittest
from collections.abc import Callable, Iterable, Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from types import SimpleNamespace
from typing import Any, NamedTuple

PROGRAM = os.environ["QUORVANE"]
TIME_LIMIT_S = 40
TOKEN = "qvt-canary-5d1f"


class Result(NamedTuple):
    """How a run ended; a negative status is the signal that ended it."""

    status: int
    out: bytes
    err: bytes


def good(text: str) -> Result:
    return Result(0, text.encode(), b"")


def bad(message: str) -> Result:
    """The one way to fail: a line on standard error and status 1."""
    return Result(1, b"", message.encode() + b"\n")


SIGNED_OUT = bad("Run quorvane login first")


def tracing(*options: str) -> tuple[str, ...]:
    """A wrapper that runs the program under strace: to see its kernel calls or to change them."""
    return (shutil.which("strace") or "strace", "-qq", *options)


def failing(calls: str, error: str, when: str = "1+", path: Path | None = None) -> tuple[str, ...]:
    """A wrapper that fails kernel calls (names with commas), only those on `path` if given."""
    names = ",".join("?" + name for name in calls.split(","))  # No machine has all of them.
    return tracing("-o", "/dev/null", *(("-P", str(path)) if path else ()), "-e", f"trace={names}",
                   "-e", f"inject={names}:error={error}:when={when}")


def shell(commands: str) -> tuple[str, ...]:
    """A wrapper: shell commands that end in `exec "$@"`, which keeps the process."""
    return ("/bin/sh", "-c", commands, "sh")


# A script is what a peer does on one connection before it closes it: bytes to send and calls to
# make, which take a record of the connection: `socket`, `scene`, and what was `received`.

def read_request(connection: Any) -> None:
    """Reads one request, as long as its Content-Length says."""
    missing = 1
    while missing > 0 and (data := connection.socket.recv(1 << 20)):
        connection.received += data
        head, end, body = connection.received.partition(b"\r\n\r\n")
        length = int(head.partition(b"Content-Length: ")[2].partition(b"\r\n")[0] or 0)
        missing = length - len(body) if end else 1


def until_gone(connection: Any) -> None:
    """Stays silent until the client closes."""
    while connection.socket.recv(1 << 20):
        pass


def until_over(connection: Any) -> None:
    """Stays silent, without reading either, until the client has ended."""
    connection.scene.over.wait(TIME_LIMIT_S)


def reset(connection: Any) -> None:
    """Makes the close that follows a reset."""
    connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def reply(*steps: Any) -> Sequence[Any]:
    return (read_request, *steps)


def answer(body: Any, status: int = 200) -> bytes:
    """A well-formed answer; bytes are sent as they are, anything else as JSON."""
    content = body if isinstance(body, bytes) else json.dumps(body).encode()
    return b"HTTP/1.1 %d Words\r\nContent-Length: %d\r\n\r\n%s" % (status, len(content), content)


class Scene:
    """A signed-in user's home with a clean environment, and a peer on 127.0.0.1.

    Connection n is played script n.  What comes beyond the scripts is recorded and closed, so that
    an unexpected connection shows up in `requests`.
    """

    def __init__(self, *scripts: Sequence[Any], receive_buffer: int = 0) -> None:
        self._folder = tempfile.TemporaryDirectory(prefix="quorvane-e2e-")
        self.home = Path(self._folder.name)
        self.work = self.home / "work"
        self.environment = {"HOME": f"{self.home}/home", "PATH": f"{self.home}/bin",
                            "XDG_CONFIG_HOME": f"{self.home}/config",
                            **{k: v for k, v in os.environ.items() if k == "ASAN_OPTIONS"}}
        self._listener, self._waker = socket.socket(), socket.socket()
        if receive_buffer:
            self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self._listener.bind(("127.0.0.1", 0))
        self._listener.listen(16)
        self._waker.bind(("127.0.0.1", 0))
        self._thread = threading.Thread(target=self._serve)
        self._scripts = scripts
        self.over = threading.Event()
        self.connections: list[Any] = []
        self.port = int(self._listener.getsockname()[1])
        self.origin = f"http://127.0.0.1:{self.port}"
        self.work.mkdir()
        self.credential().parent.mkdir(parents=True)
        self.credential().write_text(json.dumps({"token": TOKEN}))

    def __enter__(self) -> Any:
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.over.set()
        # Connections wait in line: when the waker's turn has come, all earlier ones were played.
        with self._waker, self._listener, self._folder:
            self._waker.connect(("127.0.0.1", self.port))
            self._thread.join()

    def _serve(self) -> None:
        while True:
            accepted, address = self._listener.accept()
            with accepted:
                if address == self._waker.getsockname():
                    return
                accepted.settimeout(TIME_LIMIT_S)
                accepted.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                connection = SimpleNamespace(socket=accepted, scene=self, received=b"")
                self.connections.append(connection)
                try:
                    for step in [*self._scripts, *[reply()] * 9][len(self.connections) - 1]:
                        accepted.sendall(step) if isinstance(step, bytes) else step(connection)
                except ConnectionError:
                    pass  # The client may leave whenever it wants to.

    @property
    def requests(self) -> list[bytes]:
        return [connection.received for connection in self.connections]

    def body(self, turn: int) -> Any:
        """The body of a request that was received."""
        return json.loads(self.requests[turn].partition(b"\r\n\r\n")[2])

    def request(self, path: str, body: str = "{}", token: str = TOKEN,
                host: str = "127.0.0.1") -> bytes:
        """The exact bytes of a call to the peer."""
        return (f"POST {path} HTTP/1.1\r\nContent-Type: application/json\r\n"
                f"Authorization: Bearer {token}\r\nHost: {host}:{self.port}\r\n"
                f"Content-Length: {len(body.encode())}\r\nConnection: close\r\n\r\n{body}").encode()

    def credential(self, origin: str = "") -> Path:
        """The credential file of an origin, by default the peer's."""
        name = hashlib.sha256((origin or self.origin).encode()).hexdigest() + ".json"
        return self.home / "config" / "quorvane" / name

    def start(self, *words: Any, wrapper: Any = (), **options: Any) -> subprocess.Popen[bytes]:
        """Starts the program on the peer's origin, signals at their default (as Popen does)."""
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                   "stderr": subprocess.PIPE, "cwd": self.work, "env": self.environment}
        wrapper = wrapper(self) if callable(wrapper) else wrapper
        return subprocess.Popen([*wrapper, PROGRAM, "--base-url", self.origin, *words],
                                **(streams | options))

    def run(self, *words: Any, **options: Any) -> Result:
        return finish(self.start(*words, **options))

    def files(self) -> dict[str, tuple[str, bytes]]:
        """All that is in the home: mode and contents, b"" of what is no file of a usual size."""
        found = {}
        for path in self.home.rglob("*"):
            status = path.lstat()
            regular = stat.S_ISREG(status.st_mode) and status.st_size < 1 << 26
            found[str(path.relative_to(self.home))] = (
                stat.filemode(status.st_mode), path.read_bytes() if regular else b"")
        return found


def finish(process: subprocess.Popen[bytes]) -> Result:
    """Waits for the end of a started program."""
    with process:
        try:
            out, err = process.communicate(timeout=TIME_LIMIT_S)
        finally:
            process.kill()
    return Result(process.returncode, out or b"", err or b"")


def difference(before: dict[str, Any], after: dict[str, Any]) -> dict[str, Any]:
    """What is new or different, and None for what is gone."""
    return {name: after.get(name) for name in before | after
            if before.get(name) != after.get(name)}


class EndToEnd(unittest.TestCase):
    """Tables of runs, each row named and in a scene of its own."""

    def rows(self, table: Iterable[Sequence[Any]], check: Callable[..., None] | None = None,
             workers: int = 4) -> None:
        """Calls `check` with each row's fields after its name, several rows at once.

        A dictionary at the end of a row holds arguments by name.
        """
        with ThreadPoolExecutor(workers) as pool:
            started = []
            for name, *fields in table:
                options = fields.pop() if isinstance(fields[-1], dict) else {}
                started.append((name, pool.submit(check or self.check, *fields, **options)))
        for name, future in started:
            with self.subTest(name):
                future.result()

    def check(self, expected: Result, words: Any, scripts: Any = (), sent: Any = (),
              changed: Any = (), prepare: Any = None, receive_buffer: int = 0,
              **options: Any) -> None:
        """One run: its result, the exact calls sent (None: not looked at), the files changed (to
        None: gone).  ORIGIN in texts stands for the peer's, CREDENTIAL in names for its file."""
        with Scene(*scripts, receive_buffer=receive_buffer) as scene:
            if prepare:
                prepare(scene)
            before = scene.files()
            words = words.split() if isinstance(words, str) else words
            file, url = str(scene.credential().relative_to(scene.home)), scene.origin.encode()
            expected = expected._replace(err=expected.err.replace(b"ORIGIN", url))
            self.assertEqual(scene.run(*words, **options), expected)
            self.assertEqual(difference(before, scene.files()), {
                name.replace("CREDENTIAL", file): new and (new[0], new[1].replace(b"ORIGIN", url))
                for name, new in dict(changed).items()})
        self.assertEqual(len(scene.requests), len(scripts))
        if sent is not None:
            self.assertEqual(scene.requests, [scene.request(*call) for call in sent])
