"""Builds and runs every C++ program that the documents show, as it stands there.

A block that opens with ```cpp is a whole program or a whole header. A program is run in a folder of its own that holds
a package `a.pkg`, with the name of the package as its argument. Comments right above the block say more, in this order:
<!-- arguments: ... --> has others, such as the importer `ImporterQSND.bundle` with a sound document `song.qsnd`;
<!-- prints: TEXT --> is what has to come out, \\n for the end of a line.
"""

import re
import struct
import unittest

import project

BUNDLE = "ImporterQSND.bundle"

BLOCK = re.compile(
    r"(?:<!-- arguments: (?P<arguments>[^\n]*?) -->\n)?(?:<!-- prints: (?P<prints>[^\n]*?) -->\n)?"
    r"^```cpp\n(?P<code>.*?)^```$", re.S | re.M)


def documents():
    return [project.SOURCE / "README.md", project.SOURCE / "HACKING.md",
            *sorted((project.SOURCE / "docs").rglob("*.md"))]


def snippets():
    """Name, code, arguments and expected output (None where none is told) of each block."""
    for document in documents():
        for number, block in enumerate(BLOCK.finditer(document.read_text(encoding="utf-8")), 1):
            prints = block["prints"]
            expected = prints.replace("\\n", "\n") if prints is not None else None
            name = document.relative_to(project.SOURCE).with_suffix("").as_posix()
            yield f"{name.replace('/', '_')}_{number}", block["code"], (block["arguments"] or "a.pkg").split(), expected


class Snippets(unittest.TestCase):
    def test_every_program_in_the_documents_builds_and_runs(self):
        folder = project.scratch("snippets")
        programs, runs = [], {}
        for name, code, arguments, expected in snippets():
            is_program = re.search(r"\bint main\(", code) is not None
            path = folder / f"{name}.cpp"
            path.write_text(code if is_program else code + "\nint main() {}\n", encoding="utf-8")
            programs.append(path)
            if is_program:
                runs[name] = arguments, expected
        self.assertIn("README_1", runs, "the README shows no program")

        build = project.build_consumer(
            folder / "build", project.BUILD, SNIPPETS=";".join(map(str, programs)))
        for name, (arguments, expected) in runs.items():
            with self.subTest(name):
                home = folder / f"{name}.home"
                home.mkdir()
                project.make_package(home / "a.pkg")
                if BUNDLE in arguments:
                    if not project.HAS_IMPORTER:
                        continue
                    (home / BUNDLE).symlink_to(project.BUILD / BUNDLE)
                    project.make_sound_document(home / "song.qsnd", struct.pack("<hh", 16384, -8192))
                output = project.run(build / name, *arguments, cwd=home)
                if expected is not None:
                    self.assertEqual(expected, output)


if __name__ == "__main__":
    unittest.main()
