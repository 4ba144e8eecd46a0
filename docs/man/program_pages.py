"""The pages of the programs, from their help."""

import re

import roff
from help_text import leaves, read_help

# That these options are understood everywhere is said once, and so is what the page's own sections tell.
_SAID_ELSEWHERE = "Connection and output options"
_HELP = "-h,--help"

_VESKD = {
    "about":
        "Serves keys to clients over mutually authenticated TLS until it is ended by SIGTERM or SIGINT. SIGHUP has "
        "veskd serve read its configuration and its certificates again. The other commands work on a store, while a "
        "server runs or not.",
    "exit": [("0", "done"), ("1", "a fault, which standard error names"), ("2", "the command line is wrong")],
}


def _items(items):
    return "".join(roff.item(name, text) for name, text in items.entries if name != _HELP)


def _need(items):
    return roff.prose("One of these is needed, and no more:") if items.needs_one else ""


def _command(leaf):
    lists = [part for items in leaf.lists for part in (_need(items), _items(items))]
    details = [roff.prose(text) for text in leaf.paragraphs if not text.startswith(_SAID_ELSEWHERE)]
    usage = leaf.usage.replace(" [OPTIONS]", "", 1) if not any(lists) else leaf.usage
    return roff.subsection(usage, roff.prose(leaf.summary + "."), *lists, *details,
                           roff.example(leaf.examples) if leaf.examples else "")


def _commands(help_):
    return ".SH COMMANDS\n" + "".join(map(_command, leaves(help_)))


def _options(help_):
    return roff.section("OPTIONS", "".join(
        _items(items) for items in help_.lists if items.heading != "Exit codes"))


def _environment(help_):
    """The variables that the texts of the options name."""
    variables = [(variable, name.split()[0])
                 for items in help_.lists
                 for name, text in items.entries
                 for variable in re.findall(r"\(or (VESK_\w+)\)", text)]
    return roff.section(
        "ENVIRONMENT", *(roff.item(variable, f"in the place of {option}, which comes before it")
                         for variable, option in variables),
        roff.item("VESK_COMPLETION_SECONDS", "for how long the completion of names may ask a server, 1 to 60 [1]"),
        roff.item("NO_COLOR", "no colours, if it is not empty"),
        roff.item("XDG_CONFIG_HOME", "the folder in which vesk/contexts.toml is [~/.config]"))


def _exit_status(entries):
    return roff.section("EXIT STATUS", *(roff.item(code, text) for code, text in entries))


def vesk_page(program, version):
    help_ = read_help(program, ["vesk"])
    exit_codes = next(items for items in help_.lists if items.heading == "Exit codes")
    return (roff.title("vesk", 1, f"vesk {version}", "vesk") +
            roff.section("NAME", roff.name("vesk", "administers a key server")) +
            roff.section("SYNOPSIS", roff.lines([help_.usage, "vesk COMMAND --help"])) +
            roff.section("EXAMPLES", roff.example(help_.examples)) +
            roff.section("DESCRIPTION", roff.prose(
                "Makes one call of libvesk per run and tells what came of it. Data goes to standard output, everything "
                "else to standard error. Options may stand before or behind the command.")) +
            _options(help_) + _commands(help_) + _environment(help_) + _exit_status(exit_codes.entries) +
            roff.section("FILES", roff.item("~/.config/vesk/contexts.toml", "the contexts, see vesk-context(5)")) +
            roff.section("SEE ALSO", roff.references([("vesk-context", 5), ("libvesk", 3), ("veskd", 8)])))


def veskd_page(program, version):
    help_ = read_help(program, ["veskd"])
    return (roff.title("veskd", 8, f"veskd {version}", "vesk") +
            roff.section("NAME", roff.name("veskd", "a key server")) +
            roff.section("SYNOPSIS", roff.lines([help_.usage.replace("SUBCOMMAND", "COMMAND"), "veskd COMMAND --help"])) +
            roff.section("DESCRIPTION", roff.prose(_VESKD["about"])) +
            _options(help_) + _commands(help_) + _exit_status(_VESKD["exit"]) +
            roff.section("SEE ALSO", roff.references([("vesk", 1), ("libvesk", 3)])))
