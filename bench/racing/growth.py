"""Does the cost of a byte stay the same as the input grows?"""

from __future__ import annotations

import shutil
from collections.abc import Callable
from pathlib import Path
from typing import NamedTuple

from racing.course import Lane, Responder, Tools, document, project, response
from racing.measure import launch, warm_memory

EIGHTHS = (1, 2, 4, 8)
FULL = 7_900_000
# Below every limit: 1,000,000 values, 100,000 members.  Nested documents are not among them,
# because a pull's answer would nest them too deep.
SIZES = {"configuration": FULL, "indented": FULL, "integers": 6_000_000, "keys": 2_400_000,
         "crafted_keys": 3_800_000, "long_strings": FULL, "escapes": FULL, "non_ascii": FULL,
         "small_objects": FULL}


class Way(NamedTuple):
    """How a document travels."""

    name: str
    chunk: int = 0        # 0: framed by its length.
    write: int = 1 << 20  # The server's writes; over TLS they are what the client reads.
    tls: bool = False
    part: int = 1         # The document is that much smaller, for time or for the limits' sake.


PLAIN = Way("plain, length")
WAYS = (Way("plain, chunks of 1 byte", 1, part=6),  # Each byte takes six.
        Way("plain, chunks of 512", 512),
        Way("TLS, reads of 16 KB", write=16_384, tls=True),
        Way("TLS, reads of 512", write=512, tls=True),
        Way("TLS, reads of 1 byte", write=1, tls=True, part=32),
        Way("TLS, chunks of 512 in reads of 1 byte", 512, write=1, tls=True, part=32))
SERIES = [(kind, PLAIN) for kind in SIZES] + [("configuration", way) for way in WAYS]


class Growth(NamedTuple):
    """What a byte costs at 1/8, 1/4, 1/2 and the full size, by what it costs at 1/8."""

    kind: str
    way: str
    costs: list[float]


def of_pulls(tools: Tools, certificate: tuple[Path, Path], runs: int,
             say: Callable[[str], None]) -> list[Growth]:
    """Complete pulls: every kind of document in one way, one kind in every other way."""
    found = []
    for kind, way in SERIES:
        say(f"growth: {kind}, {way.name}")
        answers = tools.folder / "growing"
        answers.mkdir()
        (answers / "0").write_bytes(response(project(b'{"data":0}')))
        sizes = []
        for eighths in EIGHTHS:
            config = document(tools, kind, SIZES[kind] // way.part * eighths // 8)
            body = project(b'{"data":%s}' % config)
            sizes.append(len(body))
            (answers / str(eighths)).write_bytes(response(body, way.chunk))
        with Responder(tools, answers, *(certificate if way.tls else ())) as server:
            lane = Lane(tools, server, "")

            def cost(eighths: int, runs: int, lane: Lane = lane, way: Way = way) -> float:
                warm_memory()
                command = lane.pull(f"{eighths}@{way.write}")
                return min(sample.cpu_us for sample in launch(tools, command, runs))

            start = cost(0, 5 * runs)  # It is taken off all the others.
            costs = [(cost(eighths, runs) - start) / size
                     for eighths, size in zip(EIGHTHS, sizes)]
        found.append(Growth(kind, way.name, [each / costs[0] for each in costs]))
        shutil.rmtree(answers)
    return found
