#!/usr/bin/env python3
"""Checks that every include points down the floors of the house, or stays on its own.

    check-includes.py [FOLDER]     FOLDER is the project's, by default the one above this script

A file is on the first floor of the table below whose pattern it matches. A .cpp or .mm file is on the floor of the
header of its own name where that floor is higher: it carries out what the header promises. Among headers, a circle
of includes is an error too. Prints one line for each error, and ends with 1 if there are any.
"""

import pathlib
import re
import sys

PACKAGE = "xml/qcf/pkglib/package"

# From the ground up: a name to show, and a pattern for the paths.
FLOORS = [
    ("ground", rf"{PACKAGE}/(detail/Visibility\.h|source/|posix/|mac/)"),
    ("foundation of detail/", rf"{PACKAGE}/detail/(AppContext|SPRefType|PkgMutex)\.h"),
    ("contracts", rf"{PACKAGE}/(Package|IXMLParser)\.h"),
    ("rooms of detail/", rf"{PACKAGE}/detail/[^/]+$"),
    ("definitions of detail/", rf"{PACKAGE}/detail/impl/"),
    ("door", rf"{PACKAGE}/(QCFPackage\.h|qcf_common_client\.cpp)"),
    ("host's libraries", r"Host/(QFLFoundation|qvacore|platform|common)/"),
    ("Importers/Inc", r"Importers/(Inc|Src)/"),
    ("importer", r"Importers/ImporterQSND/Src/"),
    ("HostKit and adapters", r"(Host/HostKit|adapters)/"),
    ("clients", r"(tools|tests|benchmarks|fuzz|examples)/"),
]
SOURCES = {".h", ".hpp", ".cpp", ".mm"}
SKIPPED = {"build", "demo-output"}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.M)


def floor_of(path):
    return next((n for n, (_, pattern) in enumerate(FLOORS) if re.match(pattern, path)), None)


class House:
    def __init__(self, root):
        self.root = root
        self.files = sorted(
            path.relative_to(root).as_posix()
            for path in root.rglob("*")
            if path.suffix in SOURCES and path.relative_to(root).parts[0] not in SKIPPED)
        self.by_name = {}
        for path in self.files:
            self.by_name.setdefault(path.rsplit("/", 1)[-1], []).append(path)
        self.errors = []

    def resolve(self, name, includer):
        """The project's files that an include may mean: the one beside the includer, or those that end in it."""
        beside = (pathlib.PurePosixPath(includer).parent / name).as_posix()
        if beside in self.files:
            return [beside]
        candidates = self.by_name.get(name.rsplit("/", 1)[-1], [])
        return [path for path in candidates if f"/{path}".endswith(f"/{name}")]

    def floor(self, path):
        own = floor_of(path)
        if own is None or path.endswith((".h", ".hpp")):
            return own
        header = re.sub(r"\.[^.]+$", ".h", path.rsplit("/", 1)[-1])
        floors = [floor_of(p) for p in self.by_name.get(header, []) if p.startswith(PACKAGE)]
        return max([own, *floors]) if path.startswith(PACKAGE) else own

    def check_file(self, path):
        """Checks one file; returns the project's files that it includes."""
        floor = self.floor(path)
        if floor is None:
            self.errors.append(f"{path}: is on no floor")
            return []
        targets = []
        text = (self.root / path).read_text(encoding="utf-8")
        for match in INCLUDE.finditer(text):
            name = match[1] or match[2]
            found = self.resolve(name, path)
            place = f"{path}:{text.count(chr(10), 0, match.start()) + 1}"
            if not found and match[1]:
                self.errors.append(f'{place}: "{name}" is no file of this project')
            above = [target for target in found if floor_of(target) is not None and floor_of(target) > floor]
            if found and len(above) == len(found):
                here, there = FLOORS[floor][0], FLOORS[floor_of(above[0])][0]
                self.errors.append(f'{place}: includes "{name}" upwards: {here} -> {there}')
            targets += found
        return targets

    def check_circles(self, graph):
        done, trail = set(), []

        def visit(path):
            if path in trail:
                circle = [*trail[trail.index(path):], path]
                self.errors.append(f"{path}: a circle of includes: {' -> '.join(circle)}")
            elif path not in done:
                trail.append(path)
                for target in graph.get(path, []):
                    visit(target)
                done.add(trail.pop())

        for path in graph:
            visit(path)

    def check(self):
        graph = {path: self.check_file(path) for path in self.files}
        self.check_circles({path: targets for path, targets in graph.items() if path.endswith((".h", ".hpp"))})
        return self.errors


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    house = House(root)
    if not house.files:
        sys.exit(f"check-includes.py: no sources in {root}")
    errors = house.check()
    for error in errors:
        print(error)
    print(f"{len(house.files)} files, {len(errors)} errors")
    sys.exit(1 if errors else 0)


if __name__ == "__main__":
    main()
