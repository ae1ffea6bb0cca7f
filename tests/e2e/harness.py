"""What the end-to-end tests share: scenes of a user's home and a scripted peer, and tables of runs.

ctest sets QUORVANE to the program under test.  Nothing here uses a fixed port, a fixed path or a
pause: the kernel chooses ports, every home is a new temporary folder, and every wait ends with what
it waits for or fails after TIME_LIMIT_S.
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
from typing import Any, NamedTuple

PROGRAM = os.environ["QUORVANE"]
TIME_LIMIT_S = 40
TOKEN = "qvt-canary-5d1f"

Script = Sequence[Any]
"""What a peer does on one connection: bytes to send and calls to make, then it closes."""


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


class Connection:
    """The peer's end of one connection, with what it has received of the request."""

    def __init__(self, accepted: socket.socket, scene: Scene) -> None:
        accepted.settimeout(TIME_LIMIT_S)
        accepted.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.socket, self.scene, self.received = accepted, scene, b""

    def body(self) -> Any:
        return json.loads(self.received.partition(b"\r\n\r\n")[2])


def read_request(connection: Connection) -> None:
    """Reads one request, as long as its Content-Length says."""
    missing = 1
    while missing > 0 and (data := connection.socket.recv(1 << 20)):
        connection.received += data
        head, end, body = connection.received.partition(b"\r\n\r\n")
        length = int(head.partition(b"Content-Length: ")[2].partition(b"\r\n")[0] or 0)
        missing = length - len(body) if end else 1


def until_gone(connection: Connection) -> None:
    """Stays silent until the client closes."""
    while connection.socket.recv(1 << 20):
        pass


def until_over(connection: Connection) -> None:
    """Stays silent, without reading either, until the client has ended."""
    connection.scene.over.wait(TIME_LIMIT_S)


def reset(connection: Connection) -> None:
    """Makes the close that follows a reset."""
    connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def reply(*steps: Any) -> Script:
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

    def __init__(self, *scripts: Script, receive_buffer: int = 0) -> None:
        self._folder = tempfile.TemporaryDirectory(prefix="quorvane-e2e-")
        self.home = Path(self._folder.name)
        self.work = self.home / "work"
        self.environment = {"HOME": f"{self.home}/home", "PATH": f"{self.home}/bin",
                            "XDG_CONFIG_HOME": f"{self.home}/config"}
        if "ASAN_OPTIONS" in os.environ:
            self.environment["ASAN_OPTIONS"] = os.environ["ASAN_OPTIONS"]
        self._listener, self._waker = socket.socket(), socket.socket()
        if receive_buffer:
            self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self._listener.bind(("127.0.0.1", 0))
        self._listener.listen(16)
        self._waker.bind(("127.0.0.1", 0))
        self._scripts, self._error = scripts, None
        self._thread = threading.Thread(target=self._serve)
        self.over = threading.Event()
        self.connections: list[Connection] = []
        self.port = int(self._listener.getsockname()[1])
        self.origin = f"http://127.0.0.1:{self.port}"
        self.work.mkdir()
        self.credential().parent.mkdir(parents=True)
        self.credential().write_text(json.dumps({"token": TOKEN}))

    def __enter__(self) -> Scene:
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.over.set()
        # Connections wait in line: when the waker's turn has come, all earlier ones were played.
        with self._waker, self._listener, self._folder:
            self._waker.connect(("127.0.0.1", self.port))
            self._thread.join()
        if self._error:
            raise self._error

    def _serve(self) -> None:
        while True:
            accepted, address = self._listener.accept()
            with accepted:
                if address == self._waker.getsockname():
                    return
                turn = len(self.connections)
                self.connections.append(Connection(accepted, self))
                try:
                    for step in self._scripts[turn] if turn < len(self._scripts) else reply():
                        if isinstance(step, bytes):
                            accepted.sendall(step)
                        else:
                            step(self.connections[-1])
                except ConnectionError:
                    pass  # The client may leave whenever it wants to.
                except Exception as error:  # pylint: disable=broad-except
                    self._error = error

    @property
    def requests(self) -> list[bytes]:
        return [connection.received for connection in self.connections]

    def request(self, path: str, body: bytes | str = b"{}", token: str = TOKEN,
                host: str = "127.0.0.1") -> bytes:
        """The exact bytes of a call to the peer."""
        body = body if isinstance(body, bytes) else body.encode()
        return (f"POST {path} HTTP/1.1\r\nContent-Type: application/json\r\n"
                f"Authorization: Bearer {token}\r\nHost: {host}:{self.port}\r\n"
                f"Content-Length: {len(body)}\r\nConnection: close\r\n\r\n").encode() + body

    def credential(self, origin: str = "") -> Path:
        """The credential file of an origin, by default the peer's."""
        name = hashlib.sha256((origin or self.origin).encode()).hexdigest() + ".json"
        return self.home / "config" / "quorvane" / name

    def start(self, *words: str | bytes, wrapper: Sequence[str] = (),
              **options: Any) -> subprocess.Popen[bytes]:
        """Starts the program on the peer's origin, signals at their default (as Popen does)."""
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                   "stderr": subprocess.PIPE, "cwd": self.work, "env": self.environment}
        return subprocess.Popen([*wrapper, PROGRAM, "--base-url", self.origin, *words],
                                **{**streams, **options})

    def run(self, *words: str | bytes, **options: Any) -> Result:
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
        except subprocess.TimeoutExpired:
            process.kill()
            raise
    return Result(process.returncode, out or b"", err or b"")


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

    def check(self, expected: Result, words: str | Sequence[str], scripts: Sequence[Script] = (),
              sent: Sequence[tuple[Any, ...]] = (), changed: dict[str, Any] | None = None,
              prepare: Callable[[Scene], object] | None = None, wrapper: Any = (),
              **options: Any) -> None:
        """One run: its result, the exact calls sent, and exactly these files changed.

        A file that is `changed` to None is gone; ORIGIN in its contents stands for the peer's.
        """
        with Scene(*scripts) as scene:
            if prepare:
                prepare(scene)
            before = scene.files()
            words = words.split() if isinstance(words, str) else words
            wrapper = wrapper(scene) if callable(wrapper) else wrapper
            self.assertEqual(scene.run(*words, wrapper=wrapper, **options), expected)
            self.assertEqual(difference(before, scene.files()), {
                name: new and (new[0], new[1].replace(b"ORIGIN", scene.origin.encode()))
                for name, new in (changed or {}).items()})
        self.assertEqual(scene.requests, [scene.request(*call) for call in sent])


def difference(before: dict[str, Any], after: dict[str, Any]) -> dict[str, Any]:
    """What is new or different, and None for what is gone."""
    return {name: after.get(name) for name in before | after
            if before.get(name) != after.get(name)}
