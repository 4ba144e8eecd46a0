"""Where the commands and programs of a document are run: a folder that looks like the sources, a home of its own, and a
key server for those documents that start none."""

import os
import pathlib
import re
import signal
import subprocess
import time

import configuration

_PATIENCE = 60  # seconds for one command, on a machine that does much else
_SERVER = re.compile(r"^(?:\S*/)?veskd (?:dev|serve)\b(?!.*--check)")
_SERVES = re.compile(r"^veskd serves .* port (\d+)$", re.MULTILINE)
# What it says besides, once all is there that its command asks for.
_SAID = {"dev": " context ", "--watch-port": " shows how it is"}
_DIRECTORY = re.compile(r"--(?:dir|config)[ =](\S+)")
_PORT = re.compile(r"--port[ =](\d+)")
# Folders that documents name as readers have them; here they are below the root of the workbench.
_FOLDER = re.compile(r"(?<![\w./~-])/(?=(?:etc/vesk|etc/veskd|tmp|media|safe)\b)")
_HOST = "kms.example"


class Failure(Exception):
    pass


class _Server:
    def __init__(self, command: str, bench: "Workbench", output: pathlib.Path) -> None:
        self._output = output
        with output.open("wb") as file:
            self._process = subprocess.Popen(
                ["bash", "-c", f"exec {command}"],
                cwd=bench.work,
                env=bench.environment,
                stdin=subprocess.DEVNULL,
                stdout=file,
                stderr=subprocess.STDOUT,
            )
        try:
            self.port = self._wait_for_port(command)
        except BaseException:
            self.stop()
            raise

    def text(self) -> str:
        return self._output.read_text(encoding="utf-8", errors="replace")

    def _wait_for_port(self, command: str) -> int:
        words = [said for option, said in _SAID.items() if f" {option} " in f"{command} "]
        deadline = time.monotonic() + _PATIENCE
        while time.monotonic() < deadline:
            ended = self._process.poll() is not None
            text = self.text()
            serves = _SERVES.search(text)
            if serves and all(word in text for word in words):
                return int(serves[1])
            if ended:
                break
            time.sleep(0.01)
        raise Failure(f"{command}\ndoes not serve:\n{self.text()}")

    def stop(self) -> None:
        self._process.terminate()
        try:
            self._process.wait(_PATIENCE)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()


class Workbench:
    def __init__(self, source: pathlib.Path, build: pathlib.Path, root: pathlib.Path) -> None:
        self.root, self.work, self.certificates = root, root / "work", root / "prepared"
        self._configuration = root / "etc/veskd/veskd.toml"
        self._source = source
        self._servers: dict[str, _Server] = {}
        self._ports: dict[str, int] = {}
        self._prepared: _Server | None = None
        for folder in ("work/build", "home", "etc/veskd", "tmp", "media", "safe"):
            (root / folder).mkdir(parents=True)
        for entry in source.iterdir():
            if entry.name != "build" and not entry.name.startswith("."):
                (self.work / entry.name).symlink_to(entry)
        (self.work / "build/release").symlink_to(build)
        kept = {name: value for name, value in os.environ.items() if not re.match("VESK|XDG_|MAKE|MFLAGS", name)}
        libraries = f"{build}/orn/vesk:{build}/orn/support"
        self.environment = kept | {
            "HOME": str(root / "home"),
            "TMPDIR": str(root / "tmp"),
            "PATH": f"{build}/vesk:{build}/veskd:{os.environ['PATH']}",
            "PYTHONPATH": str(source / "python"),
            "PYTHONDONTWRITEBYTECODE": "1",
            "CPATH": str(source),
            "LIBRARY_PATH": libraries,
            "LD_LIBRARY_PATH": libraries,
        }

    def __enter__(self) -> "Workbench":
        return self

    def __exit__(self, *_: object) -> None:
        for server in [*self._servers.values(), *([self._prepared] if self._prepared else [])]:
            server.stop()

    @property
    def port(self) -> int:
        """Of the server that is there for documents that start none."""
        if not self._prepared:
            self._prepared = _Server(f"veskd dev --dir {self.certificates} --quiet", self, self.root / "prepared.log")
            (self.work / "certificates").symlink_to(self.certificates)
            (self.root / "etc/vesk").symlink_to(self.certificates)
            self._configuration.write_text(configuration.complete("", self.certificates), encoding="utf-8")
        return self._prepared.port

    def stand_ins(self, text: str) -> str:
        """The text with what is there in place of what it names as an example."""
        if "/etc/vesk" in text:
            assert self.port  # whose files are there
        text = _FOLDER.sub(f"{self.root}/", text)
        if _HOST in text:
            text = re.sub(rf"({_HOST}\W+(?:port )?)\d+\b", rf"\g<1>{self.port}", text).replace(_HOST, "127.0.0.1")
        return re.sub(r"\b\d{4,5}\b", lambda number: str(self._ports.get(number[0], number[0])), text)

    def run(self, command: str, code: int = 0) -> str:
        """What the command wrote. A server is left running."""
        if command.split()[0] == "make":
            # Whether there is such a thing to make; making it is not the matter of a document.
            return self.call(["bash", "-c", command.replace("make", "make --dry-run", 1)], self._source)
        if _SERVER.match(command):
            return self._serve(command.removesuffix("&"))
        if not self._servers:
            self.environment |= {
                "VESK_HOST": "127.0.0.1",
                "VESK_PORT": str(self.port),
                "VESK_CERTIFICATES": str(self.certificates),
            }
        return self.call(["bash", "-c", f"set -euo pipefail; {self.stand_ins(command)}"], code=code)

    def _serve(self, command: str) -> str:
        named = _DIRECTORY.search(command)
        directory = named[1] if named else ""
        if directory in self._servers:
            self._servers.pop(directory).stop()
        # The port of an example may be taken here; from now on its number means the one that the server got.
        asked = _PORT.search(command)
        command = self.stand_ins(_PORT.sub("--port 0", command))
        log = self.root / f"server-{len(list(self.root.glob('server-*')))}.log"
        server = self._servers[directory] = _Server(command, self, log)
        if asked:
            self._ports[asked[1]] = server.port
        for name in ("VESK_HOST", "VESK_PORT", "VESK_CERTIFICATES"):
            self.environment.pop(name, None)
        return server.text()

    def call(self, arguments: list[str], folder: pathlib.Path | None = None, code: int = 0) -> str:
        process = subprocess.Popen(
            arguments,
            cwd=folder or self.work,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            start_new_session=True,
        )
        try:
            written = process.communicate(timeout=_PATIENCE)[0].decode("utf-8", "replace")
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            raise Failure(f"{arguments[-1]}\ndoes not end") from None
        if process.returncode != code:
            raise Failure(f"{arguments[-1]}\nends with {process.returncode} instead of {code}:\n{written}")
        return written
