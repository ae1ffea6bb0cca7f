"""browser_test.py PROGRAM [--count N] [unittest arguments]: sign-ins with Debian's chromium."""
# Plainly and over TLS.  The program's opener tells the test what to open.  To be run by
# dev/namespace; needs python3-selenium.

import argparse
import contextlib
import os
import subprocess
import sys
import time
import unittest
from collections.abc import Callable
from pathlib import Path
from typing import Any, NamedTuple

from selenium.webdriver import ActionChains, Chrome, ChromeOptions
from selenium.webdriver.chrome.service import Service as Driver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from laboratory import ROOT  # noqa: E402
from laboratory.home import Home, bad, finish, good  # noqa: E402
from laboratory.network import require_privacy  # noqa: E402
from laboratory.peers import TIME_LIMIT_S  # noqa: E402

ARGUMENTS = ("headless no-sandbox disable-gpu disable-quic no-first-run disable-sync"
             " disable-background-networking disable-component-update").split()
COUNT = 4
ORIGINS: tuple[str, str]
TRUST_FILE: Path
BROWSER: Chrome


def serve(stack: contextlib.ExitStack, *words: str | Path) -> str:
    """Starts a server; returns its origin, which ends its first line."""
    server = stack.enter_context(subprocess.Popen(words, stdout=subprocess.PIPE, text=True))
    stack.callback(server.terminate)
    return str(server.stdout.readline().split()[-1]) if server.stdout else ""


def start_browser(home: Path) -> Chrome:
    """A browser with a new profile that trusts the front's authority."""
    store = home / ".pki/nssdb"
    store.mkdir(parents=True)
    for words in ("-N --empty-password", f"-A -n ca -t C,, -i {TRUST_FILE}"):
        subprocess.run(["certutil", "-d", f"sql:{store}", *words.split()], check=True,
                       stdin=subprocess.DEVNULL)
    options = ChromeOptions()
    for argument in (*ARGUMENTS, f"user-data-dir={home}/profile"):
        options.add_argument(argument)
    browser = Chrome(options=options, service=Driver("/usr/bin/chromedriver", env={
        **os.environ, "HOME": str(home), "TMPDIR": str(home)}))
    browser.implicitly_wait(TIME_LIMIT_S)
    return browser


def find(selector: str) -> Any:
    return BROWSER.find_element(By.CSS_SELECTOR, selector)


def type_keys(typed: str) -> None:
    """Types into whatever has the focus."""
    ActionChains(BROWSER).send_keys(typed).perform()


class Login(Home):
    """A running `quorvane login`, whose page the browser shows when the context is entered."""

    def __enter__(self) -> "Login":
        self.credential().unlink()
        self.environment["SSL_CERT_FILE"] = str(TRUST_FILE)
        self.equip("xdg-open", f'#!/bin/sh\nprintf %s "$1" >{self.path}/new\n'
                               f'/bin/mv {self.path}/new {self.path}/url\n')
        BROWSER.execute_cdp_cmd("Network.clearBrowserCookies", {})
        self.process = self.start("login")
        while not (self.path / "url").exists():
            time.sleep(0.02)
        BROWSER.get((self.path / "url").read_text())
        return self

    def __exit__(self, *error: object) -> None:
        self.process.kill()
        self.process.communicate()
        super().__exit__(*error)


# What a person does, from the page that the program has opened to the last page.

class Way(NamedTuple):
    """One way through a sign-in, and what is on the last page."""

    name: str
    decide: Callable[[], object]
    page: str = "Quorvane CLI connected. You can close this tab."
    account: str = "ada@tidewater.example"


APPROVE = Way("approve", lambda: find("button[value=authorize]").click())
WAYS = (
    APPROVE,
    Way("approve as another", lambda: type_keys(Keys.DOWN + Keys.TAB + Keys.ENTER),
        account="baolam@tidewater.example"),
    Way("deny by keyboard", lambda: type_keys(Keys.TAB + Keys.TAB + Keys.ENTER), account="",
        page="Authorization failed. Return to your terminal."),
)


class SignIn(unittest.TestCase):
    """Every way, on each origin, and then again and again."""

    def sign_in(self, way: Way, origin: str) -> None:
        with self.subTest(way.name, origin=origin), Login(origin) as login:
            way.decide()
            self.assertEqual(find("pre").text, way.page)
            self.assertEqual(finish(login.process)[::2], (0, b"") if way.account else (
                1, b"The sign-in was denied in the browser\n"))
            self.assertEqual(login.run("whoami"), good(way.account + "\n") if way.account else bad(
                "Run quorvane login first"))

    def test_sign_ins(self) -> None:
        for origin in ORIGINS:
            for way in (*WAYS, *[APPROVE] * (COUNT // 2)):
                self.sign_in(way, origin)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("program", type=Path)
    parser.add_argument("--count", type=int, default=COUNT, help="more sign-ins in a row")
    options, rest = parser.parse_known_args()
    require_privacy()
    COUNT, Home.program = options.count, options.program.resolve()
    with contextlib.ExitStack() as stack:
        folder = stack.enter_context(Home()).path
        TRUST_FILE = folder / "ca.pem"
        plain = serve(stack, ROOT / "dev/quorvane-service", "--name", "quorvane.test")
        port = plain.rpartition(":")[2]
        ORIGINS = plain, serve(stack, ROOT / "dev/front", folder, "quorvane.test", port)
        BROWSER = stack.enter_context(start_browser(folder / "home"))
        unittest.main(argv=[sys.argv[0], *rest])
