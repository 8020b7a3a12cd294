#!/usr/bin/env python3
"""Prints, for each preset named, how many tests its last run passed and failed.

Reads the GoogleTest reports, *_tests.json, that the tests leave in build/PRESET. Fails when a test
failed or a preset has no report."""
import json
import pathlib
import sys


def count(preset):
    tests = failures = skipped = 0
    for path in sorted(pathlib.Path("build", preset).rglob("*_tests.json")):
        report = json.loads(path.read_text(encoding="utf-8"))
        tests += report["tests"]
        failures += report["failures"] + report.get("errors", 0)
        for suite in report["testsuites"]:
            skipped += sum(test["result"] == "SKIPPED" for test in suite["testsuite"])
    return tests - failures - skipped, failures, skipped


def main():
    bad = False
    for preset in sys.argv[1:]:
        passed, failures, skipped = count(preset)
        print(f"{preset}: {passed} passed, {failures} failed" + (f", {skipped} skipped" if skipped else ""))
        bad = bad or failures or not passed
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
