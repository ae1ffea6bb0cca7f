"""A throw-away certificate authority: keys and certificates for servers of the demo and tests."""

import ipaddress
import pathlib
import subprocess


class Authority:
    """Issues certificates into `folder`; `self.trust_file` is what a client must trust."""

    def __init__(self, folder, name="ca"):
        self.folder = pathlib.Path(folder)
        self.trust_file = self.issue(name, subject="Test authority", issuer=name, ca=True)

    def issue(self, name, *hosts, subject="Test", issuer="ca", usage="serverAuth", days=(-1, 30),
              ca=False, chain=True):
        """Makes NAME.key and NAME.pem, signed by `issuer` (its own name for self-signed), valid
        from and to these days from now, and returns the path of the certificate."""
        # RFC 5280 4.2.1: required by strict verifiers, which Python's is since 3.13.
        extensions = [f"basicConstraints=critical,CA:{str(ca).upper()}",
                      "subjectKeyIdentifier=hash", "authorityKeyIdentifier=keyid"]
        if hosts:
            extensions.append("subjectAltName=" + ",".join(map(self._alternative, hosts)))
        if ca:
            extensions.append("keyUsage=critical,keyCertSign,cRLSign")
        else:
            extensions.append(f"extendedKeyUsage={usage}")
        self._openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                      "-nodes", "-subj", f"/CN={subject} {name}", "-keyout", f"{name}.key", "-out",
                      f"{name}.csr")
        (self.folder / "ca.cnf").write_text(
            "[ca]\ndefault_ca=d\n[d]\nnew_certs_dir=.\ndatabase=index\nserial=serial\n"
            "default_md=sha256\npolicy=p\nunique_subject=no\nrand_serial=yes\n[p]\n"
            "commonName=supplied\n[x]\n" + "\n".join(extensions) + "\n")
        (self.folder / "index").touch()
        self._openssl("ca", "-batch", "-notext", "-config", "ca.cnf", "-extensions", "x",
                      "-startdate", self._date(days[0]), "-enddate", self._date(days[1]), "-in",
                      f"{name}.csr", "-out", f"{name}.pem", "-keyfile", f"{issuer}.key",
                      *(["-selfsign"] if issuer == name else ["-cert", f"{issuer}.pem"]))
        path = self.folder / f"{name}.pem"
        if chain and issuer not in (name, "ca"):
            with path.open("a") as file:
                file.write((self.folder / f"{issuer}.pem").read_text())
        return path

    @staticmethod
    def _alternative(host):
        try:
            return f"IP:{ipaddress.ip_address(host)}"
        except ValueError:
            return f"DNS:{host}"

    @staticmethod
    def _date(days):
        return subprocess.check_output(
            ["date", "-u", "-d", f"{days} days", "+%Y%m%d%H%M%SZ"], text=True).strip()

    def _openssl(self, *arguments):
        done = subprocess.run(["openssl", *arguments], cwd=self.folder, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != 0:
            raise RuntimeError(f"openssl {' '.join(arguments)}\n{done.stdout}")
