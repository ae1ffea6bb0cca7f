"""A user's home, and runs of the program in it."""

import hashlib
import json
import os
import signal
import stat
import subprocess
import tempfile
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any, NamedTuple

from .peers import TIME_LIMIT_S, Peer, Script

PROGRAM = Path(os.environ.get("QUORVANE", "build/dev/quorvane")).resolve()
TOKEN = "qvt-canary-5d1f"
File = tuple[str, bytes]
"""Mode as ls(1) shows it, and contents."""


class Result(NamedTuple):
    """How a run ended; a negative status is the signal that ended it, None: not in time."""

    status: int | None
    out: bytes
    err: bytes


def good(text: str) -> Result:
    return Result(0, text.encode(), b"")


def bad(message: str) -> Result:
    """The one way to fail: a line on standard error and status 1."""
    return Result(1, b"", message.encode() + b"\n")


def finish(process: subprocess.Popen[bytes], limit_s: float = TIME_LIMIT_S) -> Result:
    """Waits for the end of a started program."""
    try:
        out, err = process.communicate(timeout=limit_s)
    finally:
        if process.returncode is None:
            os.killpg(process.pid, signal.SIGKILL)
    return Result(process.returncode, out or b"", err or b"")


def shell(commands: str) -> Sequence[str]:
    """A wrapper: shell commands that end in `exec "$@"`, which keeps the process."""
    return ("/bin/sh", "-c", commands, "sh")


def private(content: bytes) -> File:
    """A file as the program writes it."""
    return ("-rw-------", content)


FOLDER: File = ("drwx------", b"")
"""A folder as the program makes it."""


class Home:
    """A temporary folder with `work`, `config`, `bin` on the PATH; a context."""
    # The environment is clean.  Somebody is signed in at `origin`, if one is given.

    program = PROGRAM

    def __init__(self, origin: str = "") -> None:
        self._folder = tempfile.TemporaryDirectory(prefix="quorvane-test-")
        self.path = Path(self._folder.name)
        self.work = self.path / "work"
        self.origin = origin
        self.environment = {"HOME": f"{self.path}/home", "PATH": f"{self.path}/bin",
                            "XDG_CONFIG_HOME": f"{self.path}/config",
                            **{k: v for k, v in os.environ.items() if k == "ASAN_OPTIONS"}}
        self.work.mkdir()
        (self.path / "bin").mkdir()
        if origin:
            self.credential().parent.mkdir(parents=True)
            self.credential().write_text(json.dumps({"token": TOKEN}))

    def __enter__(self) -> Any:
        return self

    def __exit__(self, *_: object) -> None:
        self._folder.cleanup()

    def credential(self, origin: str = "") -> Path:
        """The credential file of an origin, by default that at which somebody is signed in."""
        name = hashlib.sha256((origin or self.origin).encode()).hexdigest()
        return self.path / f"config/quorvane/{name}.json"

    def equip(self, name: str, script: str) -> Path:
        """Puts a program on the PATH."""
        program = self.path / "bin" / name
        program.write_text(script)
        program.chmod(0o755)
        return program

    def start(self, *words: str, wrapper: Sequence[str] = (),
              **options: Any) -> subprocess.Popen[bytes]:
        """Starts the program on the origin, after `wrapper`; `options` are those of Popen."""
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                   "stderr": subprocess.PIPE, "cwd": self.work, "env": self.environment,
                   "start_new_session": True}
        origin = ("--base-url", self.origin) if self.origin else ()
        return subprocess.Popen([*wrapper, self.program, *origin, *words], **(streams | options))

    def run(self, *words: str, **options: Any) -> Result:
        return finish(self.start(*words, **options))

    def files(self) -> dict[str, File]:
        """All that is in the home: mode and contents, b"" of what is no file."""
        return {str(path.relative_to(self.path)): (
            stat.filemode(path.lstat().st_mode),
            path.read_bytes() if path.is_file() and not path.is_symlink() else b"")
            for path in self.path.rglob("*")}


def difference(before: Mapping[str, Any], after: Mapping[str, Any]) -> dict[str, Any]:
    """What is new or different, and None for what is gone."""
    return {name: after.get(name) for name in before | after
            if before.get(name) != after.get(name)}


class Scene(Home):
    """A home, signed in at a scripted peer on 127.0.0.1."""

    def __init__(self, *scripts: Script) -> None:
        self.peer = Peer(*scripts)
        super().__init__(f"http://127.0.0.1:{self.peer.port}")

    def __enter__(self) -> Any:
        self.peer.__enter__()
        return self

    def __exit__(self, *error: object) -> None:
        self.peer.__exit__(*error)
        super().__exit__(*error)

    def request(self, path: str, body: str = "{}", token: str = TOKEN,
                host: str = "127.0.0.1") -> bytes:
        """The exact bytes of a call to the peer."""
        return (f"POST {path} HTTP/1.1\r\nContent-Type: application/json\r\n"
                f"Authorization: Bearer {token}\r\nHost: {host}:{self.peer.port}\r\n"
                f"Content-Length: {len(body.encode())}\r\nConnection: close\r\n\r\n{body}").encode()
