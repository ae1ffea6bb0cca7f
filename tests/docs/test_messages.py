"""docs/messages.md and the program agree, both ways."""

from __future__ import annotations

import os
import re
import subprocess
import tempfile
import unittest
from collections.abc import Iterator
from pathlib import Path

from sweep.messages import read_messages

SOURCES = Path(__file__).resolve().parents[2] / "src"
DOCUMENTED = read_messages()

# Texts with a blank that nobody reads on a terminal: descriptions of the help, headers on the wire,
# errors of the JSON parser, which its callers do not print.
SILENT_FILES = ("main/command_tree.cpp", "cli/help.cpp", "http/message.cpp", "json/parser.cpp")
SILENT_TEXTS = {"Bearer ", "nameserver ", "config pull", "config push"}

_TOKEN = re.compile(r'//[^\n]*|#include[^\n]*|R?"((?:[^"\\\n]|\\.)*)"')


def literals() -> Iterator[str]:
    """Every text of the sources in which words stand."""
    for path in sorted(SOURCES.rglob("*.cpp")):
        if str(path.relative_to(SOURCES)) not in SILENT_FILES:
            for text in _TOKEN.findall(path.read_text()):
                text = re.sub(r"\\[ntr0]", "\n", text).strip("\n")
                if re.search("[A-Za-z]", text) and " " in text and text not in SILENT_TEXTS:
                    yield text


class Messages(unittest.TestCase):
    """What is printed is documented, and what is documented is printed."""

    def test_what_the_sources_say_is_documented(self) -> None:
        texts = [message.text for message in DOCUMENTED.messages]
        texts += [f"TLS failed at {stage}" for stage in DOCUMENTED.stages]
        found = set(literals())
        self.assertGreater(len(found), 25)
        for literal in found:
            with self.subTest(literal):
                self.assertTrue(any(literal.strip() in text for text in texts))

    def test_what_is_documented_stands_in_the_sources(self) -> None:
        found = set(literals())
        for message in DOCUMENTED.messages:
            for words in message.fixed_words():
                # The file name of a version line and the pieces between two values are short.
                if " " in words.strip():
                    with self.subTest(message.text):
                        self.assertTrue(any(literal in words for literal in found))
        stages = {literal.rpartition(" ")[2] for literal in found if "TLS failed at" in literal}
        self.assertEqual(stages, set(DOCUMENTED.stages))

    def test_what_the_program_prints_is_documented_so(self) -> None:
        for words, text, where in (
            ("--version", "quorvane <version>", "stdout, 0"),
            ("whoami --no-browser", "unknown option <option>", "stderr, 1"),
            ("config pull -p", "<option> requires <value name>", "stderr, 1"),
            ("config push", "missing required option <option>", "stderr, 1"),
            ("who", "invalid arguments", "stderr, 1"),
            ("--base-url=https://host/ whoami", "Use an HTTPS origin, or http://127.0.0.1:PORT"
             " for local development", "stderr, 1"),
            ("whoami", "Run quorvane login first", "stderr, 1"),
            ("login --base-url=http://127.0.0.1:1", "Cannot reach <origin> (HTTP 0, complete=false;"
             " HTTP transport)", "stderr, 1"),
        ):
            with self.subTest(words), tempfile.TemporaryDirectory() as home:
                ran = subprocess.run([os.environ["QUORVANE"], *words.split()], env={"HOME": home},
                                     capture_output=True, text=True, check=False)
                line = (ran.stdout or ran.stderr).split("\n")[0]
                stream = "stdout" if ran.stdout else "stderr"
                found = DOCUMENTED.explain(line, stream)
                self.assertEqual(found and (found.text, found.where), (text, where), line)
                self.assertEqual(f"{stream}, {ran.returncode}", where)


if __name__ == "__main__":
    unittest.main()
