"""The peers of a run: a service of fixed answers, the browser that it sends back, a name server.

The answers are constants, so that the resulting files are known byte for byte.
"""

from __future__ import annotations

import json
import re
import socket
import ssl
import struct
import subprocess
import threading
from pathlib import Path
from typing import Any

HOST = "sweep.test"
TOKEN = "qvt-canary-6e1f0b"
NEW_TOKEN = "qvt-canary-77ac2d"
EMAIL = "ada@example.org"
PULLED: dict[str, Any] = {
    "config": {"id": "p", "units": "metres", "stations": [{"depth": -4.5}, None]}, "revision": 8}
REFUSAL = "Revision 7 is out of date"
IDLE_S = 1.5
"""How long a peer waits for the rest of a request: longer than any delay of an unbroken run."""

ANSWERS: dict[str, Any] = {
    "/api/cli/exchange": {"token": NEW_TOKEN, "email": EMAIL},
    "/api/v1/account": {"account": {"canonical_email": EMAIL}},
    "/api/v1/projects": {"projects": [{"id": "p", "name": "Tides"}, {"id": "q", "name": "Wind"}]},
    "/api/v1/project": {"project": PULLED},
    "/api/v1/project-configure": {"project": {"revision": 8}},
    "/api/v1/logout": {},
}


def make_certificate(folder: Path) -> None:
    """A certificate for HOST that is its own authority: cert.pem and key.pem."""
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
         "-nodes", "-keyout", "key.pem", "-out", "cert.pem", "-days", "30", "-subj", f"/CN={HOST}",
         "-addext", f"subjectAltName=DNS:{HOST}"], cwd=folder, check=True, capture_output=True)


def answer_names() -> None:
    """Answers every name on 127.0.0.1:53, from a thread: ::1 for AAAA, 127.0.0.1 for A."""
    server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    server.bind(("127.0.0.1", 53))

    def serve() -> None:
        while True:
            query, client = server.recvfrom(512)
            kind = query[-4:-2]
            data = socket.inet_pton(socket.AF_INET6, "::1") if kind == b"\0\x1c" else b"\x7f\0\0\1"
            server.sendto(query[:2] + b"\x81\x80\0\1\0\1\0\0\0\0" + query[12:] + b"\xc0\x0c" + kind
                          + b"\0\1\0\0\0\x3c" + struct.pack("!H", len(data)) + data, client)

    threading.Thread(target=serve, daemon=True).start()


class Service:
    """The service, over plain HTTP and over TLS; records its requests and the pages of its browser.

    `refusing` makes every push meet a conflict.
    """

    def __init__(self, folder: Path) -> None:
        self.refusing = False
        self.requests: list[bytes] = []
        self.secrets: dict[str, str] = {}
        self.pages: list[str] = []
        self._browsers: list[threading.Thread] = []
        self._tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self._tls.load_cert_chain(folder / "cert.pem", folder / "key.pem")
        self.plain_port = self._listen(False)
        self.tls_port = self._listen(True)

    def begin(self, refusing: bool) -> None:
        """Forgets the last run."""
        self.refusing = refusing
        self.requests, self.secrets, self.pages, self._browsers = [], {}, [], []

    def settle(self) -> None:
        """Waits for the browser."""
        for browser in self._browsers:
            browser.join()

    def _listen(self, tls: bool) -> int:
        listener = socket.create_server(("", 0), family=socket.AF_INET6, dualstack_ipv6=True,
                                        backlog=64)

        def serve() -> None:
            while True:
                connection = listener.accept()[0]
                threading.Thread(target=self._converse, args=(connection, tls),
                                 daemon=True).start()

        threading.Thread(target=serve, daemon=True).start()
        return int(listener.getsockname()[1])

    def _converse(self, connection: socket.socket, tls: bool) -> None:
        connection.settimeout(IDLE_S)
        try:
            if tls:
                connection = self._tls.wrap_socket(connection, server_side=True)
            with connection:
                request = self._receive(connection)
                if request:
                    connection.sendall(self._answer(request))
        except OSError:
            connection.close()

    def _receive(self, connection: socket.socket) -> bytes:
        """One request; an incomplete one is recorded and not answered."""
        received = b""
        try:
            while True:
                head, end, body = received.partition(b"\r\n\r\n")
                length = re.search(rb"Content-Length: (\d+)", head)
                if end and length and len(body) >= int(length[1]):
                    return received
                data = connection.recv(65536)
                if not data:
                    return b""
                received += data
        finally:
            self.requests.append(received)

    def _answer(self, request: bytes) -> bytes:
        path = request.split(b" ")[1].decode(errors="replace")
        body = request.partition(b"\r\n\r\n")[2]
        status, answer = 200, ANSWERS.get(path, {})
        if path == "/api/cli/start":
            answer = {"request": "req-1"}
            start = json.loads(body)
            self.secrets["state"] = start["state"]
            browser = threading.Thread(target=self._browse, args=(start["port"], start["state"]))
            browser.start()
            self._browsers.append(browser)
        elif path == "/api/cli/exchange":
            self.secrets["verifier"] = json.loads(body)["verifier"]
        elif path == "/api/v1/project-configure" and self.refusing:
            status, answer = 409, {"error": REFUSAL}
        content = json.dumps(answer).encode()
        head = f"HTTP/1.1 {status} Words\r\nContent-Length: {len(content)}\r\n\r\n"
        return head.encode() + content

    def _browse(self, port: int, state: str) -> None:
        """The browser comes back, and tries again if it was refused, as a person would."""
        request = (f"GET /callback?request=req-1&state={state}&code=c HTTP/1.1\r\n"
                   f"Host: 127.0.0.1:{port}\r\n\r\n").encode()
        for _ in range(8):
            page = b""
            try:
                with socket.create_connection(("127.0.0.1", port), timeout=25) as connection:
                    connection.sendall(request)
                    while data := connection.recv(4096):
                        page += data
            except ConnectionRefusedError:
                return
            except OSError:
                continue
            words = page.partition(b"\r\n\r\n")[2].decode()
            self.pages.append(words)
            if words and words != "Unknown login callback":
                return
