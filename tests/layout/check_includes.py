#!/usr/bin/env python3
"""The include rules of the tree's layers, checked over every quoted include.

From the bottom up: platform/ (the device's API and its PC stand-ins), the
service (basicservice/.../AlertZelManage), formats/ (the device's shared
formats), sim/ (the service in-process), then peers/ and tools/ side by side.
A layer uses only what lies below it:

  formats/   formats/, the service's include/, platform/include/
  sim/       sim/, the service's include/ and src/ (it compiles the service),
             platform/include/
  peers/P/   its own folder, formats/, the service's include/,
             platform/include/; never another peer, never tools/
  tools/T/   its own folder, formats/, sim/, the service's include/,
             platform/include/; never another tool, never peers/
  platform/  platform/ only; the service: itself and platform/include/
  anywhere   nothing outside the service and sim/ includes the service's src/

A quoted include is found the way the build's flat include folders find it:
first beside the including file, else by its file name, which is unique among
the tree's headers. Prints one line per broken rule, naming the file, line and
include, and exits 1; prints a count and exits 0 when every rule holds.

Usage: check_includes.py [ROOT]   (ROOT: the source tree, default: this tree)
"""
import os
import re
import sys

SERVICE = "basicservice/basebusiness/AlertZelManage"
SOURCES = (".c", ".cc", ".cpp", ".h", ".hpp")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')

PUBLIC_BELOW = ["formats", SERVICE + "/include", "platform/include"]
# Folder prefix of the includer -> folders it may include from. "@own" is the
# includer's own top two path components (peers/storage, tools/zelctl).
RULES = [
    ("platform/", ["platform"]),
    (SERVICE + "/", [SERVICE, "platform/include"]),
    ("formats/", ["formats", SERVICE + "/include", "platform/include"]),
    ("sim/", ["sim", SERVICE + "/include", SERVICE + "/src", "platform/include"]),
    ("peers/", ["@own"] + PUBLIC_BELOW),
    ("tools/", ["@own", "sim"] + PUBLIC_BELOW),
]
SERVICE_SRC = SERVICE + "/src/"


def under(path, folder):
    return path == folder or path.startswith(folder.rstrip("/") + "/")


def walk(root):
    files = []
    for base, dirs, names in os.walk(root):
        rel = os.path.relpath(base, root)
        # The fixture of this check's own test is a tree of its own.
        dirs[:] = sorted(d for d in dirs
                         if not d.startswith(".") and not d.startswith("build") and
                         os.path.join(rel, d) != os.path.join("tests", "layout", "fixture"))
        for n in sorted(names):
            if n.endswith(SOURCES):
                files.append(os.path.normpath(os.path.join(rel, n)).replace(os.sep, "/"))
    return files


def main(argv):
    root = argv[1] if len(argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "..")
    root = os.path.abspath(root)
    files = walk(root)
    by_name = {}
    for f in files:
        if f.endswith((".h", ".hpp")):
            by_name.setdefault(os.path.basename(f), []).append(f)

    problems = []
    for name, places in sorted(by_name.items()):
        if len(places) > 1:
            problems.append("%s: header name %s is not unique, so an include of it is "
                            "ambiguous" % (", ".join(places), name))

    checked = 0
    for f in files:
        rule = next((allowed for prefix, allowed in RULES if f.startswith(prefix)), None)
        own = "/".join(f.split("/")[:2])
        with open(os.path.join(root, f), encoding="utf-8", errors="replace") as src:
            for number, line in enumerate(src, 1):
                m = INCLUDE.match(line)
                if not m:
                    continue
                checked += 1
                inc = m.group(1)
                beside = os.path.normpath(os.path.join(os.path.dirname(f), inc)).replace(os.sep, "/")
                if beside in files:
                    target = beside
                else:
                    found = by_name.get(os.path.basename(inc), [])
                    if len(found) != 1:
                        continue  # a system or generated header
                    target = found[0]
                where = '%s:%d: includes "%s" (%s)' % (f, number, inc, target)
                if under(target, SERVICE_SRC.rstrip("/")) and not (
                        under(f, SERVICE) or under(f, "sim")):
                    problems.append(where + ": only the service and sim/ may use the "
                                    "service's src/; move the record to its include/")
                    continue
                if rule is None:
                    continue
                allowed = [own if a == "@own" else a for a in rule]
                if not any(under(target, a) for a in allowed):
                    problems.append(where + ": %s may use only %s" %
                                    (own if own.startswith(("peers", "tools")) else
                                     next(p for p, _ in RULES if f.startswith(p)), ", ".join(a + "/" for a in allowed)))
    for p in problems:
        print(p)
    if problems:
        print("include rules: %d broken" % len(problems))
        return 1
    print("include rules hold over %d includes in %d files" % (checked, len(files)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
