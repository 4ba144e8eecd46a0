#!/usr/bin/env python3
"""Makes the manual pages from the help of the programs and the comments of the headers, or checks that the pages in this
folder are those. vesk-context.5 is written by hand."""

import argparse
import pathlib
import sys

from call_pages import CallPages
from program_pages import vesk_page, veskd_page

_FOLDER = pathlib.Path(__file__).parent
_SOURCES = _FOLDER.parent.parent
_BY_HAND = "vesk-context.5"


def made_pages(arguments):
    calls = CallPages(_SOURCES / "orn/vesk.h", _SOURCES / "orn/status.h", arguments.version)
    return {
        "vesk.1": vesk_page(arguments.vesk, arguments.version),
        "veskd.8": veskd_page(arguments.veskd, arguments.version),
        **calls.pages(),
    }


def kept_pages():
    return {path.name: path.read_text(encoding="utf-8") for path in _FOLDER.glob("*.[1-8]") if path.name != _BY_HAND}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--vesk", required=True, help="the program")
    parser.add_argument("--veskd", required=True, help="the program")
    parser.add_argument("--version", required=True, help="of the project")
    parser.add_argument("--check", action="store_true", help="write nothing; fail when the pages are others")
    arguments = parser.parse_args()
    made, kept = made_pages(arguments), kept_pages()
    changed = sorted(name for name in made.keys() | kept.keys() if made.get(name) != kept.get(name))
    if arguments.check:
        for name in changed:
            print(f"docs/man/{name} is out of date; the target man makes it anew", file=sys.stderr)
        return 1 if changed else 0
    for name in changed:
        if name in made:
            (_FOLDER / name).write_text(made[name], encoding="utf-8")
        else:
            (_FOLDER / name).unlink()
    return 0


if __name__ == "__main__":
    sys.exit(main())
