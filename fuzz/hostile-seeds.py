#!/usr/bin/env python3
"""Writes the archives that chain links to climb out of the destination into the unzip seed corpus.

Each one lists its entries in the order an attacker needs them: links first, then the entry that walks
through them. Usage: fuzz/hostile-seeds.py [CORPUS_DIR]
"""
import pathlib
import sys
import zipfile

corpus = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent / "corpus/unzip")


def entry(name, mode):
    info = zipfile.ZipInfo(name, date_time=(2021, 1, 1, 0, 0, 0))
    info.create_system = 3
    info.external_attr = mode << 16
    return info


def link(name, target):
    return entry(name, 0o120777), target.encode()


def file(name, content=b"escaped"):
    return entry(name, 0o100644), content


def folder(name, mode=0o777):
    return entry(name, 0o040000 | mode), b""


seeds = {
    "chained-parent": [link("l", "."), file("new/../l/../escaped.txt")],
    "chained-four-up": [
        link("l", "."),
        link("n1/../l/../u1", "."),
        link("n2/../l/../u1/../u2", "."),
        link("n3/../l/../u1/../u2/../u3", "."),
        file("m/../l/../u1/../u2/../u3/../x"),
    ],
    "chained-folder-mode": [link("l", "."), folder("m/../l/../existing/")],
    "chained-link-target": [link("x", "."), link("y", "x/../secret.txt")],
    "chained-dangling-first": [link("y", "x/../secret.txt"), link("x", ".")],
    "chained-link-into-file": [link("l", "."), link("m/../l/../secret.txt", "."), file("secret.txt")],
    "inside-links": [
        folder("docs/", 0o555),
        file("docs/a.txt", b"a"),
        link("docs/b", "a.txt"),
        link("top", "docs/a.txt"),
        link("self", "."),
        link("through", "self/docs/b"),
        file("via/../docs/c.txt", b"c"),
    ],
}

corpus.mkdir(parents=True, exist_ok=True)
for name, entries in seeds.items():
    with zipfile.ZipFile(corpus / f"{name}.zip", "w") as archive:
        for info, content in entries:
            archive.writestr(info, content)
