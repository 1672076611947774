#!/usr/bin/env python3
"""Prints the tables of the benchmark programs as one, with the number of goals met and missed.

    report.py [--docs FILE] STEM...

Reads STEM.json and STEM.md of each. With --docs also puts each STEM.md into FILE, between the lines
"<!-- table: NAME -->" and "<!-- end -->", where NAME is what STEM ends in.
"""

import json
import pathlib
import re
import sys


def verdict(met):
    return 'met' if met else 'MISSED'


def speed(line):
    if line['target'] == 0:
        asked, judged = '', ''
    else:
        asked, judged = f"{line['target']:.2f}", verdict(line['met'])
    return (f"{line['work']}, against {line['against']}",
            f"{line['ratio']:.2f} times as fast", asked, judged)


def memory(line):
    return (f"peak memory, {line['work']}, against {line['leanest']}",
            f"{line['ours_kib'] / 1024:.1f} to {line['theirs_kib'] / 1024:.1f} MiB", '+8.0',
            verdict(line['met']))


def fact(line):
    return line['name'], f"{line['value']:.0f}", f"{line['at_most']:.0f}", verdict(line['met'])


def print_table(results):
    lines = [('work', 'measured', 'asked', '')]
    for result in results:
        for kind, show in (('speed', speed), ('memory', memory), ('facts', fact)):
            lines += [show(line) for line in result[kind]]
    widths = [max(len(line[column]) for line in lines) for column in range(4)]
    for line in lines:
        print(f'{line[0]:<{widths[0]}}  {line[1]:>{widths[1]}}  {line[2]:>{widths[2]}}  {line[3]}'.rstrip())
    judged = [line[3] for line in lines]
    print(f"\n{judged.count('met')} met, {judged.count('MISSED')} missed")


def put_into(document, name, table):
    text = document.read_text()
    place = re.compile(rf'(<!-- table: {re.escape(name)} -->\n).*?(<!-- end -->)', re.DOTALL)
    if not place.search(text):
        sys.exit(f'report.py: {document} has no place for the table "{name}"')
    document.write_text(place.sub(lambda found: found[1] + table + found[2], text))


def main(arguments):
    document = None
    if arguments[:1] == ['--docs']:
        document, arguments = pathlib.Path(arguments[1]), arguments[2:]
    if not arguments or arguments[0].startswith('-'):
        sys.exit(__doc__)
    print_table([json.loads(pathlib.Path(stem + '.json').read_text()) for stem in arguments])
    for stem in arguments if document else []:
        put_into(document, pathlib.Path(stem).name, pathlib.Path(stem + '.md').read_text())


if __name__ == '__main__':
    main(sys.argv[1:])
