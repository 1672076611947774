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


# Scripts of fuzz/documents.cpp: reads from 200ths of the length on, reads on, format, close and open.
def at(position, frames):
    return [3, position, frames]


def further(frames):
    return [2, 0, frames]


FORMAT, AGAIN = [1, 0], [0, 0]
READING = [
    at(0, 100) + further(60) * 9,
    at(199, 50) + at(0, 10) + further(255) + at(100, 1) + at(250, 40) + at(13, 0) + further(90) + at(50, 255),
    FORMAT + at(20, 64) + AGAIN + further(64) + FORMAT + at(150, 99) + AGAIN + at(0, 255) + further(10),
    further(33) * 4 + at(180, 20) + further(20) * 5,
]


# Scripts of fuzz/updates.cpp. A way to save is a number: a save as another file, an update into one,
# one in place, one into the package file, one that is cancelled.
WAYS = range(5)


def changes(*entries):
    """Numbers of names, and how many times 16 bytes each entry gets, stored and deflated in turn."""
    out = bytes([len(entries)])
    for i, (name, size) in enumerate(entries):
        out += bytes([name, i % 2, size]) + bytes((i * 7 + k // 5) & 0xFF for k in range(size * 16))
    return out


def save(way, removed, changed, is_before=0, reopens=0):
    """One round; `removed` is a mask of entries."""
    return bytes([way, removed]) + changed + bytes([is_before, reopens])


def updates(packages):
    for first in WAYS:
        for second in WAYS:
            yield (b"\0" + changes((0, 3), (2, 20), (5, 1))
                   + save(first, 0b10, changes((0, 2), (3, 9)))
                   + save(second, 0b100, changes((1, 5), (4, 0)), is_before=1, reopens=first % 2)
                   + save(first, 0, changes((2, 4), (0, 12)), is_before=1)
                   + save(second, 0b10, changes()))
    for way in WAYS:
        for i, package in enumerate(packages):
            script = save(way, 0b10010010, changes((0, 1)), i % 2) + save(i % 5, 0, changes((2, 0)))
            yield b"\1" + script.ljust(48, b"\0") + package


def main():
    folder = pathlib.Path(sys.argv[1])
    fixtures = pathlib.Path(__file__).resolve().parents[2] / "shared" / "fixtures"
    real = [path.read_bytes() for path in sorted(fixtures.rglob("*"))
            if path.is_file() and path.stat().st_size < 100_000]
    real = [data for data in real if data[:2] == b"PK"]
    any_package = list(packages()) + list(documents()) + real
    seeds = {
        "hex": [b"\x10" + bytes(range(32)), b"\x3F0123456789ABCDEFabcdef", b"\x01zz"],
        "paths": [bytes([len(name)]) + name + reference
                  for name in (b"", b"top.xml", b"a/b.xml", b"a/./b//../c#d")
                  for reference in (b"", b"/a/./b/../c", b"a//b/", b"../..", b"x/y#../z", b"/", b".", b"#x/..",
                                    b"a/b/c/../../d", b"urn:x", b"d/e:f", b"//host/./x", b"..#y", b"http://x/y")],
        "packages": [bytes([i % 4]) + data for i, data in enumerate(any_package)],
        "updates": list(updates(any_package)),
        "properties": [b"\x00" + DOCUMENT, b"\x01" + DOCUMENT,
                       b"\x01" + DOCUMENT.decode().replace("UTF-8", "UTF-16").encode("utf-16")],
        "documents": [bytes(script[:32]).ljust(32, b"\1") + data
                      for script in READING for data in documents()]
        + [bytes(32) + data for data in any_package],
        "tool": [bytes([command]) + data for command in range(4) for data in any_package],
    }
    for target, inputs in seeds.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for i, data in enumerate(inputs):
            (folder / target / f"seed{i:03}").write_bytes(data)


main()
