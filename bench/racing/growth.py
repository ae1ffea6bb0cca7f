"""Does the cost of a byte stay the same as the input grows?"""

from __future__ import annotations

import json
import re
import shutil
import subprocess
from collections.abc import Callable
from pathlib import Path
from typing import NamedTuple

from racing.course import (OURS, Command, Lane, Responder, Tools, document, project, response,
                           sign_in, wrapped)
from racing.measure import launch, warm_memory

EIGHTHS = (1, 2, 4, 8)
# The whole size of each kind, below every limit: 8 MiB in chunks of 512 bytes, 1,000,000 values,
# 100,000 members.  Nested documents, which a pull's answer would nest too deep, are left to
# json_bench.
FULL = 7_900_000
SIZES = {"configuration": FULL, "indented": FULL, "integers": 6_000_000, "keys": 2_400_000,
         "crafted_keys": 3_800_000, "long_strings": FULL, "escapes": FULL, "non_ascii": FULL,
         "small_objects": FULL}
ONE_BYTE_CHUNKS = FULL // 6  # Each byte of such a body takes six on the wire.


class Growth(NamedTuple):
    """What a byte costs at 1/8, 1/4, 1/2 and the whole of the size, by what it costs at 1/8."""

    kind: str
    way: str
    costs: list[float]


class Way(NamedTuple):
    """How a document travels."""

    name: str
    chunk: int
    write: int   # The server's writes; over TLS they are what the client reads.
    tls: bool


WAYS = (Way("plain, length", 0, 1 << 20, False), Way("plain, chunks of 1 byte", 1, 1 << 20, False),
        Way("plain, chunks of 512", 512, 1 << 20, False),
        Way("plain, chunks of 16 KB", 16_384, 1 << 20, False),
        Way("TLS, reads of 512", 0, 512, True), Way("TLS, reads of 16 KB", 0, 16_384, True))


def of_processes(tools: Tools, certificate: tuple[Path, Path], runs: int,
                 say: Callable[[str], None]) -> list[Growth]:
    """Whole pulls of every kind of document on every way."""
    found = []
    for kind, full in SIZES.items():
        say(kind)
        answers = tools.folder / "growing"
        answers.mkdir()
        (answers / "nothing").write_bytes(response(project(wrapped(b"0"))))
        sizes = {}
        for way in {way.chunk: way for way in WAYS}.values():
            for eighths in EIGHTHS:
                size = min(full, ONE_BYTE_CHUNKS) if way.chunk == 1 else full
                body = project(wrapped(document(tools, kind, size * eighths // 8)))
                sizes[way.chunk, eighths] = len(body)
                name = f"{way.chunk} {eighths}"
                (answers / name).write_bytes(response(body, way.chunk))
        with Responder(tools, answers) as plain, Responder(tools, answers, *certificate) as tls:
            for server in (plain, tls):
                sign_in(tools.folder, server.origin)
            for way in WAYS:
                lane = Lane(tools, tls if way.tls else plain, "", "bare_client")

                def cost(answer: str, lane: Lane = lane, runs: int = runs) -> float:
                    command: Command = lane.pull(answer).contenders[OURS]
                    warm_memory()
                    return min(sample.cpu_us for sample in launch(tools, command, runs))

                start = cost("nothing", runs=5 * runs)  # It is taken off all the others.
                costs = [(cost(f"{way.chunk} {eighths}@{way.write}") - start)
                         / sizes[way.chunk, eighths] for eighths in EIGHTHS]
                found.append(Growth(kind, way.name, [each / costs[0] for each in costs]))
        shutil.rmtree(answers)
    return found


def of_reading(tools: Tools) -> list[Growth]:
    """The response reader alone, whose reads may be of a single byte."""
    return of_benchmarks(tools, "wire_bench", "response", r"response/(?P<kind>.*)/(?P<way>\d+)/",
                         "response reader, reads of {}")


def of_json(tools: Tools) -> list[Growth]:
    """The parser and the writers alone."""
    return of_benchmarks(tools, "json_bench", "/ours/", r"(?P<way>\w+)/(?P<kind>\w+)/ours/",
                         "json {}")


def of_benchmarks(tools: Tools, program: str, chosen: str, pattern: str,
                  way: str) -> list[Growth]:
    """The benchmarks whose names hold `chosen`: `pattern` stands before the size in each."""
    done = subprocess.run(
        [tools.built / program, f"--benchmark_filter={chosen}", "--benchmark_format=json",
         "--benchmark_min_time=0.02", "--benchmark_repetitions=3"],
        check=True, capture_output=True, text=True)
    costs: dict[tuple[str, str], dict[int, list[float]]] = {}
    for row in json.loads(done.stdout)["benchmarks"]:
        name = re.fullmatch(pattern + r"(?P<size>\d+)", row["name"])
        if name and row["run_type"] == "iteration":
            sizes = costs.setdefault((name["kind"], name["way"]), {})
            sizes.setdefault(int(name["size"]), []).append(row["per_byte"])
    found = []
    for (kind, what), sizes in costs.items():
        each = [min(sizes[size]) for size in sorted(sizes)]
        found.append(Growth(kind, way.format(what), [cost / each[0] for cost in each]))
    return found
