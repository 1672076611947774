"""The check of the include direction, on small houses with known faults."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check-includes.py"
PACKAGE = "xml/qcf/pkglib/package"


def check(files):
    """Exit code and output of the check over a tree of {path: text}."""
    with tempfile.TemporaryDirectory() as folder:
        for path, text in files.items():
            place = pathlib.Path(folder, path)
            place.parent.mkdir(parents=True, exist_ok=True)
            place.write_text(text, encoding="utf-8")
        done = subprocess.run([sys.executable, CHECK, folder], capture_output=True, text=True)
        return done.returncode, done.stdout


class CheckIncludes(unittest.TestCase):
    def assertFinds(self, message, files):
        code, output = check(files)
        self.assertEqual(1, code, output)
        self.assertIn(message, output)

    def test_includes_that_point_down_or_stay_are_fine(self):
        code, output = check({
            f"{PACKAGE}/source/Record.h": "#include <cstdint>\n",
            f"{PACKAGE}/detail/Room.h": '#include "package/source/Record.h"\n',
            f"{PACKAGE}/detail/Hall.h": '#include "package/detail/Room.h"\n',
            f"{PACKAGE}/QCFPackage.h": '#include "package/detail/Hall.h"\n',
            "Importers/ImporterQSND/Src/Document.cpp": '#include "package/QCFPackage.h"\n',
        })
        self.assertEqual(0, code, output)

    def test_an_include_that_points_up_is_found_with_its_line(self):
        self.assertFinds(f'{PACKAGE}/source/Record.h:2: includes "package/QCFPackage.h" upwards', {
            f"{PACKAGE}/source/Record.h": '#include <cstdint>\n#include "package/QCFPackage.h"\n',
            f"{PACKAGE}/QCFPackage.h": "",
        })

    def test_a_declaration_must_not_include_a_definition(self):
        self.assertFinds("upwards", {
            f"{PACKAGE}/detail/Room.h": '#include "package/detail/impl/Room_open.h"\n',
            f"{PACKAGE}/detail/impl/Room_open.h": "",
        })

    def test_the_importer_must_not_know_the_host_kit(self):
        self.assertFinds("upwards", {
            "Importers/Inc/Module.h": '#include "HostKit/Bundle.h"\n',
            "Host/HostKit/Bundle.h": "",
        })

    def test_angle_brackets_do_not_hide_an_include(self):
        self.assertFinds("upwards", {
            f"{PACKAGE}/source/Record.h": "#include <package/QCFPackage.h>\n",
            f"{PACKAGE}/QCFPackage.h": "",
        })

    def test_a_source_file_stands_on_the_floor_of_its_header(self):
        code, output = check({
            f"{PACKAGE}/source/QCFPackage.cpp": '#include "package/QCFPackage.h"\n',
            f"{PACKAGE}/QCFPackage.h": "",
        })
        self.assertEqual(0, code, output)

    def test_a_circle_of_headers_is_found(self):
        self.assertFinds("a circle of includes", {
            f"{PACKAGE}/detail/A.h": '#include "package/detail/B.h"\n',
            f"{PACKAGE}/detail/B.h": '#include "package/detail/A.h"\n',
        })

    def test_an_include_of_a_file_that_is_not_there_is_found(self):
        self.assertFinds("is no file of this project", {"tools/main.cpp": '#include "gone.h"\n'})

    def test_a_file_outside_the_house_is_found(self):
        self.assertFinds("is on no floor", {"attic/old.cpp": ""})

    def test_an_empty_tree_is_not_taken_for_a_clean_one(self):
        code, _ = check({"README.md": ""})
        self.assertEqual(1, code)


if __name__ == "__main__":
    unittest.main()
