"""The command line of the development service."""

from __future__ import annotations

import argparse
import gc
import os
import signal
import sqlite3
import sys
from pathlib import Path

from .server import Service

END_SIGNALS = {signal.SIGINT, signal.SIGTERM, signal.SIGHUP}


def main(arguments: list[str] | None = None) -> int:
    """Serves until SIGINT, SIGTERM or SIGHUP; returns the exit status."""
    parser = argparse.ArgumentParser(
        prog="quorvane-service", allow_abbrev=False,
        description="The quorvane development service, on 127.0.0.1 only.")
    parser.add_argument("--port", type=int, default=0, metavar="N",
                        help="port to listen on (default: a free one)")
    parser.add_argument("--data", type=Path, metavar="FILE",
                        help="keep the state in this SQLite file (default: a temporary one)")
    parser.add_argument("--name", action="append", default=[], metavar="HOST",
                        help="answer for this host, too, which a front passes on; may be repeated"
                             " (127.0.0.1 and localhost are always answered)")
    parser.add_argument("--verbose", action="store_true", help="log requests on standard error")
    options = parser.parse_args(arguments)
    if not 0 <= options.port <= 65535:
        parser.error("the port must be a number from 0 to 65535")

    os.umask(0o077)
    # A large document is a million objects without cycles; searching them for cycles took two
    # thirds of the parsing time.
    gc.set_threshold(100_000)
    # Blocked before any thread starts, so that the signals are left for sigwait.
    signal.pthread_sigmask(signal.SIG_BLOCK, END_SIGNALS)
    try:
        service = Service(options.port, options.data, options.name, options.verbose)
    except OSError as error:
        print(f"Cannot listen on 127.0.0.1:{options.port}: {error.strerror}", file=sys.stderr)
        return 1
    except (sqlite3.Error, ValueError) as error:
        print(f"Cannot use the state file {options.data}: {error}", file=sys.stderr)
        return 1
    with service:
        print(f"quorvane development service on {service.origin}", flush=True)
        signal.sigwait(END_SIGNALS)
    return 0
