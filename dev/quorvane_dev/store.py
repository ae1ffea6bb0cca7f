"""The service's state: accounts, projects with every revision, sign-in requests and sessions.

All of it is in one SQLite file.  Every operation is one transaction under one lock, so threads may
share a `Store`.  Secrets (tokens, codes) are stored as SHA-256 digests only.
"""

from __future__ import annotations

import base64
import dataclasses
import hashlib
import secrets
import sqlite3
import threading
import time
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Any

REQUEST_LIFETIME_S = 600
"""How long a sign-in request waits for the person at the browser."""

CODE_LIFETIME_S = 120
"""How long an approval's code can be exchanged."""

APPLICATION_ID = 0x71767264
"""Marks a file as ours (SQLite's application_id), so that no other database is written to."""

_SCHEMA = """
CREATE TABLE accounts (id INTEGER PRIMARY KEY, email TEXT NOT NULL UNIQUE, name TEXT NOT NULL);
CREATE TABLE projects (
    id TEXT PRIMARY KEY, account INTEGER NOT NULL REFERENCES accounts, name TEXT NOT NULL,
    public_key TEXT NOT NULL);
CREATE TABLE revisions (
    project TEXT NOT NULL REFERENCES projects, number INTEGER NOT NULL, text TEXT NOT NULL,
    source TEXT NOT NULL, saved_at REAL NOT NULL, PRIMARY KEY (project, number));
CREATE TABLE authorizations (
    id TEXT PRIMARY KEY, challenge TEXT NOT NULL, state TEXT NOT NULL, port INTEGER NOT NULL,
    status TEXT NOT NULL, changed_at REAL NOT NULL, account INTEGER REFERENCES accounts,
    code_digest TEXT);
CREATE TABLE sessions (
    id INTEGER PRIMARY KEY, digest TEXT NOT NULL UNIQUE,
    account INTEGER NOT NULL REFERENCES accounts, created_at REAL NOT NULL, used_at REAL);
CREATE TABLE browsers (
    id TEXT PRIMARY KEY, account INTEGER NOT NULL REFERENCES accounts);
"""


class Refused(Exception):
    """A sign-in step that is refused; the text is the reason, in one line."""


class StaleRevision(Exception):
    """A save that was based on another revision than the current one."""

    def __init__(self, current: int) -> None:
        super().__init__(current)
        self.current = current


@dataclass(frozen=True)
class Account:
    """Somebody who may sign in."""

    id: int
    email: str
    name: str


@dataclass(frozen=True)
class Project:
    """A project at its current revision; `text` is its configuration, a JSON object."""

    id: str
    name: str
    public_key: str
    revision: int
    text: str
    saved_at: float


@dataclass(frozen=True)
class Revision:
    """One saved configuration; `source` is "created", "browser" or "command line"."""

    number: int
    source: str
    saved_at: float
    size: int


@dataclass(frozen=True)
class Authorization:
    """A command line's request to be signed in: pending, approved, denied, used or expired."""

    id: str
    challenge: str
    state: str
    port: int
    status: str
    account: int | None
    code_digest: str | None


@dataclass(frozen=True)
class Session:
    """A signed-in command line."""

    id: int
    created_at: float
    used_at: float | None


_PROJECT = ("SELECT p.id, p.name, p.public_key, r.number, r.text, r.saved_at FROM projects p"
            " JOIN revisions r ON r.project = p.id AND r.number ="
            " (SELECT max(number) FROM revisions WHERE project = p.id) WHERE p.account = ?")


def _digest(secret: str) -> str:
    return hashlib.sha256(secret.encode()).hexdigest()


def _challenge(verifier: str) -> str:
    """RFC 7636 4.2, method S256."""
    digest = hashlib.sha256(verifier.encode()).digest()
    return base64.urlsafe_b64encode(digest).rstrip(b"=").decode()


class Store:
    """The open state file.  Raises `sqlite3.Error` or `ValueError` when it cannot be used."""

    def __init__(self, path: Path) -> None:
        self._lock = threading.Lock()
        self._db = sqlite3.connect(path, check_same_thread=False, isolation_level=None)
        try:
            self.fresh = self._prepare()
        except (sqlite3.Error, ValueError):
            self._db.close()
            raise

    def _prepare(self) -> bool:
        """Makes the tables when the file is new, and returns whether it was."""
        self._db.execute("PRAGMA foreign_keys = ON")
        self._db.execute("PRAGMA synchronous = NORMAL")
        mark = self._db.execute("PRAGMA application_id").fetchone()[0]
        if mark == APPLICATION_ID:
            return False
        if self._db.execute("SELECT count(*) FROM sqlite_master").fetchone()[0] > 0:
            raise ValueError("the file is a database of another program")
        self._db.execute("PRAGMA journal_mode = WAL")
        self._db.executescript(f"BEGIN;{_SCHEMA}PRAGMA application_id = {APPLICATION_ID};COMMIT;")
        return True

    def close(self) -> None:
        """Waits for the running transaction; later calls raise `sqlite3.ProgrammingError`."""
        with self._lock:
            self._db.close()

    @contextmanager
    def _transaction(self) -> Iterator[sqlite3.Connection]:
        with self._lock:
            self._db.execute("BEGIN IMMEDIATE")
            try:
                yield self._db
            except BaseException:
                self._db.execute("ROLLBACK")
                raise
            self._db.execute("COMMIT")

    def _run(self, sql: str, *values: object) -> list[Any]:
        """Runs one statement as a transaction of its own; returns its rows."""
        with self._transaction() as db:
            return db.execute(sql, values).fetchall()

    # Accounts, and who is signed in at which browser.

    def add_account(self, email: str, name: str) -> Account:
        """Adds somebody; the e-mail address must be new."""
        with self._transaction() as db:
            cursor = db.execute("INSERT INTO accounts (email, name) VALUES (?, ?)", (email, name))
            return Account(int(cursor.lastrowid or 0), email, name)

    def accounts(self) -> list[Account]:
        """Everybody, in order of arrival."""
        return [Account(*row) for row in self._run("SELECT * FROM accounts ORDER BY id")]

    def sign_in_browser(self, browser: str, account: int) -> None:
        """Remembers that `browser` (its cookie) acts for `account` from now on."""
        self._run("INSERT OR REPLACE INTO browsers VALUES (?, ?)", _digest(browser), account)

    def sign_out_browser(self, browser: str) -> None:
        """Forgets the browser."""
        self._run("DELETE FROM browsers WHERE id = ?", _digest(browser))

    def browser_account(self, browser: str) -> Account | None:
        """The account for which `browser` acts."""
        rows = self._run("SELECT a.* FROM accounts a JOIN browsers b ON b.account = a.id"
                         " WHERE b.id = ?", _digest(browser))
        return Account(*rows[0]) if rows else None

    # Signing a command line in (RFC 7636) and out.

    def start_authorization(self, challenge: str, state: str, port: int) -> str:
        """Opens a sign-in request and returns its identifier."""
        identifier = secrets.token_hex(16)
        self._run("INSERT INTO authorizations VALUES (?, ?, ?, ?, 'pending', ?, NULL, NULL)",
                  identifier, challenge, state, port, time.time())
        return identifier

    def _authorization(self, db: sqlite3.Connection, identifier: str) -> Authorization | None:
        row = db.execute("SELECT id, challenge, state, port, status, account, code_digest,"
                         " changed_at FROM authorizations WHERE id = ?", (identifier,)).fetchone()
        if row is None:
            return None
        *fields, changed_at = row
        found = Authorization(*fields)
        lifetime = CODE_LIFETIME_S if found.status == "approved" else REQUEST_LIFETIME_S
        if found.status in ("pending", "approved") and time.time() - changed_at > lifetime:
            return dataclasses.replace(found, status="expired")
        return found

    def authorization(self, identifier: str) -> Authorization | None:
        """The sign-in request in its present state."""
        with self._transaction() as db:
            return self._authorization(db, identifier)

    def decide(self, identifier: str, account: int | None) -> str:
        """Approves the request for `account`, or denies it when that is None.

        Returns the code that goes to the command line, empty for a denial.  Raises `Refused` when
        the request is not pending: a decision is made once.
        """
        with self._transaction() as db:
            found = self._authorization(db, identifier)
            if found is None or found.status != "pending":
                raise Refused("This sign-in request is no longer open")
            code = secrets.token_urlsafe(24) if account is not None else ""
            db.execute("UPDATE authorizations SET status = ?, account = ?, code_digest = ?,"
                       " changed_at = ? WHERE id = ?",
                       ("approved" if code else "denied", account, _digest(code), time.time(),
                        identifier))
            return code

    def exchange(self, identifier: str, code: str, verifier: str) -> tuple[str, Account]:
        """Turns an approval into a session: returns its token and its account.

        Raises `Refused` otherwise.  There is one attempt only: a wrong code or verifier spends the
        approval as well, so neither can be guessed by trying.
        """
        with self._transaction() as db:
            found = self._authorization(db, identifier)
            if found is not None and found.status == "approved":
                db.execute("UPDATE authorizations SET status = 'used' WHERE id = ?", (identifier,))
        if found is None:
            raise Refused("Unknown sign-in request")
        if found.status != "approved":
            raise Refused({"pending": "The sign-in has not been approved yet",
                           "denied": "The sign-in was denied in the browser",
                           "expired": "The sign-in request has expired"}.get(
                               found.status, "The sign-in code has already been used"))
        if not secrets.compare_digest(_digest(code), found.code_digest or ""):
            raise Refused("The sign-in code is wrong")
        if not secrets.compare_digest(_challenge(verifier).encode(), found.challenge.encode()):
            raise Refused("The verifier does not match the challenge")
        token = "qvt_" + secrets.token_urlsafe(32)
        with self._transaction() as db:
            db.execute("INSERT INTO sessions (digest, account, created_at) VALUES (?, ?, ?)",
                       (_digest(token), found.account, time.time()))
            row = db.execute("SELECT * FROM accounts WHERE id = ?", (found.account,)).fetchone()
        return token, Account(*row)

    def session_account(self, token: str) -> Account | None:
        """The account of a valid session, whose use is recorded; None for any other token."""
        with self._transaction() as db:
            db.execute("UPDATE sessions SET used_at = ? WHERE digest = ?",
                       (time.time(), _digest(token)))
            row = db.execute("SELECT a.* FROM accounts a JOIN sessions s ON s.account = a.id"
                             " WHERE s.digest = ?", (_digest(token),)).fetchone()
            return Account(*row) if row else None

    def revoke_token(self, token: str) -> None:
        """Ends the session of `token`."""
        self._run("DELETE FROM sessions WHERE digest = ?", _digest(token))

    def sessions(self, account: int) -> list[Session]:
        """The valid sessions of an account, the newest first."""
        return [Session(*row) for row in self._run(
            "SELECT id, created_at, used_at FROM sessions WHERE account = ? ORDER BY id DESC",
            account)]

    def revoke_session(self, account: int, session: int) -> None:
        """Ends one session of an account, if it is there."""
        self._run("DELETE FROM sessions WHERE id = ? AND account = ?", session, account)

    # Projects and their revisions.

    def add_project(self, account: int, name: str, text: str, identifier: str = "") -> str:
        """Adds a project whose revision 1 is `text`, and returns its identifier."""
        identifier = identifier or "prj-" + secrets.token_hex(4)
        with self._transaction() as db:
            db.execute("INSERT INTO projects VALUES (?, ?, ?, ?)",
                       (identifier, account, name, "pk_dev_" + secrets.token_hex(12)))
            db.execute("INSERT INTO revisions VALUES (?, 1, ?, 'created', ?)",
                       (identifier, text, time.time()))
        return identifier

    def projects(self, account: int) -> list[Project]:
        """The projects of an account, by name."""
        return [Project(*row) for row in self._run(_PROJECT + " ORDER BY p.name, p.id", account)]

    def project(self, account: int, identifier: str) -> Project | None:
        """One project of an account, None for those of other accounts."""
        rows = self._run(_PROJECT + " AND p.id = ?", account, identifier)
        return Project(*rows[0]) if rows else None

    def save(self, project: str, base: int, text: str, source: str) -> int:
        """Makes `text` the project's next revision and returns its number.

        Raises `StaleRevision` when `base` is not the current revision: of two people who edited
        the same one, the second to save learns of it.
        """
        with self._transaction() as db:
            current = int(db.execute("SELECT max(number) FROM revisions WHERE project = ?",
                                     (project,)).fetchone()[0])
            if base != current:
                raise StaleRevision(current)
            db.execute("INSERT INTO revisions VALUES (?, ?, ?, ?, ?)",
                       (project, current + 1, text, source, time.time()))
            return current + 1

    def revisions(self, project: str) -> list[Revision]:
        """All revisions of a project, the newest first."""
        return [Revision(*row) for row in self._run(
            "SELECT number, source, saved_at, length(text) FROM revisions WHERE project = ?"
            " ORDER BY number DESC", project)]

    def revision_text(self, project: str, number: int) -> str | None:
        """The configuration of one revision."""
        rows = self._run("SELECT text FROM revisions WHERE project = ? AND number = ?",
                         project, number)
        return str(rows[0][0]) if rows else None
