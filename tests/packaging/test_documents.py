"""What drifts: docs/messages.md, the manual pages, the program's help and its sources.  Needs mandoc."""

from __future__ import annotations

import re
import subprocess
import unittest

from laboratory import ROOT
from laboratory.home import PROGRAM
from laboratory.messages import Messages

DOCUMENTED = Messages()
PAGE = ROOT / "docs/quorvane.1"

# Texts with a blank that nobody reads on a terminal: descriptions of the help, headers on the wire,
# errors of the JSON parser, which its callers do not print.
SILENT_FILES = ("main/command_tree.h", "cli/help.cpp", "http/message.cpp", "json/parser.cpp")
SILENT_TEXTS = {"Bearer ", "nameserver ", "config pull", "config push"}
_TOKEN = re.compile(r'//[^\n]*|#include[^\n]*|R?"((?:[^"\\\n]|\\.)*)"')


def literals() -> set[str]:
    """Every text of the sources in which words stand."""
    sources = [path.read_text() for path in (ROOT / "src").rglob("*.cpp")
               if str(path.relative_to(ROOT / "src")) not in SILENT_FILES]
    texts = {re.sub(r"\\[ntr0]", "\n", text).strip("\n") for source in sources
             for text in _TOKEN.findall(source)}
    return {text for text in texts if re.search("[A-Za-z]", text) and " " in text} - SILENT_TEXTS


class Documents(unittest.TestCase):
    """Each is compared with what it describes, both ways."""

    def test_messages_are_those_of_the_sources(self) -> None:
        texts = [message.text for message in DOCUMENTED.messages]
        texts += [f"TLS failed at {stage}" for stage in DOCUMENTED.stages]
        found = literals()
        self.assertEqual([literal for literal in found
                          if not any(literal.strip() in text for text in texts)], [])
        documented = [words for message in DOCUMENTED.messages for words in message.fixed_words()
                      if " " in words.strip()]  # The pieces between two values are short.
        self.assertEqual([words for words in documented
                          if not any(literal in words for literal in found)], [])
        stages = {literal.rpartition(" ")[2] for literal in found if "TLS failed at" in literal}
        self.assertEqual(stages, set(DOCUMENTED.stages))

    def test_manual_explains_the_messages(self) -> None:
        section = PAGE.read_text().partition(".Sh DIAGNOSTICS")[2].partition("\n.Sh ")[0]
        explained = [re.sub(r"\b(?:NAME|VALUE|URL|STATUS|COMPLETE|DETAIL)\b", ".*", re.escape(item))
                     for item in re.findall(r"^\.It (?!Sy|Xo)(.*)", section, re.M)]
        # No option of the program takes one of a few words.
        printed = [message.text for message in DOCUMENTED.messages if message.fixed_words() and
                   message.where.startswith("stderr") and "invalid value" not in message.text]
        printed = [text.replace("option <option>", "option --project") for text in printed]
        matches = [(text, item) for text in printed for item in explained
                   if re.fullmatch(item, text)]
        self.assertEqual({text for text, _ in matches}, set(printed))
        self.assertEqual({item for _, item in matches}, set(explained))
        for stage in DOCUMENTED.stages:
            self.assertRegex(section, rf"\b{stage}\b")

    def test_manuals_are_clean(self) -> None:
        for page in (PAGE, ROOT / "docs/quorvane-doctor.1"):
            lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page],
                                  capture_output=True, check=False)
            self.assertEqual((lint.stdout, lint.returncode), (b"", 0))

    def test_manual_tells_what_the_help_tells(self) -> None:
        text = subprocess.run(["mandoc", "-T", "ascii", "-O", "width=500", PAGE], check=True,
                              capture_output=True, text=True).stdout
        page, options = " ".join(re.sub(".\b", "", text).split()), set()
        pending: list[tuple[str, ...]] = [()]
        while pending:
            words = pending.pop()
            told = subprocess.run([PROGRAM, *words, "--help"], capture_output=True, text=True,
                                  check=True).stdout
            for form, purpose in re.findall(r"^ +(-[^\t]*)\t([^(\n]*[^(\n ])", told, re.M):
                options |= set(re.findall(r"--?[\w-]+", form))
                entry = f" {re.sub('[<>]', '', form)} "
                self.assertIn(entry, page)
                self.assertIn(purpose, page.partition(entry)[2][:300])
            for name, purpose in re.findall(r"^  ([a-z]\S*)\t(.*)", told, re.M):
                pending.append((*words, name))
                if name != "config":
                    entry = re.escape(" ".join(("", *words, name)))
                    usage = r"( \[--no-browser\]| -p ID \[-f FILE\])? "
                    self.assertRegex(page, entry + usage + re.escape(purpose))
        shown = re.findall(r"(?<![\w/-])--?[a-zA-Z][\w-]*", page.partition("EXAMPLES")[0])
        self.assertEqual(options, set(shown) - {"-no-browser"})
