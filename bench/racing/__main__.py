"""Races the program against what people would use instead: processes on loopback."""

import argparse
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from racing import course, figures, measure, pictures, server

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "bench"


def version(*words: str) -> str:
    return " ".join(subprocess.check_output(words, text=True).split()[:2])


def against(race: course.Race, program: str) -> course.Race:
    """The race with another build of the program among the peers."""
    ours, *_ = race.ours.stages
    other = course.Peer(race.ours._replace(stages=[[program, *ours[1:]]]), 1.05, 1.15)
    return race._replace(peers={**race.peers, "the other build": other})


def run(options: argparse.Namespace) -> list[figures.Row]:
    """Measures in the current folder, prints and draws."""
    rounds, parses, growths = (3, 2, []) if options.quick else (15, 7, [])
    begin, load = time.monotonic(), os.getloadavg()[0]
    course.put_answers()
    with server.serving() as origins:
        if options.private:
            server.trust_by_system()
        races = course.races(BUILD, origins, options.private)
        if options.against:
            races = [against(race, options.against) for race in races]
        measure.check_answers(races)
        results = measure.run_races(races, rounds)
        rows = [row for race in races for row in figures.race_rows(race, results[race.name])]
        if not options.quick:
            growths = measure.growth_of_pulls(BUILD, origins)
            rows.append(figures.growth_row(growths))
    firsts = measure.first_parses(BUILD, parses)
    rows += figures.json_rows(firsts)
    processor = [line.partition(": ")[2] for line in open("/proc/cpuinfo") if "model name" in line]
    where = (f"{os.cpu_count()} x {processor[0].strip() if processor else os.uname().machine}, "
             f"{time.strftime('%F')}")
    sections = {
        "goals": figures.table(["race", "figure", "measured", "middle half of the rounds", "goal",
                                ""], [row.cells() for row in rows]),
        "json": figures.json_table(firsts),
        "machine": f"Measured on {where}, Linux {os.uname().release.partition('-')[0]}, "
                   f"{version('curl', '--version')}, {version('jq', '--version')}, "
                   f"{version('openssl', 'version')}: {rounds} rounds, {parses} first parses, "
                   f"{(time.monotonic() - begin) / 60:.1f} minutes, a load of {load:.1f} before."}
    print("\n\n".join(sections.values()))
    if options.docs:
        for name, section in sections.items():
            figures.renew(ROOT / "docs/performance.md", name, section)
        pictures.races(ROOT / "docs/images/races.svg", results, races[:3], where)
        pictures.growth(ROOT / "docs/images/growth.svg", growths)
    return rows


def main() -> int:
    parser = argparse.ArgumentParser("scripts/bench", description=__doc__)
    parser.add_argument("--private", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--quick", action="store_true", help="a few rounds, and no growth")
    parser.add_argument("--docs", action="store_true", help="renew the tables and pictures in docs")
    parser.add_argument("--against", type=os.path.abspath, metavar="PROGRAM",
                        help="race another build of the program, too")
    options = parser.parse_args()
    if options.docs and (options.quick or options.against or not options.private):
        parser.error("--docs stands alone, and needs a system that permits namespaces")
    shared = "/dev/shm" if Path("/dev/shm").is_dir() else None
    with tempfile.TemporaryDirectory(prefix="quorvane-bench-", dir=shared) as folder:
        os.chdir(folder)
        rows = run(options)
    missed = sum(row.missed() for row in rows)
    print(f"\n{missed} of {len(rows)} figures do not reach their goals")
    return 1 if missed else 0


sys.exit(main())
