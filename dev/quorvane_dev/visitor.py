"""A scripted browser: opens pages, fills forms in, follows redirects, keeps cookies.

The demo and the tests use it instead of a person.  Certificates of https origins are checked
against the system's authorities, or those of SSL_CERT_FILE.
"""

from __future__ import annotations

import argparse
import ssl
import sys
import urllib.error
import urllib.parse
import urllib.request
from dataclasses import dataclass, field
from html.parser import HTMLParser
from http.cookiejar import CookieJar

TIME_LIMIT_S = 20


class VisitError(Exception):
    """A page could not be used; the text says why."""


@dataclass
class Form:
    """A form of a page: its target, and its fields with their present values."""

    action: str = ""
    fields: dict[str, str] = field(default_factory=dict)
    choices: dict[str, str] = field(default_factory=dict)
    """Radio buttons, from the words beside them to their values."""


class Page(HTMLParser):
    """A page as it arrived: address, status, title, notice (its message), words and forms."""

    def __init__(self, url: str, status: int, content_type: str, text: str) -> None:
        super().__init__()
        self.url = url
        self.status = status
        self.title = ""
        self.notice = ""
        self._notice_start = 0
        self.forms: list[Form] = []
        self._words: list[str] = []
        self._open: list[str] = []
        self._radio = ""
        if content_type.startswith("text/html"):
            self.feed(text)
            self.close()
        else:
            self._words.append(text)

    def words(self) -> str:
        """The page's text, each run of blanks as one."""
        return " ".join("".join(self._words).split())

    def form(self, action: str) -> Form:
        """The form whose address begins with `action`."""
        for form in self.forms:
            if form.action.startswith(action):
                return form
        raise VisitError(f"{self.url} has no form for {action}: {self.words()}")

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        values = {name: value or "" for name, value in attrs}
        self._open.append(tag)
        self._words.append(" ")
        if values.get("role") in ("status", "alert"):
            self._notice_start = len(self._words)
        if tag == "form":
            self.forms.append(Form(values.get("action", "")))
        elif tag == "input" and values.get("type") == "radio":
            self._radio = values["value"]
            if "checked" in values:
                self.forms[-1].fields[values["name"]] = values["value"]
        elif tag == "textarea" or (tag == "input" and "name" in values):
            self.forms[-1].fields[values["name"]] = values.get("value", "")

    def handle_endtag(self, tag: str) -> None:
        while tag in self._open and self._open.pop() != tag:
            pass
        if tag == "textarea":
            fields = self.forms[-1].fields
            name = next(reversed(fields))
            fields[name] = fields[name].removeprefix("\n")
        elif tag == "label":
            self._radio = ""
        elif tag == "div" and self._notice_start:
            self.notice = " ".join("".join(self._words[self._notice_start:]).split())
            self._notice_start = 0

    def handle_data(self, data: str) -> None:
        inside = self._open[-1] if self._open else ""
        if inside == "textarea":
            fields = self.forms[-1].fields
            fields[next(reversed(fields))] += data
        elif inside == "title":
            self.title += data
        else:
            self._words.append(data)
            if self._radio:
                self.forms[-1].choices[data.strip()] = self._radio


class Visitor:
    """A browser with its cookies, and no cache."""

    def __init__(self) -> None:
        # As strict as Python 3.13 and later are by themselves, so that each Python sees the same.
        context = ssl.create_default_context()
        context.verify_flags |= ssl.VERIFY_X509_STRICT
        self._opener = urllib.request.build_opener(
            urllib.request.ProxyHandler({}), urllib.request.HTTPSHandler(context=context),
            urllib.request.HTTPCookieProcessor(CookieJar()))

    def open(self, url: str, fields: dict[str, str] | None = None) -> Page:
        """The page at `url`, or the answer to the submitted fields; any status is a page."""
        data = urllib.parse.urlencode(fields).encode() if fields is not None else None
        try:
            with self._opener.open(url, data, TIME_LIMIT_S) as answer:
                return self._page(answer)
        except urllib.error.HTTPError as answer:
            with answer:
                return self._page(answer)
        except OSError as error:
            raise VisitError(f"Cannot open {url}: {error}") from None

    def _page(self, answer: urllib.error.HTTPError) -> Page:
        return Page(answer.url, answer.status or 0, answer.headers.get("Content-Type", ""),
                    answer.read().decode("utf-8", "replace"))

    def submit(self, page: Page, action: str, **changes: str) -> Page:
        """Submits a form of `page` with some fields set or changed."""
        form = page.form(action)
        return self.open(urllib.parse.urljoin(page.url, form.action), {**form.fields, **changes})

    def decide(self, url: str, decision: str = "authorize", account: str = "") -> Page:
        """Opens a sign-in URL and presses a button; returns the page that follows."""
        page = self.open(url)
        form = page.form("/cli/authorize")
        chosen = form.choices.get(account, "") if account else form.fields.get("account", "")
        if not chosen:
            raise VisitError(f"{account} cannot be chosen on {url}")
        return self.submit(page, "/cli/authorize", decision=decision, account=chosen)

    def sign_in(self, origin: str, account: str) -> Page:
        """Signs in on the home page, whoever was signed in before."""
        page = self.open(origin)
        if any(form.action == "/sign-out" for form in page.forms):
            page = self.submit(page, "/sign-out")
        chosen = page.form("/sign-in").choices.get(account)
        if not chosen:
            raise VisitError(f"{account} cannot be chosen on {origin}")
        return self.submit(page, "/sign-in", account=chosen)

    def replace(self, origin: str, project: str, old: str, new: str) -> Page:
        """Changes a piece of a project's configuration in its editor."""
        page = self.open(f"{origin}/projects/{project}")
        text = page.form("/projects/").fields.get("config", "")
        if old not in text:
            raise VisitError(f"{old} is not in the configuration")
        return self.submit(page, "/projects/", config=text.replace(old, new))


def main(arguments: list[str] | None = None) -> int:
    """Does one errand and prints the words of the last page; returns 0 if its status is 200."""
    parser = argparse.ArgumentParser(prog="visitor", description="A scripted browser.")
    errands = parser.add_subparsers(dest="errand", required=True)
    for errand in ("authorize", "deny"):
        command = errands.add_parser(errand, help=f"{errand} a command line that signs in")
        command.add_argument("url")
        command.add_argument("--account", default="", metavar="EMAIL")
    command = errands.add_parser("replace", help="change a configuration in its editor")
    command.add_argument("--account", required=True, metavar="EMAIL")
    for name in ("origin", "project", "old", "new"):
        command.add_argument(name)
    options = parser.parse_args(arguments)
    visitor = Visitor()
    try:
        if options.errand == "replace":
            visitor.sign_in(options.origin, options.account)
            page = visitor.replace(options.origin, options.project, options.old, options.new)
            words = page.notice or page.words()
        else:
            page = visitor.decide(options.url, options.errand, options.account)
            words = page.words()
    except VisitError as error:
        print(error, file=sys.stderr)
        return 1
    print(words)
    return 0 if page.status == 200 else 1
