#!/usr/bin/env python3
"""Fails when an #include points up or sideways between the layers.

    zxml <- host <- collectors <- summary <- app

A file may include its own layer and the layers to its left. Within
collectors/, a collector folder may include its own folder, the headers at
the top of collectors/ and the reference dictionaries; never another
collector's folder. The decoder (tools/) includes only tools/.

Usage: check_includes.py [SOURCE_DIR]   (default: the repository root)
"""
import os
import re
import sys

LAYERS = ["zxml", "host", "collectors", "summary", "app"]
DICTIONARIES = {"collectors/hardware/ports_dictionary.h"}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')


def allowed(source, target):
    """Whether the file `source` may include `target` (both relative)."""
    src_top = source.split("/")[0]
    dst_top = target.split("/")[0]
    if src_top == "tools":
        return dst_top == "tools"
    if dst_top == "tools":
        return False
    if dst_top not in LAYERS:
        return True  # a system or third-party header
    if LAYERS.index(dst_top) > LAYERS.index(src_top):
        return False
    if src_top == dst_top == "collectors":
        src = source.split("/")
        dst = target.split("/")
        if len(dst) == 2 or target in DICTIONARIES:
            return True
        return len(src) > 2 and src[1] == dst[1]
    return True


def main(argv):
    root = os.path.abspath(argv[1] if len(argv) > 1 else
                           os.path.join(os.path.dirname(__file__), ".."))
    bad = []
    for top in LAYERS + ["tools"]:
        for folder, _, files in os.walk(os.path.join(root, top)):
            for name in sorted(files):
                if not name.endswith((".cpp", ".h")):
                    continue
                path = os.path.join(folder, name)
                source = os.path.relpath(path, root)
                with open(path, encoding="utf-8", errors="replace") as f:
                    for number, line in enumerate(f, 1):
                        m = INCLUDE.match(line)
                        if m and not allowed(source, m.group(1)):
                            bad.append("%s:%d: includes %s" % (source, number, m.group(1)))
    for line in bad:
        print(line)
    if bad:
        print("%d include(s) point up or sideways" % len(bad))
        return 1
    print("includes point down only")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
