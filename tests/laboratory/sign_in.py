"""A login under way, and the browser's part in it."""

import socket
import time
from typing import Any

from .home import Result, Scene, finish
from .peers import TIME_LIMIT_S, Script, answer, reply

GREETED = "Signed in as ada@example.org\n"
SESSION = b'{ "email":"ada@example.org", "token":"qvt-\\u0031", "more":[1.50,{"a":null}]}'


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
        self.callback_port, self.state = self.peer.body(0)["port"], self.peer.body(0)["state"]
        self.head = f"GET /callback?state={self.state}&request={self.identifier}".encode()
        return self

    def __exit__(self, *error: object) -> None:
        self.process.kill()
        self.process.__exit__(None, None, None)
        super().__exit__(*error)

    def open(self, sent: bytes) -> socket.socket:
        """A browser's connection on which `sent` was sent."""
        browser = socket.create_connection(("127.0.0.1", self.callback_port), TIME_LIMIT_S)
        browser.sendall(sent)
        return browser

    def visit(self, sent: bytes, *pieces: bytes) -> bytes:
        """What the browser gets for a request, whose pieces arrive apart."""
        with self.open(sent) as browser:
            for piece in pieces:
                time.sleep(0.05)  # A shorter time would only hide a fault.
                browser.sendall(piece)
            return b"".join(iter(lambda: browser.recv(4096), b""))

    def approve(self, more: bytes = b"&code=c", size: int = 0) -> bytes:
        """What the browser gets for the callback, whose head is filled up to `size`."""
        return self.visit((self.head + more + b" HTTP/1.1\r\nHost:").ljust(size - 4, b"x") +
                          b"\r\n\r\n")

    def ends(self, text: str = GREETED, err: str = "") -> tuple[Result, Result]:
        """How it ended, and how it should have."""
        result = finish(self.process)
        return result._replace(out=self._shown + result.out), Result(
            int(err != ""), f"Open this URL to authorize the CLI:\n{self.url}\n{text}".encode(),
            err.encode())
