"""A smoke test of the 64-bit bundle: a loader maps it into a process of this system and imports documents."""

import io
import struct
import unittest
import wave
import zipfile

import darwin

FRAMES = 20000  # some blocks of the audio handler
EXPECTED = [((n * 7) % 60000 - 30000, -n) for n in range(FRAMES)]

OPENED = ["selector 0: 400", "selector 14: 0", "extension qsnd", "selector 14: 301"]
CLOSED = ["selector 57: 3", "selector 1: 0"]


def mixdown():
    data = io.BytesIO()
    with wave.open(data, "wb") as out:
        out.setparams((2, 2, 44100, 0, "NONE", ""))
        out.writeframes(b"".join(struct.pack("<hh", *frame) for frame in EXPECTED))
    return data.getvalue()


def link_again(build, folder):
    """The bundle's objects linked once more, without the platform's compact unwind tables: the linker then keeps the
    other form of them, which this system's unwinder reads."""
    objects = []
    for file in sorted([*(build / "xml").rglob("*.o"), *(build / "Importers").rglob("*.o")]):
        objects.append(folder / f"{len(objects)}-{file.name}")
        darwin.run("llvm-objcopy", "--remove-section=__LD,__compact_unwind", file, objects[-1])
    module = folder / "ImporterQSND"
    darwin.run("clang++", "-target", "x86_64-apple-macosx10.13", "-isysroot", darwin.SDK, "-stdlib=libc++", "-bundle",
               "-fuse-ld=lld", f"--ld-path={darwin.LINKER}", "-mlinker-version=705",
               "-Xlinker", "-exported_symbols_list",
               "-Xlinker", darwin.SOURCE / "Importers/ImporterQSND/exports.list", "-o", module,
               *objects, darwin.SDK / "usr/lib/compilerRuntime.o", *sorted((build / "Host").rglob("*.dylib")), "-lz",
               "-framework", "CoreFoundation", "-framework", "Foundation")
    return module


class Smoke(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = darwin.scratch("smoke")
        build = darwin.build("x86_64", ["ImporterQSND"])
        cls.module = build / "ImporterQSND.bundle/Contents/MacOS/ImporterQSND"
        cls.module_that_throws = link_again(build, cls.folder)
        cls.loader = cls.folder / "loader"
        host = darwin.SOURCE / "Host"
        sources = [*(darwin.HERE / "loader").glob("*.cpp"), *(host / "QFLFoundation/Src").glob("*.cpp"),
                   *(host / "qvacore/Src").glob("*.cpp")]
        includes = [host / "common", host / "QFLFoundation", host / "qvacore", host / "platform/posix",
                    darwin.SOURCE / "Importers/Inc"]
        # The bundle finds the host's functions, and libc++, in the loader itself.
        darwin.run("clang++", "-std=c++17", "-stdlib=libc++", "-O1", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion",
                   "-Wshadow", "-Werror", "-rdynamic",
                   *[f"-I{include}" for include in includes], *sources, "-ldl", "-o", cls.loader)

    def load(self, document, module=None):
        return darwin.run(self.loader, module or self.module, document, timeout=60).splitlines()

    def document(self, name, method):
        path = self.folder / name
        with zipfile.ZipFile(path, "w") as package:
            package.writestr("mimetype", "application/x-sound")
            package.writestr("Mixdown.wav", mixdown(), method)
        return path

    def expect_import(self, lines):
        self.assertEqual(lines[:8], OPENED + [
            "selector 39: 0", "selector 37: 0", f"channels 2 rate 44100 frames {FRAMES}", "selector 25: 0"])
        samples = [tuple(round(float(word) * 32768, 3) for word in line.split()) for line in lines[8:-4]]
        self.assertEqual(len(samples), FRAMES)
        for n, frame in enumerate(EXPECTED):
            self.assertEqual(samples[n], frame, f"frame {n}")
        self.assertEqual(lines[-4:], ["selector 8: 0", "selector 9: 0"] + CLOSED)

    def test_a_document_is_imported_sample_for_sample(self):
        self.expect_import(self.load(self.document("stored.qsnd", zipfile.ZIP_STORED)))

    def test_a_document_that_is_not_there_or_damaged_is_refused(self):
        stored = self.document("whole.qsnd", zipfile.ZIP_STORED).read_bytes()
        damaged = self.folder / "damaged.qsnd"
        for data in (b"", b"no package at all", stored[:-30], stored.replace(b"PK\1\2", b"PK\1\3")):
            damaged.write_bytes(data)
            self.assertEqual(self.load(damaged, self.module_that_throws), OPENED + ["selector 39: 31"] + CLOSED)
        self.assertEqual(self.load(self.folder / "none.qsnd", self.module_that_throws),
                         OPENED + ["selector 39: 31"] + CLOSED)

    def test_without_a_temporary_directory_a_seek_in_a_deflated_document_is_a_failed_read(self):
        lines = self.load(self.document("deflated.qsnd", zipfile.ZIP_DEFLATED), self.module_that_throws)
        self.assertEqual(lines, OPENED + [
            "selector 39: 0", "selector 37: 0", f"channels 2 rate 44100 frames {FRAMES}", "selector 25: -1",
            "selector 8: 0", "selector 9: 0"] + CLOSED)

    def test_both_links_of_the_bundle_import_alike(self):
        self.expect_import(self.load(self.document("again.qsnd", zipfile.ZIP_STORED), self.module_that_throws))

    def test_the_loader_refuses_what_is_no_bundle(self):
        with self.assertRaisesRegex(AssertionError, "not a 64-bit bundle"):
            darwin.run(self.loader, self.loader, self.folder / "none.qsnd")


darwin.require(["cmake", "ninja", "clang++", "llvm-objcopy"], [darwin.LINKER, "/usr/lib/llvm-14/include/c++/v1/string"])
darwin.main()
