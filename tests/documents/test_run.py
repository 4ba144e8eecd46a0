"""What the runner makes of documents that are right and of those that are not."""

import contextlib
import io
import os
import pathlib
import tempfile
import unittest

import run
from blocks import BadDocument, commands, read_blocks
from links import broken_links


class WithDocument(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.source = pathlib.Path(folder.name)
        for name in ("orn", "python"):
            (self.source / name).symlink_to(pathlib.Path(__file__).parents[2] / name)
        self.document = self.source / "document.md"


class Blocks(WithDocument):
    def read(self, text: str) -> list:
        self.document.write_text(text)
        return read_blocks(self.document)

    def test_have_a_language_and_marks(self) -> None:
        blocks = self.read(
            "Text\n\n<!-- prepare: one\ntwo -->\n<!-- exit: 3 -->\n```sh\nvesk ping\n```\n\n- list\n  ```c\n  int x;\n  ```\n"
        )
        self.assertEqual([(block.line, block.language) for block in blocks], [(6, "sh"), (11, "c")])
        self.assertEqual(blocks[0].marks, {"prepare": "one\ntwo", "exit": "3"})
        self.assertEqual(blocks[0].text, "vesk ping\n")
        self.assertEqual((blocks[1].text, blocks[1].marks), ("int x;\n", {}))

    def test_of_commands_need_no_language(self) -> None:
        self.assertEqual(self.read("```\nveskd dev --dir keys\n```\n")[0].language, "sh")

    def test_need_a_language_or_a_reason_not_to_be_run(self) -> None:
        with self.assertRaisesRegex(BadDocument, "line 2: the block has no language"):
            self.read("Text\n```\nsomething\n```\n")
        self.assertEqual(self.read("<!-- not run: a reason -->\n```\nsomething\n```\n")[0].marks["not run"], "a reason")
        for comment in ("not run", "not run:", "exit", "nor run: a reason"):
            with self.assertRaisesRegex(BadDocument, "line 1: the comment"):
                self.read(f"<!-- {comment} -->\n```sh\ntrue\n```\n")

    def test_that_do_not_end_are_found(self) -> None:
        for text in ("```sh\nvesk ping\n", "<!-- for ever\n"):
            with self.assertRaisesRegex(BadDocument, "line 1: .* does not end"):
                self.read(text)

    def test_hold_commands_of_several_lines(self) -> None:
        self.assertEqual(commands("# first\none \\\n  two\n\nthree\n"), ["one    two", "three"])


class Links(WithDocument):
    def test_lead_to_files_and_headings(self) -> None:
        (self.source / "other.md").write_text("# The `first` heading: 2\n")
        self.document.write_text(
            "# Here\n[a](other.md) [b](other.md#the-first-heading-2) [c](#here) [d](https://vesk.example/x)\n"
            "[e](missing.md) [f](other.md#second) [g](#there)\n```text\n[h](hidden.md)\n```\n"
        )
        self.assertEqual(broken_links(self.document), ["missing.md", "other.md#second", "#there"])


class Documents(WithDocument):
    def outcome(self, text: str) -> tuple[int, str]:
        self.document.write_text(text)
        with contextlib.redirect_stdout(io.StringIO()) as written:
            code = run.run(self.source, pathlib.Path(os.environ["VESK_BUILD"]))
        return code, written.getvalue()

    def test_are_run_in_order(self) -> None:
        code, written = self.outcome(
            "```sh\nvesk key create first\n```\n<!-- exit: 4 -->\n```sh\nvesk key get second\n```\n"
            "```sh\nvesk key list --output plain\n```\n<!-- output -->\n```text\nfirst\n```\n"
            '```python\nimport vesk\nvesk.Client("kms.example", 4000, "/etc/vesk").key("first")\n```\n'
            "<!-- not run: there is no such command -->\n```\nnothing\n```\n```text\nshown\n```\n"
        )
        self.assertEqual((code, written.split("\n")[0]), (0, "1 documents; blocks: 5 run, 1 only shown, 1 not run"), written)
        self.assertIn("not run: document.md:20: there is no such command", written)

    def test_that_show_what_is_not_so_fail(self) -> None:
        for text, reason in {
            "```sh\nvesk key get missing\n```\n": "document.md:1: .*ends with 4 instead of 0",
            "<!-- exit: 3 -->\n```sh\nvesk ping\n```\n": "ends with 0 instead of 3",
            "```sh\nvesk ping\n```\n<!-- output -->\n```text\nnothing of the kind\n```\n": "nothing of the kind",
            "```sh\nveskd dev --no-such-option\n```\n": "does not serve",
            "```sh\nmake nonsense\n```\n": "make",
            "```c\nint main(void) { return 1; }\n```\n": "ends with 1 instead of 0",
            "```c\nint unknown(Unknown x);\n```\n": "Unknown",
            "```cpp\nint main() { int unused; }\n```\n": "unused",
            "```python\nassert port == 0\n```\n": "AssertionError",
            "```json\n{,}\n```\n": "no JSON",
            "```toml\n=\n```\n": "no TOML",
            '```toml\n[log]\nform = "verse"\n```\n': "form",
            "```ada\nnull;\n```\n": "does not know the language ada",
            "```\nnull;\n```\n": "no language",
            "[nowhere](nowhere.md)\n": "the link nowhere.md leads nowhere",
        }.items():
            with self.subTest(text):
                code, written = self.outcome(text)
                self.assertEqual(code, 1)
                self.assertRegex(written, f"(?s)FAILED: .*{reason}")


if __name__ == "__main__":
    unittest.main()
