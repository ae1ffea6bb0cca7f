"""Every way to break a run: each kernel call fails, a signal comes, something is in the way."""

import re
import shutil
from collections.abc import Iterator, Sequence
from typing import NamedTuple

from laboratory.home import shell

from .bench import Command
from .trace import ENDING, Call

ERRORS = {name: words.split() for names, words in {
    # Beside errors results that are none: an early end, a short count, a wait that runs out.
    "openat": "EACCES EMFILE ENFILE ENOMEM ENOENT ENOTDIR ELOOP ENOSPC EROFS EIO EEXIST EINTR EAGAIN",
    "mkdir mkdirat rename renameat2": "EACCES ENOSPC EDQUOT EROFS EXDEV EBUSY ENOENT EEXIST EINTR",
    "unlink unlinkat newfstatat fstat access faccessat": "EACCES EIO EBUSY ENOMEM EROFS ENOENT",
    "read": "EIO ECONNRESET ETIMEDOUT ENOMEM EAGAIN EINTR 0 1",
    "write": "EIO ENOSPC EDQUOT EFBIG EPIPE ECONNRESET ETIMEDOUT EAGAIN EINTR 0 1",
    "sendto": "EPIPE ECONNRESET ENOBUFS ENETUNREACH ETIMEDOUT EAGAIN EINTR 1",
    "recvfrom": "ECONNREFUSED EHOSTUNREACH ENOMEM EAGAIN EINTR 0 5",
    "connect": "ECONNREFUSED ENETUNREACH EHOSTUNREACH EADDRNOTAVAIL EACCES ETIMEDOUT EAGAIN EINTR",
    "accept4": "ECONNABORTED EMFILE ENFILE ENOBUFS EAGAIN EINTR",
    "poll ppoll": "ENOMEM EINVAL EINTR 0",
    "getrandom": "1 ENOSYS EPERM EAGAIN EINTR 0",
    "mmap mremap": "ENOMEM EAGAIN EPERM",
    "brk": "0",  # brk(2): the kernel answers a refused request with the old break.
    "exit_group futex restart_syscall": "",
}.items() for name in names.split()}
OTHER_ERRORS = ("EIO", "EPERM", "ENOMEM", "EINVAL", "EINTR")
PASSING = ("EINTR", "EAGAIN", "EEXIST")
"""Errors that no machine returns for ever."""

PRLIMIT = shutil.which("prlimit") or "prlimit"
MAKE_OBSTACLE = (
    # Made at the temporary name by a shell, in the process that then becomes the program.
    'umask 0; echo foreign >"$name"', 'ln -s "{victim}" "$name"', 'ln -s "{victim}2" "$name"',
    'mkfifo "$name"', 'mkdir "$name"', 'mkdir "$name"; echo mine >"$name/file"')


class Case(NamedTuple):
    """One way to break a run."""

    command: Command
    tls: bool
    options: str = ""
    """strace's."""
    wrapper: Sequence[str] = ()
    """What starts the program."""
    signal: str = ""
    """What ends the program."""
    harmless: bool = False
    """The command has to succeed all the same."""
    grave: bool = False
    """The command must not report success: a file may not have been written or removed."""
    stale: bool = False
    """A temporary file may stay."""
    always: bool = False
    """Part of the short form."""

    def __str__(self) -> str:
        return f"{self.command.name}{' (tls)' * self.tls} {self.options} {' '.join(self.wrapper)}"


def shape(call: Call) -> str:
    """What distinguishes it from calls made elsewhere in the program."""
    return re.sub(r'"(\\.|[^"])*"|\b[0-9][0-9a-fx]*| = .*|\s', "", call.name + call.text)


def with_window(calls: Sequence[Call]) -> list[tuple[Call, bool]]:
    """The calls, and whether they are between a temporary file's creation and the last rename."""
    writing = [turn for turn, call in enumerate(calls)
               if call.target == "file" or call.name.startswith("rename")] or [len(calls)]
    return [(call, writing[0] <= turn <= writing[-1]) for turn, call in enumerate(calls)]


def faults(command: Command, tls: bool, calls: Sequence[Call], seen: set[str]) -> Iterator[Case]:
    """Each call fails, once and, where a machine can be like that, from then on; others combine."""
    # The first call of each shape that is not in `seen` is part of the short form.  For a command
    # that waits for a browser 34 years pass soon after the usual number of clock readings, so that
    # a fault that keeps the browser away does not cost five minutes.
    waits = [call for call in calls if call.name in ("poll", "ppoll")
             and re.search(r"1, (1000\b|\{tv_sec=1,)", call.text)]
    turn = sum(call.name == "clock_gettime" for call in calls) + 20
    jump = f" -e inject=clock_gettime:poke_exit=@arg2=0000004000000000:when={turn}+"
    later = jump if waits else ""
    for call, inside in with_window(calls):
        words = [word for word in ERRORS.get(call.name, OTHER_ERRORS)
                 # A pretended short write would itself damage the file: limits cause real ones.
                 if not (word == "1" and call.target == "file")]
        retried = (call.name in ("poll", "ppoll", "accept4", "getrandom")
                   or (call.name == "write" and call.target == "output")
                   or (call.name in ("read", "write") and call.target == "socket" and tls))
        optional = call.name == "rt_sigprocmask" or re.search("IP_RECVERR|TCP_NODELAY", call.text)
        grave = call.name.startswith(("fsync", "rename", "unlink")) or (
            call.name in ("write", "close") and call.target == "file")
        for word in words:
            fault = (f"-e inject={call.name}:{'retval' if word.isdigit() else 'error'}={word}:"
                     f"when={call.turn}")
            yield Case(command, tls, fault, grave=grave,
                       harmless=bool(retried and word == "EINTR" or optional
                                     or (call.name, word) == ("getrandom", "1")),
                       always=word == words[0] and (inside or shape(call) not in seen))
            if not word.isdigit() and word not in PASSING:
                yield Case(command, tls, fault + "+" + later * (call.name != "clock_gettime"),
                           grave=grave)
        seen.add(shape(call))
    if any(call.name in ("fork", "clone") for call in calls):
        for options in ("-P {opener} -e inject=execve:error=EACCES", "-e inject=dup3:error=EBADF",
                        "-P /dev/null -e inject=openat:error=EMFILE"):
            yield Case(command, tls, options, harmless=True)
    if waits:
        yield Case(command, tls, f"-e inject=clock_gettime:error=EPERM -e inject={waits[0].name}:"
                   f"retval=0:when={waits[0].turn}+", always=True)
    for size in range(0, 100, 9):
        yield Case(command, tls, wrapper=(PRLIMIT, f"--fsize={size}"))


def crashes(command: Command, tls: bool, calls: Sequence[Call]) -> Iterator[Case]:
    """A signal comes as the program enters a call, which is then not made; or a name is taken."""
    # In the short form TERM is tried for all that are held back: that they are, the trace shows.
    for call, inside in with_window(calls):
        for name in ("KILL", *ENDING) * (call.name != "exit_group"):
            yield Case(command, tls, f"-e inject={call.name}:signal={name}:when={call.turn}",
                       signal=name, stale=name == "KILL",
                       always=inside and not tls and name in ("KILL", "TERM"))
    for place in range(sum("O_CREAT" in call.text for call in calls)):
        for script in MAKE_OBSTACLE:
            mine = "mine" in script
            yield Case(command, tls, harmless=not mine, grave=mine, stale=mine, always=not tls,
                       wrapper=shell(f'name="{{{place}}}.tmp.$$"; (PATH=/bin:/usr/bin; umask 77; '
                                     f'mkdir -p "$(dirname "$name")"; {script}); exec "$@"'))
