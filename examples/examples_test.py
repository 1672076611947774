"""Runs the examples as a person would, and looks at what they made with Python's own ZIP module."""

import io
import os
import pathlib
import subprocess
import tempfile
import unittest
import zipfile

PROGRAMS = pathlib.Path(os.environ["QCF_EXAMPLES"])


def run(name, *arguments, status=0, text=""):
    """What a program that ends with `status` prints on standard output and on standard error."""
    done = subprocess.run([PROGRAMS / name, *arguments], input=text.encode(), capture_output=True, check=False)
    if done.returncode != status:
        raise AssertionError(f"{name} ended with {done.returncode}: {done.stderr.decode()}")
    return done.stdout, done.stderr.decode()


class Examples(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.package = self.folder / "a.pkg"

    def contents(self):
        with zipfile.ZipFile(self.package) as package:
            self.assertIsNone(package.testzip())
            return {name: package.read(name) for name in package.namelist()}

    def test_create_makes_a_conforming_package(self):
        run("create", self.package)
        self.assertEqual({"mimetype": b"application/x-greeting",
                          "letter/hello.txt": b"Hello, world.\n",
                          "letter/dot.raw": b"\0\1\2\3"}, self.contents())
        self.assertEqual(b"mimetypeapplication/x-greeting", self.package.read_bytes()[30:60])
        with zipfile.ZipFile(self.package) as package:
            self.assertEqual(b"made by an example", package.comment)

    def test_replace_keeps_the_change_and_the_rest(self):
        run("create", self.package)
        before = self.contents()
        for text in ["Good bye.\n", "A much longer text than the one before.\n", ""]:
            run("replace", self.package, "letter/hello.txt", text)
            self.assertEqual({**before, "letter/hello.txt": text.encode()}, self.contents())
        self.assertEqual([self.package], list(self.folder.iterdir()))

    def test_compact_removes_without_a_gap(self):
        run("create", self.package)
        before = self.package.stat().st_size
        out, _ = run("compact", self.package, "letter/dot.raw")
        less = before - self.package.stat().st_size
        self.assertEqual(f"{less} bytes less\n", out.decode())
        self.assertEqual(30 + 46 + 2 * len("letter/dot.raw") + 4, less)
        self.assertEqual(["mimetype", "letter/hello.txt"], list(self.contents()))
        self.assertEqual(b"0 bytes less\n", run("compact", self.package)[0])

    def test_pipe_writes_forward_only(self):
        out, _ = run("pipe", "one.txt", "two.txt", text="first\nsecond\n")
        with zipfile.ZipFile(io.BytesIO(out)) as package:
            self.assertIsNone(package.testzip())
            self.assertEqual([b"application/x-lines", b"first\n", b"second\n"],
                             [package.read(name) for name in ["mimetype", "one.txt", "two.txt"]])
        listed = subprocess.run(["bsdtar", "-tf", "-"], input=out, capture_output=True, check=True).stdout
        self.assertEqual(b"mimetype\none.txt\ntwo.txt\n", listed)

    def test_memory_touches_no_file(self):
        out, _ = run("memory")
        self.assertEqual("mimetype: application/x-memory\na.txt: kept\nb.txt: added\n"
                         "2 files, the second larger\n", out.decode())

    @unittest.skipUnless((PROGRAMS / "properties").exists(), "this build has no expat adapter")
    def test_properties_stay_with_the_package(self):
        run("create", self.package)
        run("properties", self.package, "letter/hello.txt", "2001-02-03")
        run("properties", self.package, "letter/dot.raw", "2004-05-06")
        shown = run("properties", self.package, "letter/hello.txt")[0].decode().splitlines()
        self.assertEqual("date: 2001-02-03", shown[0])
        self.assertRegex(shown[1], "^ZIP date: [0-9A-F]{4}$")
        self.assertIn(b"2004-05-06", self.contents()["META-INF/pkgproperties.xml"])

    @unittest.skipUnless((PROGRAMS / "properties").exists(), "this build has no expat adapter")
    def test_properties_tell_where_their_document_is_broken(self):
        with zipfile.ZipFile(self.package, "w") as package:
            package.writestr("a.txt", "a")
            package.writestr("META-INF/pkgproperties.xml", "<pkgProperties>\n<entries>\n</pkgProperties>")
        _, errors = run("properties", self.package, "a.txt")
        self.assertEqual("line 3, column 3: mismatched tag\n", errors)

    def test_each_tells_in_a_line_what_is_wrong(self):
        for name, *rest in [("replace", "a.txt", "text"), ("compact",)]:
            _, errors = run(name, self.folder / "none.pkg", *rest, status=3)
            self.assertEqual(f"{name}: No such file or directory\n", errors)
        run("create", status=2)


if __name__ == "__main__":
    unittest.main()
