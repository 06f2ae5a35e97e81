#!/usr/bin/env python3
"""Follows the links of every page to other files of the sources, and to their headings.

Usage: links.py SOURCES
"""
import pathlib
import re
import sys

SOURCES = pathlib.Path(sys.argv[1]).resolve()
LINK = re.compile(r"(!?)\[([^\]]*)\]\(([^)#\s]*)(?:#([^)\s]+))?\)")


def text_of(page):
    """Without blocks and spans of code, which can look like links."""
    text = re.sub(r"^```.*?^```", "", page.read_text(encoding="utf-8"), flags=re.M | re.S)
    return re.sub(r"`[^`\n]*`", "", text)


def anchors_of(page):
    """As the usual readers of Markdown make them from the headings."""
    headings = re.findall(r"^#+ (.*)$", page.read_text(encoding="utf-8"), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def faults_of(page):
    for picture, text, path, anchor in LINK.findall(text_of(page)):
        if path.startswith(("http:", "https:", "mailto:")):
            continue
        target = (page.parent / path).resolve() if path else page
        if not target.exists():
            yield "there is no " + path
        elif anchor and anchor not in anchors_of(target):
            yield "%s has no heading %s" % (target.name, anchor)
        if picture and not text.strip():
            yield "no text for the picture " + path


def main():
    pages = [*SOURCES.glob("*.md"), *SOURCES.glob("docs/**/*.md")]
    faults = ["%s: %s" % (page.relative_to(SOURCES), fault) for page in sorted(pages) for fault in faults_of(page)]
    print(*faults, sep="\n", end="\n" if faults else "")
    print("%d pages, %d faults" % (len(pages), len(faults)))
    return 1 if faults or len(pages) < 8 else 0


if __name__ == "__main__":
    sys.exit(main())
