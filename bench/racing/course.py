"""The course: the commands that race each other, and the figures to reach."""

import hashlib
import json
import math
from pathlib import Path
from shutil import which
from typing import NamedTuple

from racing.documents import document
from racing.server import PLAIN, TLS, TLS_CHUNKED, project

OURS, TRUE, BARE, CURL, CURL_JQ = "quorvane", "/bin/true", "bare client", "curl", "curl | jq"
JQ_CURL_JQ, ONE_FILE = "jq | curl | jq", "a file of one authority"
PULLED = {"2 KB": 2_000, "100 KB": 100_000, "7 MB": 7_000_000}
PUSHED = {"100 KB": 100_000, "8 MB": 8_300_000}
ACCOUNT, PROJECT, CONFIGURE = (f"/api/v1/{path}"
                               for path in ("account", "project", "project-configure"))


class Command(NamedTuple):
    """A pipeline."""

    stages: list[list[str]]
    output: str = "/dev/null"
    status: int = 0      # Of each process.
    store: bool = False  # Trusts what the system trusts; else the one authority of the races.


class Peer(NamedTuple):
    """What the program races against, and the most that it may cost divided by this peer's cost."""

    command: Command
    goal: float = math.nan
    memory: float = math.nan  # The same of the peak memory, if that is compared.


class Race(NamedTuple):
    """A command of the program, and peers that do the same work."""

    name: str
    ours: Command
    peers: dict[str, Peer]
    large: bool = False  # One run in each round is enough.


class Lane:
    """The commands over one way to the server."""

    def __init__(self, built: Path, origin: str, store: bool = False) -> None:
        self._built, self._origin, self._store = built, origin, store
        self._port = origin.rpartition(":")[2]
        name = hashlib.sha256(origin.encode()).hexdigest() + ".json"
        Path("config/quorvane").mkdir(parents=True, exist_ok=True)
        Path("config/quorvane", name).write_text('{"token":"token-of-the-races"}')

    def ours(self, *words: str) -> Command:
        return Command([[f"{self._built}/quorvane", *words, "--base-url", self._origin]],
                       store=self._store)

    def pull(self, answer: str) -> Command:
        return self.ours("config", "pull", "-p", answer, "-f", "pulled.json")

    def push(self, size: str) -> Command:
        file = f"push {size} {self._port}.json"
        Path(file).write_bytes(document("configuration", PUSHED[size]))
        Path(f"{file}.sync.json").write_text(json.dumps(
            {"projectId": "pushed", "baseUrl": self._origin, "revision": 7}))
        return self.ours("config", "push", "-p", "pushed", "-f", file)

    def bare(self, path: str, body: str) -> Command:
        tls = "_tls" if "https" in self._origin else ""
        return Command([[f"{self._built}/bench/bare_client{tls}", self._port, path, body]])

    def curl(self, path: str, body: str) -> Command:
        return Command([[which("curl"), "-sS", "-H", "Content-Type: application/json",
                         "-H", "Authorization: Bearer token-of-the-races", "--data-binary", body,
                         self._origin + path]], store=self._store)

    def curl_jq(self, path: str, body: str, *words: str, output: str = "/dev/null") -> Command:
        curl = self.curl(path, body)
        return curl._replace(stages=[*curl.stages, [which("jq"), *words]], output=output)

    def whoami_jq(self) -> Command:
        return self.curl_jq(ACCOUNT, "{}", "-r", ".account.canonical_email")

    def pull_jq(self, answer: str) -> Command:
        return self.curl_jq(PROJECT, asked(answer), ".project.config | del(.id, .publicKey, .name)",
                            output="picked.json")

    def push_jq(self) -> Command:
        piped = self.curl_jq(CONFIGURE, "@-", ".project.revision")
        request = '{projectId: "pushed", revision: 7, config: .}'
        return piped._replace(stages=[[which("jq"), "-c", request, "configuration"], *piped.stages])


def asked(answer: str) -> str:
    return json.dumps({"projectId": answer})


def put_answers() -> None:
    """What the server and the commands read."""
    Path("answers").mkdir()
    Path("answers/account").write_text('{"account":{"canonical_email":"ada@tidewater.example"}}')
    Path("answers/pushed").write_text('{"project":{"revision":8}}')
    for name, size in PULLED.items():
        Path("answers", name).write_bytes(project(document("configuration", size)))
    pushed = document("configuration", PUSHED["8 MB"])
    Path("configuration").write_bytes(pushed)
    Path("request").write_bytes(b'{"projectId":"pushed","revision":7,"config":%s}' % pushed)


def races(built: Path, origins: dict[str, str], store: bool) -> list[Race]:
    """With the system's store (what users run) those whose name ends with that."""
    clear, tls, chunked = (Lane(built, origins[way]) for way in (PLAIN, TLS, TLS_CHUNKED))
    users = Lane(built, origins[TLS], store=True)

    def real(name: str, ours: Command, curl: Peer, pipe: str, piped: Peer, *large: bool) -> Race:
        one_file = Peer(ours._replace(store=False), 1.2)
        return Race(f"{name}, TLS, system's store", ours,
                    {CURL: curl, pipe: piped, ONE_FILE: one_file}, *large)

    return [
        *([real("whoami", users.ours("whoami"), Peer(users.curl(ACCOUNT, "{}"), 1 / 4, 1),
                CURL_JQ, Peer(users.whoami_jq(), 1 / 6)),
           real("pull 100 KB", users.pull("100 KB"),
                Peer(users.curl(PROJECT, asked("100 KB")), 1 / 4, 1),
                CURL_JQ, Peer(users.pull_jq("100 KB"), 1 / 6)),
           real("push 8 MB", users.push("8 MB"), Peer(users.curl(CONFIGURE, "@request")),
                JQ_CURL_JQ, Peer(users.push_jq(), 1 / 10), True)] if store else []),
        *(Race(name, Command([[f"{built}/quorvane", word]], status=status),
               {TRUE: Peer(Command([[which("true")]]), 1.03)})
          for name, word, status in (("--version", "--version", 0), ("--help", "--help", 0),
                                     ("refusal when signed out", "whoami", 1))),
        Race("whoami, plain", clear.ours("whoami"), {
            CURL: Peer(clear.curl(ACCOUNT, "{}"), 1 / 9),
            CURL_JQ: Peer(clear.whoami_jq(), 1 / 45),
            BARE: Peer(clear.bare(ACCOUNT, "{}"), 1.4)}),
        Race("whoami, TLS", tls.ours("whoami"), {
            CURL: Peer(tls.curl(ACCOUNT, "{}"), 0.62),
            BARE: Peer(tls.bare(ACCOUNT, "{}"), 1.05)}),
        Race("pull 2 KB, plain", clear.pull("2 KB"),
             {BARE: Peer(clear.bare(PROJECT, asked("2 KB")), 1.15)}),
        Race("pull 100 KB, plain", clear.pull("100 KB"),
             {BARE: Peer(clear.bare(PROJECT, asked("100 KB")), 2)}),
        Race("pull 7 MB, plain", clear.pull("7 MB"), {
            CURL_JQ: Peer(clear.pull_jq("7 MB"), 1 / 13, 0.85),
            BARE: Peer(clear.bare(PROJECT, asked("7 MB")), 4)}, large=True),
        Race("pull 7 MB, TLS, chunked", chunked.pull("7 MB"), {
            "the same with Content-Length": Peer(tls.pull("7 MB"), 1.05),
            CURL_JQ: Peer(chunked.pull_jq("7 MB"), 1 / 11)}, large=True),
        Race("push 8 MB, plain", clear.push("8 MB"), {JQ_CURL_JQ: Peer(clear.push_jq(), 1 / 15)},
             large=True),
        Race("push 100 KB, TLS", tls.push("100 KB"), {})]
