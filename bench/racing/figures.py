"""The figures to reach, and tables: ratios, never bare times."""

import math
import statistics
from pathlib import Path
from typing import NamedTuple

from racing.course import OURS, TRUE, Race
from racing.documents import KINDS, document
from racing.measure import (FULL_SIZE, LIBRARIES, Contest, Firsts, Growth, cpu_ratio, median_ratio,
                            peak_kib, user_instructions)


class Row(NamedTuple):
    """A figure, and what it should be at most."""

    race: str
    figure: str
    value: float
    goal: float
    half: list[float] = []  # The middle half of the rounds.
    unit: str = ""

    def missed(self) -> bool:
        return self.value > self.goal

    def number(self, value: float) -> str:
        if self.unit:
            return f"{value:.4g} {self.unit}"
        return f"1/{1 / value:.3g}" if value <= 0.2 else f"{value:.3g}"

    def cells(self) -> list[str]:
        judged = [f"<= {self.number(self.goal)}", "not reached" if self.missed() else "reached"]
        return [self.race, self.figure, self.number(self.value),
                " to ".join(map(self.number, self.half)),
                *(["", ""] if math.isnan(self.goal) else judged)]


def race_rows(race: Race, contest: Contest) -> list[Row]:
    rows = []
    for name, peer in race.peers.items():
        value, *half = cpu_ratio(contest, name)
        rows.append(Row(race.name, f"CPU divided by that of {name}", value, peer.goal, half))
    rows += [Row(race.name, f"peak memory divided by that of {name}",
                 peak_kib(race.ours) / peak_kib(peer.command), peer.memory)
             for name, peer in race.peers.items() if not math.isnan(peer.memory)]
    if TRUE in race.peers:
        rows += [Row(race.name, "peak memory", peak_kib(race.ours), 1536, unit="KiB"),
                 Row(race.name, "user instructions (valgrind)", user_instructions(race.ours) / 1e6,
                     0.25, unit="million")]
    if race.name == "push 100 KB, TLS":
        walls = [run.wall_us for runs in contest[OURS] for run in runs]
        rows.append(Row(race.name, "wall time, 90th percentile divided by median",
                        statistics.quantiles(walls, n=10)[-1] / statistics.median(walls), 2))
    return rows


def gain(firsts: Firsts, kind: str, library: str, field: str) -> tuple[float, float, float]:
    """Our time divided by the library's."""
    return median_ratio(*([getattr(first, f"{field}_ns") for first in firsts[kind][name]]
                          for name in ("ours", library)))


def json_rows(firsts: Firsts) -> list[Row]:
    rows = []
    for library, field, goal, kinds in (
            ("rapidjson", "parse", 1, KINDS), ("nlohmann", "parse", 1 / 2.3, KINDS),
            ("rapidjson", "parse", 1 / 1.7, ["configuration"]),
            *(("simdjson", "parse", 1, [kind])
              for kind in ("configuration", "long_strings", "non_ascii")),
            ("rapidjson", "write", 1 / 1.3, KINDS)):
        (value, *half), worst = max((gain(firsts, kind, library, field), kind) for kind in kinds)
        where = worst if len(kinds) == 1 else f"worst document: {worst}"
        rows.append(Row(f"first {field}", f"CPU divided by that of {library}, {where}", value, goal,
                        half))
    costs = {kind: [each.parse_ns / len(document(kind, FULL_SIZE)) for each in firsts[kind]["ours"]]
             for kind in ("keys", "crafted_keys", "small_objects")}
    for kind in ("keys", "crafted_keys"):
        value, *half = median_ratio(costs[kind], costs["small_objects"])
        rows.append(Row("first parse", f"CPU a byte of {kind} divided by that of small_objects",
                        value, 2, half))
    count = document("integers", FULL_SIZE).count(b",") + 1
    memory = statistics.median(first.tree_bytes for first in firsts["integers"]["ours"]) / count
    return [*rows, Row("1,000,000 integers", "memory a value, over the input", memory, 80,
                       unit="bytes")]


def growth_row(growths: list[Growth]) -> Row:
    value, worst = max((each.costs_ns[-1] / each.costs_ns[0], each.name) for each in growths)
    return Row("growth", f"CPU a byte at full size divided by 1/8, worst: {worst}", value, 1.5)


def table(titles: list[str], rows: list[list[str]]) -> str:
    """A Markdown table with columns of one width."""
    # A bar in a cell would end it.
    lines = [titles, *([cell.replace("|", "\\|") for cell in row] for row in rows)]
    widths = [max(map(len, column)) for column in zip(*lines)]
    lines.insert(1, ["-" * width for width in widths])
    return "\n".join(f"| {' | '.join(map(str.ljust, line, widths))} |" for line in lines)


def json_table(firsts: Firsts) -> str:
    columns = [(field, library) for field in ("parse", "write") for library in LIBRARIES[1:]]
    return table(["document", *map(": ".join, columns)],
                 [[kind, *(f"{1 / gain(firsts, kind, library, field)[0]:.3g}"
                           for field, library in columns)] for kind in firsts])


def renew(page: Path, name: str, text: str) -> None:
    """Puts `text` between the two marks of that name."""
    begin, end = f"<!-- {name}: begin -->", f"<!-- {name}: end -->"
    before, _, rest = page.read_text().partition(begin)
    assert end in rest, f"{page} has no place for {name}"
    page.write_text(f"{before}{begin}\n{text}\n{end}{rest.partition(end)[2]}")
