"""The figures to reach, each a ratio of two medians of the same run."""

from __future__ import annotations

import math
import re
import statistics
import subprocess
from typing import NamedTuple

from racing.course import BARE, CURL, CURL_JQ, JQ_CURL_JQ, OURS, Race, Tools
from racing.measure import Results, median, peak_kib, user_instructions

TRUE = "/bin/true"
OURS_IN_JSON, PLAIN_IN_JSON = "ours", "ours, plain"


class Row(NamedTuple):
    """A figure, and what it should be at most (`least`: at least)."""

    race: str
    figure: str
    value: float
    goal: float
    better: float = math.nan
    least: bool = False
    unit: str = "x"

    def verdict(self) -> str:
        sign = -1 if self.least else 1
        if sign * self.value <= sign * self.better:
            return "better"
        return "reached" if sign * self.value <= sign * self.goal else "not reached"

    def number(self, value: float) -> str:
        if self.unit == "x":
            return f"1/{1 / value:.3g}" if value <= 0.2 else f"{value:.3g}"
        return f"{value:.4g} {self.unit}"


def start_rows(tools: Tools, results: Results, start: Race) -> list[Row]:
    runs = results["start"]
    rows = []
    for name, short in (("quorvane --version", "--version"), ("quorvane --help", "--help"),
                        ("quorvane, signed out", "refusal when signed out")):
        ratio = median(runs[name], "cpu_us") / median(runs[TRUE], "cpu_us")
        rows.append(Row(short, "CPU, by /bin/true", ratio, 1.0, 0.85))
        rows.append(Row(short, "peak memory", peak_kib(runs[name]), 1536, unit="KiB"))
        count, counter = user_instructions(tools, start.contenders[name])
        rows.append(Row(short, f"user instructions ({counter})", count / 1e6, 0.25, unit="million"))
    return rows


def race_rows(results: Results) -> list[Row]:
    rows = []

    def cpu(race: str, peer: str, goal: float, better: float = math.nan) -> None:
        runs = results[race]
        ratio = median(runs[OURS], "cpu_us") / median(runs[peer], "cpu_us")
        rows.append(Row(race, f"CPU, by {peer}", ratio, goal, better))

    cpu("whoami, plain", CURL, 1 / 9)
    cpu("whoami, plain", CURL_JQ, 1 / 45)
    cpu("whoami, plain", BARE, 1.4)
    cpu("whoami, TLS", CURL, 0.62)
    cpu("whoami, TLS", BARE, 1.05)
    cpu("pull 2 KB, plain", BARE, 1.15)
    cpu("pull 100 KB, plain", BARE, 2)
    cpu("pull 7 MB, plain", CURL_JQ, 1 / 13, 1 / 17)
    cpu("pull 7 MB, plain", BARE, 4, 3)
    pulls = results["pull 7 MB, plain"]
    rows.append(Row("pull 7 MB, plain", "peak memory, by jq",
                    peak_kib(pulls[OURS]) / peak_kib(pulls[CURL_JQ], 1), 0.85, 0.5))
    chunked = results["pull 7 MB, TLS, chunked"]
    whole = results["pull 7 MB, TLS"]
    rows.append(Row("pull 7 MB, TLS, chunked", "CPU, by the same with Content-Length",
                    median(chunked[OURS], "cpu_us") / median(whole[OURS], "cpu_us"), 1.05))
    cpu("pull 7 MB, TLS, chunked", CURL_JQ, 1 / 11)
    cpu("push 8 MB, plain", JQ_CURL_JQ, 1 / 15, 1 / 19)
    walls = [sample.wall_us for sample in results["push 100 KB, TLS"][OURS]]
    rows.append(Row("push 100 KB, TLS", "wall time, 90th percentile by median",
                    statistics.quantiles(walls, n=10)[-1] / statistics.median(walls), 2))
    return rows


class First(NamedTuple):
    """What json_first says of one library and document; times by those of ours."""

    parse: float
    parse_ns: float
    write: float
    tree: float  # Bytes of memory for each of the input.


def first_parses(tools: Tools, rounds: int) -> dict[tuple[str, str], First]:
    done = subprocess.run([tools.built / "json_first", str(rounds)], check=True,
                          capture_output=True, text=True)
    pattern = (r"(\S+)\s+(\S.*?)\s+parse\s+([\d.]+) x\s+([\d.]+) ns/B\s+write\s+([\d.]+) x"
               r"\s+[\d.]+ ns/B\s+([\d.]+) B/B")
    return {(line[0], line[1]): First(*map(float, line[2:]))
            for line in re.findall(pattern, done.stdout)}


def json_rows(tools: Tools, firsts: dict[tuple[str, str], First]) -> list[Row]:
    kinds = [kind for kind, library in firsts if library == "rapidjson"]

    def least(library: str, field: str, goal: float, among: list[str]) -> Row:
        kind = min(among, key=lambda kind: float(getattr(firsts[kind, library], field)))
        return Row(f"first {field}", f"{library}'s CPU by ours, worst document: {kind}",
                   getattr(firsts[kind, library], field), goal, least=True)

    rows = [least("rapidjson", "parse", 1.0, kinds), least("nlohmann", "parse", 2.3, kinds),
            least("rapidjson", "parse", 1.7, ["configuration"])]
    rows += [least("simdjson", "parse", 1.0, [kind])
             for kind in ("configuration", "long_strings", "non_ascii")]
    rows.append(least("rapidjson", "write", 1.3, kinds))
    gains = {kind: firsts[kind, PLAIN_IN_JSON] for kind in kinds}
    for field in ("parse", "write"):
        kind = min(kinds, key=lambda kind: float(getattr(gains[kind], field)))
        rows.append(Row(f"first {field}", f"CPU by the plain scans', worst document: {kind}",
                        1 / getattr(gains[kind], field), 1.2))
    small = firsts["small_objects", OURS_IN_JSON].parse_ns
    for kind in ("keys", "crafted_keys"):
        rows.append(Row("first parse", f"CPU a byte of {kind}, by small_objects",
                        firsts[kind, OURS_IN_JSON].parse_ns / small, 2))
    integers = subprocess.check_output([tools.built / "make_document", "integers", "8300000"])
    memory = firsts["integers", OURS_IN_JSON].tree * len(integers) / (integers.count(b",") + 1)
    rows.append(Row("1,000,000 integers", "memory a value, over the input", memory, 80, 30,
                    unit="bytes"))
    return rows
