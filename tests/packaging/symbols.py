"""What the shared library exports: the reviewed list of tests/packaging/symbols.txt, and nothing strong besides.

An optimised build exports exactly the list. Others export inline functions and tables that the optimiser leaves out,
which are weak. When a change of the list is meant, `symbols.py --write` writes it anew from an optimised build; a name
that goes, or changes, takes a new major version.
"""

import os
import pathlib
import re
import sys
import unittest

import project

LIST = pathlib.Path(__file__).with_name("symbols.txt")
LIBRARY = project.BUILD / "xml/qcf/pkglib" / f"libqcfpkg.so.{os.environ['QCF_VERSION']}"
CONTEXT = "<pkg::BaseAppContext<char, pkg::PkgAlloc, std::allocator, std::char_traits<char>, pkg::CharConv<char> > >"
STRING = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >"


def exports(library):
    """Kind and demangled name of each exported symbol, the default context and strings in short."""
    lines = project.run("nm", "-D", "-C", "--defined-only", library).splitlines()
    pairs = [re.fullmatch(r"[0-9a-f]+ (\S) (.*)", line).groups() for line in lines]
    return {(kind, name.replace(CONTEXT, "<>").replace(STRING, "std::string")) for kind, name in pairs}


def names_of_the_project(symbols):
    """Its own names; instances of the standard library's templates for its types come and go with the compiler."""
    foreign = re.compile(r"(?:\w+ for |typeinfo name for |guard variable for )?(?:void )?(?:std|boost)::")
    return sorted({name for _, name in symbols if "pkg::" in name and not foreign.match(name)})


@unittest.skipUnless(LIBRARY.exists(), "no ELF library in this build")
class Exports(unittest.TestCase):
    def test_the_library_is_named_after_its_major_version(self):
        dynamic = project.run("objdump", "-p", LIBRARY)
        self.assertRegex(dynamic, rf"SONAME +libqcfpkg\.so\.{os.environ['QCF_VERSION'].split('.')[0]}\n")
        self.assertNotRegex(dynamic, "RUNPATH|RPATH")

    @unittest.skipUnless(os.environ["QCF_PLAIN_BUILD"] == "1", "instrumented, or not made by g++ for 64 bits")
    def test_everything_on_the_list_is_exported(self):
        listed = LIST.read_text(encoding="utf-8").splitlines()
        self.assertGreater(len(listed), 300)
        self.assertEqual([], sorted(set(listed) - set(names_of_the_project(exports(LIBRARY)))))

    @unittest.skipUnless(os.environ["QCF_PLAIN_BUILD"] == "1", "instrumented, or not made by g++ for 64 bits")
    def test_what_is_not_on_the_list_is_weak_and_absent_from_an_optimised_build(self):
        listed = set(LIST.read_text(encoding="utf-8").splitlines())
        others = {(kind, name) for kind, name in exports(LIBRARY) if name not in listed}
        self.assertEqual(set(), {(kind, name) for kind, name in others if kind not in "WVu"})
        if os.environ["QCF_BUILD_TYPE"] == "Release":
            self.assertEqual([], names_of_the_project(others))

    @unittest.skipUnless(os.environ["QCF_PLAIN_BUILD"] == "1", "instrumented, or not made by g++ for 64 bits")
    def test_the_libraries_below_stay_hidden(self):
        strong = {name for kind, name in exports(LIBRARY) if kind not in "WVu"}
        self.assertEqual(set(), {name for name in strong if "pkg::" not in name})


if __name__ == "__main__":
    if sys.argv[1:] == ["--write"]:
        LIST.write_text("\n".join(names_of_the_project(exports(LIBRARY))) + "\n", encoding="utf-8")
    else:
        unittest.main()
