"""Reads a public header: its calls with their comments."""

import re
from dataclasses import dataclass, field


@dataclass
class Call:
    name: str
    prototype: str
    section: str  # the heading it stands under
    prologue: str  # what that heading says of all its calls
    comment: str


@dataclass
class Header:
    comment: str
    calls: list = field(default_factory=list)
    others: list = field(default_factory=list)  # (declaration, comment) of types and data


# A comment, a call, or a type or data.
_TOKEN = re.compile(r"/\*(.*?)\*/|([^;{}/]+?\([^;{}]*?\);)|(typedef struct \w+ \{[^}]*\} \w+;|[^;{}/]+;)", re.DOTALL)
_BEHIND_CODE = re.compile(r";[ ]*/\*[^\n]*?\*/")
_HEADING = re.compile(r"^---- (.*?) -+\s*(.*)$", re.DOTALL)


def comment_text(raw):
    """Without the asterisks, with its lines and their indentation."""
    lines = raw.strip("\n").split("\n")
    return "\n".join([lines[0].strip()] + [re.sub(r"^ \* ?", "", line).rstrip() for line in lines[1:]]).strip()


def read_header(path):
    text = open(path, encoding="utf-8").read()
    text = re.sub(r"(?:(?<=\n)|^)#.*?(?<!\\)\n", "\n", text).replace('extern "C" {', "")
    text = _BEHIND_CODE.sub(";", text)
    header = None
    section = prologue = comment = ""
    for token in _TOKEN.finditer(text):
        if token[1] is not None:
            said = comment_text(token[1])
            heading = _HEADING.match(said)
            if header is None:
                header = Header(said)
            elif heading:
                section, prologue, comment = heading[1], heading[2].strip(), ""
            else:
                comment = said
        elif token[2] is not None:
            prototype = token[2].strip()
            name = re.search(r"(\w+)\(", prototype)[1]
            header.calls.append(Call(name, prototype, section, prologue, comment))
        elif comment:
            header.others.append((token[3].strip(), comment))
            comment = ""
    return header


def read_statuses(path):
    """name: (value, sentence), from the table that the enumerators are made from."""
    text = open(path, encoding="utf-8").read().replace("\\\n", " ")
    found = re.findall(r'X\((\w+), (-?\d+),\s*"([^"]*)"\)', text)
    return {name: (int(value), sentence) for name, value, sentence in found}
