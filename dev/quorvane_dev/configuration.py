"""JSON whose numbers stay as they were written: 1.50 stays 1.50.  Failures are `ValueError`."""

import json
import re
import secrets
from typing import Any, NoReturn

MAX_BYTES = 8 * 1024 * 1024 - 16 * 1024
"""The longest configuration stored: with what a response adds, the client can still receive it."""

MAX_VALUES = 999_000
MAX_DEPTH = 62
"""The client stops at 64, and a response puts a configuration in two objects."""

NUMBER = secrets.token_hex(8)
"""Begins the text that stands for a number in a value; no sender can know it."""


def _unique(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    members = dict(pairs)
    if len(members) < len(pairs):
        raise ValueError("a key occurs twice in one object")
    return members


def _constant(word: str) -> NoReturn:
    raise ValueError(f"{word} is not a JSON number")


def parse(text: str) -> dict[str, Any]:
    """The members of a JSON object, each number in them as NUMBER and its own text."""
    try:
        value = json.loads(text, parse_int=NUMBER.__add__, parse_float=NUMBER.__add__,
                           parse_constant=_constant, object_pairs_hook=_unique)
    except RecursionError:
        raise ValueError("nested too deeply") from None
    if not isinstance(value, dict):
        raise ValueError("not a JSON object")
    return value


def write(value: object, **layout: Any) -> str:
    """The text of a value; half of a surrogate pair in a string is a failure."""
    text = json.dumps(value, ensure_ascii=False, **layout)
    text.encode()
    return re.sub(f'"{NUMBER}([^"]*)"', r"\1", text)


def compact(value: object) -> str:
    return write(value, separators=(",", ":"))


def laid_out(text: str) -> str:
    return write(parse(text), indent=2)


def stored(value: object, own: dict[str, str]) -> str:
    """The text to store for a configuration, which may repeat the members of `own`, unchanged."""
    if not isinstance(value, dict):
        raise ValueError("not a JSON object")
    for key in own:
        if value.get(key, own[key]) != own[key]:
            raise ValueError(f'"{key}" belongs to the service and cannot be changed here')
    text = compact({key: member for key, member in value.items() if key not in own})
    level, count = [value], 0
    for _ in range(MAX_DEPTH):
        count += len(level)
        level = [child for item in level if isinstance(item, (dict, list))
                 for child in (item.values() if isinstance(item, dict) else item)]
    if level or count > MAX_VALUES or len(text.encode()) > MAX_BYTES:
        raise ValueError(f"more than {MAX_BYTES} bytes, {MAX_VALUES} values or {MAX_DEPTH} levels")
    return text
