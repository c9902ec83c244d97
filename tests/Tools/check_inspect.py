#!/usr/bin/env python3
"""Runs zrn-inspect on streams and a store written by the library and checks
its text, its JSON (with Python's own parser) and its exit codes.

Usage: check_inspect.py ZRN_INSPECT FIXTURE_WRITER"""
import json
import os
import subprocess
import sys
import tempfile

failures = []


def check(condition, what):
    if not condition:
        failures.append(what)


def run(*args):
    done = subprocess.run([tool, *args], capture_output=True, text=True, encoding="utf-8")
    return done.returncode, done.stdout, done.stderr


def walk(items):
    for item in items:
        yield item
        yield from walk(item.get("items", []))


def check_json(args, expect_code):
    code, out, err = run("--json", *args)
    check(code == expect_code, f"--json {args}: exit {code}, expected {expect_code}")
    try:
        doc = json.loads(out)
    except ValueError as e:
        failures.append(f"--json {args}: not JSON ({e})")
        return None
    check(set(doc) == {"items", "size", "complete", "stoppedAt", "error"},
          f"--json {args}: top-level keys {sorted(doc)}")
    check(doc["complete"] == (expect_code == 0), f"--json {args}: complete")
    for item in walk(doc["items"]):
        check(item["kind"] in ("object", "block", "data", "named"), f"kind {item['kind']}")
        check(isinstance(item["offset"], int), "offset is a number")
        if "items" in item:
            check(isinstance(item["end"], int), "a container has its end")
    return doc


tool, writer = sys.argv[1], sys.argv[2]
with tempfile.TemporaryDirectory() as folder:
    subprocess.run([writer, folder], check=True)
    path = lambda name: os.path.join(folder, name)

    # Usage and I/O errors: exit 2 with a message on standard error.
    code, out, _ = run("--help")
    check(code == 0 and out.startswith("Usage: zrn-inspect"), "--help")
    for args in ([], ["--bogus"], ["--width"], ["--entity", "2"], [path("nested.bin"), "x"],
                 ["--db", path("store.zrndb")], [path("missing.bin")]):
        code, out, err = run(*args)
        check(code == 2 and err.startswith("zrn-inspect: "), f"{args}: exit {code}, {err!r}")
    code, _, err = run("--db", path("missing.zrndb"), "--project")
    check(code == 2 and "no such file" in err, "a missing store")
    check(not os.path.exists(path("missing.zrndb")), "inspecting creates no store")

    # A whole stream: the exact tree.
    code, out, err = run(path("nested.bin"))
    check(code == 0 and err == "", f"nested.bin: exit {code} {err!r}")
    check(out == "object @0 v2, 1 block\n"
                 "  block @3 tag 1, 12 bytes\n"
                 "    object @8 v1, 1 block\n"
                 "      block @11 tag 5, 4 bytes\n"
                 "        data @16, 4 bytes: 07 00 00 00 |....|\n", f"nested.bin: {out!r}")
    doc = check_json([path("nested.bin")], 0)
    if doc:
        check(doc["size"] == 20 and doc["stoppedAt"] is None and doc["error"] is None, "nested")
        data = [i for i in walk(doc["items"]) if i["kind"] == "data"]
        check(data == [{"kind": "data", "offset": 16, "size": 4, "hex": "07000000",
                        "cut": False}], f"nested data {data}")

    # A stream cut short: what was read, then exit 1 with the offset.
    code, out, err = run(path("cut.bin"))
    check(code == 1 and out.startswith("object @0 v2"), f"cut.bin: exit {code}")
    check("stopped at offset 11" in out and "stopped at offset 11" in err, f"cut.bin: {err!r}")
    doc = check_json([path("cut.bin")], 1)
    if doc:
        check(doc["stoppedAt"] == 11 and doc["error"], "cut.bin stoppedAt")

    # Leaf data cut to the width, or shown whole.
    code, out, _ = run("--width", "2", path("nested.bin"))
    check("data @16, 4 bytes: 07 00 |..| ..." in out, f"--width: {out!r}")
    code, out, _ = run("--full", path("nested.bin"))
    check("          @16  07 00 00 00 " in out, f"--full: {out!r}")

    # A property collection in a stream and in a store.
    code, out, _ = run(path("beam.bin"))
    check(code == 0 and 'property 1025: int 7' in out and 'property 1026: string "beam"' in out,
          f"beam.bin: {out!r}")
    code, out, err = run("--db", path("store.zrndb"), "--entity", "2")
    check(code == 0, f"--entity 2: exit {code} {err!r}")
    check('scheme entry 1025 "Width"' in out and "property 1025: int 7" in out,
          f"--entity 2: {out!r}")
    doc = check_json(["--db", path("store.zrndb"), "--entity", "2"], 0)
    if doc:
        named = [i for i in walk(doc["items"]) if i["kind"] == "named" and i["name"] == "property"]
        check({"id": 1025, "type": 1, "typeName": "int", "value": "7"}.items()
              <= named[0].items() if named else False, f"property in JSON: {named}")
    code, out, _ = run("--db", path("store.zrndb"), "--project")
    check(code == 0 and "(project record)" in out and "unique-ID counter 2" in out,
          f"--project: {out!r}")
    code, _, err = run("--db", path("store.zrndb"), "--entity", "999")
    check(code == 2 and "999" in err, f"--entity 999: {err!r}")

for failure in failures:
    print("FAILED:", failure)
print(f"{0 if failures else 1} passed, {1 if failures else 0} failed")
sys.exit(1 if failures else 0)
