"""Runs the commands of docs/many-documents.md that say what comes out, as they stand there.

A comment <!-- runs: FILE... --> right above a block of shell names the files that it makes. The block finds the
programs in PATH, two documents below documents/, and in `machines` a machine that is this one, reached through a command
that stands for ssh.
"""

import os
import re
import shutil
import unittest

import project

TEXT = (project.SOURCE / "docs" / "many-documents.md").read_text(encoding="utf-8")
BLOCK = re.compile(r"<!-- runs: (?P<files>[^\n]*?) -->\n```sh\n(?P<code>.*?)^```$", re.S | re.M)

# The machine's name goes, and the rest is run there: in a home of its own, with the shell that every login has in SHELL.
SSH = """#!/bin/sh
while [ "${1#-}" != "$1" ]; do [ "$1" = -l ] && shift; shift; done
shift
[ "$1" != -- ] || shift
cd "$REMOTE_HOME" && SHELL=/bin/sh exec sh -c "$*"
"""


def home(name):
    folder = project.scratch(name)
    for document in ("first/one.qsnd", "second/two.qsnd"):
        path = folder / "documents" / document
        path.parent.mkdir(parents=True)
        project.make_sound_document(path)
        path.with_suffix(".wav").unlink()
    remote = folder / "remote"
    remote.mkdir()
    ssh = folder / "ssh"
    ssh.write_text(SSH, encoding="utf-8")
    ssh.chmod(0o755)
    (folder / "machines").write_text(f"2/{ssh} elsewhere\n", encoding="utf-8")
    return folder, {**os.environ, "PATH": f"{project.BUILD / 'bin'}:{os.environ['PATH']}", "HOME": str(folder),
                    "REMOTE_HOME": str(remote), "XDG_CACHE_HOME": str(folder / "cache")}


@unittest.skipUnless(project.HAS_QSNDHOST, "this build has no programs")
@unittest.skipUnless(shutil.which("parallel") and shutil.which("rsync"), "GNU parallel or rsync is missing")
class ManyDocuments(unittest.TestCase):
    def test_commands_make_the_files_that_the_page_promises(self):
        blocks = list(BLOCK.finditer(TEXT))
        self.assertGreaterEqual(len(blocks), 4)
        for number, block in enumerate(blocks, 1):
            with self.subTest(number):
                folder, environment = home(f"many-{number}")
                done = project.attempt("bash", "-euo", "pipefail", "-c", block["code"], cwd=folder, env=environment)
                self.assertEqual(0, done.returncode, f"{block['code']}\n{done.stderr}")
                self.assertNotIn("qsndhost:", done.stderr, block["code"])
                for file in block["files"].split():
                    self.assertGreater((folder / file).stat().st_size, 44, file)
                self.assertEqual([], list((folder / "remote").rglob("*.qsnd")), "left on the machine")

    def test_a_damaged_document_is_in_the_log_and_the_others_are_done(self):
        folder, environment = home("many-damaged")
        (folder / "documents" / "first" / "bad.qsnd").write_bytes(b"no package")
        code = next(BLOCK.finditer(TEXT))["code"] + "\n"
        done = project.attempt("bash", "-uo", "pipefail", "-c", code, cwd=folder, env=environment)
        self.assertEqual(1, done.returncode)
        self.assertRegex(done.stderr, r"(?m)^qsndhost: cannot export ./first/bad.qsnd: ")
        self.assertTrue((folder / "waves/first/one.wav").exists() and (folder / "waves/second/two.wav").exists())
        self.assertFalse((folder / "waves/first/bad.wav").exists())
        failed = project.run("awk", "NR == 1 || $7 || $8", folder / "export.log").splitlines()
        self.assertEqual(2, len(failed), failed)  # the heading, and one
        self.assertIn("bad.qsnd", failed[1])


if __name__ == "__main__":
    unittest.main()
