"""Scripted peers on loopback addresses: over TCP, over TLS, and name servers."""

from __future__ import annotations

import json
import socket
import socketserver
import ssl
import struct
import threading
from collections.abc import Callable, Sequence
from contextlib import suppress
from dataclasses import dataclass
from typing import Any

TIME_LIMIT_S = 240


@dataclass(eq=False)
class Connection:
    """One accepted connection: its socket, its peer, what `read_request` received."""

    socket: socket.socket
    peer: Peer
    received: bytes = b""


Step = bytes | Callable[[Connection], Any]
"""Bytes to send, or something to do."""

Script = Sequence[Step]
"""What a peer does on one connection before it closes it."""


def read_request(connection: Connection) -> None:
    """Reads one request, as long as its Content-Length says."""
    missing = 1
    while missing > 0 and (data := connection.socket.recv(1 << 20)):
        connection.received += data
        head, end, body = connection.received.partition(b"\r\n\r\n")
        length = int(head.partition(b"Content-Length: ")[2].partition(b"\r\n")[0] or 0)
        missing = length - len(body) if end else 1


def until_gone(connection: Connection) -> None:
    """Stays silent until the client closes."""
    while connection.socket.recv(1 << 20):
        pass


def until_over(connection: Connection) -> None:
    """Stays silent, without reading either, until the peer is closed."""
    connection.peer.over.wait(TIME_LIMIT_S)


def reset(connection: Connection) -> None:
    """Makes the close that follows a reset."""
    connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def reply(*steps: Step) -> Script:
    """A script that begins by reading the request."""
    return (read_request, *steps)


def answer(body: object, status: int = 200) -> bytes:
    """A well-formed response; bytes are sent as they are, anything else as JSON."""
    content = body if isinstance(body, bytes) else json.dumps(body).encode()
    return b"HTTP/1.1 %d Words\r\nContent-Length: %d\r\n\r\n%s" % (status, len(content), content)


class Peer(socketserver.ThreadingTCPServer):
    """Plays script n on connection n, beyond the last script the last one; a context."""
    # Without scripts requests are read and connections closed.  `tls` makes it a TLS server (see
    # `network.serving`).  On leaving the context all that was accepted has been played.

    request_queue_size = 64

    def __init__(self, *scripts: Script, address: str = "127.0.0.1",
                 tls: ssl.SSLContext | None = None) -> None:
        self.address_family = socket.AF_INET6 if ":" in address else socket.AF_INET
        super().__init__((address, 0), socketserver.BaseRequestHandler)
        self._scripts, self._tls = scripts or (reply(),), tls
        self.idle_limit_s: float = TIME_LIMIT_S
        self.over = threading.Event()
        self.connections: list[Connection] = []
        self.port = int(self.server_address[1])

    def __enter__(self) -> Peer:
        threading.Thread(target=self.serve_forever, args=(0.02,)).start()
        return self

    def __exit__(self, *_: object) -> None:
        self.over.set()
        self.shutdown()
        self.server_close()

    @property
    def requests(self) -> list[bytes]:
        """What each connection was sent."""
        return [connection.received for connection in self.connections]

    def body(self, turn: int) -> Any:
        """The JSON body of a request that was received."""
        return json.loads(self.requests[turn].partition(b"\r\n\r\n")[2])

    def process_request(self, request: Any, client_address: Any) -> None:
        script = self._scripts[min(len(self.connections), len(self._scripts) - 1)]
        self.connections.append(Connection(request, self))
        super().process_request(self.connections[-1], script)

    def finish_request(self, request: Any, client_address: Any) -> None:
        connection, script = request, client_address
        connection.socket.settimeout(self.idle_limit_s)
        connection.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        with suppress(OSError, ValueError):  # The client may leave whenever it wants to.
            if self._tls:
                connection.socket = self._tls.wrap_socket(connection.socket, server_side=True)
            for step in script:
                connection.socket.sendall(step) if isinstance(step, bytes) else step(connection)

    def shutdown_request(self, request: Any) -> None:
        request.socket.close()  # And no shutdown before it, which would come before a reset.


def address(text: str) -> bytes:
    """The resource record of an IPv4 or IPv6 address, for the name that was asked for."""
    six = ":" in text
    data = socket.inet_pton(socket.AF_INET6 if six else socket.AF_INET, text)
    return b"\xc0\x0c" + struct.pack(">HHIH", 28 if six else 1, 1, 60, len(data)) + data


def dns_reply(query: bytes, *records: bytes, flags: int = 0x8180) -> bytes:
    """A response to `query`."""
    counts = struct.pack(">HHHHH", flags, 1, len(records), 0, 0)
    return query[:2] + counts + query[12:] + b"".join(records)


class NameServer(socketserver.ThreadingUDPServer):
    """Answers the datagrams on 127.0.0.1:53, until the process ends."""
    # `answer_query` gets a query and the client's address; nothing returned is silence.

    daemon_threads = True

    def __init__(self, answer_query: Callable[[bytes, Any], bytes | None]) -> None:
        super().__init__(("127.0.0.1", 53), socketserver.BaseRequestHandler)
        self._answer_query = answer_query
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def finish_request(self, request: Any, client_address: Any) -> None:
        query, server = request
        if said := self._answer_query(query, client_address):
            server.sendto(said, client_address)
