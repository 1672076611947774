#!/usr/bin/env python3
"""Measures how costs grow, and draws them.

    scaling.py [--quick] PROGRAM STEM FOLDER [DOCUMENT]

Asks PROGRAM (scaling_benchmark) for the cost of each size. Writes FOLDER/scaling-*.svg and the table STEM.md, and puts that
into DOCUMENT where one is named. --quick leaves out what takes long. All times are those of the processor.
"""

import math
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import zipfile
import zlib

sys.dont_write_bytecode = True
import report  # noqa: E402


class Measure:
    """Runs the program on files of a folder."""

    def __init__(self, program, folder):
        self.program = str(pathlib.Path(program).resolve())
        self.folder = folder

    def __call__(self, *words):
        return self.together(1, *words)

    def together(self, count, *words):
        """The mean of `count` processes that do the same at once."""
        running = [subprocess.Popen([self.program, *map(str, words)], cwd=self.folder, stdout=subprocess.PIPE, text=True,
                                    env={**os.environ, 'XDG_CACHE_HOME': str(self.folder)})
                   for _ in range(count)]
        answers = [process.communicate()[0] for process in running]
        if any(process.returncode for process in running):
            sys.exit(f'scaling.py: {" ".join(map(str, words))} failed')
        return sum(map(float, answers)) / count


def many_entries(path, count):
    with zipfile.ZipFile(path, 'w') as package:
        for i in range(count):
            package.writestr(f'folder{i // 100}/file{i}', b'x' * 100)


def one_large_entry(path, size):
    """A stored entry of zeros, which take no room on the disk."""
    crc = 0
    zeros = bytes(1 << 20)
    for _ in range(size >> 20):
        crc = zlib.crc32(zeros, crc)
    crc = zlib.crc32(bytes(size & ((1 << 20) - 1)), crc)
    common = struct.pack('<HHHHHIIIHH', 20, 0, 0, 0, 0x21, crc, size, size, 5, 0)
    with open(path, 'wb') as out:
        out.write(b'PK\3\4' + common + b'large')
        out.seek(size, os.SEEK_CUR)
        start = out.tell()
        out.write(b'PK\1\2' + struct.pack('<H', 20) + common + struct.pack('<HHHII', 0, 0, 0, 0, 0) + b'large')
        length = out.tell() - start
        out.write(b'PK\5\6' + struct.pack('<HHHHIIH', 0, 0, 1, 1, length, start, 0))


def sound(path, channels, frames):
    """A sound document with a WAV file of 16 bits, stored."""
    frame = 2 * channels
    noise = bytes((i * 2654435761 >> 13) & 255 for i in range(frame * 1000))
    data = noise * (frames // 1000)
    wave = b'RIFF' + struct.pack('<I', 36 + len(data)) + b'WAVEfmt ' + struct.pack(
        '<IHHIIHH', 16, 1, channels, 48000, 48000 * frame, frame, 16) + b'data' + struct.pack('<I', len(data)) + data
    with zipfile.ZipFile(path, 'w') as package:
        package.writestr('mimetype', 'application/x-test')
        package.writestr('Mixdown.wav', wave)


class Series:
    def __init__(self, name):
        self.name = name
        self.points = []

    def add(self, x, seconds):
        self.points.append((x, seconds))

    def exponent(self):
        """Of the growth over the upper three sizes, where fixed costs no longer hide it."""
        points = [(math.log(x), math.log(y)) for x, y in self.points[-3:]]
        mean_x = sum(x for x, _ in points) / len(points)
        mean_y = sum(y for _, y in points) / len(points)
        return (sum((x - mean_x) * (y - mean_y) for x, y in points) /
                sum((x - mean_x) ** 2 for x, _ in points))


class Picture:
    def __init__(self, name, title, unit):
        self.name, self.title, self.unit = name, title, unit
        self.series = {}

    def add(self, name, x, seconds):
        self.series.setdefault(name, Series(name)).add(x, seconds)


def entries(measure, quick):
    picture = Picture('entries', 'A package by its number of entries', 'entries')
    for count in (1, 10, 100, 1000) if quick else (1, 10, 100, 1000, 10000, 30000, 65000):
        many_entries(measure.folder / 'many.zip', count)
        picture.add('open', count, measure('open', 'many.zip'))
        picture.add('open and walk', count, measure('walk', 'many.zip'))
        picture.add('append 1 KiB in place', count, measure('append', 'many.zip'))
        picture.add('save under another name', count, measure('save', 'many.zip', 'saved.zip'))
        picture.add('create, 100 bytes each, deflated', count, measure('create', 'new.zip', count, 1, 100, 'deflated'))
    return picture


def sizes(measure, quick):
    picture = Picture('size', 'An entry by its size', 'bytes')
    kib, gib = 1 << 10, 1 << 30
    for size in (kib, 32 * kib, 1024 * kib) if quick else (
            kib, 32 * kib, 1024 * kib, 32 << 20, 256 << 20, gib, 4 * gib - 65536):
        one_large_entry(measure.folder / 'large.zip', size)
        picture.add('read, stored', size, measure('read', 'large.zip', 'large', size))
        picture.add('seek to its last byte, stored', size, measure('last', 'large.zip', 'large', size))
        blocks, block = max(1, size >> 16), min(size, 1 << 16)
        if size <= gib:
            picture.add('create, stored', size, measure('create', 'new.zip', 1, blocks, block, 'stored'))
            picture.add('save under another name', size, measure('save', 'large.zip', 'saved.zip'))
        if size <= 32 << 20:
            picture.add('create, deflated', size, measure('create', 'deflated.zip', 1, blocks, block, 'deflated'))
            picture.add('read, deflated', size, measure('read', 'deflated.zip', 'entry0', size))
    return picture


def channels(measure, quick):
    picture = Picture('channels', 'Import of 200,000 frames of 16 bits by their channels', 'channels')
    for count in (1, 2, 4) if quick else (1, 2, 4, 6, 8, 16, 32):
        sound(measure.folder / 'sound.qsnd', count, 200000)
        picture.add('4,096 frames a request', count, measure('import', 'sound.qsnd', count, 4096, 200000 // 4096))
        picture.add('100 frames a request', count, measure('import', 'sound.qsnd', count, 100, 2000))
    return picture


def requests(measure, quick):
    picture = Picture('request', 'One request of an import by its length, 16 bits, 2 channels', 'frames')
    sound(measure.folder / 'sound.qsnd', 2, 2000000)
    for frames in (1, 100, 10000) if quick else (1, 10, 100, 1000, 10000, 100000, 1000000):
        number = max(1, min(20000, 2000000 // frames))
        picture.add('front to back', frames, measure('import', 'sound.qsnd', 2, frames, number) / number)
    return picture


def processes(measure, _quick):
    picture = Picture('processes', 'Processes that do the same at once: time of each on its processor', 'processes')
    sound(measure.folder / 'sound.qsnd', 2, 2000000)
    many_entries(measure.folder / 'many.zip', 10000)
    for count in (1, 2):
        picture.add('import 2,000,000 frames', count, measure.together(count, 'import', 'sound.qsnd', 2, 4096, 488))
        picture.add('open and walk 10,000 entries', count, measure.together(count, 'walk', 'many.zip'))
    return picture


WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 760, 430, 80, 250, 50, 50
COLOURS = ['#0072b2', '#d55e00', '#009e73', '#cc79a7', '#8a6d00', '#56b4e9']


def amount(value):
    for limit, suffix in ((1 << 30, 'Gi'), (1 << 20, 'Mi'), (1 << 10, 'Ki')):
        if value >= limit:
            return f'{value / limit:.0f} {suffix}B'
    return f'{value:.0f} B'


def duration(seconds):
    for limit, name in ((1, 's'), (1e-3, 'ms'), (1e-6, 'µs')):
        if seconds >= limit * 0.9999:
            return f'{seconds / limit:.3g} {name}'
    return f'{seconds * 1e9:.3g} ns'


def draw(picture):
    """Both axes are logarithmic, so that a power of the size is a straight line."""
    points = [point for series in picture.series.values() for point in series.points]
    low_x, high_x = (edge(math.log10(point[0]) for point in points) for edge in (min, max))
    low_y = math.floor(min(math.log10(point[1]) for point in points))
    high_y = math.ceil(max(math.log10(point[1]) for point in points))

    def at(x, y):
        across = (math.log10(x) - low_x) / max(high_x - low_x, 1e-9)
        up = (math.log10(y) - low_y) / (high_y - low_y)
        return LEFT + across * (WIDTH - LEFT - RIGHT), HEIGHT - BOTTOM - up * (HEIGHT - TOP - BOTTOM)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
           f'font-size="12" role="img" aria-label="{picture.title}">',
           f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
           f'<text x="{LEFT}" y="28" font-size="15">{picture.title}</text>']
    for power in range(low_y, high_y + 1):
        _, y = at(10 ** low_x, 10 ** power)
        out.append(f'<path d="M{LEFT} {y:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>'
                   f'<text x="{LEFT - 8}" y="{y + 4:.1f}" text-anchor="end">{duration(10 ** power)}</text>')
    for x in sorted({point[0] for point in points}):
        across, _ = at(x, 10 ** low_y)
        label = amount(x) if picture.unit == 'bytes' else f'{x:,}'
        out.append(f'<path d="M{across:.1f} {TOP}V{HEIGHT - BOTTOM}" stroke="#eee"/>'
                   f'<text x="{across:.1f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle" font-size="10">{label}</text>')
    out.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 10}" text-anchor="middle">{picture.unit}</text>')
    for number, series in enumerate(picture.series.values()):
        colour = COLOURS[number]
        places = [at(*point) for point in series.points]
        out.append(f'<polyline fill="none" stroke="{colour}" stroke-width="2" points="'
                   + ' '.join(f'{x:.1f},{y:.1f}' for x, y in places) + '"/>')
        out += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in places]
        y = TOP + 14 + 34 * number
        out.append(f'<path d="M{WIDTH - RIGHT + 12} {y - 4}h16" stroke="{colour}" stroke-width="3"/>'
                   f'<text x="{WIDTH - RIGHT + 34}" y="{y}">{series.name}</text>'
                   f'<text x="{WIDTH - RIGHT + 34}" y="{y + 14}" fill="#555">grows as {picture.unit} to the power '
                   f'{series.exponent():.2f}</text>')
    return '\n'.join(out) + '\n</svg>\n'


def table(pictures):
    lines = ['| work | by | smallest | largest | exponent |', '|---|---|---|---|---|']
    for picture in pictures:
        label = amount if picture.unit == 'bytes' else lambda x, unit=picture.unit: f'{x:,} {unit}'
        for series in picture.series.values():
            (first, cost), (last, most) = series.points[0], series.points[-1]
            lines.append(f'| {series.name} | {picture.unit} | {label(first)}: {duration(cost)} | '
                         f'{label(last)}: {duration(most)} | {series.exponent():.2f} |')
    return '\n'.join(lines) + '\n'


def main(arguments):
    quick = arguments[:1] == ['--quick']
    arguments = arguments[quick:]
    if len(arguments) not in (3, 4):
        sys.exit(__doc__)
    program, stem, folder = arguments[:3]
    with tempfile.TemporaryDirectory() as place:
        measure = Measure(program, pathlib.Path(place))
        pictures = [make(measure, quick) for make in (entries, sizes, channels, requests, processes)]
    pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
    for picture in pictures:
        (pathlib.Path(folder) / f'scaling-{picture.name}.svg').write_text(draw(picture))
    text = table(pictures)
    pathlib.Path(stem + '.md').write_text(text)
    print(text, end='')
    if arguments[3:]:
        pictured = [f'![{picture.title}](images/scaling-{picture.name}.svg)\n' for picture in pictures]
        report.put_into(pathlib.Path(arguments[3]), 'scaling', text + '\n' + ''.join(pictured))


main(sys.argv[1:])
