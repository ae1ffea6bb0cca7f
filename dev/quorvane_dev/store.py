"""The state in one SQLite file: projects with every revision, sign-in requests and tokens.

Each operation is one statement, so that connections may be used side by side.  Tokens and codes are
stored as SHA-256 digests only.
"""

import base64
import hashlib
import secrets
import sqlite3
import time
from pathlib import Path

from . import configuration

LIFETIMES_S = {"pending": 600, "approved": 120}
"""How long a sign-in request waits for the person at the browser, and then its code for the client."""

APPLICATION_ID = 0x71767264
"""Marks a file as ours (SQLite's application_id), so that no other database is written to."""

ACCOUNTS = {
    "ada@tidewater.example": "Ada Lindqvist",
    "baolam@tidewater.example": "Bảo Lâm Nguyễn",
    "carla@inland.example": "Carla Peña",
}

SCHEMA = f"""
BEGIN;
CREATE TABLE projects (id TEXT PRIMARY KEY, account TEXT, name TEXT, public_key TEXT);
CREATE TABLE revisions (project TEXT REFERENCES projects, number INTEGER, text TEXT,
    PRIMARY KEY (project, number));
CREATE TABLE requests (id TEXT PRIMARY KEY, challenge TEXT, state TEXT, port INTEGER, status TEXT,
    changed_at REAL, account TEXT, code_digest TEXT);
CREATE TABLE tokens (digest TEXT PRIMARY KEY, account TEXT);
CREATE TABLE cookies (key TEXT);
PRAGMA application_id = {APPLICATION_ID};
COMMIT;
"""

PROJECTS = """
SELECT p.*, r.number AS revision, r.text FROM projects p JOIN revisions r
ON r.project = p.id AND r.number = (SELECT max(number) FROM revisions WHERE project = p.id)
"""


class Refused(Exception):
    """A step of a sign-in that is refused; the text is the reason."""


def connect(path: Path) -> sqlite3.Connection:
    database = sqlite3.connect(path, isolation_level=None)
    database.row_factory = sqlite3.Row
    return database


def prepare(path: Path) -> str:
    """Fills a new file; returns the key of the cookies.  Raises `sqlite3.Error` or `ValueError`."""
    database = connect(path)
    if database.execute("PRAGMA application_id").fetchone()[0] != APPLICATION_ID:
        if database.execute("SELECT * FROM sqlite_master").fetchone():
            raise ValueError("the file is a database of another program")
        database.execute("PRAGMA journal_mode = WAL")
        database.executescript(SCHEMA)
        database.execute("INSERT INTO cookies VALUES (?)", (secrets.token_hex(32),))
        seed = Path(__file__).with_name("projects.json").read_text(encoding="utf-8")
        for project in configuration.parse(seed)["projects"]:
            database.execute("INSERT INTO projects VALUES (?, ?, ?, ?)",
                             (project["id"], project["account"], project["name"],
                              "pk_dev_" + secrets.token_hex(12)))
            database.execute("INSERT INTO revisions VALUES (?, 1, ?)",
                             (project["id"], configuration.compact(project["config"])))
    (key,) = database.execute("SELECT key FROM cookies").fetchone()
    database.close()
    return str(key)


def digest(secret: str) -> str:
    return hashlib.sha256(secret.encode()).hexdigest()


def start(database: sqlite3.Connection, challenge: str, state: str, port: int) -> str:
    """Opens a sign-in request; returns its identifier."""
    identifier = secrets.token_hex(16)
    database.execute("INSERT INTO requests VALUES (?, ?, ?, ?, 'pending', ?, NULL, NULL)",
                     (identifier, challenge, state, port, time.time()))
    return identifier


def find(database: sqlite3.Connection, identifier: str) -> tuple[sqlite3.Row | None, str]:
    """A sign-in request and its status: pending, approved, denied, used, expired or unknown."""
    found = database.execute("SELECT * FROM requests WHERE id = ?", (identifier,)).fetchone()
    if found is None:
        return None, "unknown"
    age_s = time.time() - found["changed_at"]
    return found, "expired" if age_s > LIFETIMES_S.get(found["status"], age_s) else found["status"]


def decide(database: sqlite3.Connection, identifier: str, account: str | None) -> str | None:
    """Approves a pending request for `account`, or denies it; returns the code of an approval."""
    code = secrets.token_urlsafe(24) if account else None
    if database.execute(
            "UPDATE requests SET status = ?, changed_at = ?, account = ?, code_digest = ?"
            " WHERE id = ? AND status = 'pending'",
            ("approved" if code else "denied", time.time(), account, digest(code or ""),
             identifier)).rowcount == 0:
        raise Refused("This sign-in request is no longer open")
    return code


def exchange(database: sqlite3.Connection, identifier: str, code: str,
             verifier: str) -> tuple[str, str]:
    """Turns an approval into a token; returns it and its account.

    There is one attempt only: a wrong code or verifier spends the approval as well, so that neither
    can be guessed by trying.
    """
    found, status = find(database, identifier)
    spent = database.execute("UPDATE requests SET status = 'used' WHERE id = ? AND status = 'approved'",
                             (identifier,)).rowcount
    if found is None or status != "approved" or not spent:
        raise Refused({"unknown": "Unknown sign-in request",
                       "pending": "The sign-in has not been approved yet",
                       "denied": "The sign-in was denied in the browser",
                       "expired": "The sign-in request has expired"}.get(
                           status, "The sign-in code has already been used"))
    if digest(code) != found["code_digest"]:
        raise Refused("The sign-in code is wrong")
    challenge = base64.urlsafe_b64encode(hashlib.sha256(verifier.encode()).digest())
    if challenge.rstrip(b"=").decode() != found["challenge"]:  # RFC 7636 4.6, method S256.
        raise Refused("The verifier does not match the challenge")
    token = "qvt_" + secrets.token_urlsafe(32)
    database.execute("INSERT INTO tokens VALUES (?, ?)", (digest(token), found["account"]))
    return token, found["account"]


def projects(database: sqlite3.Connection, account: str) -> list[sqlite3.Row]:
    """The projects of an account, each at its last revision, by name."""
    return database.execute(PROJECTS + "WHERE p.account = ? ORDER BY p.name", (account,)).fetchall()


def save(database: sqlite3.Connection, project: str, base: int, text: str) -> bool:
    """Makes `text` the revision after `base`, unless that is no longer the last one."""
    return database.execute(
        "INSERT INTO revisions SELECT ?, ?, ? WHERE"
        " (SELECT max(number) FROM revisions WHERE project = ?) = ?",
        (project, base + 1, text, project, base)).rowcount == 1
