"""Passes the output of ctest on, and says before its summary which tests were skipped, and why.

Usage: ctest --output-junit REPORT | skips.py REPORT
"""
import re
import sys
import xml.etree.ElementTree


def reason(output):
    told = re.search(r": Skipped\n(.*?)\n*\[  SKIPPED \]", output, re.S) or re.search(
        r"^skipped: (.*)", output, re.M)
    return " ".join(told.group(1).split()) if told else "no reason given"


def skips(report):
    for case in xml.etree.ElementTree.parse(report).getroot().iter("testcase"):
        if case.find("skipped") is not None:
            yield "  %s: %s" % (case.get("name"), reason(case.findtext("system-out") or ""))


summary = []
for line in sys.stdin:
    if summary or "% tests passed" in line:
        summary.append(line)
    else:
        print(line, end="", flush=True)
try:
    skipped = list(skips(sys.argv[1]))
    print("Skipped: %d" % len(skipped), *skipped, sep="\n")
except (OSError, xml.etree.ElementTree.ParseError) as error:
    print("Skipped: not known, ctest left no report:", error)
print()
print("".join(summary), end="")
