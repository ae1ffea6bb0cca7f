"""The course: documents, servers, a home, and the commands that race each other over it."""

from __future__ import annotations

import hashlib
import json
import shutil
import subprocess
from collections.abc import Sequence
from pathlib import Path
from typing import NamedTuple

OURS, BARE, CURL, CURL_JQ = "quorvane", "bare client", "curl", "curl | jq"
JQ_CURL_JQ = "jq | curl | jq"
TOKEN = "token-of-the-races"
SIZES = {"2 KB": 2_000, "100 KB": 100_000, "1 MB": 1_000_000, "7 MB": 7_000_000}
PUSHED = {"100 KB": 100_000, "8 MB": 8_300_000}
CHUNK = 16_384


class Command(NamedTuple):
    """A pipeline; "::" stands between its processes."""

    words: Sequence[str]
    output: str = "/dev/null"  # What standard output is kept in, where that is the purpose.
    remove: str = ""           # A file that every run has to make anew.
    status: int = 0            # Of each process.


class Race(NamedTuple):
    """Contenders that do the same work."""

    name: str
    contenders: dict[str, Command]
    large: bool = False  # One run for each round is enough.


class Tools(NamedTuple):
    """Where everything is."""

    program: Path
    built: Path   # The folder of the measuring programs.
    folder: Path  # Where the commands run.


def find(name: str) -> str:
    path = shutil.which(name)
    if path is None:
        raise SystemExit(f"scripts/bench: {name} is missing")
    return path


def document(tools: Tools, kind: str, size: int) -> bytes:
    return subprocess.check_output([tools.built / "make_document", kind, str(size)])


def response(body: bytes, chunk: int = 0) -> bytes:
    """A whole response, framed by its length or in chunks of that size."""
    head = b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
    if not chunk:
        return head + b"Content-Length: %d\r\n\r\n" % len(body) + body
    pieces = (body[i:i + chunk] for i in range(0, len(body), chunk))
    chunks = b"".join(b"%x\r\n%s\r\n" % (len(piece), piece) for piece in pieces)
    return head + b"Transfer-Encoding: chunked\r\n\r\n" + chunks + b"0\r\n\r\n"


def project(config: bytes) -> bytes:
    """What the service answers to a pull; `config` is a JSON object."""
    members = b'"id":"p","name":"n","publicKey":"k"'
    return b'{"project":{%s,"revision":7,"config":{%s,%s}}' % (members, members, config[1:])


def wrapped(content: bytes) -> bytes:
    return b'{"data":%s}' % content


class Responder:
    """The server with answers in memory, until the block is left."""

    def __init__(self, tools: Tools, answers: Path, *certificate: Path) -> None:
        words = [tools.built / "responder", answers, *certificate]
        # pylint: disable-next=consider-using-with
        self._process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        assert self._process.stdout
        self.port = int(self._process.stdout.readline())
        host = "https://localhost" if certificate else "http://127.0.0.1"
        self.origin = f"{host}:{self.port}"

    def __enter__(self) -> Responder:
        return self

    def __exit__(self, *_: object) -> None:
        self._process.communicate()


def make_certificate(folder: Path) -> tuple[Path, Path]:
    """A certificate of localhost that is its own authority, and its key."""
    certificate, key = folder / "localhost.pem", folder / "localhost.key"
    subprocess.run(
        [find("openssl"), "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
         "-nodes", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
         "-days", "2", "-keyout", key, "-out", certificate], check=True, capture_output=True)
    return certificate, key


def sign_in(folder: Path, origin: str) -> None:
    """The credential file of an origin in the home of the races."""
    home = folder / "config" / "quorvane"
    home.mkdir(parents=True, exist_ok=True)
    name = hashlib.sha256(origin.encode()).hexdigest() + ".json"
    (home / name).write_text(json.dumps({"token": TOKEN}))


def make_answers(tools: Tools, answers: Path) -> None:
    answers.mkdir()
    account = b'{"account":{"canonical_email":"ada@tidewater.example"}}'
    (answers / "account").write_bytes(response(account))
    (answers / "pushed").write_bytes(response(b'{"project":{"revision":8}}'))
    for name, size in SIZES.items():
        body = project(document(tools, "configuration", size))
        (answers / name).write_bytes(response(body))
        (answers / f"{name}, chunked").write_bytes(response(body, CHUNK))
    for name, size in PUSHED.items():
        (tools.folder / f"push {name}.json").write_bytes(document(tools, "configuration", size))


class Lane:
    """One way of travelling: the same commands, plain or over TLS."""

    def __init__(self, tools: Tools, server: Responder, name: str, bare: str) -> None:
        self.name = name
        self._tools = tools
        self._server = server
        self._bare = str(tools.built / bare)

    def _ours(self, *words: str) -> list[str]:
        return [str(self._tools.program), *words, "--base-url", self._server.origin]

    def _curl(self, path: str, body: str) -> list[str]:
        return [find("curl"), "-sS", "-H", "Content-Type: application/json", "-H",
                f"Authorization: Bearer {TOKEN}", "--data-binary", body,
                self._server.origin + path]

    def _bare_client(self, path: str, *body: str) -> Command:
        return Command([self._bare, str(self._server.port), path, *body])

    def whoami(self) -> Race:
        path = "/api/v1/account"
        curl = self._curl(path, "{}")
        return Race(f"whoami, {self.name}", {
            OURS: Command(self._ours("whoami")),
            BARE: self._bare_client(path, "{}"),
            CURL: Command(curl),
            CURL_JQ: Command([*curl, "::", find("jq"), "-r", ".account.canonical_email"])})

    def pull(self, size: str, chunked: str = "") -> Race:
        path, answer = "/api/v1/project", size + chunked
        body = json.dumps({"projectId": answer})
        curl = self._curl(path, body)
        picked = ".project.config | del(.id, .publicKey, .name)"
        pulled = ["config", "pull", "-p", answer, "-f", "pulled.json"]
        return Race(f"pull {size}, {self.name}{chunked}", {
            OURS: Command(self._ours(*pulled), remove="pulled.json"),
            BARE: self._bare_client(path, body),
            CURL: Command(curl, output="answer.json"),
            CURL_JQ: Command([*curl, "::", find("jq"), picked], output="picked.json")}, large=size == "7 MB")

    def push(self, size: str) -> Race:
        path, file = "/api/v1/project-configure", f"push {size}.json"
        request = '{projectId: "pushed", revision: 7, config: .}'
        metadata = {"projectId": "pushed", "baseUrl": self._server.origin, "revision": 7}
        # Each lane has a file of its own, for the metadata names the origin.
        own = f"{self.name} {file}"
        shutil.copy(self._tools.folder / file, self._tools.folder / own)
        (self._tools.folder / f"{own}.sync.json").write_text(json.dumps(metadata))
        return Race(f"push {size}, {self.name}", {
            OURS: Command(self._ours("config", "push", "-p", "pushed", "-f", own)),
            BARE: self._bare_client(path, "", own),
            JQ_CURL_JQ: Command([find("jq"), "-c", request, own, "::", *self._curl(path, "@-"),
                                 "::", find("jq"), ".project.revision"])}, large=size == "8 MB")


def starting(tools: Tools) -> Race:
    """What ends before it has done anything."""
    program = str(tools.program)
    return Race("start", {
        "/bin/true": Command([find("true")]),
        "a single _exit": Command([str(tools.built / "bare_exit")]),
        "quorvane --version": Command([program, "--version"]),
        "quorvane --help": Command([program, "--help"]),
        "quorvane, signed out": Command([program, "whoami"], status=1),
        "git --version": Command([find("git"), "--version"]),
        "curl --version": Command([find("curl"), "--version"]),
        "jq --version": Command([find("jq"), "--version"])})


def all_races(tools: Tools, plain: Responder, tls: Responder) -> list[Race]:
    in_clear = Lane(tools, plain, "plain", "bare_client")
    over_tls = Lane(tools, tls, "TLS", "bare_client_tls")
    races = [starting(tools)]
    for lane in (in_clear, over_tls):
        races.append(lane.whoami())
        races += [lane.pull(size) for size in SIZES]
        races.append(lane.pull("7 MB", ", chunked"))
        races += [lane.push(size) for size in PUSHED]
    return races
