"""From the start of the process to the first call: words, origin, credential file, streams."""

import os
import re
import signal
import unittest
from pathlib import Path
from typing import Any

from harness import (SIGNED_OUT, TOKEN, EndToEnd, Result, Scene, answer, bad, failing, good, reply,
                     shell, tracing)

DEFAULT_ORIGIN = os.environ["QUORVANE_DEFAULT_ORIGIN"]
OPTIONS = ("Options:\n  -h, --help\tShow help\n  -V, --version\tShow version\n"
           f"      --base-url <URL>\tAlternate Quorvane deployment (default: {DEFAULT_ORIGIN})")
HELP = ("quorvane 0.1.0\n\nManage Quorvane projects and configuration\n\n"
        "Usage:\n  quorvane [options] [command]\n\nCommands:\n"
        "  login\tAuthorize this CLI in your browser\n  logout\tRevoke this CLI session\n"
        "  whoami\tShow the authenticated account\n  projects\tList your projects\n"
        "  config\tSync project configuration\n\n" + OPTIONS)
CONFIG_HELP = ("quorvane config\n\nSync project configuration\n\n"
               "Usage:\n  quorvane config [options] [command]\n\nCommands:\n"
               "  pull\tExport configuration and its revision\n"
               "  push\tImport configuration with a revision check\n\n" + OPTIONS)
PULL_HELP = ("quorvane config pull\n\nExport configuration and its revision\n\n"
             "Usage:\n  quorvane config pull [options]\n\n" + OPTIONS +
             "\n  -p, --project <ID>\tProject ID (required)"
             "\n  -f, --file <FILE>\tConfiguration file (default: quorvane.config.json)")
WHOAMI = ("whoami", [reply(answer({}))], [("/api/v1/account",)])


class Words(EndToEnd):
    """What the words alone decide: nothing is read, written or sent."""

    def test_texts(self) -> None:
        self.rows((
            ("nothing, and a bad origin", good(HELP + "\n"), "--base-url=x"),
            ("version, and a bad origin", good("quorvane 0.1.0\n"), "--base-url x whoami -V"),
            ("help", good(HELP + "\n"), "-h whoami"),
            ("help of a group", good(CONFIG_HELP + "\n"), "config --help"),
            ("help of an alias", good(PULL_HELP + "\n"), "config export -h"),
            ("unknown option", bad("unknown option -p"), "whoami -p=x"),
            ("no value", bad("-f requires FILE"), "config push -f"),
            ("no project", bad("missing required option --project"), "--base-url= config import"),
            ("unknown command", bad("invalid arguments\n" + HELP), "who"),
            ("a word too many", bad("invalid arguments\n" + PULL_HELP), "config pull -p p -- -f"),
            ("group alone, signed in", bad(HELP), "config"),
            ("mask refused", bad("Cannot restrict credential file permissions on this platform"),
             "-V", {"wrapper": failing("umask", "EPERM")})))

    def test_origins(self) -> None:
        refused = bad("Use an HTTPS origin, or http://127.0.0.1:PORT for local development")
        unfit = ("", "x", "https://", "HTTPS://h", "https://h/", "https://u@h", "https://h:0",
                 "https://[::1]", "https://h:65536", "http://h", "http://127.0.0.2:1")
        fit = ("https://h", "https://h:65535", "https://a:b:1", "http://localhost", DEFAULT_ORIGIN)
        self.rows([(origin, refused, ["--base-url", origin, command])
                   for origin in unfit for command in ("login", "logout", "config")] +
                  [(origin, SIGNED_OUT, ["--base-url", origin, "whoami"]) for origin in fit])


def holding(content: bytes) -> dict[str, Any]:
    return {"prepare": lambda scene: scene.credential().write_bytes(content)}


def replaced(make: Any) -> dict[str, Any]:
    return {"prepare": lambda scene: (scene.credential().unlink(), make(scene.credential()))}


class Credential(EndToEnd):
    """A credential file either serves or is as good as missing; then nothing is sent."""

    def test_contents(self) -> None:
        token = b'{"token":"%s"}' % TOKEN.encode()
        many = token[:-1] + b",%s}"
        nested = many % (b'"a":' + b"[" * 63 + b"%s" + b"]" * 63)
        zeros = b",".join(b'"%d":0' % i for i in range(100000))
        self.rows([(name, good("\n"), *WHOAMI, holding(content)) for name, content in (
            ("blanks and escapes", b' {"a" : 1,"token": "qvt-\\u0063anary-5d1f"}\n'),
            ("8 MiB", token.ljust(8388608)), ("depth 64", nested % b""),
            ("100000 members", many % zeros.rpartition(b",")[0]),
            ("1000000 values", many % (b'"a":[0%s]' % (b",0" * 999996))))])
        self.rows([(name, SIGNED_OUT, "whoami", holding(content)) for name, content in (
            ("empty", b""), ("not JSON", b"token"), ("cut", token[:-1]), ("more", token + b"{}"),
            ("byte-order mark", b"\xef\xbb\xbf" + token), ("array", b"[%s]" % token),
            ("not UTF-8", many % b'"a":"\xc0\x80"'), ("text", b'"token"'), ("null", b"null"),
            ("no token", b'{"Token":"t"}'), ("number", b'{"token":1}'),
            ("empty token", b'{"token":""}'), ("token twice", many % b'"token":"t"'),
            ("another twice", many % b'"a":{"b":1,"b":1}'), ("over 8 MiB", token.ljust(8388609)),
            ("depth 65", nested % b"0"), ("100001 members", many % zeros),
            ("1000001 values", many % (b'"a":[0%s]' % (b",0" * 999997))))])

    def test_what_is_no_file(self) -> None:
        self.rows((
            ("link to a file", good("\n"), *WHOAMI, {
                "prepare": lambda scene: scene.credential().symlink_to(
                    scene.credential().rename(scene.home / "elsewhere"))}),
            ("missing", SIGNED_OUT, "whoami", replaced(Path.exists)),
            ("group alone", SIGNED_OUT, "config", replaced(Path.exists)),
            ("directory", SIGNED_OUT, "logout", replaced(Path.mkdir)),
            ("2 GiB", SIGNED_OUT, "whoami", replaced(
                lambda file: (file.touch(), os.truncate(file, 1 << 31)))),
            ("FIFO without a writer", SIGNED_OUT, "projects", replaced(os.mkfifo)),
            ("dangling link", SIGNED_OUT, "whoami", replaced(lambda file: file.symlink_to("none"))),
            ("file for a folder", SIGNED_OUT, "config push -p p", replaced(
                lambda file: (file.parent.rmdir(), file.parent.write_text("x")))),
            ("unreadable", SIGNED_OUT, "whoami", {
                "wrapper": lambda scene: failing("openat", "EACCES", path=scene.credential())})))

    def test_where_it_is_looked_for(self) -> None:
        for environment, folder in (
                ({"XDG_CONFIG_HOME": "/x/", "HOME": "/h"}, "/x//quorvane/"),
                ({"XDG_CONFIG_HOME": "", "HOME": "/h"}, "/quorvane/"),
                ({"XDG_CONFIG_HOME2": "/x", "HOME": "/h"}, "/h/.config/quorvane/"),
                ({"PATH": "/bin"}, "/.config/quorvane/")):
            with self.subTest(folder), Scene() as scene:
                log, scene.environment = scene.home / "log", environment
                wrapper = tracing("-o", str(log), "-e", "trace=%%stat")
                self.assertEqual(scene.run("whoami", wrapper=wrapper), SIGNED_OUT)
                self.assertEqual(re.findall(r'"([^"]*/quorvane/[^"]*)"', log.read_text()),
                                 [folder + scene.credential().name])

    @unittest.skipUnless(os.environ["QUORVANE_MEMORY_CEILING"] == "ON", "built without a ceiling")
    def test_refused_memory(self) -> None:
        self.check(Result(-signal.SIGABRT, b"", b"memory limit exceeded\n"), "whoami",
                   wrapper=shell('ulimit -c 0; ulimit -v 10000; exec "$@"'),
                   **holding(b"{}".ljust(8388608)))


class Streams(EndToEnd):
    """Streams that are closed, full or broken neither end the program nor receive foreign bytes."""

    def test_closed_at_the_start(self) -> None:
        for closed in ("0<&-", "1>&-", "2>&-", "0<&- 1>&-", "0<&- 2>&-", "0<&- 1>&- 2>&-"):
            links: list[str] = []

            def look(connection: Any) -> None:
                streams = Path("/proc", (connection.scene.work / "pid").read_text().strip(), "fd")
                links.extend(os.readlink(streams / str(stream)) for stream in range(3))
            with self.subTest(closed), Scene(reply(look, answer({"error": "no"}, 400))) as scene:
                wrapper = shell(f'echo $$ >pid; exec "$@" {closed}')
                self.assertEqual(scene.run("whoami", wrapper=wrapper),
                                 Result(1, b"", b"" if "2" in closed else b"no\n"))
                self.assertEqual([link.partition(":")[0] for link in links], ["/dev/null"] + [
                    "/dev/null" if stream in closed else "pipe" for stream in "12"])

    def test_output_that_goes_nowhere(self) -> None:
        reading, broken = os.pipe()
        os.close(reading)
        with open("/dev/full", "wb") as full, open(broken, "wb") as pipe:
            self.rows([row for stream in (full, pipe) for row in (
                ("result", Result(0, b"", b""), *WHOAMI, {"stdout": stream}),
                ("help", Result(0, b"", b""), "--help", {"stdout": stream}),
                ("failure", Result(1, b"", b""), "x", {"stderr": stream}))])
        self.check(good("\n"), *WHOAMI, wrapper=failing("write", "EINTR", "1"))
