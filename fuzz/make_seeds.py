#!/usr/bin/env python3
"""Makes the seed corpora: make_seeds.py FOLDER gets one folder of inputs a target.

Packages come from independent writers: Python's zipfile and, where they are there, zip, bsdtar and
7z. Real packages of a folder ../shared/fixtures beside the tree join in where there is one.
"""
import io
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import zipfile


def wave(channels, bits, frames, tag=1):
    data = bytes((i * 37 + i // 7) & 0xFF for i in range(frames * channels * bits // 8))
    align = channels * bits // 8
    header = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(data), b"WAVE", b"fmt ", 16, tag,
                         channels, 44100, 44100 * align, align, bits, b"data", len(data))
    return header + data


def by_zipfile(entries, method, comment=b""):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", method) as package:
        for name, content in entries:
            package.writestr(name, content)
        package.comment = comment
    return out.getvalue()


def by_programs(entries):
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder, "in")
        for name, content in entries:
            path = root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content)
        for program, arguments in (
            ("zip", ["zip", "-qr", "../out.zip", "."]),
            ("bsdtar", ["bsdtar", "-caf", "../out.zip", "."]),
            ("7z", ["7z", "a", "-tzip", "../out.zip", "."]),
        ):
            if shutil.which(program) is None:
                continue
            subprocess.run(arguments, cwd=root, check=True, stdout=subprocess.DEVNULL)
            out = root.parent / "out.zip"
            yield out.read_bytes()
            out.unlink()


def packages():
    text = [("mimetype", b"application/x-seed"), ("a.txt", b"words " * 40), ("dir/b", b"")]
    for method in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED):
        yield by_zipfile(text, method, b"a comment")
        yield by_zipfile(text + [("META-INF/pkgproperties.xml", DOCUMENT)], method)
    yield from by_programs(text)


def documents():
    for channels, bits, tag in ((1, 8, 1), (2, 16, 1), (2, 24, 1), (6, 32, 3), (8, 16, 1)):
        audio = wave(channels, bits, 200, tag)
        for method in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED):
            yield by_zipfile([("mimetype", b"application/x-sound"), ("Mixdown.wav", audio)], method)


DOCUMENT = b"""<?xml version="1.0" encoding="UTF-8"?>
<pkgProperties xmlns="urn:x">
<package/>
<entries>
<entry path="a">
<prop key="datetime">2020-01-01</prop>
<prop key="mac_type">TEXT</prop>
<prop key="mac_creator">ttxt</prop>
</entry>
</entries>
</pkgProperties>
"""


def main():
    folder = pathlib.Path(sys.argv[1])
    fixtures = pathlib.Path(__file__).resolve().parents[2] / "shared" / "fixtures"
    real = [path.read_bytes() for path in sorted(fixtures.rglob("*"))
            if path.is_file() and path.stat().st_size < 100_000]
    real = [data for data in real if data[:2] == b"PK"]
    any_package = list(packages()) + list(documents()) + real
    script = bytes(range(0, 256, 8))
    seeds = {
        "hex": [b"\x10" + bytes(range(32)), b"\x3F0123456789ABCDEFabcdef", b"\x01zz"],
        "paths": [flag + path for flag in (b"\x00", b"\x01") for path in
                  (b"/a/./b/../c", b"a//b/", b"../..", b"x/y#../z", b"/", b".", b"a/b/c/../../d")],
        "packages": [bytes([i % 4]) + data for i, data in enumerate(any_package)],
        "updates": [bytes([1, i % 3, 255]) + data for i, data in enumerate(any_package)]
        + [b"\x00\x03" + bytes((i * k + k) & 0xFF for i in range(300)) for k in range(1, 40, 3)],
        "properties": [b"\x00" + DOCUMENT, b"\x01" + DOCUMENT,
                       b"\x01" + DOCUMENT.decode().replace("UTF-8", "UTF-16").encode("utf-16")],
        "documents": [script + data for data in any_package],
        "tool": [bytes([command]) + data for command in range(4) for data in any_package],
    }
    for target, inputs in seeds.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for i, data in enumerate(inputs):
            (folder / target / f"seed{i:03}").write_bytes(data)


main()
