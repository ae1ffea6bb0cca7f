"""Runs every command of the shipped program with something broken under it, and judges each run."""
# scripts/sweep faults [--short] [PROGRAM]    each kernel call fails in turn
# scripts/sweep crashes [--short] [PROGRAM]   a signal comes at each kernel call
#
# First each command runs with nothing broken, and its trace is judged (trace.py).  Exit status 0
# means: no violation.  --short takes what lies between the creation of a temporary file and the
# last rename, with faults also the first call of each shape, and each 200th of the other cases.

import argparse
import os
import resource
import signal
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from laboratory import ROOT
from laboratory.home import Home
from laboratory.network import RESOLVER_FILE, Authority, replace, serving
from laboratory.peers import NameServer, address, dns_reply

from .bench import COMMANDS, HOST, OPENER_SAW, Bench
from .cases import Case, crashes, faults
from .judge import judge
from .trace import Call, judge_order, judge_power_cuts, read_calls


def watch(case: Case) -> tuple[list[Call], list[str]]:
    """Runs a command with nothing broken: its calls, and what is wrong with them."""
    with Bench(case.command, case.tls) as bench:
        bench.run()
        calls = read_calls(bench.logs()[0])
        found = [*judge(bench, case), *judge_order(calls, bench), *judge_power_cuts(calls, bench)]
        if case.command.words == "login":
            saw = bench.opener_log()
            found += [f"the opener did not see {words!r}, but {saw!r}" for words in OPENER_SAW
                      if words.format(origin=bench.origin) not in saw]
        return calls, found


def try_case(case: Case) -> list[str] | None:
    """The violations of a broken run; None if what was to be broken did not come up."""
    for _ in range(3):
        # How many reads a run needs depends on the network's timing: the last ones may not come.
        with Bench(case.command, case.tls) as bench:
            bench.run(case.options, case.wrapper)
            if bench.result.status == -getattr(signal, "SIG" + case.signal) if case.signal else (
                    not case.options or "INJECTED" in "".join(bench.logs())):
                return [*judge(bench, case)]
    return None


def sweep(what: str, short: bool, pool: ThreadPoolExecutor) -> int:
    """Sweeps; the exit status."""
    began = time.monotonic()
    cases = [Case(command, tls, harmless=True) for command in COMMANDS
             for tls in (False, True)]
    results: list[list[str] | None] = []
    traces: list[list[Call]] = []
    for calls, violations in pool.map(watch, cases):
        traces.append(calls)
        results.append(violations)
    Bench.idle_s = max(1.5, time.monotonic() - began)
    if not any(results):
        seen: set[str] = set()
        cases = [case for (command, tls, *_), calls in zip(cases, traces) for case in (
            crashes(command, tls, calls) if what == "crashes" else
            faults(command, tls, calls, seen))]
        if short:
            cases = [case for turn, case in enumerate(cases) if case.always or turn % 200 == 0]
        results = [*pool.map(try_case, cases)]
    found = [f"VIOLATION {case}: {violation}"
             for case, violations in zip(cases, results) for violation in violations or ()]
    missed = results.count(None)
    if missed * 20 > len(cases):
        found.append("VIOLATION too many calls did not come up again")
    print(*found[:15], sep="\n")
    print(f"{len(cases)} runs in {time.monotonic() - began:.0f} s, {len(found)} violations;"
          f" {missed} calls did not come up again")
    return int(found != [])


def main() -> int:
    """Prepares the namespaces that scripts/sweep has made, and sweeps."""
    parser = argparse.ArgumentParser("scripts/sweep", description=__doc__)
    parser.add_argument("sweep", choices=("faults", "crashes"))
    parser.add_argument("program", nargs="?", default=ROOT / "build/release/quorvane", type=Path)
    parser.add_argument("--short", action="store_true", help="a sample")
    options = parser.parse_intermixed_args()
    Home.program = options.program.resolve()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    os.umask(0o077)
    with tempfile.TemporaryDirectory(prefix="quorvane-sweep-") as folder, \
            ThreadPoolExecutor(4 * (os.cpu_count() or 1)) as pool:
        replace(RESOLVER_FILE, "nameserver 127.0.0.1\n", Path(folder))
        authority = Authority(folder)
        authority.issue("service", HOST)
        Bench.tls_context = serving(authority, "service")
        Bench.trust_file = str(authority.trust_file)
        NameServer(lambda query, _: dns_reply(query, address(
            "::1" if query[-3] == 28 else "127.0.0.1")))
        return sweep(options.sweep, options.short, pool)


if __name__ == "__main__":
    sys.exit(main())
