"""The fenced blocks of a document, with what comments in front of them tell the test.

A comment stands in the line before its block, or before another such comment, and nobody sees it in the rendered page:

  <!-- not run: REASON -->    the block is only counted
  <!-- prepare: COMMANDS -->  what has to be done first, a command a line
  <!-- exit: CODE -->         how the last command of the block ends, if not with 0
  <!-- file: NAME -->         the block is kept under that name, for the commands that follow
  <!-- output -->             the block is what the commands of the block before write, but for numbers, folders, and
                              what stands at lines of three dots
"""

import pathlib
import re
import textwrap
from dataclasses import dataclass, field

_FENCE = re.compile(r"^ *(`{3,}|~{3,}) *(\S*)")
_MARK = re.compile(r"^(not run|prepare|exit|file|output)(?:: *(.*))?$", re.DOTALL)
_COMMAND = re.compile(r"^(vesk|veskd|make) ")
_NEED_TEXT = ("not run", "prepare", "exit", "file")


class BadDocument(Exception):
    pass


@dataclass
class Block:
    line: int
    language: str
    text: str
    marks: dict[str, str] = field(default_factory=dict)


def _read_mark(comment: str, line: int) -> tuple[str, str]:
    mark = _MARK.match(comment.strip())
    if not mark or (mark[1] in _NEED_TEXT and not mark[2]):
        raise BadDocument(f"line {line}: the comment before a block says nothing to the test: {comment.strip()}")
    return mark[1], (mark[2] or "").strip()


def _language(tag: str, text: str, line: int, marks: dict[str, str]) -> str:
    if tag or "not run" in marks:
        return tag
    if _COMMAND.match(text):
        return "sh"
    raise BadDocument(f"line {line}: the block has no language; text is for what is only shown")


def read_blocks(path: pathlib.Path) -> list[Block]:
    lines = path.read_text(encoding="utf-8").split("\n")
    blocks: list[Block] = []
    comments: list[tuple[str, int]] = []
    at = 0
    while at < len(lines):
        fence = _FENCE.match(lines[at])
        begin = at
        if lines[at].startswith("<!--"):
            while "-->" not in lines[at]:
                at += 1
                if at == len(lines):
                    raise BadDocument(f"line {begin + 1}: the comment does not end")
            comment = "\n".join(lines[begin : at + 1])
            comments.append((comment.removeprefix("<!--").rpartition("-->")[0], begin + 1))
        elif fence:
            at += 1
            while at < len(lines) and lines[at].strip() != fence[1]:
                at += 1
            if at == len(lines):
                raise BadDocument(f"line {begin + 1}: the block does not end")
            text = textwrap.dedent("\n".join(lines[begin + 1 : at]) + "\n")
            marks = dict(_read_mark(*comment) for comment in comments)
            blocks.append(Block(begin + 1, _language(fence[2], text, begin + 1, marks), text, marks))
            comments = []
        else:
            comments = []
        at += 1
    return blocks


def commands(text: str) -> list[str]:
    """The commands of a block, a line each; a backslash at its end joins a line with the next."""
    lines = (line.strip() for line in text.replace("\\\n", " ").split("\n"))
    return [line for line in lines if line and not line.startswith("#")]
