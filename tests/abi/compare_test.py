"""The comparison of scripts/abi.sh, with dumps that somebody has changed a little."""

import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
DUMP = (SOURCE / "tests/abi/qcfpkg.abi").read_text(encoding="utf-8")


def part(begin, text=DUMP):
    """The element of a class, of the one whose tag begins like this, up to its end."""
    at = text.index(begin)
    return text[at:text.index("\n</class-decl>", at)]


@unittest.skipUnless(shutil.which("abidiff"), "no abidiff(1): scripts/setup.sh --checks installs it")
class Comparison(unittest.TestCase):
    def compare(self, text):
        with tempfile.TemporaryDirectory() as folder:
            other = pathlib.Path(folder, "other.abi")
            other.write_text(text, encoding="utf-8")
            return subprocess.run(["bash", str(SOURCE / "scripts/abi.sh"), "--compare", str(other)],
                                  capture_output=True, text=True)

    def expect_difference(self, old, new, words, within=DUMP):
        changed = within.replace(old, new, 1)
        self.assertNotEqual(within, changed)
        done = self.compare(DUMP.replace(within, changed, 1))
        self.assertEqual(1, done.returncode, done.stderr)
        self.assertRegex(done.stdout, words)

    def test_a_dump_is_as_itself(self):
        done = self.compare(DUMP)
        self.assertEqual(0, done.returncode, done.stdout + done.stderr)
        self.assertRegex(done.stdout, r"^abi: \d{3} functions, \d+ types as in tests/abi/qcfpkg.abi\n$")

    def test_a_function_that_goes_is_found(self):
        line = re.search(r"<elf-symbol name='_ZN3pkg10QCFVersion13GetQCFVersionEv'.*\n", DUMP)[0]
        self.expect_difference(line, "", "1 Removed function|1 Removed, .*function")

    def test_a_function_that_comes_is_found(self):
        line = re.search(r"<elf-symbol name='_ZN3pkg10QCFVersion13GetQCFVersionEv'.*\n", DUMP)[0]
        self.expect_difference(line, line + line.replace("13Get", "13Bet"), "1 Added function|1 added function")

    def test_a_virtual_function_that_moves_is_found(self):
        for interface in ("IPackage&lt;", "IPkgStream&lt;", "IXMLParser'", "IPkgPolicies'"):
            within = part(f"<class-decl name='{interface}")
            self.expect_difference("vtable-offset='2'", "vtable-offset='9'", "vtable", within)

    def test_a_member_that_moves_is_found(self):
        within = part("<class-decl name='EndCentralDirectory'")
        self.expect_difference("layout-offset-in-bits='32'", "layout-offset-in-bits='40'", "offset changed", within)

    def test_a_size_that_changes_is_found(self):
        self.expect_difference("<class-decl name='EndCentralDirectory' size-in-bits='176'",
                               "<class-decl name='EndCentralDirectory' size-in-bits='184'", "size changed")

    def test_a_number_that_changes_is_found(self):
        self.expect_difference("name='PolicyCRC' value='1'", "name='PolicyCRC' value='2'", "PolicyCRC")

    def test_no_dump_is_no_comparison(self):
        done = subprocess.run(["bash", str(SOURCE / "scripts/abi.sh"), "--compare", "/nowhere"], capture_output=True)
        self.assertEqual(2, done.returncode)


if __name__ == "__main__":
    unittest.main()
