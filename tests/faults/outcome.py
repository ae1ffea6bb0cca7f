"""What became of one run."""

from typing import NamedTuple

from .bench import COMMANDS


class Outcome(NamedTuple):
    """One run and its verdict."""

    row: int
    tls: bool
    what: str
    kind: str
    """Of a fault how the run ended, of a crash the state of the files, or `missed`."""
    violations: list[str]
    message: str = ""
    """The documented message that was printed."""

    @property
    def title(self) -> str:
        """What the command is called, over which transport."""
        return f"{COMMANDS[self.row].name} ({'tls' if self.tls else 'plain'})"
