"""The private network: to be used by commands that dev/namespace runs, where every port is free."""

import os
import socket
import ssl
import subprocess
import sys
from pathlib import Path
from typing import NoReturn

from quorvane_dev.authority import Authority

from . import ROOT

RESOLVER_FILE = Path("/etc/resolv.conf")
__all__ = ["Authority", "RESOLVER_FILE", "require_loopback", "replace", "serving", "skip"]


def skip(reason: str) -> NoReturn:
    """Ends this process as skipped (77), or as failed where no test may be left out."""
    print(f"SKIPPED: {reason}", flush=True)
    sys.exit(1 if os.environ.get("QUORVANE_TESTS_COMPLETE") == "1" else 77)


def require_loopback() -> None:
    """Skips everything on a machine whose loopback interface is down."""
    try:
        with socket.create_server(("127.0.0.1", 0)) as listener:
            socket.create_connection(listener.getsockname(), 10).close()
    except OSError:
        skip("no loopback network")


def replace(file: Path, content: str, folder: Path) -> None:
    """Puts a file of `folder` in the place of `file`, in this mount namespace."""
    (folder / file.name).write_text(content)
    subprocess.run(["mount", "--bind", folder / file.name, file], check=True)


def serving(authority: Authority, name: str) -> ssl.SSLContext:
    """The server's side of TLS with the certificate NAME.pem of `authority`."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(authority.folder / f"{name}.pem", authority.folder / f"{name}.key")
    return context
