#!/usr/bin/env python3
"""Prints a header with its comments as Doxygen wants them: // above a declaration becomes ///, behind one ///<."""

import re
import sys

COMMENT = re.compile(r"^(\s*)//\s?(.*)$")
TRAILING = re.compile(r'^(\s*[^/"\s](?:[^/"]|/(?!/)|"(?:[^"\\]|\\.)*")*?)(\s*)//\s?(.*)$')


def escaped(text):
    """A comment's words, without what Doxygen would take for commands, tags or links."""
    parts = text.split("`")
    for i in range(0, len(parts), 2):
        parts[i] = re.sub(r"([\\@<>#%&])", r"\\\1", parts[i])
    return "`".join(parts)


def converted(lines):
    column = None  # of the comment behind the declaration in the line before
    for i, line in enumerate(lines):
        whole, behind = COMMENT.match(line), TRAILING.match(line)
        if whole and column is not None and len(whole[1]) == column:
            yield f"{whole[1]}///< {escaped(whole[2])}"
            continue
        column = None
        if whole and documents_something(lines, i):
            yield f"{whole[1]}/// {escaped(whole[2])}"
        elif behind and not behind[1].lstrip().startswith(("#", "}")):
            column = len(behind[1]) + len(behind[2])
            yield f"{behind[1]}{behind[2]}///< {escaped(behind[3])}"
        else:
            yield line


def documents_something(lines, i):
    """Whether a declaration follows the block of comments that line i belongs to."""
    while i < len(lines) and COMMENT.match(lines[i]):
        i += 1
    return i < len(lines) and lines[i].strip() not in ("", "}", "};") and not lines[i].startswith("#")


with open(sys.argv[1], encoding="utf-8") as header:
    print("\n".join(converted(header.read().splitlines())))
