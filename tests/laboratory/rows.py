"""Tables: each row one run of the program in a home of its own, several rows at once."""

import unittest
from collections.abc import Callable, Iterable, Mapping
from concurrent.futures import ThreadPoolExecutor
from dataclasses import KW_ONLY, dataclass, field
from typing import Any

from .home import File, Result, Scene, difference
from .peers import Script


@dataclass(frozen=True)
class Row:
    """One run of the program and what is expected of it."""
    # ORIGIN stands for the peer's origin.  A run with a `peer` makes exactly the call `sent`, one
    # without makes none.  Nothing but `changed` changes in the home.

    name: str
    """The fault that the row would catch, or the case."""
    _: KW_ONLY
    words: str = "whoami"
    expect: Result
    peer: Script = ()
    """What the service does on the one connection."""
    sent: tuple[str, ...] = ("/api/v1/account",)
    """Path and, unless it is {}, body."""
    changed: Mapping[str, File] = field(default_factory=dict)
    """New and changed files."""
    prepare: Callable[[Scene], object] | None = None
    options: Mapping[str, Any] = field(default_factory=dict)
    """What Popen takes: umask, stdout."""


SELECTED_ROW = ""
"""The one row that is wanted; empty for all."""
met_rows: list[str] = []


def same(what: str, came: Any, wanted: Any) -> None:
    """Fails in three lines when `came` is not what was `wanted`."""
    if came != wanted:
        raise AssertionError(f"{what}\n  wanted: {wanted!r:.1500}\n  came:   {came!r:.1500}")


class Rows(unittest.TestCase):
    """A case whose tests are tables."""

    def each(self, table: Iterable[Any], check: Callable[[Any], None]) -> None:
        """Calls `check` with every row, several at once; a row has a name."""
        rows = [row for row in table if SELECTED_ROW in ("", row.name)]
        met_rows.extend(row.name for row in rows)
        with ThreadPoolExecutor(6) as pool:
            for name, future in [(row.name, pool.submit(check, row)) for row in rows]:
                with self.subTest(name):
                    future.result()

    def run_rows(self, *table: Row) -> None:
        """Checks runs of the program."""
        self.each(table, self.check_run)

    def check_run(self, row: Row) -> None:
        with Scene(*([row.peer] if row.peer else [])) as scene:
            if row.prepare:
                row.prepare(scene)
            before = scene.files()
            origin = scene.origin.encode()
            expected = row.expect._replace(err=row.expect.err.replace(b"ORIGIN", origin))
            same("status, output and errors", scene.run(*row.words.split(), **row.options), expected)
            same("files that changed", difference(before, scene.files()), {
                name: (mode, content.replace(b"ORIGIN", origin))
                for name, (mode, content) in row.changed.items()})
        same("requests", scene.peer.requests, [scene.request(*row.sent)] if row.peer else [])
