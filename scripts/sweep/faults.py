"""The errors of each kernel call: the table of the fault sweep."""

from __future__ import annotations

import re
from collections.abc import Iterator
from typing import NamedTuple

from .tracing import Call

_OPEN = "EACCES EMFILE ENFILE ENOMEM EIO ENOSPC EDQUOT EROFS EEXIST ENOENT EINTR"
_NEW_NAME = "EACCES ENOSPC EDQUOT EROFS EIO ENOENT ENOTDIR"
_MEMORY = "ENOMEM EACCES"

ERRORS: dict[str, str] = {
    # Files.
    "openat": _OPEN,
    "newfstatat": "EACCES EIO ENOMEM ENOENT EOVERFLOW",
    "read": "EIO EINTR EAGAIN ECONNRESET ETIMEDOUT ENETUNREACH ENOMEM",
    "pread64": "EIO EINTR ENOMEM",
    "write": "EIO ENOSPC EDQUOT EFBIG EINTR EAGAIN EPIPE ECONNRESET ETIMEDOUT ENETUNREACH",
    "fsync": "EIO ENOSPC EDQUOT EROFS EINTR",
    "close": "EIO EINTR ENOSPC EDQUOT",
    "rename": "EACCES EXDEV EISDIR " + _NEW_NAME,
    "unlink": "EACCES EPERM EIO EROFS EBUSY ENOENT",
    "mkdir": "EEXIST EMLINK " + _NEW_NAME,
    "fcntl": "EINVAL EPERM EINTR",
    "lseek": "ESPIPE",
    "getdents64": "EIO",
    "access": "EACCES ENOENT ENOMEM EIO",
    # The process.
    "umask": "EPERM ENOSYS",
    "getpid": "ENOSYS",
    "fork": "EAGAIN ENOMEM ENOSYS",
    "rt_sigaction": "EINVAL ENOSYS",
    "rt_sigprocmask": "EINVAL ENOSYS",
    "sysinfo": "EFAULT ENOSYS",
    "prlimit64": "EPERM ENOSYS",
    "arch_prctl": "EPERM",
    "set_tid_address": "ENOSYS",
    "set_robust_list": "ENOSYS",
    "rseq": "ENOSYS EINVAL",
    # Memory.
    "brk": "",
    "mmap": _MEMORY,
    "mremap": "ENOMEM",
    "mprotect": _MEMORY,
    "munmap": "ENOMEM EINVAL",
    "madvise": "ENOMEM EINVAL EAGAIN",
    # Randomness and time.
    "getrandom": "ENOSYS EINTR EAGAIN EPERM",
    "clock_gettime": "EINVAL ENOSYS EPERM",
    # The network.
    "socket": "EMFILE ENFILE ENOBUFS ENOMEM EACCES EAFNOSUPPORT EPERM",
    "connect": "ECONNREFUSED ENETUNREACH EHOSTUNREACH ETIMEDOUT EACCES EADDRNOTAVAIL EINTR EAGAIN",
    "poll": "EINTR ENOMEM EINVAL",
    "getsockopt": "ENOBUFS ENOPROTOOPT",
    "setsockopt": "ENOMEM ENOPROTOOPT EPERM",
    "bind": "EADDRINUSE EACCES ENOMEM",
    "listen": "EADDRINUSE EOPNOTSUPP",
    "accept4": "ECONNABORTED EMFILE ENFILE ENOMEM EINTR EAGAIN EPERM",
    "getsockname": "ENOBUFS",
    "sendto": "ECONNRESET EPIPE ENOBUFS ENOMEM EINTR EAGAIN ENETUNREACH ETIMEDOUT EPERM",
    "recvfrom": "EAGAIN ECONNREFUSED ENOMEM EINTR",
    "shutdown": "ENOTCONN",
}
# The replacements on newer architectures.
for _old, _new in (("rename", "renameat2"), ("unlink", "unlinkat"), ("mkdir", "mkdirat"),
                   ("access", "faccessat"), ("fork", "clone"), ("poll", "ppoll")):
    ERRORS[_new] = ERRORS[_old]

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
    """Only calls on this path; OPENER means the laboratory's."""
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


OPENER = "OPENER"


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
    return (call.name in ("fsync", "rename", "renameat2", "unlink", "unlinkat")
            or (call.name in ("write", "close") and call.target == "file"))


def jump_of_time(calls: list[Call]) -> tuple[str, ...]:
    """For a command that waits for a browser: soon after the usual number of clock readings,
    34 years pass.  So a fault that keeps the browser away does not cost the sweep five minutes."""
    if not any(call.name == "accept4" for call in calls):
        return ()
    turn = sum(call.name == "clock_gettime" for call in calls) + 20
    return (f"clock_gettime:poke_exit=@arg2=0000004000000000:when={turn}+",)


def faults_of(call: Call, tls: bool, later: tuple[str, ...]) -> Iterator[Fault]:
    """Every fault of one call, for once and, where a machine can be like that, from then on; in
    the latter case `later` happens too."""
    errors = dict.fromkeys(ERRORS[call.name].split())
    effects = [f"error={error}:when={call.turn}" for error in errors]
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
                    grave=_is_grave(call))


def joint_faults(calls: list[Call]) -> Iterator[Fault]:
    """Faults of more than one call, and limits that the kernel enforces."""
    removals = tuple(f"{name}:error=EIO:when=1+" for name in ("unlink", "rmdir", "unlinkat"))
    for first in calls:
        if first.target == "file" or first.name in ("fsync", "rename", "renameat2"):
            failed = f"{first.name}:error=EIO:when={first.turn}+"
            yield Fault(f"{failed}, no file can be removed", (failed, *removals), no_removal=True)
    first_turns = {name: 1 + sum(call.before_main and call.name == name for call in calls)
                   for name in ("brk", "mmap")}
    for turn in range(first_turns["mmap"], first_turns["mmap"] + 12):
        gone = (f"brk:retval=0:when={first_turns['brk']}+", f"mmap:error=ENOMEM:when={turn}+")
        yield Fault(f"no memory from {gone[1]}", gone, no_memory=True)
    if any(call.name in ("fork", "clone") for call in calls):
        for path, injection in (
                (OPENER, "execve:error=EACCES"), (OPENER, "execve:error=ENOMEM"),
                (OPENER, "access:error=EACCES"), (OPENER, "faccessat:error=EACCES"),
                ("/dev/null", "openat:error=EMFILE"), ("", "dup3:error=EBADF:when=1"),
                ("", "dup3:error=EINTR:when=2"), ("", "dup3:error=EMFILE:when=3")):
            yield Fault(f"the opener's {injection}", (injection,), path=path)
    for call in calls:
        if call.name in ("poll", "ppoll") and re.search(r"1, (1000\b|\{tv_sec=1,)", call.text):
            yield Fault("no clock, and no browser", (
                "clock_gettime:error=EPERM:when=1+", f"{call.name}:retval=0:when={call.turn}+"))
            break
    for size in (*range(0, 90), 2000):
        yield Fault(f"files of at most {size} bytes", limit=f"--fsize={size}")
    for count in range(3, 12):
        yield Fault(f"descriptors below {count}", limit=f"--nofile={count}", loader=True)
    for size in range(2 << 20, 40 << 20, 1 << 19):
        yield Fault(f"{size} bytes of address space", limit=f"--as={size}", loader=True,
                    no_memory=True)
