"""Running commands and taking the kernel's account of them."""

import json
import mmap
import os
import re
import statistics
import subprocess
import sys
import time
from pathlib import Path
from typing import NamedTuple

from racing.course import CURL_JQ, OURS, Command, Lane, Race
from racing.documents import KINDS, document
from racing.server import PLAIN, WAYS, project

SMALL_RUNS = 20  # Of each contender in each round, after one that is not counted.
LIBRARIES = ("ours", "rapidjson", "simdjson", "nlohmann")
FULL_SIZE = 8_300_000  # Just under the limit of 8 MiB.


class Sample(NamedTuple):
    """What a run of a pipeline cost."""

    cpu_us: float  # User and system time of all its processes.
    wall_us: float


class First(NamedTuple):
    """The first parse and the first write of a process, of one library."""

    parse_ns: float
    write_ns: float
    tree_bytes: float


class Growth(NamedTuple):
    """What a byte of a complete pull costs at 1/8, 1/4, 1/2 and the full size."""

    name: str  # Of the document or of the way.
    sizes: list[int]
    costs_ns: list[float]


Contest = dict[str, list[list[Sample]]]  # By contender and round.
Firsts = dict[str, dict[str, list[First]]]  # By kind of document and library.


def environment(store: bool) -> dict[str, str]:
    """No user's settings, and unless the system's store decides, a trust file of one authority."""
    folder = os.getcwd()
    own = {} if store else {"SSL_CERT_FILE": f"{folder}/ca.pem"}
    return {"HOME": folder, "LC_ALL": "C", "XDG_CONFIG_HOME": f"{folder}/config", **own}


def run(command: Command) -> Sample:
    """Runs it once; wait4 tells the cost of each process alone, and posix_spawn copies nothing."""
    Path("pulled.json").unlink(missing_ok=True)
    chosen = environment(command.store)
    source = os.open("/dev/null", os.O_RDONLY)
    output, errors = (os.open(name, os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
                      for name in (command.output, "errors"))
    processes = []
    begin = time.perf_counter()
    for words in command.stages:
        following, target = (-1, output) if words is command.stages[-1] else os.pipe()
        streams = [(os.POSIX_SPAWN_DUP2, file, number)
                   for number, file in enumerate((source, target, errors))]
        processes.append(os.posix_spawn(words[0], words, chosen, file_actions=streams))
        os.close(source)
        os.close(target)
        source = following
    ends = [os.wait4(process, 0) for process in processes]
    wall_us = (time.perf_counter() - begin) * 1e6
    os.close(errors)
    if any(os.waitstatus_to_exitcode(status) != command.status for _, status, _ in ends):
        raise SystemExit(f"scripts/bench: {command}\n{Path('errors').read_text()}")
    return Sample(sum(usage.ru_utime + usage.ru_stime for *_, usage in ends) * 1e6, wall_us)


def peak_kib(command: Command) -> float:
    """The resident memory of its largest process."""
    # By GNU time: a process inherits the peak of the one that starts it, and Python's is high.
    files = [f"peak{place}" for place in range(len(command.stages))]
    timed = command._replace(stages=[["/usr/bin/time", "-f%M", f"-o{file}", *words]
                                     for file, words in zip(files, command.stages)])
    return statistics.median(max(int(Path(file).read_text().split()[-1]) for file in files)
                             for _ in range(5) if run(timed))


def user_instructions(command: Command) -> int:
    subprocess.run(["/usr/bin/valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                    "--log-file=counted", *command.stages[0]], check=False, capture_output=True,
                   env=environment(False))
    return int(re.findall(r"Collected : (\d+)", Path("counted").read_text())[0])


def warm_memory() -> None:
    """Touches huge pages and gives them back."""
    # Where the machine is a guest, memory that was never used costs milliseconds at its first
    # touch: that is the host's work, and no contender's.  Shared memory has no huge pages.
    with mmap.mmap(-1, 128 << 20, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS) as memory:
        memory.madvise(mmap.MADV_HUGEPAGE)
        for at in range(0, len(memory), mmap.PAGESIZE * 512):
            memory[at] = 1


def contenders(race: Race) -> dict[str, Command]:
    return {OURS: race.ours, **{name: peer.command for name, peer in race.peers.items()}}


def check_answers(races: list[Race]) -> None:
    """Runs every contender once: each must succeed, and both ways of pulling give the same."""
    for race in races:
        for command in reversed(contenders(race).values()):
            run(command)
        if CURL_JQ in race.peers and race.name.startswith("pull"):
            # As values: jq writes numbers in its own form.
            ours, theirs = (json.loads(Path(name).read_bytes())
                            for name in ("pulled.json", "picked.json"))
            assert ours == theirs, f"{race.name}: not what curl | jq pulls"


def run_races(races: list[Race], rounds: int) -> dict[str, Contest]:
    """Every contender in every round; each round begins with another one."""
    results = {race.name: {name: [] for name in contenders(race)} for race in races}
    for turn in range(rounds):
        print(f"  round {turn + 1} of {rounds}", file=sys.stderr)
        for race in races:
            commands = list(contenders(race).items())
            first = turn % len(commands)
            for name, command in commands[first:] + commands[:first]:
                # Large runs begin with warm memory every time: what is free for a few seconds may
                # go back to the host.  Small ones need little memory, but the processor's cache.
                _ = warm_memory() if race.large else run(command)
                runs = 1 if race.large else SMALL_RUNS
                results[race.name][name].append([run(command) for _ in range(runs)])
    return results


def first_parses(built: Path, rounds: int) -> Firsts:
    firsts: Firsts = {kind: {library: [] for library in LIBRARIES} for kind in KINDS}
    for kind in KINDS:
        Path("document").write_bytes(document(kind, FULL_SIZE))
        warm_memory()
        for library in LIBRARIES * rounds:
            words = ["json_ours"] if library == "ours" else ["json_peers", library]
            with open("document", "rb") as file:
                line = subprocess.check_output([built / "bench" / words[0], *words[1:]], stdin=file)
            firsts[kind][library].append(First(*map(float, line.split())))
    return firsts


def growth_of_pulls(built: Path, origins: dict[str, str]) -> list[Growth]:
    """Every kind of document in one way, and one kind in every other way."""
    found = []
    # A pull's answer would nest the nested documents too deep.
    for kind, way in [*((kind, PLAIN) for kind in KINDS if kind != "nested"),
                      *(("configuration", way) for way in WAYS if way != PLAIN)]:
        print(f"  growth: {kind}, {way}", file=sys.stderr)
        lane = Lane(built, origins[way])
        # Byte by byte the server would take minutes; the rest leaves space for what surrounds it.
        most = 125_000 if "reads of 1" in way else 1_000_000 if "chunks of 1 " in way else FULL_SIZE
        full = min(most, len(document(kind, FULL_SIZE)) * 95 // 100)
        sizes, costs_us = [], []
        for eighths in (0, 1, 2, 4, 8):
            data = document(kind, full * eighths // 8) if eighths else b"0"
            Path("answers/growing").write_bytes(project(b'{"data":%s}' % data))
            warm_memory()
            sizes.append(len(data))
            costs_us.append(min(run(lane.pull("growing")).cpu_us
                                for _ in range(3 if eighths else 15)))
        # The start of the process is not part of it.
        costs_ns = [(cost - costs_us[0]) * 1e3 / size for cost, size in zip(costs_us, sizes)]
        found.append(Growth(kind if way == PLAIN else way, sizes[1:], costs_ns[1:]))
    return found


def median_ratio(ours: list[float], theirs: list[float]) -> tuple[float, float, float]:
    """Of the rounds' ratios the median, and the bounds of the middle half."""
    ratios = [mine / other for mine, other in zip(ours, theirs, strict=True)]
    low, middle, high = statistics.quantiles(ratios, n=4, method="inclusive")
    return middle, low, high


def cpu_ratio(contest: Contest, peer: str) -> tuple[float, float, float]:
    """What the program costs divided by what the peer does."""
    return median_ratio(*([statistics.median(sample.cpu_us for sample in samples)
                           for samples in contest[name]] for name in (OURS, peer)))
