"""What drifts: docs/messages.md, the manual pages, the program's help and its sources.  Needs mandoc."""

import re
import subprocess
import unittest

from laboratory import ROOT
from laboratory.home import PROGRAM
from laboratory.messages import Messages

DOCUMENTED = Messages()
PAGE = PROGRAM.parent / "install/quorvane.1"
WORDS = [line.split("|") for line in (PAGE.parent / "words.txt").read_text().splitlines()]
COMMANDS = {f"{row[1]} {row[2]}".strip() for row in WORDS if row[0] == "command"}

# Texts with a blank that nobody reads on a terminal: descriptions of the help, headers on the wire,
# errors of the JSON parser, which its callers do not print.
SILENT_FILES = ("cli/help.cpp", "http/message.cpp", "json/parser.cpp")
SILENT_TEXTS = {"Bearer ", "nameserver ", "-----BEGIN ", "-----END "}
# Lines that are put together, and their pieces.
COMPOSED = {"quorvane <version>", "<the service's own words>", *(
    f"Cannot reach <origin> (HTTP 0, complete=false; {why})" for why in (
        "HTTP transport", "TLS failed at <stage>", ""))}
PIECES = {"Cannot reach ", " (HTTP 0, complete=false; ", "HTTP transport"}
_TOKEN = re.compile(r'//[^\n]*|static_assert\([^;]*|#include[^\n]*|R?"((?:[^"\\\n]|\\.)*)"')


def literals() -> set[str]:
    """Every text of the sources in which words stand."""
    sources = [path.read_text() for path in (ROOT / "src").rglob("*.cpp")
               if str(path.relative_to(ROOT / "src")) not in SILENT_FILES]
    texts = {re.sub(r"\\[ntr0]", "\n", text).strip("\n") for source in sources
             for text in _TOKEN.findall(source)}
    found = {text for text in texts if re.search("[A-Za-z]", text) and " " in text}
    return found - SILENT_TEXTS - COMMANDS


class Documents(unittest.TestCase):
    """Each is compared with what it describes, both ways."""

    def test_messages_are_those_of_the_sources(self) -> None:
        documented = {words for message in DOCUMENTED.messages if message.text not in COMPOSED
                      for words in message.fixed_words() if re.search(" .*[a-z]|[a-z] ", words)}
        documented |= {f"TLS failed at {stage}" for stage in DOCUMENTED.stages}
        self.assertEqual(literals() - PIECES, documented)
        self.assertLessEqual(COMPOSED, {message.text for message in DOCUMENTED.messages})

    def test_manuals_are_clean(self) -> None:
        for page in (PAGE, ROOT / "docs/quorvane-doctor.1"):
            lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page],
                                  capture_output=True, check=False)
            self.assertEqual((lint.stdout, lint.returncode), (b"", 0))

    def test_generated_texts_tell_what_the_help_tells(self) -> None:
        page = PAGE.read_text()
        for path in ("", *COMMANDS):
            told = subprocess.run([PROGRAM, *path.split(), "--help"], capture_output=True,
                                  text=True, check=True).stdout
            words = {(row[2], row[3]) for row in WORDS if row[:2] == ["command", path]
                     and not row[4]}
            self.assertEqual(words, set(re.findall(r"^  ([a-z]\S*)\t(.*)", told, re.M)))
            options = {(row[3], row[2], row[5]) for row in WORDS if row[0] == "option"
                       and row[1] in ("*", path)}
            self.assertEqual(options, set(re.findall(
                r"^  (?:(-.), |    )(--[\w-]+)[^\t]*\t([^(\n]*[^(\n ])", told, re.M)))
            for *_, name, text in words | options:
                self.assertTrue(f"\n{text}" in page or name == "config", text)
        self.assertEqual([message.text for message in DOCUMENTED.messages if
                          message.where.startswith("stderr") and message.text not in page], [])

    def test_places_of_certificates(self) -> None:
        places = re.findall(r'^\{"(.*?)", "(.*?)"\},',
                            (ROOT / "src/session/trust_places.inc").read_text(), re.M)
        self.assertIn("".join(("<<PLACES\n", *(" ".join(place).strip() + "\n" for place in places),
                               "PLACES\n")), (ROOT / "packaging/quorvane-doctor").read_text())
        told = re.findall(r"^\| `(/.*?)` \| (?:`(/.*?)`)? *\|",
                          (ROOT / "docs/guides/installing.md").read_text(), re.M)
        self.assertEqual(told, places)
