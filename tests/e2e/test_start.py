"""Before the first call: which words, origin and credential file get that far, and the streams."""
# What words mean, which origins are valid and what is JSON are the unit tests'; here is one row per
# kind, to see that the program asks, in which order, and prints the answer where it should.

import os
import re
import shutil
import signal
import unittest
from collections.abc import Callable
from functools import partial
from pathlib import Path

from laboratory.home import TOKEN, Home, Result, Scene, bad, good, shell
from laboratory.peers import Connection, answer, reply
from laboratory.rows import Row, Rows
from laboratory.tracing import tracing

SIGNED_OUT = bad("Run quorvane login first")
HELP = Home().run("--help").out.decode()  # What it says is the unit tests'.
serves = partial(Row, words="whoami", peer=reply(answer({})), expect=good("\n"))
missing = partial(Row, words="whoami", expect=SIGNED_OUT)


def holding(content: bytes) -> Callable[[Scene], object]:
    return lambda scene: scene.credential().write_bytes(content)


class Start(Rows):
    """Words before the origin, the origin before the credential, the credential before the call."""

    def test_words_and_origin(self) -> None:
        self.run_rows(
            Row("help before the origin", words="--base-url=x", expect=good(HELP)),
            Row("an unknown command", words="who", expect=bad(
                "invalid arguments\n" + HELP[:-1])),
            Row("origin before the credential", words="--base-url http://h whoami", expect=bad(
                "Use an HTTPS origin, or http://127.0.0.1:PORT for local development")),
            missing("another origin", words="whoami --base-url https://h"))

    def test_credential(self) -> None:
        """It either serves or is as good as missing."""
        token = b'{"token":"%s"}' % TOKEN.encode()
        nested = token[:-1] + b',"a":' + b"[" * 63 + b"%s" + b"]" * 63 + b"}"
        self.run_rows(
            serves("8 MiB", prepare=holding(token.ljust(8388608))),
            missing("over 8 MiB", prepare=holding(token.ljust(8388609))),
            serves("depth 64", prepare=holding(nested % b"")),
            missing("depth 65", prepare=holding(nested % b"0")),
            missing("token no text", prepare=holding(b'{"token":1}')),
            missing("2 GiB", prepare=lambda scene: os.truncate(scene.credential(), 1 << 31)),
            missing("FIFO without a writer", words="projects", prepare=lambda scene: (
                scene.credential().unlink(), os.mkfifo(scene.credential()))))

    def test_where_the_credential_is_looked_for(self) -> None:
        if not shutil.which("strace"):
            print("SKIPPED: no strace")
            self.skipTest("no strace")
        for environment, folder in (({"XDG_CONFIG_HOME": "/x/", "HOME": "/h"}, "/x//quorvane/"),
                                    ({"XDG_CONFIG_HOME": "", "HOME": "/h"}, "/quorvane/"),
                                    ({"XDG_CONFIG_HOME2": "", "HOME": "/h"}, "/h/.config/quorvane/"),
                                    ({"PATH": "/bin"}, "/.config/quorvane/")):
            with self.subTest(folder), Home("http://localhost:1") as home:
                log = home.path / "log"
                home.environment = {**environment, "ASAN_OPTIONS": "detect_leaks=0"}
                self.assertEqual(home.run("whoami", wrapper=tracing(
                    "-o", str(log), "-e", "trace=%%stat")), SIGNED_OUT)
                self.assertEqual(re.findall(r'"([^"]*/quorvane/[^"]*)"', log.read_text()),
                                 [folder + home.credential().name])

    @unittest.skipUnless(os.environ["QUORVANE_MEMORY_CEILING"] == "ON", "built without a ceiling")
    def test_refused_memory(self) -> None:
        self.run_rows(Row(
            "memory runs out", words="whoami", prepare=holding(b"{}".ljust(8388608)),
            wrapper=shell('ulimit -c 0; ulimit -v 10000; exec "$@"'),
            expect=Result(-signal.SIGABRT, b"", b"memory limit exceeded\n")))


class Streams(Rows):
    """Streams that are closed, full or broken neither end the program nor receive foreign bytes."""

    def test_closed_at_the_start(self) -> None:
        for closed in ("0<&-", "1>&-", "2>&-", "0<&- 1>&- 2>&-"):
            links: list[str] = []

            def look(_: Connection) -> None:
                streams = Path("/proc", (scene.work / "pid").read_text().strip(), "fd")
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
        with open(broken, "wb") as pipe:
            self.run_rows(serves("result", expect=Result(0, b"", b""), options={"stdout": pipe}))
