#!/usr/bin/env python3
"""Draws the pictures of the pages by graphviz.

    pictures.py draw DIRECTORY     every .dot there to a .svg next to it
    pictures.py check DIRECTORY    or says whether each .svg shows what its .dot says

Two releases of graphviz place the same picture differently. So what is compared is what
stands in it: nodes, edges and clusters by name, and all their texts, in their order.
"""

import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def drawn(source):
    return subprocess.run(
        ["dot", "-Tsvg", str(source)], stdout=subprocess.PIPE, text=True, check=True
    ).stdout


def content(picture):
    """The names and texts in a picture. Graphviz's version stands in a comment, not here."""
    words = {"{http://www.w3.org/2000/svg}title", "{http://www.w3.org/2000/svg}text"}
    return [element.text for element in ElementTree.fromstring(picture).iter() if element.tag in words]


def main(verb, directory):
    sources = sorted(Path(directory).glob("*.dot"))
    good = bool(sources)
    for source in sources:
        target = source.with_suffix(".svg")
        if verb == "draw":
            target.write_text(drawn(source), encoding="utf-8")
        elif not target.exists() or content(target.read_text("utf-8")) != content(drawn(source)):
            print(f"{target} does not show what {source} says: {sys.argv[0]} draw {directory}")
            good = False
    return good


if __name__ == "__main__":
    sys.exit(0 if main(*sys.argv[1:]) else 1)
