"""docs/messages.md as data: every line that the program may print."""

from __future__ import annotations

import re
from pathlib import Path
from typing import NamedTuple

DOCUMENT = Path(__file__).resolve().parents[2] / "docs" / "messages.md"

_ROW = re.compile(r"\| `(?P<text>[^`]+)` \| (?P<rest>.*)\|")


class Message(NamedTuple):
    """One documented line, with `<...>` for changing parts; if nothing is fixed, the service
    chooses the text."""

    text: str
    where: str
    """"stderr" or "stdout" or "browser", a comma, and the status."""

    def fixed_words(self) -> list[str]:
        """The pieces between the changing ones."""
        return [piece for piece in re.split("<[^>]*>", self.text) if piece]


class Messages(NamedTuple):
    """All documented messages."""

    messages: list[Message]
    stages: list[str]
    """The words after "TLS failed at "."""

    def explain(self, line: str, stream: str) -> Message | None:
        """The message that `line`, printed to `stream`, is an instance of."""
        for message in self.messages:
            if message.where.startswith(stream) and message.fixed_words():
                if self._pattern(message).fullmatch(line):
                    return message
        return None

    def _pattern(self, message: Message) -> re.Pattern[str]:
        pieces = re.split("(<[^>]*>)", message.text)
        kinds = {"<stage>": "|".join(self.stages), "<status>": "[0-9]+"}
        return re.compile("".join(
            f"(?:{kinds.get(piece, '[^<>]*')})" if piece.startswith("<") else re.escape(piece)
            for piece in pieces))


def read_messages(document: Path = DOCUMENT) -> Messages:
    """Reads the tables: those headed "Message", and the one headed "Stage"."""
    found = Messages([], [])
    heading = ""
    for line in document.read_text().splitlines():
        if line.startswith("| ") and not line.startswith("| `"):
            heading = line.split("|")[1].strip()
        elif row := _ROW.fullmatch(line):
            if heading == "Stage":
                found.stages.append(row["text"])
            else:
                found.messages.append(Message(row["text"], row["rest"].split(" | ")[0].strip()))
    return found
