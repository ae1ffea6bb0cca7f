"""login: the calls it makes, the callback it waits for, the browser it starts, the time limit."""

from __future__ import annotations

import base64
import hashlib
import os
import re
import socket
import struct
import time
import unittest
from collections.abc import Callable
from contextlib import closing
from pathlib import Path
from typing import Any

from harness import (TIME_LIMIT_S, EndToEnd, Result, Scene, Script, answer, bad, difference,
                     failing, finish, good, reply, tracing)

GREETED = "Signed in as ada@example.org\n"
SESSION = b'{ "email":"ada@example.org", "token":"qvt-\\u0031", "more":[1.50,{"a":null}]}'
STORED = b'{"email":"ada@example.org","token":"qvt-1","more":[1.50,{"a":null}]}'
STARTED, EXCHANGED = reply(answer({"request": "r/%1"})), reply(answer(SESSION))


def page(status: str, text: str, *headers: str) -> bytes:
    """The exact answer that the browser gets."""
    return "\r\n".join((f"HTTP/1.1 {status}", "Content-Type: text/plain; charset=utf-8", *headers,
                        f"Content-Length: {len(text)}", "Connection: close", "", text)).encode()


UNKNOWN = page("400 Bad Request", "Unknown login callback")
REFUSED = page("400 Bad Request", "Authorization failed. Return to your terminal.")
NOT_SAVED = page("500 Internal Server Error", "Unable to save credentials.")
CONNECTED = page("200 OK", "Quorvane CLI connected. You can close this tab.",
                 "Cache-Control: no-store", "Referrer-Policy: no-referrer")


class Login:
    """A login under way, and the browser's part in it."""

    def __init__(self, scene: Scene, *words: str, **options: Any) -> None:
        self.process = scene.start("login", *words, **options)
        assert self.process.stdout
        self.shown = self.process.stdout.readline() + self.process.stdout.readline()
        self.url = f"{scene.origin}/cli/authorize?request=r/%1"
        start = scene.connections[0].body()
        self.port, self.state = start["port"], start["state"]
        self.target = f"/callback?state={self.state}&request=r/%1".encode()

    def open(self, sent: bytes) -> socket.socket:
        browser = socket.create_connection(("127.0.0.1", self.port), TIME_LIMIT_S)
        browser.sendall(sent)
        return browser

    def visit(self, sent: bytes, *pieces: bytes) -> bytes:
        """What the browser gets for a request, whose pieces arrive apart."""
        with self.open(sent) as browser:
            for piece in pieces:
                browser.settimeout(0.05)
                try:
                    return browser.recv(4096)  # An answer before the last piece.
                except TimeoutError:
                    browser.settimeout(TIME_LIMIT_S)
                browser.sendall(piece)
            return b"".join(iter(lambda: browser.recv(4096), b""))

    def approve(self, more: str = "&code=c") -> bytes:
        return self.visit(b"GET " + self.target + more.encode() + b" HTTP/1.1\r\nHost: x\r\n\r\n")

    def end(self) -> Result:
        result = finish(self.process)
        return result._replace(out=self.shown + result.out)

    def shown_and(self, text: str = "") -> bytes:
        return f"Open this URL to authorize the CLI:\n{self.url}\n{text}".encode()

    def close(self) -> None:
        if self.process.returncode is None:
            self.process.kill()
            finish(self.process)


class Calls(EndToEnd):
    """The two calls and what comes of them."""

    def test_sign_in(self) -> None:
        secrets = []
        for umask in (0, 0o777):
            with Scene(STARTED, EXCHANGED) as scene:
                scene.environment["XDG_CONFIG_HOME"] = str(scene.work / "new")
                with closing(Login(scene, "--no-browser", umask=umask)) as login:
                    self.assertEqual(login.approve("&code=a%20+b="), CONNECTED)
                    self.assertEqual(login.end(), Result(0, login.shown_and(GREETED), b""))
                file = "work/new/quorvane/" + scene.credential().name
                self.assertEqual({name: made for name, made in scene.files().items()
                                  if name.startswith("work/")}, {
                    "work/new": ("drwx------", b""), "work/new/quorvane": ("drwx------", b""),
                    file: ("-rw-------", STORED)})
            verifier = scene.connections[1].body()["verifier"]
            digest = base64.urlsafe_b64encode(hashlib.sha256(verifier.encode()).digest())
            self.assertEqual(scene.requests, [scene.request(*call, token="") for call in (
                ("/api/cli/start", f'{{"challenge":"{digest.decode()[:43]}",'
                                   f'"state":"{login.state}","port":{login.port}}}'),
                ("/api/cli/exchange",
                 f'{{"request":"r/%1","code":"a%20+b=","verifier":"{verifier}"}}'))])
            secrets += [verifier, login.state]
        self.assertEqual(len(set(secrets)), 4)
        self.assertTrue(all(re.fullmatch("[0-9a-f]{48}", secret) for secret in secrets))

    def test_before_the_browser(self) -> None:
        listener = bad("Cannot open a loopback login listener")
        self.rows([(name, expected, "login", {"wrapper": failing(name, error)})
                   for name, error, expected in (
            ("getrandom", "ENOSYS", bad("Secure randomness unavailable")),
            ("socket", "EMFILE", listener), ("bind", "EADDRINUSE", listener),
            ("listen", "EADDRINUSE", listener))])
        for body, status, message in (({"error": "not now"}, 503, "not now"),
                                      ([], 200, "Request failed: HTTP 200")):
            with Scene(reply(answer(body, status))) as scene:
                self.assertEqual(scene.run("login"), bad(message))
            self.assertEqual(len(scene.requests), 1)

    def test_no_request_identifier(self) -> None:
        for body in ({}, {"request": 7}):
            with self.subTest(str(body)), Scene(reply(answer(body)), EXCHANGED) as scene, \
                    closing(Login(scene, "--no-browser")) as login:
                login.url, login.target = login.url[:-4], login.target[:-13]
                self.assertEqual(login.approve(""), CONNECTED)
                self.assertEqual(login.end(), Result(0, login.shown_and(GREETED), b""))
                self.assertEqual(list(scene.connections[1].body().values())[:2], ["", ""])

    def test_endings(self) -> None:
        self.rows((
            ("replaces", EXCHANGED, CONNECTED, GREETED, "", STORED),
            ("no e-mail", reply(answer({"email": 5})), CONNECTED, "Signed in as \n", "",
             b'{"email":5}'),
            ("refused", reply(answer({"error": "denied"}, 400)), REFUSED, "", "denied\n"),
            ("no object", reply(answer([])), REFUSED, "", "Request failed: HTTP 200\n"),
            ("no answer", reply(), REFUSED, "", "Request failed: HTTP 0\n"),
            ("not saved", EXCHANGED, NOT_SAVED, "", "Unable to save credentials\n", None,
             failing("fsync", "ENOSPC")),
        ), self.check_ending)

    def check_ending(self, exchange: Script, shown: bytes, out: str, err: str,
                     stored: bytes | None = None, wrapper: Any = ()) -> None:
        with Scene(STARTED, exchange) as scene:
            before = scene.files()
            with closing(Login(scene, "--no-browser", wrapper=wrapper)) as login:
                self.assertEqual(login.approve("&error=access_denied&scode=x"), shown)
                self.assertEqual(login.end(), Result(int(out == ""), login.shown_and(out),
                                                     err.encode()))
            name = str(scene.credential().relative_to(scene.home))
            self.assertEqual(difference(before, scene.files()),
                             {name: ("-rw-------", stored)} if stored else {})
            self.assertEqual(scene.connections[1].body()["code"], "")
        self.assertEqual(len(scene.requests), 2)


class Callback(EndToEnd):
    """Whoever is not the expected browser is turned away, and the wait goes on."""

    def test_strays(self) -> None:
        with Scene(STARTED, EXCHANGED) as scene, \
                closing(Login(scene, "--no-browser")) as login:
            end = b" HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
            whole = b"GET " + login.target + end
            for sent in (
                    b"GET /favicon.ico" + end, b"GET /callback" + end, whole.replace(b"?", b"/?"),
                    b"POST" + whole[3:], b"get" + whole[3:], whole.replace(b"state", b"State"),
                    whole.replace(b"&", b"x&"), whole.replace(b"?", b"?state=x&"),
                    b"GET /callback?state=&request=r/%1" + end, whole.replace(b"%1", b"%2"),
                    whole.replace(b"r/", b"r%2F"), whole.replace(b"request", b"requests"),
                    b"\x16\x03\x01\r\n\r\n", whole[:-4].ljust(8189, b"x") + b"\r\n\r\n",
                    whole[:-4].ljust(65536, b"x")):
                with self.subTest(sent[:200]):
                    self.assertEqual(login.visit(sent), UNKNOWN)
            with login.open(whole[:-4]) as browser:
                browser.shutdown(socket.SHUT_WR)
                self.assertEqual(browser.recv(4096), UNKNOWN, "a head without its end")
            with login.open(whole[:-2]) as browser:  # Leaves with a reset in mid-request.
                browser.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.assertEqual(len(scene.requests), 1)
            self.assertEqual(login.visit(whole[:3], whole[3:50], whole[50:-3], whole[-3:-1],
                                         b"\nmore"), CONNECTED)
            self.assertEqual(login.end(), Result(0, login.shown_and(GREETED), b""))

    def test_largest_head(self) -> None:
        with Scene(STARTED, EXCHANGED) as scene, closing(Login(scene, "--no-browser")) as login:
            head = b"GET " + login.target + b" HTTP/1.1\r\na:"
            self.assertEqual(login.visit(head.ljust(8188, b"x") + b"\r\n\r\n"), CONNECTED)
            self.assertEqual(login.end().status, 0)

    def test_slow_browsers(self) -> None:
        self.rows((("silent", b"", 0, 0.9, 3), ("silent within a head", b"GET /", 0, 0.9, 3),
                   ("a byte now and then", b"GET /", 0.4, 4.9, 7)), self.check_slow)

    def check_slow(self, sent: bytes, pace_s: float, least: float, most: float) -> None:
        with Scene(STARTED, EXCHANGED) as scene, closing(Login(scene, "--no-browser")) as login, \
                login.open(sent) as browser:
            begun, got = time.monotonic(), b""
            browser.settimeout(pace_s or TIME_LIMIT_S)
            while not got:
                try:
                    got = browser.recv(4096)
                except TimeoutError:
                    browser.sendall(b"x")
            self.assertEqual(got, UNKNOWN)
            self.assertTrue(least < time.monotonic() - begun < most)
            self.assertEqual(login.approve(), CONNECTED)
            self.assertEqual(login.end().status, 0)

    def test_five_minutes(self) -> None:
        """The clock is made to run behind when it sets the deadline: two seconds are left."""
        with Scene(STARTED) as scene:
            end = time.monotonic() + 2
            past = struct.pack("=qq", *divmod(round((end - 300) * 1e9), 10**9)).hex()
            wrapper = tracing("-o", "/dev/null", "-e", "trace=clock_gettime", "-e",
                              f"inject=clock_gettime:poke_exit=@arg2={past}:when=1")
            with closing(Login(scene, "--no-browser", wrapper=wrapper)) as login:
                self.assertEqual(login.visit(b"GET / HTTP/1.1\r\n\r\n"), UNKNOWN)
                self.assertEqual(login.end(), Result(
                    1, login.shown_and(), b"Login timed out. Run quorvane login again.\n"))
            self.assertTrue(0 <= time.monotonic() - end < 5)
        self.assertEqual(len(scene.requests), 1)


RECORD = """#!/bin/sh
streams=$(readlink /proc/$$/fd/[012])
leaked=$(readlink /proc/$$/fd/* | grep socket)
{ printf '%s\\n' "$0" "$@"; umask; grep SigIgn /proc/$$/status; echo "$streams"; echo "$leaked"
env; } >"$RECORD.$$"
"""


class Browser(EndToEnd):
    """The opener is started with the URL alone, and is nobody's concern afterwards."""

    def sign_in(self, path: str, prepare: Callable[[Path], object] | None = None,
                *words: str) -> tuple[Login, list[list[str]]]:
        """Signs in; returns the lines that each opener has recorded once all children ended."""
        with Scene(STARTED, EXCHANGED) as scene:
            for folder, mode in (("bin", 0o755), ("b", 0o755), ("plain", 0o644), ("work", 0o755)):
                opener = scene.home / folder / "xdg-open"
                opener.parent.mkdir(exist_ok=True)
                opener.write_text(RECORD)
                opener.chmod(mode)
            if prepare:
                prepare(scene.home / "bin" / "xdg-open")
            scene.environment |= {"RECORD": f"{scene.home}/record",
                                  "PATH": path.replace("~", str(scene.home))}
            watching, held = os.pipe()
            with closing(Login(scene, *words, umask=0o027, pass_fds=[held])) as login, \
                    open(watching, "rb") as ended:
                os.close(held)
                self.assertEqual(login.approve(), CONNECTED)
                self.assertEqual(login.end(), Result(0, login.shown_and(GREETED), b""))
                ended.read()  # Its other end is held by the login and all that it started.
            return login, [file.read_text().replace(str(scene.home), "~").splitlines()
                           for file in scene.home.glob("record.*")]

    def test_how_it_is_started(self) -> None:
        login, (record,) = self.sign_in("~/bin:/usr/bin:/bin")
        self.assertEqual(record[:8], ["~/bin/xdg-open", login.url, "0027",
                                      "SigIgn:\t0000000000000000", *["/dev/null"] * 3, ""])
        self.assertEqual({line for line in record[8:] if not line.startswith("PWD=")}, {
            "HOME=~/home", "PATH=~/bin:/usr/bin:/bin", "RECORD=~/record",
            "XDG_CONFIG_HOME=~/config"})

    def test_search(self) -> None:
        def unfit(opener: Path) -> object:
            return opener.write_text("#!/none\n")
        self.rows((
            ("first that can be run", ["~/b/xdg-open"], "~/none:~/plain:~/b:~/bin"),
            ("empty components are no folder", ["~/bin/xdg-open"], "::~/bin:"),
            ("nowhere", [], "~/none:~/plain"), ("empty", [], ""),
            ("cannot be run after all", [], "~/bin:~/b", unfit),
            ("not wanted", [], "~/bin", None, "--no-browser=false")), self.check_search)

    def check_search(self, expected: list[str], *arguments: Any) -> None:
        self.assertEqual([record[0] for record in self.sign_in(*arguments)[1]], expected)

    def test_default_path(self) -> None:
        """Nothing is started: every candidate is made to look absent."""
        with Scene(STARTED, EXCHANGED) as scene:
            del scene.environment["PATH"]
            log, calls = scene.home / "log", "?access,?faccessat,?faccessat2"
            with closing(Login(scene, wrapper=tracing(
                    "-o", str(log), "-e", f"trace={calls}",
                    "-e", f"inject={calls}:error=ENOENT"))) as login:
                self.assertEqual(login.approve(), CONNECTED)
                self.assertEqual(login.end().status, 0)
            self.assertEqual(re.findall(r'"(/[^"]*)/xdg-open"', log.read_text()),
                             ["/usr/local/bin", "/usr/bin", "/bin"])


if __name__ == "__main__":
    unittest.main()
