"""A Tab in bash, zsh and fish themselves, and what they offer.  The three must be installed."""

from __future__ import annotations

import os
import pty
import re
import select
import subprocess
import time
from pathlib import Path
from typing import Any

from harness import PROGRAM, TIME_LIMIT_S, EndToEnd, Scene, answer, reply, until_gone

ROOT = Path(__file__).resolve().parents[2]
SHELLS = ("bash", "zsh", "fish")

# What a shell reads first.  The line under test comes by keyboard, its candidates go to $OUT:
# bash's M-* writes them all into the line, which Enter then runs; zsh reports what it would add.
START = {"bash": f"""
source {ROOT}/packaging/completions/quorvane.bash
quorvane() {{ printf '%s\\n' "$@" >"$OUT.new"; mv "$OUT.new" "$OUT"; }}
PS1='READY>'
""", "zsh": f"""
fpath=({ROOT}/packaging/completions $fpath)
autoload -Uz compinit && compinit -u -D
compadd() {{
    [[ ${{@[1,(i)(-|--)]}} == *-(O|A|D)\\ * ]] || {{
        local -a hits; builtin compadd -O hits "$@"; print -rl -- $hits >>"$OUT.new"
    }}
    builtin compadd "$@"
}}
report() {{ _main_complete; print -rn '' >>"$OUT.new"; mv "$OUT.new" "$OUT"; }}
zle -C report complete-word report
bindkey '^I' report
PROMPT='READY>'
"""}
KEYS = {"bash": "\x1b*\r", "zsh": "\t"}

IDS = ("prj-one", "prj-two", "$(touch broken)", "prj;reboot", "-x", "prj\x1b[2J")
PROJECTS = reply(answer({"projects": [{"id": i, "name": i + " \x1b[2J"} for i in IDS]}))


def type_line(shell: str, line: str, scene: Scene) -> tuple[list[str], str]:
    """Types `line` and the key behind it; returns the words reported and all that was seen."""
    out = Path(scene.environment["OUT"])
    main, terminal = pty.openpty()
    command = {"bash": ["bash", "--noprofile", "--rcfile", f"{scene.home}/.bashrc"],
               "zsh": ["zsh", "-d", "-i"]}[shell]
    child = subprocess.Popen(command, env=scene.environment, cwd=scene.work, start_new_session=True,
                             stdin=terminal, stdout=terminal, stderr=terminal)
    os.close(terminal)
    seen, sent, deadline = "", 0, time.monotonic() + TIME_LIMIT_S
    try:
        while not out.exists():
            if time.monotonic() > deadline:
                raise AssertionError(f"{shell} did not finish: {seen!r}")
            if select.select([main], [], [], 0.02)[0]:
                seen += os.read(main, 65536).decode(errors="replace")
            if not sent and "READY>" in seen:
                sent = os.write(main, (line + KEYS[shell]).encode())
        return out.read_text().splitlines(), seen
    finally:
        child.kill()
        child.wait()
        os.close(main)


def press_tab(shell: str, line: str, scene: Scene) -> tuple[set[str], str]:
    """What `shell` offers at the end of `line`, and what the terminal showed."""
    if shell == "fish":
        script = f"source {ROOT}/packaging/completions/quorvane.fish; complete -C '{line}'"
        run = subprocess.run(["fish", "--no-config", "-c", script], env=scene.environment,
                             cwd=scene.work, capture_output=True, text=True, timeout=TIME_LIMIT_S)
        offered, shown = [item.partition("\t")[0] for item in run.stdout.splitlines()], run.stderr
    else:
        offered, shown = type_line(shell, line, scene)
    if shell == "bash":  # What was typed stands there too, unless something took its place.
        typed = line.split(" ")[1:]
        offered = [word for word in offered[len(typed) - 1:] if word != typed[-1]]
    return {re.sub("^-[^=]*=(?=.)", "", word).rstrip("=") for word in offered if word}, shown


def help_of(*words: str) -> str:
    return subprocess.run([PROGRAM, *words, "--help"], capture_output=True, text=True,
                          check=True).stdout


class Completions(EndToEnd):
    def offers(self, shell: str, line: str, expected: set[str], script: Any = ()) -> None:
        with Scene(*([script] if script else ())) as scene:
            scene.environment |= {"PATH": f"{scene.home}/bin:/usr/bin:/bin", "TERM": "dumb",
                                  "OUT": f"{scene.home}/out", "ZDOTDIR": str(scene.home)}
            (scene.home / "bin").mkdir()
            (scene.home / "bin/quorvane").symlink_to(Path(PROGRAM).resolve())
            scene.credential("http://localhost:1").write_text('{"token":"t"}')
            for name in ("first.json", "second.json"):
                (scene.work / name).touch()
            for name, text in START.items():
                (scene.home / f".{name}rc").write_text(text)
            started = time.monotonic()
            offered, shown = press_tab(shell, line.replace("ORIGIN", scene.origin), scene)
            self.assertEqual(offered, expected)
            self.assertLess(time.monotonic() - started, 8)
            self.assertNotRegex(shown, "Cannot|Run quorvane|not found")
            self.assertFalse((scene.work / "broken").exists())

    def test_lines(self) -> None:
        projects = {"prj-one", "prj-two"}
        self.rows([(f"{shell}: {line}", shell, f"quorvane {line}", *rest) for line, *rest in (
            ("--base-url config lo", {"login", "logout"}),
            ("-- who", {"whoami"}),
            ("login --n", {"--no-browser"}),
            ("whoami --p", set()),
            ("--base-url=https://a config ex", {"export"}),
            ("config pull -f ", {"first.json", "second.json"}),
            ("config push --file=se", {"second.json"}),
            ("--base-url=https:", {"https://"}),
            ("--base-url ORIGIN config pull -p ", projects, PROJECTS),
            ("config push --base-url=ORIGIN --project prj-t", {"prj-two"}, PROJECTS),
            ("config import --base-url=ORIGIN --project=prj-", projects, PROJECTS),
            ("config pull --base-url=ORIGIN -p ", set(), (until_gone,)),
            ("config pull --base-url http://localhost:1 -p ", set()),
            ("config pull --base-url http://localhost -p ", set()),
        ) for shell in SHELLS], self.offers)

    def test_everything_in_the_help_and_nothing_else(self) -> None:
        told, table = "", []
        pending: list[tuple[str, ...]] = [()]
        while pending:
            words = pending.pop()
            text = help_of(*words)
            told += text
            line = " ".join(("quorvane", *words, ""))
            commands = set(re.findall(r"^  ([a-z]\S*)\t", text, re.M))
            pending += [(*words, command) for command in commands]
            long = set(re.findall(r" (--[\w-]+)(?=[\t ])", text))
            short = set(re.findall(r" (-\w),", text))
            commands |= {"export", "import"} if "pull" in commands else set()  # The help is silent.
            for shell in SHELLS:
                table += [(line, shell, line, commands)] if commands else []
                table += [(line, shell, line + "--", long)]
                table += [(line, shell, line + "-", long | short)] if shell != "zsh" else []
        self.rows(table, self.offers)
        for name in ("_quorvane", "quorvane.fish"):
            for description in re.findall(r"\t([^(\n]*[^(\n ])", told):
                self.assertIn(description, (ROOT / "packaging/completions" / name).read_text(), name)
