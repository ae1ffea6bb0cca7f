"""Running commands and taking the kernel's account of them."""

from __future__ import annotations

import json
import mmap
import os
import re
import statistics
import subprocess
import time
from collections.abc import Callable
from pathlib import Path
from typing import NamedTuple

from racing.course import CURL_JQ, Command, Race, Tools, document

OURS = "quorvane"
SMALL_RUNS = 20  # Of each contender in each round, after one that is not counted.
WARMED_BYTES = 128 << 20


class Sample(NamedTuple):
    """What one run of a pipeline cost."""

    cpu_us: float   # User and system time of all its processes.
    wall_us: float
    peaks_kib: list[int]  # Resident memory, of each process.


Results = dict[str, dict[str, list[list[Sample]]]]
"""By race, contender and round."""


class Failed(Exception):
    """A command ended as it should not have."""


def environment(folder: Path) -> dict[str, str]:
    """The environment of every command: no user's settings, and a trust file of one certificate."""
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
                              [row[5] for row in stages]))
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


def contenders(race: Race) -> dict[str, Command]:
    return {OURS: race.ours, **{name: peer.command for name, peer in race.peers.items()}}


def check_answers(tools: Tools, races: list[Race]) -> None:
    """Runs every contender once: each must succeed, and both ways of pulling give the same."""
    for race in races:
        for command in contenders(race).values():
            launch(tools, command, 1)
        if race.name.startswith("pull") and CURL_JQ in race.peers:
            # As values: jq writes numbers in its own form.
            ours, theirs = (json.loads((tools.folder / name).read_bytes())
                            for name in ("pulled.json", "picked.json"))
            if ours != theirs:
                raise Failed(f"{race.name}: not what curl | jq pulls")


def run_races(tools: Tools, races: list[Race], rounds: int, say: Callable[[str], None]) -> Results:
    """Every contender in every round; each round begins with another one."""
    results: Results = {race.name: {name: [] for name in contenders(race)} for race in races}
    for turn in range(rounds):
        say(f"round {turn + 1} of {rounds}")
        for race in races:
            commands = list(contenders(race).items())
            first = turn % len(commands)
            for name, command in commands[first:] + commands[:first]:
                # Large runs begin with warm memory every time: what is free for a few seconds may
                # go back to the host.  Small ones need little memory, but the processor's cache.
                if race.large:
                    warm_memory()
                    samples = launch(tools, command, 1)
                else:
                    samples = launch(tools, command, 1 + SMALL_RUNS)[1:]
                results[race.name][name].append(samples)
    return results


class First(NamedTuple):
    """The first parse and the first write of a process, of one library."""

    parse_ns: float
    write_ns: float
    tree_bytes: float


LIBRARIES = ("ours", "rapidjson", "simdjson", "nlohmann")
KINDS = ("configuration", "indented", "integers", "keys", "crafted_keys", "long_strings", "escapes",
         "non_ascii", "nested", "small_objects")
FULL_SIZE = 8_300_000  # Just under the limit of 8 MiB.


def first_parses(tools: Tools, rounds: int) -> dict[str, dict[str, list[First]]]:
    """By kind of document and library, one for each round."""
    firsts: dict[str, dict[str, list[First]]] = {}
    path = tools.folder / "document.json"
    for kind in KINDS:
        path.write_bytes(document(tools, kind, FULL_SIZE))
        firsts[kind] = {library: [] for library in LIBRARIES}
        for _ in range(rounds):
            for library in LIBRARIES:
                words = ["json_ours"] if library == "ours" else ["json_peers", library]
                with path.open("rb") as file:
                    line = subprocess.check_output([tools.built / words[0], *words[1:]],
                                                   stdin=file, text=True)
                firsts[kind][library].append(First(*map(float, line.split())))
    return firsts


def user_instructions(tools: Tools, command: Command) -> tuple[int, str]:
    """How many instructions one run takes in user mode, and who counted them."""
    counted = tools.folder / "counted"
    for counter, words, pattern in (
            ("perf", ["perf", "stat", "-x", ",", "-e", "instructions:u", "-o", str(counted)],
             r"^(\d+),"),
            ("valgrind", ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                          f"--log-file={counted}"], r"Collected : (\d+)")):
        try:
            subprocess.run([*words, *command.words], cwd=tools.folder, check=False,
                           env=environment(tools.folder), stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL)
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
        self._busy_s = self._measure_busy_s()
        self._own_s = sum(os.times()[:4])
        self._start = time.monotonic()

    @staticmethod
    def _measure_busy_s() -> float:
        fields = [int(field) for field in Path("/proc/stat").read_text().split("\n")[0].split()[1:]]
        idle = fields[3] + fields[4]
        return (sum(fields[:8]) - idle) / os.sysconf("SC_CLK_TCK")

    def describe(self) -> str:
        elapsed_s = time.monotonic() - self._start
        others_s = self._measure_busy_s() - self._busy_s - (sum(os.times()[:4]) - self._own_s)
        share = max(0.0, others_s) / (elapsed_s * (os.cpu_count() or 1))
        return (f"{elapsed_s / 60:.1f} minutes, load average {self._before:.1f} before and "
                f"{os.getloadavg()[0]:.1f} after; other processes took {share:.0%} of the "
                f"machine's CPU time")


def median_ratio(ours: list[float], theirs: list[float]) -> tuple[float, float, float]:
    """Of the ratios of the rounds the median, and the bounds of the middle half."""
    ratios = [mine / other for mine, other in zip(ours, theirs, strict=True)]
    if len(ratios) < 2:
        return ratios[0], ratios[0], ratios[0]
    low, middle, high = statistics.quantiles(ratios, n=4, method="inclusive")
    return middle, low, high
