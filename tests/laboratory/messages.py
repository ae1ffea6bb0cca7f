"""docs/messages.md as data: every line that the program may print."""

import re
from typing import NamedTuple

from . import ROOT


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
        section = ""
        for line in (ROOT / "docs/messages.md").read_text().splitlines():
            row = re.match(r"\| `([^`]+)` \| (.*?) \|", line)
            if line.startswith("## "):
                section = line[3:]
            elif row and re.match("(stderr|stdout|browser), ", row[2]):
                self.messages.append(Message(row[1], row[2], section))
            elif row:
                self.stages.append(row[1])

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
