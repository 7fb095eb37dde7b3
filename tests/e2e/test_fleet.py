"""End to end: quillscan-inv export, schema and diff on scans of the
simulated hosts: rows valid against the schema and equal in every format,
every document place mapped or excluded, docs/fleet.md in step with the
schema, idempotent import, damaged files skipped, diff by entity.

    python3 test_fleet.py --docs     prints the tables section of docs/fleet.md
"""
import concurrent.futures
import csv
import glob
import io
import json
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import unittest

import jsonschema

import simlib
from test_format_reference import DOC as FORMAT_DOC, document_paths, reference_rows

FLEET_DOC = os.path.join(simlib.SOURCE_DIR, "docs", "fleet.md")
csv.field_size_limit(1 << 30)
HOSTS = ["esxi67", "esx41", "esxi55-dhcp", "bare", "hostile", "gen-vms"]


def decoder(*args, stdin=b"", timeout=600):
    return subprocess.run([simlib.decoder()] + list(args), input=stdin, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=timeout)


def section(text, name):
    begin, end = "<!-- %s:begin -->" % name, "<!-- %s:end -->" % name
    if begin not in text or end not in text:
        raise AssertionError("docs/fleet.md has no %s markers" % name)
    return text[text.index(begin) + len(begin):text.index(end)].strip("\n")


def tables_markdown(schema):
    """The tables section of docs/fleet.md as the schema defines it."""
    out = []
    for name, table in schema["$defs"].items():
        if name == "json":
            continue
        out += ["", "### `%s`" % name, "", table["description"], "",
                "| Column | Type | Source | Meaning |", "|---|---|---|---|"]
        for col, prop in table["properties"].items():
            kinds = prop.get("type", "integer")
            kind = "TEXT" if "string" in kinds else "INTEGER"
            source = prop.get("x-source", "")
            out.append("| `%s` | %s | %s | %s |" % (
                col, kind, "`%s`" % source if source else "", prop.get("description", "")))
    return "\n".join(out[1:])


def exclusions(text):
    rows = section(text, "fleet-exclusions").split("\n")[2:]
    return {re.split(r"(?<!\\)\|", r.strip().strip("|"))[0].strip().strip("`") for r in rows}


def matches(pattern, path):
    """Whether a generalised path matches a column source ("*" is any element)."""
    rx = re.escape(pattern).replace(r"\*", r"[^ ]+")
    return re.fullmatch(rx, path) is not None


# Row-level schema keywords: with only these, a row is valid when its keys
# are and each value is valid under its column's schema.
ROW_KEYWORDS = {"$schema", "title", "description", "type", "properties", "required",
                "additionalProperties"}


# Column schema keywords that do not look at the value beyond its type.
TYPE_ONLY = {"type", "description", "x-source"}


def validate_rows(table_schema, rows):
    """Validates each distinct key set and column value once (each value type
    once for type-only columns): the exports hold a hundred thousand rows."""
    unknown = set(table_schema) - ROW_KEYWORDS
    if unknown:
        raise AssertionError("row schema keywords validate_rows does not know: %s" % unknown)
    row_validator = jsonschema.Draft202012Validator(table_schema)
    type_only = {k for k, p in table_schema["properties"].items() if set(p) <= TYPE_ONLY}
    seen_keys, seen_values = set(), set()
    columns = {}
    for row in rows:
        keys = tuple(row)
        if keys not in seen_keys:
            seen_keys.add(keys)
            row_validator.validate(row)
        for k, v in row.items():
            seen = (k, type(v)) if k in type_only else (k, type(v), v)
            if seen in seen_values:
                continue
            seen_values.add(seen)
            if k not in columns:
                columns[k] = jsonschema.Draft202012Validator(table_schema["properties"][k])
            columns[k].validate(v)


class FleetTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.dir = simlib.workdir()
        cls.scans = os.path.join(cls.dir, "scans")
        os.mkdir(cls.scans)
        runs = [(h, ["/silent"]) for h in HOSTS] + [("esxi67", ["/silent", "/debug"])]

        def scan(run):
            host, args = run
            work = os.path.join(cls.scans, host + ("-debug" if "/debug" in args else ""))
            os.mkdir(work)
            result = simlib.scan(host, args, workdir=work)
            if len(result.files) != 1:
                raise simlib.SimError("%s %s wrote %r" % (host, args, result.files))
            return result.path(result.files[0])

        with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
            cls.files = list(pool.map(scan, runs))
        # The hosts whose documents are small enough to validate whole.
        cls.small = [f for (h, _), f in zip(runs, cls.files) if h not in ("gen-vms", "hostile")]
        cls.db = os.path.join(cls.dir, "fleet.db")
        for fmt, out in (("sqlite", cls.db), ("ndjson", os.path.join(cls.dir, "nd")),
                         ("csv", os.path.join(cls.dir, "csv"))):
            r = decoder("export", "--format", fmt, "-o", out, cls.scans)
            if r.returncode != 0:
                raise AssertionError("export %s: %r" % (fmt, r.stderr))
        cls.schema = json.loads(decoder("schema").stdout)
        with open(FLEET_DOC, encoding="utf-8") as f:
            cls.doc = f.read()

    def ndjson(self, table):
        with open(os.path.join(self.dir, "nd", table + ".ndjson"), encoding="utf-8") as f:
            return [json.loads(line) for line in f]

    def assert_same(self, what, got, expect):
        """Row lists compared without printing megabytes of host text."""
        self.assertEqual(len(got), len(expect), what)
        for i, (g, e) in enumerate(zip(got, expect)):
            if g != e:
                self.fail("%s row %d: %.300r != %.300r" % (what, i, g, e))

    def test_rows_match_the_schema_in_every_format(self):
        conn = sqlite3.connect(self.db)
        conn.text_factory = bytes
        for name in self.schema["$defs"]:
            if name == "json":
                continue
            table_schema = json.loads(decoder("schema", name).stdout)
            rows = self.ndjson(name)
            validate_rows(table_schema, rows)
            cols = list(table_schema["properties"])
            order = "scan_id" + (", position" if "position" in cols else "")
            db = conn.execute("SELECT %s FROM %s ORDER BY %s" % (", ".join(cols), name, order))
            db_rows = [list(r) for r in db.fetchall()]
            rows.sort(key=lambda r: (r["scan_id"], r.get("position", 0)))
            # Bytes that are not UTF-8 are Latin-1 in JSON: compare the others.
            def json_view(v):
                if isinstance(v, bytes):
                    try:
                        return v.decode("utf-8")
                    except UnicodeDecodeError:
                        return None
                return v
            self.assert_same(name + " ndjson", [[v if json_view(d) is not None else None
                                                  for v, d in zip((r[c] for c in cols), dr)]
                                                 for r, dr in zip(rows, db_rows)],
                             [[json_view(d) for d in dr] for dr in db_rows])
            # CSV keeps the bytes, in export order rather than by scan id.
            with open(os.path.join(self.dir, "csv", name + ".csv"), "rb") as f:
                text = f.read().decode("utf-8", "surrogateescape")
            csv_rows = list(csv.reader(io.StringIO(text, newline="")))
            self.assertEqual(csv_rows[0], cols)
            as_text = lambda v: "" if v is None else (
                v.decode("utf-8", "surrogateescape") if isinstance(v, bytes) else str(v))
            key = lambda r: (r[0], int(r[1]) if "position" in cols else 0)
            self.assert_same(name + " csv", sorted(csv_rows[1:], key=key),
                             [[as_text(v) for v in r] for r in db_rows])
        self.assertEqual(len(self.ndjson("scans")), len(self.files))
        # The generated host's machines are all there, with their disks.
        gen = [r for r in self.ndjson("scans") if r["file_name"].startswith("GEN_01")][0]
        vms = [r for r in self.ndjson("vms") if r["scan_id"] == gen["scan_id"]]
        self.assertEqual(len(vms), 1024)
        json_schema = json.loads(decoder("schema", "json").stdout)
        out = decoder("json", *self.small)
        self.assertEqual(out.returncode, 0)
        lines = out.stdout.split(b"\n")[:-1]
        self.assertEqual(len(lines), len(self.small))
        validator = jsonschema.Draft202012Validator(json_schema)
        for line in lines:
            validator.validate(json.loads(line))
        # The whole schema is itself valid, with its references.
        jsonschema.Draft202012Validator.check_schema(self.schema)

    def test_every_place_is_mapped_or_excluded(self):
        sources = {p["x-source"] for t in self.schema["$defs"].values()
                   for p in t.get("properties", {}).values() if "x-source" in p}
        excluded = exclusions(self.doc)
        unmapped = set()
        for path in self.files:
            for i, record in enumerate(simlib.header(path).records):
                if record["type"] == "customdata":
                    continue
                for place in document_paths(simlib.decode_text(path, i)):
                    if place in excluded:
                        continue
                    # An element on the way to a mapped place is mapped.
                    if not any(matches(s, place) or matches(s, place + " @x") or
                               s.startswith(place + " / ") or s.startswith(place + " @") or
                               s.startswith(place + " ~") for s in sources):
                        unmapped.add(place)
        self.assertEqual(sorted(unmapped), [], "neither mapped nor in the exclusion list")
        with open(FORMAT_DOC, encoding="utf-8") as f:
            reference = reference_rows(f.read())
        unknown = sorted(s for s in sources
                         if not any(matches(s, p) for p in reference))
        self.assertEqual(unknown, [], "sources the format reference does not list")
        self.assertEqual(sorted(e for e in excluded if e not in reference), [])

    def test_docs_list_every_column_and_their_queries_run(self):
        self.assertEqual(section(self.doc, "fleet-tables"), tables_markdown(self.schema))
        queries = re.findall(r"```sql\n(.*?)```", self.doc, re.S)
        self.assertGreaterEqual(len(queries), 5)
        for q in queries:
            r = subprocess.run(["sqlite3", self.db], input=q.encode(), stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE)
            self.assertEqual((r.returncode, r.stderr), (0, b""), q)
            if not q.startswith("-- may be empty"):
                self.assertTrue(r.stdout.strip(), "no row: " + q)

    def test_import_is_idempotent_and_damage_is_skipped(self):
        db = os.path.join(simlib.workdir(), "copy.db")
        shutil.copy(self.db, db)
        dump = lambda: subprocess.run(["sqlite3", db, ".dump"], stdout=subprocess.PIPE).stdout
        before = dump()
        r = decoder("export", "-o", db, self.scans)
        self.assertEqual((r.returncode, r.stderr), (0, b""))
        self.assertEqual(dump(), before)
        bad_dir = simlib.workdir()
        with open(self.files[0], "rb") as f:
            data = f.read()
        bad = os.path.join(bad_dir, "bad.inv")
        with open(bad, "wb") as f:
            f.write(data[:100] + b"\xff" * 200 + data[300:])
        shutil.copy(self.files[1], os.path.join(bad_dir, "good.inv"))
        r = decoder("export", "-o", db, bad_dir)
        self.assertEqual(r.returncode, 1)
        self.assertRegex(r.stderr.decode(), r"^quillscan-inv: %s: [^\n]+\n$" % re.escape(bad))
        self.assertEqual(dump(), before)  # good.inv was already there; nothing else added
        # Inputs that are not files are refused without waiting: a FIFO with
        # no writer would block a plain open, and the timeout fail the test.
        fifo = os.path.join(bad_dir, "pipe")
        os.mkfifo(fifo)
        fresh = os.path.join(simlib.workdir(), "fresh.db")
        r = decoder("export", "-o", fresh, bad_dir, "-", fifo, "/dev/null", stdin=data, timeout=60)
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr.decode().split("\n")[1:],
                         ["quillscan-inv: %s: not a regular file" % fifo,
                          "quillscan-inv: /dev/null: not a regular file", ""])
        conn = sqlite3.connect(fresh)
        self.assertEqual(conn.execute("SELECT file_name FROM scans ORDER BY file_name").fetchall(),
                         [("-",), ("good.inv",)])
        r = decoder("diff", fifo, self.files[0], timeout=20)
        self.assertEqual(r.returncode, 2)
        self.assertIn(b"not a regular file", r.stderr)

    def test_diff_of_two_scans(self):
        host = os.path.join(simlib.workdir(), "esxi67")
        shutil.copytree(os.path.join(simlib.HOSTS_DIR, "esxi67"), host, symlinks=True)
        again = simlib.scan("esxi67", ["/silent"])
        same = decoder("diff", self.files[0], again.path(again.files[0]))
        self.assertEqual((same.returncode, same.stdout, same.stderr), (0, b"", b""))
        every = decoder("diff", "--all", self.files[0], again.path(again.files[0]))
        self.assertEqual(every.returncode, 1)
        self.assertIn(b"os [position=1]: uptime_seconds: ", every.stdout)
        # A changed host: one machine more memory, one package gone.
        for p in glob.glob(os.path.join(host, "files", "vmfs", "volumes", "**", "rhel6.vmx"),
                           recursive=True):
            with open(p) as f:
                text = f.read()
            with open(p, "w") as f:
                f.write(text.replace('memsize = "4096"', 'memsize = "8192"'))
        changed = simlib.scan(host, ["/silent"])
        new = changed.path(changed.files[0])
        r = decoder("diff", self.files[0], new)
        conf = "/vmfs/volumes/5bc7459f-967eeb48-b3f7-20677cd9a16c/rhel6/rhel6.vmx"
        self.assertEqual(r.stdout.decode(),
                         "vms [conf_file=%s]: memory_mb: 4096 -> 8192\n"
                         "vms [conf_file=%s]: memory_text: 4096 -> 8192\n" % (conf, conf))
        self.assertEqual(r.returncode, 1)
        r = decoder("diff", self.files[0], new, "--format", "json", "--ignore", "memory_text")
        self.assertEqual(json.loads(r.stdout)["changes"], [
            {"table": "vms", "change": "changed", "key": {"conf_file": conf},
             "fields": [{"name": "memory_mb", "old": 4096, "new": 8192}]}])

    def test_command_line_conventions(self):
        for cmd in ("show", "json", "text", "raw", "check", "export", "schema", "diff"):
            r = decoder(cmd, "--help")
            self.assertEqual(r.returncode, 0)
            self.assertTrue(r.stdout.startswith(b"usage: quillscan-inv " + cmd.encode()))
            self.assertEqual(decoder(cmd, "--version").stdout, decoder("--version").stdout)
            r = decoder(cmd, "--no-such-option", "x")
            self.assertEqual(r.returncode, 2, cmd)
            self.assertEqual(r.stderr.count(b"\n"), 1, cmd)
        with open(self.files[0], "rb") as f:
            data = f.read()
        r = decoder("check", "-", self.files[1], stdin=data)
        self.assertEqual(r.stdout.decode().splitlines()[0][:6], "-: ok,")


if __name__ == "__main__":
    if sys.argv[1:] == ["--docs"]:
        print(tables_markdown(json.loads(decoder("schema").stdout)))
    else:
        unittest.main()
