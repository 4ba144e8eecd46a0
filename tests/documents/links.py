"""Whether the links of a document lead somewhere within the sources."""

import pathlib
import re

_FENCED = re.compile(r"^ *(```+|~~~+).*?^ *\1 *$", re.DOTALL | re.MULTILINE)
_LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")
_HEADING = re.compile(r"^#+ +(.*?) *$", re.MULTILINE)


def _prose(path: pathlib.Path) -> str:
    return _FENCED.sub("", path.read_text(encoding="utf-8"))


def _anchors(path: pathlib.Path) -> set[str]:
    """Those that the usual renderers give to headings."""
    headings = (re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading) for heading in _HEADING.findall(_prose(path)))
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def broken_links(path: pathlib.Path) -> list[str]:
    broken = []
    for link in _LINK.findall(_prose(path)):
        if re.match(r"[a-z]+:", link):
            continue
        name, _, anchor = link.partition("#")
        target = path.parent / name if name else path
        if not target.exists() or (anchor and target.suffix == ".md" and anchor not in _anchors(target)):
            broken.append(link)
    return broken
