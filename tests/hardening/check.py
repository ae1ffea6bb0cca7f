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
X86, ARM, EVERY = "X86-64", "AArch64", ""

CHECKS: tuple[tuple[str, str, bool, str], ...] = (
    # The defence, its machine, and what the tools print with it, or (False) without it.
    ("position-independent executable", EVERY, True, r"Type: +DYN[\s\S]* PIE"),
    ("read-only relocations", EVERY, True, "GNU_RELRO"),
    ("no lazy binding", EVERY, True, "BIND_NOW"),
    ("no executable stack", EVERY, True, r"GNU_STACK .* RW +0x"),
    ("nothing both writable and executable", EVERY, False, r"\n +LOAD .* RWE "),
    ("no RPATH or RUNPATH", EVERY, False, r"\((RPATH|RUNPATH)\)"),
    ("only the libraries agreed on", EVERY, False,
     r"\(NEEDED\).*\[(?!libc\.so\.6\]|ld-linux|libssl\.so\.3\]|libcrypto\.so\.3\])"),
    ("stack protector", EVERY, True, "__stack_chk_fail"),
    # On arm64 a frame is touched from 64 KiB on, and the program has none so large.
    ("stack clash protection", X86, True,
     r"\tsub +\$0x1000,%rsp\n(.*\n)?.*\t(or|mov)[bq]? +\$0x0,"),
    ("shadow stack mark", X86, True, "SHSTK"),
    ("signed returns (PAC)", ARM, True, "paciasp|hint.*0x19"),
)
ENTRIES = {X86: "endbr64", ARM: "bti|paciasp|hint"}
"""Landing pads: how each of our functions begins that can be called through a pointer."""

DIES = (-signal.SIGILL, -signal.SIGTRAP)
PROBES = (
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
    machine = re.search(r"Machine: .*(X86-64|AArch64)", text)
    for what, where, wanted, pattern in CHECKS:
        if where in (EVERY, machine and machine[1]):
            yield what, bool(re.search(pattern, text)) == wanted
    traps = re.findall(r"\n +([0-9a-f]+):\t(?:ud[12]|brk)", text)
    yield "traps on signed overflow", not {*traps}.isdisjoint(
        re.findall(r"\t(?:jo|b\.vs)\s+([0-9a-f]+)", text))
    entries = re.findall(r" <_ZN\w*8quorvane(?!12_GLOBAL__N|L|\w*UlvE_)\w+>:\n[^\t]*\t(\S+)", text)
    yield "landing pads at our functions", len(entries) > 100 and all(
        re.match(ENTRIES[machine[1] if machine else ""], entry) for entry in entries)


def try_probe(build: Path) -> Iterator[tuple[str, bool]]:
    """What the options do."""
    commands = json.loads((build / "compile_commands.json").read_text())
    words = shlex.split(next(entry["command"] for entry in commands
                             if entry["file"].endswith("src/support/files.cpp")))
    with tempfile.TemporaryDirectory(prefix="quorvane-hardening-") as folder:
        probe = f"{folder}/probe"
        built = subprocess.run([
            *words[:words.index("-o")], "-w", ROOT / "tests/hardening/probe.cpp",
            ROOT / "src/support/fault.cpp", "-o", probe], cwd=build, check=False)
        yield "the probe is built", built.returncode == 0
        for what, word, statuses in PROBES * (built.returncode == 0):
            ended = subprocess.run([*os.environ.get("EMULATOR", "").split(), probe, word],
                                   capture_output=True, check=False)
            said = re.sub(rb"qemu: uncaught .*\n", b"", ended.stdout + ended.stderr)
            silent = word != "element" or said == b""
            yield what, ended.returncode in statuses and silent


if __name__ == "__main__":
    program = Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/quorvane").resolve()
    results = [*read_program(program), *try_probe(program.parent)]
    for defence, holds in results:
        print(f"{'ok     ' if holds else 'MISSING'}  {defence}")
    sys.exit(0 if all(holds for _, holds in results) else 1)
