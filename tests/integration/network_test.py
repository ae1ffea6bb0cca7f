"""The network layers against real servers, in a network and mount namespace of their own.

    network_test.py BUILD_FOLDER [unittest arguments]

Port 53 and the resolver file belong to the namespace, so fixed ports disturb nobody.  Where
namespaces are not permitted the tests are skipped with status 77; with QUORVANE_TESTS_COMPLETE=1
that is a failure.
"""

import os
import pathlib
import shutil
import signal
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "dev"))
from quorvane_dev.authority import Authority  # noqa: E402

RESOLVER_FILE = pathlib.Path("/etc/resolv.conf")
MAXIMUM = 8_388_608
LARGE = bytes(range(256)) * (7 * 4096)  # 7 MiB.


def enter_namespace():
    unshare = ["unshare", "-nm" if os.geteuid() == 0 else "-Urnm", "--"]
    if subprocess.run([*unshare, "true"], stderr=subprocess.DEVNULL).returncode != 0:
        print("SKIPPED: this system does not permit network and mount namespaces")
        sys.exit(1 if os.environ.get("QUORVANE_TESTS_COMPLETE") == "1" else 77)
    os.execvp("unshare", [*unshare, sys.executable, "-B", sys.argv[0], "--inside", *sys.argv[1:]])


def setUpModule():
    global FOLDER, CA
    FOLDER = pathlib.Path(tempfile.mkdtemp())
    unittest.addModuleCleanup(shutil.rmtree, FOLDER)
    (FOLDER / "resolv.conf").write_text("nameserver 127.0.0.1\n")
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    subprocess.run(["ip", "address", "add", "10.53.0.1/32", "dev", "lo"], check=True)
    subprocess.run(["mount", "--bind", FOLDER / "resolv.conf", RESOLVER_FILE], check=True)
    CA = Authority(FOLDER)
    CA.issue("good", "localhost", "127.0.0.1", "service.test")


def probe(*words, **environment):
    """The probe's first line, what follows it, and how long it ran in seconds."""
    start = time.monotonic()
    environment = {**os.environ, "SSL_CERT_FILE": str(CA.trust_file), **environment}
    done = subprocess.run([BUILD / "network_probe", *map(str, words)], capture_output=True,
                          env=environment, timeout=60)
    line, _, body = done.stdout.partition(b"\n")
    return line.decode(), body or done.stderr, time.monotonic() - start


def check_rows(case, rows, check):
    """Calls `check` with each row's fields, several rows at once; the first field names the row."""
    with ThreadPoolExecutor(4) as pool:
        started = [(row[0], pool.submit(check, *row)) for row in rows]
    for name, future in started:
        with case.subTest(name):
            future.result()


def in_thread(function, *arguments):
    threading.Thread(target=function, args=arguments, daemon=True).start()


def wait_until(condition):
    end = time.monotonic() + 20
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError
        time.sleep(0.01)


def start_server(case, command, ready):
    server = subprocess.Popen(command, stderr=subprocess.DEVNULL)
    case.addCleanup(server.wait)
    case.addCleanup(server.terminate)
    wait_until(ready)


# Name resolution.  A scripted server chooses its answers by the first label of the name.

def resolved(addresses="", ok=1, timed_out=0, error=0):
    return f"ok={ok} timed_out={timed_out} error={error} {addresses}".strip()


def record(kind, data):
    return b"\xc0\x0c" + struct.pack(">HHIH", kind, 1, 60, len(data)) + data


def a(text):
    return record(1, socket.inet_aton(text))


def reply(*records, flags=0x8180, other_id=0):
    def build(query):
        identifier = query[0] * 256 + query[1] ^ other_id
        head = struct.pack(">HHHHHH", identifier, flags, 1, len(records), 0, 0)
        return head + query[12:] + b"".join(records)
    return build


SIX = record(28, socket.inet_pton(socket.AF_INET6, "2001:db8::1"))
SIX_TEXT = "2001:db8:0:0:0:0:0:1"
ALIAS = record(5, b"\x01b\x00")
FOUR = a("10.0.0.2")
BAD = resolved(ok=0, error=74)
NAMES = {  # First label: the answer to AAAA, the answer to A, what resolving yields.
    "both": (reply(SIX), reply(FOUR), resolved(f"{SIX_TEXT} 10.0.0.2")),
    "mixed": (reply(FOUR, SIX), reply(SIX, a("10.0.0.3")),
              resolved(f"10.0.0.2 {SIX_TEXT} {SIX_TEXT} 10.0.0.3")),
    "alias": (reply(ALIAS), reply(ALIAS, FOUR), resolved("10.0.0.2")),
    "first-bad": (reply(SIX, other_id=1), reply(FOUR), resolved("10.0.0.2")),
    "second-bad": (reply(SIX), reply(FOUR, flags=0x8183), resolved(SIX_TEXT)),
    "no-answer-bit": (*[reply(FOUR, flags=0x0100)] * 2, BAD),
    "truncated": (reply(flags=0x8380), reply(FOUR, flags=0x8380), resolved("10.0.0.2")),
    "cut": (*[lambda query: reply(FOUR)(query)[:-1]] * 2, BAD),
    "empty": (reply(), reply(), resolved()),
    "silent": (None, None, resolved(ok=0, timed_out=1)),
    "half-silent": (None, reply(FOUR), resolved("10.0.0.2")),
    "neighbour": (reply(SIX), reply(FOUR), resolved(f"{SIX_TEXT} 10.0.0.2")),
    "service": (reply(), reply(a("127.0.0.1")), resolved("127.0.0.1")),
    "refusing": (reply(record(28, bytes(15) + b"\x01")), reply(a("127.0.0.9"), a("127.0.0.1")),
                 resolved("0:0:0:0:0:0:0:1 127.0.0.9 127.0.0.1")),
}


class Names(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        addresses = (("127.0.0.1", 53), ("127.0.0.2", 53), ("127.0.0.1", 5353), ("10.53.0.1", 53))
        sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in addresses]
        for each, address in zip(sockets, addresses):
            each.bind(address)
        cls.queries = []
        cls.server, cls.neighbour, *cls.strangers = sockets
        in_thread(cls.answer_all)

    @classmethod
    def answer_all(cls):
        while True:
            query, client = cls.server.recvfrom(512)
            cls.queries.append(query)
            label = query[13:13 + query[12]].decode()
            end = time.monotonic() + (label == "flood")
            while label in ("stray", "flood"):
                for stranger in cls.strangers:
                    stranger.sendto(reply(a("10.66.66.66"))(query), client)
                if time.monotonic() >= end:
                    break
            build = NAMES.get("both" if label == "stray" else label, (None, None))[query[-3] != 28]
            if build:
                sender = cls.neighbour if label == "neighbour" else cls.server
                sender.sendto(build(query), client)

    def test_answers(self):
        def check(label, _, __, expected):
            limit = 300 if "silent" in label else 9000
            line, _, seconds = probe("resolve", f"{label}.test.", limit)
            self.assertEqual(line, expected)
            self.assertLess(seconds, 5)
        check_rows(self, [(label, *rest) for label, rest in NAMES.items()], check)

    def test_the_query(self):
        probe("resolve", "bytes.silent.test.", 50)
        probe("resolve", "both.test", 9000)  # The server answers in turn, so it has read all.
        sent = [query for query in self.queries if b"bytes" in query]
        tail = b"\x01\0\0\x01\0\0\0\0\0\0\x05bytes\x06silent\x04test\0\0%c\0\x01"
        self.assertEqual([query[2:] for query in sent], [tail % 28, tail % 1])
        self.assertNotEqual(sent[0][:2], sent[1][:2])  # Once in 65536 runs they are equal.
        self.assertEqual(probe("resolve", "x" * 64, 50)[0], resolved(ok=0, error=22))
        self.assertFalse([query for query in self.queries if b"xxxx" in query])

    def test_strangers_are_not_heard(self):
        self.assertEqual(probe("resolve", "stray.test", 9000)[0], NAMES["both"][2])
        line, _, seconds = probe("resolve", "flood.test", 300)
        self.assertEqual(line, resolved(ok=0, timed_out=1))
        self.assertLess(seconds, 3)

    def test_choice_of_server(self):
        self.addCleanup(RESOLVER_FILE.write_text, "nameserver 127.0.0.1\n")
        found, refused = NAMES["both"][2], resolved(ok=0, error=111)
        for content, expected in (("nameserver 127.0.0.1\r\nnameserver 127.0.0.9", found),
                                  ("nameserver 127.0.0.9\nnameserver 127.0.0.1\n", refused),
                                  ("nameserver ::1\n nameserver 127.0.0.1\n", refused),
                                  ("", refused)):
            RESOLVER_FILE.write_text(content)
            self.assertEqual(probe("resolve", "both.test", 9000)[0], expected, content)
        self.assertEqual(probe("resolve", "both.test", 9000, "127.0.0.1")[0], found)
        self.assertEqual(probe("resolve", "both.test", 9000, "::1")[0], resolved(ok=0, error=22))

    def test_a_real_server(self):
        start_server(self, ["dnsmasq", "-d", "-C", "/dev/null", "--pid-file", "--no-resolv",
                            "--no-hosts", "--listen-address=127.0.0.3", "--bind-interfaces",
                            "--host-record=www.test,10.1.2.3,fd00::5",
                            "--cname=alias.test,www.test"],
                     lambda: "error=111" not in probe("resolve", "www.test", 1000, "127.0.0.3")[0])
        found = resolved("fd00:0:0:0:0:0:0:5 10.1.2.3")
        for name, expected in (("www.test", found), ("alias.test", found), ("none.test", BAD)):
            self.assertEqual(probe("resolve", name, 9000, "127.0.0.3")[0], expected)

    def test_connecting_by_name(self):
        with socket.create_server(("127.0.0.1", 0)) as four, \
                socket.create_server(("::1", 0), family=socket.AF_INET6) as six:
            port, port6 = four.getsockname()[1], six.getsockname()[1]
            check_rows(self, [
                ("refusing.test", port, 0), ("refusing.test", port6, 0), ("refusing.test", 1, -111),
                ("127.0.0.1", port, 0), ("::1", port6, 0), ("::1", port, -111),
                ("empty.test", port, -113), ("cut.test", port, -74), ("a..b", port, -22),
                ("refusing.test", 0, -22), ("refusing.test", 65536, -22),
                ("silent.test", port, -110, 200), ("refused.test", port, -22, 10_001),
            ], lambda host, at, error, limit=9000: self.assertEqual(
                probe("connect", host, at, limit)[0], f"ok={int(error == 0)} error={error}"))
        self.assertFalse([query for query in self.queries if b"refused" in query])
        # The dot is for the name server: the certificate is for "service.test".
        port = listen(over_tls(says(length(b"ok"))))
        self.assertEqual(probe("tls", "service.test.", port, 5000, MAXIMUM)[0], WHOLE)


# Exchanges: the same scripts over both transports.

def listen(script, address="127.0.0.1", port=0):
    """A port on which each connection is handed to `script` and then closed."""
    listener = socket.create_server((address, port),
                                    family=socket.AF_INET6 if ":" in address else socket.AF_INET)

    def serve():
        while True:
            connection = listener.accept()[0]
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            in_thread(play, connection)

    def play(connection):
        try:
            with connection:
                script(connection)
        except (OSError, ValueError):
            pass  # The client may leave at any time.

    in_thread(serve)
    return listener.getsockname()[1]


def over_tls(script, newest=ssl.TLSVersion.TLSv1_3):
    def secure(connection):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(FOLDER / "good.pem", FOLDER / "good.key")
        context.maximum_version = newest
        with context.wrap_socket(connection, server_side=True) as wrapped:
            script(wrapped)
    return secure


def says(*pieces, then=None, read=True):
    """Reads a request without a body, sends the pieces and lets `then` end the connection."""
    def script(connection):
        received = b""
        while read and b"\r\n\r\n" not in received:
            received += connection.recv(65536)
        for piece in pieces:
            connection.sendall(piece)
        if then:
            then(connection)
    return script


def stay(connection):
    connection.settimeout(20)
    while connection.recv(65536):
        pass


def vanish(connection):
    """Closes the socket alone: a TLS connection does not say so first."""
    os.close(connection.detach())


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    vanish(connection)


def length(body, announced=None):
    return b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % (announced or len(body)) + body


def chunked(body, size=16000):
    pieces = [body[i:i + size] for i in range(0, len(body), size)] + [b""]
    return b"H 200 x\r\nTransfer-Encoding: chunked\r\n\r\n" + b"".join(
        b"%x\r\n%b\r\n" % (len(piece), piece) for piece in pieces)


def result(ok=1, status=200, complete=1, error=""):
    return f"ok={ok} status={status} complete={complete} error={error}"


WHOLE, CUT = result(), result(complete=0)
UNUSABLE, GONE = result(status=0, complete=0), result(ok=0, status=0, complete=0)
TO_CLOSE = b"HTTP/1.1 200 OK\r\n\r\n"
EXCHANGES = [  # What the peer does, as words and as a script; the result; the body.
    ("length", says(length(b"ok")), WHOLE, b"ok"),
    ("one byte at a time", says(*[bytes([b]) for b in chunked(b"hello", 1)]), WHOLE, b"hello"),
    ("cut", says(length(b"ok", 3)), CUT, b"ok"),
    ("until the close", says(TO_CLOSE + b"ok"), CUT, b"ok"),
    ("vanishes", says(length(b"ok", 3), then=vanish), CUT, b"ok"),
    ("garbage", says(b"garbage {}\r\n\r\n{}"), UNUSABLE, b""),
    ("nothing", says(), UNUSABLE, b""),
    ("7 MiB, length", says(length(LARGE)), WHOLE, LARGE),
    ("7 MiB, chunked", says(chunked(LARGE)), WHOLE, LARGE),
    ("7 MiB, until the close", says(TO_CLOSE, LARGE), CUT, LARGE),
    ("past the maximum", says(TO_CLOSE, LARGE, LARGE), CUT, (LARGE * 2)[:MAXIMUM - len(TO_CLOSE)]),
    ("whole, stays open", says(length(b"ok"), then=stay), WHOLE, b"ok"),
    ("7 MiB, stays open", says(length(LARGE), then=stay), WHOLE, LARGE),
    ("silent", says(then=stay), GONE, b""),
    ("stalls in the body", says(length(b"ok", 3), then=stay), GONE, b""),
    ("stalls before the close", says(TO_CLOSE + b"ok", then=stay), GONE, b""),
    ("stalls in garbage", says(b"garbage\r\n\r\n", then=stay), GONE, b""),
    ("stalls in a chunk", says(chunked(b"abc")[:-7], then=stay), GONE, b""),
    ("reset in the head", says(length(b"")[:-1], then=reset), GONE, b""),
    ("reset in the body", says(length(b"ok", 3), then=reset), CUT, b"ok"),
]


class Exchanges(unittest.TestCase):
    def test_both_transports(self):
        def check(name, kind, script, expected, body):
            got = probe(kind, "127.0.0.1", listen(script), 500, MAXIMUM)
            self.assertEqual(got[0], expected)
            self.assertTrue(got[1] == body, (got[1][:99], body[:99]))
        rows = [(f"{kind}: {name}", kind, script if kind == "plain" else over_tls(script), *rest)
                for kind in ("plain", "tls") for name, script, *rest in EXCHANGES]
        check_rows(self, rows, check)

    def test_plain_knows_no_names_and_keeps_to_its_maximum(self):
        self.assertEqual(probe("plain", "localhost", listen(stay), 500, 100)[0], GONE)
        port = listen(says(length(b"abc")))  # 41 bytes.
        self.assertEqual(probe("plain", "127.0.0.1", port, 500, 41)[0], WHOLE)
        self.assertEqual(probe("plain", "127.0.0.1", port, 500, 40)[0], CUT)

    def test_only_tls_leaves_when_a_short_answer_is_whole(self):
        mebibyte = LARGE[:1 << 20]
        for kind, wrap, body, least, most in (("tls", over_tls, mebibyte, 0, 1.9),
                                              ("tls", over_tls, mebibyte + b"x", 2, 9),
                                              ("plain", lambda script: script, b"x", 2, 9)):
            port = listen(wrap(says(length(body), then=stay)))
            line, got, seconds = probe(kind, "127.0.0.1", port, 2000, MAXIMUM)
            self.assertTrue(line == WHOLE and got == body)
            self.assertTrue(least <= seconds < most, seconds)

    def test_a_stopped_process_goes_on(self):
        def state(process):
            return pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(") ")[2][0]

        def check(_, script):
            go = threading.Event()
            port = listen(script(lambda _: go.wait(20)))
            command = [BUILD / "network_probe", "tls", "127.0.0.1", str(port), "9000", "1000"]
            with subprocess.Popen(command, stdout=subprocess.PIPE, env={
                    **os.environ, "SSL_CERT_FILE": str(CA.trust_file)}) as process:
                time.sleep(0.3)  # Time enough to be waiting; too little would hide a fault only.
                process.send_signal(signal.SIGSTOP)
                wait_until(lambda: state(process) == "T")
                process.send_signal(signal.SIGCONT)
                wait_until(lambda: state(process) in "SZ")
                go.set()
                self.assertEqual(process.stdout.read().decode(), WHOLE + "\nok")

        answer = says(length(b"ok"))
        check_rows(self, [
            ("handshake", lambda pause: lambda peer: (pause(peer), over_tls(answer)(peer))),
            ("answer", lambda pause: over_tls(lambda peer: (pause(peer), answer(peer)))),
        ], check)

    def test_requests_that_nobody_reads(self):
        def check(kind, wrap):
            # The kernels' probes find a little room now and then, so it may take several limits.
            silent = listen(wrap(lambda _: time.sleep(30)))
            line, _, seconds = probe(kind, "127.0.0.1", silent, 500, 100, 64 << 20)
            self.assertEqual(line, GONE)
            self.assertLess(seconds, 15)
            early = listen(wrap(says(length(b"no"), then=reset)))  # SIGPIPE would kill the probe.
            self.assertEqual(probe(kind, "127.0.0.1", early, 9000, 100, 64 << 20)[0], GONE)
        check_rows(self, [("plain", lambda script: script), ("tls", over_tls)], check)


# The steps of a TLS connection.

def stage(word):
    return result(ok=0, status=0, complete=0, error=f"TLS failed at {word}")


class Stages(unittest.TestCase):
    def tls(self, host, port, *words, limit=5000, **environment):
        return probe("tls", host, port, limit, MAXIMUM, *words, **environment)[0]

    def test_settings(self):
        self.assertEqual(self.tls("127.0.0.1", 0), stage("configuration"))
        self.assertEqual(self.tls("127.0.0.1", 65536), stage("configuration"))
        self.assertEqual(self.tls("127.0.0.1", 1, limit=0), stage("configuration"))
        self.assertEqual(self.tls("127.0.0.1", 1, limit=600_001), stage("configuration"))
        self.assertEqual(self.tls("127.0.0.1", 1, limit=600_000), stage("tcp_connect"))
        self.assertEqual(self.tls("", 1), stage("configuration"))
        script = over_tls(says(length(b"ok")))
        port = listen(script)
        (FOLDER / "none.pem").write_text("no certificate")
        for store in ("missing.pem", "none.pem"):
            self.assertEqual(self.tls("127.0.0.1", port, 0, FOLDER / store), stage("trust_store"))
        self.assertEqual(self.tls("127.0.0.1", port, 0, CA.trust_file, SSL_CERT_FILE=""), WHOLE)
        self.assertEqual(self.tls("127.0.0.1", port, SSL_CERT_FILE=""), stage("handshake"))
        # "localhost" is the IPv6 loopback address and nothing else.
        self.assertEqual(self.tls("localhost", listen(script, "::1")), WHOLE)
        self.assertEqual(self.tls("localhost", listen(script, port=443)), stage("tcp_connect"))

    def test_certificates(self):
        other = Authority(FOLDER, "other")
        other.issue("unknown", "127.0.0.1", issuer="other", chain=False)
        CA.issue("middle", ca=True)
        CA.issue("chained", "127.0.0.1", issuer="middle")
        CA.issue("unchained", "127.0.0.1", issuer="middle", chain=False)
        CA.issue("name", "service.test", "127.0.0.2")
        CA.issue("expired", "127.0.0.1", days=(-9, -1))
        CA.issue("future", "127.0.0.1", days=(1, 9))
        CA.issue("self", "127.0.0.1", issuer="self")
        CA.issue("usage", "127.0.0.1", usage="clientAuth")
        names = ["good", "chained", "unknown", "unchained", "name", "expired", "future", "self",
                 "usage"]
        servers = "".join(
            f"server {{ listen 127.0.0.1:{8000 + at} ssl; root .; error_page 405 =200 $uri;"
            f" ssl_certificate {name}.pem; ssl_certificate_key {name}.key; }}"
            for at, name in enumerate(names))
        (FOLDER / "file").write_bytes(LARGE)
        (FOLDER / "nginx.conf").write_text(
            "daemon off; pid nginx.pid; error_log nginx.log; user root; events {} http {"
            " access_log off; client_body_temp_path t1; proxy_temp_path t2;"
            f" fastcgi_temp_path t3; uwsgi_temp_path t4; scgi_temp_path t5; {servers} }}")
        start_server(self, ["nginx", "-p", FOLDER, "-c", "nginx.conf", "-e", "nginx.log"],
                     lambda: probe("connect", "127.0.0.1", 8000, 1000)[0] == "ok=1 error=0")
        for at, name in enumerate(names):
            with self.subTest(name):
                line, body, _ = probe("tls", "127.0.0.1", 8000 + at, 9000, MAXIMUM)
                self.assertEqual(line, WHOLE if at < 2 else stage("handshake"))
                self.assertTrue(body == (LARGE if at < 2 else b""))

    def test_handshakes_that_fail(self):
        def check(_, script):
            line, _, seconds = probe("tls", "127.0.0.1", listen(script), 500, MAXIMUM)
            self.assertEqual(line, stage("handshake"))
            self.assertLess(seconds, 4)
        part = b"\x16\x03\x03\x40\x00\x02"
        check_rows(self, [("plain HTTP", says(length(b"plain"), read=False)),
                          ("closes", lambda _: None), ("silent", stay),
                          ("resets", lambda connection: (connection.recv(1), reset(connection))),
                          ("part of a record", says(part, then=stay, read=False))], check)
        # OpenSSL's own server, with what only old versions use.
        start_server(self, ["openssl", "s_server", "-accept", "127.0.0.1:4433", "-quiet", "-tls1_1",
                            "-cipher", "ALL:@SECLEVEL=0", "-cert", FOLDER / "good.pem", "-key",
                            FOLDER / "good.key"],
                     lambda: probe("connect", "127.0.0.1", 4433, 1000)[0] == "ok=1 error=0")
        self.assertEqual(self.tls("127.0.0.1", 4433), stage("handshake"))

    @unittest.skipIf(os.environ.get("QUORVANE_LINK_OPENSSL") == "ON", "the library is linked")
    def test_steps(self):
        steps = ["OpenSSL_version_num", "SSL_CTX_new", "verify_peer",
                 "SSL_CTX_set_default_verify_paths", "SSL_new", "55,0,127.0.0.1", "SSL_ctrl",
                 "SSL_set1_host", "SSL_set_fd", "SSL_connect", "SSL_get_verify_result"]
        words = {"OpenSSL_version_num": "configuration", "SSL_CTX_new": "context_create",
                 "SSL_CTX_set_default_verify_paths": "trust_store", "SSL_new": "session_create",
                 "SSL_ctrl": "server_name", "SSL_set1_host": "host_verification_setup",
                 "SSL_set_fd": "socket_attach", "SSL_connect": "handshake",
                 "SSL_get_verify_result": "certificate_verification"}
        port = listen(stay)
        environment = {"LD_LIBRARY_PATH": str(BUILD / "stub_ssl")}
        for function, word in words.items():
            line, calls, _ = probe("tls", "127.0.0.1", port, 500, 100, **environment,
                                   STUB_FAILS=function)
            done = steps[:steps.index(function) + 1]
            freed = ["SSL_free"] * ("SSL_ctrl" in done) + ["SSL_CTX_free"] * ("verify_peer" in done)
            self.assertEqual((line, calls.decode().split()), (stage(word), done + freed))
        line, calls, _ = probe("tls", "127.0.0.1", port, 500, 100, **environment)
        self.assertEqual(line, UNUSABLE)
        self.assertEqual(calls.decode().split(), steps + ["SSL_write"] * 2 + [
            "SSL_read", "SSL_shutdown", "SSL_free", "SSL_CTX_free"])
        empty = str(BUILD / "empty_ssl")
        self.assertEqual(self.tls("127.0.0.1", port, LD_LIBRARY_PATH=empty), stage("configuration"))


if __name__ == "__main__":
    if sys.argv[1] != "--inside":
        enter_namespace()
    BUILD = pathlib.Path(sys.argv[2])
    del sys.argv[1:3]
    unittest.main(verbosity=2)
