#!/usr/bin/env python3
"""Checks that every #include of our own in src/ names a file of its own layer or of an earlier one.

Also checks the joints that the order alone does not show: OpenSSL's headers appear in one file,
errno in one, and no header is part of a cycle.  Prints each breach; exits 1 when there is one.
"""

import re
import sys
from pathlib import Path

# The layers that each layer may include beside itself.
ALLOWED = {
    "support": [],
    "json": ["support"],
    "net": ["support"],
    "dns": ["net", "support"],
    "http": ["dns", "net", "support"],
    "session": ["http", "dns", "net", "json", "support"],
    "cli": ["session", "http", "dns", "net", "json", "support"],
    "main": ["cli", "session", "http", "dns", "net", "json", "support"],
}
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.M)
FORBIDDEN = {"iostream", "ostream", "istream", "fstream", "sstream", "cstdio", "stdio.h",
             "filesystem", "regex", "locale", "netdb.h", "functional", "thread", "exception"}


def find_cycle(graph: dict[str, list[str]]) -> list[str] | None:
    done: set[str] = set()

    def visit(name: str, path: list[str]) -> list[str] | None:
        if name in path:
            return path[path.index(name):] + [name]
        if name in done:
            return None
        for target in graph.get(name, []):
            if cycle := visit(target, path + [name]):
                return cycle
        done.add(name)
        return None

    return next((cycle for name in graph if (cycle := visit(name, []))), None)


def main() -> int:
    root = Path(__file__).resolve().parent.parent / "src"
    breaches: list[str] = []
    graph: dict[str, list[str]] = {}
    breaches += [f"{folder.name}/: this folder has no place among the layers"
                 for folder in root.iterdir() if folder.is_dir() and folder.name not in ALLOWED]
    files = sorted([*root.rglob("*.h"), *root.rglob("*.cpp")])
    for path in files:
        name = path.relative_to(root).as_posix()
        layer = name.split("/")[0]
        text = path.read_text(encoding="utf-8")
        included = INCLUDE.findall(text)
        # Between angle brackets, too, what is in src/ is ours.
        ours = [target for mark, target in included if mark == '"' or (root / target).is_file()]
        if name.endswith(".h"):
            graph[name] = ours
        for target in ours:
            target_layer = target.split("/")[0]
            if target_layer != layer and target_layer not in ALLOWED.get(layer, ALLOWED):
                breaches.append(f"{name}: {layer} must not include {target}")
            elif not (root / target).is_file():
                breaches.append(f"{name}: there is no {target}")
        for _, target in included:
            if target in FORBIDDEN:
                breaches.append(f"{name}: <{target}> has no place in the product")
            if target.startswith("openssl/") and name != "http/tls.cpp":
                breaches.append(f"{name}: OpenSSL belongs to http/tls.cpp alone")
        if re.search(r"\berrno\b", re.sub(r"//.*", "", text)) and name != "support/syscall.h":
            breaches.append(f"{name}: errno is read in support/syscall.h alone")
    if cycle := find_cycle(graph):
        breaches.append("cycle: " + " -> ".join(cycle))
    print("\n".join(breaches) if breaches else f"layers: {len(files)} files in order")
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main())
