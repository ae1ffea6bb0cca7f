"""The program with a real browser, against the development service: plainly, and behind nginx.

    browser_test.py PROGRAM [--count N] [unittest arguments]

The program starts the browser itself, by way of an xdg-open on its PATH that hands the address to
the running browser.  To be run by dev/namespace.
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

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "dev"))

from quorvane_dev.front import Front  # noqa: E402
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
sign_ins = 0


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
        self.url = (self.process.stdout.readline() and self.process.stdout.readline()).strip()
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

    def ask_who(self) -> str:
        return self.start("whoami").communicate(timeout=TIME_LIMIT_S)[0]


# What a person does, from the page that the program has opened to the last page.

def approve(_: Login) -> None:
    browser.press(AUTHORIZE)


def reload_and_approve(_: Login) -> None:
    browser.command("POST", "/refresh")
    browser.press(AUTHORIZE)


def approve_after_icon(login: Login) -> None:
    with browser.second_tab(f"http://127.0.0.1:{login.port}/favicon.ico"):
        assert browser.text("pre") == "Unknown login callback"
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


def approve_in_second_tab_first(login: Login) -> None:
    with browser.second_tab(login.url):
        browser.press(AUTHORIZE)
        assert browser.text("pre") == CONNECTED[1]
    browser.press(AUTHORIZE)


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
    ("deny by keyboard", lambda _: browser.type(TAB + TAB + ENTER), REFUSED, ""),
    ("reload", reload_and_approve, CONNECTED, ADA),
    ("icon", approve_after_icon, CONNECTED, ADA),
    ("idle connection", approve_beside_idle_connection, CONNECTED, ADA),
    ("second tab", approve_in_second_tab_first, USED, ADA),
    ("back", go_back_and_approve_again, USED, ADA),
)


class SignIn(unittest.TestCase):
    """Sign-ins on each origin."""

    def check(self, origin: str, decide: Callable[[Login], None], page: tuple[str, str],
              account: str) -> None:
        global sign_ins
        with Login(origin) as login:
            decide(login)
            self.assertEqual(browser.text(page[0]), page[1])
            self.assertEqual(login.end(), (0, f"Signed in as {account}") if account else DENIED)
            self.assertEqual(login.ask_who(), account or "Run quorvane login first\n")
            sign_ins += account != ""

    def test_ways(self) -> None:
        for name, *way in WAYS:
            for origin in origins:
                with self.subTest(name, origin=origin):
                    self.check(origin, *way)

    def test_again_and_again(self) -> None:
        for turn in range(count):
            with self.subTest(turn=turn):
                self.check(origins[turn % len(origins)], approve, CONNECTED, ADA)


class Pages(unittest.TestCase):
    """The pages on which projects are kept."""

    def open_project(self, name: str, text: str) -> str:
        project = service.store.add_project(1, name, text)
        browser.forget()
        browser.open(f"{origins[-1]}/projects")
        browser.type(ENTER)  # The first account has the focus.
        browser.press(f"a[href='/projects/{project}']")
        return project

    def test_hostile_text_is_text(self) -> None:
        script = "</textarea><script>window.hit = 1</script>"
        self.open_project(f"</title>{script}\u202egnp.exe &amp;", f'{{"{script}": "\u202e"}}')
        shown = f"</title>{script}\u27e8U+202E\u27e9gnp.exe &amp;"
        self.assertEqual(browser.text("h1"), shown)
        self.assertEqual(browser.run("return document.title"), f"{shown} \u00b7 quorvane")
        self.assertEqual(browser.run("return document.querySelector('textarea').value"),
                         f'{{\n  "{script}": "\\u202e"\n}}')
        self.assertIsNone(browser.run("return window.hit"))

    def test_editor_by_keyboard(self) -> None:
        project = self.open_project("Edited", '{"a": 1}')
        for typed, words in (
            ('{"a": 1.50}', "Saved as revision 2."),
            ('{"a": 2,}', "Not saved. Line 1, column 9:"),
            ('{"a": 3}', "Saved as revision 3."),
            ('{"a": 4}', "Not saved. You edited revision 3, and revision 4 has been saved"),
            ('{"a": 5}', "Saved as revision 5."),
        ):
            with self.subTest(typed):
                if "revision 4 has" in words:
                    service.store.save(project, 3, "{}", "command line")
                browser.run("document.querySelector('.notice')?.remove();"
                            "document.querySelector('textarea').select()")
                browser.type(typed + TAB + ENTER)
                self.assertIn(words, browser.text(".notice"))


def main() -> int:
    """Starts what all tests share, and ends it, come what may."""
    global program, count, folder, service, browser, origins
    parser = argparse.ArgumentParser()
    parser.add_argument("program", type=os.path.abspath)
    parser.add_argument("--count", type=int, default=4, help="sign-ins in a row (default: 4)")
    options, rest = parser.parse_known_args()
    program, count = options.program, options.count
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    with contextlib.ExitStack() as stack:
        folder = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="quorvane-browser-")))
        opener = folder / "bin" / "xdg-open"
        opener.parent.mkdir()
        opener.write_text(OPENER)
        opener.chmod(0o755)
        host = "quorvane.test"
        service = stack.enter_context(Service(names=[host]))
        front = stack.enter_context(Front(folder, host, service.port))
        browser = stack.enter_context(Browser(folder / "home", front.trust_file))
        origins = (service.origin, front.origin)
        result = unittest.main(argv=[sys.argv[0], *rest], exit=False).result
        print(f"{sign_ins} sign-ins went through")
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
