#!/usr/bin/env python3
"""Prints the tables of the benchmark programs as one, with the number of goals met and missed.

    report.py [--docs FILE] STEM...
    report.py --compare FOLDER FOLDER

Reads STEM.json and STEM.md of each. With --docs also puts each STEM.md into FILE, between the lines
"<!-- table: NAME -->" and "<!-- end -->", where NAME is what STEM ends in.

With --compare tells how many ratios of two runs agree within 10 per cent, and lists those that do
not, the worst first: those with a goal, then the others. Each FOLDER holds import.json and
package.json.
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
    if line['at_most'] == 0:
        asked, judged = '', ''
    else:
        asked, judged = f"{line['at_most']:.0f}", verdict(line['met'])
    return line['name'], f"{line['value']:.0f}", asked, judged


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


def ratios(folder):
    lines = [line for name in ('import', 'package')
             for line in json.loads((pathlib.Path(folder) / f'{name}.json').read_text())['speed']]
    return {(line['work'], line['against']): line for line in lines}


def compare(old, new):
    before, after = ratios(old), ratios(new)
    shared = [key for key in before if key in after]
    for title, wanted in (('with a goal', True), ('without a goal', False)):
        apart = []
        for key in shared:
            if (after[key]['target'] != 0) != wanted:
                continue
            first, second = before[key]['ratio'], after[key]['ratio']
            apart.append((max(first, second) / min(first, second), first, second, key))
        worst = sorted((one for one in apart if one[0] > 1.1), reverse=True)
        print(f'{len(apart) - len(worst)} of {len(apart)} ratios {title} agree within 10 per cent')
        for factor, first, second, (work, against) in worst:
            print(f'  {100 * (factor - 1):4.0f} %  {first:8.2f} {second:8.2f}  {work}, against {against}')
    alone = len(before) + len(after) - 2 * len(shared)
    if alone:
        print(f'{alone} rows are in one of the two runs alone')


def main(arguments):
    if arguments[:1] == ['--compare'] and len(arguments) == 3:
        return compare(*arguments[1:])
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
