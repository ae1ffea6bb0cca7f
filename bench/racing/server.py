"""nginx with the answers of the races, and a system's store of certificates that trusts it."""

import contextlib
import shutil
import socket
import subprocess
import time
from collections.abc import Iterator
from pathlib import Path

from quorvane_dev.authority import Authority

# How an answer travels.  What nginx might replace has no announced length: it leaves in chunks,
# each as large as the buffer.  Over TLS a record is what the client reads.
CHUNKED = 'sub_filter_types *; sub_filter "nothing of this" ""; output_buffers 1'
PLAIN, TLS, TLS_CHUNKED = "plain, length", "TLS, length", "TLS, chunks of 16 KB"
WAYS = {PLAIN: "",
        "plain, chunks of 512": f"{CHUNKED} 512;",
        TLS: "", TLS_CHUNKED: f"{CHUNKED} 16k;",
        "TLS, chunks of 1 byte": f"{CHUNKED} 1;",
        "TLS, reads of 512": "ssl_buffer_size 512;",
        "TLS, reads of 1 byte": "ssl_buffer_size 1;",
        "TLS, chunks of 512 in reads of 1 byte": f"ssl_buffer_size 1; {CHUNKED} 512;"}
# An API path has no file, and what replaces error 404 is the file named by the request's project.
# Only a mirror reads the body first.
SERVER = """
    server {{
        listen {address}; {way}
        location /api/ {{ mirror /read; error_page 404 =200 /$answer; }}
        location = /read {{ internal; return 204; }}
    }}
"""
NGINX = """
user root; daemon off; master_process off; pid nginx.pid; error_log nginx.log crit;
events {{}}
http {{
    access_log off; keepalive_timeout 0; root answers; types {{}} default_type application/json;
    client_max_body_size 9m; client_body_buffer_size 9m;
    client_body_temp_path body; proxy_temp_path proxy;
    fastcgi_temp_path fastcgi; uwsgi_temp_path uwsgi; scgi_temp_path scgi;
    ssl_certificate localhost.pem; ssl_certificate_key localhost.key; ssl_protocols TLSv1.3;
    map $request_body $answer {{ default account; '~"projectId": ?"(?<named>[^"]+)"' $named; }}
    {servers}
}}
"""


def project(config: bytes) -> bytes:
    """What the service answers to a pull; `config` is a JSON object."""
    members = b'"id":"p","name":"n","publicKey":"k"'
    return b'{"project":{%s,"revision":7,"config":{%s,%s}}' % (members, members, config[1:])


@contextlib.contextmanager
def serving() -> Iterator[dict[str, str]]:
    """Serves the files in `answers` until the block is left; the origins by way."""
    Authority(".").issue("localhost", "localhost")
    origins, servers = {}, ""
    for way, settings in WAYS.items():
        tls = way.startswith("TLS")
        with socket.create_server(("::1" if tls else "127.0.0.1", 0),
                                  family=socket.AF_INET6 if tls else socket.AF_INET) as listener:
            port = listener.getsockname()[1]
        origins[way] = f"https://localhost:{port}" if tls else f"http://127.0.0.1:{port}"
        address = f"[::1]:{port} ssl" if tls else f"127.0.0.1:{port}"
        servers += SERVER.format(address=address, way=settings)
    Path("nginx.conf").write_text(NGINX.format(servers=servers))
    with subprocess.Popen(["nginx", "-p", ".", "-c", "nginx.conf", "-e", "nginx.log"]) as process:
        try:
            while socket.socket(socket.AF_INET6).connect_ex(("::1", port)):
                if process.poll() is not None:
                    raise SystemExit(Path("nginx.log").read_text())
                time.sleep(0.02)
            yield origins
        finally:
            process.kill()


def trust_by_system() -> None:
    """Adds the authority to the system's store as an administrator would."""
    # The store is a copy that only this mount namespace sees.
    for name, original in (("certs", "/etc/ssl/certs"),
                           ("added", "/usr/local/share/ca-certificates")):
        shutil.copytree(original, name, symlinks=True)
        subprocess.run(["mount", "--bind", name, original], check=True)
    shutil.copy("ca.pem", "added/racing.crt")
    subprocess.run(["update-ca-certificates", "--hooksdir", "/nonexistent"], check=True,
                   capture_output=True)
