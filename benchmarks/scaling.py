#!/usr/bin/env python3
"""Measures how costs grow, and draws them.

    scaling.py [--quick] PROGRAM STEM FOLDER [DOCUMENT]

Asks PROGRAM (scaling_benchmark) for the cost of each size. Writes FOLDER/scaling-*.svg and the tables, STEM.md and
STEM.json, and puts the former into DOCUMENT where one is named. --quick leaves out what takes long. All times are those
of the processor.
"""

import json
import math
import os
import pathlib
import random
import shutil
import statistics
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

    def __init__(self, program, folder, rounds):
        self.program = str(pathlib.Path(program).resolve())
        self.folder = folder
        self.rounds = rounds

    def __call__(self, *words):
        """The median of several processes, where that does not take long."""
        first = self.together(1, *words)
        if first > 0.02:
            return first
        return statistics.median([first, *(self.together(1, *words) for _ in range(self.rounds - 1))])

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
    """A stored entry of noise, the same 64 KiB or fewer over and over."""
    block = random.Random(1).randbytes(min(size, 1 << 16))
    crc = 0
    for _ in range(size // len(block)):
        crc = zlib.crc32(block, crc)
    common = struct.pack('<HHHHHIIIHH', 20, 0, 0, 0, 0x21, crc, size, size, 5, 0)
    with open(path, 'wb') as out:
        out.write(b'PK\3\4' + common + b'large')
        for _ in range(size // len(block)):
            out.write(block)
        start = out.tell()
        out.write(b'PK\1\2' + struct.pack('<H', 20) + common + struct.pack('<HHHII', 0, 0, 0, 0, 0) + b'large')
        length = out.tell() - start
        out.write(b'PK\5\6' + struct.pack('<HHHHIIH', 0, 0, 1, 1, length, start, 0))


def contents(path):
    """Name, size and checksum of every entry, as another reader finds them."""
    with zipfile.ZipFile(path) as package:
        return {(entry.filename, entry.file_size, entry.CRC) for entry in package.infolist()}


def require(holds, what):
    if not holds:
        sys.exit(f'scaling.py: {what}')


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

    def exponents(self):
        """Of the growth from each size to the next."""
        return [growth(*both) for both in zip(self.points, self.points[1:])]


def growth(one, other):
    return math.log(other[1] / one[1]) / math.log(other[0] / one[0])


class Picture:
    def __init__(self, name, title, unit):
        self.name, self.title, self.unit = name, title, unit
        self.series = {}

    def add(self, name, x, seconds):
        self.series.setdefault(name, Series(name)).add(x, seconds)


def entries(measure, quick):
    picture = Picture('entries', 'A package by its number of entries', 'entries')
    many, new = measure.folder / 'many.zip', measure.folder / 'new.zip'
    for count in (1, 10, 100, 1000) if quick else (1, 10, 100, 1000, 10000, 30000, 65000):
        many_entries(many, count)
        there = contents(many)
        picture.add('open', count, measure('open', many))
        picture.add('open and walk', count, measure('walk', many))
        picture.add('append 1 KiB in place', count, measure('append', many, new))
        require(there < contents(new) and len(contents(new)) == count + 1, 'the appended package is wrong')
        picture.add('save under another name', count, measure('save', many, new))
        require(contents(new) == there, 'the saved package is wrong')
        picture.add('create, 100 bytes each, deflated', count, measure('create', new, count, 1, 100, 'deflated'))
        require(len(contents(new)) == count, 'the new package is wrong')
    return picture


def sizes(measure, quick):
    picture = Picture('size', 'An entry by its size', 'bytes')
    large, new = measure.folder / 'large.zip', measure.folder / 'new.zip'
    kib, gib = 1 << 10, 1 << 30
    for size in (kib, 32 * kib, 1024 * kib) if quick else (
            kib, 32 * kib, 1024 * kib, 32 << 20, 256 << 20, gib, 4 * gib - 65536):
        if shutil.disk_usage(measure.folder).free < 2 * size + gib // 2:
            print(f'scaling.py: no room for an entry of {amount(size)}, which is left out', file=sys.stderr)
            break
        one_large_entry(large, size)
        picture.add('read, stored', size, measure('read', large, 'large', size))
        picture.add('seek to its last byte, stored', size, measure('last', large, 'large', size))
        picture.add('save under another name', size, measure('save', large, new))
        require(contents(new) == contents(large), 'the saved package is wrong')
        large.unlink()
        new.unlink()
        blocks, block = max(1, size >> 16), min(size, 1 << 16)
        # To deflate a gigabyte takes most of a minute.
        for method in ('stored', 'deflated') if size <= gib else ('stored',):
            picture.add(f'create, {method}', size, measure('create', new, 1, blocks, block, method))
            if method == 'deflated':
                picture.add('read, deflated', size, measure('read', new, 'entry0', size))
                picture.add('seek to its last byte, deflated', size, measure('last', new, 'entry0', size))
            new.unlink()
    return picture


def channels(measure, quick):
    picture = Picture('channels', 'Import of 200,000 frames of 16 bits by their channels', 'channels')
    for count in (1, 2, 4) if quick else (1, 2, 3, 4, 5, 6, 7, 8, 16, 32):
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
    works = {'import 2,000,000 frames': ('import', 'sound.qsnd', 2, 4096, 488),
             'open and walk 10,000 entries': ('walk', 'many.zip')}
    for name, words in works.items():
        # By turns: the machine is not as fast at one moment as at another.
        turns = [[measure.together(count, *words) for count in (1, 2)] for _ in range(measure.rounds)]
        for count, times in enumerate(zip(*turns), 1):
            picture.add(name, count, statistics.median(times))
    return picture


WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 760, 430, 80, 250, 50, 50
COLOURS = ['#0072b2', '#d55e00', '#009e73', '#cc79a7', '#8a6d00', '#56b4e9', '#555555']


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


def size_name(picture, x):
    return amount(x) if picture.unit == 'bytes' else f'{x:,}'


def summary(series, picture):
    steps = series.exponents()
    steepest = steps.index(max(steps))
    return (f'power {growth(series.points[0], series.points[-1]):.2f}, '
            f'up to {size_name(picture, series.points[steepest + 1][0])} {steps[steepest]:.2f}')


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
        out.append(f'<path d="M{across:.1f} {TOP}V{HEIGHT - BOTTOM}" stroke="#eee"/>'
                   f'<text x="{across:.1f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle" font-size="10">'
                   f'{size_name(picture, x)}</text>')
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
                   f'<text x="{WIDTH - RIGHT + 34}" y="{y + 14}" fill="#555">{summary(series, picture)}</text>')
    return '\n'.join(out) + '\n</svg>\n'


STEEP, FALLING = 1.2, -0.2


def exponent(step):
    return f' (**{step:.2f}**)' if step > STEEP or step < FALLING else f' ({step:.2f})'


def table(picture):
    """The cost of each size, and behind it the exponent of the growth from the size before, which is bold where it surprises."""
    sizes = sorted({x for series in picture.series.values() for x, _ in series.points})
    lines = [f'| {picture.unit} | ' + ' | '.join(size_name(picture, x) for x in sizes) + ' |', '|---' * (len(sizes) + 1) + '|']
    for series in picture.series.values():
        exponents = ['', *map(exponent, series.exponents())]
        cells = {x: duration(cost) + behind for (x, cost), behind in zip(series.points, exponents)}
        lines.append(f'| {series.name} | ' + ' | '.join(cells.get(x, '') for x in sizes) + ' |')
    return '\n'.join(lines) + '\n'


def main(arguments):
    quick = arguments[:1] == ['--quick']
    arguments = arguments[quick:]
    if len(arguments) not in (3, 4):
        sys.exit(__doc__)
    program, stem, folder = arguments[:3]
    with tempfile.TemporaryDirectory() as place:
        measure = Measure(program, pathlib.Path(place), 1 if quick else 3)
        pictures = [make(measure, quick) for make in (entries, sizes, channels, requests, processes)]
    pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
    for picture in pictures:
        (pathlib.Path(folder) / f'scaling-{picture.name}.svg').write_text(draw(picture))
    text = '\n'.join(f'{picture.title}:\n\n{table(picture)}' for picture in pictures)
    pathlib.Path(stem + '.md').write_text(text)
    pathlib.Path(stem + '.json').write_text(json.dumps(
        {picture.name: {'unit': picture.unit, 'seconds': {name: series.points for name, series in picture.series.items()}}
         for picture in pictures}, indent=1) + '\n')
    print(text, end='')
    if arguments[3:]:
        text = '\n'.join(f'{table(picture)}\n![{picture.title}](images/scaling-{picture.name}.svg)\n' for picture in pictures)
        report.put_into(pathlib.Path(arguments[3]), 'scaling', text)


main(sys.argv[1:])
