"""login: the calls it makes, and the callback it waits for."""
# Which request is the callback is decided by the unit tests; secrets and the opener are the sweep's.

import select
import socket
import time
import unittest
from typing import Any

from laboratory.home import FOLDER, Result, Scene, difference, finish, private
from laboratory.peers import TIME_LIMIT_S, Script, answer, reply
from laboratory.rows import same

GREETED = "Signed in as ada@example.org\n"
SESSION = b'{ "email":"ada@example.org", "token":"qvt-\\u0031", "more":[1.50,{"a":null}]}'
STORED = b'{"email":"ada@example.org","token":"qvt-1","more":[1.50,{"a":null}]}'


def page(status: str, text: str, *headers: str) -> bytes:
    """The exact answer that the browser gets."""
    return "\r\n".join((f"HTTP/1.1 {status}", "Content-Type: text/plain; charset=utf-8", *headers,
                        f"Content-Length: {len(text)}", "Connection: close", "", text)).encode()


UNKNOWN = page("400 Bad Request", "Unknown login callback")
REFUSED = page("400 Bad Request", "Authorization failed. Return to your terminal.")
NOT_SAVED = page("500 Internal Server Error", "Unable to save credentials.")
CONNECTED = page("200 OK", "Quorvane CLI connected. You can close this tab.",
                 "Cache-Control: no-store", "Referrer-Policy: no-referrer")


class SignIn(Scene):
    """A context, entered when the program has printed where to authorize it."""
    # `request` is the request identifier of the service's first answer, `exchange` what it does on
    # the second call; `before` has the files until then.

    def __init__(self, request: object = "r/%1", exchange: Script = reply(answer(SESSION)),
                 prepare: Any = None, **options: Any) -> None:
        super().__init__(reply(answer({"request": request})), exchange)
        self._prepare, self._options = prepare, options
        self.identifier = request if isinstance(request, str) else ""

    def __enter__(self) -> Any:
        super().__enter__()
        if self._prepare:
            self._prepare(self)
        self.before = self.files()
        self.process = self.start("login", "--no-browser", **self._options)
        self._shown = self.process.stdout.readline() + self.process.stdout.readline()
        self.url = f"{self.origin}/cli/authorize?request={self.identifier}"
        self.state = self.peer.body(0)["state"]
        self.head = f"GET /callback?state={self.state}&request={self.identifier}".encode()
        return self

    def __exit__(self, *error: object) -> None:
        self.process.kill()
        self.process.__exit__(None, None, None)
        super().__exit__(*error)

    def open(self, sent: bytes) -> socket.socket:
        """A browser's connection on which `sent` was sent."""
        browser = socket.create_connection(("127.0.0.1", self.peer.body(0)["port"]))
        browser.sendall(sent)
        return browser

    def visit(self, sent: bytes, *pieces: bytes) -> bytes:
        """What the browser gets for a request, whose pieces arrive apart."""
        with self.open(sent) as browser:
            for piece in pieces:
                time.sleep(0.05)  # A shorter time would only hide a fault.
                browser.sendall(piece)
            return b"".join(iter(lambda: browser.recv(4096), b""))

    def approve(self, more: bytes) -> bytes:
        """What the browser gets for the callback."""
        return self.visit(self.head + more + b" HTTP/1.1\r\n\r\n")

    def ends(self, text: str = GREETED, err: str = "") -> None:
        """Checks how it ends."""
        result = finish(self.process)
        out = f"Open this URL to authorize the CLI:\n{self.url}\n{text}"
        same("status, output and errors", result._replace(out=self._shown + result.out),
             Result(int(err != ""), out.encode(), err.encode()))


class Calls(unittest.TestCase):
    """The two calls and what comes of them."""

    def test_sign_in(self) -> None:
        def prepare(scene: SignIn) -> None:
            scene.environment["XDG_CONFIG_HOME"] = str(scene.path / "new")
            scene.origin = f"http://localhost:0{scene.peer.port}"
        with SignIn(umask=0o777, prepare=prepare) as login:
            self.assertEqual(login.approve(b"&code=a%20+b="), CONNECTED)
            login.ends()
            self.assertEqual(difference(login.before, login.files()), {
                "new": FOLDER, "new/quorvane": FOLDER,
                "new/quorvane/" + login.credential().name: private(STORED)})
        start, exchange = login.peer.body(0), login.peer.body(1)
        self.assertEqual(list(start), ["challenge", "state", "port"])
        self.assertEqual(login.peer.requests[1], login.request(
            "/api/cli/exchange", f'{{"request":"r/%1","code":"a%20+b=",'
            f'"verifier":"{exchange["verifier"]}"}}', "", "localhost"))
        self.assertRegex(exchange["verifier"] + login.state, "^[0-9a-f]{96}$")
        self.assertNotEqual(exchange["verifier"], login.state)

    def test_endings(self) -> None:
        for name, options, shown, ends, stored in (
                ("neither e-mail nor request identifier",
                 {"request": 7, "exchange": reply(answer({"email": 5}))}, CONNECTED,
                 {"text": "Signed in as \n"}, b'{"email":5}'),
                ("refused", {"exchange": reply(answer({"error": "denied"}, 400))}, REFUSED,
                 {"text": "", "err": "denied\n"}, None),
                ("not saved", {"prepare": lambda scene: (
                    scene.credential().unlink(), scene.credential().mkdir())}, NOT_SAVED,
                 {"text": "", "err": "Unable to save credentials\n"}, None)):
            with self.subTest(name), SignIn(**options) as login:
                self.assertEqual(login.approve(b"&error=access_denied&xcode=x"), shown)
                login.ends(**ends)
                file = str(login.credential().relative_to(login.path))
                self.assertEqual(difference(login.before, login.files()),
                                 {file: private(stored)} if stored else {})
            self.assertEqual(list(login.peer.body(1).values())[:2], [login.identifier, ""])

    def test_strays_and_slow_browsers(self) -> None:
        """They are turned away: others at once, after a second of silence, after five in all."""
        with SignIn() as login:
            longest = (login.head + b" HTTP/1.1\r\nHost:").ljust(8188, b"x") + b"\r\n\r\n"
            for sent in (b"GET /favicon.ico HTTP/1.1\r\n\r\n", longest.replace(b"Host", b"Host:")):
                self.assertEqual(login.visit(sent), UNKNOWN)
            for pace_s, least_s in ((TIME_LIMIT_S, 0.9), (0.4, 4.9)):
                with self.subTest(pace_s), login.open(b"GET /") as browser:
                    began = time.monotonic()
                    while not select.select([browser], [], [], pace_s)[0]:
                        browser.sendall(b"x")
                    self.assertEqual(browser.recv(4096), UNKNOWN)
                    self.assertGreaterEqual(time.monotonic() - began, least_s)
            with login.open(b""):  # As browsers do in advance.
                self.assertEqual(login.visit(longest[:3], longest[3:50], longest[50:-3],
                                             longest[-3:-1], b"\nmore"), CONNECTED)
            login.ends()
