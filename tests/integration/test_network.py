"""What needs sockets, TLS or a name server: the network layers, through the program of probe.cpp."""
# To be run by dev/namespace, so that port 53 and the resolver file are nobody's.  PROBE names the
# program.  How datagrams and responses are read is the unit tests'.

import os
import signal
import socket
import subprocess
import tempfile
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any, NamedTuple

from laboratory import ROOT
from laboratory.home import Home
from laboratory.network import RESOLVER_FILE, Authority, replace, serving
from laboratory.peers import (NameServer, Peer, Script, address, answer, chunked, dns_reply, reply, reset,
                              until_gone, until_over)
from laboratory.rows import Rows, same

PROBE = os.environ["PROBE"]
MAXIMUM = 8_388_608
LARGE = bytes(range(256)) * (7 * 4096)  # 7 MiB.
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


def probe(*words: object, **environment: str | None) -> tuple[str, bytes]:
    """The probe's first line, and what follows it; None unsets a variable."""
    variables = {**os.environ, "SSL_CERT_FILE": str(AUTHORITY.trust_file), **environment}
    done = subprocess.run([PROBE, *map(str, words)], check=True, stdout=subprocess.PIPE, env={
        name: value for name, value in variables.items() if value is not None})
    line, _, body = done.stdout.partition(b"\n")
    return line.decode(), body


# Name resolution.

def resolved(addresses: str = "", ok: int = 1, timed_out: int = 0, error: int = 0) -> str:
    return f"ok={ok} timed_out={timed_out} error={error} {addresses}".strip()


SIX, FOUR = address("2001:db8::1"), address("10.0.0.2")
SIX_TEXT = "2001:db8:0:0:0:0:0:1"
BOTH = resolved(f"{SIX_TEXT} 10.0.0.2")
BAD = resolved(ok=0, error=-74)
Answer = Callable[[bytes], bytes | None]


def says(*records: bytes, **options: int) -> Answer:
    return lambda query: dns_reply(query, *records, **options)


class Name(NamedTuple):
    """A name of one label before ".test", and what resolving it yields."""

    name: str
    six: Answer | None
    """The answer to the question for IPv6 addresses; None: silence."""
    four: Answer | None
    expect: str
    limit_ms: int = 9000


NAMES = {row.name: row for row in (
    Name("both", says(SIX), says(FOUR), BOTH),
    Name("first-bad", says(SIX, other_id=1), says(FOUR), resolved("10.0.0.2")),
    Name("second-bad", says(SIX), says(FOUR, flags=0x8183), resolved(SIX_TEXT)),
    Name("both-bad", says(flags=0x8183), says(flags=0x8183), BAD),
    Name("empty", says(), says(), resolved()),
    Name("silent", None, None, resolved(ok=0, timed_out=1), limit_ms=1000),
    Name("half-silent", None, says(FOUR), resolved("10.0.0.2"), limit_ms=1000),
    Name("neighbour", says(SIX), says(FOUR), BOTH),
    Name("service", says(), says(address("127.0.0.1")), resolved("127.0.0.1")),
    Name("refusing", says(address("fd00::53")), says(address("127.0.0.9"), address("127.0.0.1")),
         resolved("fd00:0:0:0:0:0:0:53 127.0.0.9 127.0.0.1")),
)}


class Names(Rows):
    """The two queries, whose answers count, and the order in which addresses are tried."""

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.flooding = False
        # A server on all addresses of this machine may answer from another one.
        sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(3)]
        for each, place in zip(sockets, (("127.0.0.2", 53), ("127.0.0.1", 5353), ("10.53.0.1", 53))):
            each.bind(place)
        cls.neighbour, *cls.strangers = sockets
        cls.server = NameServer(cls.answer)

    @classmethod
    def answer(cls, query: bytes, client: Any) -> bytes | None:
        label = query[13:13 + query[12]].decode()
        while label == "stray" or cls.flooding:
            for stranger in cls.strangers:
                stranger.sendto(dns_reply(query, address("10.66.66.66")), client)
            label = "both"
        row = NAMES.get(label, NAMES["silent"])
        says = row.six if query[-3] == 28 else row.four
        if says and label == "neighbour":
            cls.neighbour.sendto(says(query), client)
            return None
        return says and says(query)

    def test_answers(self) -> None:
        self.each(NAMES.values(), lambda row: self.assertEqual(
            probe("resolve", f"{row.name}.test.", row.limit_ms)[0], row.expect))

    def test_the_queries(self) -> None:
        probe("resolve", "x.silent.test.", 50)
        probe("resolve", "both.test", 9000)  # The server answers in turn, so it has read all.
        six, four = [query for query in self.server.queries if query[12:14] == b"\1x"]
        self.assertEqual((six[-3], four[-3]), (28, 1))
        self.assertNotEqual(six[:2], four[:2])  # Once in 65536 runs they are equal.
        self.assertEqual(probe("resolve", "x" * 64, 50)[0], resolved(ok=0, error=-22))

    def test_strangers_are_not_heard(self) -> None:
        self.assertEqual(probe("resolve", "stray.test", 9000)[0], BOTH)
        type(self).flooding = True
        flooded = probe("resolve", "flood.test", 300)[0]
        type(self).flooding = False
        self.assertEqual(flooded, resolved(ok=0, timed_out=1))

    def test_choice_of_server(self) -> None:
        RESOLVER_FILE.write_text("nameserver 127.0.0.9\nnameserver 127.0.0.1\n")
        got = [probe("resolve", "both.test", 9000, *server)[0] for server in ([], ["127.0.0.1"])]
        RESOLVER_FILE.write_text("nameserver 127.0.0.1\n")
        self.assertEqual(got, [resolved(ok=0, error=-111), BOTH])

    def test_connecting(self) -> None:
        with Peer() as four, Peer(address="fd00::53") as six:
            for host, port, error, limit in (
                    ("refusing.test", four.port, 0, 9000), ("refusing.test", six.port, 0, 9000),
                    ("refusing.test", 1, -111, 9000), ("127.0.0.1", four.port, 0, 9000),
                    ("::1", four.port, -111, 9000), ("empty.test", 1, -113, 9000),
                    ("both-bad.test", 1, -74, 9000), ("silent.test", 1, -110, 200),
                    ("refused.test", 0, -22, 9000), ("refused.test", 65536, -22, 9000),
                    ("refused.test", 1, -22, 10_001)):
                self.assertEqual(probe("connect", host, port, limit)[0],
                                 f"ok={int(error == 0)} error={error}", (host, port))
        self.assertFalse([query for query in self.server.queries if b"refused" in query])
        with listening(reply(length(b"ok"))) as peer:
            # The dot is for the name server: the certificate is for "service.test".
            self.assertEqual(probe("tls", "service.test.", peer.port, 9000, MAXIMUM)[0], COMPLETE)


# Exchanges: the same scripts over both transports.

def length(body: bytes, announced: int = 0) -> bytes:
    return b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % (announced or len(body)) + body


def result(ok: int = 1, status: int = 200, complete: int = 1, error: str = "") -> str:
    return f"ok={ok} status={status} complete={complete} error={error}"


COMPLETE, CUT = result(), result(complete=0)
UNUSABLE, GONE = result(status=0, complete=0), result(ok=0, status=0, complete=0)
TO_CLOSE = b"HTTP/1.1 200 OK\r\n\r\n"


class Exchange(NamedTuple):
    """What the peer does, and what the client makes of it."""

    name: str
    script: Script
    expect: str
    body: bytes = b""
    kind: str = "plain"
    limit_ms: int = 9000


EXCHANGES = (
    Exchange("cut", reply(length(b"ok", 3)), CUT, b"ok"),
    Exchange("nothing", reply(), UNUSABLE),
    Exchange("7 MiB, length", reply(length(LARGE)), COMPLETE, LARGE),
    Exchange("7 MiB, chunked", reply(chunked(LARGE)), COMPLETE, LARGE),
    Exchange("past the maximum", reply(TO_CLOSE, LARGE, LARGE), CUT,
             (LARGE * 2)[:MAXIMUM - len(TO_CLOSE)]),
    Exchange("complete, stays open", reply(length(b"ok"), until_gone), COMPLETE, b"ok",
             limit_ms=2000),
    Exchange("silent", reply(until_gone), GONE, limit_ms=2000),
    Exchange("stalls before the close", reply(TO_CLOSE + b"ok", until_gone), GONE, limit_ms=2000),
    Exchange("reset in the head", reply(length(b"")[:-1], reset), GONE),
    Exchange("reset in the body", reply(length(b"ok", 3), reset), CUT, b"ok"),
)


def listening(script: Script, tls: bool = True, name: str = "good", place: str = "") -> Peer:
    """A peer, over TLS with the certificate NAME.pem."""
    return Peer(script, tls=serving(AUTHORITY, name) if tls else None, address=place or "127.0.0.1")


class Exchanges(Rows):
    """What ends the reading, and with which verdict."""

    def test_both_transports(self) -> None:
        def check(row: Exchange) -> None:
            with listening(row.script, row.kind == "tls") as peer:
                line, body = probe(row.kind, "127.0.0.1", peer.port, row.limit_ms, MAXIMUM)
            same("verdict", line, row.expect)
            same("body", body, row.body)
        self.each([row._replace(kind=kind, name=f"{row.name} ({kind})") for kind in ("plain", "tls")
                   for row in EXCHANGES], check)

    def test_only_tls_leaves_when_a_short_answer_is_complete(self) -> None:
        mebibyte = LARGE[:1 << 20]
        for kind, body, limit_ms, waits in (("tls", mebibyte, 60_000, False),
                                            ("tls", mebibyte + b"x", 1500, True),
                                            ("plain", b"x", 1000, True)):
            with self.subTest(kind, waits=waits), \
                    listening(reply(length(body), until_gone), kind == "tls") as peer:
                began = time.monotonic()
                line, got = probe(kind, "127.0.0.1", peer.port, limit_ms, MAXIMUM)
                self.assertTrue(line == COMPLETE and got == body)
                self.assertEqual(time.monotonic() - began >= limit_ms / 1000, waits)

    def test_requests_that_nobody_reads(self) -> None:
        def check(row: Exchange) -> None:
            with listening(row.script, row.kind == "tls") as peer:
                got = probe(row.kind, "127.0.0.1", peer.port, 2000, 100, 64 << 20)[0]
            self.assertEqual(got, row.expect)
        # The kernels' probes find a little room now and then, so it may take several limits.
        self.each([Exchange(f"{name} ({kind})", script, GONE, kind=kind) for kind in ("plain", "tls")
                   for name, script in (("silent", (until_over,)),
                                        ("early answer", (length(b"no"), reset)))], check)


# The steps of a TLS connection.

def stage(word: str) -> str:
    return result(ok=0, status=0, complete=0, error=f"TLS failed at {word}")


class Stages(Rows):
    """At which step a TLS connection fails."""

    def tls(self, host: str, port: int, *words: object, limit: int = 9000, **variables: str) -> str:
        return probe("tls", host, port, limit, MAXIMUM, *words, **variables)[0]

    def test_settings(self) -> None:
        for host, port, limit in (("127.0.0.1", 0, 9000), ("127.0.0.1", 65536, 9000), ("", 1, 9000),
                                  ("127.0.0.1", 1, 0), ("127.0.0.1", 1, 600_001)):
            self.assertEqual(self.tls(host, port, limit=limit), stage("configuration"))
        self.assertEqual(self.tls("127.0.0.1", 65535, limit=600_000), stage("tcp_connect"))
        (FOLDER / "none.pem").write_text("no certificate")
        (FOLDER / "libssl.so.3").write_text("no library")
        with listening(reply(length(b"ok"))) as peer:
            for store in ("missing.pem", "none.pem"):
                self.assertEqual(self.tls("127.0.0.1", peer.port, 0, FOLDER / store),
                                 stage("trust_store"))
            self.assertEqual(self.tls("127.0.0.1", peer.port, 0, AUTHORITY.trust_file,
                                      SSL_CERT_FILE=""), COMPLETE)
            if os.environ.get("QUORVANE_LINK_OPENSSL") != "ON":
                self.assertEqual(self.tls("127.0.0.1", peer.port, LD_LIBRARY_PATH=str(FOLDER)),
                                 stage("configuration"))
            # "localhost" is the IPv6 loopback address and nothing else.
            self.assertEqual(self.tls("localhost", peer.port), stage("tcp_connect"))
        with listening(reply(length(b"ok")), place="::1") as peer:
            self.assertEqual(self.tls("localhost", peer.port), COMPLETE)
            self.assertEqual(probe("plain", "localhost", peer.port, 500, 100)[0], GONE)

    def test_certificates(self) -> None:
        issue = AUTHORITY.issue
        Authority(FOLDER, "other").issue("unknown", "127.0.0.1", issuer="other", chain=False)
        issue("middle", ca=True)
        issue("chained", "127.0.0.1", issuer="middle")
        issue("unchained", "127.0.0.1", issuer="middle", chain=False)
        issue("other name", "service.test", "127.0.0.2")
        issue("expired", "127.0.0.1", days=(-9, -1))
        issue("future", "127.0.0.1", days=(1, 9))
        issue("usage", "127.0.0.1", usage="clientAuth")
        for name in ("good", "chained", "unknown", "unchained", "other name", "expired", "future",
                     "usage"):
            with self.subTest(name), listening(reply(length(b"ok")), name=name) as peer:
                self.assertEqual(self.tls("127.0.0.1", peer.port),
                                 COMPLETE if name in ("good", "chained") else stage("handshake"))

    def test_a_process_that_is_stopped_again_and_again(self) -> None:
        """Its waits are counted by the clock (signal(7): being continued interrupts them)."""
        def check(row: Exchange) -> None:
            with listening(row.script, row.kind == "tls") as peer:
                began = time.monotonic()
                words = ("tls", "127.0.0.1", str(peer.port), str(row.limit_ms), "100")
                with subprocess.Popen([PROBE, *words], stdout=subprocess.DEVNULL, env={
                        **os.environ, "SSL_CERT_FILE": str(AUTHORITY.trust_file)}) as process:
                    while process.poll() is None and time.monotonic() < began + 6:
                        time.sleep(0.5)
                        process.send_signal(signal.SIGSTOP)
                        process.send_signal(signal.SIGCONT)
                    process.kill()
                same("whether it ended in time", 1.4 < time.monotonic() - began < 5, True)
        self.each((Exchange("handshake", (until_gone,), "", limit_ms=1500),
                   Exchange("response", reply(until_gone), "", kind="tls", limit_ms=1500)), check)

    def test_handshakes_that_fail(self) -> None:
        for name, script in (
                ("plain HTTP", (b"plain",)), ("closes", ()), ("silent", (until_gone,)),
                ("resets", (lambda connection: connection.socket.recv(1), reset)),
                ("part of a record", (b"\x16\x03\x03\x40\x00\x02", until_gone))):
            with self.subTest(name), listening(script, False) as peer:
                self.assertEqual(self.tls("127.0.0.1", peer.port, limit=500), stage("handshake"))


# Which certificates are trusted.

OPENSSL_FOLDER = os.environ["QUORVANE_OPENSSL_FOLDER"]
AS_EVER = "file= SSL_CERT_FILE=unset SSL_CERT_DIR=unset"
FOLDER_ALONE = f"file= SSL_CERT_FILE= SSL_CERT_DIR={OPENSSL_FOLDER}/certs"

# "ca" signed the service's certificate, "twin" has the same subject.  All but "longer" are of one
# size, so that each could be taken for any other.
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
[ ! -d certs ] || touch certs
"""


class Store(NamedTuple):
    """What is done to OpenSSL's file and folder, and which of them are used then."""

    name: str
    commands: str
    uses: str = AS_EVER
    expect: str = COMPLETE
    environment: dict[str, str] = {}
    doctor: str = ""
    """Some of what quorvane-doctor says of it."""


STORES = (
    Store("in both", "both ca", FOLDER_ALONE,
          doctor=f"the folder {OPENSSL_FOLDER}/certs, 2 certificates by hash"),
    Store("only in the file", "file ca", doctor="because the folder lacks 1 of its 2 certificates"),
    Store("only in the folder", 'link ca "$(hash ca).0"', FOLDER_ALONE),
    Store("file changed after the folder", "file ca; link ca 00000000.0; touch -d tomorrow cert.pem",
          doctor="because something was changed after the folder"),
    Store("certificate changed after the folder",
          "both ca; cp twin.pem ca.pem; touch -d tomorrow ca.pem"),
    Store("only in the file, and one only in the folder", "file ca; link longer 00000000.0"),
    Store("link that leads nowhere", "file ca; link none 00000000.0"),
    Store("second link to another one", "file ca; link other 00000000.0", doctor="lacks 1 of its 2"),
    Store("not for everybody to read", "both ca; chmod 600 ca.pem", doctor="lacks 1 of its 2"),
    Store("names that are no hashes", "file ca; link ca CA000000.0"),
    Store("second of a subject", "both twin; both ca 1", FOLDER_ALONE),
    Store("second of a subject, the first leads nowhere",
          'both ca 1; link none "$(hash ca).0"'),
    Store("trusted certificate",
          "openssl x509 -in ca.pem -addtrust serverAuth -out ca.pem; both ca", FOLDER_ALONE),
    Store("trusted certificate only in the file",
          "openssl x509 -in ca.pem -addtrust serverAuth -out ca.pem; file ca"),
    Store("stray BEGIN in the text", "sed -i 's/^text/-----BEGIN/' ca.pem; both ca", FOLDER_ALONE),
    Store("text only in the file",
          "both ca; sed -i /^text/d ca.pem other.pem; sed -i 's/^text.*/# name/' cert.pem",
          FOLDER_ALONE, doctor="2 certificates by hash"),
    Store("nothing but BEGIN", "yes -- '-----BEGIN X-----' | head -c 8000000 >>cert.pem; both ca"),
    Store("file too large", "both ca; yes | head -c 8388608 >>cert.pem"),
    Store("file empty", 'link ca "$(hash ca).0"; : >cert.pem'),
    Store("file missing", 'link ca "$(hash ca).0"; rm cert.pem'),
    Store("folder missing", "file ca; rm -r certs"),
    Store("both missing", "rm -r cert.pem certs", expect=stage("handshake")),
    Store("SSL_CERT_FILE is set", "both ca", "file= SSL_CERT_FILE= SSL_CERT_DIR=unset",
          environment={"SSL_CERT_FILE": ""}),
    Store("SSL_CERT_DIR is set", "both ca", "file= SSL_CERT_FILE=unset SSL_CERT_DIR=",
          environment={"SSL_CERT_DIR": ""}),
    Store("another OpenSSL", "both ca", environment={"LD_LIBRARY_PATH": "/none"}),
)


class Trust(Rows):
    """The folder is used alone where it surely has all that the file has."""

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.store, originals, twins = FOLDER / "store", FOLDER / "originals", FOLDER / "twins"
        for folder in (cls.store, originals, twins):
            folder.mkdir()
        files = {"ca": AUTHORITY.trust_file} | {name: Authority(twins, subject).trust_file for
                 name, subject in (("twin", "ca"), ("other", "x"), ("longer", "y"))}
        for name, file in files.items():
            text = file.read_text()
            line = "text".ljust(999 - len(text) + (name == "longer"), "-")
            (originals / f"{name}.pem").write_text(f"{line}\n{text}")
        subprocess.run(["mount", "--bind", cls.store, OPENSSL_FOLDER], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", OPENSSL_FOLDER], check=True)

    def prepare(self, commands: str) -> None:
        subprocess.run(["sh", "-eu", "-c", STORE, "sh", self.store, commands], check=True)

    def test_stores(self) -> None:
        unset = {"SSL_CERT_FILE": None, "SSL_CERT_DIR": None, "LD_LIBRARY_PATH": None}
        with listening(reply(length(b"ok"))) as peer:
            for row in STORES:
                with self.subTest(row.name):
                    self.prepare(row.commands)
                    variables = {**unset, **row.environment}
                    self.assertEqual(probe("trust", **variables)[0], row.uses)
                    got = probe("tls", "127.0.0.1", peer.port, 9000, MAXIMUM, **variables)[0]
                    self.assertEqual(got, row.expect)
                    if row.doctor:
                        self.assertIn(row.doctor, subprocess.run(
                            ["sh", ROOT / "packaging/quorvane-doctor", "--base-url="],
                            env={"PATH": "/usr/bin:/bin"}, capture_output=True, text=True).stdout)

    def test_the_opener_sees_only_what_the_user_set(self) -> None:
        self.prepare("both ca")
        for variables in ({}, {"SSL_CERT_DIR": f"{OPENSSL_FOLDER}/certs"}):
            with listening(reply(answer({"request": "r"}))) as peer, \
                    Home(f"https://127.0.0.1:{peer.port}") as home:
                home.environment |= variables
                os.mkfifo(home.path / "seen")
                home.equip("xdg-open", f"#!/bin/sh\nexport -p >{home.path}/seen\n")
                with home.start("login") as login:
                    seen = (home.path / "seen").read_text()
                    login.kill()
            self.assertIn("XDG_CONFIG_HOME", seen)
            self.assertEqual(seen.count("SSL_CERT"), len(variables))
