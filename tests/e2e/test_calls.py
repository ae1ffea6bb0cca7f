"""One call to the service: the bytes sent, how every answer is judged, the account commands."""

import json
import socket
import time
from pathlib import Path
from typing import Any

from harness import (TOKEN, EndToEnd, Result, Scene, answer, bad, failing, good, read_request,
                     reply, reset, tracing, until_gone, until_over)

EMAIL = {"account": {"canonical_email": "ada@example.org"}}
BODY = json.dumps(EMAIL).encode()
ADA = good("ada@example.org\n")
STATUS = b"HTTP/1.1 200 OK\r\n"
ACCOUNT, PROJECTS, LOGOUT = (("/api/v1/" + name,) for name in ("account", "projects", "logout"))
META = '{"projectId":"p","baseUrl":"%s","revision":1}'
LOST = bad("Cannot reach ORIGIN (HTTP 0, complete=false; HTTP transport)")


def status(code: int) -> Result:
    return bad(f"Request failed: HTTP {code}")


def chunks(*pieces: bytes) -> bytes:
    return STATUS + b"Transfer-Encoding: chunked\r\n\r\n" + b"".join(
        b"%x\r\n%s\r\n" % (len(p), p) for p in pieces)


def filled(size: int) -> bytes:
    """A good answer of `size` bytes, head included."""
    return STATUS + b"\r\n" + BODY[:-1].ljust(size - len(STATUS) - 3) + b"}"


class Answers(EndToEnd):
    """An answer below status 400 that is an object is good; all else is one line and status 1."""

    def judge(self, *table: tuple[Any, ...]) -> None:
        self.rows([(name, expected, "whoami", [reply(*steps)], [ACCOUNT])
                   for name, expected, *steps in table])

    def test_judgement(self) -> None:
        refusal = {"error": "No.\nReally \u00fc\u001b[1m"}
        self.judge(
            ("empty object", good("\n"), answer({})), ("array", status(200), answer([])),
            ("empty", status(200), answer(b"")), ("not JSON", status(200), answer(b"<html>")),
            ("null", status(200), answer(None)), ("no content", status(204), answer(b"", 204)),
            ("key twice", status(200), answer(b'{"a":1,"a":1}')),
            ("not UTF-8", status(200), answer(b'{"a":"\xff"}')),
            ("redirect", ADA, b"HTTP/1.1 302 Found\r\nLocation: /\r\n\r\n" + BODY),
            ("below 400", ADA, answer(EMAIL, 399)), ("400", status(400), answer(EMAIL, 400)),
            ("error below 400", ADA, answer({"error": "no", **EMAIL})),
            ("error", bad(refusal["error"]), answer(refusal, 401)),
            ("error a number", bad(""), answer({"error": 1}, 401)),
            ("error null", bad(""), answer({"error": None}, 500)),
            ("error in an array", status(409), answer(["error"], 409)),
            ("page", status(404), answer(b"<html>", 404)), ("999", status(999), answer(b"", 999)),
            ("interim", status(100), b"HTTP/1.1 100 Continue\r\n\r\n", answer(EMAIL)))

    def test_framing(self) -> None:
        length = STATUS + b"Content-Length: %s\r\n\r\n" + BODY
        self.judge(
            ("nothing", status(0)), ("no status line", status(0), b"garbage\r\n\r\n" + BODY),
            ("cut head", status(200), b"HTTP/1.1 200 OK\r\nContent-Le"),
            ("until the close", ADA, STATUS + b"\r\n", BODY[:9], BODY[9:]),
            ("length", ADA, answer(EMAIL), b"more"), ("short", status(200), length % b"9"),
            ("long", ADA, length % b"999"),
            ("refusal cut", status(403), answer({"error": "no"}, 403)[:-1]),
            ("chunks in pieces", ADA, chunks(), *(b"1\r\n%c\r\n" % byte for byte in BODY), b"0\r",
             b"\n\r\n"),
            ("chunks cut", status(200), chunks(BODY[:9])), ("no last chunk", ADA, chunks(BODY)),
            ("8 MiB", ADA, filled(8388608)), ("over 8 MiB", status(200), filled(8388609)),
            ("endless", status(200), filled(16777216), until_gone))


def copy(text: bytes = b"") -> Any:
    """Prepares a configuration that can be pushed."""
    return lambda scene: ((scene.work / "c").write_bytes(b'{"a":"%s"}' % text),
                          (scene.work / "c.sync.json").write_text(META % scene.origin))


class Connections(EndToEnd):
    """What fails on the way ends in one line, within 10 s of silence, and changes no file."""

    REFUSAL = answer({"error": "no"}, 409)
    LARGE = {"prepare": copy(b"x" * 7_000_000), "receive_buffer": 4096}

    def test_broken(self) -> None:
        self.rows([(name, expected, "config push -p p -f c", [script], None,
                    {"prepare": copy(), **options}) for name, expected, script, options in (
            ("reset", LOST, reply(reset), {}),
            ("reset in the head", LOST, reply(self.REFUSAL.partition(b"\r\n\r\n")[0], reset), {}),
            ("reset in the body", status(409), reply(self.REFUSAL[:-1], reset), {}),
            ("reset, no length", bad("no"), reply(b"HTTP/1.1 401 x\r\n\r\n" + b'{"error":"no"}',
                                                  reset), {}),
            ("closed at once", LOST, (), self.LARGE), ("reset", LOST, (reset,), self.LARGE),
            ("answered early, closed", LOST, (self.REFUSAL,), self.LARGE),
            ("answered early, read", bad("no"), (self.REFUSAL, read_request), self.LARGE))])

    def test_silent(self) -> None:
        with socket.socket() as full, socket.socket() as first, socket.socket() as deaf:
            full.bind(("127.0.0.1", 0))
            full.listen(0)
            first.connect(full.getsockname())  # Fills the line: further ones get no answer.
            deaf.bind(("127.0.0.1", 0))  # Does not listen.
            self.rows([(name, 9.5, expected, "config push -p p -f c", [script], None,
                        self.LARGE if script == (until_over,) else {"prepare": copy()})
                       for name, expected, script in (
                ("no answer", LOST, reply(until_gone)),
                ("half a head", LOST, reply(STATUS, until_gone)),
                ("half a body", LOST, reply(answer(EMAIL)[:-1], until_gone)),
                ("a body without an end", LOST, reply(STATUS + b"\r\n" + BODY, until_gone)),
                ("no last chunk", LOST, reply(chunks(BODY), until_gone)),
                ("whole", bad("no"), reply(self.REFUSAL, until_gone)),
                ("never reads", LOST, (until_over,)))] + [
            (name, least, bad(LOST.err.decode()[:-1].replace("ORIGIN", origin)),
             ["whoami", "--base-url", origin], {"prepare": lambda scene, origin=origin: (
                 scene.credential().rename(scene.credential(origin)))})
            for name, least, origin in (
                ("no connection", 9.5, f"http://127.0.0.1:{full.getsockname()[1]}"),
                ("refused", 0, f"http://localhost:0{deaf.getsockname()[1]}"))],
                      self.check_time, workers=9)

    def check_time(self, least: float, *row: Any, **options: Any) -> None:
        started = time.monotonic()
        self.check(*row, **options)
        self.assertTrue(least <= time.monotonic() - started < least + 5)


class Account(EndToEnd):
    """whoami, projects and logout: lenient about what the service answers."""

    def test_output(self) -> None:
        self.rows([(str(body), good(out), "whoami", [reply(answer(body))], [ACCOUNT])
                   for body, out in (
            ({"account": [EMAIL]}, "\n"), ({"account": {"canonical_email": 5}}, "\n"),
            ({"account": {"email": "x"}, "canonical_email": "x"}, "\n"),
            ({"account": {"canonical_email": "\u00fc\ta\nb"}}, "\u00fc\ta\nb\n"))])
        self.rows([(str(body), good(out), "projects", [reply(answer(body))], [PROJECTS])
                   for body, out in (
            ({}, ""), ({"projects": []}, ""), ({"projects": "p"}, ""),
            ({"projects": [{"id": "b", "name": "\u00fc"}, {"name": "n"}, 7, {"id": 5, "name": 0},
                           {"id": "a"}]}, "b  \u00fc\n  n\n  \n  \na  \n"),
            ({"projects": {"z": {"name": "one", "id": "1"}, "a": "x"}}, "1  one\n  \n"))])

    def test_host_and_port(self) -> None:
        script = reply(answer(EMAIL))
        with Scene(script, script) as scene:
            for origin in (f"http://localhost:{scene.port}", f"http://127.0.0.1:00{scene.port}"):
                scene.credential(origin).write_text(scene.credential().read_text())
                self.assertEqual(scene.run("--base-url", origin, "whoami"), ADA)
        self.assertEqual(scene.requests, [scene.request(*ACCOUNT, host="localhost"),
                                          scene.request(*ACCOUNT)])

    def test_logout(self) -> None:
        by_hand, out = bad("Logged out; remove the local credential file manually"), "Signed out\n"
        gone, folder = {"changed": {"CREDENTIAL": None}}, ("drwx------", b"")
        self.rows([(name, expected, "logout", [reply(
            lambda connection, meanwhile=meanwhile: meanwhile(connection.scene.credential()),
            answer({}, code))], [LOGOUT], options)
            for name, expected, meanwhile, code, options in (
                ("good", good(out), Path.exists, 200, gone),
                ("refused", status(500), Path.exists, 500, {}),
                ("file gone", by_hand, Path.unlink, 200, gone),
                ("empty folder", good(out), lambda file: (file.unlink(), file.mkdir()), 200, gone),
                ("folder in use", by_hand, lambda file: (
                    file.unlink(), file.mkdir(0o700), (file / "x").mkdir(0o700)), 200,
                 {"changed": {"CREDENTIAL": folder, "CREDENTIAL/x": folder}}),
                ("read-only", by_hand, Path.exists, 200,
                 {"wrapper": failing("unlink,unlinkat,rmdir", "EROFS")}))])

    def test_secrets(self) -> None:
        """The token comes from the credential file and leaves in one header, seen call by call."""
        for words in ("whoami", "projects", "config pull -p=p", "config push -p=p", "logout"):
            with self.subTest(words), Scene(reply(answer({}))) as scene:
                log = scene.home / "log"
                (scene.work / "quorvane.config.json").write_text("{}")
                (scene.work / "quorvane.config.json.sync.json").write_text(META % scene.origin)
                wrapper = tracing("-f", "-y", "-s", "99999", "-o", str(log))
                self.assertEqual(scene.run(*words.split(), wrapper=wrapper).status, 0)
                calls = log.read_text()
                # A FIFO that takes the file's place must not block the open.
                self.assertRegex(calls, rf'openat\(.*"{scene.credential()}", .*O_NONBLOCK')
                lines = [line for line in calls.splitlines() if TOKEN in line]
                self.assertEqual(len(lines), 2)
                self.assertRegex(lines[0], rf"^\d+ +read\(\d+<{scene.credential().resolve()}>")
                self.assertRegex(lines[1], r"^\d+ +(sendto|write)\(\d+<(socket|TCP):")
