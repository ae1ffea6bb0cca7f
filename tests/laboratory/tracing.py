"""Kernel calls seen and tampered with, by strace."""

import shutil
from collections.abc import Sequence
from pathlib import Path

STRACE = shutil.which("strace") or "strace"


def tracing(*options: str) -> Sequence[str]:
    """A wrapper that runs the program under strace, nothing but calls in its log."""
    return (STRACE, "-qq", "--signal=none", *options)


def tampering(log: Path, injections: Sequence[str], paths: Sequence[str] = ()) -> Sequence[str]:
    """A wrapper that changes calls, with `paths` only those on them."""
    # `injections` are as strace's option inject has them.
    names = ",".join("?" + injection.partition(":")[0] for injection in injections)
    options = [word for path in paths for word in ("-P", path)]
    options += [word for injection in injections for word in ("-e", f"inject={injection}")]
    # At the stops that --seccomp-bpf makes a signal comes too late, after the call.
    quick = () if any(":signal=" in injection for injection in injections) else ("--seccomp-bpf",)
    return tracing("-f", *quick, "-o", str(log), "-e", f"trace={names}", *options)
