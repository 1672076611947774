"""The API reference: Doxygen has nothing to say against it, and the contracts of the headers are in it."""

import html
import re
import shutil
import unittest

import project

DOXYFILE = project.BUILD / "Doxyfile"


def make(name, addition=""):
    """Runs Doxygen with its output in a folder of its own."""
    folder = project.scratch(name)
    settings = folder / "Doxyfile"
    text = DOXYFILE.read_text(encoding="utf-8")
    settings.write_text(f'{text}\nOUTPUT_DIRECTORY = "{folder}"\n{addition}\n', encoding="utf-8")
    return project.attempt(shutil.which("doxygen"), settings, cwd=folder), folder / "html"


def words(page):
    return " ".join(html.unescape(re.sub(r"<[^>]*>", " ", page.read_text(encoding="utf-8"))).split())


@unittest.skipUnless(DOXYFILE.exists() and shutil.which("doxygen"), "Doxygen is missing")
class Reference(unittest.TestCase):
    def test_the_headers_give_no_warning_and_their_contracts_are_shown(self):
        done, folder = make("api")
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        pages = {"IPackage": "class", "IPkgFile": "class", "QCFPackageFactory": "class", "ExpatXMLParser": "class"}
        for name, kind in pages.items():
            self.assertTrue((folder / f"{kind}pkg_1_1{name}.html").exists(), name)
        policies = words(folder / "classpkg_1_1IPkgPolicies.html")
        self.assertIn("A client's answers to the library's questions.", policies)
        self.assertIn("repair its \"mimetype\" entry when it is opened", policies)
        self.assertIn("no method chosen: an entry takes deflate", words(folder / "namespacepkg.html"))

    def test_a_broken_reference_would_be_seen(self):
        page = project.scratch("api-page") / "broken.md"
        page.write_text("# Broken\n\n\\ref pkg::NoSuchThing\n", encoding="utf-8")
        done, _ = make("api-broken", f'INPUT = "{page}"\nUSE_MDFILE_AS_MAINPAGE =')
        self.assertNotEqual(0, done.returncode)
        self.assertIn("NoSuchThing", done.stderr)


if __name__ == "__main__":
    unittest.main()
