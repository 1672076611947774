"""The library and the importer as 32-bit objects, which nothing here links: what they leave to the system."""

import unittest

import darwin

LIST = darwin.HERE / "i386-undefined.txt"


def object_files(folder):
    """Everything that goes into the bundle."""
    targets = [line.split(":")[0] for line in darwin.run("ninja", "-C", folder, "-t", "targets", "all").splitlines()]
    return [name for name in targets if name.endswith(".o") and name.startswith(("xml/", "Importers/"))]


class Objects(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = darwin.build("i386", object_files)
        cls.objects = [cls.folder / name for name in object_files(cls.folder)]

    def test_all_of_them_are_32_bit_mach_o(self):
        for file in self.objects:
            self.assertEqual(file.read_bytes()[:8].hex(), "cefaedfe07000000", file)
        for name in ("ImporterQSNDEntry.cpp.o", "getTemporaryItemsDir.mm.o", "qcf_common_client.cpp.o"):
            self.assertIn(name, [file.name for file in self.objects])

    def test_what_they_leave_undefined_is_what_was_reviewed(self):
        defined = darwin.names("--extern-only", "--defined-only", *self.objects)
        undefined = darwin.names("--undefined-only", *self.objects)
        used = set(undefined) - set(defined)
        reviewed = {line for line in LIST.read_text().splitlines() if line and not line.startswith("#")}
        self.assertEqual(sorted(used - reviewed), [], f"not in {LIST.name}")
        # What the C++ library is asked for differs with the compiler's moods.
        gone = [name for name in reviewed - used if not name.startswith("__Z")]
        self.assertEqual(sorted(gone), [], f"nobody needs these of {LIST.name}")


darwin.require(["cmake", "ninja", "clang++", "llvm-nm"])
darwin.main()
