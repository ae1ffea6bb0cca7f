"""What a Tab in bash, zsh and fish themselves offers.  Needs the three."""

import re
import subprocess
from pathlib import Path
from typing import NamedTuple

from laboratory.home import PROGRAM, Scene
from laboratory.peers import TIME_LIMIT_S, Script, answer, reply, until_gone
from laboratory.rows import Rows, same

# What a shell reads first.  The line under test comes by keyboard, its candidates go to $OUT:
# bash's M-* writes them all into the line, which Enter then runs; zsh reports what it would add.
START = {"bash": """
source "$COMPLETIONS/quorvane.bash"
quorvane() { printf '%s\\n' "$@" >"$OUT"; exit; }
""", "zsh": """
fpath=("$COMPLETIONS" $fpath)
autoload -Uz compinit && compinit -u -D
compadd() {
    [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\\ * ]] || {
        local -a hits; builtin compadd -O hits "$@"; print -rl -- $hits >>"$OUT"
    }
    builtin compadd "$@"
}
report() { _main_complete; print -rn '' >>"$OUT"; kill -9 $$; }
zle -C report complete-word report
bindkey '^I' report
"""}
# How a shell is started, and the keys after the line.
SHELLS = {"bash": ("script -qec 'bash --noprofile --rcfile $ZDOTDIR/.bashrc' /dev/null", "\x1b*\r"),
          "zsh": ("script -qec 'zsh -d -i' /dev/null", "\t"),
          "fish": ("IFS= read -r line; exec fish --no-config -c 'source $COMPLETIONS/quorvane.fish;"
                   " complete -C \"$argv[1]\" >$OUT' \"$line\"", "\n")}
IDS = ("prj-one", "prj-two", "$(touch broken)", "prj;reboot", "-x", "prj\x1b[2J")
PROJECTS = reply(answer({"projects": [{"id": i, "name": i + " \x1b[2J"} for i in IDS]}))


class Line(NamedTuple):
    name: str
    """What is typed after the program's name."""
    offers: set[str]
    script: Script = ()


def press_tab(shell: str, line: str, scene: Scene) -> tuple[set[str], str]:
    """What `shell` offers at the end of `line`, and what the terminal showed."""
    command, keys = SHELLS[shell]
    terminal = subprocess.run(["bash", "-c", command], check=False, text=True, input=line + keys,
                              cwd=scene.work, env=scene.environment, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=TIME_LIMIT_S, errors="replace")
    typed = line.split(" ")[1:]
    offered = [item.partition("\t")[0] for item in
               Path(scene.environment["OUT"]).read_text().splitlines()]
    if shell == "fish":  # Newer ones offer what only resembles the word, too.
        offered = [item for item in offered if item.startswith(typed[-1])]
    if shell == "bash":  # What was typed stands there too, unless something took its place.
        offered = [word for word in offered[len(typed) - 1:] if word != typed[-1]]
    return {re.sub("^-[^=]*=(?=.)", "", word).rstrip("=") for word in offered if word}, terminal.stdout


class Completions(Rows):
    """The same lines in every shell."""

    def check_offers(self, line: Line) -> None:
        for shell in SHELLS:
            with Scene(*([line.script] if line.script else ())) as scene:
                scene.environment |= {"PATH": f"{scene.path}/bin:/usr/bin:/bin", "TERM": "dumb",
                                      "OUT": f"{scene.path}/out", "ZDOTDIR": str(scene.path),
                                      "COMPLETIONS": str(PROGRAM.parent / "install")}
                (scene.path / "bin/quorvane").symlink_to(PROGRAM)
                scene.credential("http://localhost:1").write_text('{"token":"t"}')
                for name in ("first.json", "second.json"):
                    (scene.work / name).touch()
                for name, text in START.items():
                    (scene.path / f".{name}rc").write_text(text)
                typed = "quorvane " + line.name.replace("ORIGIN", scene.origin)
                offered, shown = press_tab(shell, typed, scene)
                same(f"offered by {shell}", offered, line.offers)
                self.assertNotRegex(shown, "Cannot|Run quorvane|not found")
                self.assertFalse((scene.work / "broken").exists())

    def test_lines(self) -> None:
        self.each((
            Line("logout -", {"--base-url", "--help", "--version", "-h", "-V"}),
            Line("--base-url config lo", {"login", "logout"}),
            Line("whoami --p", set()),
            Line("--base-url=https://a config ex", {"export"}),
            Line("config pull -f ", {"first.json", "second.json"}),
            Line("config push --file=se", {"second.json"}),
            Line("--base-url ORIGIN config pull -p ", {"prj-one", "prj-two"}, PROJECTS),
            Line("config import --base-url=ORIGIN --project=prj-t", {"prj-two"}, PROJECTS),
            Line("config pull --base-url=ORIGIN -p ", set(), (until_gone,)),
            Line("config pull --base-url http://localhost:1 -p ", set())), self.check_offers)
