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

from laboratory.home import FOLDER, File, Result, Scene, bad, difference, good, private, shell
from laboratory.peers import answer, reply, reset, until_gone
from laboratory.rows import Row, Rows, same

EMAIL = {"account": {"canonical_email": "ada@example.org"}}
ADA = good("ada@example.org\n")
LARGEST = (b"HTTP/1.1 200 OK\r\n\r\n" + answer(EMAIL).rpartition(b"\n")[2][:-1]).ljust(8388607)


def status(code: int) -> Result:
    return bad(f"Request failed: HTTP {code}")


class Account(Rows):
    """An answer below status 400 that is an object is good."""

    def test_answers(self) -> None:
        refusal = {"error": "No.\nReally \u00fc\u001b[1m"}
        began = time.monotonic()
        self.run_rows(
            Row("array", peer=reply(answer([])), expect=status(200)),
            Row("error below 400", peer=reply(answer({"error": "no", **EMAIL}, 399)), expect=ADA),
            Row("400, credential kept", words="logout", sent=("/api/v1/logout",),
                peer=reply(answer({}, 400)), expect=status(400)),
            Row("error, then a reset", expect=bad(refusal["error"]), peer=reply(
                b"HTTP/1.1 401 x\r\n\r\n" + json.dumps(refusal).encode(), reset)),
            Row("error no text", peer=reply(answer({"error": None}, 500)), expect=bad("")),
            Row("8 MiB", peer=reply(LARGEST + b"}"), expect=ADA),
            Row("over 8 MiB", peer=reply(LARGEST + b" }", until_gone), expect=status(200)),
            Row("ten seconds of silence before the end", peer=reply(answer(EMAIL)[:-1], until_gone),
                expect=bad("Cannot reach ORIGIN (HTTP 0, complete=false; HTTP transport)")))
        self.assertGreaterEqual(time.monotonic() - began, 9.5)


FILE = "quorvane.config.json"
META = FILE + ".sync.json"
PULLED = reply(answer(b'{"project":{"config":{"a":1},"revision":8}}'))
NEW = b'{\n  "a": 1\n}\n'


def metadata(revision: bytes, project: bytes = b'"p"') -> bytes:
    return b'{"projectId":%s,"baseUrl":"ORIGIN","revision":%s}' % (project, revision)


def written(config: bytes, revision: bytes, name: str = FILE) -> dict[str, File]:
    return {f"work/{name}": private(config), f"work/{name}.sync.json": private(metadata(revision))}


def copy(config: bytes = b'{"old":true}', meta: bytes = metadata(b"7")) -> Callable[[Scene], None]:
    """Prepares a copy as pulled at revision 7 and edited since."""
    def prepare(scene: Scene) -> None:
        (scene.work / FILE).write_bytes(config)
        (scene.work / META).write_bytes(meta.replace(b"ORIGIN", scene.origin.encode()))
    return prepare


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
            self.row("configuration no object, revision a text", changed=written(b"{}\n", b'"r-1"'),
                     peer=reply(answer(b'{"project":{"revision":"\\u0072-1","config":[1]}}'))),
            self.row("the strictest umask", words="config export -p=p -f new/er/c.json",
                     changed={"work/new": FOLDER, "work/new/er": FOLDER,
                              **written(NEW, b"8", "new/er/c.json")},
                     expect=good("Saved new/er/c.json\n"), options={"umask": 0o777}))

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
                ends.add((result.status, result.err, len(difference(before, scene.files()))))
        same("status, errors and number of changed files", ends, {
            (-signal.SIGABRT, b"memory limit exceeded\n", 0), (0, b"", 2)})


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
            row("another project", prepare=copy(meta=metadata(b"7", b'"P"'))),
            row("another origin", prepare=copy(meta=metadata(b"7").replace(b"GIN", b"GIN0"))),
            row("no revision", prepare=copy(meta=b'{"projectId":"p","baseUrl":"ORIGIN"}')),
            row("neither file", prepare=None),
            row("no configuration", prepare=copy(b"[]"),
                expect=bad("Configuration must be a JSON object")))
