"""The program with a real browser, against the development service: plainly, and behind nginx.

    browser_test.py PROGRAM [--count N] [unittest arguments]

The program starts the browser itself, by way of an xdg-open on its PATH that hands the address to
the running browser.  To be run by tests/support/namespace.
"""

from __future__ import annotations

import argparse
import contextlib
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from collections.abc import Callable
from pathlib import Path

TESTS = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(TESTS / "support"), str(TESTS.parent / "dev")]

from front import Front  # noqa: E402
from quorvane_dev.server import Service  # noqa: E402
from webdriver import DOWN, ENTER, TAB, Browser  # noqa: E402

TIME_LIMIT_S = 30
AUTHORIZE, DENY = "button[value=authorize]", "button[value=deny]"
OPENER = """#!/usr/bin/python3
import json, os, sys, urllib.request
urllib.request.urlopen(urllib.request.Request(
    os.environ["SESSION"] + "/url", json.dumps({"url": sys.argv[1]}).encode(),
    {"Content-Type": "application/json"}))
"""

program = ""
count = 0
folder: Path
service: Service
browser: Browser
origins: tuple[str, ...]


class Login:
    """A running `quorvane login`; the browser shows its page when the context is entered."""

    def __init__(self, origin: str) -> None:
        self.origin = origin
        self.environment = {
            "PATH": str(folder / "bin"), "SESSION": browser.session,
            "XDG_CONFIG_HOME": tempfile.mkdtemp(dir=folder), "SSL_CERT_FILE": f"{folder}/ca.pem"}

    def start(self, command: str) -> subprocess.Popen[str]:
        return subprocess.Popen([program, command, "--base-url", self.origin], text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, env=self.environment)

    def __enter__(self) -> Login:
        browser.forget()
        self.process = self.start("login")
        assert self.process.stdout
        assert self.process.stdout.readline() and self.process.stdout.readline()  # The address.
        # The page says where the program is waiting: "... waiting at port 12345, asks ...".
        self.port = int(browser.text("main p").partition(" port ")[2].partition(",")[0])
        return self

    def __exit__(self, *_: object) -> None:
        self.process.kill()
        self.process.communicate()

    def end(self) -> tuple[int, str]:
        """Exit status, and what was printed since the address."""
        out, _ = self.process.communicate(timeout=TIME_LIMIT_S)
        return self.process.returncode, out


# What a person does, from the page that the program has opened to the last page.

def approve(_: Login) -> None:
    browser.press(AUTHORIZE)


def approve_beside_idle_connection(login: Login) -> None:
    browser.run("const link = document.createElement('link'); link.rel = 'preconnect';"
                "link.crossOrigin = 'anonymous';"
                f"link.href = 'http://127.0.0.1:{login.port}'; document.head.append(link)")
    began = time.monotonic()
    # proc(5): first the address here, then the other one, which a listener has not.
    while f"0100007F:{login.port:04X} 0100007F:" not in Path("/proc/net/tcp").read_text():
        assert time.monotonic() < began + TIME_LIMIT_S, "no connection in advance"
    browser.press(AUTHORIZE)
    browser.text("pre")
    # The silent connection may cost the one second that is waited for it, not five.
    assert time.monotonic() < began + 4.5


def go_back_and_approve_again(login: Login) -> None:
    browser.press(AUTHORIZE)
    login.process.wait(TIME_LIMIT_S)
    browser.command("POST", "/refresh")
    assert "ERR_CONNECTION_REFUSED" in browser.text("body")
    browser.command("POST", "/back")
    browser.press(AUTHORIZE)


# Where to read the last page, and what is there.
CONNECTED = ("pre", "Quorvane CLI connected. You can close this tab.")
REFUSED = ("pre", "Authorization failed. Return to your terminal.")
USED = ("main:has(.facts)", "Gone\nThis sign-in request is no longer open (used):"
        " run quorvane login again.\nStatus 410\nHome")

ADA, BAO_LAM = "ada@tidewater.example\n", "baolam@tidewater.example\n"
DENIED = (1, "The sign-in was denied in the browser\n")
WAYS = (
    ("approve", approve, CONNECTED, ADA),
    ("approve as another", lambda _: browser.type(DOWN + TAB + ENTER), CONNECTED, BAO_LAM),
    ("deny", lambda _: browser.press(DENY), REFUSED, ""),
    ("idle connection", approve_beside_idle_connection, CONNECTED, ADA),
    ("back", go_back_and_approve_again, USED, ADA),
)


class SignIn(unittest.TestCase):
    """Sign-ins on each origin."""

    def check(self, origin: str, decide: Callable[[Login], None], page: tuple[str, str],
              account: str) -> None:
        with Login(origin) as login:
            decide(login)
            self.assertEqual(browser.text(page[0]), page[1])
            self.assertEqual(login.end(), (0, f"Signed in as {account}") if account else DENIED)
            who = login.start("whoami").communicate(timeout=TIME_LIMIT_S)[0]
            self.assertEqual(who, account or "Run quorvane login first\n")

    def test_ways(self) -> None:
        for turn in range(count):
            for name, *way in WAYS:
                for origin in origins:
                    with self.subTest(name, origin=origin, turn=turn):
                        self.check(origin, *way)


def main() -> int:
    """Starts what all tests share, and ends it, come what may."""
    global program, count, folder, service, browser, origins
    parser = argparse.ArgumentParser()
    parser.add_argument("program", type=os.path.abspath)
    parser.add_argument("--count", type=int, default=1, help="rounds of them all")
    options, rest = parser.parse_known_args()
    program, count = options.program, options.count
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    with contextlib.ExitStack() as stack:
        folder = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="quorvane-browser-")))
        opener = folder / "bin" / "xdg-open"
        opener.parent.mkdir()
        opener.write_text(OPENER)
        opener.chmod(0o755)
        service = stack.enter_context(Service())
        front = stack.enter_context(Front(folder, "quorvane.test", service.port))
        browser = stack.enter_context(Browser(folder / "home", front.trust_file))
        origins = (service.origin, front.origin)
        result = unittest.main(argv=[sys.argv[0], *rest], exit=False).result
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
