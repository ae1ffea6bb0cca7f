"""The private network: to be used by commands that dev/namespace runs, where every port is free."""

import os
import ssl
import subprocess
import sys
from pathlib import Path

from quorvane_dev.authority import Authority

RESOLVER_FILE = Path("/etc/resolv.conf")


def require_privacy() -> None:
    """Ends this process where it would change the machine's own files or network."""
    if os.environ.get("QUORVANE_NAMESPACE") != os.readlink("/proc/self/ns/net"):
        sys.exit("This suite replaces /etc/resolv.conf and adds addresses: run it by scripts/test NAME,"
                 " in dev/namespace.")


def replace(file: Path, content: str, folder: Path) -> None:
    """Puts a file of `folder` in the place of `file`, in this mount namespace."""
    require_privacy()
    (folder / file.name).write_text(content)
    subprocess.run(["mount", "--bind", folder / file.name, file], check=True)


def serving(authority: Authority, name: str) -> ssl.SSLContext:
    """The server's side of TLS with the certificate NAME.pem of `authority`."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(authority.folder / f"{name}.pem", authority.folder / f"{name}.key")
    return context
