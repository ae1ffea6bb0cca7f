"""login: the calls it makes, the callback it waits for, the browser it starts, the time limit."""

import base64
import hashlib
import os
import re
import socket
import struct
import time
from pathlib import Path
from typing import Any

from harness import (TIME_LIMIT_S, TOKEN, EndToEnd, Result, Scene, answer, bad, difference, failing,
                     finish, reply, tracing)

GREETED = "Signed in as ada@example.org\n"
SESSION = b'{ "email":"ada@example.org", "token":"qvt-\\u0031", "more":[1.50,{"a":null}]}'
STORED = b'{"email":"ada@example.org","token":"qvt-1","more":[1.50,{"a":null}]}'
EXCHANGED = reply(answer(SESSION))


def page(status: str, text: str, *headers: str) -> bytes:
    """The exact answer that the browser gets."""
    return "\r\n".join((f"HTTP/1.1 {status}", "Content-Type: text/plain; charset=utf-8", *headers,
                        f"Content-Length: {len(text)}", "Connection: close", "", text)).encode()


UNKNOWN = page("400 Bad Request", "Unknown login callback")
REFUSED = page("400 Bad Request", "Authorization failed. Return to your terminal.")
NOT_SAVED = page("500 Internal Server Error", "Unable to save credentials.")
CONNECTED = page("200 OK", "Quorvane CLI connected. You can close this tab.",
                 "Cache-Control: no-store", "Referrer-Policy: no-referrer")


class Login(Scene):
    """A login under way, and the browser's part in it."""

    def __init__(self, words: str = "login --no-browser", request: Any = "r/%1",
                 exchange: Any = EXCHANGED, prepare: Any = None, **options: Any) -> None:
        super().__init__(reply(answer({"request": request})), exchange)
        self.words, self.prepare, self.options = words.split(), prepare, options
        self.identifier = request if isinstance(request, str) else ""

    def __enter__(self) -> Any:
        super().__enter__()
        if self.prepare:
            self.prepare(self)
        self.before = self.files()
        self.process = self.start(*self.words, **self.options)
        self.shown = self.process.stdout.readline() + self.process.stdout.readline()
        self.url = f"{self.origin}/cli/authorize?request={self.identifier}"
        self.callback_port, self.state = self.body(0)["port"], self.body(0)["state"]
        self.head = f"GET /callback?state={self.state}&request={self.identifier}"
        return self

    def __exit__(self, *error: object) -> None:
        self.process.kill()
        self.process.__exit__(None, None, None)
        super().__exit__(*error)

    def open(self, sent: bytes) -> socket.socket:
        browser = socket.create_connection(("127.0.0.1", self.callback_port), TIME_LIMIT_S)
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

    def approve(self, more: str = "&code=c", size: int = 0) -> bytes:
        """What the browser gets for the callback, whose head is filled up to `size`."""
        return self.visit((self.head + more + " HTTP/1.1\r\nHost:").encode().ljust(size - 4, b"x") +
                          b"\r\n\r\n")

    def ends(self, text: str = GREETED, err: str = "") -> tuple[Result, Result]:
        """How it ended, and how it should have."""
        result = finish(self.process)
        return result._replace(out=self.shown + result.out), Result(
            int(err != ""), f"Open this URL to authorize the CLI:\n{self.url}\n{text}".encode(),
            err.encode())


class Calls(EndToEnd):
    """The two calls and what comes of them."""

    def test_sign_in(self) -> None:
        secrets = []
        for umask in (0, 0o777):
            with Login(umask=umask, prepare=lambda scene: scene.environment.update(
                    XDG_CONFIG_HOME=str(scene.home / "new"))) as login:
                self.assertEqual(login.approve("&code=a%20+b="), CONNECTED)
                self.assertEqual(*login.ends())
                self.assertEqual(difference(login.before, login.files()), {
                    "new": ("drwx------", b""), "new/quorvane": ("drwx------", b""),
                    "new/quorvane/" + login.credential().name: ("-rw-------", STORED)})
            verifier = login.body(1)["verifier"]
            digest = base64.urlsafe_b64encode(hashlib.sha256(verifier.encode()).digest())
            self.assertEqual(login.requests, [login.request(*call, token="") for call in (
                ("/api/cli/start", f'{{"challenge":"{digest.decode()[:43]}","state":'
                                   f'"{login.state}","port":{login.callback_port}}}'),
                ("/api/cli/exchange",
                 f'{{"request":"r/%1","code":"a%20+b=","verifier":"{verifier}"}}'))])
            secrets += [verifier, login.state]
        self.assertEqual(len(set(secrets)), 4)
        self.assertTrue(all(re.fullmatch("[0-9a-f]{48}", secret) for secret in secrets))

    def test_secrets(self) -> None:
        """The verifier leaves in one call, the new token goes into one file, the old one rests."""
        with Login(wrapper=lambda scene: tracing("-f", "-y", "-v", "-s", "99999", "-o",
                                                 f"{scene.home}/log")) as login:
            self.assertEqual(login.approve(), CONNECTED)
            self.assertEqual(*login.ends())
            log = (login.home / "log").read_text()
            secrets = f"{login.body(1)['verifier']}|qvt-1|{TOKEN}"
            calls = re.findall(rf"^\d+ +(\w+)\(\d+<([^>]*)>.*(?:{secrets})", log, re.M)
            self.assertEqual(len(calls), len(re.findall(f"^.*(?:{secrets})", log, re.M)))
            self.assertEqual([call for call, _ in calls], ["sendto", "write"])
            self.assertRegex(calls[0][1], "^(socket|TCP):")
            self.assertRegex(calls[1][1], rf"^{login.credential().resolve()}\.tmp\.\d+$")

    def test_before_the_browser(self) -> None:
        listener = bad("Cannot open a loopback login listener")
        self.rows((
            ("randomness", bad("Secure randomness unavailable"), "login",
             {"wrapper": failing("getrandom", "ENOSYS")}),
            ("no socket", listener, "login", {"wrapper": failing("socket", "EMFILE")}),
            ("no port", listener, "login", {"wrapper": failing("bind", "EADDRINUSE")}),
            ("no listening", listener, "login", {"wrapper": failing("listen", "EADDRINUSE")}),
            ("refused", bad("no"), "login", [reply(answer({"error": "no"}, 503))], None),
            ("no object", bad("Request failed: HTTP 200"), "login", [reply(answer([]))], None)))

    def test_endings(self) -> None:
        self.rows((
            ("replaces", CONNECTED, {"stored": STORED}),
            ("no e-mail", CONNECTED, "Signed in as \n", {
                "exchange": reply(answer({"email": 5})), "stored": b'{"email":5}'}),
            ("no request identifier", CONNECTED, {"request": 7, "stored": STORED}),
            ("refused", REFUSED, "", "denied\n", {
                "exchange": reply(answer({"error": "denied"}, 400))}),
            ("no object", REFUSED, "", "Request failed: HTTP 200\n", {
                "exchange": reply(answer([]))}),
            ("no answer", REFUSED, "", "Request failed: HTTP 0\n", {"exchange": reply()}),
            ("not saved", NOT_SAVED, "", "Unable to save credentials\n", {
                "wrapper": failing("fsync", "ENOSPC")})), self.check_ending)

    def check_ending(self, shown: bytes, out: str = GREETED, err: str = "",
                     stored: bytes | None = None, **options: Any) -> None:
        with Login(**options) as login:
            self.assertEqual(login.approve("&error=access_denied&xcode=x"), shown)
            self.assertEqual(*login.ends(out, err))
            name = str(login.credential().relative_to(login.home))
            self.assertEqual(difference(login.before, login.files()),
                             {name: ("-rw-------", stored)} if stored else {})
        self.assertEqual(list(login.body(1).values())[:2], [login.identifier, ""])
        self.assertEqual(len(login.requests), 2)


class Callback(EndToEnd):
    """Whoever is not the expected browser is turned away, and the wait goes on."""

    def test_strays(self) -> None:
        with Login() as login:
            end = b" HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
            whole = login.head.encode() + end
            for sent in (
                    b"GET /favicon.ico" + end, b"POST" + whole[3:], whole.replace(b"&", b"x&"),
                    whole.replace(b"?", b"?state=x&"), whole.replace(b"r/", b"r%2F"),
                    b"\x16\x03\x01\r\n\r\n", whole[:-4].ljust(8189, b"x") + b"\r\n\r\n",
                    whole[:-4].ljust(65536, b"x")):
                with self.subTest(sent[:200]):
                    self.assertEqual(login.visit(sent), UNKNOWN)
            with login.open(whole[:-4]) as browser:
                browser.shutdown(socket.SHUT_WR)
                self.assertEqual(browser.recv(4096), UNKNOWN, "a head without its end")
            with login.open(whole[:-2]) as browser:  # Leaves with a reset in mid-request.
                browser.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.assertEqual(len(login.requests), 1)
            self.assertEqual(login.visit(whole[:3], whole[3:50], whole[50:-3], whole[-3:-1],
                                         b"\nmore"), CONNECTED)
            self.assertEqual(*login.ends())

    def test_slow_browsers(self) -> None:
        self.rows((("silent", b"", 0, 0.9, 4), ("silent within a head", b"GET /", 0, 0.9, 4),
                   ("a byte now and then", b"GET /", 0.4, 4.9, 8)), self.check_slow)

    def check_slow(self, sent: bytes, pace_s: float, least: float, most: float) -> None:
        with Login() as login, login.open(sent) as browser:
            begun, got = time.monotonic(), b""
            browser.settimeout(pace_s or TIME_LIMIT_S)
            while not got:
                try:
                    got = browser.recv(4096)
                except TimeoutError:
                    browser.sendall(b"x")
            self.assertEqual(got, UNKNOWN)
            self.assertTrue(least < time.monotonic() - begun < most)
            self.assertEqual(login.approve(size=8192), CONNECTED, "the largest head")
            self.assertEqual(*login.ends())

    def test_five_minutes(self) -> None:
        """The clock is made to run behind when it sets the deadline: three seconds are left."""
        def wrapper(scene: Scene) -> tuple[str, ...]:
            log = scene.home / "log"  # Counts the readings at every start, of which we have none.
            scene.run("-V", wrapper=tracing("-o", str(log), "-e", "trace=clock_gettime"))
            first = len(log.read_text().splitlines()) + 1
            past = struct.pack("=qq", *divmod(round((end - 300) * 1e9), 10**9)).hex()
            return tracing("-o", "/dev/null", "-e", "trace=clock_gettime", "-e",
                           f"inject=clock_gettime:poke_exit=@arg2={past}:when={first}")
        end = time.monotonic() + 3
        with Login(wrapper=wrapper) as login:
            self.assertEqual(login.visit(b"GET / HTTP/1.1\r\n\r\n"), UNKNOWN)
            self.assertEqual(*login.ends("", "Login timed out. Run quorvane login again.\n"))
            self.assertTrue(0 <= time.monotonic() - end < 5)
        self.assertEqual(len(login.requests), 1)


RECORD = """#!/bin/sh
streams=$(readlink /proc/$$/fd/[012])
leaked=$(readlink /proc/$$/fd/* | grep socket)
{ printf '%s\\n' "$0" "$@"; umask; grep -E 'Sig(Ign|Blk)' /proc/$$/status
read pid name state parent group session rest </proc/$$/stat; echo $((session - pid))
echo "$streams"; echo "$leaked"
env; } >"$RECORD.$$"
"""


class Browser(EndToEnd):
    """The opener is started with the URL alone, and is nobody's concern afterwards."""

    def sign_in(self, path: str, words: str = "login",
                content: str = RECORD) -> tuple[Login, Any]:
        """Signs in; returns the lines that each opener has recorded once all children ended."""
        def prepare(scene: Scene) -> None:
            for folder, text, mode in (("bin", content, 0o755), ("b", RECORD, 0o755),
                                       ("plain", RECORD, 0o644), ("work", RECORD, 0o755)):
                opener = scene.home / folder / "xdg-open"
                opener.parent.mkdir(exist_ok=True)
                opener.write_text(text)
                opener.chmod(mode)
            scene.environment |= {"RECORD": f"{scene.home}/record",
                                  "PATH": path.replace("~", str(scene.home))}
        watching, held = os.pipe()
        with Login(words, prepare=prepare, umask=0o027, pass_fds=[held]) as login, \
                open(watching, "rb") as ended:
            os.close(held)
            self.assertEqual(login.approve(), CONNECTED)
            self.assertEqual(*login.ends())
            ended.read()  # Its other end is held by the login and all that it started.
            return login, [file.read_text().replace(str(login.home), "~").splitlines()
                           for file in login.home.glob("record.*")]

    def test_how_it_is_started(self) -> None:
        login, (record,) = self.sign_in("~/bin:/usr/bin:/bin")
        self.assertEqual(record[:10], ["~/bin/xdg-open", login.url, "0027",
                                       *(f"Sig{set}:\t0000000000000000" for set in ("Blk", "Ign")),
                                       "0", *["/dev/null"] * 3, ""])
        self.assertEqual({line for line in record[10:] if not line.startswith("PWD=")}, {
            f"{name}={value}".replace(str(login.home), "~")
            for name, value in login.environment.items()})

    def test_search(self) -> None:
        self.rows((
            ("first that can be run", ["~/b/xdg-open"], "~/none:~/plain:~/b:~/bin"),
            ("nowhere", [], "~/none:~/plain"),
            ("cannot be run after all", [], "~/bin:~/b", {"content": "#!/none\n"}),
            ("not wanted", [], "~/bin", "login --no-browser=false")), self.check_search)

    def check_search(self, expected: list[str], *words: str, **options: Any) -> None:
        records = self.sign_in(*words, **options)[1]
        self.assertEqual([record[0] for record in records], expected)

    def test_candidates(self) -> None:
        self.rows((("unset", ["/usr/local/bin", "/usr/bin", "/bin"]), ("empty", [], {"PATH": ""}),
                   ("empty components", ["/a", "/b/"], {"PATH": "::/a::/b/:"})),
                  self.check_candidates)

    def check_candidates(self, expected: list[str], **path: str) -> None:
        """Nothing is started: every candidate is made to look absent."""
        def prepare(scene: Scene) -> None:
            del scene.environment["PATH"]
            scene.environment |= path
        calls = "?access,?faccessat,?faccessat2"
        with Login("login", prepare=prepare, wrapper=lambda scene: tracing(
                "-o", f"{scene.home}/log", "-e", f"trace={calls}", "-e",
                f"inject={calls}:error=ENOENT")) as login:
            self.assertEqual(login.approve(), CONNECTED)
            self.assertEqual(*login.ends())
            self.assertEqual(re.findall(r'"([^"]*)/xdg-open"', (login.home / "log").read_text()),
                             expected)
