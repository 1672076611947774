"""The tables of docs/importer-host.md against the importer's own records and numbers."""

import re
import unittest

import project

SHEET = (project.SOURCE / "docs" / "importer-host.md").read_text(encoding="utf-8")
RECORDS = {"imImportInfoRec", "imIndFormatRec", "imFileOpenRec8", "imFileInfoRec8", "imImportAudioRec7"}
INCLUDES = [f"-I{project.SOURCE / folder}" for folder in (
    "Importers/Inc", "Host/QFLFoundation", "Host/qvacore", "Host/platform/posix")]


def table_below(heading):
    """The cells of the first table below a heading, without its head."""
    start = SHEET.index(heading + "\n") + len(heading)
    rows = re.search(r"\n\|.*?\n\|[-|]+\|\n((?:\|.*\n)+)", SHEET[start:])[1]
    return [[cell.strip().strip("`") for cell in row.strip("|").split("|")] for row in rows.splitlines()]


def compiles(checks):
    """Compiles checks against the importer's headers; whether a pointer has 8 bytes decides which apply."""
    text = '#include "HostRecords.h"\n#include "HxImportModule.h"\n#include "SampleFormats.h"\n' + "\n".join(checks)
    return project.attempt(project.CXX, "-std=c++17", *project.CXX_FLAGS, *INCLUDES, "-fsyntax-only",
                           "-x", "c++", "-", input=text)


class HostSheet(unittest.TestCase):
    def assertCompiles(self, checks):
        done = compiles(checks)
        self.assertEqual(0, done.returncode, done.stderr)

    def test_fields_stand_where_the_sheet_says(self):
        records = set(re.findall(r"^#### `(\w+)`$", SHEET, re.M))
        self.assertEqual(RECORDS, records)
        checks = []
        for record in sorted(records):
            for field, kind, wide, narrow in table_below(f"#### `{record}`"):
                place = f"(sizeof(void*) == 8 ? {int(wide)} : {int(narrow)})"
                if field == "size" and not kind:
                    checks.append(f"static_assert(sizeof({record}) == {place});")
                    continue
                value = f"std::declval<{record}&>().{field}"
                base, length = re.fullmatch(r"(.*?)(\[\d+\])?", kind).groups()
                wanted = base + (length or "")
                checks.append(f"static_assert(offsetof({record}, {field}) == {place});")
                checks.append(f"static_assert(std::is_same_v<std::remove_reference_t<decltype(({value}))>, {wanted}>);")
        self.assertGreater(len(checks), 30)
        self.assertCompiles(checks)

    def test_a_wrong_offset_would_be_seen(self):
        self.assertNotEqual(0, compiles(["static_assert(offsetof(imFileInfoRec8, word194) == 195);"]).returncode)

    def test_results_have_their_numbers(self):
        numbers = {int(number) for row in table_below("## Results") for number in re.findall(r"-?\d+", row[0])}
        header = (project.SOURCE / "Importers/Inc/HxImportModule.h").read_text(encoding="utf-8")
        known = {int(number) for number in re.findall(r"HostResult\w+ = (\d+)", header)}
        self.assertEqual(known | {-1}, numbers)

    def test_sample_formats_have_their_numbers(self):
        names = ["UInt8", "Int16Little", "Int24Little", "Float32Little", "Other"]
        numbers = [row[0] for row in table_below("## Sample formats")]
        self.assertEqual(len(names), len(numbers))
        self.assertCompiles(
            [f"static_assert(SampleFormat{name} == {number});" for name, number in zip(names, numbers)])


if __name__ == "__main__":
    unittest.main()
