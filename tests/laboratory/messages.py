"""docs/messages.md as data: every line that the program may print."""

import re
from typing import NamedTuple

from . import ROOT

_ROW = re.compile(r"\| `(?P<text>[^`]+)` \| (?P<where>[^|]*?) \|.*")


class Message(NamedTuple):
    """One documented line, `<...>` standing for what changes."""

    text: str
    where: str
    """"stderr" or "stdout" or "browser", a comma, and the status."""
    section: str
    """The heading above it."""

    def is_for(self, command: str) -> bool:
        """Whether this command can print it."""
        return not self.section.startswith("`") or f"`{command}`" in self.section

    def fixed_words(self) -> list[str]:
        """The pieces between the changing ones; none where the service chooses the text."""
        return [piece for piece in re.split("<[^>]*>", self.text) if piece]


class Messages:
    """All that is documented: `messages`, and the `stages` after "TLS failed at "."""

    def __init__(self) -> None:
        self.messages: list[Message] = []
        self.stages: list[str] = []
        section = heading = ""
        for line in (ROOT / "docs/messages.md").read_text().splitlines():
            row = _ROW.fullmatch(line)
            if line.startswith("## "):
                section = line[3:]
            elif not row and line.startswith("| "):
                heading = line.split("|")[1].strip()
            elif row and heading == "Stage":
                self.stages.append(row["text"])
            elif row:
                self.messages.append(Message(row["text"], row["where"], section))

    def explain(self, line: str, stream: str) -> Message | None:
        """The message that `line`, printed to `stream`, is an instance of."""
        kinds = {"<stage>": "|".join(self.stages), "<status>": "[0-9]+"}
        for message in self.messages:
            pattern = "".join(
                f"(?:{kinds.get(piece, '[^<>]*')})" if piece.startswith("<") else re.escape(piece)
                for piece in re.split("(<[^>]*>)", message.text))
            if message.where.startswith(stream) and message.fixed_words() and re.fullmatch(
                    pattern, line):
                return message
        return None
