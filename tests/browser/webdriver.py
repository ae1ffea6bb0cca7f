"""A real browser: Debian's chromium, driven by chromedriver over WebDriver (HTTP and JSON)."""

from __future__ import annotations

import json
import os
import subprocess
import time
import urllib.error
import urllib.request
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

FIND_LIMIT_S = 20
DOWN, ENTER, TAB = "\ue015", "\ue007", "\ue004"
ARGUMENTS = ("headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run",
             "disable-background-networking", "disable-component-update", "disable-sync")
HTTP = urllib.request.build_opener(urllib.request.ProxyHandler({}))


class BrowserError(Exception):
    """What the browser could not do."""


class Browser:
    """A browser with an empty profile in the folder `home`, trusting `trust_file` too; a context.

    Elements are named by CSS selectors and waited for.
    """

    def __init__(self, home: Path, trust_file: Path) -> None:
        self._home = home
        store = home / ".pki" / "nssdb"
        store.mkdir(parents=True)
        for words in (["-N", "--empty-password"],
                      ["-A", "-n", "ca", "-t", "C,,", "-i", str(trust_file)]):
            subprocess.run(["certutil", "-d", f"sql:{store}", *words], check=True,
                           stdin=subprocess.DEVNULL)

    def __enter__(self) -> Browser:
        # A browser is many processes.  When our end of the pipe closes, for whatever reason, the
        # shell ends, and with it all processes of its namespace.
        self._driver = subprocess.Popen(
            ["unshare", "-pf", "sh", "-c", "(chromedriver --port=0; echo ended) & read _"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
            env={**os.environ, "HOME": str(self._home), "TMPDIR": str(self._home)})
        assert self._driver.stdout
        try:
            while "successfully on port" not in (line := self._driver.stdout.readline()):
                assert line != "ended\n", "chromedriver did not start"
            self.session = f"http://127.0.0.1:{line.split()[-1].rstrip('.')}/session"
            options = {"args": [*ARGUMENTS, f"user-data-dir={self._home}/profile"]}
            self.session += "/" + self.command("POST", "", capabilities={
                "alwaysMatch": {"goog:chromeOptions": options}})["sessionId"]
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        with self._driver:
            pass

    def command(self, method: str, path: str, **parameters: Any) -> Any:
        """One command of the session.  Raises `BrowserError`."""
        data = json.dumps(parameters).encode() if method == "POST" else None
        try:
            with HTTP.open(urllib.request.Request(
                    self.session + path, data, {"Content-Type": "application/json"},
                    method=method)) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise BrowserError(f"{path} {parameters}: {json.load(error)['value']}") from None

    def _at(self, selector: str, method: str, path: str) -> Any:
        # The wait is not left to the driver, which meanwhile would let no one else into the
        # session: the opener that is about to open a page, say.
        deadline = time.monotonic() + FIND_LIMIT_S
        while True:
            try:
                found = self.command("POST", "/element", using="css selector", value=selector)
                return self.command(method, f"/element/{next(iter(found.values()))}/{path}")
            except BrowserError:
                if time.monotonic() > deadline:
                    raise
            time.sleep(0.02)

    def text(self, selector: str) -> str:
        """What can be read there."""
        return str(self._at(selector, "GET", "text"))

    def press(self, selector: str) -> None:
        """Clicks."""
        self._at(selector, "POST", "click")

    def type(self, keys: str) -> None:
        """Sends keys to whatever has the focus."""
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.command("POST", "/actions", actions=[{"type": "key", "id": "k", "actions": actions}])

    def open(self, url: str) -> None:
        self.command("POST", "/url", url=url)

    def forget(self) -> None:
        """Shows an empty page and has no cookie."""
        self.open("about:blank")
        self.command("POST", "/goog/cdp/execute", cmd="Network.clearBrowserCookies", params={})

    def run(self, script: str) -> Any:
        """What a script returns."""
        return self.command("POST", "/execute/sync", script=script, args=[])

    @contextmanager
    def second_tab(self, url: str) -> Iterator[None]:
        """Shows a page in a tab of its own for a while."""
        first = self.command("GET", "/window")
        second = self.command("POST", "/window/new", type="tab")["handle"]
        self.command("POST", "/window", handle=second)
        self.open(url)
        yield
        self.command("DELETE", "/window")
        self.command("POST", "/window", handle=first)
