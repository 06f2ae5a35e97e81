"""Writes tables and plots into a page, between the marks that it has for them.

A mark is `<!-- table TARGET -->`, `<!-- plots TARGET -->`, `<!-- overview -->` or `<!-- machine -->`;
what stands between it and the next `<!-- end -->` is replaced. The words around are the page's own.
"""
import os
import platform
import re

import plot
import results
import table

MARK = re.compile(r"<!-- (machine|overview|table|plots)(?: (\w+))? -->\n.*?<!-- end -->", re.DOTALL)


def machine(compilers):
    """What the figures depend on, without a name that would tell whose machine it was."""
    model = "unknown processor"
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for row in file:
            if row.startswith("model name"):
                model = row.split(":", 1)[1].strip()
                break
    release = ".".join(platform.release().split(".")[:2])
    virtual = ", virtual" if "hypervisor" in open("/proc/cpuinfo", encoding="utf-8").read() else ""
    compiler = ", ".join(c.split(" ")[0].replace("g++", "") for c in compilers)
    return (f"{os.cpu_count()} processors ({model}{virtual}), Linux {release}, "
            f"compiler {compiler}, release build.")


def file_name(target, title):
    return re.sub(r"[^a-z0-9]+", "-", f"{target} {title}".lower()).strip("-") + ".svg"


def plots(cases, folder, target):
    """Draws every row of at least three cases, and returns the links to them."""
    links = []
    for row in results.groups([c for c in cases if c.target == target]):
        if len(row) < 3 or not plot.series(row):
            continue
        name = file_name(target, row[0].title)
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write(plot.lines(row))
        links.append(f"![{row[0].title}](performance/{name})")
    return "\n".join(links)


def fill(page, cases, compilers):
    """Fills the page's marks; its plots go into the folder `performance` beside it."""
    folder = os.path.join(os.path.dirname(page), "performance")
    os.makedirs(folder, exist_ok=True)

    def content(kind, target):
        if kind == "machine":
            return machine(compilers)
        if kind == "overview":
            drawing = plot.overview(cases)
            if drawing is None:
                return ""
            with open(os.path.join(folder, "overview.svg"), "w", encoding="utf-8") as file:
                file.write(drawing)
            return "![ratios of all cases](performance/overview.svg)"
        mine = [c for c in cases if c.target == target]
        return table.markdown(mine) if kind == "table" else plots(cases, folder, target)

    def replacement(match):
        mark = match.group(0).split("\n", 1)[0]
        # A target that was not measured this time keeps what it has.
        if match.group(2) and not any(c.target == match.group(2) for c in cases):
            return match.group(0)
        return f"{mark}\n{content(match.group(1), match.group(2))}\n<!-- end -->"

    with open(page, encoding="utf-8") as file:
        text = MARK.sub(replacement, file.read())
    with open(page, "w", encoding="utf-8") as file:
        file.write(text)
