"""The web pages: signing a command line in, projects, the editor and the history.

They work without scripts.  Each form carries a token derived from the browser's cookie, so that
no other site can submit it.  All links are relative to the origin, which a front may change.
"""

from __future__ import annotations

import dataclasses
import hashlib
import hmac
import re
import secrets
import urllib.parse
from collections.abc import Callable
from dataclasses import dataclass
from http import HTTPStatus
from pathlib import Path

from . import jsontext
from .api import acceptable_configuration
from .differences import differences
from .jsontext import Invalid
from .markup import Html, difference_table, excerpt, moment, notice, table, tag
from .messages import HttpError, Request, Response, redirect
from .store import Account, Authorization, Project, Refused, StaleRevision, Store

COOKIE = "quorvane_dev_browser"

MAX_EDITED_CHARACTERS = 1024 * 1024
"""The longest configuration that is put into a page."""

MAX_NAME_CHARACTERS = 200

_FORM_KEY = secrets.token_bytes(32)
_STYLE = Path(__file__).with_name("style.css")
_ICON = (b'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 32 32"><circle cx="15" cy="15"'
         b' r="10" fill="none" stroke="#2f7d6b" stroke-width="6"/><path d="m18 18 10 10"'
         b' stroke="#2f7d6b" stroke-width="6" stroke-linecap="round"/></svg>')

# No form-action: browsers apply it to redirects too, and after a decision one leads to 127.0.0.1.
_POLICY = ("default-src 'none'; style-src 'self'; img-src 'self'; base-uri 'none';"
           " frame-ancestors 'none'")


@dataclass(frozen=True)
class Visit:
    """One request of a browser.

    `browser` is the value of its cookie, `account` the account that it is signed in to, `fields`
    the submitted form or else the query, `found` the variable parts of the path.
    """

    store: Store
    request: Request
    browser: str
    account: Account | None
    fields: dict[str, str]
    found: tuple[str, ...] = ()

    def form_token(self) -> str:
        """The token that this browser's forms must carry."""
        return hmac.new(_FORM_KEY, self.browser.encode(), hashlib.sha256).hexdigest()

    def person(self) -> Account:
        """The signed-in account, for pages that need one."""
        if self.account is None:
            raise HttpError(401, "Sign in first")
        return self.account

    def project(self) -> Project:
        """The project of the path; those of other accounts are not found."""
        project = self.store.project(self.person().id, self.found[0])
        if project is None:
            raise HttpError(404, "No such project")
        return project


def _page(visit: Visit, title: str, *content: object, status: int = 200) -> Response:
    person: Html = tag("")
    if visit.account:
        person = tag('<nav aria-label="Main"><a href="/projects" accesskey="p">Projects</a>'
                     ' <a href="/sessions">Sessions</a></nav>{}',
                     _form(visit, "/sign-out", tag("<span>{}</span> <button>Sign out</button>",
                                                   visit.account.email), "person"))
    body = tag('<!doctype html><html lang="en"><head><meta charset="utf-8"><title>{} · quorvane'
               '</title><meta name="viewport" content="width=device-width"><link rel="icon"'
               ' href="/icon.svg"><link rel="stylesheet" href="/style.css"></head><body>'
               '<a class="skip" href="#content">Skip to the content</a><header>'
               '<a class="brand" href="/">quorvane <small>development service</small></a>{}'
               '</header><main id="content">{}</main></body></html>\n', title, person, content)
    return Response(status, body.encode(), [
        ("Content-Type", "text/html; charset=utf-8"), ("Content-Security-Policy", _POLICY),
        ("Cache-Control", "no-store"), ("Referrer-Policy", "no-referrer"),
        ("Set-Cookie", f"{COOKIE}={visit.browser}; Path=/; HttpOnly; SameSite=Lax")])


def _form(visit: Visit, action: str, content: object, kind: str = "") -> Html:
    return tag('<form method="post" action="{}" class="{}"><input type="hidden" name="form"'
               ' value="{}">{}</form>', action, kind, visit.form_token(), content)


def _account_choice(visit: Visit) -> Html:
    accounts = visit.store.accounts()
    chosen = visit.account or accounts[0]
    rows = [tag('<label class="choice"><input type="radio" name="account" value="{}"{}{}>'
                "<span><b>{}</b><br>{}</span></label>", account.id,
                tag(" checked autofocus") if account.id == chosen.id else "", tag(" required"),
                account.name, account.email) for account in accounts]
    return tag("<fieldset><legend>Account</legend>{}</fieldset>", rows)


def _chosen_account(visit: Visit) -> Account:
    for account in visit.store.accounts():
        if str(account.id) == visit.fields.get("account"):
            return account
    raise HttpError(400, "Choose one of the accounts")


# Home, and signing the browser in and out.

def _home(visit: Visit) -> Response:
    scheme = visit.request.headers.get("x-forwarded-proto", "http")
    origin = f"{scheme}://{visit.request.headers.get('host', '')}"
    commands = tag("<h2>From the terminal</h2><pre>quorvane login --base-url {}\n"
                   "quorvane projects --base-url {}</pre>", origin, origin)
    if visit.account:
        return _page(visit, "Home", tag(
            '<h1>Hello, {}</h1><p>Here are your <a href="/projects">projects</a> and the'
            ' <a href="/sessions">command lines</a> that are signed in for you.</p>{}',
            visit.account.name, commands))
    target = visit.fields.get("next", "/projects")
    form = _form(visit, "/sign-in", [
        _account_choice(visit), tag('<input type="hidden" name="next" value="{}">', target),
        tag('<p><button class="main">Sign in</button></p>')])
    return _page(visit, "Sign in", tag("<h1>Sign in</h1><p>No passwords here: this service runs"
                                       " on your own machine.</p>{}{}", form, commands))


def _sign_in(visit: Visit) -> Response:
    visit.store.sign_in_browser(visit.browser, _chosen_account(visit).id)
    target = visit.fields.get("next", "")
    # Only to a page of this service: "//host" and "/\host" would lead elsewhere.
    return redirect(target if re.fullmatch(r"/(projects|sessions)[a-z0-9/-]*", target)
                    else "/projects")


def _sign_out(visit: Visit) -> Response:
    visit.store.sign_out_browser(visit.browser)
    return redirect("/")


# The command line's sign-in.

def _open_authorization(visit: Visit) -> Authorization:
    query = dict(urllib.parse.parse_qsl(visit.request.query))
    found = visit.store.authorization(query.get("request", ""))
    if found is None:
        raise HttpError(404, "This sign-in request is unknown: run quorvane login again")
    if found.status != "pending":
        raise HttpError(410, "This sign-in request is no longer open"
                             f" ({found.status}): run quorvane login again")
    return found


def _authorize_page(visit: Visit) -> Response:
    found = _open_authorization(visit)
    form = _form(visit, f"/cli/authorize?request={found.id}", [
        _account_choice(visit),
        tag('<p class="buttons"><button class="main" name="decision" value="authorize"'
            ' accesskey="a">Authorize</button> <button name="decision" value="deny" accesskey="d">'
            "Deny</button></p>")])
    return _page(visit, "Authorize the command line", tag(
        "<h1>Authorize the command line?</h1><p>A command-line client on this computer, waiting at"
        " port {}, asks to act for you: it will see your projects and read and change their"
        " configuration until it is signed out.</p><p>Authorize only if you have just started it"
        " yourself.</p>{}", found.port, form))


def _decide(visit: Visit) -> Response:
    found = _open_authorization(visit)
    decision = visit.fields.get("decision")
    if decision not in ("authorize", "deny"):
        raise HttpError(400, "Choose Authorize or Deny")
    account = _chosen_account(visit) if decision == "authorize" else None
    try:
        code = visit.store.decide(found.id, account.id if account else None)
    except Refused as refusal:
        raise HttpError(410, str(refusal)) from None
    if account:
        visit.store.sign_in_browser(visit.browser, account.id)
    # By number: another program may have the same port at the other addresses of "localhost".
    return redirect(f"http://127.0.0.1:{found.port}/callback?request={found.id}"
                    f"&state={found.state}&" + (f"code={code}" if code else "error=access_denied"))


def _sessions(visit: Visit) -> Response:
    rows = [(moment(session.created_at), moment(session.used_at) if session.used_at else "never",
             _form(visit, f"/sessions/{session.id}/revoke", tag("<button>Revoke</button>")))
            for session in visit.store.sessions(visit.person().id)]
    return _page(visit, "Sessions", tag(
        "<h1>Command lines signed in</h1>{}", table(("Signed in", "Last used", ""), rows) if rows
        else tag("<p>None. <code>quorvane login</code> adds one.</p>")))


def _revoke(visit: Visit) -> Response:
    visit.store.revoke_session(visit.person().id, int(visit.found[0]))
    return redirect("/sessions")


# Projects, the editor and the history.

def _projects(visit: Visit) -> Response:
    items = [tag('<li><a href="/projects/{}"><bdi>{}</bdi></a><span>{} · revision {} · saved {}'
                 "</span></li>", project.id, project.name, project.id, project.revision,
                 moment(project.saved_at)) for project in visit.store.projects(visit.person().id)]
    form = _form(visit, "/projects", tag(
        '<label for="name">New project</label> <input id="name" name="name" required'
        ' maxlength="{}" autocomplete="off"> <button>Create</button>', MAX_NAME_CHARACTERS), "row")
    return _page(visit, "Projects", tag('<h1>Projects</h1>{}{}', tag(
        '<ul class="projects">{}</ul>', items) if items else tag("<p>None yet.</p>"), form))


def _create_project(visit: Visit) -> Response:
    name = visit.fields.get("name", "").strip()
    if not 0 < len(name) <= MAX_NAME_CHARACTERS:
        raise HttpError(400, f"A project's name has 1 to {MAX_NAME_CHARACTERS} characters")
    return redirect("/projects/" + visit.store.add_project(visit.person().id, name, "{}"))


def _project_head(project: Project, here: str) -> Html:
    links = [tag('<a href="/projects/{}{}" accesskey="{}"{}>{}</a> ', project.id, path, key,
                 tag(' aria-current="page"') if name == here else "", name)
             for path, key, name in (("", "c", "Configuration"), ("/history", "h", "History"))]
    return tag('<h1><bdi>{}</bdi></h1><p class="facts"><code>{}</code> · revision {} · saved {}'
               '</p><nav class="tabs" aria-label="Project">{}</nav>', project.name, project.id,
               project.revision, moment(project.saved_at), links)


def _editor(visit: Visit, project: Project, text: str, *messages: object, status: int = 200,
            button: str = "Save") -> Response:
    """The editor with `text`, whose save will be based on the project's current revision."""
    shown = jsontext.escape_hidden(text)
    # HTML drops the first line feed of a text area, so one is put before the text.
    form = _form(visit, f"/projects/{project.id}", tag(
        '<input type="hidden" name="revision" value="{}"><label for="config">Configuration, a JSON'
        ' object</label><textarea id="config" name="config" rows="{}" spellcheck="false" wrap="off"'
        ' autocomplete="off"{}>\n{}</textarea><p class="buttons"><button class="main"'
        ' accesskey="s">{}</button> <a href="/projects/{}">Discard changes</a></p>',
        project.revision, min(40, max(12, shown.count("\n") + 3)),
        # If there is a message, the focus must not scroll past it.
        tag("") if messages else tag(" autofocus"), shown, button, project.id))
    return _page(visit, project.name, _project_head(project, "Configuration"), messages, form,
                 status=status)


def _project(visit: Visit) -> Response:
    project = visit.project()
    if len(project.text) > MAX_EDITED_CHARACTERS:
        return _page(visit, project.name, _project_head(project, "Configuration"), notice(
            "note", "This configuration is too large for a page; edit it with quorvane config"
                    f" pull --project {project.id} and quorvane config push."))
    messages: list[Html] = []
    if visit.fields.get("saved") == str(project.revision):
        messages.append(notice("good", f"Saved as revision {project.revision}."))
    elif visit.fields.get("saved") == "same":
        messages.append(notice("note", "Nothing has changed, so no revision was made."))
    return _editor(visit, project, _stored_layout(project.text), *messages)


def _stored_layout(text: str) -> str:
    return jsontext.layout(jsontext.parse(text))


def _save(visit: Visit) -> Response:
    project = visit.project()
    base = visit.fields.get("revision", "")
    if not re.fullmatch("[0-9]{1,18}", base):
        raise HttpError(400, "The form does not say which revision was edited")
    typed = visit.fields.get("config", "").replace("\r\n", "\n")
    try:
        value = jsontext.parse(typed)
        text = acceptable_configuration(project, typed.strip(" \t\n\r"), value)
        layout = _stored_layout(text)
        if int(base) == project.revision and layout == _stored_layout(project.text):
            return redirect(f"/projects/{project.id}?saved=same")
        revision = visit.store.save(project.id, int(base), text, "browser")
        return redirect(f"/projects/{project.id}?saved={revision}")
    except Invalid as error:
        return _editor_after_error(visit, project, int(base), typed, error)
    except StaleRevision:
        return _conflict(visit, int(base), layout)


def _editor_after_error(visit: Visit, project: Project, base: int, typed: str,
                        error: Invalid) -> Response:
    """The typed text and its error; the next save is still based on the same revision."""
    place = excerpt(typed, error.line, error.column) if error.line else tag("")
    return _editor(visit, dataclasses.replace(project, revision=base), typed, notice("bad", tag(
        "<b>Not saved.</b> {}{}", str(error)[0].upper() + str(error)[1:], place)), status=422)


def _conflict(visit: Visit, base: int, layout: str) -> Response:
    project = visit.project()
    before = _stored_layout(visit.store.revision_text(project.id, base) or "{}")
    theirs = _stored_layout(project.text)
    return _editor(
        visit, project, layout,
        notice("bad", tag("<b>Not saved.</b> You edited revision {}, and revision {} has been saved"
                          " since then. Your text is below: change it where you need to, then save"
                          " it over revision {}.", base, project.revision, project.revision)),
        tag("<h2>What has changed since revision {}</h2>", base),
        difference_table(differences(before, theirs)),
        tag("<h2>What saving your text would change</h2>"),
        difference_table(differences(theirs, layout)), status=409,
        button=f"Save over revision {project.revision}")


def _history(visit: Visit) -> Response:
    project = visit.project()
    rows = [(tag('<a href="/projects/{}/history/{}">Revision {}</a>', project.id, entry.number,
                 entry.number), moment(entry.saved_at), entry.source, f"{entry.size:,} characters")
            for entry in visit.store.revisions(project.id)]
    return _page(visit, f"History of {project.name}", _project_head(project, "History"),
                 table(("Revision", "Saved", "By way of", "Size"), rows))


def _revision(visit: Visit) -> Response:
    project = visit.project()
    number = int(visit.found[1])
    text = visit.store.revision_text(project.id, number)
    if text is None:
        raise HttpError(404, "No such revision")
    entry = visit.store.revisions(project.id)[project.revision - number]
    before = visit.store.revision_text(project.id, number - 1) or "{}"
    path = f"/projects/{project.id}/history"
    links = [tag('<a href="{}/{}" accesskey="{}">{}</a>', path, other, key, words.format(other))
             for other, key, words in ((number - 1, "b", "\u2190 Revision {}"),
                                       (number + 1, "n", "Revision {} \u2192"))
             if 0 < other <= project.revision]
    content = [tag('<h2>Revision {}</h2><p class="facts">Saved {}, by way of: {}</p>'
                   '<p class="buttons">{}</p>', number, moment(entry.saved_at), entry.source, links)]
    if max(len(text), len(before)) > MAX_EDITED_CHARACTERS:
        content.append(notice("note", "This revision is too large for a page."))
    else:
        layout = _stored_layout(text)
        content += [difference_table(differences(_stored_layout(before), layout)),
                    tag("<details><summary>All of revision {}</summary><pre>{}</pre></details>",
                        number, layout)]
    return _page(visit, f"Revision {number} of {project.name}",
                 _project_head(project, "History"), content)


# Finding the page for a request.

_ROUTES: list[tuple[str, str, Callable[[Visit], Response]]] = [
    ("GET", "/", _home),
    ("POST", "/sign-in", _sign_in),
    ("POST", "/sign-out", _sign_out),
    ("GET", "/cli/authorize", _authorize_page),
    ("POST", "/cli/authorize", _decide),
    ("GET", "/sessions", _sessions),
    ("POST", "/sessions/([0-9]{1,9})/revoke", _revoke),
    ("GET", "/projects", _projects),
    ("POST", "/projects", _create_project),
    ("GET", "/projects/([a-z0-9-]+)", _project),
    ("POST", "/projects/([a-z0-9-]+)", _save),
    ("GET", "/projects/([a-z0-9-]+)/history", _history),
    ("GET", "/projects/([a-z0-9-]+)/history/([0-9]{1,9})", _revision),
]
_PERSONAL = ("/projects", "/sessions")
"""How the paths begin of pages that need a signed-in account."""


def _browser(request: Request) -> str:
    """The browser's cookie, or a new value for one that has none."""
    found = re.search(rf"(?:^|; *){COOKIE}=([0-9a-f]{{32}})(?:;|$)",
                      request.headers.get("cookie", ""))
    return found[1] if found else secrets.token_hex(16)


def _visit(store: Store, request: Request, fields: dict[str, str],
           found: tuple[str, ...] = ()) -> Visit:
    browser = _browser(request)
    return Visit(store, request, browser, store.browser_account(browser), fields, found)


def answer(store: Store, request: Request) -> Response:
    """Answers one request of a browser.  `error_page` shows an `HttpError` raised here."""
    if request.path == "/style.css":
        return Response(200, _STYLE.read_bytes(), [("Content-Type", "text/css; charset=utf-8")])
    if request.path == "/icon.svg":
        return Response(200, _ICON, [("Content-Type", "image/svg+xml")])
    method = "GET" if request.method == "HEAD" else request.method
    matches = {of: (run, match.groups()) for of, pattern, run in _ROUTES
               if (match := re.fullmatch(pattern, request.path))}
    if not matches:
        raise HttpError(404, "There is no such page")
    if method not in matches:
        raise HttpError(405, "This page does not take such a request",
                        (("Allow", ", ".join(matches)),))
    run, found = matches[method]
    fields = request.form() if method == "POST" else request.parameters()
    visit = _visit(store, request, fields, found)
    if method == "POST" and not hmac.compare_digest(fields.get("form", "").encode(),
                                                    visit.form_token().encode()):
        raise HttpError(403, "This form is out of date: go back, reload the page and try again")
    if visit.account is None and request.path.startswith(_PERSONAL):
        return redirect("/?next=" + urllib.parse.quote(request.path))
    return run(visit)


def error_page(store: Store, request: Request, error: HttpError) -> Response:
    """The page for a failure."""
    reason = HTTPStatus(error.status).phrase
    response = _page(_visit(store, request, {}), reason, tag(
        '<h1>{}</h1><p>{}.</p><p class="facts">Status {}</p><p><a href="/">Home</a></p>', reason,
        error.message, error.status), status=error.status)
    response.headers.extend(error.headers)
    return response
