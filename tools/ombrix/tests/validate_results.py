#!/usr/bin/python3
"""Validates ombrix results against the results schema and checks what the schema cannot say.

usage: validate_results.py SCHEMA RUN_FOLDER...

For each run folder: results.json validates against SCHEMA (jsonschema, draft 2020-12); every
file listed in "outputs" exists in the folder; results.csv has one row per figure with the same
values; the SHA-256 of every input equals the file's. Exit code 1 with one line per failure.
"""

import csv
import hashlib
import json
import os
import sys

import jsonschema


def check(schema, folder):
    failures = []
    with open(os.path.join(folder, "results.json"), encoding="utf-8") as f:
        results = json.load(f)
    validator = jsonschema.Draft202012Validator(schema)
    for error in validator.iter_errors(results):
        failures.append("%s: schema: %s at %s" % (folder, error.message, list(error.path)))
    for output in results.get("outputs", []):
        if not os.path.isfile(os.path.join(folder, output["file"])):
            failures.append("%s: listed output %s is missing" % (folder, output["file"]))
    with open(os.path.join(folder, "results.csv"), encoding="utf-8", newline="") as f:
        rows = list(csv.DictReader(f))
    figures = results.get("figures", [])
    if len(rows) != len(figures):
        failures.append("%s: results.csv has %d rows for %d figures" % (folder, len(rows), len(figures)))
    for row, figure in zip(rows, figures):
        if (row["subject"], row["figure"], row["unit"]) != (figure["subject"], figure["name"], figure["unit"]) \
                or float(row["value"]) != float(figure["value"]):
            failures.append("%s: results.csv row %r differs from %r" % (folder, row, figure))
            break
    for item in results.get("inputs", []):
        path = item["path"]
        if not os.path.isabs(path):
            path = os.path.join(folder, "..", path)
        with open(path, "rb") as f:
            digest = hashlib.sha256(f.read()).hexdigest()
        if digest != item["sha256"]:
            failures.append("%s: sha256 of %s is %s, recorded %s" % (folder, item["path"], digest, item["sha256"]))
    return failures


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    with open(sys.argv[1], encoding="utf-8") as f:
        schema = json.load(f)
    jsonschema.Draft202012Validator.check_schema(schema)
    failures = []
    for folder in sys.argv[2:]:
        failures += check(schema, folder)
    for failure in failures:
        print(failure)
    if not failures:
        print("%d results valid" % (len(sys.argv) - 2))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
