"""Reads the help of a program and of all its commands, which is made from the tables that its parser has."""

import re
import subprocess
from dataclasses import dataclass, field


@dataclass
class Items:
    """What the help lists under a heading: (name, text)."""

    heading: str
    entries: list = field(default_factory=list)
    needs_one: bool = False  # and has it given alone


@dataclass
class Help:
    words: list
    summary: str = ""
    usage: str = ""
    examples: list = field(default_factory=list)
    lists: list = field(default_factory=list)
    paragraphs: list = field(default_factory=list)
    commands: list = field(default_factory=list)

    def spelled(self):
        return " ".join(self.words)


_COMMANDS = ("Commands", "Subcommands")
_HEADING = re.compile(r"^ *\[?([A-Z][\w :]*?)\]?:?$")
_ENTRY = re.compile(r"^ +(\S+(?: \S+)*)(?: {2,}(\S.*))?$")
# What the parser's help adds to the name of a value.
_CHOICES = re.compile(r"\b(?:TEXT|INT):(\{.*\})")
_REQUIRED = " REQUIRED"
_CHECK = re.compile(r":[A-Z]+\b")


def _name(text):
    return _CHECK.sub("", _CHOICES.sub(r"\1", text)).replace(_REQUIRED, "").replace(" ...", "...")


def _text(name, text):
    return f"{text} (required)" if _REQUIRED in name else text


def _read_items(help_, block):
    heading = _HEADING.match(block[0])[1]
    items = Items(heading.removeprefix("Option Group: "))
    for line in block[1:]:
        if line.strip().startswith("[Exactly 1 "):
            items.needs_one = True
        entry = _ENTRY.match(line)
        is_heading = _HEADING.match(line) and line.endswith(":")
        if is_heading or not line.strip() or line.strip().startswith("["):
            continue
        if heading.startswith("Option Group") and not line.strip().startswith("-"):
            continue
        if line.startswith(" " * 20) and items.entries:
            name, text = items.entries[-1]
            items.entries[-1] = (name, f"{text} {line.strip()}".strip())
        else:
            items.entries.append((_name(entry[1]), _text(entry[1], entry[2] or "")))
    help_.lists.append(items)


def _blocks(text):
    """Lines that belong together: up to an empty line or the next heading."""
    block = []
    for line in text.splitlines():
        starts_anew = re.match(r"^(Usage:|\[Option Group)", line)
        if block and (not line.strip() or starts_anew):
            yield block
            block = []
        if line.strip():
            block.append(line)
    if block:
        yield block


def _parsed(words, text):
    help_ = Help(words)
    for block in _blocks(text):
        if block[0] in ("Example:", "Examples:"):
            help_.examples = [line.strip() for line in block[1:]]
        elif block[0].startswith("Usage:"):
            help_.usage = block[0].removeprefix("Usage:").strip()
        elif len(block) > 1 and _HEADING.match(block[0]) and block[1].startswith(" "):
            _read_items(help_, block)
        elif not help_.usage:
            help_.summary = " ".join(block)
        else:
            help_.paragraphs.append(" ".join(line.strip() for line in block))
    return help_


def read_help(program, words):
    """The help of a command with those below it. words begin with the program's name."""
    text = subprocess.run([program, *words[1:], "--help"], check=True, capture_output=True, text=True, env={}).stdout
    help_ = _parsed(words, text)
    for items in help_.lists:
        if items.heading in _COMMANDS:
            help_.commands = [read_help(program, [*words, name]) for name, _ in items.entries]
    help_.lists = [items for items in help_.lists if items.heading not in _COMMANDS]
    return help_


def leaves(help_):
    if not help_.commands:
        return [help_]
    return [leaf for below in help_.commands for leaf in leaves(below)]
