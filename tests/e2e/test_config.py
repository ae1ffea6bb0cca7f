"""config pull and config push: the two files, the revision check, and every way to fail."""

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

from harness import EndToEnd, Result, Scene, answer, bad, failing, good, reply, shell

FILE = "quorvane.config.json"
META = FILE + ".sync.json"
PULL, PUSH = ("/api/v1/project", '{"projectId":"p"}'), "/api/v1/project-configure"
PUSHED = (PUSH, '{"projectId":"p","revision":7,"config":{"old":true}}')
PULLED = answer(b'{"project":{"config":{"a":1},"revision":8}}')
SAVED, SYNCHRONIZED = good(f"Saved {FILE}\n"), good("Configuration synchronized\n")
RENAMES = "rename,renameat,renameat2"


def metadata(revision: bytes, project: bytes = b'"p"') -> bytes:
    return b'{"projectId":%s,"baseUrl":"ORIGIN","revision":%s}' % (project, revision)


def written(config: bytes, revision: bytes, name: str = FILE) -> dict[str, Any]:
    return {f"work/{name}": ("-rw-------", config),
            f"work/{name}.sync.json": ("-rw-------", metadata(revision))}


def copy(config: bytes = b'{"old":true}', meta: bytes = metadata(b"7"),
         then: Callable[[Path], object] | None = None) -> Callable[[Scene], None]:
    """Prepares a copy as pulled at revision 7 and edited since; `then` takes the folder."""
    def prepare(scene: Scene) -> None:
        (scene.work / FILE).write_bytes(config)
        (scene.work / META).write_bytes(meta.replace(b"ORIGIN", scene.origin.encode()))
        if then:
            then(scene.work)
    return prepare


def instead(name: str, make: Callable[[Path], object]) -> Callable[[Path], object]:
    return lambda work: ((work / name).unlink(), make(work / name))


class Pull(EndToEnd):
    """What is written, byte for byte, and what stays as it was."""

    def test_contents(self) -> None:
        config = (b'{"id":"own","z":{},"publicKey":[1],"list":[ ],"deep":{"id":[{"name":null},'
                  b'[[],{}]],"n":[1.50,-0,1e400,9223372036854775808]},"name":{},"":true,'
                  b'"\\u00e9\\/\\u0001\\"\\\\\\t":"\\ud83d\\ude00\\u007f"}')
        layout = ('{\n  "z": {},\n  "list": [],\n  "deep": {\n    "id": [\n      {\n'
                  '        "name": null\n      },\n      [\n        [],\n        {}\n      ]\n'
                  '    ],\n    "n": [\n      1.50,\n      -0,\n      1e400,\n'
                  '      9223372036854775808\n    ]\n  },\n  "": true,\n'
                  '  "\u00e9/\\u0001\\"\\\\\\t": "\U0001f600\x7f"\n}\n').encode()
        self.rows([(body.decode(), SAVED, "config pull -p p", [reply(answer(body))], [PULL],
                    {"changed": written(file, revision)}) for body, file, revision in (
            (b'{"project":{"config":%s,"revision":1}}' % config, layout, b"1"),
            (b'{"project":{"config":{"name":1,"id":2,"publicKey":3}}}', b"{}\n", b"null"),
            (b"{}", b"{}\n", b"null"), (b'{"project":[{"revision":1}]}', b"{}\n", b"null"),
            (b'{"project":{"revision":null,"config":[1]}}', b"{}\n", b"null"),
            (b'{"revision":1,"project":{"revision":"\\u0072-1"}}', b"{}\n", b'"r-1"'),
            (b'{"project":{"revision":1.50e+0}}', b"{}\n", b"1.50e+0"),
            (b'{"project":{"revision":{"b":[1, 2.0]}}}', b"{}\n", b'{"b":[1,2.0]}'))])

    def test_names_and_modes(self) -> None:
        name = "new/er/c.json"
        folders = {"work/new": ("drwx------", b""), "work/new/er": ("drwx------", b"")}
        files = folders | written(b'{\n  "a": 1\n}\n', b"8", name)
        self.rows([(f"{umask:o}", good(f"Saved {name}\n"), f"config export -p=p -f {name}",
                    [reply(PULLED)], [PULL], {"changed": files, "umask": umask})
                   for umask in (0, 0o22, 0o777)])

    def test_bytes_that_are_no_text(self) -> None:
        with Scene(reply(PULLED), reply(PULLED)) as scene:
            words = ("config", "--base-url=" + scene.origin, "pull", "-p", b"\xff")
            self.assertEqual(scene.run(*words, b"--file=\xe9"), Result(0, b"Saved \xe9\n", b""))
            self.assertEqual((scene.work / os.fsdecode(b"\xe9.sync.json")).read_bytes(), metadata(
                b"8", b"null").replace(b"ORIGIN", scene.origin.encode()))
            # What is recorded is no text, which counts as the empty one.
            push = ("config", "import", "-f", b"\xe9", "-p")
            self.assertEqual(scene.run(*push, b"\xff"), bad(
                "Pull this project first to establish its revision"))
            self.assertEqual(scene.run(*push, ""), SYNCHRONIZED)
        self.assertEqual(scene.requests, [
            scene.request(PULL[0], '{"projectId":null}'),
            scene.request(PUSH, '{"projectId":"","revision":8,"config":{"a":1}}')])

    def test_stale_temporary_names(self) -> None:
        new = written(b'{\n  "a": 1\n}\n', b"8")
        call = ("config pull -p p", [reply(PULLED)], [PULL])
        self.rows([(script, SAVED, *call, {
            "changed": new, "wrapper": shell(f'{script}; exec "$@"'),
            "prepare": lambda scene: ((scene.home / "bin").symlink_to("/bin"),
                                      (scene.work / "victim").write_text("untouched"))})
            for script in (f"echo stale >{FILE}.tmp.$$", f"ln -s victim {FILE}.tmp.$$",
                           f"ln -s victim {META}.tmp.$$", f"mkdir {FILE}.tmp.$$",
                           f"ln -s victim {FILE}")])

    def test_failures(self) -> None:
        limit = shell('ulimit -f 8; exec "$@"')  # In units of 512 bytes.
        large = b'{"project":{"config":{"a":"%s"}}}' % (b"x" * 9000)
        config, pull = bad("Cannot write configuration"), "config pull -p p -f "
        self.rows([(name, expected, words, [reply(body)], [PULL],
                    {"prepare": copy(then=lambda work: (work / "folder").mkdir()), **options})
                   for name, expected, words, body, options in (
            ("refused", bad("no such"), pull + FILE, answer({"error": "no such"}, 404), {}),
            ("no object", bad("Request failed: HTTP 200"), pull + FILE, answer([]), {}),
            ("file for a folder", config, pull + FILE + "/c", PULLED, {}),
            ("no folder to make", config, pull + "/proc/none/c", PULLED, {}),
            ("no file to make", config, pull + "/proc/c", PULLED, {}),
            ("folder for a file", config, pull + "folder", PULLED, {}),
            ("name too long", config, pull + "x" * 250, PULLED, {}),
            ("no name", config, pull[:-1] + "=", PULLED, {}),
            ("file size limit", config, pull + FILE, answer(large), {"wrapper": limit}),
            *((fault[0], config, pull + FILE, PULLED, {"wrapper": failing(*fault)}) for fault in (
                ("write", "ENOSPC", "1"), ("fsync", "EIO"), (RENAMES, "EPERM"))))])

    def test_metadata_failures(self) -> None:
        large = answer(b'{"project":{"config":{"a":1},"revision":"%s"}}' % (b"x" * 9000))
        self.rows([(name, bad("Cannot write revision metadata"), "config pull -p p",
                    [reply(body)], [PULL], {"changed": {
                        f"work/{FILE}": ("-rw-------", b'{\n  "a": 1\n}\n')}, **options})
                   for name, body, options in (
            ("limit", large, {"prepare": copy(), "wrapper": shell('ulimit -f 8; exec "$@"')}),
            ("fsync", PULLED, {"prepare": copy(), "wrapper": failing("fsync", "EIO", "2")}),
            ("rename", PULLED, {"prepare": copy(), "wrapper": failing(RENAMES, "EPERM", "2")}),
            ("folder", PULLED, {"prepare": copy(then=instead(META, Path.mkdir))}))])


class Push(EndToEnd):
    """What is sent, what keeps it from being sent, and what is recorded afterwards."""

    def test_request(self) -> None:
        config = (b' { "b" : 1.50, "id": "mine", "a": [ ] , "name":null,\n"publicKey":{"z":1e400,'
                  b'"y":9223372036854775808}, "t":"\\u00e9\\/\\n" }\n')
        sent = ('{"b":1.50,"id":"mine","a":[],"name":null,"publicKey":{"z":1e400,'
                '"y":9223372036854775808},"t":"\u00e9/\\n"}')
        self.rows([(before, SYNCHRONIZED, "config push -p p", [reply(answer(body))], [
            (PUSH, f'{{"projectId":"p","revision":{before},"config":{sent}}}')], {
                "prepare": copy(config, metadata(before.replace(",", " , ").encode()) + b"\n"),
                "changed": {f"work/{META}": ("-rw-------", metadata(after))}, "umask": 0})
            for before, body, after in (
                ("null", b'{"project":{"revision":8}}', b"8"), ("1.50", b"{}", b"null"),
                ('{"a":[7.0,"x"]}', b'{"project":{"revision":{"n":8.0}}}', b'{"n":8.0}'))])

    def test_revision_check(self) -> None:
        def edited(old: bytes, new: bytes) -> Callable[[Path], object]:
            return lambda work: (work / META).write_bytes(
                (work / META).read_bytes().replace(old, new, 1))
        self.rows([(name, bad("Pull this project first to establish its revision"),
                    "config push -p p", {"prepare": copy(then=then)}) for name, then in (
            ("missing", instead(META, Path.exists)), ("folder", instead(META, Path.mkdir)),
            ("FIFO", instead(META, os.mkfifo)), ("empty", instead(META, Path.touch)),
            ("array", edited(b"{", b"[{")), ("cut", edited(b"}", b"")),
            ("key twice", edited(b"}", b',"revision":7}')),
            ("too large", edited(b"{", b"{".ljust(8388608))),
            ("project", edited(b'"p"', b'"P"')), ("project no text", edited(b'"p"', b"1")),
            ("no project", edited(b"projectId", b"id")), ("origin", edited(b"http:", b"https:")),
            ("origin in other words", edited(b".1:", b".1:0")),
            ("no revision", edited(b"revision", b"Revision")),
            ("neither file", lambda work: ((work / FILE).unlink(), (work / META).unlink())))])

    def test_configuration(self) -> None:
        refused = (bad("Configuration must be a JSON object"), "config push -p p")
        self.rows([(name, *refused, {"prepare": copy(then=instead(FILE, make))})
                   for name, make in (("missing", Path.exists), ("folder", Path.mkdir),
                                      ("FIFO", os.mkfifo), ("link", lambda f: f.symlink_to("x")))])
        self.rows([(str(content[:40]), *refused, {"prepare": copy(content)}) for content in (
            b"", b"[{}]", b'"{}"', b"null", b"{a:1}", b'{"a":1', b'{"a":1,"a":2}',
            b'{"a":"\xc0\x80"}', b"{}".ljust(8388609))])

    def test_failures(self) -> None:
        stale = bad("Configuration saved remotely; pull again to refresh local metadata")
        self.rows([(name, expected, "config push -p p", [reply(body)], [PUSHED],
                    {"prepare": copy(), "wrapper": wrapper})
                   for name, expected, body, wrapper in (
            ("stale", bad("Revision 7 is old"), answer({"error": "Revision 7 is old"}, 409), ()),
            ("no object", bad("Request failed: HTTP 200"), answer(b"ok"), ()),
            ("not renamed", stale, PULLED, failing(RENAMES, "EPERM")),
            ("not synchronised", stale, PULLED, failing("fsync", "EIO")),
            ("full disk", stale, PULLED, failing("write", "ENOSPC", "1")))])
