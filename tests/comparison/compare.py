"""Holds the program's own machinery against independent implementations, under the sanitizers.

    scripts/compare [--documents N] [--messages N] [--seed N]

JSON with Python's json module, SHA-256 and base64url with the openssl command, DNS messages with
dnspython.  Everything is generated from the seed.  Exit status 1 at the first difference.

scripts/setup build test installs what is needed, dnspython for Debian's own Python.
"""

from __future__ import annotations

import argparse
import ipaddress
import json
import random
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Any, NoReturn

try:
    import dns.flags
    import dns.message
    import dns.name
    import dns.rrset
except ImportError as missing:
    raise SystemExit(f"scripts/compare: {missing}; scripts/setup build test installs it") from None

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/compare"


def build() -> None:
    for words in (["cmake", "--preset", "asan", "-B", str(BUILD)],
                  ["cmake", "--build", str(BUILD), "--target", "probe"]):
        done = subprocess.run(words, cwd=ROOT, check=False, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        if done.returncode:
            raise SystemExit(done.stdout)


def ask(questions: list[str]) -> list[str]:
    """What the program's own code answers."""
    done = subprocess.run([BUILD / "tests/probe", "answer"], input="\n".join(questions) + "\n",
                          text=True, check=True, stdout=subprocess.PIPE)
    answers = done.stdout.split("\n")[:-1]
    if len(answers) != len(questions):
        raise SystemExit(f"scripts/compare: {len(answers)} answers to {len(questions)} questions")
    return answers


def judge(what: str, questions: list[str], expected: list[str]) -> None:
    """Ends the run at the first answer that is not the expected one."""
    for question, ours, theirs in zip(questions, ask(questions), expected):
        if ours != theirs:
            raise SystemExit(f"{what} differs\n  asked: {question}\n  ours: {ours}\n"
                             f"  expected: {theirs}")
    print(f"{len(questions):9} {what}", flush=True)


def compare_encodings(seeded: random.Random) -> None:
    """Every length up to five blocks, and some large ones."""
    texts = [seeded.randbytes(size) for size in range(321)]
    texts += [seeded.randbytes(seeded.randrange(200_000)) for _ in range(40)]
    with tempfile.TemporaryDirectory() as folder:
        files = [Path(folder) / str(i) for i in range(len(texts))]
        for file, text in zip(files, texts):
            file.write_bytes(text)
        digests = subprocess.check_output(["openssl", "dgst", "-sha256", "-r", *files], text=True)
        encoded = [subprocess.check_output(["openssl", "base64", "-A", "-in", file], text=True)
                   for file in files]
    judge("digests as openssl dgst -sha256", [f"sha256 {text.hex()}" for text in texts],
          [line.split()[0] for line in digests.splitlines()])
    judge("texts as openssl base64", [f"base64url {text.hex()}" for text in texts],
          [text.translate(str.maketrans("+/", "-_", "=\n")) for text in encoded])


class Number(str):
    """A number as it was written."""


class Refused(Exception):
    """Not JSON, or JSON with a key that occurs twice in an object."""


def refuse(word: str) -> NoReturn:
    raise Refused(word)


def unique(members: list[tuple[str, Any]]) -> dict[str, Any]:
    return dict(members) if len(dict(members)) == len(members) else refuse("duplicate key")


def compact(value: Any) -> str:
    """The text of a value without blanks, its numbers as they were written."""
    if isinstance(value, Number):
        return str(value)
    if isinstance(value, dict):
        members = (f"{compact(key)}:{compact(member)}" for key, member in value.items())
        return "{" + ",".join(members) + "}"
    if isinstance(value, list):
        return "[" + ",".join(map(compact, value)) + "]"
    return json.dumps(value, ensure_ascii=False)


def as_python_reads(document: bytes) -> str:
    """The hexadecimal digits of the compact text, or "refused"."""
    try:
        value = json.loads(document.decode(), object_pairs_hook=unique, parse_int=Number,
                           parse_float=Number, parse_constant=refuse)
        return compact(value).encode().hex()  # A lone surrogate cannot be encoded.
    except (ValueError, Refused):
        return "refused"


NUMBERS = ("0", "-0", "7", "-12", "123456", "9223372036854775807", "-9223372036854775809", "1.5",
           "0.125", "-2.50", "1e3", "2E+02", "5e-1", "1e999", "123456789012345678901234567890")
TEXTS = ("a", "plain text", "a longer piece of plain text, of several vectors", r"\n", r"\"",
         r"\\", r"\/", r"\b\f\r\t", r"\u0000", r"\u001F", r"\u00e9", r"\uFFFF", r"\ud83d\ude00",
         "\u00e9", "\u20ac", "\U0001f600", "\x7f")
BLANKS = ("", "", "", " ", "\n", "\r\n  ", "\t")
MISTAKES = (b" ", b"\n", b"\v", *(
    b'{ } [ ] , : " \\ \\u 0 - + . e 1 tru null NaN Infinity \\ud83d \\udc00 \x00 \x01 \x1f '
    b"\x80 \xc0 \xe0 \xed\xa0\x80 \xf4 \xff \xf0\x80 \xef\xbb\xbf").split(b" "))


def json_text(seeded: random.Random, depth: int = 0) -> str:
    """A value of any kind, with blanks between its tokens."""
    kind = seeded.randrange(6 if depth > 5 else 10)
    if kind < 2:
        return seeded.choice(NUMBERS)
    if kind < 5:
        return '"' + "".join(seeded.choices(TEXTS, k=seeded.randrange(6))) + '"'
    if kind == 5:
        return seeded.choice(("true", "false", "null"))
    parts = []
    for number in range(seeded.randrange(40 if seeded.random() < 0.1 else 5)):
        # Most keys are new; some may be there already, in other words.
        key = (seeded.choice(('"k1"', '""', r'"\u006b1"')) if seeded.random() < 0.05
               else f'"k{number}"')
        member = (key, ":") if kind > 7 else ()
        parts.append("".join(seeded.choice(BLANKS) + token for token in
                             (*member, json_text(seeded, depth + 1), "")))
    return ("{%s}" if kind > 7 else "[%s]") % (",".join(parts) + seeded.choice(BLANKS))


def spoiled(seeded: random.Random, text: bytes) -> bytes:
    """The text with one edit, which may leave it valid."""
    at, length = seeded.randrange(len(text) + 1), seeded.randrange(3)
    piece = seeded.choice((b"", seeded.choice(MISTAKES), seeded.randbytes(1), text[at // 2:at]))
    return text[:at] + piece + text[at + length:]


def compare_json(seeded: random.Random, count: int) -> None:
    """Documents of which about half are refused."""
    documents = []
    for _ in range(count):
        document = json_text(seeded).encode()
        for _ in range(seeded.choice((0, 1, 1, 2))):
            document = spoiled(seeded, document)
        documents.append(document)
    expected = [as_python_reads(document) for document in documents]
    judge(f"JSON documents, {expected.count('refused')} of them refused, as Python's json",
          [f"json {document.hex()}" for document in documents], expected)


def label(seeded: random.Random) -> str:
    size = seeded.choice((1, 2, 8, 20, 62, 63))
    return "".join(seeded.choices("abcdefghijklmnopqrstuvwxyz0123456789-_", k=size))


def host(seeded: random.Random) -> str:
    """A name of up to 253 characters."""
    labels = [label(seeded)]
    while seeded.random() < 0.7 and len(".".join(labels)) < 189:
        labels.append(label(seeded))
    return ".".join(labels)


def in_groups(address: str) -> str:
    """An IPv6 address in eight groups, an IPv4 address as it is."""
    parsed = ipaddress.ip_address(address)
    if parsed.version == 4:
        return str(parsed)
    return ":".join(f"{int(group, 16):x}" for group in parsed.exploded.split(":"))


def compare_dns(seeded: random.Random, count: int) -> None:
    """Queries, and responses with compressed names, aliases, records of other types and classes,
    authority and additional records, cut short, and with every response code."""
    queries, expected_queries, responses, expected = [], [], [], []
    for _ in range(count):
        name = host(seeded)
        identifier = seeded.randrange(0x10000)
        kind = seeded.choice(("A", "AAAA"))
        query = dns.message.make_query(name, kind, id=identifier)
        queries.append(f"query {name} {identifier} {1 if kind == 'A' else 28}")
        expected_queries.append(query.to_wire().hex())

        response = dns.message.make_response(query)
        response.set_rcode(0 if seeded.random() < 0.9 else seeded.randrange(1, 16))
        if seeded.random() < 0.1:
            response.flags |= dns.flags.TC
        owner, addresses = name + ".", []
        for _ in range(seeded.choice((0, 1, 1, 2, 5, 20))):
            record = seeded.choice(("A", "A", "AAAA", "AAAA", "CNAME", "TXT", "MX", "HS"))
            if record == "CNAME":
                target = host(seeded)
                answer = dns.rrset.from_text(owner, 60, "IN", "CNAME", target + ".")
                owner = target + "."
            elif record == "TXT":
                answer = dns.rrset.from_text(owner, 60, "IN", "TXT", f'"{label(seeded)}"')
            elif record == "MX":
                answer = dns.rrset.from_text(owner, 60, "IN", "MX", f"10 mail.{label(seeded)}.")
            elif record == "HS":
                answer = dns.rrset.from_text(owner, 60, "HS", "A", r"\# 4 c0000207")
            else:
                bits = 32 if record == "A" else 128
                number = seeded.getrandbits(bits) >> seeded.choice((0, 0, bits // 2))
                address = str((ipaddress.IPv4Address if record == "A"
                               else ipaddress.IPv6Address)(number))
                addresses.append(in_groups(address))
                answer = dns.rrset.from_text(owner, 60, "IN", record, address)
            response.answer.append(answer)
        answered = len(response.to_wire())
        if seeded.random() < 0.3:
            response.authority.append(dns.rrset.from_text(
                dns.name.root, 60, "IN", "NS", "a.name.example."))
            response.additional.append(
                dns.rrset.from_text("a.name.example.", 60, "IN", "A", "192.0.2.9"))
        wire = response.to_wire(max_size=65535)
        good = response.rcode() == 0
        if seeded.random() < 0.2:
            # Cut before the end of the answers there is nothing to believe.
            wire = wire[:seeded.randrange(answered)]
            good = False
        responses.append(f"response {wire.hex()} {identifier}" if wire else "response 00 0")
        expected.append(" ".join(addresses) if good else "refused")
    judge("DNS queries as dnspython writes them", queries, expected_queries)
    judge("DNS responses that dnspython wrote", responses, expected)


def main() -> int:
    parser = argparse.ArgumentParser("scripts/compare", description=__doc__.splitlines()[0])
    parser.add_argument("--documents", type=int, default=100_000, help="of JSON")
    parser.add_argument("--messages", type=int, default=20_000, help="of DNS, of each kind")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    build()
    seeded = random.Random(options.seed)
    compare_encodings(seeded)
    compare_dns(seeded, options.messages)
    compare_json(seeded, options.documents)
    return 0


if __name__ == "__main__":
    sys.exit(main())
