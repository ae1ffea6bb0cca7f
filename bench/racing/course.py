"""The course: documents, servers, a home, and the commands that race each other over it."""

from __future__ import annotations

import hashlib
import json
import math
import shutil
import subprocess
from collections.abc import Sequence
from pathlib import Path
from typing import NamedTuple

TRUE, BARE, CURL, CURL_JQ = "/bin/true", "bare client", "curl", "curl | jq"
JQ_CURL_JQ = "jq | curl | jq"
TOKEN = "token-of-the-races"
PULLED = {"2 KB": 2_000, "100 KB": 100_000, "7 MB": 7_000_000}
PUSHED = {"100 KB": 100_000, "8 MB": 8_300_000}
CHUNK = 16_384


class Command(NamedTuple):
    """A pipeline; "::" separates its processes."""

    words: Sequence[str]
    output: str = "/dev/null"  # Where standard output is kept, if that is the purpose.
    remove: str = ""           # A file that every run has to make anew.
    status: int = 0            # Of each process.


class Peer(NamedTuple):
    """What the program races against, and the most that it may cost by that peer's cost."""

    command: Command
    goal: float
    better: float = math.nan


class Race(NamedTuple):
    """A command of the program, and peers that do the same work."""

    name: str
    ours: Command
    peers: dict[str, Peer]
    large: bool = False  # One run in each round is enough.
    start: bool = False  # Ends before it has done anything.


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
    """A complete response, framed by its length or in chunks of that size."""
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
        # The credential file of this origin in the home of the races.
        home = tools.folder / "config" / "quorvane"
        home.mkdir(parents=True, exist_ok=True)
        name = hashlib.sha256(self.origin.encode()).hexdigest() + ".json"
        (home / name).write_text(json.dumps({"token": TOKEN}))

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


def make_answers(tools: Tools, answers: Path) -> None:
    answers.mkdir()
    account = b'{"account":{"canonical_email":"ada@tidewater.example"}}'
    (answers / "account").write_bytes(response(account))
    (answers / "pushed").write_bytes(response(b'{"project":{"revision":8}}'))
    for name, size in PULLED.items():
        body = project(document(tools, "configuration", size))
        (answers / name).write_bytes(response(body))
        (answers / f"{name}, chunked").write_bytes(response(body, CHUNK))
    for name, size in PUSHED.items():
        (tools.folder / f"push {name}.json").write_bytes(document(tools, "configuration", size))


class Lane:
    """The commands over one server, plain or over TLS."""

    def __init__(self, tools: Tools, server: Responder, bare: str) -> None:
        self._tools = tools
        self._server = server
        self._bare = str(tools.built / bare)

    def ours(self, *words: str) -> Command:
        return Command([str(self._tools.program), *words, "--base-url", self._server.origin])

    def pull(self, answer: str) -> Command:
        command = self.ours("config", "pull", "-p", answer, "-f", "pulled.json")
        return command._replace(remove="pulled.json")

    def push(self, size: str) -> Command:
        # A file of its own, for the metadata names the origin.
        own = f"{self._server.port} {size}.json"
        metadata = {"projectId": "pushed", "baseUrl": self._server.origin, "revision": 7}
        shutil.copy(self._tools.folder / f"push {size}.json", self._tools.folder / own)
        (self._tools.folder / f"{own}.sync.json").write_text(json.dumps(metadata))
        return self.ours("config", "push", "-p", "pushed", "-f", own)

    def bare(self, path: str, *body: str) -> Command:
        return Command([self._bare, str(self._server.port), path, *body])

    def curl(self, path: str, body: str) -> Command:
        return Command([find("curl"), "-sS", "-H", "Content-Type: application/json", "-H",
                        f"Authorization: Bearer {TOKEN}", "--data-binary", body,
                        self._server.origin + path])

    def curl_jq(self, path: str, body: str, *words: str, output: str = "/dev/null") -> Command:
        return Command([*self.curl(path, body).words, "::", find("jq"), *words], output)


def start(tools: Tools, name: str, *words: str, status: int = 0) -> Race:
    return Race(name, Command([str(tools.program), *words], status=status),
                {TRUE: Peer(Command([find("true")]), 1.03, 0.85)}, start=True)


def all_races(tools: Tools, plain: Responder, tls: Responder) -> list[Race]:
    in_clear, over_tls = Lane(tools, plain, "bare_client"), Lane(tools, tls, "bare_client_tls")
    account, project_path = "/api/v1/account", "/api/v1/project"

    def asked(answer: str) -> str:
        return json.dumps({"projectId": answer})

    def picked(lane: Lane, answer: str) -> Command:
        return lane.curl_jq(project_path, asked(answer),
                            ".project.config | del(.id, .publicKey, .name)", output="picked.json")

    def bare_pull(size: str) -> Command:
        return in_clear.bare(project_path, asked(size))

    request = '{projectId: "pushed", revision: 7, config: .}'
    piped_push = Command([
        find("jq"), "-c", request, "push 8 MB.json", "::",
        *in_clear.curl_jq("/api/v1/project-configure", "@-", ".project.revision").words])
    return [
        start(tools, "--version", "--version"),
        start(tools, "--help", "--help"),
        start(tools, "refusal when signed out", "whoami", status=1),
        Race("whoami, plain", in_clear.ours("whoami"), {
            CURL: Peer(in_clear.curl(account, "{}"), 1 / 9),
            CURL_JQ: Peer(in_clear.curl_jq(account, "{}", "-r", ".account.canonical_email"),
                          1 / 45),
            BARE: Peer(in_clear.bare(account, "{}"), 1.4)}),
        Race("whoami, TLS", over_tls.ours("whoami"), {
            CURL: Peer(over_tls.curl(account, "{}"), 0.62),
            BARE: Peer(over_tls.bare(account, "{}"), 1.05)}),
        Race("pull 2 KB, plain", in_clear.pull("2 KB"), {BARE: Peer(bare_pull("2 KB"), 1.15)}),
        Race("pull 100 KB, plain", in_clear.pull("100 KB"), {BARE: Peer(bare_pull("100 KB"), 2)}),
        Race("pull 7 MB, plain", in_clear.pull("7 MB"), {
            CURL_JQ: Peer(picked(in_clear, "7 MB"), 1 / 13, 1 / 17),
            BARE: Peer(bare_pull("7 MB"), 4, 3)}, large=True),
        Race("pull 7 MB, TLS, chunked", over_tls.pull("7 MB, chunked"), {
            "the same with Content-Length": Peer(over_tls.pull("7 MB"), 1.05),
            CURL_JQ: Peer(picked(over_tls, "7 MB, chunked"), 1 / 11)}, large=True),
        Race("push 8 MB, plain", in_clear.push("8 MB"),
             {JQ_CURL_JQ: Peer(piped_push, 1 / 15, 1 / 19)}, large=True),
        Race("push 100 KB, TLS", over_tls.push("100 KB"), {}),
    ]
