"""login: the calls it makes, and the callback it waits for."""
# Which request is the callback is decided by the unit tests; secrets and the opener are the sweep's.

import base64
import hashlib
import select
import socket
import time

from laboratory.home import FOLDER, difference, private
from laboratory.peers import TIME_LIMIT_S, answer, reply
from laboratory.rows import Rows
from laboratory.sign_in import SignIn

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


class Calls(Rows):
    """The two calls and what comes of them."""

    def test_sign_in(self) -> None:
        def prepare(scene: SignIn) -> None:
            scene.environment["XDG_CONFIG_HOME"] = str(scene.path / "new")
            scene.origin = f"http://localhost:0{scene.peer.port}"
        with SignIn(umask=0o777, prepare=prepare) as login:
            self.assertEqual(login.approve(b"&code=a%20+b="), CONNECTED)
            self.assertEqual(*login.ends())
            self.assertEqual(difference(login.before, login.files()), {
                "new": FOLDER, "new/quorvane": FOLDER,
                "new/quorvane/" + login.credential().name: private(STORED)})
        verifier = login.peer.body(1)["verifier"]
        digest = base64.urlsafe_b64encode(hashlib.sha256(verifier.encode()).digest()).decode()
        self.assertEqual(login.peer.requests, [login.request(*call, "", "localhost") for call in (
            ("/api/cli/start", f'{{"challenge":"{digest[:43]}","state":"{login.state}",'
                               f'"port":{login.callback_port}}}'),
            ("/api/cli/exchange",
             f'{{"request":"r/%1","code":"a%20+b=","verifier":"{verifier}"}}'))])
        self.assertRegex(verifier + login.state, "^[0-9a-f]{96}$")
        self.assertNotEqual(verifier, login.state)

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
                self.assertEqual(*login.ends(**ends))
                file = str(login.credential().relative_to(login.path))
                self.assertEqual(difference(login.before, login.files()),
                                 {file: private(stored)} if stored else {})
            self.assertEqual(list(login.peer.body(1).values())[:2], [login.identifier, ""])


class Callback(Rows):
    """Whoever is not the expected browser is turned away, and the wait goes on."""

    def test_strays(self) -> None:
        with SignIn() as login:
            complete = login.head + b" HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
            for name, sent in (
                    ("another request", complete.replace(b"r/", b"r%2F")),
                    ("head of 8193 bytes", complete[:-4].ljust(8189, b"x") + b"\r\n\r\n"),
                    ("head of 64 KiB", complete[:-4].ljust(65536, b"x"))):
                self.assertEqual(login.visit(sent), UNKNOWN, name)
            with login.open(complete[:-4]) as browser:
                browser.shutdown(socket.SHUT_WR)
                self.assertEqual(browser.recv(4096), UNKNOWN, "a head without its end")
            self.assertEqual(len(login.peer.requests), 1)
            self.assertEqual(login.visit(complete[:3], complete[3:50], complete[50:-3],
                                         complete[-3:-1], b"\nmore"), CONNECTED)
            self.assertEqual(*login.ends())

    def test_slow_browsers(self) -> None:
        """One second of silence, or five seconds altogether, and it is the next one's turn."""
        with SignIn() as login:
            for pace_s, least_s in ((TIME_LIMIT_S, 0.9), (0.4, 4.9)):
                with self.subTest(pace_s), login.open(b"GET /") as browser:
                    began = time.monotonic()
                    while not select.select([browser], [], [], pace_s)[0]:
                        browser.sendall(b"x")
                    self.assertEqual(browser.recv(4096), UNKNOWN)
                    self.assertGreaterEqual(time.monotonic() - began, least_s)
            self.assertEqual(login.approve(size=8192), CONNECTED, "the largest head")
            self.assertEqual(*login.ends())
