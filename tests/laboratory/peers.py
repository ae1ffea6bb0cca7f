"""Scripted peers on loopback addresses: over TCP, over TLS, and name servers."""

from __future__ import annotations

import json
import socket
import ssl
import struct
import threading
from collections.abc import Callable, Sequence
from typing import Any

TIME_LIMIT_S = 240


class Connection:
    """One accepted connection: its socket, its peer, what `read_request` received."""

    def __init__(self, accepted: socket.socket, peer: Peer) -> None:
        self.socket = accepted
        self.peer = peer
        self.received = b""


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


def chunked(body: bytes, size: int = 16000) -> bytes:
    """A response in chunks of `size` bytes."""
    pieces = [body[at:at + size] for at in range(0, len(body), size)] + [b""]
    return b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + b"".join(
        b"%x\r\n%s\r\n" % (len(piece), piece) for piece in pieces)


class Peer:
    """Plays script n on connection n, beyond the last script the last one; a context."""
    # Without scripts requests are read and connections closed.  `tls` makes it a TLS server (see
    # `network.serving`).  On leaving the context all that was accepted has been played.

    def __init__(self, *scripts: Script, address: str = "127.0.0.1",
                 tls: ssl.SSLContext | None = None) -> None:
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self._listener, self._waker = socket.socket(family), socket.socket(family)
        self._listener.bind((address, 0))
        self._listener.listen(64)
        self._waker.bind((address, 0))
        self._scripts, self._tls = scripts or (reply(),), tls
        self.idle_limit_s: float = TIME_LIMIT_S
        self._thread = threading.Thread(target=self._serve)
        self.over = threading.Event()
        self.connections: list[Connection] = []
        self.port = int(self._listener.getsockname()[1])

    def __enter__(self) -> Peer:
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.over.set()
        # Connections wait in line: when the waker's turn has come, all earlier ones were accepted.
        with self._waker, self._listener:
            self._waker.connect(self._listener.getsockname())
            self._thread.join()

    @property
    def requests(self) -> list[bytes]:
        """What each connection was sent."""
        return [connection.received for connection in self.connections]

    def body(self, turn: int) -> Any:
        """The JSON body of a request that was received."""
        return json.loads(self.requests[turn].partition(b"\r\n\r\n")[2])

    def _serve(self) -> None:
        players = []
        while True:
            accepted, address = self._listener.accept()
            if address[:2] == self._waker.getsockname()[:2]:
                accepted.close()
                break
            connection = Connection(accepted, self)
            script = self._scripts[min(len(self.connections), len(self._scripts) - 1)]
            self.connections.append(connection)
            players.append(threading.Thread(target=self._play, args=(connection, script)))
            players[-1].start()
        for player in players:
            player.join()

    def _play(self, connection: Connection, script: Script) -> None:
        connection.socket.settimeout(self.idle_limit_s)
        connection.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        try:
            if self._tls:
                connection.socket = self._tls.wrap_socket(connection.socket, server_side=True)
            for step in script:
                connection.socket.sendall(step) if isinstance(step, bytes) else step(connection)
        except (OSError, ValueError):
            pass  # The client may leave whenever it wants to.
        finally:
            connection.socket.close()


def address(text: str) -> bytes:
    """The resource record of an IPv4 or IPv6 address, for the name that was asked for."""
    six = ":" in text
    data = socket.inet_pton(socket.AF_INET6 if six else socket.AF_INET, text)
    return b"\xc0\x0c" + struct.pack(">HHIH", 28 if six else 1, 1, 60, len(data)) + data


def dns_reply(query: bytes, *records: bytes, flags: int = 0x8180, other_id: int = 0) -> bytes:
    """A response to `query`."""
    head = (query[0] * 256 + query[1] ^ other_id, flags, 1, len(records), 0, 0)
    return struct.pack(">HHHHHH", *head) + query[12:] + b"".join(records)


class NameServer:
    """Answers the datagrams on 127.0.0.1:53, until the process ends."""
    # `answer_query` gets a query and the client's address; nothing returned is silence.

    def __init__(self, answer_query: Callable[[bytes, Any], bytes | None]) -> None:
        self.queries: list[bytes] = []
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 53))
        self._answer_query = answer_query
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self) -> None:
        while True:
            query, client = self._socket.recvfrom(512)
            self.queries.append(query)
            said = self._answer_query(query, client)
            if said:
                self._socket.sendto(said, client)
