"""Before the first call: which words, origin and credential file get that far, and the streams."""
# What words mean, which origins are valid and what is JSON are the unit tests'; here is one row per
# kind, to see that the program asks, in which order, and prints the answer where it should.

import os
from collections.abc import Callable
from functools import partial
from pathlib import Path

from laboratory.home import TOKEN, Home, Result, Scene, bad, good, shell
from laboratory.peers import Connection, answer, reply
from laboratory.rows import Row, Rows, same

HELP = Home().run("--help").out.decode()  # What it says is the unit tests'.
serves = partial(Row, peer=reply(answer({})), expect=good("\n"))
missing = partial(Row, expect=bad("Run quorvane login first"))


def holding(content: bytes) -> Callable[[Scene], object]:
    return lambda scene: scene.credential().write_bytes(content)


def at_home(**environment: str) -> Callable[[Scene], None]:
    """Prepares a credential below $HOME, with these variables beside it."""
    def prepare(scene: Scene) -> None:
        (scene.path / "config").rename(scene.path / ".config")
        del scene.environment["XDG_CONFIG_HOME"]
        scene.environment |= {"HOME": str(scene.path), **environment}
    return prepare


class Start(Rows):
    """Words before the origin, the origin before the credential, the credential before the call."""

    def test_words_and_origin(self) -> None:
        self.run_rows(
            Row("help before the origin", words="--base-url=x", expect=good(HELP)),
            Row("origin before the credential", words="--base-url http://h whoami", expect=bad(
                "Use an HTTPS origin, or http://127.0.0.1:PORT for local development")),
            missing("another origin", words="whoami --base-url https://h"))

    def test_credential(self) -> None:
        """It either serves or is as good as missing."""
        token = b'{"token":"%s"}' % TOKEN.encode()
        nested = token[:-1] + b',"a":' + b"[" * 63 + b"%s" + b"]" * 63 + b"}"
        self.run_rows(
            serves("in $HOME", prepare=at_home(XDG_CONFIG_HOME2="")),
            missing("$XDG_CONFIG_HOME is empty", prepare=at_home(XDG_CONFIG_HOME="")),
            serves("8 MiB", prepare=holding(token.ljust(8388608))),
            missing("over 8 MiB", prepare=holding(token.ljust(8388609))),
            serves("depth 64", prepare=holding(nested % b"")),
            missing("depth 65", prepare=holding(nested % b"0")),
            missing("token no text", prepare=holding(b'{"token":1}')))

class Streams(Rows):
    """Streams that are closed or broken neither end the program nor receive foreign bytes."""

    def test_closed_at_the_start(self) -> None:
        links: list[str] = []

        def look(_: Connection) -> None:
            streams = Path("/proc", (scene.work / "pid").read_text().strip(), "fd")
            links.extend(os.readlink(streams / str(stream)) for stream in range(3))
        with Scene(reply(look, answer({}))) as scene:
            wrapper = shell('echo $$ >pid; exec "$@" 0<&- 1>&- 2>&-')
            same("status", scene.run("whoami", wrapper=wrapper).status, 0)
        same("streams", links, ["/dev/null"] * 3)

    def test_output_that_goes_nowhere(self) -> None:
        reading, broken = os.pipe()
        os.close(reading)
        with open(broken, "wb") as pipe:
            self.run_rows(serves("result", expect=Result(0, b"", b""), options={"stdout": pipe}))
