"""Tables: ratios, never bare times."""

from __future__ import annotations

import math
import re
from collections.abc import Iterable, Sequence
from pathlib import Path

from racing.goals import Firsts, Row, gain
from racing.growth import EIGHTHS, Growth
from racing.measure import LIBRARIES


def table(titles: Sequence[str], rows: Iterable[Sequence[str]]) -> str:
    """A Markdown table with columns of one width."""
    # A bar in a cell would end it.
    lines = [titles, *([cell.replace("|", "\\|") for cell in row] for row in rows)]
    widths = [max(len(line[i]) for line in lines) for i in range(len(titles))]
    lines.insert(1, ["-" * width for width in widths])
    padded = ([cell.ljust(width) for cell, width in zip(line, widths)] for line in lines)
    return "\n".join(f"| {' | '.join(cells)} |" for cells in padded)


def goal_table(rows: list[Row]) -> str:
    def cells(row: Row) -> list[str]:
        bound = ">=" if row.least else "<="
        half = " to ".join(map(row.number, row.half)) if row.half else ""
        better = "" if math.isnan(row.better) else row.number(row.better)
        return [row.race, row.figure, row.number(row.value), half,
                f"{bound} {row.number(row.goal)}", better, row.verdict()]

    return table(["race", "figure", "measured", "middle half of the rounds", "goal",
                  "better still", ""], map(cells, rows))


def json_table(firsts: Firsts) -> str:
    peers = [library for library in LIBRARIES if library != "ours"]
    rows = [[kind] + [f"{gain(firsts, kind, library, f'{field}_ns')[0]:.3g}"
                      for field in ("parse", "write") for library in peers] for kind in firsts]
    return table(["document"] + [f"{field}: {library}" for field in ("parse", "write")
                                 for library in peers], rows)


def growth_table(growths: list[Growth]) -> str:
    return table(["way", "document", *(f"{eighths}/8" for eighths in EIGHTHS)],
                 [[growth.way, growth.kind, *(f"{cost:.2f}" for cost in growth.costs)]
                  for growth in growths])


def renew(document: Path, name: str, text: str) -> None:
    """Puts `text` between the two marks of that name."""
    begin, end = f"<!-- {name}: begin -->", f"<!-- {name}: end -->"
    old = document.read_text()
    new, count = re.subn(f"{begin}.*?{end}", lambda _: f"{begin}\n{text}\n{end}", old,
                         flags=re.DOTALL)
    if count != 1:
        raise SystemExit(f"scripts/bench: {document} has no place for {name}")
    document.write_text(new)
