#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Prints tables of benchmark results.

Usage: report.py DIRECTORY

Reads the samples in DIRECTORY/*.json and the counts of callgrind in DIRECTORY/counts-*.*. Prints one Markdown table
per topic: the median of the first variant with its unit, and the medians of the others divided by it.
"""

import json
import pathlib
import re
import statistics
import sys

UNITS = {
    "ns": ((1e9, "s"), (1e6, "ms"), (1e3, "µs"), (1, "ns")),
    "bytes": ((2**20, "MiB"), (2**10, "KiB"), (1, "B")),
    "instructions": ((1e9, "G"), (1e6, "M"), (1e3, "k"), (1, "")),
    "calls/s": ((1, "/s"),),
    "": ((1, ""),),
}


def readable(value, unit):
    for factor, name in UNITS[unit]:
        if abs(value) >= factor:
            break
    return f"{value / factor:.3g} {name}".strip() if value < 1000 * factor else f"{value / factor:,.0f} {name}".strip()


def part(file):
    """Sort key of a callgrind file name such as counts-json.12."""
    return file.stem, int(file.suffix[1:])


def read_rows(directory):
    """The rows of all files: a dictionary from topic, case and variant to unit and median."""
    rows = {}
    for file in sorted(directory.glob("*.json")):
        for row in json.loads(file.read_text()):
            rows[row["topic"], row["case"], row["variant"]] = row["unit"], statistics.median(row["samples"])
    for file in sorted(directory.glob("counts-*.*"), key=part):
        text = file.read_text()
        name = re.search(r"^desc: Trigger: Client Request: (.*)\|(.*)\|(.*)\|(.*)$", text, re.MULTILINE)
        if name:
            total = re.search(r"^(?:totals|summary): (\d+)", text, re.MULTILINE)
            topic, case, variant, parts = name.groups()
            rows[f"{topic}, instructions", case, variant] = "instructions", int(total.group(1)) / int(parts)
    return rows


def in_order(names):
    return list(dict.fromkeys(names))


def table(topic, rows):
    """The lines of the table."""
    own = {key: value for key, value in rows.items() if key[0] == topic}
    variants = in_order(variant for _, _, variant in own)
    first = variants[0]
    heads = [topic, first] + [f"{variant} / {first}" for variant in variants[1:]]
    lines = [heads, ["---"] + ["---:"] * len(variants)]
    for case in in_order(case for _, case, _ in own):
        unit, median = own[topic, case, first]
        cells = [case, readable(median, unit)]
        for variant in variants[1:]:
            other = own.get((topic, case, variant))
            cells.append(f"{other[1] / median:.2f}" if other and median else "")
        lines.append(cells)
    widths = [max(len(line[i]) for line in lines) for i in range(len(heads))]
    for line in lines:
        cells = [line[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(line[1:], widths[1:])]
        yield "| " + " | ".join(cells) + " |"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    rows = read_rows(pathlib.Path(sys.argv[1]))
    for topic in in_order(topic for topic, _, _ in rows):
        print("\n".join(table(topic, rows)), end="\n\n")


main()
