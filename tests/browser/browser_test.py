"""browser_test.py PROGRAM: sign-ins with Debian's chromium, one after the other."""
# The browser may open connections in advance.  The program's opener tells the test what to open.
# To be run by dev/namespace; needs python3-selenium.

import os
import subprocess
import sys
import tempfile
from pathlib import Path

from selenium.webdriver import Chrome, ChromeOptions
from selenium.webdriver.chrome.service import Service as Driver
from selenium.webdriver.common.by import By

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from laboratory import ROOT  # noqa: E402
from laboratory.home import Home, finish, good  # noqa: E402
from laboratory.network import require_privacy  # noqa: E402
from laboratory.peers import TIME_LIMIT_S  # noqa: E402
from laboratory.rows import same  # noqa: E402

COUNT = 5


def sign_in(browser: Chrome, origin: str) -> None:
    with Home(origin) as home:
        home.credential().unlink()
        os.mkfifo(home.path / "url")
        home.equip("xdg-open", f'#!/bin/sh\nprintf %s "$1" >{home.path}/url\n')
        with home.start("login") as login:
            browser.get((home.path / "url").read_text())
            browser.find_element(By.CSS_SELECTOR, "button[value=authorize]").click()
            page = browser.find_element(By.CSS_SELECTOR, "pre").text
            same("status and errors", finish(login)[::2], (0, b""))
        same("last page", page, "Quorvane CLI connected. You can close this tab.")
        same("account", home.run("whoami"), good("ada@tidewater.example\n"))


require_privacy()
Home.program = Path(sys.argv[1]).resolve()
options = ChromeOptions()
options.add_argument("headless")
options.add_argument("no-sandbox")
with tempfile.TemporaryDirectory() as folder, subprocess.Popen(
        [ROOT / "dev/quorvane-service"], stdout=subprocess.PIPE, text=True) as service, \
        Chrome(options=options, service=Driver("/usr/bin/chromedriver", env={
            **os.environ, "TMPDIR": folder})) as chromium:
    chromium.implicitly_wait(TIME_LIMIT_S)
    address = service.stdout.readline().split()[-1]
    for _ in range(COUNT):
        sign_in(chromium, address)
    service.terminate()
print(f"{COUNT} sign-ins")
