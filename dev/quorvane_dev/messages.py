"""Requests and answers as plain records, which `api` and `pages` take and return."""

from __future__ import annotations

import urllib.parse
from collections.abc import Mapping
from dataclasses import dataclass, field

MAX_BODY_BYTES = 8 * 1024 * 1024 + 64 * 1024
"""The longest request body read: a configuration at the client's limit and its envelope."""

MAX_CONFIGURATION_BYTES = 8 * 1024 * 1024 - 16 * 1024
"""The longest configuration stored: with head and envelope, the client can still receive it."""


class HttpError(Exception):
    """A failure as an answer with its status; `message` is one line for a person."""

    def __init__(self, status: int, message: str,
                 headers: tuple[tuple[str, str], ...] = ()) -> None:
        super().__init__(message)
        self.status = status
        self.message = message
        self.headers = headers


@dataclass(frozen=True)
class Request:
    """One request with its complete body; `path` is as sent, header names are in lower case."""

    method: str
    path: str
    query: str
    headers: Mapping[str, str]
    body: bytes

    def media_type(self) -> str:
        """The Content-Type without its parameters, in lower case."""
        return self.headers.get("content-type", "").partition(";")[0].strip().lower()

    def parameters(self) -> dict[str, str]:
        """The query's parameters; the first of each name counts."""
        return _decode_pairs(self.query)

    def form(self) -> dict[str, str]:
        """The fields of a submitted form.  Raises `HttpError` when the body is not a form."""
        if self.media_type() != "application/x-www-form-urlencoded":
            raise HttpError(415, "A form is expected here")
        try:
            return _decode_pairs(self.body.decode("ascii"))
        except UnicodeDecodeError:
            raise HttpError(400, "The form is not percent-encoded") from None


def _decode_pairs(text: str) -> dict[str, str]:
    try:
        pairs = urllib.parse.parse_qsl(text, keep_blank_values=True, errors="strict",
                                       max_num_fields=32)
    except ValueError:
        raise HttpError(400, "The parameters are not UTF-8, or too many") from None
    return dict(reversed(pairs))


@dataclass
class Response:
    """One answer; the server adds the headers Content-Length, Date and Connection."""

    status: int
    body: bytes
    headers: list[tuple[str, str]] = field(default_factory=list)


def json_response(status: int, text: str) -> Response:
    """An answer of the API."""
    return Response(status, text.encode(), [("Content-Type", "application/json")])


def redirect(location: str) -> Response:
    """Makes the browser GET another page, whatever method it had used (RFC 9110 15.4.4)."""
    return Response(303, b"", [("Location", location)])
