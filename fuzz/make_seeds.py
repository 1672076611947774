#!/usr/bin/env python3
"""Makes the seed corpora: make_seeds.py FOLDER gets one folder of inputs a target.

Packages come from independent writers: Python's zipfile and, where they are there, zip, bsdtar and
7z; audio is written here and, where it is there, by sox. Real packages and WAV files of a folder
../shared/fixtures beside the tree join in where there is one. What is larger than the inputs that a
fuzzer makes of seeds goes to a folder TARGET-large for the targets that are tried with it. Some seeds
strain time and memory: as many entries as an end record counts, and bytes that stand for a thousand.
"""
import functools
import io
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import zipfile
import zlib


def riff(channels, bits, data, tag=1):
    align = channels * bits // 8
    header = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(data), b"WAVE", b"fmt ", 16, tag,
                         channels, 44100, 44100 * align, align, bits, b"data", len(data))
    return header + data


def wave(channels, bits, frames, tag=1):
    return riff(channels, bits, bytes((i * 37 + i // 7) & 0xFF for i in range(frames * channels * bits // 8)), tag)


# What scripts/fuzz.sh has for the longest input, and for the longest of the targets that are tried with large ones.
LONGEST = 65536
LARGE = 8 << 20
TRIED_LARGE = ("packages", "documents", "tool")


@functools.cache
def is_there(program):
    """Whether there is such a writer. One that is missing is told, once."""
    if shutil.which(program):
        return True
    print(f"make_seeds.py: no {program}, no seeds by it")
    return False


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
            if not is_there(program):
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


def by_sox(seconds, formats):
    """A WAV file for each of the lists of options."""
    if not is_there("sox"):
        return
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder, "a.wav")
        for options in formats:
            subprocess.run(["sox", "-R", "-n", *options.split(), path, "synth", str(seconds), "pinknoise"],
                           check=True)
            yield path.read_bytes()


def document(audio, method):
    return by_zipfile([("mimetype", b"application/x-sound"), ("Mixdown.wav", audio)], method)


METHODS = (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED)


def documents():
    for channels, bits, tag in ((1, 8, 1), (2, 16, 1), (2, 24, 1), (6, 32, 3), (8, 16, 1)):
        audio = wave(channels, bits, 200, tag)
        for method in METHODS:
            yield document(audio, method)


def real_documents(waves):
    """Documents of audio that other programs have written, stored and deflated."""
    formats = ("-b 8", "-b 16 -c 2", "-b 24 -c 2", "-b 32 -e signed", "-b 32 -e float", "-b 64 -e float",
               "-b 16 -c 6", "-e u-law", "-e ima-adpcm", "-b 16 -t wavpcm")
    for audio in [*waves, *by_sox(0.01, formats)]:
        for method in METHODS:
            yield document(audio, method)


def large_packages():
    """Packages of nearly 4 MiB: large entries, a large directory, and a large package for its comment."""
    noise = random.Random(1).randbytes(LARGE)
    for method in METHODS:
        yield by_zipfile([("mimetype", b"application/x-seed"), ("noise", noise[:LARGE * 9 // 10]), ("b", b"words")],
                         method, b"a comment" * 5000)
        yield by_zipfile([(f"{i:04}/" + "n" * 2500, noise[i:i + 10]) for i in range(780)], method)
    text = bytes(byte & 0x17 for byte in noise)
    yield by_zipfile([("text", text), ("more", text[:LARGE // 2])], zipfile.ZIP_DEFLATED)


# As many entries as an end record of 16 bits counts, and as many as the package tool, which has more to do with each of
# them, gets done in half the time of an input, with what sanitizers take.
CROWD = 65534
CROWD_FOR_TOOL = 9000


def crowded_packages(most):
    """So many entries of short names, and directories wide and deep."""
    yield by_zipfile([(f"{i:x}", b"") for i in range(most)], zipfile.ZIP_STORED)
    yield by_zipfile([(f"{i >> 1:x}/{i & 1}", b"x") for i in range(most)], zipfile.ZIP_DEFLATED)
    yield by_zipfile([("/".join(f"{i:05x}") + "/" * (i % 2), b"") for i in range(most)], zipfile.ZIP_STORED)
    yield by_zipfile([("a/" * depth, b"") for depth in range(1, most // 50)], zipfile.ZIP_STORED)


def by_hand(name, data, size):
    """A package of one entry that is deflated already. Its checksum is none."""
    header = struct.pack("<HHHIIIIHH", 20, 0, 8, 0, 0, len(data), size, len(name), 0)
    local = b"PK\3\4" + header + name
    central = b"PK\1\2" + struct.pack("<H", 20) + header + bytes(14) + name
    return (local + data + central
            + b"PK\5\6" + struct.pack("<HHHHIIH", 0, 0, 1, 1, len(central), len(local) + len(data), 0))


# What a few bytes stand for. The heap may grow by less than the second, which is a large input for that.
INFLATED = (16 << 20, 70 << 20)


def inflating_packages():
    """A few bytes that stand for a thousand times as many: so few that they are sought, and those above."""
    for size in (4 << 20, *INFLATED):
        yield by_zipfile([("zeros", bytes(size)), ("b", b"words")], zipfile.ZIP_DEFLATED)


def gigabytes():
    """The same for gigabytes, which not every target may leave unread."""
    codec = zlib.compressobj(9, zlib.DEFLATED, -15)
    stretch = codec.compress(bytes(1 << 20)) + codec.flush(zlib.Z_FULL_FLUSH)
    return by_hand(b"zeros", stretch * 4095 + b"\3\0", 4095 << 20)


def inflating_documents():
    """The same in audio, all of it sought."""
    for size in INFLATED:
        yield document(riff(2, 16, bytes(size)), zipfile.ZIP_DEFLATED)


def large_documents():
    noise = random.Random(2).randbytes(300_000)
    sound = wave(2, 16, LARGE // 5)
    yield document(sound[:12] + b"LIST" + struct.pack("<I", len(noise)) + noise + sound[12:], zipfile.ZIP_STORED)
    for audio in [wave(6, 32, LARGE // 25, 3), *by_sox(20, ("-r 44100 -b 16 -c 2", "-r 44100 -b 24"))]:
        for method in METHODS:
            yield document(audio, method)


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
READING = [bytes(script[:32]).ljust(32, b"\1") for script in (
    at(0, 100) + further(60) * 9,
    at(199, 50) + at(0, 10) + further(255) + at(100, 1) + at(250, 40) + at(13, 0) + further(90) + at(50, 255),
    FORMAT + at(20, 64) + AGAIN + further(64) + FORMAT + at(150, 99) + AGAIN + at(0, 255) + further(10),
    further(33) * 4 + at(180, 20) + further(20) * 5,
)]
# Those whose first read is a seek.
SEEKING = READING[1:3]


# Scripts of fuzz/updates.cpp. A way to save is a number: a save as another file, an update into one,
# one in place, one into the package file, one that is cancelled.
WAYS = range(5)


def changes(*entries):
    """Numbers of names, how many times 16 bytes each entry gets, and how often these; stored and deflated in turn."""
    out = bytes([len(entries)])
    for i, (name, size, times) in enumerate((*entry, 1)[:3] for entry in entries):
        out += bytes([name, i % 2 + 2 * (times - 1), size]) + bytes((i * 7 + k // 5) & 0xFF for k in range(size * 16))
    return out


def save(way, removed, changed, is_before=0, reopens=0):
    """One round; `removed` is a mask of entries."""
    return bytes([way, removed]) + changed + bytes([is_before, reopens])


def updates(packages):
    for first in WAYS:
        for second in WAYS:
            yield (b"\0" + changes((0, 3), (2, 160, 16), (5, 1), (3, 160, 32))
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
    real = [path.read_bytes() for path in sorted(fixtures.rglob("*")) if path.is_file()]
    waves = [data for data in real if data[:4] in (b"RIFF", b"RF64")]
    any_package = list(packages()) + list(documents()) + [data for data in real if data[:2] == b"PK"]
    inflating = list(inflating_packages())
    large = list(large_packages())
    seeds = {
        "hex": [b"\x10" + bytes(range(32)), b"\x3F0123456789ABCDEFabcdef", b"\x01zz"],
        "paths": [bytes([len(name)]) + name + reference
                  for name in (b"", b"top.xml", b"a/b.xml", b"a/./b//../c#d")
                  for reference in (b"", b"/a/./b/../c", b"a//b/", b"../..", b"x/y#../z", b"/", b".", b"#x/..",
                                    b"a/b/c/../../d", b"urn:x", b"d/e:f", b"//host/./x", b"..#y", b"http://x/y")],
        "packages": [bytes([i % 4]) + data for i, data in enumerate(any_package)]
        + [b"\0" + data for data in [*large, *crowded_packages(CROWD), *inflating, gigabytes()]],
        "updates": list(updates(any_package + inflating)),
        "properties": [b"\x00" + DOCUMENT, b"\x01" + DOCUMENT,
                       b"\x01" + DOCUMENT.decode().replace("UTF-8", "UTF-16").encode("utf-16")],
        "documents": [script + data for script in READING for data in documents()]
        + [bytes(32) + data for data in any_package]
        + [READING[i % len(READING)] + data
           for i, data in enumerate([*real_documents(waves), *large_documents()])]
        + [script + data for script in SEEKING for data in inflating_documents()],
        "tool": [bytes([command]) + data for command in range(4) for data in any_package + inflating]
        + [bytes([command]) + data for command in (0, 1, 3)
           for data in [*large, *crowded_packages(CROWD_FOR_TOOL)]],
    }
    for target, inputs in seeds.items():
        dropped = [len(data) for data in inputs if len(data) > LONGEST and target not in TRIED_LARGE]
        if dropped:
            print(f"make_seeds.py: {target} is not tried with large inputs, {len(dropped)} seeds dropped,"
                  f" of {min(dropped)} to {max(dropped)} bytes")
        for i, data in enumerate(inputs):
            is_large = len(data) > LONGEST
            if is_large and target not in TRIED_LARGE:
                continue
            place = folder / (f"{target}-large" if is_large else target)
            place.mkdir(parents=True, exist_ok=True)
            (place / f"seed{i:03}").write_bytes(data)


main()
