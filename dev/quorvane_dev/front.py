"""The servers in front of a deployment: nginx with TLS, and dnsmasq, which resolves its name.

    dev/front FOLDER HOST PORT   answers for https://HOST and passes calls on to 127.0.0.1:PORT,
                                 until SIGINT, SIGTERM or SIGHUP; prints a line when it is ready

Run it in a namespace (see dev/namespace): it takes ports 53 and 443 and replaces resolv.conf.
"""

import os
import pathlib
import signal
import socket
import subprocess
import sys
import time

from .authority import Authority

START_LIMIT_S = 10
END_SIGNALS = {signal.SIGINT, signal.SIGTERM, signal.SIGHUP}

NGINX = """
user root; daemon off; master_process off; pid nginx.pid; error_log stderr;
events {{}}
http {{
    access_log off;
    client_body_temp_path body; proxy_temp_path proxy;
    fastcgi_temp_path fastcgi; uwsgi_temp_path uwsgi; scgi_temp_path scgi;
    client_max_body_size 9m;  # More than the service's own limit.
    server {{
        listen 127.0.0.1:443 ssl;
        server_name {host};
        ssl_certificate {host}.pem; ssl_certificate_key {host}.key;
        location / {{
            proxy_pass http://127.0.0.1:{port};
            proxy_http_version 1.1;
            proxy_set_header Host $http_host;
            proxy_set_header X-Forwarded-Proto $scheme;
        }}
    }}
}}
"""


class Front:
    """Both servers, as a context; clients must trust the certificates in `trust_file`."""

    def __init__(self, folder, host, port):
        os.environ["PATH"] += ":/usr/sbin:/sbin"
        self.folder = pathlib.Path(folder)
        self.host = host
        self.origin = f"https://{host}"
        authority = Authority(self.folder)
        authority.issue(host, host)
        self.trust_file = authority.trust_file
        (self.folder / "nginx.conf").write_text(NGINX.format(host=host, port=port))
        self._processes = []

    def __enter__(self):
        # Only the name server of resolv.conf is asked, whatever else the system has.
        self._replace("/etc/resolv.conf", "nameserver 127.0.0.1\n")
        self._replace("/etc/nsswitch.conf", "hosts: files dns\n")
        try:
            # localhost is for minimal systems, which lack /etc/hosts as well.
            self._start("dnsmasq", "-d", "-C", "/dev/null", "--no-resolv", "--no-hosts",
                        "--listen-address=127.0.0.1", "--bind-interfaces",
                        f"--host-record={self.host},127.0.0.1",
                        "--host-record=localhost,127.0.0.1", stderr=subprocess.DEVNULL)
            self._start("nginx", "-p", self.folder, "-c", "nginx.conf", "-e", "stderr")
            self._wait()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in self._processes:
            process.kill()  # They have no state, and SIGTERM is blocked in them.
            process.wait()

    def _replace(self, path, text):
        if os.path.exists(path):
            file = self.folder / os.path.basename(path)
            file.write_text(text)
            subprocess.run(["mount", "--bind", file, path], check=True)

    def _start(self, *command, **options):
        self._processes.append(subprocess.Popen(command, stdin=subprocess.DEVNULL, **options))

    def _wait(self):
        deadline = time.monotonic() + START_LIMIT_S
        while True:
            try:
                return socket.create_connection((self.host, 443), START_LIMIT_S).close()
            except OSError as error:
                ended = [process.args[0] for process in self._processes if process.poll() is not None]
                if ended or time.monotonic() > deadline:
                    raise RuntimeError(f"{ended or self.origin}: {error}") from None
            time.sleep(0.02)


def main() -> None:
    """Serves until one of END_SIGNALS arrives."""
    # Blocked from the start, so that neither setting up nor removing is interrupted.
    signal.pthread_sigmask(signal.SIG_BLOCK, END_SIGNALS)
    with Front(*sys.argv[1:]) as front:
        print(f"nginx on {front.origin}", flush=True)
        signal.sigwait(END_SIGNALS)
