"""The manual pages for the browser."""

import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "docs/man"))
from make_reference import make_reference  # noqa: E402

PAGE = """.TH {name} 3 2026-11-21 "libvesk" "vesk"
.SH NAME
{name} \\- does less & costs <nothing>
.SH SYNOPSIS
.nf
int {name}(int first,
    int second);
.fi
.SH SEE ALSO
.BR {other} (3),
.BR elsewhere (3)
"""


class Reference(unittest.TestCase):
    def test_has_every_page_and_links_between_them(self) -> None:
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            pages = [folder / "one.3", folder / "two.3"]
            pages[0].write_text(PAGE.format(name="one", other="two"))
            pages[1].write_text(PAGE.format(name="two", other="one"))
            make_reference(pages, folder / "made/reference")
            index = (folder / "made/reference/index.html").read_text()
            one = (folder / "made/reference/one.3.html").read_text()
        for row in ("one", "two"):
            about = "does less &amp; costs &lt;nothing&gt;"
            self.assertIn(f'<a href="{row}.3.html">{row}</a></td><td>{about}</td>', index)
        self.assertIn('<a href="two.3.html">two</a>(3)', one)
        self.assertIn("<b>elsewhere</b>(3)", one)
        self.assertIn("int one(int first,\n    int second);", one)


if __name__ == "__main__":
    unittest.main()
