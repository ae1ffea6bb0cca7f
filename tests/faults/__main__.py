"""Runs every command of the shipped program with something broken under it, and judges each run."""
# scripts/sweep faults [--short] [PROGRAM]    each kernel call fails in turn       (broken_calls.py)
# scripts/sweep crashes [--short] [PROGRAM]   a signal comes at each kernel call   (crashes.py)
#
# First each command runs with nothing broken, and its trace is judged (order.py).  Exit status 0
# means: no violation.  --short takes a sample that differs from commit to commit, and always what
# lies between the making of a temporary file and its rename, and the first call of each shape.

from __future__ import annotations

import argparse
import multiprocessing
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path
from typing import Any, NamedTuple

from laboratory import ROOT
from laboratory.home import Home
from laboratory.network import RESOLVER_FILE, Authority, replace
from laboratory.peers import NameServer, address, dns_reply
from laboratory.tracing import Call, read_calls, tracing

from . import broken_calls, crashes
from .bench import COMMANDS, HOST, OPENER_SAW, WRITERS, Bench, idle_s
from .judge import Outcome, judge
from .order import judge_order, left_open, power_cuts

MIN_IDLE_S = 1.5
_bench: Bench  # pylint: disable=invalid-name


class Watched(NamedTuple):
    """A command that ran with nothing broken."""

    row: int
    tls: bool
    calls: list[Call]
    outcome: Outcome


def watch(bench: Bench, row: int, tls: bool) -> Watched:
    """Runs a command with nothing broken, and judges its trace."""
    command = COMMANDS[row]
    log = bench.prepare(command, tls)
    result = bench.run(command, tracing("-f", "-o", str(log)))
    violations = [*judge(bench, command, result)]
    if result.status != (1 if command.err else 0) or result.err != command.err.encode():
        violations.append(f"status {result.status}, {result.err!r}")
    if command.name == "login":
        violations += [f"the opener did not see {words!r}, but {bench.opener_log()!r}"
                       for words in OPENER_SAW
                       if words.format(origin=bench.home.origin) not in bench.opener_log()]
    calls = read_calls(log)
    # A FIFO that takes a file's place must not block the open.
    violations += [f"{call.text} could block" for call in calls
                   if call.name == "openat" and str(bench.home.path) in call.text
                   and "O_RDONLY" in call.text and "O_NONBLOCK" not in call.text]
    violations += [*left_open(calls, bench.home), *judge_order(calls, bench.home)]
    files = command.files(bench.home)
    before = {name: change.old for name, change in files.items() if change.old is not None}
    for state in power_cuts(calls, bench.home, before):
        new = [state.get(name) == change.new for name, change in files.items()]
        bad = [name for name, change in files.items() if state.get(name) not in change]
        if bad or new[-2:] == [False, True]:
            violations.append(f"a power cut can leave {bad or 'a new record of an old file'}")
            break
    return Watched(row, tls, calls, Outcome(row, tls, "nothing broken", "", violations))


def shape(call: Call) -> str:
    """What distinguishes it from calls made elsewhere in the program."""
    return re.sub(r'"(\\.|[^"])*"|\b[0-9][0-9a-fx]*| = .*|\s', "", call.name + call.text)


def critical(calls: Sequence[Call], seen: set[str]) -> set[Call]:
    """What lies between the making of a temporary file and its rename, and of each shape that is not
    in `seen` the first one."""
    inside, found = False, set()
    for call in calls:
        inside = inside or call.target == "file"
        if inside or not (call.before_main or shape(call) in seen):
            found.add(call)
            seen.add(shape(call))
        inside = inside and not call.name.startswith("rename")
    return found


def sample(tasks: Sequence[Any], count: int) -> list[Any]:
    """What is always part of it, and `count` other tasks."""
    # They differ from commit to commit where git tells them apart, and not from run to run.
    commit = subprocess.run("git rev-parse HEAD", shell=True, cwd=ROOT, capture_output=True,
                            check=False).stdout
    always = [task for task in tasks if task[-1] is True or getattr(task[2], "always", False)]
    others = [task for task in tasks if task not in always]
    return always + random.Random(commit).sample(others, min(count, len(others)))


def print_outcomes(outcomes: Sequence[Outcome]) -> None:
    """How many runs ended how, and which documented failures came up."""
    for title, count in (("all", Counter(outcome.kind for outcome in outcomes)), *(
            (title, Counter(outcome.kind for outcome in outcomes if outcome.title == title))
            for title in sorted({outcome.title for outcome in outcomes}))):
        print(f"{title:28}", ", ".join(f"{count[kind]:5} {kind}" for kind in sorted(count)))
    print("missed: the call did not come up again; memory: the documented abort; loader: the system's"
          " loader gave up\n")
    for text, times in Counter(outcome.message for outcome in outcomes).items():
        print(f"{times:6}  {text or '(no message)'}")


def sweep(options: argparse.Namespace, run: Callable[..., Iterator[Any]]) -> int:
    """Sweeps; the exit status."""
    faults = options.sweep == "faults"
    began = time.monotonic()
    watched: list[Watched] = sorted(run(watch, [
        (row, tls) for row in (range(len(COMMANDS)) if faults else WRITERS) for tls in (False, True)
        if options.command in (None, COMMANDS[row].name)]), key=lambda each: each[:2])
    idle_s.value = max(MIN_IDLE_S, time.monotonic() - began)
    outcomes = [each.outcome for each in watched if each.outcome.violations]
    if not outcomes:
        module = broken_calls if faults else crashes
        seen: set[str] = set()
        tasks = [task for row, tls, calls, _ in watched for task in module.collect(
            row, tls, calls, critical(calls, seen if faults else {*map(shape, calls)})
        ) if options.only in str(task[2:])]
        if options.short:
            tasks = sample(tasks, options.count)
        # The slow ones lie together: apart they do not hold one another up.
        random.Random(0).shuffle(tasks)
        outcomes = list(run(broken_calls.try_fault if faults else crashes.crash, tasks))
        if sum(outcome.kind == "missed" for outcome in outcomes) * 20 > len(outcomes):
            outcomes.append(Outcome(0, False, "", "", ["too many calls did not come up again"]))
        if not faults:
            outcomes += run(crashes.obstruct, crashes.collect_obstacles())
    found = [f"VIOLATION {outcome.title}, {outcome.what}: {violation}" for outcome in outcomes
             for violation in outcome.violations]
    if found:
        print("\n".join(found[:15] + [f"and {len(found) - 15} more"] * (len(found) > 15)))
    else:
        print_outcomes(outcomes)
        print(f"\n{len(outcomes)} runs in {time.monotonic() - began:.0f} s")
    return int(found != [])


def _begin_worker(authority: Authority) -> None:
    global _bench  # pylint: disable=global-statement
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    os.umask(0)  # Anything private must come from the program itself.
    _bench = Bench(authority)


def _run_task(task: tuple[Callable[..., Any], tuple[Any, ...]]) -> Any:
    return task[0](_bench, *task[1])


def main() -> int:
    """Goes on in namespaces of its own, network, mounts and process ids, and sweeps there."""
    # Nothing started inside outlives this process, and no port of the machine is touched.
    parser = argparse.ArgumentParser("scripts/sweep", description=__doc__)
    parser.add_argument("sweep", choices=("faults", "crashes"))
    parser.add_argument("program", nargs="?", default=ROOT / "build/release/quorvane", type=Path)
    parser.add_argument("--short", action="store_true", help="a sample")
    parser.add_argument("--count", type=int, default=1000, help="how large a sample")
    parser.add_argument("--command", help="only this command")
    parser.add_argument("--only", default="", help="only what this text occurs in")
    parser.add_argument("--jobs", type=int, default=2 * (os.cpu_count() or 1))
    options = parser.parse_intermixed_args()
    missing = [tool for tool in ("openssl", "prlimit", "strace", "unshare")
               if not shutil.which(tool)]
    if missing:
        sys.exit(f"scripts/sweep: {', '.join(missing)} missing: see scripts/setup")
    if os.environ.get("QUORVANE_SWEEP_INSIDE") != "yes":
        os.environ["QUORVANE_SWEEP_INSIDE"] = "yes"
        os.execv(ROOT / "dev/namespace", ["namespace", "unshare", "--pid", "--fork", "--kill-child",
                                          "--mount-proc", sys.executable, "-B", "-m", "faults",
                                          *sys.argv[1:]])
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    # The first process of a namespace is spared what it does not handle, and what is ignored here
    # would be ignored by the program, too.
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT):
        signal.signal(number, signal.default_int_handler)
    Home.program = options.program.resolve()
    with tempfile.TemporaryDirectory(prefix="quorvane-sweep-") as folder:
        replace(RESOLVER_FILE, "nameserver 127.0.0.1\n", Path(folder))
        authority = Authority(folder)
        authority.issue("service", HOST)
        with multiprocessing.get_context("fork").Pool(
                options.jobs, _begin_worker, (authority,)) as pool:
            NameServer(lambda query, _: dns_reply(query, address(
                "::1" if query[-3] == 28 else "127.0.0.1")))
            return sweep(options, lambda function, tasks: pool.imap_unordered(
                _run_task, ((function, task) for task in tasks), 4))


if __name__ == "__main__":
    sys.exit(main())
