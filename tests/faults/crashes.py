"""Crashes: a signal comes at each kernel call of every writing command in turn."""
# It comes as the program enters a call, which is then not made: so each run ends after one call and
# before the next, and what is left is judged.  After SIGKILL a temporary file may be left; after
# SIGINT, SIGTERM, SIGHUP and SIGQUIT none is, and the two files of a pull belong together.  Then
# things that a process of the same number, or others, may have put at a temporary file's name: they
# are neither followed nor written to.

import signal
from collections.abc import Sequence

from laboratory.home import Home
from laboratory.tracing import Call, tampering

from .bench import COMMANDS, WRITERS, Bench
from .judge import Outcome, judge, judge_output

OBSTACLES = (
    # What stands at the temporary name, made by a shell with that name as $1, and whether it can
    # be removed.
    ("nothing", ":", True),
    ("a file of others", "umask 0; echo foreign >$1", True),
    ("a link to a file", "ln -s ../victim $1", True),
    ("a link to a missing file", "ln -s ../missing $1", True),
    ("a FIFO", "mkfifo $1", True),
    ("a folder", "mkdir $1", True),
    ("a folder with a file", "mkdir $1; echo mine >$1/file", False),
)


def crash(bench: Bench, row: int, tls: bool, call: Call, name: str, _always: bool) -> Outcome:
    """Sends a signal at the beginning of `call`, and judges what is left."""
    command, what = COMMANDS[row], f"SIG{name} at {call.name} {call.turn}"
    for _ in range(3):
        # How many reads a run needs depends on the network's timing.
        log = bench.prepare(command, tls)
        result = bench.run(command, tampering(log, [
            f"{call.name}:signal={name}:when={call.turn}"]))
        # The last call ends the program before a signal that can wait does.
        if result.status == (0 if call.name == "exit_group" and name != "KILL"
                             else -getattr(signal, "SIG" + name)):
            break
    else:
        return Outcome(row, tls, what, "missed", [])
    violations = [*judge(bench, command, result, stale=name == "KILL", ended=False)]
    found = bench.found()
    states = {"new" if (found[file][1] if file in found else None) == change.new else "old"
              for file, change in command.files(bench.home).items() if change.old != change.new}
    if len(states) > 1 and name != "KILL":
        violations.append("a configuration and a revision that do not belong together")
    return Outcome(row, tls, what, states.pop() if len(states) == 1 else "both", violations)


def obstruct(bench: Bench, row: int, place: int, obstacle: str, script: str,
             removable: bool) -> Outcome:
    """Runs a command with something at the temporary name of its file number `place`."""
    command = COMMANDS[row]
    bench.prepare(command, False)
    target = bench.home.path / list(command.files(bench.home))[place]
    target.parent.mkdir(parents=True, exist_ok=True)
    bench.close_folders()
    victim = target.parent.parent / "victim"
    victim.write_text("untouched")
    victim.chmod(0o600)
    result = bench.run(command, bench.shell(f"set -- '{target}'.tmp.$$ \"$@\"; {script}; shift; "))
    violations = [*judge_output(bench, command, result, False)]
    if result.status != (0 if removable else 1):
        violations.append(f"status {result.status}")
    if victim.read_text() != "untouched" or (victim.parent / "missing").exists():
        violations.append("a link was followed")
    victim.unlink()
    kept = next(target.parent.glob("*.tmp.*/file"), None)
    if not removable and (kept is None or kept.read_text() != "mine\n"):
        violations.append("a file of others is gone")
    elif removable:
        violations += judge(bench, command, result)
    return Outcome(row, False, f"{obstacle} at the temporary name of {target.name}", "", violations)


def collect(row: int, tls: bool, calls: Sequence[Call], always: set[Call]
            ) -> list[tuple[int, bool, Call, str, bool]]:
    """Every call of a writing command, and whether it is part of every sample; the loader's, the same
    for all, only once.  The signals that can be held back come over one transport."""
    ending = () if tls else ("TERM", "INT", "HUP", "QUIT")
    return [(row, tls, call, name, call in always and not tls and name in ("KILL", "TERM"))
            for call in calls if call.name != "execve"
            and (not call.before_main or (row, tls) == (WRITERS[0], False))
            for name in ("KILL", *(() if call.before_main else ending))]


def collect_obstacles() -> list[tuple[int, int, str, str, bool]]:
    """Every obstacle for every file that is written."""
    return [(row, place, *obstacle) for row in WRITERS
            for place, change in enumerate(COMMANDS[row].files(Home("x")).values())
            if change.new is not None and change.old != change.new for obstacle in OBSTACLES]
