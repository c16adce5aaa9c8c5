#!/usr/bin/env python3
"""Reads the tables of a running control plane again and again, as any other process may, and compares every
row that it finds with the operations that wrote it. Prints a line a round. Ends at SIGTERM; exits 1 where a
row was wrong.

Usage: examples/leaf_watch.py HWTABLES OPERATIONS...
"""

import json
import signal
import subprocess
import sys


def expected_rows(paths):
    """By table, FAP and key, the fields that were given."""
    rows = {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for line in file:
                given = json.loads(line)
                rows.setdefault(given["table"], {})[given.get("fap"), str(given["key"])] = given["fields"]
    return rows


def is_as_written(wanted, found):
    return all(int(str(found[name]), 0) == int(str(value), 0) for name, value in wanted.items())


def wrong_rows(table, wanted, text):
    """The number of rows that were compared, and those that are wrong. Rows of which the operations tell
    nothing are the tables' own."""
    compared, wrong = 0, []
    for line in text.splitlines():
        row = json.loads(line)
        key = str(row["key"])
        fields = wanted.get((None, key), wanted.get((row["fap"], key)))
        if fields is not None:
            compared += 1
            if not is_as_written(fields, row["fields"]):
                wrong.append(f"{table} {key}: {row['fields']}, not {fields}")
    return compared, wrong


def read_round(hwtables, expected):
    """All tables once: the number of rows that were compared, and those that are wrong."""
    rows, wrong = 0, []
    for table, wanted in expected.items():
        # A store that is just being made can't be read: the next round will.
        run = subprocess.run([hwtables, "table", "dump", table, "--json"], capture_output=True, text=True)
        compared, found = wrong_rows(table, wanted, run.stdout)
        rows += compared
        wrong += found
    return rows, wrong


def main():
    hwtables, *paths = sys.argv[1:]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    expected = expected_rows(paths)
    while True:
        rows, wrong = read_round(hwtables, expected)
        verdict = f"WRONG: {wrong[0]}" if wrong else "each as it was written"
        print(f"{rows} rows read by another process: {verdict}", flush=True)
        if wrong:
            return 1


if __name__ == "__main__":
    sys.exit(main())
