"""What the suites share: homes, scripted peers, the private network, tracing."""
# module      public names
# `peers`     `Peer`, a listener that plays a script on each connection, plainly or over TLS; the
#             steps of scripts; `answer`, a response as bytes; `NameServer`
# `home`      `Home`, a user's home in which the program is started; `Scene`, one with a peer
# `rows`      `Row`, one run of the program and what is expected of it; `Rows`, a case of tables
# `network`   what needs the namespaces of dev/namespace: the resolver file, certificates
# `tracing`   strace: the kernel calls of a run
# `messages`  docs/messages.md as data: every line that the program may print
#
# Nothing uses a fixed path, and outside the private network no fixed port; every wait ends with what
# it waits for.  TIME_LIMIT_S guards against hanging for ever and is no expectation.  The environment
# variable QUORVANE names the program under test.  The development service's package `quorvane_dev`
# can be imported once this one is.

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "dev"))
