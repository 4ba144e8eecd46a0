#!/usr/bin/env python3
"""Makes a folder for the browser out of the manual pages: a file for each, with links between them, and an index."""

import argparse
import html
import pathlib
import re
import subprocess
import sys

_FOLDER = pathlib.Path(__file__).parent
_HEADINGS = {"1": "Commands", "8": "Servers", "5": "Files", "3": "Calls"}
_NAME = re.compile(r"^\.SH NAME\n(?:\.\w+ )?(.*?) \\- (.*)$", re.MULTILINE)
_REFERENCE = re.compile(r"<b>([\w-]+)</b>\((\d)\)")
_STYLE = (
    "body { max-width: 50em; margin: 2em auto; padding: 0 1em; font-family: sans-serif; line-height: 1.4; }\n"
    "h1 { font-size: 1.2em; } a.permalink { color: inherit; text-decoration: none; } table { text-align: left; }\n"
)


def _file(name: str, section: str) -> str:
    return f"{name}.{section}.html"


def _page(path: pathlib.Path, names: set[str]) -> str:
    page = subprocess.run(["mandoc", "-Thtml", path], check=True, capture_output=True, text=True, timeout=60).stdout

    def link(reference: re.Match) -> str:
        if f"{reference[1]}.{reference[2]}" not in names:
            return reference[0]
        return f'<a href="{_file(reference[1], reference[2])}">{reference[1]}</a>({reference[2]})'

    # Within a block that keeps its line breaks, each of them is there twice.
    page = page.replace("\n<br/>\n", "\n").replace("</style>", f"{_STYLE}</style>")
    return _REFERENCE.sub(link, page)


def _index(pages: list[pathlib.Path]) -> str:
    parts = []
    for section, heading in _HEADINGS.items():
        rows = ""
        for path in pages:
            name = path.stem
            if path.suffix == f".{section}":
                told = _NAME.search(path.read_text(encoding="utf-8"))
                if not told:
                    raise ValueError(f"{path.name} does not say what it is about")
                about = html.escape(told[2].replace("\\-", "-").replace("\\&", ""))
                rows += f'<tr><td><a href="{_file(name, section)}">{name}</a></td><td>{about}</td></tr>\n'
        parts.append(f"<h2>{heading}</h2>\n<table>\n{rows}</table>\n")
    return (
        f'<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8"/>\n<title>libvesk</title>\n'
        f"<style>\n{_STYLE}</style>\n</head>\n<body>\n<h1>libvesk</h1>\n{''.join(parts)}</body>\n</html>\n"
    )


def make_reference(pages: list[pathlib.Path], folder: pathlib.Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    names = {path.name for path in pages}
    for path in pages:
        (folder / f"{path.name}.html").write_text(_page(path, names), encoding="utf-8")
    (folder / "index.html").write_text(_index(pages), encoding="utf-8")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=pathlib.Path, help="made if it is not there")
    arguments = parser.parse_args()
    pages = sorted(_FOLDER.glob("*.[1-8]"))
    if not pages:
        sys.exit(f"there are no manual pages in {_FOLDER}")
    make_reference(pages, arguments.folder)
    print(arguments.folder / "index.html")
    return 0


if __name__ == "__main__":
    sys.exit(main())
