"""The manual pages against the program: options, commands, messages.  Needs mandoc."""

from __future__ import annotations

import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from harness import PROGRAM

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs/quorvane.1"


def run(*words: str) -> subprocess.CompletedProcess[str]:
    with tempfile.TemporaryDirectory() as home:
        return subprocess.run([PROGRAM, *words], capture_output=True, text=True, check=False,
                              env={"HOME": home, "PATH": "/nonexistent"})


def rendered() -> str:
    """The page as one line, its words one blank apart."""
    text = subprocess.run(["mandoc", "-T", "ascii", "-O", "width=500", PAGE], check=True,
                          capture_output=True, text=True).stdout
    return " ".join(re.sub(".\b", "", text).split())


def diagnostics() -> list[str]:
    """The messages that the page explains, words in capitals standing for anything."""
    section = PAGE.read_text().partition(".Sh DIAGNOSTICS")[2].partition("\n.Sh ")[0]
    return [item for item in re.findall(r"^\.It (.*)", section, re.M)
            if not item.startswith(("Sy", "Xo"))]


def pieces(message: str) -> list[str]:
    """What is fixed in a message."""
    return re.split(r"\b(?:NAME|VALUE|URL|STATUS|COMPLETE|DETAIL)\b", message)


class Manual(unittest.TestCase):
    def test_is_clean(self) -> None:
        for page in (PAGE, ROOT / "docs/quorvane-doctor.1"):
            lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page], check=False,
                                  capture_output=True, text=True)
            self.assertEqual((lint.stdout, lint.returncode), ("", 0))

    def test_tells_what_the_help_tells(self) -> None:
        page, options = rendered(), set()
        pending: list[tuple[str, ...]] = [()]
        while pending:
            words = pending.pop()
            text = run(*words, "--help").stdout
            for form, words_for in re.findall(r"^ +(-[^\t]*)\t([^(\n]*[^(\n ])", text, re.M):
                options |= set(re.findall(r"--?[\w-]+", form))
                entry = f" {re.sub('[<>]', '', form)} "
                self.assertIn(entry, page)
                self.assertIn(words_for, page.partition(entry)[2][:300])
            for name, words_for in re.findall(r"^  ([a-z]\S*)\t(.*)", text, re.M):
                pending.append((*words, name))
                if name != "config":
                    entry = re.escape(" ".join(("", *words, name)))
                    usage = r"( \[--no-browser\]| -p ID \[-f FILE\])? "
                    self.assertRegex(page, entry + usage + re.escape(words_for))
        self.assertEqual(options, set(re.findall(r"(?<![\w/-])--?[a-zA-Z][\w-]*", page.partition(
            "EXAMPLES")[0])) - {"-no-browser"})

    def test_explains_every_message(self) -> None:
        page, messages = rendered(), diagnostics()
        sources = "".join(path.read_text() for path in sorted((ROOT / "src").rglob("*.cpp")))
        said = set(re.findall(r'fail\("([^"]+)"\)|kError, "([^"\\]+)', sources))
        self.assertGreater(len(said), 10)
        for message in (first or second for first, second in said):
            self.assertIn(message, messages)
        for stage in re.findall(r"TLS failed at (\w+)", sources):
            self.assertIn(f" {stage} ", page.replace(",", ""))
        for message in messages:
            for piece in pieces(message):
                self.assertTrue(piece.strip() in sources or "--" in piece, piece)
