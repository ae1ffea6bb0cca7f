"""The Flask application: pages for a browser, and the JSON calls that the command line makes.

Pages work without scripts, and their links are relative to the origin, which a front may change.
"""

import difflib
import re
import secrets
import sqlite3
from pathlib import Path
from typing import Any

from flask import (Blueprint, Flask, Response, abort, g, jsonify, redirect, render_template, request,
                   session)
from werkzeug.exceptions import HTTPException

from . import configuration, store

MAX_BODY_BYTES = 8 * 1024 * 1024 + 64 * 1024
"""The longest request body: a configuration at the client's limit and what is sent with it."""

MAX_EDITED_CHARACTERS = 1024 * 1024
MAX_COMPARED_LINES = 3000
"""The work of comparing can grow with the square."""

# No form-action: browsers apply it to redirects too, and after a decision one leads to 127.0.0.1.
POLICY = ("default-src 'none'; style-src 'self'; img-src 'self'; base-uri 'none';"
          " frame-ancestors 'none'")

app = Flask(__name__)
app.jinja_options = {"trim_blocks": True, "lstrip_blocks": True}
api = Blueprint("api", __name__, url_prefix="/api")


def configure(state: Path, names: list[str]) -> None:
    """Opens the state file, and answers for `names` beside 127.0.0.1 and localhost."""
    app.config.update(
        STATE=state, NAMES={"127.0.0.1", "localhost", *names}, SECRET_KEY=store.prepare(state),
        SESSION_COOKIE_NAME="quorvane_dev", SESSION_COOKIE_SAMESITE="Lax",
        MAX_FORM_MEMORY_SIZE=MAX_BODY_BYTES)


def database() -> sqlite3.Connection:
    if "database" not in g:
        g.database = store.connect(app.config["STATE"])
    return g.database


@app.teardown_appcontext
def close_database(_: BaseException | None) -> None:
    if "database" in g:
        g.database.close()


class Misdirected(HTTPException):
    """A request for a host that is not the service's."""

    code = 421
    description = "This service does not answer for that host: see --name"


@app.before_request
def admit() -> None:
    """Refuses foreign hosts, large bodies, and forms that are not from this browser's own pages."""
    # Anybody can let a name of their own resolve to 127.0.0.1.  For a browser, the pages of that
    # name then share an origin with the service and can authorize a sign-in (DNS rebinding).
    if request.host.partition(":")[0].lower().removesuffix(".") not in app.config["NAMES"]:
        raise Misdirected
    if (request.content_length or 0) > MAX_BODY_BYTES:
        abort(413, f"A request may have {MAX_BODY_BYTES} bytes at most")
    if request.method == "POST" and not request.path.startswith("/api/") and not secrets.compare_digest(
            request.form.get("form", "").encode(), form_token().encode()):
        abort(403, "This form is out of date: go back, reload the page and try again")


@app.template_global()
def form_token() -> str:
    return session.setdefault("form", secrets.token_hex(16))


@app.after_request
def protect(response: Response) -> Response:
    response.headers.update({
        "Content-Security-Policy": POLICY, "Cache-Control": "no-store",
        "Referrer-Policy": "no-referrer", "X-Content-Type-Options": "nosniff"})
    return response


@app.errorhandler(HTTPException)
def failed(error: HTTPException) -> Response:
    """A failure as a page, or as the object whose text the command line shows as it is."""
    response = error.get_response()
    if request.path.startswith("/api/"):
        response.data = jsonify(error=error.description).data
        response.mimetype = "application/json"
    else:
        response.data = render_template("error.html", error=error)
    if error.code == 401:
        response.headers["WWW-Authenticate"] = "Bearer"
    return response


# The calls of the command line: each a POST of an object, each answer an object.

@api.before_request
def check_call() -> None:
    """Leaves the call's members and account for the functions below."""
    scheme, _, token = request.headers.get("Authorization", "").partition(" ")
    g.digest = store.digest(token.strip() if scheme.lower() == "bearer" else "")
    found = database().execute("SELECT account FROM tokens WHERE digest = ?", (g.digest,)).fetchone()
    if not found and not request.path.startswith("/api/cli/"):
        abort(401, "This session is not signed in, or no longer: run quorvane login")
    g.account = found and found["account"]
    if request.mimetype != "application/json":
        abort(415, "Calls are made in application/json")
    try:
        g.call = configuration.parse(request.get_data(cache=False).decode())
    except ValueError as error:
        abort(400, f"The request is not a JSON object: {error}")


def member(key: str, pattern: str = "(?s:.*)") -> str:
    """A member of the call that matches `pattern` in full."""
    value = g.call.get(key)
    if not isinstance(value, str) or not re.fullmatch(pattern, value):
        abort(400, f'"{key}" is missing or malformed')
    return value


def number_member(key: str) -> int:
    return int(member(key, configuration.NUMBER + "[0-9]{1,18}")[len(configuration.NUMBER):])


def find_project(account: str, identifier: str) -> sqlite3.Row:
    """A project of this account; those of others are not found."""
    for project in store.projects(database(), account):
        if project["id"] == identifier:
            return project
    abort(404, "No such project")


@api.post("/cli/start")
def start() -> Any:
    # The state returns unencoded in the callback's query: RFC 3986's unreserved characters only.
    challenge, state = member("challenge", "[\\w-]{43}"), member("state", "[A-Za-z0-9._~-]{1,256}")
    port = number_member("port")
    if not 0 < port < 65536:
        abort(400, '"port" is no port')
    return {"request": store.start(database(), challenge, state, port)}


@api.post("/cli/exchange")
def exchange() -> Any:
    try:
        token, account = store.exchange(database(), member("request"), member("code"),
                                        member("verifier"))
    except store.Refused as refusal:
        abort(400, str(refusal))
    return {"token": token, "email": account}


@api.post("/v1/logout")
def logout() -> Any:
    database().execute("DELETE FROM tokens WHERE digest = ?", (g.digest,))
    return {"revoked": True}


@api.post("/v1/account")
def account() -> Any:
    return {"account": {"canonical_email": g.account, "name": store.ACCOUNTS[g.account]}}


def summary(project: sqlite3.Row) -> dict[str, Any]:
    return {key: project[key] for key in ("id", "name", "revision")}


@api.post("/v1/projects")
def projects() -> Any:
    return {"projects": list(map(summary, store.projects(database(), g.account)))}


def own_members(project: sqlite3.Row) -> dict[str, str]:
    """The members of every configuration that are the service's."""
    return {"id": project["id"], "publicKey": project["public_key"], "name": project["name"]}


@api.post("/v1/project")
def pull() -> Any:
    project = find_project(g.account, member("projectId"))
    # The stored text is put in as it is: it was parsed and checked when it came.
    own, text = configuration.compact(own_members(project)), project["text"]
    config = own[:-1] + ("" if text == "{}" else ",") + text[1:]
    return Response(f'{{"project":{configuration.compact(summary(project))[:-1]},"config":{config}}}}}',
                    mimetype="application/json")


@api.post("/v1/project-configure")
def push() -> Any:
    project, base = find_project(g.account, member("projectId")), number_member("revision")
    try:
        text = configuration.stored(g.call.get("config"), own_members(project))
    except ValueError as error:
        abort(422, f"Configuration refused: {error}")
    if not store.save(database(), project["id"], base, text):
        project = find_project(g.account, project["id"])
        abort(409, f"Revision {base} is out of date: the project is at revision"
                   f" {project['revision']}. Pull again before you push.")
    return {"project": {**summary(project), "revision": base + 1}}


app.register_blueprint(api)


# The pages.

def chosen_account() -> str:
    account = request.form.get("account", "")
    if account not in store.ACCOUNTS:
        abort(400, "Choose one of the accounts")
    return account


def signed_in() -> str:
    if session.get("account") not in store.ACCOUNTS:
        abort(redirect("/", 303))
    return session["account"]


@app.get("/")
def home() -> Any:
    return render_template("home.html", accounts=store.ACCOUNTS)


@app.post("/sign-in")
def sign_in() -> Any:
    session["account"] = chosen_account()
    return redirect("/projects", 303)


@app.post("/sign-out")
def sign_out() -> Any:
    session.clear()
    return redirect("/", 303)


@app.route("/cli/authorize", methods=["GET", "POST"])
def authorize() -> Any:
    found, status = store.find(database(), request.args.get("request", ""))
    if found is None or status != "pending":
        abort(410, f"This sign-in request is no longer open ({status}): run quorvane login again")
    if request.method == "GET":
        return render_template("authorize.html", found=found, accounts=store.ACCOUNTS)
    decision = request.form.get("decision")
    if decision not in ("authorize", "deny"):
        abort(400, "Choose Authorize or Deny")
    account = chosen_account() if decision == "authorize" else None
    try:
        code = store.decide(database(), found["id"], account)
    except store.Refused as refusal:
        abort(410, str(refusal))
    if account:
        session["account"] = account
    # By number: another program may have the same port at the other addresses of "localhost".
    return redirect(f"http://127.0.0.1:{found['port']}/callback?request={found['id']}"
                    f"&state={found['state']}&" + (f"code={code}" if code else "error=access_denied"),
                    303)


@app.get("/projects")
def list_projects() -> Any:
    return render_template("projects.html", projects=store.projects(database(), signed_in()))


def editor(project: sqlite3.Row, text: str, status: int = 200, **more: Any) -> Any:
    """The editor with `text`, whose next save is based on `base`, by default the last revision."""
    return render_template("editor.html", **{"base": project["revision"], "project": project,
                                             "text": text, **more}), status


@app.get("/projects/<identifier>")
def show_project(identifier: str) -> Any:
    project = find_project(signed_in(), identifier)
    if len(project["text"]) > MAX_EDITED_CHARACTERS:
        abort(413, "This configuration is too large for a page; use quorvane config pull and push")
    return editor(project, configuration.laid_out(project["text"]))


@app.post("/projects/<identifier>")
def save_project(identifier: str) -> Any:
    project = find_project(signed_in(), identifier)
    base, typed = request.form.get("revision", -1, int), request.form.get("config", "")
    try:
        text = configuration.stored(configuration.parse(typed), own_members(project))
    except ValueError as error:
        return editor(project, typed, 422, error=error, base=base)
    if store.save(database(), project["id"], base, text):
        return redirect(f"/projects/{identifier}?saved={base + 1}", 303)
    before, theirs, mine = (configuration.laid_out(version) for version in (
        revision_text(identifier, base), project["text"], text))
    return editor(project, mine, 409, conflict=base, changes=[
        (f"What has changed since revision {base}", differences(before, theirs)),
        ("What saving your text would change", differences(theirs, mine))])


def revision_text(project: str, number: int) -> str:
    found = database().execute("SELECT text FROM revisions WHERE project = ? AND number = ?",
                               (project, number)).fetchone()
    return found["text"] if found else "{}"


def differences(old: str, new: str) -> list[str]:
    """The changed lines after a sign each, with three lines around them."""
    lines = old.split("\n"), new.split("\n")
    if max(map(len, lines)) > MAX_COMPARED_LINES:
        return ["There are too many lines to compare them here."]
    return list(difflib.unified_diff(*lines, lineterm=""))[2:]
