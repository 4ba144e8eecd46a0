"""libvesk(3) and a page for each public call, from the comments of the headers."""

import re

import roff
from header_text import read_header, read_statuses

_LIBRARY = "libvesk"
_ITEM = re.compile(r"^(\w+(?:, \w+)*| {2}\S+(?: \S+)*) {2,}(\S.*)$")
_RETURNS = re.compile(r"(?:^|(?<=[.;] )|(?<=\) ))Returns?\b.*", re.DOTALL)


def _paragraphs(text):
    return [paragraph.split("\n") for paragraph in re.split(r"\n\s*\n", text) if paragraph.strip()]


def _entries(lines):
    """(names, text) of a paragraph that lists arguments; none of any other. What follows a list has no indentation."""
    entries = []
    for line in lines:
        begins = _ITEM.match(line)
        if begins:
            entries.append([begins[1].strip(), begins[2]])
        elif not entries:
            return []
        else:
            entries[-1][1] += " " + line.strip()
    return entries


def _split(text):
    """The parts of a comment: paragraphs of description, arguments, what is said of these, what the call returns."""
    description, arguments, remarks, returns = [], [], [], []
    for lines in _paragraphs(text):
        entries = _entries(lines)
        if entries:
            arguments += entries
            continue
        paragraph = " ".join(line.strip() for line in lines)
        told = _RETURNS.search(paragraph)
        if told:
            returns.append(told[0])
            paragraph = paragraph[:told.start()].strip()
        if paragraph:
            (remarks if arguments else description).append(paragraph)
    return description, arguments, remarks, returns


def _mixed(lines):
    """A paragraph in which indented lines are a list."""
    parts, plain = [], []
    for line in [*lines, ""]:
        entry = _ITEM.match(line) if line.startswith("  ") else None
        if (entry or not line) and plain:
            parts.append(roff.prose(" ".join(plain)))
            plain = []
        if entry:
            parts.append(roff.item(entry[1].strip(), entry[2]))
        else:
            plain.append(line)
    return parts


def _first_sentence(text):
    sentence = re.split(r"(?<=[a-z)])[.:;] |\.$", text, maxsplit=1)[0]
    return sentence[0].lower() + sentence[1:]


def _wrapped_prototype(prototype, width=78):
    """To the letter, but for the line breaks."""
    head, arguments = " ".join(prototype.split()).split("(", 1)
    *others, last = arguments.split(", ")
    lines, line = [], f"{head}("
    for piece in [f"{argument}," for argument in others] + [last]:
        separator = "" if line.endswith("(") else " "
        if separator and len(line) + 1 + len(piece) > width:
            lines.append(line)
            line, separator = "   ", " "
        line += separator + piece
    return [*lines, line]


def _connection_arguments(header):
    for lines in _paragraphs(header.comment):
        shared = [line for line in lines if re.match(r"^  \w+ {2,}\S", line)]
        if shared and shared[0].split()[0] == "paths":
            return _entries(shared)
    raise ValueError("the header's comment does not tell the arguments that all calls have")


def _threads(header):
    told = next(" ".join(lines).removeprefix("Threads: ")
                for lines in _paragraphs(header.comment) if lines[0].startswith("Threads:"))
    return told[0].upper() + told[1:]


def _statuses_in(texts, statuses):
    """Those that the text names, in its order."""
    named = list(dict.fromkeys(re.findall(r"\bERR_\w+", " ".join(texts))))
    return [(name, *statuses[name]) for name in named]


def _errors(entries, connects):
    items = [roff.item(f"{name} ({value})", sentence) for name, value, sentence in entries]
    if connects:
        items.append(roff.item("CONN_ERR_ codes", "the connection could not be made, or sending or reading failed: "
                               "libvesk(3) lists them"))
    return roff.section("ERRORS", *items) if items else ""


class CallPages:
    """What the pages of a header's calls need to know."""

    def __init__(self, header_path, status_path, version):
        self.header = read_header(header_path)
        self.statuses = read_statuses(status_path)
        self.version = version

    def pages(self):
        """Text by file name."""
        made = {f"{_LIBRARY}.3": self._library_page()}
        before = None
        for call in self.header.calls:
            made[f"{call.name}.3"] = self._call_page(call, before)
            before = call
        return made

    def _title(self, name):
        return roff.title(name, 3, f"{_LIBRARY} {self.version}", "vesk")

    def _told(self, call):
        """What is said of the call alone, or else of all under its heading."""
        return _split(call.comment or call.prologue)

    def _call_page(self, call, before):
        description, arguments, remarks, returns = self._told(call)
        if description and description[0].startswith("The same "):
            shared_description, shared_arguments, remarks, shared_returns = self._told(before)
            description = [*shared_description, *description]
            arguments, returns = [*arguments, *shared_arguments], [*returns, *shared_returns]
        elif call.comment:
            more_description, _, _, _ = _split(call.prologue)
            description = [*description, *more_description]
        # Other calls that share the text have other arguments.
        known = re.findall(r"\b(\w+)\s*[,)]", call.prototype.split("(", 1)[1])
        arguments = [entry for entry in arguments if self._is_meant(entry[0], known)]
        connects = {"paths", "host", "port"} <= set(known)
        if connects:
            arguments = _connection_arguments(self.header) + arguments
        refers = re.search(r"what (q\w+) does", " ".join(returns))
        if refers:
            other = next(other for other in self.header.calls if other.name == refers[1])
            returns = [*returns, *self._told(other)[3]]
        return "".join([
            self._title(call.name),
            roff.section("NAME", roff.name(call.name, _first_sentence((description or returns)[0]))),
            roff.section("SYNOPSIS", roff.lines(["#include <orn/vesk.h>", "", *_wrapped_prototype(call.prototype)]),
                         roff.prose("Link with -lvesk -lornsupport.")),
            roff.section("DESCRIPTION", *map(roff.prose, description)) if description else "",
            roff.section("ARGUMENTS", *(roff.item(names, text) for names, text in arguments),
                         *map(roff.prose, remarks)) if arguments else "",
            roff.section("RETURN VALUE", *map(roff.prose, returns)) if returns else "",
            _errors(_statuses_in(returns, self.statuses), connects),
            roff.section("THREADS", roff.prose(_threads(self.header))),
            roff.section("SEE ALSO", roff.references([(name, 3) for name in [*self._beside(call), _LIBRARY]])),
        ])

    def _beside(self, call):
        return [other.name for other in self.header.calls if other.section == call.section and other is not call]

    @staticmethod
    def _is_meant(names, known):
        # The header numbers the sixteen fields with NN.
        return any(name in known or name.replace("NN", "01") in known for name in names.split(", "))

    def _library_page(self):
        described = _paragraphs(self.header.comment)
        about = " ".join(described[0]).removeprefix("libvesk: ")
        parts = [part for lines in described[1:] for part in _mixed(lines)]
        return "".join([
            self._title(_LIBRARY),
            roff.section("NAME", roff.name(_LIBRARY, "the client side of network key management")),
            roff.section("SYNOPSIS", roff.lines(["#include <orn/vesk.h>"]), roff.prose("Link with -lvesk -lornsupport.")),
            roff.section("DESCRIPTION", roff.prose(about[0].upper() + about[1:]), *parts),
            self._list_of_calls(),
            roff.section("TYPES AND DATA", *(part for declaration, comment in self.header.others
                                             for part in (roff.lines(declaration.split("\n")), roff.prose(comment)))),
            roff.section("STATUSES", *(roff.item(f"{name} ({value})", sentence)
                                       for name, (value, sentence) in self.statuses.items())),
            roff.section("SEE ALSO", roff.references([("vesk", 1), ("veskd", 8)])),
        ])

    def _list_of_calls(self):
        text = ".SH CALLS\n"
        for name in dict.fromkeys(call.section for call in self.header.calls):
            calls = [(call.name, 3) for call in self.header.calls if call.section == name]
            text += roff.subsection(name, roff.references(calls))
        return text
