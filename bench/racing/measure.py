"""Running commands and taking the kernel's account of them."""

from __future__ import annotations

import mmap
import os
import re
import statistics
import subprocess
import time
from collections.abc import Callable
from pathlib import Path
from typing import NamedTuple

from racing.course import Command, Race, Tools


class Sample(NamedTuple):
    """What one run of a pipeline cost."""

    cpu_us: float   # User and system time of all its processes.
    wall_us: float
    peaks_kib: list[int]  # Resident memory, of each process.
    faults: int     # Minor and major, of all.


WARMED_BYTES = 128 << 20
Results = dict[str, dict[str, list[Sample]]]


class Failed(Exception):
    """A command ended as it should not have."""


def environment(folder: Path) -> dict[str, str]:
    """What every command runs in: nobody's own settings, and a trust file of one certificate."""
    return {"PATH": os.environ["PATH"], "HOME": str(folder), "LC_ALL": "C",
            "XDG_CONFIG_HOME": str(folder / "config"),
            "SSL_CERT_FILE": str(folder / "localhost.pem")}


def launch(tools: Tools, command: Command, runs: int) -> list[Sample]:
    words = [str(tools.built / "launch"), str(runs), "/dev/null", command.output, command.remove,
             *command.words]
    # What the commands say to standard error goes to a file: a reader at a pipe would be woken.
    with (tools.folder / "stderr").open("w") as errors:
        done = subprocess.run(words, cwd=tools.folder, env=environment(tools.folder), check=False,
                              stdout=subprocess.PIPE, stderr=errors, text=True)
    rows = [[int(field) for field in line.split()] for line in done.stdout.splitlines()]
    if done.returncode or not rows or any(row[2] != command.status for row in rows):
        raise Failed(f"{' '.join(words)}\n{done.stdout}{(tools.folder / 'stderr').read_text()}")
    samples = []
    for run in range(runs):
        stages = [row for row in rows if row[0] == run]
        samples.append(Sample(sum(row[3] + row[4] for row in stages), stages[0][1],
                              [row[5] for row in stages], sum(row[6] + row[7] for row in stages)))
    return samples


def warm_memory() -> None:
    """Touches huge pages and gives them back.  Where the machine is a guest, memory that was never
    used costs milliseconds at its first touch: that is the host's work, and no contender's."""
    # Private: shared memory has no huge pages.
    with mmap.mmap(-1, WARMED_BYTES, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS) as memory:
        if hasattr(mmap, "MADV_HUGEPAGE"):
            memory.madvise(mmap.MADV_HUGEPAGE)
        for at in range(0, WARMED_BYTES, mmap.PAGESIZE * 512):
            memory[at] = 1


def run_races(tools: Tools, races: list[Race], rounds: int, say: Callable[[str], None]) -> Results:
    """Every contender in every round; each round begins with another one."""
    results: Results = {race.name: {name: [] for name in race.contenders} for race in races}
    for turn in range(rounds):
        say(f"round {turn + 1} of {rounds}")
        for race in races:
            names = list(race.contenders)
            first = turn % len(names)
            for name in names[first:] + names[:first]:
                # Every time: what is free for a few seconds may go back to the host.  Small runs
                # need little, and would find the processor's cache emptied.
                if race.large:
                    warm_memory()
                # The first run finds the machine as the one before left it.
                warm = 0 if race.large else 1
                samples = launch(tools, race.contenders[name], 1 if race.large else 11)
                results[race.name][name] += samples[warm:]
    return results


def median(samples: list[Sample], field: str) -> float:
    return float(statistics.median(getattr(sample, field) for sample in samples))


def peak_kib(samples: list[Sample], stage: int = 0) -> float:
    return statistics.median(sample.peaks_kib[stage] for sample in samples)


def user_instructions(tools: Tools, command: Command) -> tuple[int, str]:
    """How many instructions one run takes in user mode, and who counted them."""
    environ = environment(tools.folder)
    counted = tools.folder / "counted"
    for counter, words, pattern in (
            ("perf", ["perf", "stat", "-x", ",", "-e", "instructions:u", "-o", str(counted)],
             r"^(\d+),"),
            ("valgrind", ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                          f"--log-file={counted}"], r"Collected : (\d+)")):
        try:
            subprocess.run([*words, *command.words], cwd=tools.folder, env=environ, check=False,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        except FileNotFoundError:
            continue
        text = counted.read_text() if counted.exists() else ""
        if found := re.search(pattern, text, re.MULTILINE):
            return int(found[1]), counter
    raise SystemExit("scripts/bench: neither perf nor valgrind counts instructions here")


class Load:
    """How busy the machine was with other things."""

    def __init__(self) -> None:
        self._before = os.getloadavg()[0]
        self._busy = self._busy_s()
        self._own = self._own_s()
        self._start = time.monotonic()

    @staticmethod
    def _busy_s() -> float:
        fields = [int(field) for field in Path("/proc/stat").read_text().split("\n")[0].split()[1:]]
        idle = fields[3] + fields[4]
        return (sum(fields[:8]) - idle) / os.sysconf("SC_CLK_TCK")

    @staticmethod
    def _own_s() -> float:
        return sum(os.times()[:4])

    def describe(self) -> str:
        elapsed = (time.monotonic() - self._start) * (os.cpu_count() or 1)
        others = self._busy_s() - self._busy - (self._own_s() - self._own)
        return (f"load average {self._before:.1f} before and {os.getloadavg()[0]:.1f} after; other "
                f"processes took {max(0.0, others) / elapsed:.0%} of the machine's CPU time")
