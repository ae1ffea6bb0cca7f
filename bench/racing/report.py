"""Tables, comma-separated values and a plot: ratios, never bare times."""

from __future__ import annotations

import csv
import io
import math
import re
from collections.abc import Iterable, Sequence
from html import escape
from pathlib import Path

from racing.course import OURS
from racing.goals import TRUE, First, Row
from racing.growth import EIGHTHS, Growth
from racing.measure import Results, median, peak_kib

COLOURS = {OURS: "#1b6ca8", "bare client": "#7f8c8d", "curl": "#c98b1d", "curl | jq": "#b03a2e",
           "jq | curl | jq": "#b03a2e"}


def table(titles: Sequence[str], rows: Iterable[Sequence[str]]) -> str:
    """A Markdown table with columns of one width."""
    lines = [titles, *rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(titles))]
    lines.insert(1, ["-" * width for width in widths])
    padded = ([cell.ljust(width) for cell, width in zip(line, widths)] for line in lines)
    return "\n".join(f"| {' | '.join(cells)} |" for cells in padded)


GOAL_TITLES = ["race", "figure", "measured", "goal", "better still", ""]


def goal_lines(rows: list[Row]) -> list[list[str]]:
    def cells(row: Row) -> list[str]:
        bound = ">=" if row.least else "<="
        better = "" if math.isnan(row.better) else row.number(row.better)
        return [row.race, row.figure, row.number(row.value), f"{bound} {row.number(row.goal)}",
                better, row.verdict()]

    return [cells(row) for row in rows]


def base_of(runs: dict[str, object]) -> str:
    """By whose median a race's times are given."""
    return OURS if OURS in runs else TRUE


def race_lines(results: Results) -> list[list[str]]:
    """CPU and wall time by the base's; the peak memory is that of the largest process."""
    lines = []
    for race, runs in results.items():
        base = runs[base_of(dict(runs))]
        for name, samples in runs.items():
            peak = max(peak_kib(samples, stage) for stage in range(len(samples[0].peaks_kib)))
            lines.append([race, name, f"{median(samples, 'cpu_us') / median(base, 'cpu_us'):.3g}",
                          f"{median(samples, 'wall_us') / median(base, 'wall_us'):.3g}",
                          f"{peak / 1024:.3g}", f"{median(samples, 'faults'):.0f}",
                          str(len(samples))])
    return lines


RACE_TITLES = ["race", "contender", "CPU", "wall", "peak MiB", "page faults", "runs"]


def json_lines(firsts: dict[tuple[str, str], First]) -> list[list[str]]:
    return [[kind, library, f"{first.parse:.3g}", f"{first.write:.3g}", f"{first.tree:.3g}"]
            for (kind, library), first in firsts.items()]


JSON_TITLES = ["document", "library", "first parse", "first write", "memory a byte"]


def growth_lines(growths: list[Growth]) -> list[list[str]]:
    return [[growth.way, growth.kind, *(f"{cost:.2f}" for cost in growth.costs)]
            for growth in growths]


def steepest(growths: list[Growth]) -> list[Growth]:
    """Of each way, the document that grows most."""
    return [max((growth for growth in growths if growth.way == way),
                key=lambda growth: growth.costs[-1])
            for way in dict.fromkeys(growth.way for growth in growths)]


GROWTH_TITLES = ["way", "document", *(f"{eighths}/8" for eighths in EIGHTHS)]


def write_csv(path: Path, titles: Sequence[str], lines: Iterable[Sequence[str]]) -> None:
    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow(titles)
    writer.writerows(lines)
    path.write_text(text.getvalue())


class Drawing:
    """A plot in the making: text and shapes on white, so that it is read on any page."""

    def __init__(self, width: int, height: int) -> None:
        self._size = (width, height)
        self._parts: list[str] = []

    def text(self, x: float, y: float, words: str, anchor: str = "start", weight: str = "") -> None:
        bold = ' font-weight="bold"' if weight else ""
        self._parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"{bold}>'
                           f"{escape(words)}</text>")

    def bar(self, x: float, y: float, width: float, colour: str) -> None:
        self._parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="7" '
                           f'fill="{colour}"/>')

    def line(self, points: Sequence[tuple[float, float]], colour: str, width: float = 1) -> None:
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self._parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" '
                           f'stroke-width="{width}"/>')

    def svg(self) -> str:
        width, height = self._size
        return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
                f'font-family="sans-serif" font-size="11">\n'
                f'<rect width="{width}" height="{height}" fill="white"/>\n'
                + "\n".join(self._parts) + "\n</svg>\n")


def plot(results: Results, growths: list[Growth]) -> str:
    """Above: CPU time by that of quorvane, on a logarithmic scale.  Below: cost by size."""
    races = [race for race in results if OURS in results[race]]
    bars = sum(len(results[race]) for race in races)
    left, right, top, below = 190, 640, 56, 250 if growths else 20
    bottom = top + 9 * bars + 10 * len(races)
    drawing = Drawing(right + 40, bottom + below)

    def across(ratio: float) -> float:
        return left + (right - left) * (math.log10(ratio) + 1) / 3

    drawing.text(10, 18, "CPU time by quorvane's, each race in one run", weight="bold")
    key = left
    for name in (OURS, "bare client", "curl", "curl | jq"):
        drawing.bar(key, 28, 14, COLOURS[name])
        drawing.text(key + 18, 35, name if name != "curl | jq" else "curl | jq, jq | curl | jq")
        key += 40 + 6 * len(name)
    for ratio in (0.1, 1, 10, 100):
        drawing.line([(across(ratio), top - 6), (across(ratio), bottom)], "#cccccc")
        drawing.text(across(ratio), top - 9, f"{ratio:g}", "middle")
    y = float(top)
    for race in races:
        base = median(results[race][OURS], "cpu_us")
        drawing.text(left - 8, y + 4.5 * len(results[race]) + 3, race, "end")
        for name, samples in results[race].items():
            ratio = median(samples, "cpu_us") / base
            drawing.bar(across(0.1), y, max(1, across(ratio) - across(0.1)), COLOURS[name])
            y += 9
        y += 10
    if growths:
        draw_growth(drawing, growths, left, right, bottom + 60, bottom + below - 30)
    return drawing.svg()


def draw_growth(drawing: Drawing, growths: list[Growth], left: float, right: float, top: float,
                bottom: float) -> None:
    """One line for each document and way: flat, or falling, is what is wanted."""
    highest = max(2.0, *(max(growth.costs) for growth in growths))
    drawing.text(10, top - 22, "CPU time a byte by that at 1/8 of the size, "
                 f"{len(growths)} documents and ways", weight="bold")
    for level in (0, 1, 2):
        y = bottom - (bottom - top) * level / highest
        drawing.line([(left, y), (right, y)], "#cccccc")
        drawing.text(left - 8, y + 4, str(level), "end")
    across = {eighths: left + (right - left) * (eighths - 1) / 7 for eighths in EIGHTHS}
    for eighths in EIGHTHS:
        drawing.text(across[eighths], bottom + 16, f"{eighths}/8", "middle")
    for growth in growths:
        drawing.line([(across[eighths], bottom - (bottom - top) * cost / highest)
                      for eighths, cost in zip(EIGHTHS, growth.costs)], "#1b6ca855")


def renew(document: Path, name: str, text: str) -> None:
    """Puts `text` between the two marks of that name."""
    begin, end = f"<!-- {name}: begin -->", f"<!-- {name}: end -->"
    old = document.read_text()
    new, count = re.subn(f"{begin}.*?{end}", lambda _: f"{begin}\n{text}\n{end}", old,
                         flags=re.DOTALL)
    if count != 1:
        raise SystemExit(f"scripts/bench: {document} has no place for {name}")
    document.write_text(new)
