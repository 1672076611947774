"""The 64-bit bundle as a Mac would get it, read by LLVM's own tools."""

import plistlib
import re
import unittest

import darwin

MODULE = "lib/qsnd/ImporterQSND.bundle/Contents/MacOS/ImporterQSND"

LIBRARIES = [
    "/System/Library/Frameworks/CoreFoundation.framework/Versions/A/CoreFoundation",
    "/System/Library/Frameworks/Foundation.framework/Versions/C/Foundation",
    "/usr/lib/libSystem.B.dylib",
    "/usr/lib/libc++.1.dylib",
    "/usr/lib/libobjc.A.dylib",
    "/usr/lib/libz.1.dylib",
    "@rpath/libQFLFoundation.dylib",
    "@rpath/libqvacore.dylib",
]


class Bundle(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        build = darwin.build("x86_64", ["ImporterQSND"])
        cls.prefix = darwin.scratch("bundle")
        darwin.run("cmake", "--install", build, "--component", "programs", "--prefix", cls.prefix)
        cls.module = cls.prefix / MODULE
        cls.headers = darwin.run("llvm-objdump", "--macho", "--private-headers", cls.module)

    def command(self, kind):
        """The texts of all load commands of a kind."""
        commands = re.split(r"^Load command \d+\n", self.headers, flags=re.M)[1:]
        return [command for command in commands if re.search(rf"^\s*cmd {kind}$", command, flags=re.M)]

    def test_the_module_is_a_64_bit_bundle_with_all_names_resolved_in_two_levels(self):
        header = self.headers.split("Load command")[0].splitlines()[-1].split()
        self.assertEqual(header[:2] + header[4:5], ["MH_MAGIC_64", "X86_64", "BUNDLE"])
        self.assertEqual(header[7:], ["NOUNDEFS", "DYLDLINK", "TWOLEVEL"])

    def test_the_entry_is_the_only_export(self):
        self.assertEqual(darwin.names("--extern-only", "--defined-only", self.module), ["_xImportEntry"])
        exports = darwin.run("llvm-objdump", "--macho", "--exports-trie", self.module)
        self.assertEqual(re.findall(r"^0x[0-9A-F]+\s+(\S+)", exports, flags=re.M), ["_xImportEntry"])

    def test_it_loads_these_libraries_and_no_others(self):
        loaded = [re.search(r"name (\S+)", text)[1] for text in self.command(r"LC_LOAD\S*DYLIB")]
        self.assertEqual(sorted(loaded), sorted(LIBRARIES))
        self.assertEqual(self.command("LC_LOAD_WEAK_DYLIB"), [])

    def test_it_runs_on_10_13(self):
        (version,) = self.command("LC_VERSION_MIN_MACOSX")
        self.assertRegex(version, r"version 10\.13\n")

    def test_nothing_is_bound_weakly(self):
        bound = darwin.run("llvm-objdump", "--macho", "--weak-bind", self.module)
        self.assertRegex(bound.strip(), r"symbol$")
        undefined = darwin.run("llvm-nm", "--undefined-only", "--format=darwin", self.module)
        self.assertNotIn("weak", undefined)

    def test_it_finds_the_hosts_libraries_from_where_it_lies(self):
        (path,) = self.command("LC_RPATH")
        folder = re.search(r"path (\S+)", path)[1].replace("@loader_path", str(self.module.parent))
        for library in ("libQFLFoundation.dylib", "libqvacore.dylib"):
            installed = (self.prefix / "lib" / library).resolve(strict=True)
            self.assertEqual((self.prefix / folder / library).resolve(), installed)

    def test_no_path_of_the_building_machine_is_in_it(self):
        self.assertNotIn(str(darwin.SOURCE).encode(), self.module.read_bytes())

    def test_its_property_list_names_its_module(self):
        contents = self.module.parent.parent
        properties = plistlib.loads((contents / "Info.plist").read_bytes())
        self.assertEqual(properties["CFBundleExecutable"], self.module.name)
        self.assertEqual(properties["CFBundlePackageType"], "BNDL")
        self.assertIn(properties["CFBundleIdentifier"].encode() + b"\0", self.module.read_bytes())

    def test_initialisers_are_there_for_what_lives_before_the_first_call(self):
        self.assertIn("sectname __mod_init_func", self.headers)


darwin.require(["cmake", "ninja", "clang++", "llvm-nm", "llvm-objdump"], [darwin.LINKER])
darwin.main()
