"""Prints what the benchmarks measured: python3 bench/report [--summary FILE] [--page FILE] JSON ...

--summary writes medians and spreads as JSON. --page fills the tables and plots of that page.
"""
import argparse
import json
import sys

import page
import results
import table


def main():
    parser = argparse.ArgumentParser(prog="report", description=__doc__.splitlines()[0])
    parser.add_argument("--summary", help="JSON with medians and spreads")
    parser.add_argument("--page", help="Markdown page to fill")
    parser.add_argument("files", nargs="+", help="what the benchmarks wrote")
    arguments = parser.parse_args()
    cases, compilers, is_quick = results.read(arguments.files)
    print(table.terminal(cases))
    if is_quick:
        print("\nA quick run: it shows that all of it works. The figures mean nothing.")
    if arguments.summary:
        with open(arguments.summary, "w", encoding="utf-8") as file:
            json.dump(results.summary(cases), file, indent=1)
    if arguments.page:
        page.fill(arguments.page, cases, compilers)
    return 0 if cases else 1


if __name__ == "__main__":
    sys.exit(main())
