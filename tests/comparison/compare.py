"""Holds the program's own machinery against independent implementations, under the sanitizers."""
# scripts/compare [--documents N] [--probe PROGRAM]
#
# JSON with Python's json module, SHA-256 and base64url with Python's, which are OpenSSL's and C.
# The documents are the fuzzer's corpus, and what a few edits make of it.  Exit status 1 at the
# first difference.

import argparse
import base64
import hashlib
import json
import random
import re
import subprocess
from pathlib import Path
from typing import Any, NoReturn

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/compare"
NUMBER = "a number of the document: "


def judge(probe: Path, what: str, questions: list[str], expected: list[str]) -> None:
    """Ends the run at the first answer of the program's own code that is not the expected one."""
    asked = subprocess.run([probe, "answer"], input="\n".join(questions) + "\n",
                           text=True, check=True, stdout=subprocess.PIPE)
    for question, ours, theirs in zip(questions, asked.stdout.split("\n"), expected):
        if ours != theirs:
            raise SystemExit(f"{what} differs\n  asked: {question}\n  ours: {ours}\n"
                             f"  expected: {theirs}")
    print(f"{len(questions):9} {what}", flush=True)


def refuse(word: str) -> NoReturn:
    raise ValueError(word)


def unique(members: list[tuple[str, Any]]) -> dict[str, Any]:
    return dict(members) if len(dict(members)) == len(members) else refuse("duplicate key")


def as_python_reads(document: bytes) -> str:
    """The hexadecimal digits of the compact text, numbers as they were written, or "refused"."""
    try:
        value = json.loads(document.decode(), object_pairs_hook=unique, parse_int=NUMBER.__add__,
                           parse_float=NUMBER.__add__, parse_constant=refuse)
        text = json.dumps(value, ensure_ascii=False, separators=(",", ":"))
        # A lone surrogate cannot be encoded.
        return re.sub(f'"{NUMBER}([^"]*)"', r"\1", text).encode().hex()
    except ValueError:
        return "refused"


def edited(seeded: random.Random, text: bytes, corpus: list[bytes]) -> bytes:
    """A document with up to two edits, which may leave it valid: bytes of another one, or any."""
    for _ in range(seeded.randrange(3)):
        other = seeded.choice(corpus)
        at, start = seeded.randrange(len(text) + 1), seeded.randrange(len(other) + 1)
        part = other[start:start + seeded.randrange(9)]
        piece = seeded.choice((other, part, seeded.randbytes(1)))
        text = text[:at] + piece + text[at + seeded.randrange(3):]
    return text


def texts_of_bytes() -> list[bytes]:
    """Texts with every kind of lead and every bound of what follows, around the ends of blocks."""
    leads = bytes.fromhex("7f80c1c2dfe0e1edeeeff0f1f4f5")
    seconds = bytes.fromhex("007f808f909fa0bfc0")
    return [b'"%s%s%s"' % (b"a" * before, bytes((lead, second)) + rest, b"a" * 90)
            for before in (0, 63, 64, 65, 66, 130) for lead in leads for second in seconds
            for rest in (b"", b"\x80", b"\xbf\x80", b"\x80A", b"\\u00e9")]


def main() -> None:
    parser = argparse.ArgumentParser("scripts/compare", description=__doc__)
    parser.add_argument("--documents", type=int, default=100_000, help="of JSON")
    parser.add_argument("--probe", type=Path, help="a built one")
    options = parser.parse_args()
    probe = options.probe or BUILD / "tests/probe"
    if not options.probe:
        for words in (["--preset", "asan", "-B", BUILD], ["--build", BUILD, "--target", "probe"]):
            subprocess.run(["cmake", *words], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    seeded = random.Random(1)
    texts = [seeded.randbytes(size) for size in (*range(321), *seeded.sample(range(200_000), 40))]
    judge(probe, "digests", [f"sha256 {text.hex()}" for text in texts],
          [hashlib.sha256(text).hexdigest() for text in texts])
    judge(probe, "base64url texts", [f"base64url {text.hex()}" for text in texts],
          [base64.urlsafe_b64encode(text).decode().rstrip("=") for text in texts])
    # Larger ones, and deeper than Python reads, are the unit tests'.
    corpus = [text for file in sorted((ROOT / "tests/fuzz/corpus/json").iterdir())
              if len(text := file.read_bytes()) < 2000 and text.count(b"[") + text.count(b"{") < 50]
    valid = [text for text in corpus if as_python_reads(text) != "refused"]
    documents = corpus + [edited(seeded, seeded.choice(valid), corpus)
                          for _ in range(options.documents)]
    documents += texts_of_bytes()
    expected = [as_python_reads(document) for document in documents]
    judge(probe, f"JSON documents, {expected.count('refused')} of them refused",
          [f"json {document.hex()}" for document in documents], expected)


main()
