"""The content of a new state file: three people and their projects, each with two revisions.

The folder seed/ has one file for each project: the configuration of its last revision.
"""

from __future__ import annotations

from pathlib import Path

from .store import Store

FOLDER = Path(__file__).with_name("seed")

ACCOUNTS = (
    ("ada@tidewater.example", "Ada Lindqvist"),
    ("baolam@tidewater.example", "B\u1ea3o L\u00e2m Nguy\u1ec5n"),
    ("carla@inland.example", "Carla Pe\u00f1a"),
)

# Owner, identifier, name, and a piece of the text with its form in revision 1.
PROJECTS = (
    (0, "prj-ferry-times", "Ferry times", '"refreshSeconds": 30', '"refreshSeconds": 60'),
    (0, "prj-harbour-map", "Harbour map", '"maximumZoom": 18.5', '"maximumZoom": 17'),
    (0, "prj-tide-gauges", "Tide gauges \u2013 S\u00f8r", '"thresholdMetres": 1.50',
     '"thresholdMetres": 1.80'),
    (1, "prj-berth-planner", "Berth planner", '"horizonDays": 14', '"horizonDays": 7'),
    (1, "prj-fish-auction", "Phi\u00ean ch\u1ee3 c\u00e1", '"currency": "VND"',
     '"currency": "EUR"'),
)


def fill(store: Store) -> None:
    """Adds the accounts and projects to an empty store."""
    accounts = [store.add_account(email, name) for email, name in ACCOUNTS]
    for owner, identifier, name, later, earlier in PROJECTS:
        text = (FOLDER / f"{identifier}.json").read_text(encoding="utf-8").strip()
        store.add_project(accounts[owner].id, name, text.replace(later, earlier), identifier)
        store.save(identifier, 1, text, "browser")
