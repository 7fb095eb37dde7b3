"""End to end: docs/inventory-format.md lists every element, attribute and
annotation the agent writes, as generalised paths ("Snapshot / VMs / vm:N /
Devices / hdd:N @max-size ~units"): no path written but unlisted, none listed
but never written (unless its row says so), no value against its type.
"""
import os
import re
import unittest

import simlib

DOC = os.path.join(simlib.SOURCE_DIR, "docs", "inventory-format.md")
BEGIN = "<!-- format-table:begin -->"
END = "<!-- format-table:end -->"
COLUMNS = ["Path", "Type", "Unit", "Source", "Absent when"]

# Names whose part after the colon is host text rather than a number.
NAMED = {"usr-acc": "NAME", "env-var": "NAME", "Soft": "NAME VERSION"}
# Numbered names that are always the same.
FIXED = {"os:1", "HDD:1"}

# The scans whose paths the reference must cover together.
SCANS = [("esxi67", ["/silent"]), ("esx41", ["/silent"]), ("bare", ["/silent"]),
         ("esxi55-dhcp", ["/silent"]), ("hostile", ["/silent"]), ("esxi90", ["/silent"]),
         ("esxi67", ["/silent", "/debug"]), ("esxi90", ["/silent", "/current"])]

# Rows that no simulated host produces say so in their "Absent when" cell.
UNSEEN_MARKERS = ("never written", "not in the simulated hosts")

TYPES = {"text": None, "integer": r"-?\d+", "real": r"-?\d+\.\d\d", "boolean": r"true|false",
         "empty": r"", "none": r""}


def general_name(name):
    prefix, colon, rest = name.partition(":")
    if name in FIXED or not colon:
        return name
    if prefix in NAMED:
        return prefix + ":" + NAMED[prefix]
    return prefix + ":N" if rest.isdigit() else name


def document_paths(lines):
    """{path: [values]} of one decoded document's lines."""
    paths = {}
    stack = []          # open "+" elements: their paths
    element = None      # path of the element the next lines belong to
    last = None         # path of the element or attribute an annotation follows

    def add(path, value):
        paths.setdefault(path, []).append(value)

    for line in lines[1:]:
        kind = line[:1]
        if line == "-":
            stack.pop()
            element = last = None
            continue
        if kind in ("+", "*"):
            name, _, value = line[1:].partition("=")
            parent = stack[-1] if stack else None
            path = general_name(name) if parent is None else parent + " / " + general_name(name)
            add(path, value)
            element = last = path
            if kind == "+":
                stack.append(path)
            continue
        if kind == "~":
            key, _, value = line[1:].partition("=")
            add(last + " ~" + key, value)
            continue
        name, _, value = line.partition("=")
        last = element + " @" + general_name(name)
        add(last, value)
    return paths


def reference_rows(text):
    """The rows of the reference's table: {path: {column: text}}."""
    if BEGIN not in text or END not in text:
        raise AssertionError("the reference has no format table markers")
    table = text[text.index(BEGIN) + len(BEGIN):text.index(END)].strip().split("\n")
    header = [c.strip() for c in table[0].strip("|").split("|")]
    if header != COLUMNS:
        raise AssertionError("table columns %r, expected %r" % (header, COLUMNS))
    rows = {}
    for line in table[2:]:
        # "\|" is a "|" inside a cell.
        cells = [c.strip().replace("\\|", "|")
                 for c in re.split(r"(?<!\\)\|", line.strip().strip("|"))]
        if len(cells) != len(COLUMNS):
            raise AssertionError("row with %d cells: %r" % (len(cells), line))
        path = cells[0].strip("`")
        if path in rows:
            raise AssertionError("path listed twice: %s" % path)
        rows[path] = dict(zip(COLUMNS, cells))
    return rows


def all_scans():
    found = {}
    for host, args in SCANS:
        result = simlib.scan(host, args)
        if len(result.files) != 1:
            raise simlib.SimError("%s %s wrote %r" % (host, args, result.files))
        path = result.path(result.files[0])
        for i, record in enumerate(simlib.header(path).records):
            if record["type"] != "customdata":
                for p, values in document_paths(simlib.decode_text(path, i)).items():
                    found.setdefault(p, []).extend(values)
    return found


class FormatReferenceTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        with open(DOC, encoding="utf-8") as f:
            cls.rows = reference_rows(f.read())
        cls.found = all_scans()

    def test_every_written_path_is_listed(self):
        missing = sorted(p for p in self.found if p not in self.rows)
        self.assertEqual(missing, [], "written but not in docs/inventory-format.md")

    def test_every_listed_path_is_written(self):
        unseen = sorted(p for p, row in self.rows.items() if p not in self.found and
                        not any(m in row["Absent when"] for m in UNSEEN_MARKERS))
        self.assertEqual(unseen, [], "listed but written by no scan of the simulated hosts")

    def test_values_have_the_listed_type(self):
        for path, row in self.rows.items():
            kind = row["Type"].split()[0]
            self.assertIn(kind, TYPES, "%s: unknown type %r" % (path, row["Type"]))
            pattern = TYPES[kind]
            if pattern is None:
                continue
            for value in self.found.get(path, []):
                self.assertRegex(value, "^(?:%s)$" % pattern, path)


if __name__ == "__main__":
    unittest.main()
