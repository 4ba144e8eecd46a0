#!/usr/bin/env python3
"""Runs what stands in the fenced blocks of all documents, and follows their links.

A block is a program (c, cpp, python), commands (sh), or data (json, toml), or it is only shown (text); blocks.py has the
comments by which a document says more. The blocks of a document are run in order, in one folder.
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import sys
import tempfile
import tomllib
from collections import Counter
from collections.abc import Callable
from dataclasses import dataclass, field

import configuration
from blocks import BadDocument, Block, commands, read_blocks
from links import broken_links
from workbench import Failure, Workbench

@dataclass
class Outcome:
    name: str
    counts: Counter[str] = field(default_factory=Counter)
    not_run: list[str] = field(default_factory=list)
    failures: list[str] = field(default_factory=list)


def _loosely(text: str) -> list[str]:
    """Its lines, in which any number and any folder is like another."""
    lines = (re.sub(r"\d+", "0", re.sub(r"[\w./~-]*/", "", line)).split() for line in text.split("\n"))
    return [" ".join(words) for words in lines if words]


class Document:
    """Runs the blocks of one document."""

    def __init__(self, bench: Workbench) -> None:
        self._bench = bench
        self._written = ""  # by the commands of the last block of commands
        self._kinds: dict[str, Callable[[Block], None]] = {
            "sh": self._commands,
            "c": lambda block: self._compile(block, ["cc", "-std=c11"], ".c"),
            "cpp": lambda block: self._compile(block, ["c++", "-std=c++20"], ".cc"),
            "python": self._python,
            "json": self._json,
            "toml": self._toml,
            "text": lambda block: None,
        }

    def run(self, block: Block) -> None:
        if block.language not in self._kinds:
            raise Failure(f"the test does not know the language {block.language}: mark the block as not run, and say why")
        for command in commands(block.marks.get("prepare", "")):
            self._bench.run(command)
        if "file" in block.marks:
            (self._bench.work / block.marks["file"]).write_text(self._bench.stand_ins(block.text), encoding="utf-8")
        if "output" in block.marks:
            self._compare(block)
        self._kinds[block.language](block)

    def _commands(self, block: Block) -> None:
        lines = commands(block.text)
        self._written = ""
        for line in lines:
            code = int(block.marks.get("exit", "0")) if line is lines[-1] else 0
            self._written += self._bench.run(line, code)

    def _compile(self, block: Block, compiler: list[str], suffix: str) -> None:
        source = self._bench.work / f"block{block.line}{suffix}"
        program = source.with_suffix("")
        source.write_text(self._bench.stand_ins(block.text), encoding="utf-8")
        compiler += ["-Wall", "-Wextra", "-Werror"]
        if not re.search(r"\bmain\(", block.text):
            self._bench.call([*compiler, "-fsyntax-only", str(source)])
            return
        self._bench.call([*compiler, "-o", str(program), str(source), "-lvesk", "-lornsupport", "-lcrypto"])
        if "file" not in block.marks:  # which commands of the document run
            self._bench.call([str(program)])

    def _python(self, block: Block) -> None:
        program = self._bench.work / f"block{block.line}.py"
        program.write_text(f"port = {self._bench.port}\n{self._bench.stand_ins(block.text)}", encoding="utf-8")
        self._bench.call([sys.executable, str(program)])

    def _json(self, block: Block) -> None:
        try:
            json.loads(block.text)
        except ValueError as error:
            raise Failure(f"no JSON: {error}") from error

    def _toml(self, block: Block) -> None:
        try:
            keys = tomllib.loads(block.text).keys()
        except ValueError as error:
            raise Failure(f"no TOML: {error}") from error
        if keys <= configuration.SECTIONS:
            assert self._bench.port  # whose certificates it names
            file = self._bench.work / f"block{block.line}.toml"
            file.write_text(configuration.complete(block.text, self._bench.certificates), encoding="utf-8")
            self._bench.call(["veskd", "serve", "--check", "--config", str(file)])

    def _compare(self, block: Block) -> None:
        written = [*_loosely(self._written), "..."]
        missing = [line for line in _loosely(self._bench.stand_ins(block.text)) if line not in written]
        if missing:
            raise Failure("\n".join(["does not come, but for numbers and folders:", *missing, "but:", self._written]))


def _run_document(path: pathlib.Path, source: pathlib.Path, build: pathlib.Path) -> Outcome:
    name = str(path.relative_to(source))
    outcome = Outcome(name)
    outcome.failures += [f"{name}: the link {link} leads nowhere" for link in broken_links(path)]
    try:
        blocks = read_blocks(path)
    except BadDocument as error:
        outcome.failures.append(f"{name}: {error}")
        return outcome
    if not blocks:
        return outcome
    with tempfile.TemporaryDirectory() as root, Workbench(source, build, pathlib.Path(root)) as bench:
        document = Document(bench)
        for block in blocks:
            if "not run" in block.marks:
                outcome.not_run.append(f"{name}:{block.line}: {block.marks['not run']}")
                continue
            try:
                document.run(block)
            except Failure as failure:
                # What follows builds on it.
                outcome.failures.append(f"{name}:{block.line}: {failure}")
                break
            outcome.counts["shown" if block.language == "text" and "output" not in block.marks else "run"] += 1
    return outcome


def _documents(source: pathlib.Path) -> list[pathlib.Path]:
    found = []
    for folder, folders, files in os.walk(source):
        folders[:] = [name for name in folders if name != "build" and not name.startswith(".")]
        found += [pathlib.Path(folder, name) for name in files if name.endswith(".md")]
    return sorted(found)


def run(source: pathlib.Path, build: pathlib.Path) -> int:
    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        outcomes = list(threads.map(lambda path: _run_document(path, source, build), _documents(source)))
    counts = sum((outcome.counts for outcome in outcomes), Counter())
    not_run = [line for outcome in outcomes for line in outcome.not_run]
    failures = [line for outcome in outcomes for line in outcome.failures]
    print(f"{len(outcomes)} documents; blocks: {counts['run']} run, {counts['shown']} only shown, {len(not_run)} not run")
    for line in not_run:
        print(f"not run: {line}")
    for line in failures:
        print(f"FAILED: {line}")
    return 1 if failures else 0


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--source", required=True, type=pathlib.Path, help="where the documents are")
    parser.add_argument("--build", required=True, type=pathlib.Path, help="where libraries and programs were built")
    arguments = parser.parse_args()
    return run(arguments.source.resolve(), arguments.build.resolve())


if __name__ == "__main__":
    sys.exit(main())
