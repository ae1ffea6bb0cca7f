"""Surroundings of a run: a private network, a home for each worker, commands and files."""

from __future__ import annotations

import hashlib
import json
import os
import resource
import shutil
import signal
import subprocess
import sys
import time
from collections.abc import Sequence
from pathlib import Path
from typing import NamedTuple

from .service import EMAIL, HOST, NEW_TOKEN, PULLED, REFUSAL, TOKEN, Service

WORK_FILE = "work/quorvane.config.json"
NEW_FILE = "work/new/folder/c.json"
TIME_LIMIT_S = 25
"""Two calls, each with three waits of 10 s at most; a fault makes one of them run out."""

OPENER = """#!/bin/sh
printf '%s\\n' "$@" >"$0.log"
{ umask; export -p; } >>"$0.log"
exec /bin/ls -n /proc/self/fd >>"$0.log"
"""


def enter(tools: Sequence[str]) -> None:
    """Continues in private namespaces: network with a name server, mounts, process ids.

    Nothing started inside outlives this process, and no port of the machine is touched.
    """
    for tool in ("unshare", "ip", "mount", "openssl", *tools):
        if shutil.which(tool) is None:
            sys.exit(f"{sys.argv[0]}: {tool} is missing: see scripts/setup")
    if os.environ.get("QUORVANE_SWEEP_INSIDE") != "yes":
        rights = [] if os.geteuid() == 0 else ["--map-root-user"]
        os.environ["QUORVANE_SWEEP_INSIDE"] = "yes"
        os.execvp("unshare", ["unshare", *rights, "--net", "--mount", "--pid", "--fork",
                              "--kill-child", "--mount-proc", sys.executable, *sys.argv])
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    # The first process of a namespace does not get signals that it does not handle.
    signal.signal(signal.SIGTERM, signal.default_int_handler)


def set_name_server(folder: Path) -> None:
    """Makes 127.0.0.1 the name server, in this mount namespace."""
    file = folder / "resolv.conf"
    file.write_text("nameserver 127.0.0.1\n")
    subprocess.run(["mount", "--bind", str(file), "/etc/resolv.conf"], check=True)


class Change(NamedTuple):
    """A file's contents before a run and after one that succeeded; None: no file."""

    old: bytes | None
    new: bytes | None


def _json(value: object) -> bytes:
    return json.dumps(value, separators=(",", ":")).encode()


def _metadata(origin: str, revision: int) -> bytes:
    return _json({"projectId": "p", "baseUrl": origin, "revision": revision})


OLD_CREDENTIAL = json.dumps({"token": TOKEN, "email": "old"}).encode()
NEW_CREDENTIAL = _json({"token": NEW_TOKEN, "email": EMAIL})
OLD_CONFIG = b'{ "units": "feet" }\n'
NEW_CONFIG = (json.dumps({key: value for key, value in PULLED["config"].items() if key != "id"},
                         indent=2) + "\n").encode()


class Command(NamedTuple):
    """One command line, its output and the files that it may change."""

    name: str
    words: Sequence[str]
    out: str
    """`{origin}` is replaced by the origin."""
    err: str = ""
    credential: Change = Change(OLD_CREDENTIAL, OLD_CREDENTIAL)
    file: str = WORK_FILE
    config: Change = Change(OLD_CONFIG, OLD_CONFIG)
    revision: tuple[int | None, int | None] = (7, 7)

    def files(self, origin: str) -> dict[str, Change]:
        """All files of the home, by name."""
        old, new = (None if revision is None else _metadata(origin, revision)
                    for revision in self.revision)
        changes = {credential_file(origin): self.credential, self.file: self.config,
                   self.file + ".sync.json": Change(old, new)}
        return {name: change for name, change in changes.items() if change != (None, None)}


def credential_file(origin: str) -> str:
    """The path of an origin's credential file."""
    return f"config/quorvane/{hashlib.sha256(origin.encode()).hexdigest()}.json"


_LOGIN_OUT = ("Open this URL to authorize the CLI:\n{origin}/cli/authorize?request=req-1\n"
              f"Signed in as {EMAIL}\n")

COMMANDS = (
    Command("login", ["login"], _LOGIN_OUT, credential=Change(OLD_CREDENTIAL, NEW_CREDENTIAL)),
    Command("login, first", ["login", "--no-browser"], _LOGIN_OUT,
            credential=Change(None, NEW_CREDENTIAL), config=Change(None, None),
            revision=(None, None)),
    Command("whoami", ["whoami"], EMAIL + "\n"),
    Command("projects", ["projects"], "p  Tides\nq  Wind\n"),
    Command("config pull", ["config", "pull", "-p", "p"], "Saved quorvane.config.json\n",
            config=Change(OLD_CONFIG, NEW_CONFIG), revision=(7, 8)),
    Command("config pull, first", ["config", "pull", "-p", "p", "-f", "new/folder/c.json"],
            "Saved new/folder/c.json\n", file=NEW_FILE, config=Change(None, NEW_CONFIG),
            revision=(None, 8)),
    Command("config push", ["config", "push", "-p", "p"], "Configuration synchronized\n",
            revision=(7, 8)),
    Command("config push, refused", ["config", "push", "-p", "p"], "", REFUSAL + "\n"),
    Command("logout", ["logout"], "Signed out\n", credential=Change(OLD_CREDENTIAL, None)),
)


class Result(NamedTuple):
    """How a run ended; a negative status is the signal that ended it, None: not in time."""

    status: int | None
    out: str
    err: str
    seconds: float


class Laboratory:
    """One worker's home and peers."""

    def __init__(self, program: Path, shared: Path, name: str) -> None:
        self.program = program
        self.home = shared / name
        self.log = shared / f"{name}.log"
        self.opener = shared / f"{name}-bin" / "xdg-open"
        self.opener.parent.mkdir()
        self.opener.write_text(OPENER)
        self.opener.chmod(0o755)
        self.service = Service(shared)
        self.environment = {"HOME": str(self.home), "XDG_CONFIG_HOME": str(self.home / "config"),
                            "PATH": f"/nowhere:{self.opener.parent}", "TZ": "UTC",
                            "SSL_CERT_FILE": str(shared / "cert.pem")}

    def origin(self, tls: bool) -> str:
        """The service's address."""
        return (f"https://{HOST}:{self.service.tls_port}" if tls
                else f"http://127.0.0.1:{self.service.plain_port}")

    def prepare(self, command: Command, tls: bool) -> None:
        """Puts the files in the state before the command, and forgets the last run."""
        shutil.rmtree(self.home, ignore_errors=True)
        (self.home / "work").mkdir(parents=True)
        for name, change in command.files(self.origin(tls)).items():
            if change.old is not None:
                path = self.home / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_bytes(change.old)
                path.chmod(0o600)
        self.close_folders()
        Path(f"{self.opener}.log").unlink(missing_ok=True)
        self.service.begin("refused" in command.name)

    def close_folders(self) -> None:
        """Makes all folders private."""
        for folder in self.home.rglob("*/"):
            folder.chmod(0o700)

    def shell(self, script: str) -> list[str]:
        """A wrapper that runs a script in the very process that then becomes the program."""
        return ["/bin/sh", "-c", f'PATH=/bin:/usr/bin; {script}'
                f' PATH={self.environment["PATH"]}; exec "$@"', "sh"]

    def run(self, command: Command, tls: bool, wrapper: Sequence[str] = ()) -> Result:
        """Runs the program, with `wrapper` before it, and waits for its browser."""
        began = time.monotonic()
        with subprocess.Popen(
                [*wrapper, str(self.program), "--base-url", self.origin(tls), *command.words],
                cwd=self.home / "work", env=self.environment, stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace",
                start_new_session=True) as process:
            status: int | None = None
            try:
                out, err = process.communicate(timeout=TIME_LIMIT_S)
                status = process.returncode
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, 9)
                out, err = process.communicate()
        seconds = time.monotonic() - began
        self.service.settle()
        return Result(status, out, err, seconds)

    def opener_log(self) -> str:
        """The launched opener's report on itself; empty if none was launched."""
        log = Path(f"{self.opener}.log")
        return log.read_text() if log.exists() else ""

    def found_files(self) -> dict[str, Path]:
        """All that is in the home except folders, by name."""
        return {str(path.relative_to(self.home)): path for path in self.home.rglob("*")
                if path.is_symlink() or not path.is_dir()}
