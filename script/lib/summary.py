"""Adds up JUnit files into one closing summary; fails where a test failed or none ran."""

import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def counts(path):
    """Tests that passed, failed and were skipped in one file."""
    cases = list(ElementTree.parse(path).getroot().iter("testcase"))
    failed = sum(1 for case in cases if case.find("failure") is not None or case.find("error") is not None)
    skipped = sum(1 for case in cases if case.find("skipped") is not None)
    return len(cases) - failed - skipped, failed, skipped


totals = (0, 0, 0)
print()
for path in map(pathlib.Path, sys.argv[1:]):
    row = counts(path)
    totals = tuple(map(sum, zip(totals, row)))
    print(f"  {path.stem:<24}" + "%6d passed, %d failed, %d skipped" % row)
print()
print("%d passed, %d failed, %d skipped" % totals)
sys.exit(totals[0] == 0 or totals[1] > 0)
