"""Configurations of a server, out of parts of them that documents show."""

import pathlib
import tomllib

SECTIONS = {
    *("directory", "ready_file", "sensor_file", "store", "master_key"),
    *("listen", "tls", "mirrors", "limits", "log", "watch", "roles"),
}


def complete(part: str, certificates: pathlib.Path) -> str:
    """The part with what a configuration must have besides."""
    needed = {
        "store": 'store = "keys.db"',
        "master_key": 'master_key = "keys.key"',
        "listen": '[listen]\naddress = "127.0.0.1"\nport = 0',
        "tls": f'[tls]\ncertificate = "{certificates}/server.pem"\nprivate_key = "{certificates}/server-key.pem"\n'
        f'client_authority = "{certificates}/authority.pem"',
    }
    missing = [text for key, text in needed.items() if key not in tomllib.loads(part)]
    # What is outside of all sections comes first.
    values = [text for text in missing if not text.startswith("[")]
    sections = [text for text in missing if text.startswith("[")]
    return "\n".join([*values, part, *sections]) + "\n"
