"""Text to roff: the man macros that the pages use."""

import re
import textwrap

# Of the last change to what the pages say; set by hand, so that pages do not change with the day they are made on.
DATE = "2026-11-21"

_WIDTH = 100
_SPECIAL = {"\\": "\\e", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti"}


def _escape(text):
    text = "".join(_SPECIAL.get(character, character) for character in text)
    return "".join(character if ord(character) < 128 else f"\\[u{ord(character):04X}]" for character in text)


def _protect(line):
    """A line that begins so would be a request."""
    return "\\&" + line if line.startswith((".", "'")) else line


def literal(text):
    """What is typed or compiled as it stands: every hyphen is a minus, every quote an ASCII one."""
    return _escape(text).replace("-", "\\-").replace("'", "\\(aq")


def prose(text):
    """A paragraph; hyphens that begin options are minuses."""
    text = re.sub(r"(?<![\w-])-+(?=\w)", lambda dashes: dashes[0].replace("-", "\\-"), _escape(" ".join(text.split())))
    lines = textwrap.wrap(text, _WIDTH, break_long_words=False, break_on_hyphens=False)
    return "\n".join(map(_protect, lines)) + "\n"


def title(name, section, source, manual):
    return f'.\\" Made by docs/man/make_pages.py.\n.TH {name.upper()} {section} {DATE} "{source}" "{manual}"\n'


def name(what, about):
    return f"{literal(what)} \\- {_escape(about)}\n"


def section(name, *parts):
    return f".SH {name}\n" + _joined(parts)


def subsection(name, *parts):
    return f'.SS "{literal(name)}"\n' + _joined(parts)


def _joined(parts):
    """Paragraphs with .PP between them; a macro that begins a part separates by itself."""
    text = ""
    for part in filter(None, parts):
        separated = not text or part.startswith((".TP", ".PP", ".SS"))
        text += part if separated else ".PP\n" + part
    return text


def item(tag, text):
    return f'.TP\n.B "{literal(tag).replace(chr(34), chr(92) + "(dq")}"\n' + (prose(text) if text else "\\&\n")


def lines(texts):
    """Lines that stay as they are."""
    return ".nf\n" + "".join(_protect(literal(text)) + "\n" for text in texts) + ".fi\n"


def example(texts):
    return ".EX\n" + "".join(_protect(literal(text)) + "\n" for text in texts) + ".EE\n"


def references(pages):
    """Pages as (name, section)."""
    last = len(pages) - 1
    return "".join(
        f'.BR {literal(name)} ({number}){"," if index < last else ""}\n' for index, (name, number) in enumerate(pages))
