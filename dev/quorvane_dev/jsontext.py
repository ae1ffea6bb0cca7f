"""JSON kept as text: checked, measured and laid out, but never passed through a float.

A configuration is stored as the text that was sent: the service keeps the order of members, the
notation of numbers (1.50 stays 1.50) and the choice of escapes.  It accepts the texts that the
client accepts back: RFC 8259 without duplicate keys or lone surrogates, within the client's limits.
"""

from __future__ import annotations

import json
import re
from typing import Any, NoReturn

MAX_DEPTH = 62
"""Levels of a configuration.  The client stops at 64, and an answer wraps it in two objects."""

MAX_VALUES = 999_000
"""Values in a configuration: the client's 1,000,000 less those that an answer adds."""

HIDDEN = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\u00ad\u061c\u200b\u200e\u200f\u2028-\u202e"
                    "\u2060-\u2069\ud800-\udfff\ufeff\ufff9-\ufffb]")
"""Characters that are invisible or reorder their neighbours, other than tab and line feed."""

_BLANKS = re.compile(r"[ \t\n\r]*")


class Invalid(Exception):
    """A text that is not acceptable JSON.

    `line` and `column` count from 1 in characters; both are 0 where no position is known.
    """

    def __init__(self, reason: str, line: int = 0, column: int = 0) -> None:
        super().__init__(reason)
        self.reason = reason
        self.line = line
        self.column = column

    def __str__(self) -> str:
        place = f"line {self.line}, column {self.column}: " if self.line else ""
        return place + self.reason


class Number(str):
    """A number as it was written."""


def _object(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    members = dict(pairs)
    if len(members) < len(pairs):
        seen: set[str] = set()
        for key, _ in pairs:
            if key in seen:
                raise Invalid(f"duplicate key {escape_hidden(quote(key))}")
            seen.add(key)
    return members


def _constant(word: str) -> NoReturn:
    raise Invalid(f"{word} is not a JSON number")


_DECODER = json.JSONDecoder(object_pairs_hook=_object, parse_float=Number, parse_int=Number,
                            parse_constant=_constant)


def _blanks_end(text: str, offset: int) -> int:
    match = _BLANKS.match(text, offset)
    return match.end() if match else offset


def parse(text: str) -> Any:
    """The value of `text`: dict, list, str, bool, None, or `Number`.  Raises `Invalid`."""
    try:
        value, end = _DECODER.raw_decode(text, _blanks_end(text, 0))
        end = _blanks_end(text, end)
        if end < len(text):
            raise json.JSONDecodeError("More text after the end of the value", text, end)
        if re.search(r"\\u[dD][89a-fA-F]", text):
            json.dumps(value, ensure_ascii=False).encode()
    except json.JSONDecodeError as error:
        raise Invalid(error.msg, error.lineno, error.colno) from None
    except UnicodeEncodeError:
        raise Invalid("half of a surrogate pair in a string") from None
    except RecursionError:
        raise Invalid("nested too deeply") from None
    return value


def parse_members(text: str) -> dict[str, tuple[Any, str]]:
    """The members of the object `text`, each as its value and its own text.  Raises `Invalid`."""
    if not isinstance(parse(text), dict):
        raise Invalid("not an object")
    members: dict[str, tuple[Any, str]] = {}
    # The text is known to be valid: only the positions between its members are searched.
    at = _blanks_end(text, _blanks_end(text, 0) + 1)
    while text[at] != "}":
        key, colon = _DECODER.raw_decode(text, at)
        start = _blanks_end(text, _blanks_end(text, colon) + 1)
        value, end = _DECODER.raw_decode(text, start)
        members[key] = (value, text[start:end])
        at = _blanks_end(text, end)
        if text[at] == ",":
            at = _blanks_end(text, at + 1)
    return members


def check_limits(value: Any) -> None:
    """Raises `Invalid` when `value` is deeper or larger than the client would accept."""
    level, depth, count = [value], 0, 0
    while level:
        depth += 1
        count += len(level)
        if depth > MAX_DEPTH:
            raise Invalid(f"nested more than {MAX_DEPTH} levels deep")
        if count > MAX_VALUES:
            raise Invalid(f"more than {MAX_VALUES} values")
        level = [child for item in level if isinstance(item, (dict, list))
                 for child in (item.values() if isinstance(item, dict) else item)]


def quote(text: str) -> str:
    """`text` as a JSON string, non-ASCII characters left as they are."""
    return json.dumps(text, ensure_ascii=False)


def escape_hidden(text: str) -> str:
    r"""Makes hidden characters readable as \u escapes, which mean the same within a string."""
    return HIDDEN.sub(lambda match: f"\\u{ord(match[0]):04x}", text)


def layout(value: Any, indent: str = "") -> str:
    """`value` on several lines, two blanks a level, hidden characters escaped."""
    inner = indent + "  "
    if isinstance(value, Number):
        return str(value)
    if isinstance(value, dict) and value:
        lines = [f"{inner}{escape_hidden(quote(key))}: {layout(member, inner)}"
                 for key, member in value.items()]
        return "{\n" + ",\n".join(lines) + "\n" + indent + "}"
    if isinstance(value, list) and value:
        return "[\n" + ",\n".join(inner + layout(item, inner) for item in value) + f"\n{indent}]"
    return escape_hidden(json.dumps(value, ensure_ascii=False))
