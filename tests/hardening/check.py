"""Fails when the built program lacks one of its defences.

    scripts/check-hardening [PROGRAM]

Most is read from the program itself.  What it cannot show (that nothing in it happens to need a
defence is no proof that it is on) is shown by a probe, compiled with the very options that stand in
compile_commands.json beside the program: it does the wrong thing, and has to die of it.

For a program of another machine OBJDUMP names its disassembler and EMULATOR the command that runs
its programs.
"""

from __future__ import annotations

import json
import os
import re
import shlex
import signal
import subprocess
import sys
import tempfile
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parents[2]
NEEDED = re.compile(r"libc\.so\.6|ld-linux.*|libssl\.so\.3|libcrypto\.so\.3")


class Program(NamedTuple):
    """The output of several tools about the built file."""

    machine: str
    kind: str
    segments: str
    dynamic: str
    notes: str
    symbols: str
    code: dict[int, str]
    """Instructions by address, without their operands' symbols."""


def run(*command: str) -> str:
    """A tool's output."""
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def inspect(path: Path) -> Program:
    """Reads the program."""
    header = run("readelf", "-hW", str(path))
    code = {}
    for line in run(os.environ.get("OBJDUMP", "objdump"), "-d", "--no-show-raw-insn", str(path)).splitlines():
        if found := re.match(r"\s*([0-9a-f]+):\t(.*)", line):
            code[int(found[1], 16)] = found[2].strip()
    machine = re.search(r"Machine: +(.*)", header)
    kind = re.search(r"Type: +(\S+)", header)
    return Program(machine[1] if machine else "", kind[1] if kind else "",
                   run("readelf", "-lW", str(path)), run("readelf", "-dW", str(path)),
                   run("readelf", "-nW", str(path)), run("readelf", "-sW", str(path)), code)


def traps_after_overflow(program: Program) -> bool:
    """A jump on overflow that leads to a trap."""
    traps = {address for address, text in program.code.items() if re.match(r"ud[12]|brk", text)}
    for text in program.code.values():
        found = re.match(r"(?:jo|b\.vs)\s+([0-9a-f]+)", text)
        if found and int(found[1], 16) in traps:
            return True
    return False


def own_entries(program: Program) -> list[str]:
    """The first instruction of each of our functions that can be called through a pointer."""
    found = re.findall(r"([0-9a-f]{16}) +\d+ FUNC +(?:GLOBAL|WEAK) +\w+ +\d+ +_ZN\w*8quorvane",
                       program.symbols)
    return [program.code.get(int(address, 16), "") for address in found]


def probes_large_frames(program: Program) -> bool:
    """Each page of stack is touched when it is allocated."""
    code = list(program.code.values())
    return any(re.match(r"sub\s+\$0x1000,%rsp", text)
               and any(re.match(r"(?:or|mov)[bq]?\s+\$0x0,", later) for later in code[at + 1:at + 3])
               for at, text in enumerate(code))


def needed(program: Program) -> list[str]:
    """The libraries that the loader has to find."""
    return re.findall(r"\(NEEDED\).*\[(.*)\]", program.dynamic)


X86 = "X86-64"
ARM = "AArch64"

CHECKS: tuple[tuple[str, str, Callable[[Program], bool]], ...] = (
    # The defence, its machine ("" for every one), and how to detect it.
    ("position-independent executable", "",
     lambda it: it.kind == "DYN" and " PIE" in it.dynamic),
    ("read-only relocations", "", lambda it: "GNU_RELRO" in it.segments),
    ("no lazy binding", "", lambda it: "BIND_NOW" in it.dynamic),
    ("no executable stack", "", lambda it: bool(re.search(r"GNU_STACK .* RW +0x", it.segments))),
    ("nothing both writable and executable", "",
     lambda it: not re.search(r"^ +LOAD .* RWE ", it.segments, re.MULTILINE)),
    ("no RPATH or RUNPATH", "", lambda it: not re.search(r"\((RPATH|RUNPATH)\)", it.dynamic)),
    ("only the libraries agreed on", "",
     lambda it: all(NEEDED.fullmatch(name) for name in needed(it))),
    ("stack protector", "", lambda it: "__stack_chk_fail" in it.symbols),
    # On arm64 a frame is touched from 64 KiB on, and the program has none so large.
    ("stack clash protection", X86, probes_large_frames),
    ("traps on signed overflow", "", traps_after_overflow),
    ("shadow stack mark", X86, lambda it: "SHSTK" in it.notes),
    ("landing pads (IBT) at our functions", X86,
     lambda it: len(own_entries(it)) > 100 and all(text.startswith("endbr64")
                                                   for text in own_entries(it) if text)),
    ("landing pads (BTI) or signed returns (PAC) at our functions", ARM,
     lambda it: len(own_entries(it)) > 100 and all(re.match(r"bti|paciasp|hint", text)
                                                   for text in own_entries(it) if text)),
    ("signed returns (PAC)", ARM,
     lambda it: any(re.match("paciasp|hint.*0x19", text) for text in it.code.values())),
)

TRAP = (-signal.SIGILL, -signal.SIGTRAP)
PROBES = (
    ("signed overflow ends the process", "overflow", TRAP),
    ("an index out of an array ends the process", "bounds", TRAP),
    ("an index out of a vector ends the process", "element", (-signal.SIGABRT,)),
    ("_FORTIFY_SOURCE=3 stops a write past a heap block", "fortified", (-signal.SIGABRT,)),
    ("a smashed stack ends the process", "smashed", (-signal.SIGABRT,)),
    ("variables begin as zero", "zero", (0,)),
)


def compile_probe(build: Path, folder: Path) -> str:
    """Builds the probe as our own files are built; raises the compiler's message if that fails."""
    commands = json.loads((build / "compile_commands.json").read_text())
    words = shlex.split(next(entry["command"] for entry in commands
                             if entry["file"].endswith("src/support/files.cpp")))
    words = words[:words.index("-o")] + ["-w"]
    source = ROOT / "tests/hardening/probe.cpp"
    built = subprocess.run([*words, str(source), "-o", str(folder / "probe")], cwd=build,
                           capture_output=True, text=True, check=False)
    return built.stderr


def check_probes(build: Path) -> Iterator[tuple[str, bool]]:
    """What the options do."""
    with tempfile.TemporaryDirectory(prefix="quorvane-hardening-") as name:
        complaint = compile_probe(build, Path(name))
        if complaint:
            print(complaint)
        yield "the probe is built", not complaint
        for what, word, statuses in PROBES:
            if not complaint:
                emulator = os.environ.get("EMULATOR", "").split()
                ended = subprocess.run([*emulator, f"{name}/probe", word], capture_output=True,
                                       check=False)
                yield what, ended.returncode in statuses


def main() -> int:
    """Checks; returns 0 if no defence is missing."""
    path = Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/quorvane").resolve()
    program = inspect(path)
    results = [(what, holds(program)) for what, machine, holds in CHECKS
               if machine in program.machine]
    results += check_probes(path.parent)
    for what, holds in results:
        print(f"{'ok     ' if holds else 'MISSING'}  {what}")
    return 0 if all(holds for _, holds in results) else 1


if __name__ == "__main__":
    sys.exit(main())
