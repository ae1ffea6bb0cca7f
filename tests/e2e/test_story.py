"""The day of a user against the development service, from sign-in to sign-out."""

import unittest

from harness import SIGNED_OUT, Result, Scene, bad, finish, good
from quorvane_dev.server import Service
from quorvane_dev.visitor import Visitor

FILE = "quorvane.config.json"
PROJECT = "prj-tide-gauges"
ADA = "ada@tidewater.example"
SAVED = good(f"Saved {FILE}\n")


class Story(unittest.TestCase):
    def setUp(self) -> None:
        self.service = self.enterContext(Service())
        self.scene = self.enterContext(Scene())
        self.file = self.scene.work / FILE
        self.credential = self.scene.credential(self.service.origin)

    def do(self, words: str) -> Result:
        return self.scene.run("--base-url", self.service.origin, *words.split())

    def login(self, decision: str) -> tuple[str, Result]:
        """The words of the last page, and how the login ended."""
        process = self.scene.start("login", "--no-browser", "--base-url", self.service.origin)
        url = [process.stdout.readline() for _ in range(2)][1].decode().strip()
        return Visitor().decide(url, decision, ADA).words(), finish(process)

    def test_a_day(self) -> None:
        words, result = self.login("deny")
        self.assertEqual(words, "Authorization failed. Return to your terminal.")
        self.assertRegex(result.err, rb"^.*denied.*\n$")
        self.assertEqual(self.do("whoami"), SIGNED_OUT)
        self.assertEqual(self.login("authorize"), (
            "Quorvane CLI connected. You can close this tab.", good(f"Signed in as {ADA}\n")))
        self.assertEqual(self.do("whoami"), good(ADA + "\n"))
        self.assertIn(f"{PROJECT}  Tide gauges \u2013 S\u00f8r\n".encode(), self.do("projects").out)
        self.assertEqual(self.do("config pull -p prj-fish-auction"), bad("No such project"))
        self.assertEqual(self.do(f"config pull -p {PROJECT}"), SAVED)
        text = self.file.read_text()
        self.file.write_text(text.replace("1.50", "1.5000"))
        self.assertEqual(self.do(f"config push -p {PROJECT}"), good("Configuration synchronized\n"))
        self.assertEqual(self.do(f"config pull -p {PROJECT}"), SAVED)
        self.assertEqual(self.file.read_text(), text.replace("1.50", "1.5000"))

        visitor = Visitor()
        visitor.sign_in(self.service.origin, ADA)
        visitor.replace(self.service.origin, PROJECT, "1.5000", "1.75")
        before = self.scene.files()
        refused = self.do(f"config push -p {PROJECT}")
        self.assertRegex(refused.err, rb"^Revision 3 is out of date: .* revision 4\.[^\n]*\n$")
        self.assertEqual(refused, Result(1, b"", refused.err))
        self.assertEqual(self.scene.files(), before)
        self.assertEqual(self.do(f"config pull -p {PROJECT}"), SAVED)
        self.assertEqual(self.file.read_text(), text.replace("1.50", "1.75"))

        session = self.credential.read_bytes()
        self.assertEqual(self.do("logout"), good("Signed out\n"))
        self.assertEqual(self.do("logout"), SIGNED_OUT)
        self.credential.write_bytes(session)
        self.assertRegex(self.do("whoami").err, rb"^This session is not signed in")
