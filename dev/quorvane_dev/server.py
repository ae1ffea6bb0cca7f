"""The HTTP/1.1 server on 127.0.0.1: requests of limited size, one thread for each connection."""

from __future__ import annotations

import dataclasses
import shutil
import socketserver
import sys
import tempfile
import threading
import traceback
from collections.abc import Iterable
from http.server import BaseHTTPRequestHandler
from pathlib import Path
from types import TracebackType

from . import api, pages, seed
from .messages import MAX_BODY_BYTES, HttpError, Request, Response
from .store import Store

IDLE_LIMIT_S = 30
"""How long a connection may stay silent."""

MAX_DISCARDED_BYTES = 64 * 1024 * 1024
"""How much of a refused body is still read: many senders read the answer only after sending."""

OWN_NAMES = ("127.0.0.1", "localhost")
"""The hosts by which a browser on this machine reaches the service."""


class _Server(socketserver.ThreadingMixIn, socketserver.TCPServer):
    allow_reuse_address = True
    daemon_threads = True
    block_on_close = False
    request_queue_size = 128

    def __init__(self, port: int, store: Store, names: Iterable[str], verbose: bool) -> None:
        self.store = store
        self.names = {name.lower() for name in (*OWN_NAMES, *names)}
        self.verbose = verbose
        super().__init__(("127.0.0.1", port), _Handler)

    def handle_error(self, request: object, client_address: object) -> None:
        if not isinstance(sys.exc_info()[1], (ConnectionError, TimeoutError)):
            traceback.print_exc()


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "quorvane-dev"
    sys_version = ""
    timeout = IDLE_LIMIT_S
    disable_nagle_algorithm = True
    wbufsize = -1  # An answer's head and body leave together.
    server: _Server

    def answer_request(self) -> None:
        """Reads the body, has the request answered and sends the answer."""
        path, _, query = self.path.partition("?")
        headers = {name.lower(): value for name, value in self.headers.items()}
        request = Request(self.command, path, query, headers, b"")
        try:
            request = dataclasses.replace(request, body=self._body())
            response = self._run(request)
        except HttpError as error:
            response = self._failure(request, error)
        except Exception:  # pylint: disable=broad-except
            traceback.print_exc()
            response = self._failure(request, HttpError(500, "The service failed: see its output"))
        self._send(response)

    do_GET = do_HEAD = do_POST = do_PUT = do_PATCH = do_DELETE = do_OPTIONS = answer_request

    def _body(self) -> bytes:
        if "close" in self.headers.get("Connection", "").lower():
            self.close_connection = True
        lengths: list[str] = self.headers.get_all("Content-Length", [])
        if "Transfer-Encoding" in self.headers or (self.command == "POST" and not lengths):
            self.close_connection = True
            raise HttpError(411, "A request's body needs a Content-Length")
        if not lengths:
            return b""
        if len(lengths) > 1 or not lengths[0].isascii() or not lengths[0].isdecimal():
            self.close_connection = True
            raise HttpError(400, "The Content-Length is not one number")
        length = int(lengths[0][:18])
        if length > MAX_BODY_BYTES:
            self.close_connection = True
            left = min(length, MAX_DISCARDED_BYTES)
            while left > 0 and (data := self.rfile.read(min(left, 65536))):
                left -= len(data)
            raise HttpError(413, f"A request may have {MAX_BODY_BYTES} bytes at most")
        body = self.rfile.read(length)
        if len(body) < length:
            raise ConnectionAbortedError
        return body

    def _check_host(self) -> None:
        """Refuses a request for a host that is not the service's.

        Anybody can let a name of their own resolve to 127.0.0.1.  For a browser, the pages of that
        name then share an origin with the service and can authorize a sign-in (DNS rebinding).
        """
        hosts: list[str] = self.headers.get_all("Host", [])
        if len(hosts) != 1:
            raise HttpError(400, "A request needs one Host")
        # A name that ends in a dot is the same name (RFC 1034 3.1).
        name = hosts[0].strip().lower().partition(":")[0].removesuffix(".")
        if name not in self.server.names:
            raise HttpError(421, "This service does not answer for that host: see --name")

    def _run(self, request: Request) -> Response:
        self._check_host()
        answer = api.answer if request.path.startswith("/api/") else pages.answer
        return answer(self.server.store, request)

    def _failure(self, request: Request, error: HttpError) -> Response:
        if request.path.startswith("/api/"):
            return api.error_response(error)
        return pages.error_page(self.server.store, request, error)

    def _send(self, response: Response) -> None:
        self.send_response(response.status)
        for name, value in response.headers:
            self.send_header(name, value)
        self.send_header("X-Content-Type-Options", "nosniff")
        self.send_header("Content-Length", str(len(response.body)))
        if self.close_connection:
            self.send_header("Connection", "close")
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(response.body)

    def handle_expect_100(self) -> bool:
        """RFC 9110 10.1.1: the sender waits for this line before it sends its body."""
        going_on = super().handle_expect_100()
        self.wfile.flush()
        return going_on

    def log_message(self, format: str, *args: object) -> None:  # pylint: disable=redefined-builtin
        if self.server.verbose:
            sys.stderr.write(f"{self.log_date_time_string()} {format % args}\n")


class Service:
    """A running service; leaving the `with` block, or `close`, ends it.

    `data` is the state file, made when missing and kept; without it the state is temporary.
    Port 0 takes a free one.  `names` are hosts to answer for beside 127.0.0.1 and localhost, such
    as that of a `Front`; requests for any other are refused.  Raises `OSError` for the port and
    `sqlite3.Error` or `ValueError` for the file.
    """

    def __init__(self, port: int = 0, data: Path | None = None, names: Iterable[str] = (),
                 verbose: bool = False) -> None:
        self._folder = None if data else Path(tempfile.mkdtemp(prefix="quorvane-dev-"))
        try:
            self.store = Store(data or Path(str(self._folder), "state.sqlite"))
            try:
                if self.store.fresh:
                    seed.fill(self.store)
                self._server = _Server(port, self.store, names, verbose)
            except BaseException:
                self.store.close()
                raise
        except BaseException:
            self._remove_folder()
            raise
        self.port = int(self._server.server_address[1])
        self.origin = f"http://127.0.0.1:{self.port}"
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.05,))
        self._thread.start()

    def _remove_folder(self) -> None:
        if self._folder:
            shutil.rmtree(self._folder, ignore_errors=True)

    def close(self) -> None:
        """Stops listening and removes temporary state."""
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()
        self.store.close()
        self._remove_folder()

    def __enter__(self) -> Service:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()
