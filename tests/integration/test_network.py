"""What needs sockets, TLS or a name server: the network layers, through the program of probe.cpp."""
# To be run by dev/namespace, so that port 53 and the resolver file are nobody's.  PROBE names the
# program.  How datagrams and responses are read is the unit tests'.

import os
import re
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path
from typing import Any, NamedTuple
from unittest import mock

from laboratory import ROOT
from laboratory.home import Home
from laboratory.network import RESOLVER_FILE, Authority, replace, serving
from laboratory.peers import (NameServer, Peer, Script, address, answer, dns_reply, reply, reset,
                              until_gone, until_over)
from laboratory.rows import Rows, same

PROBE = os.environ["PROBE"]
MAXIMUM = 8_388_608
MIB = bytes(range(256)) * 4096
LARGE = MIB * 7
FOLDER: Path
AUTHORITY: Authority


def setUpModule() -> None:  # pylint: disable=invalid-name
    global FOLDER, AUTHORITY  # pylint: disable=global-statement
    folder = tempfile.TemporaryDirectory()
    Rows.addClassCleanup(folder.cleanup)
    FOLDER = Path(folder.name)
    replace(RESOLVER_FILE, "nameserver 127.0.0.1\n", FOLDER)
    for added in ("10.53.0.1/32", "fd00::53/128"):
        subprocess.run(["ip", "address", "add", added, "dev", "lo"], check=True)
    AUTHORITY = Authority(FOLDER)
    AUTHORITY.issue("good", "localhost", "127.0.0.1", "service.test")
    os.environ["SSL_CERT_FILE"] = str(AUTHORITY.trust_file)


def probe(*words: object, **environment: str) -> tuple[str, bytes]:
    """The probe's first line, and what follows it."""
    done = subprocess.run([PROBE, *map(str, words)], check=True, stdout=subprocess.PIPE,
                          env={**os.environ, **environment})
    line, _, body = done.stdout.partition(b"\n")
    return line.decode(), body


def tls(port: int, *words: object, host: str = "127.0.0.1", limit_ms: int = 9000,
        **environment: str) -> str:
    """What comes of an exchange over TLS; `words` follow its limits."""
    return probe("tls", host, port, limit_ms, MAXIMUM, *words, **environment)[0]


# Name resolution.

def resolved(addresses: str = "", ok: int = 1, timed_out: int = 0, error: int = 0) -> str:
    return f"ok={ok} timed_out={timed_out} error={error} {addresses}".strip()


SIX = "2001:db8:0:0:0:0:0:1"
FOUR = "10.0.0.2"
SILENT = resolved(ok=0, timed_out=1)


class Name(NamedTuple):
    """A name of one label before ".test", and what resolving it yields."""

    name: str
    six: str | None
    """The answer to the question for IPv6 addresses, or "bad"; None: silence."""
    four: str | None
    expect: str
    limit_ms: int = 9000


NAMES = {row.name: row for row in (
    Name("both", SIX, FOUR, resolved(f"{SIX} {FOUR}")),
    Name("second-bad", SIX, "bad", resolved(SIX)),
    Name("both-bad", "bad", "bad", resolved(ok=0, error=-74)),
    Name("empty", "", "", resolved()),
    Name("silent", None, None, SILENT, limit_ms=1000),
    Name("half-silent", None, FOUR, resolved(FOUR), limit_ms=1000),
    Name("neighbour", SIX, FOUR, resolved(f"{SIX} {FOUR}")),
    Name("flood", SIX, FOUR, SILENT, limit_ms=300),
    Name("x" * 64, None, None, resolved(ok=0, error=-22)),
    Name("service", "", "127.0.0.1", resolved("127.0.0.1")),
    Name("refusing", "fd00::53", "127.0.0.9 127.0.0.1",
         resolved("fd00:0:0:0:0:0:0:53 127.0.0.9 127.0.0.1")),
)}


class Names(Rows):
    """The two queries, whose answers count, and the order in which addresses are tried."""

    @classmethod
    def setUpClass(cls) -> None:
        cls.identifiers: set[bytes] = set()
        # A server on all addresses of this machine may answer from another one.
        places = ("127.0.0.2", 53), ("127.0.0.1", 5353), ("10.53.0.1", 53)
        cls.neighbour, *cls.strangers = [socket.socket(type=socket.SOCK_DGRAM) for _ in places]
        for each, place in zip((cls.neighbour, *cls.strangers), places):
            each.bind(place)
        NameServer(cls.answer)

    @classmethod
    def answer(cls, query: bytes, client: Any) -> bytes | None:
        cls.identifiers.add(query[:2])
        row = NAMES[query[13:13 + query[12]].decode()]
        for _ in range(30 if row.name == "flood" else 0):
            for stranger in cls.strangers:
                stranger.sendto(dns_reply(query, address("10.66.66.66")), client)
            time.sleep(0.05)
        told = row.six if query[-3] == 28 else row.four
        if told is None:
            return None
        said = dns_reply(query, flags=0x8183) if told == "bad" else dns_reply(
            query, *map(address, told.split()))
        if row.name == "neighbour":
            cls.neighbour.sendto(said, client)
        return said if row.name != "neighbour" else None

    def test_answers(self) -> None:
        self.each(NAMES.values(), lambda row: same(
            "resolved", probe("resolve", f"{row.name}.test.", row.limit_ms)[0], row.expect))
        self.assertGreater(len(self.identifiers), 1)

    def test_choice_of_server(self) -> None:
        RESOLVER_FILE.write_text("nameserver 127.0.0.9\nnameserver 127.0.0.1\n")
        got = [probe("resolve", "both.test", 9000, *server)[0] for server in ([], ["127.0.0.1"])]
        RESOLVER_FILE.write_text("nameserver 127.0.0.1\n")
        self.assertEqual(got, [resolved(ok=0, error=-111), NAMES["both"].expect])

    def test_connecting(self) -> None:
        with Peer() as four, Peer(address="fd00::53") as six:
            for host, port, error, *limit in (
                    ("refusing.test", four.port, 0), ("refusing.test", six.port, 0),
                    ("refusing.test", 1, -111), ("::1", four.port, -111), ("empty.test", 1, -113),
                    ("both-bad.test", 1, -74), ("silent.test", 1, -110, 200), ("both.test", 0, -22),
                    ("both.test", 65536, -22), ("silent.test", 1, -22, 10_001)):
                self.assertEqual(probe("connect", host, port, *(limit or [9000]))[0],
                                 f"ok={int(error == 0)} error={error}", (host, port))
        with listening() as peer:
            # The dot is for the name server: the certificate is for "service.test".
            self.assertEqual(tls(peer.port, host="service.test."), COMPLETE)


# Exchanges: the same scripts over both transports.

def length(body: bytes, announced: int = 0) -> bytes:
    return b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % (announced or len(body)) + body


def result(ok: int = 1, status: int = 200, complete: int = 1, error: str = "") -> str:
    return f"ok={ok} status={status} complete={complete} error={error}"


COMPLETE, CUT, GONE = result(), result(complete=0), result(ok=0, status=0, complete=0)
TO_CLOSE = b"HTTP/1.1 200 OK\r\n\r\n"


class Exchange(NamedTuple):
    """What the peer does, and what the client makes of it."""

    name: str
    script: Script
    expect: str
    body: bytes = b""
    kind: str = "plain"
    request_bytes: int = 0
    waits: str = ""
    """The transports over which the limit runs out, which then is shorter."""


EXCHANGES = (
    Exchange("nothing", reply(), result(status=0, complete=0)),
    Exchange("7 MiB", reply(length(LARGE)), COMPLETE, LARGE),
    Exchange("past the maximum", reply(TO_CLOSE, LARGE, LARGE), CUT,
             (LARGE * 2)[:MAXIMUM - len(TO_CLOSE)]),
    Exchange("1 MiB, stays open", reply(length(MIB), until_gone), COMPLETE, MIB, waits="plain"),
    Exchange("more, stays open", reply(length(MIB + b"x"), until_gone), COMPLETE, MIB + b"x",
             waits="plain tls"),
    Exchange("stalls before the close", reply(TO_CLOSE + b"ok", until_gone), GONE,
             waits="plain tls"),
    Exchange("reset in the head", reply(length(b"")[:-1], reset), GONE),
    Exchange("reset in the body", reply(length(b"ok", 3), reset), CUT, b"ok"),
    # The kernels' probes find a little room now and then, so it may take several limits.
    Exchange("nobody reads", (until_over,), GONE, request_bytes=64 << 20, waits="plain tls"),
    Exchange("early answer", (length(b"no"), reset), GONE, request_bytes=64 << 20),
)


OK = reply(length(b"ok"))


def listening(script: Script = OK, name: str = "good", place: str = "127.0.0.1") -> Peer:
    """A peer, over TLS with the certificate NAME.pem, or plain without a name."""
    return Peer(script, tls=serving(AUTHORITY, name) if name else None, address=place)


class Exchanges(Rows):
    """What ends the reading, and with which verdict."""

    def test_both_transports(self) -> None:
        def check(row: Exchange) -> None:
            limit_ms = 2000 if row.kind in row.waits else 9000 if row.kind == "plain" else 60_000
            with listening(row.script, "good" if row.kind == "tls" else "") as peer:
                began = time.monotonic()
                line, body = probe(row.kind, "127.0.0.1", peer.port, limit_ms, MAXIMUM,
                                   row.request_bytes)
                waited = time.monotonic() - began >= limit_ms / 1000
            same("verdict, and whether the limit ran out", (line, waited),
                 (row.expect, row.kind in row.waits))
            same("body", body, row.body)
        self.each([row._replace(kind=kind, name=f"{row.name} ({kind})") for kind in ("plain", "tls")
                   for row in EXCHANGES], check)


# The steps of a TLS connection.

def stage(word: str) -> str:
    return result(ok=0, status=0, complete=0, error=f"TLS failed at {word}")


class Stages(Rows):
    """At which step a TLS connection fails."""

    def test_settings(self) -> None:
        (FOLDER / "libssl.so.3").write_text("no library")
        for host, port, limit_ms in (("127.0.0.1", 0, 9000), ("127.0.0.1", 65536, 9000),
                                     ("", 1, 9000), ("127.0.0.1", 1, 0), ("127.0.0.1", 1, 600_001)):
            self.assertEqual(tls(port, host=host, limit_ms=limit_ms), stage("configuration"))
        self.assertEqual(tls(65535, limit_ms=600_000), stage("tcp_connect"))
        with listening() as peer:
            self.assertEqual(tls(peer.port, 0, "missing"), stage("trust_store"))
            self.assertEqual(tls(peer.port, 0, AUTHORITY.trust_file, SSL_CERT_FILE=""), COMPLETE)
            if os.environ.get("QUORVANE_LINK_OPENSSL") != "ON":
                self.assertEqual(tls(peer.port, LD_LIBRARY_PATH=str(FOLDER)), stage("configuration"))
            # "localhost" is the IPv6 loopback address and nothing else.
            self.assertEqual(tls(peer.port, host="localhost"), stage("tcp_connect"))
        with listening(place="::1") as peer:
            self.assertEqual(tls(peer.port, host="localhost"), COMPLETE)

    def test_handshakes_that_fail(self) -> None:
        AUTHORITY.issue("unknown", "127.0.0.1", issuer="unknown")
        AUTHORITY.issue("other name", "service.test", "127.0.0.2")
        part_of_a_record = (b"\x16\x03\x03\x40\x00ab", until_gone)
        for name, script in (("unknown", OK), ("other name", OK), ("", part_of_a_record)):
            with self.subTest(name), listening(script, name) as peer:
                self.assertEqual(tls(peer.port, limit_ms=2000), stage("handshake"))

    def test_a_process_that_is_stopped_again_and_again(self) -> None:
        """Its waits are counted by the clock (signal(7): being continued interrupts them)."""
        def check(row: Exchange) -> None:
            with listening(row.script, "good" if row.kind == "tls" else "") as peer:
                began = time.monotonic()
                words = (PROBE, "tls", "127.0.0.1", str(peer.port), "1500", "100")
                with subprocess.Popen(words, stdout=subprocess.DEVNULL) as process:
                    while process.poll() is None and time.monotonic() < began + 6:
                        time.sleep(0.5)
                        process.send_signal(signal.SIGSTOP)
                        process.send_signal(signal.SIGCONT)
                    process.kill()
                same("whether it ended in time", 1.4 < time.monotonic() - began < 5, True)
        self.each((Exchange("handshake", (until_gone,), ""),
                   Exchange("response", reply(until_gone), "", kind="tls")), check)


# Which certificates are trusted.

OPENSSL_FOLDER = os.environ["QUORVANE_OPENSSL_FOLDER"]

# "ca" signed the service's certificate, "twin" has the same subject.  All are of one size, so that
# each could be taken for any other.
STORE = r"""
cd "$1"
hash() { openssl x509 -subject_hash -noout -in "$1.pem"; }
file() { cat "$1.pem" >>cert.pem; }
link() { ln -sf "../$1.pem" "certs/$2"; }
both() { file "$1"; link "$1" "$(hash "$1").${2-0}"; }
rm -rf cert.pem certs *.pem
cp ../originals/*.pem .
mkdir certs
both other
eval "$2"
touch certs
"""


class Store(NamedTuple):
    """What is done to OpenSSL's file and folder, and whether the folder is used alone then."""

    name: str
    commands: str
    alone: bool = False
    verdict: str = COMPLETE
    environment: dict[str, str] = {}
    doctor: str = ""
    """Some of what quorvane-doctor says of it."""


STORES = (
    Store("in both", "both ca", alone=True, doctor="certs, 2 certificates by hash"),
    Store("only in the file", "file ca", doctor="the folder lacks 1 of its 2 certificates"),
    Store("only in the folder", 'link ca "$(hash ca).0"',
          doctor="the folder has 1 certificates more"),
    Store("only in the file, and one only in the folder",
          "file ca; echo >>twin.pem; link twin 00000000.0"),
    Store("file changed after the folder", "both ca; touch -d tomorrow cert.pem",
          doctor="something was changed after the folder"),
    Store("certificate changed after it", "both ca; cp twin.pem ca.pem; touch -d tomorrow ca.pem"),
    Store("second link to another one", "file ca; link other 00000000.0"),
    Store("not for everybody to read", "both ca; chmod 600 ca.pem"),
    Store("names that are no hashes", "file ca; link ca CA000000.0"),
    Store("second of a subject", "both twin; both ca 1", alone=True),
    Store("second, the first leads nowhere", 'both ca 1; link none "$(hash ca).0"'),
    Store("trusted, only in the file",
          "openssl x509 -in ca.pem -addtrust serverAuth -out ca.pem; file ca"),
    Store("text only in the file", "both ca; sed -i /^text/d ca.pem other.pem", alone=True),
    Store("nothing but BEGIN", "yes -- '-----BEGIN X-----' | head -c 8000000 >>cert.pem; both ca"),
    Store("file too large", "both ca; yes | head -c 8388608 >>cert.pem"),
    Store("link that leads nowhere", "file ca; link none 00000000.0; link none 00000000.1"),
    Store("trusted certificate",
          "openssl x509 -in ca.pem -addtrust serverAuth -out ca.pem; both ca", alone=True),
    Store("stray BEGIN in the text", "sed -i 's/^text/-----BEGIN/' ca.pem; both ca", alone=True),
    Store("file missing", 'link ca "$(hash ca).0"; rm cert.pem'),
    Store("folder missing", "file ca; rm -r certs"),
    Store("both missing", "rm -r cert.pem certs", verdict=stage("handshake")),
    Store("file empty", 'link ca "$(hash ca).0"; : >cert.pem'),
    *(Store(f"{name} is set", "both ca", environment={name: ""})
      for name in ("SSL_CERT_FILE", "SSL_CERT_DIR", "LD_LIBRARY_PATH")),
)


class Trust(Rows):
    """The folder is used alone where it surely has all that the file has."""

    @classmethod
    def setUpClass(cls) -> None:
        cls.store, originals, twins = FOLDER / "store", FOLDER / "originals", FOLDER / "twins"
        for folder in (cls.store, originals, twins):
            folder.mkdir()
        for name, authority in (("ca", AUTHORITY), ("twin", Authority(twins)),
                                ("other", Authority(twins, "other"))):
            text = authority.trust_file.read_text()
            line = "text".ljust(999 - len(text), "-")
            (originals / f"{name}.pem").write_text(f"{line}\n{text}")
        subprocess.run(["mount", "--bind", cls.store, OPENSSL_FOLDER], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", OPENSSL_FOLDER], check=True)
        cls.enterClassContext(mock.patch.dict(os.environ))
        for name in ("SSL_CERT_FILE", "SSL_CERT_DIR", "LD_LIBRARY_PATH"):
            os.environ.pop(name, None)

    def prepare(self, commands: str) -> None:
        subprocess.run(["sh", "-eu", "-c", STORE, "sh", self.store, commands], check=True)

    def test_stores(self) -> None:
        folder = {"SSL_CERT_FILE": "", "SSL_CERT_DIR": f"{OPENSSL_FOLDER}/certs"}
        with listening() as peer:
            for row in STORES:
                with self.subTest(row.name):
                    self.prepare(row.commands)
                    uses = folder if row.alone else row.environment
                    wanted = [f"{name}={uses.get(name, 'unset')}" for name in folder]
                    same("what OpenSSL is told", probe("trust", **row.environment)[0],
                         " ".join(("file=", *wanted)))
                    same("verdict", tls(peer.port, **row.environment), row.verdict)
                    if row.doctor:
                        self.assertIn(row.doctor, subprocess.run(
                            ["sh", ROOT / "packaging/quorvane-doctor", "--base-url="],
                            env={"PATH": "/usr/bin:/bin"}, capture_output=True, text=True).stdout)

    def test_the_opener_does_not_see_the_choice(self) -> None:
        self.prepare("both ca")
        with listening(reply(answer({"request": "r"}))) as peer, \
                Home(f"https://127.0.0.1:{peer.port}") as home:
            os.mkfifo(home.path / "seen")
            home.equip("xdg-open", f"#!/bin/sh\nexport -p >{home.path}/seen\n")
            with home.start("login") as login:
                seen = (home.path / "seen").read_text()
                login.kill()
        same("what is exported", re.findall("SSL_CERT|XDG_CONFIG", seen), ["XDG_CONFIG"])
