"""Kernel calls seen and tampered with, by strace."""

import shutil
from collections.abc import Sequence


def tracing(*options: str) -> Sequence[str]:
    """A wrapper that runs the program under strace, nothing but calls in its log."""
    return (shutil.which("strace") or "strace", "-qq", "--signal=none", "-s", "4096", *options)
