"""Fails when the built program lacks one of its defences."""
# scripts/check-hardening [PROGRAM]
#
# Most is read from the program itself.  What it cannot show (that nothing in it happens to need a
# defence is no proof that it is on) is shown by a probe, compiled with the very options that stand
# in compile_commands.json beside the program and linked with its fault handler: it does the wrong
# thing, and has to die of it.  For a program of another machine OBJDUMP names its disassembler and
# EMULATOR the command that runs its programs.

import json
import os
import re
import shlex
import signal
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

CHECKS = (
    # The defence, its machine, and what the tools print with it, or (False) without it.
    ("position-independent executable", "", True, r"Type: +DYN[\s\S]* PIE"),
    ("read-only relocations", "", True, "GNU_RELRO"),
    ("no lazy binding", "", True, "BIND_NOW"),
    ("no executable stack", "", True, r"GNU_STACK .* RW +0x"),
    ("nothing both writable and executable", "", False, r"\n +LOAD .* RWE "),
    ("no RPATH or RUNPATH", "", False, r"\((RPATH|RUNPATH)\)"),
    ("only the libraries agreed on", "", False,
     r"\(NEEDED\).*\[(?!libc\.so\.6\]|ld-linux|libssl\.so\.3\]|libcrypto\.so\.3\])"),
    # On arm64 a frame is touched from 64 KiB on, and the program has none so large.
    ("stack clash protection", "X86-64", True,
     r"\tsub +\$0x1000,%rsp\n(.*\n)?.*\t(or|mov)[bq]? +\$0x0,"),
    ("shadow stack mark", "X86-64", True, "SHSTK"),
    ("signed returns (PAC)", "AArch64", True, "paciasp|hint.*0x19"),
)
ENTRIES = {"X86-64": "endbr64", "AArch64": "bti|paciasp|hint"}
"""Landing pads: how each of our functions begins that can be called through a pointer."""

DIES = (-signal.SIGILL, -signal.SIGTRAP)
PROBES = (
    # What the options do, the probe's word for the wrong thing, and how it ends.
    ("signed overflow ends the process", "overflow", DIES),
    ("an index out of an array ends the process", "bounds", DIES),
    ("an index out of a vector ends the process in silence", "element", DIES),
    ("_FORTIFY_SOURCE=3 stops a write past a heap block", "fortified", (-signal.SIGABRT,)),
    ("a smashed stack ends the process", "smashed", (-signal.SIGABRT,)),
    ("variables begin as zero", "zero", (0,)),
)


def read_program(path: Path) -> Iterator[tuple[str, bool]]:
    """What the program shows."""
    text = "".join(subprocess.check_output([*command, path], text=True) for command in (
        ["readelf", "-hldnsW"], [os.environ.get("OBJDUMP", "objdump"), "-d", "--no-show-raw-insn"]))
    machine = re.search(r"Machine: .*(X86-64|AArch64)", text)[1]
    for what, where, wanted, pattern in CHECKS:
        if where in ("", machine):
            yield what, bool(re.search(pattern, text)) == wanted
    entries = re.findall(r" <_ZN\w*8quorvane(?!12_GLOBAL__N|L|\w*UlvE_)\w+>:\n[^\t]*\t(\S+)", text)
    yield "landing pads at our functions", len(entries) > 100 and all(
        re.match(ENTRIES[machine], entry) for entry in entries)


def try_probe(build: Path) -> Iterator[tuple[str, bool]]:
    """What the options do."""
    commands = json.loads((build / "compile_commands.json").read_text())
    words = shlex.split(next(entry["command"] for entry in commands
                             if entry["file"].endswith("src/support/files.cpp")))
    with tempfile.TemporaryDirectory(prefix="quorvane-hardening-") as folder:
        probe = f"{folder}/probe"
        subprocess.run([*words[:words.index("-o")], "-w", ROOT / "tests/hardening/probe.cpp",
                        ROOT / "src/support/fault.cpp", "-o", probe], cwd=build, check=True)
        for what, word, statuses in PROBES:
            ended = subprocess.run([*os.environ.get("EMULATOR", "").split(), probe, word],
                                   capture_output=True, check=False)
            said = re.sub(rb"qemu: uncaught .*\n", b"", ended.stdout + ended.stderr)
            yield what, ended.returncode in statuses and (word != "element" or said == b"")


if __name__ == "__main__":
    program = Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/quorvane").resolve()
    results = dict([*read_program(program), *try_probe(program.parent)])
    for defence, holds in results.items():
        print(f"{'ok     ' if holds else 'MISSING'}  {defence}")
    sys.exit(not all(results.values()))
