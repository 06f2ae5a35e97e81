"""Divides the library's median time by that of each floor and peer of its group.

Reads the JSON files of the benchmarks. A name is group/variant, then its arguments.
"""
import json
import sys

medians = {}
failed = False
for path in sys.argv[1:]:
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    for run in runs:
        group, variant, *arguments = run["run_name"].split("/")
        if run.get("error_occurred"):
            print(f"{run['run_name']}: {run['error_message']}", file=sys.stderr)
            failed = True
        elif run.get("aggregate_name") == "median":
            case = " ".join([group, *(a for a in arguments if not a.startswith("repeats:"))])
            medians.setdefault(case, {})[variant] = run["real_time"]

print(f"{'case':28}{'library':>12}   library / other")
for case, variants in sorted(medians.items()):
    library = variants.pop("library")
    ratios = "  ".join(f"{name} {library / time:.3g}" for name, time in variants.items())
    print(f"{case:28}{library:9.1f} ns   {ratios}")
sys.exit(failed)
