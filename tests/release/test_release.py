"""The script that makes releases, in a repository that has what it looks at: VESK_SOURCE is where the script is."""

import hashlib
import os
import pathlib
import shutil
import subprocess
import tarfile
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["VESK_SOURCE"])
FILES = {
    "CMakeLists.txt": "cmake_minimum_required(VERSION 3.25)\nproject(vesk VERSION 1.2.3 LANGUAGES C CXX)\n",
    "python/pyproject.toml": '[project]\nname = "vesk"\nversion = "1.2.3"\n',
    "debian/changelog": "libvesk (1.2.3-1) unstable; urgency=medium\n\nlibvesk (1.2.2-1) unstable; urgency=medium\n",
    "CHANGELOG.md": "# Changelog\n\n## 1.2.3 (2027-02-01)\n\n- news\n\n## 1.2.2 (2027-01-01)\n",
    "Makefile": "test:\n\t@echo tests were run\n",
    ".gitignore": "/build/\n",
}


class Release(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        kept = {name: value for name, value in os.environ.items() if not name.startswith(("GIT_", "MAKE", "MFLAGS"))}
        self.environment = kept | {
            "HOME": folder.name,
            "GIT_CONFIG_NOSYSTEM": "1",
            **{f"GIT_{who}_NAME": "Someone" for who in ("AUTHOR", "COMMITTER")},
            **{f"GIT_{who}_EMAIL": "someone@vesk.example" for who in ("AUTHOR", "COMMITTER")},
        }
        self.tree = self.root / "tree"
        for name, text in FILES.items():
            self.write(name, text)
        self.script = self.tree / "packaging/release.sh"
        self.script.parent.mkdir()
        shutil.copy(SOURCE / "packaging/release.sh", self.script)
        self.git("init", "--quiet", "--initial-branch=main")
        self.commit()

    def write(self, name: str, text: str) -> None:
        file = self.tree / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def git(self, *arguments: str) -> str:
        return self.run_in_tree(["git", *arguments], 0)

    def commit(self) -> None:
        self.git("add", "--all")
        self.git("commit", "--quiet", "--message=All of it")

    def run_in_tree(self, command: list[str], code: int) -> str:
        done = subprocess.run(
            command, cwd=self.tree, env=self.environment, text=True, timeout=60,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        )  # fmt: skip
        self.assertEqual(done.returncode, code, done.stdout)
        return done.stdout

    def release(self, *arguments: str, code: int = 0) -> str:
        return self.run_in_tree([str(self.script), *arguments], code)

    def assert_not_ready(self, reason: str, tags: str = "") -> None:
        for arguments in (["1.2.3"], ["1.2.3", "--dry-run"]):
            self.assertIn(f"not ready: {reason}", self.release(*arguments, code=1))
        self.assertEqual(self.git("tag", "--list"), tags)
        self.assertFalse((self.tree / "build").exists())

    def test_is_tagged_and_archived(self) -> None:
        written = self.release("1.2.3")
        self.assertIn("tests were run\n", written)
        archive = self.tree / "build/libvesk-1.2.3.tar.gz"
        checksum = hashlib.sha256(archive.read_bytes()).hexdigest()
        self.assertEqual((self.tree / "build/libvesk-1.2.3.tar.gz.sha256").read_text(), f"{checksum}  {archive.name}\n")
        with tarfile.open(archive) as files:
            names = {member.name for member in files.getmembers() if member.isfile()}
        self.assertEqual(names, {f"libvesk-1.2.3/{name}" for name in [*FILES, "packaging/release.sh"]})
        self.assertEqual(self.git("cat-file", "-t", "v1.2.3"), "tag\n")
        self.assertEqual(self.git("rev-parse", "v1.2.3^{commit}"), self.git("rev-parse", "HEAD"))

    def test_is_not_made_dry(self) -> None:
        self.assertIn("make the tag v1.2.3", self.release("1.2.3", "--dry-run"))
        self.assertEqual(self.git("tag", "--list"), "")
        self.assertFalse((self.tree / "build").exists())

    def test_is_not_made_when_tests_fail(self) -> None:
        self.write("Makefile", "test:\n\t@false\n")
        self.commit()
        self.release("1.2.3", code=2)
        self.assertEqual(self.git("tag", "--list"), "")
        self.assertFalse((self.tree / "build").exists())

    def test_is_made_once(self) -> None:
        self.git("tag", "v1.2.3")
        self.assert_not_ready("the tag v1.2.3 exists already", tags="v1.2.3\n")

    def test_is_made_of_main_alone(self) -> None:
        self.git("checkout", "--quiet", "-b", "other")
        self.assert_not_ready("releases are made of main, and this is other")
        self.git("checkout", "--quiet", "--detach")
        self.assert_not_ready("releases are made of main, and this is no branch")

    def test_is_made_of_what_is_committed(self) -> None:
        self.write("new file", "")
        self.assert_not_ready("there are changes that are not committed")

    def test_says_everywhere_what_version_it_is(self) -> None:
        for name, reason in {
            "CMakeLists.txt": "CMakeLists.txt says '1.2.4' and should say '1.2.3'",
            "python/pyproject.toml": "python/pyproject.toml says '1.2.4' and should say '1.2.3'",
            "debian/changelog": "debian/changelog says '1.2.4' and should say '1.2.3'",
            "CHANGELOG.md": "CHANGELOG.md begins with '1.2.4 (2027-02-01)'",
        }.items():
            with self.subTest(name):
                self.write(name, FILES[name].replace("1.2.3", "1.2.4"))
                self.commit()
                self.assert_not_ready(reason)
                self.write(name, FILES[name])
                self.commit()
        self.write("CHANGELOG.md", FILES["CHANGELOG.md"].replace("2027-02-01", "unreleased"))
        self.commit()
        self.assert_not_ready("CHANGELOG.md begins with '1.2.3 (unreleased)' and should begin with")

    def test_needs_no_debian_packages(self) -> None:
        shutil.rmtree(self.tree / "debian")
        self.commit()
        self.release("1.2.3", "--dry-run")

    def test_has_three_numbers(self) -> None:
        for arguments in ([], ["1.2"], ["v1.2.3"], ["1.2.3", "--really"], ["1.2.3", "--dry-run", "more"]):
            self.assertIn("usage:", self.release(*arguments, code=2))


if __name__ == "__main__":
    unittest.main()
