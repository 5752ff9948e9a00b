#!/usr/bin/env python3
"""Writes the package's changelog.gz from the release notes of the AppStream metainfo, newest first,
so that the notes are written once.

usage: debian-changelog.py METAINFO PACKAGE MAINTAINER OUTPUT
"""

import datetime
import email.utils
import gzip
import sys
import textwrap
import xml.etree.ElementTree as ElementTree


def entry(package, maintainer, release):
    lines = []
    description = release.find("description")
    for element in description.iter() if description is not None else []:
        if element.tag in ("p", "li") and element.text:
            text = " ".join(element.text.split())
            lines += textwrap.wrap(text, 76, initial_indent="  * ", subsequent_indent="    ")
    if not lines:
        lines = ["  * Release " + release.get("version") + "."]
    day = datetime.datetime.strptime(release.get("date"), "%Y-%m-%d").replace(tzinfo=datetime.timezone.utc)
    return (f"{package} ({release.get('version')}) stable; urgency=medium\n\n" + "\n".join(lines) +
            f"\n\n -- {maintainer}  {email.utils.format_datetime(day)}\n")


def main():
    metainfo, package, maintainer, output = sys.argv[1:]
    releases = ElementTree.parse(metainfo).getroot().find("releases")
    text = "\n".join(entry(package, maintainer, release) for release in releases.findall("release"))
    # No name or date in the header, so that two builds give the same bytes.
    with open(output, "wb") as raw:
        with gzip.GzipFile(filename="", mode="wb", compresslevel=9, fileobj=raw, mtime=0) as packed:
            packed.write(text.encode("utf-8"))


if __name__ == "__main__":
    main()
