"""Sources of which no program is linked for macOS yet: they compile for it."""

import unittest

import darwin

ROOT = darwin.SOURCE
# The programs and the host kit use std::filesystem, which came with 10.15.
PROGRAMS_SYSTEM = "10.15"


def compile_for(processor, system, source, includes, *options):
    darwin.run("clang++", "-target", f"{processor}-apple-macosx{system}", "-isysroot", darwin.SDK, "-std=c++17",
               "-stdlib=libc++", "-nostdinc++", "-isystem", darwin.SDK / "usr/c++",
               "-isystem", "/usr/lib/llvm-14/include/c++/v1", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion",
               "-Wshadow", "-Werror", *[f"-I{ROOT / include}" for include in includes], *options, "-fsyntax-only",
               source)


class Sources(unittest.TestCase):
    def test_records_have_their_offsets_on_both_processors(self):
        for processor in ("x86_64", "i386"):
            compile_for(processor, "10.13", darwin.HERE / "records.cpp", ["Importers/Inc", "xml/qcf/pkglib", "tests"])

    def test_the_programs_own_glue_compiles(self):
        sources = sorted((ROOT / "tools/common/mac").glob("*.cpp"))
        self.assertTrue(sources)
        for source in sources:
            compile_for("x86_64", PROGRAMS_SYSTEM, source, ["tools"])

    def test_the_host_kit_compiles(self):
        for source in sorted((ROOT / "Host/HostKit").glob("*.cpp")):
            compile_for("x86_64", PROGRAMS_SYSTEM, source,
                        ["Host", "Host/qvacore", "Host/QFLFoundation", "Importers/Inc"],
                        '-DHOSTKIT_MODULE_FOLDER="MacOS"', '-DHOSTKIT_MODULE_SUFFIX=""')

    def test_what_came_after_10_13_is_an_error(self):
        with self.assertRaisesRegex(AssertionError, "unavailable: introduced in macOS 10.15"):
            compile_for("x86_64", "10.13", ROOT / "tools/common/mac/executablePath.cpp", ["tools"])


darwin.require(["clang++"], ["/usr/lib/llvm-14/include/c++/v1/string"])
darwin.main()
