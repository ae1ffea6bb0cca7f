"""The figures to reach."""

from __future__ import annotations

import math
import statistics
from typing import NamedTuple

from racing.course import CURL_JQ, Race, Tools, document
from racing.measure import (FULL_SIZE, KINDS, OURS, First, Results, Sample, median_ratio,
                            user_instructions)

Firsts = dict[str, dict[str, list[First]]]


class Row(NamedTuple):
    """A figure, and what it should be at most (`least`: at least)."""

    race: str
    figure: str
    value: float
    goal: float
    better: float = math.nan
    least: bool = False
    unit: str = "x"
    half: tuple[float, float] | None = None  # The middle half of the rounds.

    def verdict(self) -> str:
        sign = -1 if self.least else 1
        if sign * self.value <= sign * self.better:
            return "better"
        return "reached" if sign * self.value <= sign * self.goal else "not reached"

    def number(self, value: float) -> str:
        if self.unit == "x":
            return f"1/{1 / value:.3g}" if value <= 0.2 else f"{value:.3g}"
        return f"{value:.4g} {self.unit}"


def cpu_us(rounds: list[list[Sample]]) -> list[float]:
    return [statistics.median(sample.cpu_us for sample in samples) for samples in rounds]


def peak_kib(rounds: list[list[Sample]], stage: int = 0) -> float:
    return statistics.median(sample.peaks_kib[stage] for samples in rounds for sample in samples)


def start_rows(tools: Tools, results: Results, races: list[Race]) -> list[Row]:
    rows = []
    for race in races:
        if race.start:
            peak = peak_kib(results[race.name][OURS])
            rows.append(Row(race.name, "peak memory", peak, 1536, unit="KiB"))
            count, counter = user_instructions(tools, race.ours)
            rows.append(Row(race.name, f"user instructions ({counter})", count / 1e6, 0.25,
                            unit="million"))
    return rows


def race_rows(results: Results, races: list[Race]) -> list[Row]:
    rows = []
    for race in races:
        for name, peer in race.peers.items():
            runs = results[race.name]
            value, *half = median_ratio(cpu_us(runs[OURS]), cpu_us(runs[name]))
            rows.append(Row(race.name, f"CPU, by {name}", value, peer.goal, peer.better,
                            half=(half[0], half[1])))
    pulls = results["pull 7 MB, plain"]
    rows.append(Row("pull 7 MB, plain", "peak memory, by jq",
                    peak_kib(pulls[OURS]) / peak_kib(pulls[CURL_JQ], 1), 0.85, 0.5))
    walls = [sample.wall_us for samples in results["push 100 KB, TLS"][OURS] for sample in samples]
    rows.append(Row("push 100 KB, TLS", "wall time, 90th percentile by median",
                    statistics.quantiles(walls, n=10)[-1] / statistics.median(walls), 2))
    return rows


def gain(firsts: Firsts, kind: str, library: str, field: str) -> tuple[float, float, float]:
    """The library's time by ours."""
    theirs, ours = ([getattr(first, field) for first in firsts[kind][name]]
                    for name in (library, "ours"))
    return median_ratio(theirs, ours)


def json_rows(tools: Tools, firsts: Firsts) -> list[Row]:
    rows = []
    for library, field, goal, kinds in (
            ("rapidjson", "parse", 1.0, KINDS), ("nlohmann", "parse", 2.3, KINDS),
            ("rapidjson", "parse", 1.7, ("configuration",)),
            ("simdjson", "parse", 1.0, ("configuration",)),
            ("simdjson", "parse", 1.0, ("long_strings",)),
            ("simdjson", "parse", 1.0, ("non_ascii",)), ("rapidjson", "write", 1.3, KINDS)):
        gains = {kind: gain(firsts, kind, library, f"{field}_ns") for kind in kinds}
        worst = min(kinds, key=lambda kind: gains[kind][0])
        where = worst if len(kinds) == 1 else f"worst document: {worst}"
        rows.append(Row(f"first {field}", f"{library}'s CPU by ours, {where}", gains[worst][0],
                        goal, least=True, half=gains[worst][1:]))
    sizes = {kind: len(document(tools, kind, FULL_SIZE))
             for kind in ("keys", "crafted_keys", "small_objects")}
    costs = {kind: [first.parse_ns / size for first in firsts[kind]["ours"]]
             for kind, size in sizes.items()}
    for kind in ("keys", "crafted_keys"):
        value, *half = median_ratio(costs[kind], costs["small_objects"])
        rows.append(Row("first parse", f"CPU a byte of {kind}, by small_objects", value, 2,
                        half=(half[0], half[1])))
    count = document(tools, "integers", FULL_SIZE).count(b",") + 1
    memory = statistics.median(first.tree_bytes for first in firsts["integers"]["ours"]) / count
    rows.append(Row("1,000,000 integers", "memory a value, over the input", memory, 80, 30,
                    unit="bytes"))
    return rows
