"""The races and the growth as drawings, by gnuplot."""

import subprocess
from pathlib import Path

from racing.course import OURS, Race
from racing.measure import Contest, Growth, cpu_ratio
from racing.server import WAYS

# Text stays text, and the white ground makes it readable on dark pages as well.
HEAD = """
set terminal svg size 900,{height} noenhanced font "sans-serif,15" background "#ffffff"
set output "{file}"; unset key
"""
BARS = """
unset border; unset xtics; set ytics scale 0; set tmargin 3; set bmargin 2
set title "CPU time of a call, divided by the program's"
set label "{under}" at screen 0.5,0.04 center font ",12"
set xrange [0:{widest}]; set yrange [{rows}:0.5]
plot "-" using 2:1:(0):2:($1-0.38):($1+0.38):3:ytic(4) with boxxyerror fs solid lc rgb var, \\
     "-" using 2:1:3 with labels left offset 0.5,0
{bars}e
{labels}e
"""
PANEL = """
set title "{title}"; set logscale xy; set format x "%.0s %cB"
set border 3; set tics nomirror; set ytics add (0.5, 2); set lmargin 8
set xrange [*:{last} * 12]; set yrange [{low}:{high}]
plot {plots}, "-" with lines lc rgb "#b0b8c0", "-" with labels left offset 0.4,0 font ",12"
{lines}{leaders}e
{names}e
"""


def draw(script: str) -> None:
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def races(file: Path, results: dict[str, Contest], drawn: list[Race], under: str) -> None:
    """A bar for every contender of a race, as a multiple of the program's."""
    bars, labels, row, widest = "", "", 0.0, 0.0
    for race in drawn:
        row += 1.5
        labels += f'{row} 0 "{race.name}"\n'
        for name in (OURS, *list(race.peers)[:2]):
            row += 1
            ratio = 1 if name == OURS else 1 / cpu_ratio(results[race.name], name)[0]
            widest = max(widest, ratio)
            bars += f'{row} {ratio} {"0x1f6feb" if name == OURS else "0xb0b8c0"} "{name}"\n'
            labels += f'{row} {ratio} "{ratio:.3g}"\n'
    draw(HEAD.format(height=380, file=file) + BARS.format(
        under=under, widest=1.1 * widest, rows=row + 1, bars=bars, labels=labels))


def panel(title: str, growths: list[Growth], unit: float) -> str:
    """A line for every one, named at its end."""
    costs = [cost / unit for each in growths for cost in each.costs_ns]
    low, high, last = min(costs) * 0.8, max(costs) * 1.5, max(each.sizes[-1] for each in growths)
    lines = leaders = names = ""
    above = low
    for each in sorted(growths, key=lambda each: each.costs_ns[-1]):
        points = [f"{size} {cost / unit}\n" for size, cost in zip(each.sizes, each.costs_ns)]
        lines += "".join(points) + "e\n"
        # A name stays off the one below it, and off the lines beside it.
        above = max(each.costs_ns[-1] / unit, above * (high / low) ** 0.075)
        place = 1.2 * (last if each.sizes[-1] * 4 > last else each.sizes[-1])
        leaders += f"{points[-1]}{place} {above}\n\n"
        names += f'{place} {above} "{each.name}"\n'
    plots = ", ".join(['"-" with linespoints pt 7 ps 0.4 lc rgb "#1f6feb"'] * len(growths))
    return PANEL.format(title=title, last=last, low=low, high=max(high, above * 1.2), plots=plots,
                        lines=lines, leaders=leaders, names=names)


def growth(file: Path, growths: list[Growth]) -> None:
    unit = growths[0].costs_ns[-1]
    title = "CPU time of a byte by the size of the document, divided by the plain configuration's"
    draw(HEAD.format(height=800, file=file) + f'set multiplot layout 2,1 title "{title}"\n'
         + panel("every kind of document, plain", [g for g in growths if g.name not in WAYS], unit)
         + panel("a configuration in every way", [g for g in growths if g.name in WAYS], unit))
