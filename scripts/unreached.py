#!/usr/bin/env python3
"""Lists the lines that no test reaches, and compares them with those that have been looked at.

  unreached.py COVERAGE LIST [LOOKED_AT]

COVERAGE is gcovr's JSON. LIST gets a line `file:number: source` for each line, and they are counted by folder. LOOKED_AT has
paragraphs: a reason in lines that begin with `#`, and below it the lines that it holds for, as `file: source`, each as often as
the file has it unreached. A line that stands there less often ends this with 1; one that is reached by now, or is gone, is told.
"""
import collections
import json
import pathlib
import sys


def unreached(coverage):
    """(file, number, source) of each line."""
    for one in json.loads(coverage.read_text())["files"]:
        source = pathlib.Path(one["file"]).read_text().splitlines()
        numbers = {line["line_number"] for line in one["lines"] if line["count"] == 0 and not line.get("gcovr/noncode")}
        for number in sorted(numbers - {line["line_number"] for line in one["lines"] if line["count"]}):
            yield one["file"], number, source[number - 1].strip()


def main():
    coverage, listing, *looked_at = map(pathlib.Path, sys.argv[1:])
    lines = list(unreached(coverage))
    listing.write_text("".join(f"{file}:{number}: {source}\n" for file, number, source in lines))
    known = collections.Counter(line for path in looked_at for line in path.read_text().splitlines()
                                if line and not line.startswith("#"))
    seen = collections.Counter(f"{file}: {source}" for file, _, source in lines)
    new = sorted((seen - known).elements())
    folders = collections.Counter(pathlib.Path(file).parts[0] for file, _, _ in lines)
    counts = ", ".join(f"{folders[folder]} in {folder}" for folder in sorted(folders))
    if not looked_at:
        print(f"unreached lines: {counts}")
        return False
    print(f"unreached lines: {counts}; {len(new)} of them not looked at")
    for line in sorted((known - seen).elements()):
        print(f"reached by now, or gone: {line}")
    for line in new:
        print(f"not looked at: {line}")
    return len(new) > 0


sys.exit(main())
