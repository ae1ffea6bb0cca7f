"""Tasks on all processors, and the table at the end."""

from __future__ import annotations

import argparse
import multiprocessing
import os
import random
import shutil
import signal
import subprocess
import tempfile
from collections import Counter
from collections.abc import Callable, Iterable, Iterator, Sequence
from pathlib import Path
from typing import Any

from . import laboratory as labs
from .laboratory import COMMANDS, Laboratory
from .service import answer_names, make_certificate

ROOT = Path(__file__).resolve().parents[2]
_laboratory: Laboratory  # pylint: disable=invalid-name


def _begin_worker(program: Path, shared: Path) -> None:
    global _laboratory  # pylint: disable=global-statement
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    # Anything private must come from the program itself.
    os.umask(0)
    _laboratory = Laboratory(program, shared, multiprocessing.current_process().name)


def _run_task(task: tuple[Callable[..., Any], tuple[Any, ...]]) -> Any:
    function, arguments = task
    return function(_laboratory, *arguments)


class Workers:
    """Processes with a laboratory each."""

    def __init__(self, program: Path, count: int) -> None:
        self._folder = Path(tempfile.mkdtemp(prefix="quorvane-sweep-"))
        make_certificate(self._folder)
        labs.set_name_server(self._folder)
        self._pool = multiprocessing.get_context("fork").Pool(
            count, _begin_worker, (program, self._folder))
        answer_names()

    def __enter__(self) -> Workers:
        return self

    def __exit__(self, *_: object) -> None:
        self._pool.terminate()
        self._pool.join()
        shutil.rmtree(self._folder, ignore_errors=True)

    def run(self, function: Callable[..., Any],
            arguments: Iterable[tuple[Any, ...]]) -> Iterator[Any]:
        """Calls `function(laboratory, *arguments)` for each, in any order."""
        return self._pool.imap_unordered(_run_task, ((function, each) for each in arguments), 4)


def title(row: int, tls: bool) -> str:
    """The name of a row of COMMANDS, and its transport."""
    return f"{COMMANDS[row].name} ({'tls' if tls else 'plain'})"


def show_violations(row: int, tls: bool, what: str, violations: Iterable[str]) -> None:
    """Prints a line for each."""
    for violation in violations:
        print(f"VIOLATION {title(row, tls)}, {what}: {violation}", flush=True)


def argument_parser(description: str, short_count: int) -> argparse.ArgumentParser:
    """The arguments of both sweeps."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("program", nargs="?", default=ROOT / "build/release/quorvane", type=Path)
    parser.add_argument("--short", action="store_true", help=f"a sample of {short_count} runs")
    parser.add_argument("--jobs", type=int, default=2 * (os.cpu_count() or 1))
    return parser


def sample(tasks: Sequence[Any], kind: Callable[[Any], object], count: int) -> list[Any]:
    """At most `count` tasks, one of each kind before there are two of any.

    It differs from commit to commit, and not from run to run.
    """
    commit = subprocess.run(["git", "rev-parse", "HEAD"], cwd=ROOT,
                            capture_output=True, check=False).stdout
    shuffled = list(tasks)
    random.Random(commit).shuffle(shuffled)
    rounds: Counter[object] = Counter()
    order = []
    for place, task in enumerate(shuffled):
        order.append((rounds[kind(task)], place))
        rounds[kind(task)] += 1
    return [shuffled[place] for _, place in sorted(order)[:count]]


def print_table(heads: Sequence[str], rows: Sequence[Sequence[object]]) -> None:
    """A table: the first column text, the others numbers."""
    texts = [[str(cell) for cell in row] for row in (heads, *rows)]
    widths = [max(len(row[i]) for row in texts) for i in range(len(heads))]
    for row in texts:
        print("  ".join(cell.ljust(width) if i == 0 else cell.rjust(width)
                        for i, (cell, width) in enumerate(zip(row, widths))))
