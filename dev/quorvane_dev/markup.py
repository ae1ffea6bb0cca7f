"""Pieces of pages.  All text that is put into markup is escaped, unless it is markup itself."""

from __future__ import annotations

import html
import time
from collections.abc import Sequence

from .differences import Line
from .jsontext import HIDDEN


class Html(str):
    """Text that is markup already."""


def visible(text: str) -> str:
    """Shows invisible and reordering characters by their numbers."""
    return HIDDEN.sub(lambda match: f"\u27e8U+{ord(match[0]):04X}\u27e9", text)


def _escape(value: object) -> str:
    if isinstance(value, Html):
        return value
    if isinstance(value, (list, tuple)):
        return "".join(_escape(item) for item in value)
    return html.escape(visible(str(value)))


def tag(template: str, *values: object) -> Html:
    """Fills the template's {}, each value escaped; a list's items follow one another."""
    return Html(template.format(*(_escape(value) for value in values)))


def moment(seconds: float) -> Html:
    """A point in time, to the minute."""
    utc = time.gmtime(seconds)
    return tag('<time datetime="{}">{}</time>', time.strftime("%Y-%m-%dT%H:%M:%SZ", utc),
               time.strftime("%-d %B %Y, %H:%M UTC", utc))


def notice(kind: str, text: object) -> Html:
    """A message above a page's content; `kind` is "good", "bad" or "note"."""
    return tag('<div class="notice {}" role="{}">{}</div>', kind,
               "alert" if kind == "bad" else "status", text)


def excerpt(text: str, line: int, column: int) -> Html:
    """The lines around a position, with a mark below the place."""
    rows: list[Html] = []
    lines = text.split("\n")
    for number in range(max(1, line - 2), min(len(lines), line + 1) + 1):
        start = max(0, column - 60)
        shown = lines[number - 1][start:start + 120]
        rows.append(tag("{}  {}\n", f"{number:>6}", shown))
        if number == line:
            width = len(visible(lines[number - 1][start:column - 1]).expandtabs(8))
            rows.append(tag("{}  {}<mark>^</mark>\n", " " * 6, " " * width))
    return tag("<pre>{}</pre>", rows)


def table(heads: Sequence[str], rows: Sequence[Sequence[object]]) -> Html:
    """A table, which scrolls where the page is too narrow for it."""
    return tag('<div class="wide"><table><thead><tr>{}</tr></thead><tbody>{}</tbody></table></div>',
               [tag("<th>{}</th>", head) for head in heads],
               [tag("<tr>{}</tr>", [tag("<td>{}</td>", cell) for cell in row]) for row in rows])


def difference_table(lines: Sequence[Line] | None) -> Html:
    """The differences of two texts, or a sentence where there is nothing to show."""
    if lines is None:
        return tag("<p>There are too many differences to show line by line.</p>")
    if not lines:
        return tag("<p>The two are the same.</p>")
    names = {"-": "del", "+": "ins", " ": "same"}
    signs = {"-": "\u2212", "+": "+", " ": ""}
    rows = [tag('<tr class="gap"><td colspan="4">\u22ee</td></tr>') if line.kind == "@" else
            tag('<tr class="{}"><td>{}</td><td>{}</td><td>{}</td><td>{}</td></tr>',
                names[line.kind], line.old or "", line.new or "", signs[line.kind], line.text)
            for line in lines]
    return tag('<div class="wide"><table class="difference"><thead class="unseen"><tr>'
               "<th>Old line</th><th>New line</th><th>Change</th><th>Text</th></tr></thead>"
               "<tbody>{}</tbody></table></div>", rows)
