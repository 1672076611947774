"""A smoke test of the 64-bit bundle: a loader maps it into a process of this system and imports a document."""

import io
import struct
import unittest
import wave
import zipfile

import darwin

FRAMES = 20000  # some blocks of the audio handler
EXPECTED = [((n * 7) % 60000 - 30000, -n) for n in range(FRAMES)]


def mixdown():
    data = io.BytesIO()
    with wave.open(data, "wb") as out:
        out.setparams((2, 2, 44100, 0, "NONE", ""))
        out.writeframes(b"".join(struct.pack("<hh", *frame) for frame in EXPECTED))
    return data.getvalue()


class Smoke(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = darwin.scratch("smoke")
        cls.module = darwin.build("x86_64", ["ImporterQSND"]) / "ImporterQSND.bundle/Contents/MacOS/ImporterQSND"
        cls.loader = cls.folder / "loader"
        host = darwin.SOURCE / "Host"
        sources = [*(darwin.HERE / "loader").glob("*.cpp"), *(host / "QFLFoundation/Src").glob("*.cpp"),
                   *(host / "qvacore/Src").glob("*.cpp")]
        includes = [host / "common", host / "QFLFoundation", host / "qvacore", host / "platform/posix",
                    darwin.SOURCE / "Importers/Inc"]
        # The bundle finds the host's functions, and libc++, in the loader itself.
        darwin.run("clang++", "-std=c++17", "-stdlib=libc++", "-O1", "-Wall", "-Wextra", "-Werror", "-rdynamic",
                   *[f"-I{include}" for include in includes], *sources, "-ldl", "-o", cls.loader)

    def load(self, document):
        return darwin.run(self.loader, self.module, document, timeout=60).splitlines()

    def test_a_document_is_imported_sample_for_sample(self):
        document = self.folder / "stored.qsnd"
        with zipfile.ZipFile(document, "w") as package:
            package.writestr("mimetype", "application/x-sound")
            package.writestr("Mixdown.wav", mixdown())
        lines = self.load(document)
        self.assertEqual(lines[:8], [
            "selector 0: 400", "selector 14: 0", "extension qsnd", "selector 14: 301", "selector 39: 0",
            "selector 37: 0", f"channels 2 rate 44100 frames {FRAMES}", "selector 25: 0"])
        samples = [tuple(round(float(word) * 32768, 3) for word in line.split()) for line in lines[8:-4]]
        self.assertEqual(len(samples), FRAMES)
        for n, frame in enumerate(EXPECTED):
            self.assertEqual(samples[n], frame, f"frame {n}")
        self.assertEqual(lines[-4:], ["selector 8: 0", "selector 9: 0", "selector 57: 3", "selector 1: 0"])

    def test_the_loader_refuses_what_is_no_bundle(self):
        with self.assertRaisesRegex(AssertionError, "not a 64-bit bundle"):
            darwin.run(self.loader, self.loader, self.folder / "none.qsnd")


darwin.require(["cmake", "ninja", "clang++"], [darwin.LINKER, "/usr/lib/llvm-14/include/c++/v1/string"])
darwin.main()
