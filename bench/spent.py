# SPDX-License-Identifier: Apache-2.0
"""Reads what callgrind_annotate tells of each function, and prints those with the most instructions of their own as a
Markdown table. What is in line counts for the function that it is in."""

import collections
import re
import sys

MOST = 14


def plain(name):
    """A function's name without where it stands, arguments and template arguments."""
    name = re.sub(r" \[[^\]]*\]$", "", name)
    name = re.sub(r"^(?:\?\?\?|[^:]*):(?=[^:])", "", name).replace("(anonymous namespace)::", "")
    name = name.replace("operator<", "operator less").replace("operator()", "operator call")
    while "<" in name and re.search(r"<[^<>]*>", name):
        name = re.sub(r"<[^<>]*>", "", name)
    name = name.split("(")[0].strip()
    return re.sub(r"^.* (?=[\w:~]+$)", "", name) if "operator" not in name else name


def main():
    counts = collections.Counter()
    total = 0
    for line in sys.stdin:
        found = re.match(r" *([\d,]+) \([^)]*\) +(.*)", line)
        if not found:
            continue
        count = int(found.group(1).replace(",", ""))
        if found.group(2).startswith("PROGRAM TOTALS"):
            total = count
        else:
            counts[plain(found.group(2))] += count
    print("| function | share of the instructions |")
    print("|---|---|")
    for name, count in counts.most_common(MOST):
        print(f"| `{name}` | {count / total:.1%} |")


if __name__ == "__main__":
    main()
