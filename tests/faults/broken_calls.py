"""Faults: each kernel call of a command fails in turn, with each error that fits it."""
# For each call and each error, once and from then on, strace makes that one call fail.  The exit
# status is then 0 or 1, with at most one documented line on standard error; files are as that line
# says, no temporary file is left, no secret is anywhere but in the credential file and in the
# requests, every descriptor is closed, and the run ends within the time limits.  strace ends only
# when every child has ended, so that none is left either.

import re
import shutil
from collections.abc import Iterator, Sequence
from typing import NamedTuple

from laboratory.tracing import Call, complete_lines, read_calls, tampering

from .bench import COMMANDS, Bench
from .judge import MESSAGES, Outcome, judge
from .order import left_open

PRLIMIT = shutil.which("prlimit") or "prlimit"
_NEW_NAME = "EACCES ENOSPC EDQUOT EROFS EIO ENOENT ENOTDIR"
_SENT = "EIO ECONNRESET EPIPE EAGAIN EINTR ENETUNREACH ETIMEDOUT"

# The calls that have the same errors; newer architectures and C libraries have other names for some.
ERRORS: dict[str, str] = {name: errors for names, errors in {
    "openat": "EACCES EMFILE ENFILE ENOMEM EIO ENOSPC EDQUOT EROFS EEXIST ENOENT EINTR",
    "newfstatat fstat": "EACCES EIO ENOMEM ENOENT EOVERFLOW",
    "read": "ENOMEM ECONNRESET EIO EAGAIN EINTR ENETUNREACH ETIMEDOUT",
    "pread64": "EIO EINTR ENOMEM",
    "write": "ENOSPC EDQUOT EFBIG " + _SENT,
    "fsync": "EIO ENOSPC EDQUOT EROFS EINTR",
    "close": "EIO EINTR ENOSPC EDQUOT",
    "rename renameat2": "EXDEV EISDIR " + _NEW_NAME,
    "unlink unlinkat": "EACCES EPERM EIO EROFS EBUSY ENOENT",
    "mkdir mkdirat": "EEXIST EMLINK " + _NEW_NAME,
    "access faccessat": "EACCES ENOENT ENOMEM EIO",
    "fcntl": "EINVAL EPERM EINTR",
    "lseek getdents64": "EIO",
    "fork clone": "EAGAIN ENOMEM ENOSYS",
    "umask arch_prctl prlimit64 getpid": "EPERM ENOSYS",
    "rt_sigaction rt_sigprocmask sysinfo set_tid_address set_robust_list rseq": "EINVAL ENOSYS",
    "brk": "",
    "mmap mprotect": "ENOMEM EACCES",
    "mremap munmap madvise": "ENOMEM EINVAL EAGAIN",
    "getrandom": "ENOSYS EINTR EAGAIN EPERM",
    "clock_gettime": "EINVAL ENOSYS EPERM",
    "socket": "EMFILE ENFILE ENOBUFS ENOMEM EACCES EAFNOSUPPORT EPERM",
    "connect": "ECONNREFUSED ENETUNREACH EHOSTUNREACH ETIMEDOUT EACCES EADDRNOTAVAIL EINTR EAGAIN",
    "poll ppoll": "ENOMEM EINTR EINVAL",
    "getsockopt setsockopt getsockname": "ENOBUFS ENOMEM ENOPROTOOPT EPERM",
    "bind listen": "EADDRINUSE EACCES ENOMEM EOPNOTSUPP",
    "accept4": "ECONNABORTED EMFILE ENFILE ENOMEM EINTR EAGAIN EPERM",
    "sendto": "ENOBUFS ENOMEM EPERM " + _SENT,
    "recvfrom": "EAGAIN ECONNREFUSED ENOMEM EINTR",
    "shutdown": "ENOTCONN",
}.items() for name in names.split()}

RESULTS: dict[str, str] = {"read": "0 1", "write": "0 1", "sendto": "1", "recvfrom": "0 5",
                           "getrandom": "0 1", "poll": "0", "ppoll": "0", "brk": "0"}
"""Results that are not errors: an early end, a short count, a wait that runs out.  (brk(2): the
kernel answers a refused request with the old break.)"""

NEVER_FAIL = ("execve", "exit_group", "futex", "restart_syscall")
"""The first makes the process; the others cannot fail, a futex's wake included."""

PASSING = ("EINTR", "EAGAIN", "EEXIST")
"""Errors that no machine returns for ever."""


class Fault(NamedTuple):
    """One way to break a run."""

    label: str
    injections: tuple[str, ...] = ()
    """In strace's words; without any, `limit` is set instead."""
    limit: str = ""
    """An option of prlimit."""
    path: str = ""
    """Only calls on this path; OPENER means the home's."""
    loader: bool = False
    """The system's loader may fail."""
    no_memory: bool = False
    """The documented abort is an answer to this."""
    no_removal: bool = False
    """Files cannot be removed, so that a temporary file may stay."""
    harmless: bool = False
    """The command has to succeed all the same."""
    grave: bool = False
    """The command must not report success: a file may not have been written or removed."""
    waits: int = 0
    """How many waits of a second there are then; 0 for any number."""
    always: bool = False
    """Part of every sample: between the making of a temporary file and its rename."""


def _is_retried(call: Call, tls: bool) -> bool:
    """Whether an interrupted call is made again."""
    return (call.name in ("poll", "ppoll", "accept4", "getrandom")
            or (call.name == "write" and call.target == "output")
            or (call.name in ("read", "write") and call.target == "socket" and tls))


def _is_optional(call: Call) -> bool:
    """Whether the program can do without what it asks for."""
    return (call.name == "rt_sigprocmask" and not call.before_main
            or re.search("IP_RECVERR|TCP_NODELAY", call.text) is not None)


def _is_grave(call: Call) -> bool:
    """Whether a file is not what it should be when this call has failed."""
    return (call.name.startswith(("fsync", "rename", "unlink"))
            or (call.name in ("write", "close") and call.target == "file"))


def _faults_of(call: Call, tls: bool, later: tuple[str, ...], always: bool) -> Iterator[Fault]:
    """Every fault of one call, for once and, where a machine can be like that, from then on; in
    the latter case `later` happens too."""
    effects = [f"error={error}:when={call.turn}" for error in ERRORS[call.name].split()]
    # A pretended short write would itself damage the file: limits cause real ones.
    effects += [f"retval={result}:when={call.turn}" for result in RESULTS.get(call.name, "").split()
                if result == "0" or call.target != "file"]
    lasting = [effect for effect in effects if not any(error in effect for error in PASSING)]
    if lasting:
        effects.append(lasting[0] + "+")
    for effect in effects:
        injection = f"{call.name}:{effect}"
        more = later if effect.endswith("+") and call.name != "clock_gettime" else ()
        retried = "EINTR" in effect and _is_retried(call, tls)
        yield Fault(injection, (injection, *more), loader=call.before_main,
                    no_memory=call.name in ("brk", "mmap", "mremap"),
                    harmless=retried or (_is_optional(call) and not effect.endswith("+")),
                    grave=_is_grave(call), always=always and effect == effects[0])


def _joint_faults(calls: Sequence[Call]) -> Iterator[Fault]:
    """Faults of more than one call, and limits that the kernel enforces."""
    removals = tuple(f"{name}:error=EIO:when=1+" for name in ("unlink", "rmdir", "unlinkat"))
    for call in calls:
        if call.target == "file" or call.name.startswith("rename"):
            failed = f"{call.name}:error=EIO:when={call.turn}+"
            yield Fault(f"{failed}, no file can be removed", (failed, *removals), no_removal=True)
    begun = {name: 1 + sum(call.before_main and call.name == name for call in calls)
             for name in ("brk", "mmap")}
    for turn in range(begun["mmap"], begun["mmap"] + 12):
        gone = (f"brk:retval=0:when={begun['brk']}+", f"mmap:error=ENOMEM:when={turn}+")
        yield Fault(f"no memory from {gone[1]}", gone, no_memory=True)
    if any(call.name in ("fork", "clone") for call in calls):
        for path, injection in (
                ("OPENER", "execve:error=EACCES"), ("OPENER", "execve:error=ENOMEM"),
                ("OPENER", "access:error=EACCES"), ("OPENER", "faccessat:error=EACCES"),
                ("/dev/null", "openat:error=EMFILE"), ("", "dup3:error=EBADF:when=1"),
                ("", "dup3:error=EINTR:when=2"), ("", "dup3:error=EMFILE:when=3")):
            yield Fault(f"the opener's {injection}", (injection,), path=path)
    for call in calls:
        if call.name in ("poll", "ppoll") and re.search(r"1, (1000\b|\{tv_sec=1,)", call.text):
            yield Fault("no clock, and no browser", (
                "clock_gettime:error=EPERM:when=1+", f"{call.name}:retval=0:when={call.turn}+"),
                waits=300, always=True)
            break
    for size in (*range(0, 90), 2000):
        yield Fault(f"files of at most {size} bytes", limit=f"--fsize={size}")
    for count in range(3, 12):
        yield Fault(f"descriptors below {count}", limit=f"--nofile={count}", loader=True)
    for size in range(2 << 20, 40 << 20, 1 << 19):
        yield Fault(f"{size} bytes of address space", limit=f"--as={size}", loader=True,
                    no_memory=True)


def collect(row: int, tls: bool, calls: Sequence[Call], always: set[Call]
            ) -> list[tuple[int, bool, Fault]]:
    """All faults of a command; those of the loader, the same for all, only once."""
    unknown = {call.name for call in calls} - ERRORS.keys() - {*NEVER_FAIL}
    if unknown:
        raise SystemExit(f"{COMMANDS[row].name}: no faults are known for {', '.join(sorted(unknown))}")
    # For a command that waits for a browser: soon after the usual number of clock readings, 34 years
    # pass.  So a fault that keeps the browser away does not cost the sweep five minutes.
    turn = sum(call.name == "clock_gettime" for call in calls) + 20
    later = (f"clock_gettime:poke_exit=@arg2=0000004000000000:when={turn}+",)
    waits = any(call.name == "accept4" for call in calls)
    faults = [fault for call in calls if call.name not in NEVER_FAIL
              and ((row, tls) == (0, False) or not call.before_main)
              for fault in _faults_of(call, tls, later if waits else (), call in always)]
    return [(row, tls, fault) for fault in (*faults, *_joint_faults(calls))]


def try_fault(bench: Bench, row: int, tls: bool, fault: Fault) -> Outcome:
    """Breaks a run and judges it."""
    command = COMMANDS[row]
    for _ in range(3):
        # How many reads a run needs depends on the network's timing: the last ones may not come.
        log = bench.prepare(command, tls)
        paths = [fault.path.replace("OPENER", str(bench.opener))] if fault.path else []
        result = bench.run(command, tampering(log, fault.injections, paths) if fault.injections
                           else [PRLIMIT, fault.limit])
        broken = [line for line in complete_lines(log) if "(INJECTED" in line
                  ] if fault.injections else [""]
        if broken:
            break
    lossy = any(re.search(r"write\([12],", line) for line in broken) and not fault.harmless
    kind = "succeeded" if result.status == 0 else "failed"
    if fault.loader and result.status in (127, -11) and not result.out:
        kind = "loader"
    elif fault.no_memory and result.status == -6 and result.err == b"memory limit exceeded\n":
        kind = "memory"
    ended = kind in ("succeeded", "failed")
    violations = [*judge(bench, command, result, lossy, fault.no_removal, ended)]
    if ended and not paths:
        violations += left_open(read_calls(log), bench.home)
    if fault.harmless and broken and result.status != (1 if command.err else 0):
        violations.append(f"a call that is to be made again was not: {result.err!r}")
    if fault.grave and broken and result.status == 0:
        violations.append("status 0, although a file was not surely written or removed")
    if fault.waits not in (0, waits := sum("poll(" in line for line in broken)):
        violations.append(f"{waits} waits for the browser, not {fault.waits}")
    message = MESSAGES.explain(result.err.decode(errors="replace").rstrip("\n"), "stderr")
    return Outcome(row, tls, fault.label, kind if broken else "missed", violations,
                   message.text if message else "")
