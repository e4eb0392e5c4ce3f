#!/usr/bin/env python3
"""Reads what gcovr has counted of src/, and what docs/coverage.md says of the rest: coverage.py GCOVR.json coverage.md

Prints a table, then the lines that are not covered. Fails where there are too many, or one without a reason, or a reason
without need.
"""
import itertools
import json
import pathlib
import re
import sys

LEAST = {"lines": 98, "branches": 90}
REASON = re.compile(r"\| `(?P<file>[^`]+)` \| `(?P<text>[^`]+)` \| .+ \|")


def is_covered(line):
    return line["count"] > 0 and all(branch["count"] > 0 for branch in line["branches"])


def counts(files):
    """[lines, covered ones, branches, taken ones]"""
    lines = [line for file in files for line in file["lines"]]
    branches = [branch for line in lines for branch in line["branches"]]
    return [
        len(lines), sum(line["count"] > 0 for line in lines),
        len(branches), sum(branch["count"] > 0 for branch in branches),
    ]


def percent(covered, total):
    return 100 * covered / total if total else 100


def row(name, lines, covered, branches, taken):
    return (f"{name:32}{covered:7} of {lines:5}{percent(covered, lines):8.1f} %"
            f"{taken:7} of {branches:5}{percent(taken, branches):8.1f} %")


def gaps(file):
    """(file and first line, report) of each row of lines that are not covered."""
    source = pathlib.Path(file["file"]).read_text().splitlines()
    for covered, lines in itertools.groupby(file["lines"], is_covered):
        if covered:
            continue
        lines = list(lines)
        first, last = lines[0]["line_number"], lines[-1]["line_number"]
        place = f"{file['file']}:{first}" + (f"-{last}" if last > first else "")
        _, _, branches, taken = counts([{"lines": lines}])
        missing = f"{branches - taken} of {branches} branches not taken" if lines[0]["count"] else "not run"
        text = source[first - 1].strip()
        yield (file["file"], text), f"{place}: {missing}: {text}"


def reasons(path):
    found = (REASON.fullmatch(line) for line in pathlib.Path(path).read_text().splitlines())
    return {(match["file"], match["text"].replace(r"\|", "|")) for match in found if match}


def main(counted, explained):
    files = json.load(open(counted))["files"]
    families = {}
    for file in files:
        file["lines"] = sorted((line for line in file["lines"] if not line["gcovr/noncode"]),
                               key=lambda line: line["line_number"])
        families.setdefault(re.sub(r"^src/(.*)\..*$", r"\1", file["file"]), []).append(file)

    print(f"{'':32}{'lines':>26}{'branches':>24}")
    for name, its_files in sorted(families.items()):
        print(row(name, *counts(its_files)))
    lines, covered, branches, taken = counts(files)
    print(row("src/", lines, covered, branches, taken))

    known = reasons(explained)
    uncovered = [gap for file in files for gap in gaps(file)]
    complaints = [f"{explained} has no reason for {report}" for key, report in uncovered if key not in known]
    needless = known - {key for key, _ in uncovered}
    complaints += [f"{explained} has a reason for what is covered: {': '.join(key)}" for key in sorted(needless)]
    if percent(covered, lines) < LEAST["lines"]:
        complaints.append(f"less than {LEAST['lines']} % of the lines")
    if percent(taken, branches) < LEAST["branches"]:
        complaints.append(f"less than {LEAST['branches']} % of the branches")
    print("", "Not covered:", *(report for _, report in uncovered), "", *complaints, sep="\n")
    return 1 if complaints else 0


sys.exit(main(*sys.argv[1:]))
