"""The JSON API that the command line calls: every call a POST, every answer an object.

A failure is an object with one member, "error", whose text the command line shows as it is.
"""

from __future__ import annotations

import json
import re
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from . import jsontext
from .jsontext import Invalid, Number, quote
from .messages import (MAX_CONFIGURATION_BYTES, HttpError, Request, Response, json_response)
from .store import Account, Project, Refused, StaleRevision, Store

OWN_MEMBERS = ("id", "publicKey", "name")
"""Members of every configuration that are the service's: a save may repeat but not change them."""

NOBODY = Account(0, "", "")
"""Who makes the calls that need no session."""


@dataclass(frozen=True)
class Call:
    """One call, its session and the shape of its body already checked."""

    store: Store
    account: Account
    token: str
    members: dict[str, tuple[Any, str]]

    def value(self, key: str) -> Any:
        """A member's value, None when it is missing."""
        return self.members.get(key, (None, ""))[0]

    def text(self, key: str, pattern: str = "(?s:.*)") -> str:
        """A string member that matches `pattern` in full."""
        value = self.value(key)
        if isinstance(value, Number) or not isinstance(value, str):
            raise HttpError(400, f'"{key}" must be a string')
        if not re.fullmatch(pattern, value):
            raise HttpError(400, f'"{key}" is malformed')
        return value

    def whole_number(self, key: str, most: int) -> int:
        """A number member from 0 to `most`, written without fraction or exponent."""
        value = self.value(key)
        if not isinstance(value, Number) or not re.fullmatch("[0-9]{1,18}", value):
            raise HttpError(400, f'"{key}" must be a whole number')
        if int(value) > most:
            raise HttpError(400, f'"{key}" is too large')
        return int(value)

    def project(self) -> Project:
        """The project that the call names; those of other accounts are not found."""
        project = self.store.project(self.account.id, self.text("projectId"))
        if project is None:
            raise HttpError(404, "No such project")
        return project


def _start(call: Call) -> str:
    challenge = call.text("challenge", "[A-Za-z0-9_-]{43}")
    # It returns unencoded in the callback's query: RFC 3986's unreserved characters only.
    state = call.text("state", "[A-Za-z0-9._~-]{1,256}")
    port = call.whole_number("port", 65535)
    if port == 0:
        raise HttpError(400, '"port" must not be 0')
    return json.dumps({"request": call.store.start_authorization(challenge, state, port)})


def _exchange(call: Call) -> str:
    request, code, verifier = (call.text(key) for key in ("request", "code", "verifier"))
    try:
        token, account = call.store.exchange(request, code, verifier)
    except Refused as refusal:
        raise HttpError(400, str(refusal)) from None
    return json.dumps({"token": token, "email": account.email})


def _logout(call: Call) -> str:
    call.store.revoke_token(call.token)
    return json.dumps({"revoked": True})


def _account(call: Call) -> str:
    account = {"canonical_email": call.account.email, "name": call.account.name}
    return json.dumps({"account": account}, ensure_ascii=False)


def _summary(project: Project, revision: int) -> str:
    return f'"id":{quote(project.id)},"name":{quote(project.name)},"revision":{revision}'


def _projects(call: Call) -> str:
    entries = (f"{{{_summary(project, project.revision)}}}"
               for project in call.store.projects(call.account.id))
    return f'{{"projects":[{",".join(entries)}]}}'


def _project(call: Call) -> str:
    project = call.project()
    own = (f'"id":{quote(project.id)},"publicKey":{quote(project.public_key)},'
           f'"name":{quote(project.name)}')
    # The stored text is an object without blanks around it; its members follow our own.
    inside = project.text[1:-1]
    comma = "," if inside.strip() else ""
    return (f'{{"project":{{{_summary(project, project.revision)},'
            f'"config":{{{own}{comma}{inside}}}}}}}')


def _configure(call: Call) -> str:
    project = call.project()
    base = call.whole_number("revision", 10**18)
    value, text = call.members.get("config", (None, ""))
    try:
        text = acceptable_configuration(project, text, value)
        revision = call.store.save(project.id, base, text, "command line")
    except Invalid as error:
        raise HttpError(422, f"Configuration refused: {error}") from None
    except StaleRevision as stale:
        raise HttpError(409, f"Revision {base} is out of date: the project is at revision"
                             f" {stale.current}. Pull again before you push.") from None
    return f'{{"project":{{{_summary(project, revision)}}}}}'


def acceptable_configuration(project: Project, text: str, value: Any) -> str:
    """The text to store for a configuration `text`, of value `value`, sent for `project`.

    The service's own members are removed.  Raises `Invalid` for a text that is not a configuration
    or would change one of them, and `HttpError` for one that is too large.
    """
    if not isinstance(value, dict):
        raise Invalid("a configuration must be a JSON object")
    jsontext.check_limits(value)
    own = dict(zip(OWN_MEMBERS, (project.id, project.public_key, project.name)))
    for key in own:
        if key in value and (isinstance(value[key], Number) or value[key] != own[key]):
            raise Invalid(f'"{key}" belongs to the service and cannot be changed here')
    if own.keys() & value.keys():
        text = "{" + ",".join(f"{quote(key)}:{part}"
                              for key, (_, part) in jsontext.parse_members(text).items()
                              if key not in own) + "}"
    if len(text.encode()) > MAX_CONFIGURATION_BYTES:
        raise HttpError(413, f"A configuration may have {MAX_CONFIGURATION_BYTES} bytes at most")
    return text


_ANONYMOUS: dict[str, Callable[[Call], str]] = {
    "/api/cli/start": _start,
    "/api/cli/exchange": _exchange,
}
_SIGNED_IN: dict[str, Callable[[Call], str]] = {
    "/api/v1/account": _account,
    "/api/v1/logout": _logout,
    "/api/v1/project": _project,
    "/api/v1/project-configure": _configure,
    "/api/v1/projects": _projects,
}


def _bearer(request: Request) -> str:
    """The token of the Authorization header, empty for none: "Bearer " without one is anonymous."""
    scheme, _, token = request.headers.get("authorization", "").strip().partition(" ")
    return token.strip() if scheme.lower() == "bearer" else ""


def answer(store: Store, request: Request) -> Response:
    """Answers one call.  `error_response` makes an answer of an `HttpError` raised here."""
    run = _ANONYMOUS.get(request.path) or _SIGNED_IN.get(request.path)
    if run is None:
        raise HttpError(404, "No such call")
    if request.method != "POST":
        raise HttpError(405, "Calls of the API are made with POST", (("Allow", "POST"),))
    if request.media_type() != "application/json":
        raise HttpError(415, "Calls of the API are made in application/json")
    token = _bearer(request)
    account = NOBODY if request.path in _ANONYMOUS else store.session_account(token)
    if account is None:
        raise HttpError(401, "This session is not signed in, or no longer: run quorvane login",
                        (("WWW-Authenticate", "Bearer"),))
    try:
        members = jsontext.parse_members(request.body.decode())
    except UnicodeDecodeError:
        raise HttpError(400, "The request is not UTF-8") from None
    except Invalid as error:
        raise HttpError(400, f"The request is not a JSON object: {error}") from None
    return json_response(200, run(Call(store, account, token, members)))


def error_response(error: HttpError) -> Response:
    """The API's form of a failure."""
    response = json_response(error.status, json.dumps({"error": error.message},
                                                      ensure_ascii=False))
    response.headers.extend(error.headers)
    return response
