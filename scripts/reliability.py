#!/usr/bin/env python3
"""Tells what came of the steps of scripts/verify.sh, from their logs.

  reliability.py LOGS [PAGE]

Prints a row for each step that has run, and with PAGE puts the rows into its table; the row of a step that did not run
stays as it is. A step has passed when it ended with 0 and its log has every count that it is there for, none of them zero:
otherwise this ends with 1. One that ended with 77, or whose tests were all skipped, is skipped; where some were, they are
named. The counts of each road on which something fails, and of each fuzz target, go to tables of their own.
"""
import pathlib
import re
import sys

BEGIN = "<!-- {}: written by scripts/verify.sh -->"
END = "<!-- end of {} -->"


def tests(number, failed, skipped):
    if len(skipped) == number:
        return ALL_SKIPPED
    names = [f"`{name}`" for name in skipped[:MOST_NAMES]] + ["..."] * (len(skipped) > MOST_NAMES)
    return f"{number:,} tests, {failed} failed, {len(skipped)} skipped" + (f" ({', '.join(names)})" if names else "")


def ctest(log):
    """Of a log of ctest: tests, failed, skipped."""
    ended = re.search(r"\d+% tests passed, (\d+) tests failed out of (\d+)", log)
    if not ended:
        return None
    skipped = re.findall(r"^\s*\d+ - (.*?)(?:  #.*)? \(Skipped\)", log, re.M)
    return tests(int(ended[2]), int(ended[1]), skipped)


def gtest(log):
    """The same of the logs of test programs, one behind the other."""
    def together(pattern):
        return sum(int(n) for n in re.findall(pattern, log, re.M))

    passed = together(r"^\[  PASSED  \] (\d+) test")
    if not passed:
        return None
    failed = together(r"^\[  FAILED  \] (\d+) test")
    skipped = re.findall(r"^\[  SKIPPED \] ([\w./]+)(?:, where .*)?$", log, re.M)
    return tests(passed + failed + len(skipped), failed, skipped)


def total(pattern, words):
    """The sum of a number that the log has in several places."""
    def read(log):
        number = sum(int(n) for n in re.findall(pattern, log, re.M))
        return f"{number:,} {words}" if number else None
    return read


def line(pattern, words):
    """What stands in one line of the log, put into the words."""
    def read(log):
        found = re.search(pattern, log, re.M)
        if not found or "0" in found.groups()[:1]:
            return None
        return words.format(*(f"{int(text):,}" if text.isdigit() else text for text in found.groups()))
    return read


# What each step's log has to tell.
COUNTS = {
    "tests": [ctest],
    "walk": [line(r"^random sequences: (\d+), of (\d+) operations", "{} random sequences of {} operations"), gtest],
    "mutations": [total(r"^mutated documents: (\d+)", "mutated documents"),
                  total(r"^mutated packages: (\d+)", "mutated packages"),
                  total(r"^damaged variants of .*: (\d+)", "damaged variants of packages by other programs"), gtest],
    "audio": [total(r"^random stretches: (\d+)", "random stretches"), gtest],
    "crashes": [total(r", killed: .*together (\d+)", "states after a kill"),
                total(r", power cut, .*together (\d+)", "states after a power cut"),
                total(r", power cut at \d+ steps, (\d+)", "states after a power cut in a program"),
                total(r", ended at (\d+) calls", "ends of a program, old or new after each"),
                total(r", failed at (\d+) calls", "failing calls of a program"),
                total(r"; (\d+) transfers cut in half", "short transfers of a program"),
                total(r", without memory at (\d+) of", "allocations of a program that fail"),
                total(r", zlib failed at (\d+)(?: of \d+)? calls", "failing calls of a program to zlib"),
                total(r", fault points: (?!of a disk).*together (\d+)", "failing calls of the library to the file system"),
                total(r", fault points: of a disk that stays away, together (\d+)", "calls of the library from which on a disk stays away"),
                total(r", one allocation fails: (\d+) allocations", "allocations of the library that fail"),
                total(r", zlib of the library failed at (\d+) calls", "failing calls of the library to zlib"),
                total(r", files of the importer failed at (\d+) calls", "failing calls of the importer to the file system"),
                total(r", memory of the importer failed at (\d+) allocations", "allocations of the importer that fail"),
                total(r", zlib of the importer failed at (\d+) calls", "failing calls of the importer to zlib"),
                total(r", texts of the importer failed at (\d+) calls", "failing texts of the importer"),
                total(r", alerts of the importer ended the process at (\d+) points", "ends of a process by an alert"),
                total(r"^\w+: (\d+) killed", "SIGKILLs, old or new after each"), gtest],
    "sanitizers": [ctest],
    "threads": [ctest],
    "m32": [ctest],
    "darwin": [ctest],
    "fuzz": [line(r"^(\d+) executions of (\d+) targets \((\d+) without hex and paths\) in (\d+) minutes, (\d+) findings$",
                  "{} executions of {} targets ({} without hex and paths) in {} minutes, {} findings")],
    "lint": [line(r"^clang-tidy: (\d+) sources$", "{} sources"),
             line(r"^clang\+\+: (\d+) sources$", "{} more by the warnings of clang++"), line(r"^lint: (clean.*)$", "{}")],
    "abi": [line(r"^abi: (\d+) functions, (\d+) types as in", "{} functions, {} types as in the last dump")],
    "coverage": [line(r"^lines: ([\d.]+)% \((\d+) out of (\d+)\)", "{0}% of {2} lines"),
                 line(r"^branches: ([\d.]+)% \((\d+) out of (\d+)\)", "{0}% of {2} branches, those that the compiler makes for exceptions left out"),
                 line(r"^(unreached lines: .*)$", "{}"), ctest],
    "valgrind": [line(r"^valgrind: (\d+) suites$", "{} suites"), gtest],
}

SKIPPED = "77"
PASSED = "passed"
PARTLY = "passed, in part skipped"
ALL_SKIPPED = "all tests skipped"
MOST_NAMES = 6

# What the log of `crashes` tells of each road: the pattern of its line's rest, and what is counted.
ROADS = {
    "library": ("Roads of the library", {
        "file system": r"fault points: (?!of a disk).*together (\d+)",
        "a disk that stays away": r"fault points: of a disk that stays away, together (\d+)",
        "allocations": r"one allocation fails: (\d+) allocations",
        "zlib": r"zlib of the library failed at (\d+) calls",
        "killed": r"killed: .*together (\d+)",
        "power cut": r"power cut, .*together (\d+)"}),
    "importer": ("Sessions of the importer", {
        "file system": r"files of the importer failed at (\d+) calls",
        "allocations": r"memory of the importer failed at (\d+) allocations",
        "zlib": r"zlib of the importer failed at (\d+) calls",
        "texts": r"texts of the importer failed at (\d+) calls",
        "ends by an alert": r"alerts of the importer ended the process at (\d+) points"}),
    "programs": ("Commands of the programs", {
        "calls of the system": r"failed at (\d+) calls: told \d+, survived \d+(?:;|$)",
        "cut in half": r"failed at \d+ calls: .*; (\d+) transfers cut in half",
        "ended": r"ended at (\d+) calls",
        "power cut": r"power cut at \d+ steps, (\d+)",
        "allocations": r"without memory at (\d+) of",
        "zlib": r"zlib failed at (\d+)(?: of \d+)? calls: told"}),
}


ABOUT_ROADS = """The points at which something failed, was cut short or stopped in the last run of `crashes`, on each road. {}
A cell is empty where a road has nothing of the kind, or changes no file. Of the roads that write three are
not stopped: `BeginWriteEndInTheFile` stands for `BeginInTheOldFileWriteEnd`, `SecondUpdate` is two others, one behind the
other, and `BeginWriteCancel` gives up what it writes."""
ALL_SURVIVED = "All of them\nwere survived as the promises say."
NOT_ALL_SURVIVED = "Its tests\nfailed: not all of them were survived as the promises say."


def road_table(title, kinds, log):
    """A row for each road, a column for each kind of failure."""
    roads = {}
    for kind, pattern in kinds.items():
        for road, number in re.findall(rf"^(\w+), {pattern}", log, re.M):
            counts = roads.setdefault(road, {})
            counts[kind] = counts.get(kind, 0) + int(number)
    rows = [f"| {title} | " + " | ".join(kinds) + " |", "|---" * (len(kinds) + 1) + "|"]
    for road in sorted(roads):
        rows.append(f"| `{road}` | " + " | ".join(f"{roads[road][kind]:,}" if roads[road].get(kind) else "" for kind in kinds) + " |")
    return rows


def roads(log, passed):
    about = ABOUT_ROADS.format(ALL_SURVIVED if passed else NOT_ALL_SURVIVED)
    tables = ["\n".join(road_table(title, kinds, log)) for title, kinds in ROADS.values()]
    return "\n\n".join([about] + tables)


def targets(log, _):
    rows = ["| target | executions | edges reached | slowest input | by the clock | heap grew by |", "|---|---|---|---|---|---|"]
    clocks = dict(re.findall(r"^fuzz target (\w+) by the clock: slowest (\d+) ms$", log, re.M))
    pattern = r"^fuzz target (\w+): (\d+) executions, (\d+) of (\d+) edges, slowest (\d+) ms, peak (\d+) MB$"
    for name, *numbers in re.findall(pattern, log, re.M):
        executions, reached, edges, slowest, peak = (f"{int(number):,}" for number in numbers)
        clock = f"{int(clocks[name]):,} ms" if name in clocks else ""
        rows.append(f"| `{name}` | {executions} | {reached} of {edges} | {slowest} ms | {clock} | {peak} MB |")
    return "\n".join(rows)


# Tables that a step's log fills.
DETAILS = {"crashes": ("roads", roads), "fuzz": ("targets", targets)}


def outcome(status, counts):
    if status == SKIPPED or ALL_SKIPPED in counts:
        return "skipped"
    if status != "0":
        return f"**failed ({status})**"
    if None in counts:
        return "**counts are missing**"
    return PARTLY if any(re.search(r"[1-9]\d* skipped", count) for count in counts) else PASSED


class Run:
    """What verify.sh left of a step."""

    def __init__(self, step, logs):
        status, seconds, day, revision = (logs / f"{step}.result").read_text().split()
        self.log = (logs / f"{step}.log").read_text(errors="replace")
        counts = [read(self.log) for read in COUNTS[step]]
        words = "; ".join(count for count in counts if count) or "no counts"
        ended = outcome(status, counts)
        self.passed = ended in (PASSED, PARTLY)
        self.row = f"| `{step}` | {ended} | {words} | {day}, {int(seconds) // 60} min, {revision} |"


def between(text, name, change):
    """The text with what stands between the marks of a name changed."""
    begin, end = BEGIN.format(name), END.format(name)
    head, rest = text.split(begin)
    table, tail = rest.split(end)
    return head + begin + "\n" + change(table) + "\n" + end + tail


def with_rows(table, rows):
    rows = {**{step: line for line, step in re.findall(r"^(\| `(\w+)` .*)$", table, re.M)}, **rows}
    lines = ["| step | outcome | counts | when, how long, of which revision |", "|---|---|---|---|"]
    return "\n".join(lines + [rows[step] for step in COUNTS if step in rows])


def put_into(page, runs):
    rows = {step: run.row for step, run in runs.items()}
    text = between(page.read_text(), "counts", lambda table: with_rows(table, rows))
    for step, (name, read) in DETAILS.items():
        if step in runs:
            text = between(text, name, lambda _: read(runs[step].log, runs[step].passed))
    page.write_text(text)


def main():
    logs = pathlib.Path(sys.argv[1])
    runs = {step: Run(step, logs) for step in COUNTS if (logs / f"{step}.result").exists()}
    print("\n".join(run.row for run in runs.values()))
    if len(sys.argv) > 2:
        put_into(pathlib.Path(sys.argv[2]), runs)
    return any("**" in run.row for run in runs.values())


sys.exit(main())
