#!/usr/bin/env python3
"""Fills the table of docs/reliability.md from the logs of scripts/verify.sh.

  reliability.py LOGS PAGE

Only what a log says is written; the row of a step that did not run stays as it is.
"""
import pathlib
import re
import sys

BEGIN = "<!-- counts: written by scripts/verify.sh -->"
END = "<!-- end of counts -->"


def ctest(log):
    passed = re.search(r"(\d+)% tests passed, (\d+) tests failed out of (\d+)", log)
    if not passed:
        return []
    skipped = len(re.findall(r"\*\*\*Skipped", log))
    return [f"{int(passed[3]):,} tests, {passed[2]} failed, {skipped} skipped"]


def gtest(log):
    passed = sum(int(n) for n in re.findall(r"\[  PASSED  \] (\d+) test", log))
    failed = len(set(re.findall(r"^\[  FAILED  \] (\S+)", log, re.M)))
    return [f"{passed:,} tests passed, {failed} failed"] if passed or failed else []


def total(log, pattern, words):
    numbers = [int(n) for n in re.findall(pattern, log)]
    return [f"{sum(numbers):,} {words}"] if numbers else []


def crashes(log):
    return (total(log, r", killed: .*together (\d+)", "states after a kill")
            + total(log, r", power cut, .*together (\d+)", "states after a power cut")
            + total(log, r", ended at (\d+) calls", "ends of a program, old or new after each")
            + total(log, r", failed at (\d+) calls", "failing calls of a program")
            + total(log, r"; (\d+) transfers cut in half", "short transfers of a program")
            + total(log, r", without memory at (\d+) of", "allocations of a program that fail")
            + total(log, r", zlib failed at (\d+) calls", "failing calls of zlib")
            + total(log, r", fault points: .*together (\d+)", "file-system fault points")
            + gtest(log))


def kills(log):
    return total(log, r"(?:add|remove|compact): (\d+) killed", "SIGKILLs, old or new after each") + ctest(log)


def walk(log):
    lines = [line.strip() for line in log.splitlines() if "sequences" in line]
    return lines[-1:] + gtest(log)


def fuzz(log):
    ran = re.search(r"^(\d+) executions of (\d+) targets in (\d+) minutes, (\d+) findings$", log, re.M)
    if not ran:
        return []
    return [f"{int(ran[1]):,} executions of {ran[2]} targets in {ran[3]} minutes, {ran[4]} findings"]


def lint(log):
    looked = re.search(r"^clang-tidy: (\d+) sources$", log, re.M)
    sources = [f"{looked[1]} sources"] if looked else []
    return sources + [f"{len(re.findall(r': (?:warning|error|portability|performance|style):', log))} findings"]


def abi(log):
    same = re.search(r"^abi: (\d+ functions, \d+ types) as in", log, re.M)
    return [f"{same[1]} as in the last dump"] if same else []


def coverage(log):
    shares = re.findall(r"^(lines|branches): ([\d.]+)% \((\d+) out of (\d+)\)", log, re.M)
    missed = re.findall(r"^uncovered lines: .*$", log, re.M)
    return [f"{share}% of {int(all_):,} {what}" for what, share, _, all_ in shares] + missed


def valgrind(log):
    return [f"{len(re.findall(r'^=== ', log, re.M))} suites"] + gtest(log)


READERS = {"tests": kills, "walk": walk, "mutations": ctest, "audio": ctest, "crashes": crashes,
           "sanitizers": ctest, "threads": ctest, "m32": ctest, "darwin": ctest, "fuzz": fuzz, "lint": lint,
           "abi": abi, "coverage": coverage, "valgrind": valgrind}


def row(step, logs):
    status, seconds, day = (logs / f"{step}.result").read_text().split()
    counts = READERS[step]((logs / f"{step}.log").read_text(errors="replace"))
    words = "; ".join(counts) or "no counts"
    outcome = "passed" if status == "0" else f"**failed ({status})**"
    return f"| `{step}` | {outcome} | {words} | {day}, {int(seconds) // 60} min |"


def main():
    logs, page = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    text = page.read_text()
    head, rest = text.split(BEGIN)
    table, tail = rest.split(END)
    rows = {step: line for line, step in re.findall(r"^(\| `(\w+)` .*)$", table, re.M)}
    for step in READERS:
        if (logs / f"{step}.result").exists():
            rows[step] = row(step, logs)
    lines = ["| step | outcome | counts | when, how long |", "|---|---|---|---|"]
    lines += [rows[step] for step in READERS if step in rows]
    page.write_text(head + BEGIN + "\n" + "\n".join(lines) + "\n" + END + tail)


main()
