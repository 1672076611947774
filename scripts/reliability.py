#!/usr/bin/env python3
"""Tells what came of the steps of scripts/verify.sh, from their logs.

  reliability.py LOGS [PAGE]

Prints a row for each step that has run, and with PAGE puts the rows into its table; the row of a step that did not run
stays as it is. A step has passed when it ended with 0 and its log has every count that it is there for, none of them zero:
otherwise this ends with 1. One that ended with 77 is skipped.
"""
import pathlib
import re
import sys

BEGIN = "<!-- counts: written by scripts/verify.sh -->"
END = "<!-- end of counts -->"


def ctest(log):
    """Of a log of ctest: tests, failed, skipped."""
    ended = re.search(r"\d+% tests passed, (\d+) tests failed out of (\d+)", log)
    if not ended:
        return None
    skipped = len(re.findall(r"\*\*\*Skipped", log))
    return f"{int(ended[2]):,} tests, {ended[1]} failed, {skipped} skipped"


def gtest(log):
    """The same of the logs of test programs, one behind the other."""
    def together(pattern):
        return sum(int(n) for n in re.findall(pattern, log, re.M))

    passed = together(r"^\[  PASSED  \] (\d+) test")
    if not passed:
        return None
    failed = together(r"^\[  FAILED  \] (\d+) test")
    skipped = together(r"^\[  SKIPPED \] (\d+) test")
    return f"{passed + failed + skipped:,} tests, {failed} failed, {skipped} skipped"


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
                total(r", zlib failed at (\d+) calls", "failing calls of a program to zlib"),
                total(r", fault points: .*together (\d+)", "failing calls of the library to the file system"),
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
    "fuzz": [line(r"^(\d+) executions of (\d+) targets in (\d+) minutes, (\d+) findings$",
                  "{} executions of {} targets in {} minutes, {} findings")],
    "lint": [line(r"^clang-tidy: (\d+) sources$", "{} sources"), line(r"^lint: (clean)$", "{}")],
    "abi": [line(r"^abi: (\d+) functions, (\d+) types as in", "{} functions, {} types as in the last dump")],
    "coverage": [line(r"^lines: ([\d.]+)% \((\d+) out of (\d+)\)", "{0}% of {2} lines"),
                 line(r"^branches: ([\d.]+)% \((\d+) out of (\d+)\)", "{0}% of {2} branches"),
                 line(r"^(uncovered lines: .*)$", "{}"), ctest],
    "valgrind": [line(r"^valgrind: (\d+) suites$", "{} suites"), gtest],
}

SKIPPED = "77"


def outcome(status, counts):
    if status == SKIPPED:
        return "skipped"
    if status != "0":
        return f"**failed ({status})**"
    return "passed" if None not in counts else "**counts are missing**"


def row(step, logs):
    status, seconds, day = (logs / f"{step}.result").read_text().split()
    log = (logs / f"{step}.log").read_text(errors="replace")
    counts = [read(log) for read in COUNTS[step]]
    words = "; ".join(count for count in counts if count) or "no counts"
    return f"| `{step}` | {outcome(status, counts)} | {words} | {day}, {int(seconds) // 60} min |"


def put_into(page, rows):
    head, rest = page.read_text().split(BEGIN)
    table, tail = rest.split(END)
    rows = {**{step: line for line, step in re.findall(r"^(\| `(\w+)` .*)$", table, re.M)}, **rows}
    lines = ["| step | outcome | counts | when, how long |", "|---|---|---|---|"]
    lines += [rows[step] for step in COUNTS if step in rows]
    page.write_text(head + BEGIN + "\n" + "\n".join(lines) + "\n" + END + tail)


def main():
    logs = pathlib.Path(sys.argv[1])
    rows = {step: row(step, logs) for step in COUNTS if (logs / f"{step}.result").exists()}
    print("\n".join(rows.values()))
    if len(sys.argv) > 2:
        put_into(pathlib.Path(sys.argv[2]), rows)
    return any("**" in line for line in rows.values())


sys.exit(main())
