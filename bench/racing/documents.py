"""JSON documents to measure with."""

import functools
import itertools
import json
import random
from collections.abc import Iterator

WORDS = ("gateway billing search worker session mailer archive metrics ingest render index cache "
         "proxy report backup queue").split()
ESCAPES = (r"\n", r"\"", r"\\", r"\t", r"\u00e9", r"\u0001", r"\ud83d\ude00", r"\/")
TEXTS = "Настройка |設定ファイル、|ρύθμιση |הגדרות |élève naïf |😀🚀|설정 |सेटिंग ".split("|")


def words(chance: random.Random, count: int) -> str:
    return " ".join(chance.choices(WORDS, k=count))


# The parts of a document: about a million values, or a hundred thousand members, are the most that
# the program takes.
def services(chance: random.Random) -> Iterator[str]:
    for number in itertools.count():
        word, below = functools.partial(chance.choice, WORDS), chance.randrange
        yield json.dumps({
            "name": f"{word()}-{number}",
            "image": f"registry.example/{word()}/{word()}:{below(9)}.{below(40)}",
            "enabled": below(4) != 0, "replicas": 1 + below(12), "weight": below(10000) / 1000,
            "description": words(chance, 4 + below(12)),
            "resources": {"cpu": f"{100 * (1 + below(40))}m", "memory": f"{64 << below(6)}Mi"},
            "env": {f"{word()}_{i}": words(chance, 2) if below(8) else 'line one\nline two "x"'
                    for i in range(2 + below(8))},
            "ports": [1024 + below(60000), 1024 + below(60000)],
            "tags": [word(), "région", word()], "owner": None,
            "created": 1_700_000_000 + below(9_999_999)}, ensure_ascii=False, separators=(",", ":"))


def integers(chance: random.Random) -> Iterator[str]:
    return (str(chance.randrange(9_999_999 if i % 3 else 100)) for i in range(999_999))


def keys(chance: random.Random) -> Iterator[str]:
    return (f'"{chance.choice(WORDS)}.{i * 7919}":{i}' for i in range(100_000))


def crafted_keys(_: random.Random) -> Iterator[str]:
    """Keys that are all equal under h = 31 h + c."""
    return (f'"{"".join(pieces)}":1' for pieces in
            itertools.islice(itertools.product(("FY", "Ez"), repeat=17), 100_000))


def long_strings(chance: random.Random) -> Iterator[str]:
    """ASCII without escapes, 100 to 40,000 bytes each."""
    while True:
        length = 100 + chance.randrange(2000 if chance.randrange(4) else 39_900)
        yield f'"{words(chance, length // 4)[:length]}"'


def escapes(chance: random.Random) -> Iterator[str]:
    """An escape every few bytes."""
    pieces = [escape + "word and"[:length] for escape in ESCAPES for length in range(9)]
    while True:
        yield f'"{"".join(chance.choices(pieces, k=4 + chance.randrange(60)))}"'


def non_ascii(chance: random.Random) -> Iterator[str]:
    """Characters of two, three and four bytes."""
    while True:
        yield f'"{"".join(chance.choices(TEXTS, k=1 + chance.randrange(40)))}"'


def nested(_: random.Random) -> Iterator[str]:
    """Towers of arrays and objects, 62 high."""
    return itertools.repeat('[{"inner_node":' * 31 + "1" + "}]" * 31, 15_600)


def small_objects(chance: random.Random) -> Iterator[str]:
    return (f'{{"id":{i},"name":"{chance.choice(WORDS)}","on":true}}' for i in range(240_000))


MAKERS = {"configuration": ('{"version":3,"services":[', services, "]}"),
          **{make.__name__: ("{", make, "}") for make in (keys, crafted_keys)},
          **{make.__name__: ("[", make, "]") for make in (integers, long_strings, escapes,
                                                          non_ascii, nested, small_objects)}}
KINDS = (*MAKERS, "indented")


@functools.cache
def document(kind: str, size: int) -> bytes:
    """The same bytes in every run, about `size` of them and never more."""
    if kind == "indented":  # The configuration as people keep it, by half longer.
        return json.dumps(json.loads(document("configuration", size * 5 // 8)), ensure_ascii=False,
                          indent=2).encode()
    opening, make, closing = MAKERS[kind]
    parts, left = [], size - len(opening + closing)
    for part in make(random.Random(20240229)):
        parts.append(part.encode())
        left -= len(parts[-1]) + 1
        if left < 0:
            parts.pop()
            break
    return opening.encode() + b",".join(parts) + closing.encode()
