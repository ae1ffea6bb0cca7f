"""Races the program against what people would use instead: processes on loopback.

Installs the peers, builds the program as it is shipped, and prints the figures to reach with what
was measured, the JSON libraries and the growth; build/bench/performance.md holds the same.  Exit
status 1 when a figure is not reached.

Costs are the kernel's own account of each process (user and system time).  All contenders take part
in every round; a figure is the median of the ratios of the rounds.
"""

from __future__ import annotations

import argparse
import os
import platform
import subprocess
import sys
import tempfile
from pathlib import Path

from racing import course, goals, growth, measure, report

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "bench"


def say(what: str) -> None:
    print(f"  {what}", file=sys.stderr, flush=True)


def build() -> None:
    for words in (["cmake", "--preset", "release", "-B", str(BUILD), "-DQUORVANE_BENCH=ON"],
                  ["cmake", "--build", str(BUILD)]):
        done = subprocess.run(words, cwd=ROOT, check=False, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        if done.returncode:
            raise SystemExit(done.stdout)


def describe_machine(folder: Path) -> str:
    """The machine and the peers."""

    def first_line(*words: str) -> str:
        return subprocess.check_output(words, text=True).splitlines()[0]

    cpu = platform.processor()
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            cpu = line.partition(": ")[2]
            break
    kind = first_line("stat", "-f", "-c", "%T", str(folder))
    kernel = ".".join(platform.release().split(".")[:2])
    curl, openssl = (" ".join(first_line(*words).split()[:2])
                     for words in (("curl", "--version"), ("openssl", "version")))
    return (f"{os.cpu_count()} x {cpu}, Linux {kernel}, files on {kind}; {curl}, "
            f"{first_line('jq', '--version')}, {openssl}")


def run(folder: Path, quick: bool) -> tuple[dict[str, str], list[goals.Row]]:
    """The sections of the report by name, and the figures."""
    rounds, parses, growth_runs = (3, 2, 0) if quick else (15, 9, 3)
    load = measure.Load()
    tools = course.Tools(BUILD / "quorvane", BUILD / "bench", folder)
    answers = folder / "answers"
    course.make_answers(tools, answers)
    certificate = course.make_certificate(folder)
    with course.Responder(tools, answers) as plain, \
            course.Responder(tools, answers, *certificate) as tls:
        races = course.all_races(tools, plain, tls)
        measure.check_answers(tools, races)
        results = measure.run_races(tools, races, rounds, say)
    say("first parses")
    measure.warm_memory()
    firsts = measure.first_parses(tools, parses)
    rows = (goals.race_rows(results, races) + goals.start_rows(tools, results, races)
            + goals.json_rows(tools, firsts))
    order = {race.name: place for place, race in enumerate(races)}
    rows.sort(key=lambda row: order.get(row.race, len(order)))
    sections = {"goals": report.goal_table(rows), "json": report.json_table(firsts)}
    if growth_runs:
        growths = growth.of_pulls(tools, certificate, growth_runs, say)
        sections["growth"] = report.growth_table(growths)
    sections["machine"] = (
        f"Measured on {describe_machine(folder)}: {rounds} rounds of {measure.SMALL_RUNS} runs "
        f"(large documents: of 1 run), {parses} first parses of each document by each library, "
        f"{growth_runs} runs of each size; {load.describe()}.")
    return sections, rows


def main() -> int:
    parser = argparse.ArgumentParser("scripts/bench", description=__doc__.splitlines()[0])
    parser.add_argument("--quick", action="store_true", help="a few rounds, and no growth")
    parser.add_argument("--docs", action="store_true", help="renew docs/performance.md")
    parser.add_argument("--folder", type=Path, help="where files are written; /dev/shm if there")
    options = parser.parse_args()
    shared = Path("/dev/shm")
    parent = options.folder or (shared if shared.is_dir() else None)
    build()
    with tempfile.TemporaryDirectory(prefix="quorvane-bench-", dir=parent) as folder:
        sections, rows = run(Path(folder), options.quick)
    text = "\n\n".join(sections.values())
    print(text)
    (BUILD / "performance.md").write_text(text + "\n")
    if options.docs:
        for name, section in sections.items():
            report.renew(ROOT / "docs/performance.md", name, section)
    missed = [row for row in rows if row.verdict() == "not reached"]
    print(f"\n{len(rows) - len(missed)} of {len(rows)} figures reached")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
