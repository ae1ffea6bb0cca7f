"""The calls of all commands but login: bytes sent, answers judged, output, files before and after."""
# Framing is the unit tests', silence and resets the network test's, failing system calls and the
# usual course of every command the sweep's.

import json
import os
import signal
import time
import unittest
from collections.abc import Callable
from functools import partial
from pathlib import Path

from laboratory.home import (FOLDER, File, Result, Scene, bad, difference, good, private,
                             shell)
from laboratory.peers import answer, reply, reset, until_gone
from laboratory.rows import Row, Rows, same

EMAIL = {"account": {"canonical_email": "ada@example.org"}}
ADA = good("ada@example.org\n")


def status(code: int) -> Result:
    return bad(f"Request failed: HTTP {code}")


def filled(size: int) -> bytes:
    """A good answer of `size` bytes, head included."""
    head = b"HTTP/1.1 200 OK\r\n\r\n"
    return head + json.dumps(EMAIL).encode()[:-1].ljust(size - len(head) - 1) + b"}"


class Account(Rows):
    """whoami, projects and logout: an answer below status 400 that is an object is good."""

    def test_judgement(self) -> None:
        row = partial(Row, words="whoami")
        refusal = {"error": "No.\nReally \u00fc\u001b[1m"}
        self.run_rows(
            row("array", peer=reply(answer([])), expect=status(200)),
            row("error below 400", peer=reply(answer({"error": "no", **EMAIL}, 399)), expect=ADA),
            row("400", peer=reply(answer(EMAIL, 400)), expect=status(400)),
            row("error", peer=reply(answer(refusal, 401)), expect=bad(refusal["error"])),
            row("error no text", peer=reply(answer({"error": None}, 500)), expect=bad("")),
            row("nothing", peer=reply(), expect=status(0)),
            row("reset after an answer without a length", expect=bad("no"),
                peer=reply(b'HTTP/1.1 401 x\r\n\r\n{"error":"no"}', reset)),
            row("over 8 MiB", peer=reply(filled(8388609), until_gone), expect=status(200)))

    def test_ten_seconds_of_silence(self) -> None:
        began = time.monotonic()
        self.run_rows(Row(
            "before the end", words="whoami", peer=reply(answer(EMAIL)[:-1], until_gone),
            expect=bad("Cannot reach ORIGIN (HTTP 0, complete=false; HTTP transport)")))
        self.assertGreaterEqual(time.monotonic() - began, 9.5)

    def test_output(self) -> None:
        self.run_rows(
            Row("no text", words="whoami", expect=good("\n"), peer=reply(answer(
                {"account": {"canonical_email": 5}}))),
            Row("in order, as they are", words="projects", expect=good("b  \u00fc\n\n  n\n  \n  \n"),
                peer=reply(answer({"projects": [{"id": "b", "name": "\u00fc\n"}, {"name": "n"}, 7,
                                                {"id": 5, "name": 0}]}))))

    def test_host_and_port(self) -> None:
        with Scene(reply(answer(EMAIL))) as scene:
            origin = f"http://localhost:0{scene.peer.port}"
            scene.credential().rename(scene.credential(origin))
            self.assertEqual(scene.run("--base-url", origin, "whoami"), ADA)
        self.assertEqual(scene.peer.requests, [scene.request("/api/v1/account", host="localhost")])

    def test_logout(self) -> None:
        self.run_rows(Row("refused, file kept", words="logout", peer=reply(answer({}, 500)),
                          expect=status(500)))
        with Scene(reply(lambda _: scene.credential().unlink(), answer({}))) as scene:
            self.assertEqual(scene.run("logout"), bad(
                "Logged out; remove the local credential file manually"))


FILE = "quorvane.config.json"
META = FILE + ".sync.json"
PULLED = reply(answer(b'{"project":{"config":{"a":1},"revision":8}}'))


def metadata(revision: bytes, project: bytes = b'"p"') -> bytes:
    return b'{"projectId":%s,"baseUrl":"ORIGIN","revision":%s}' % (project, revision)


def written(config: bytes, revision: bytes, name: str = FILE) -> dict[str, File]:
    return {f"work/{name}": private(config), f"work/{name}.sync.json": private(metadata(revision))}


NEW = written(b'{\n  "a": 1\n}\n', b"8")


def copy(config: bytes = b'{"old":true}', meta: bytes = metadata(b"7"),
         then: Callable[[Path], object] = Path.exists) -> Callable[[Scene], None]:
    """Prepares a copy as pulled at revision 7 and edited since; `then` takes the folder."""
    def prepare(scene: Scene) -> None:
        (scene.work / FILE).write_bytes(config)
        (scene.work / META).write_bytes(meta.replace(b"ORIGIN", scene.origin.encode()))
        then(scene.work)
    return prepare


def instead(name: str, make: Callable[[Path], object]) -> Callable[[Path], object]:
    return lambda work: ((work / name).unlink(), make(work / name))


class Pull(Rows):
    """What is written, byte for byte, and what stays as it was."""

    # staticmethod: from Python 3.14 on a partial in a class is a method.
    row = staticmethod(partial(
        Row, words="config pull -p p", sent=("/api/v1/project", '{"projectId":"p"}'), peer=PULLED,
        expect=good(f"Saved {FILE}\n")))

    def test_contents(self) -> None:
        config = b'{"id":"own","z":{},"publicKey":[1],"deep":{"id":1.50},"name":{}}'
        layout = b'{\n  "z": {},\n  "deep": {\n    "id": 1.50\n  }\n}\n'
        self.run_rows(
            self.row("own members left out, layout", changed=written(layout, b"1"), peer=reply(
                answer(b'{"project":{"config":%s,"revision":1}}' % config))),
            self.row("no project", peer=reply(answer({})), changed=written(b"{}\n", b"null")),
            self.row("configuration no object, revision a text", changed=written(b"{}\n", b'"r-1"'),
                     peer=reply(answer(b'{"project":{"revision":"\\u0072-1","config":[1]}}'))),
            self.row("bytes that are no text", words=["config", "pull", "-p", b"\xff"],
                     sent=("/api/v1/project", '{"projectId":null}'), changed={
                         **NEW, f"work/{META}": private(metadata(b"8", b"null"))}),
            self.row("the strictest umask", words="config export -p=p -f new/er/c.json",
                     changed={"work/new": FOLDER, "work/new/er": FOLDER,
                              **written(b'{\n  "a": 1\n}\n', b"8", "new/er/c.json")},
                     expect=good("Saved new/er/c.json\n"), options={"umask": 0o777}))

    def test_failures(self) -> None:
        limit = shell('ulimit -f 8; exec "$@"')  # In units of 512 bytes.
        pull = partial(self.row, expect=bad("Cannot write configuration"), prepare=copy())
        self.run_rows(
            *(pull(f"file {file[:20]}", words=f"config pull -p p --file={file}") for file in (
                FILE + "/c", "/proc/none/c", "/proc/c", ".", "x" * 250, "")),
            pull("file size limit", wrapper=limit,
                 peer=reply(answer({"project": {"config": {"a": "x" * 9000}}}))),
            pull("folder for the metadata", prepare=copy(then=instead(META, Path.mkdir)),
                 expect=bad("Cannot write revision metadata"),
                 changed={f"work/{FILE}": NEW[f"work/{FILE}"]}))

    @unittest.skipUnless(os.environ["QUORVANE_MEMORY_CEILING"] == "ON", "built without a ceiling")
    def test_memory_runs_out(self) -> None:
        """Wherever it does, no file has changed."""
        large = reply(answer({"project": {"config": {"a": 1}, "revision": [0] * 300_000}}))
        ends = set()
        for size in range(20, 140, 10):
            with Scene(large) as scene:
                copy()(scene)
                before = scene.files()
                result = scene.run("config", "pull", "-p", "p", wrapper=shell(
                    f'ulimit -c 0; ulimit -v {size}000; exec "$@"'))
                ends.add((result.status, len(difference(before, scene.files()))))
        same("status and number of changed files", ends, {(-signal.SIGABRT, 0), (0, 2)})


class Push(Rows):
    """What is sent, what keeps it from being sent, and what is recorded afterwards."""

    row = staticmethod(partial(Row, words="config push -p p", prepare=copy()))

    def test_request(self) -> None:
        config = b' { "b" : 1.50, "id": "mine",\n"publicKey":{"z":1e400}, "t":"\\u00e9\\/\\n" }\n'
        sent = '{"b":1.50,"id":"mine","publicKey":{"z":1e400},"t":"\u00e9/\\n"}'
        self.run_rows(self.row(
            "a revision of any kind", prepare=copy(config, metadata(b'{"a" : [7.0,"x"]}') + b"\n"),
            peer=reply(answer({})), expect=good("Configuration synchronized\n"),
            sent=("/api/v1/project-configure",
                  f'{{"projectId":"p","revision":{{"a":[7.0,"x"]}},"config":{sent}}}'),
            changed={f"work/{META}": private(metadata(b"null"))}))

    def test_revision_check(self) -> None:
        row = partial(self.row, expect=bad("Pull this project first to establish its revision"))
        self.run_rows(
            row("FIFO", prepare=copy(then=instead(META, os.mkfifo))),
            row("another project", prepare=copy(meta=metadata(b"7", b'"P"'))),
            row("another origin", prepare=copy(meta=metadata(b"7").replace(b"GIN", b"GIN0"))),
            row("no revision", prepare=copy(meta=b'{"projectId":"p","baseUrl":"ORIGIN"}')),
            row("neither file", prepare=copy(then=lambda work: (
                (work / FILE).unlink(), (work / META).unlink()))))

    def test_configuration(self) -> None:
        row = partial(self.row, expect=bad("Configuration must be a JSON object"))
        self.run_rows(
            row("missing", prepare=copy(then=instead(FILE, Path.exists))),
            row("over 8 MiB", prepare=copy(b"{}".ljust(8388609))))
