"""What can go wrong, by the status of the call."""

from . import _library
from .return_codes import NOT_FOUND, ReturnCode


class VeskError(Exception):
    """A call failed. status is its number, name that of the status, as in "CONN_ERR_REFUSED"."""

    def __init__(self, call: str, status: int, name: str, text: str):
        super().__init__(f"{call}: {text} ({name} {status})")
        self.call = call
        self.status = status
        self.name = name
        self.text = text

    def __reduce__(self):
        return type(self), (self.call, self.status, self.name, self.text)


class ServerRefusal(VeskError):
    """The server answered with a return code: status."""


class NotFound(ServerRefusal, LookupError):
    """The server has no such key, instance, template, mirror, certificate or private key."""


class ConnectionFailed(VeskError, ConnectionError):
    """The connection could not be made, or it broke. Whether the server did what it was asked for is then not known."""


class TimedOut(ConnectionFailed, TimeoutError):
    """The server did not accept or answer in time."""


class CertificateFileError(ConnectionFailed):
    """One of the three certificate files is missing, unreadable or unfit."""


class PeerRejected(ConnectionFailed):
    """The server's certificate is not one to trust."""


_FILES = ("CONN_ERR_AUTHORITY_", "CONN_ERR_CERTIFICATE_", "CONN_ERR_KEY_")


def _class_of(status: int, name: str) -> type[VeskError]:
    if name == "SERVER_RETURN_CODE":
        return NotFound if status in NOT_FOUND else ServerRefusal
    if name.endswith("_TIMED_OUT"):
        return TimedOut
    if name.startswith(_FILES):
        return CertificateFileError
    if name.startswith("CONN_ERR_PEER_"):
        return PeerRejected
    return ConnectionFailed if name.startswith("CONN_ERR_") else VeskError


def error_of(call: str, status: int) -> VeskError:
    name = _library.support.StatusName(status).decode()
    text = _library.support.StatusText(status).decode()
    kind = _class_of(status, name)
    if issubclass(kind, ServerRefusal) and status in ReturnCode._value2member_map_:
        return kind(call, status, f"RC_{ReturnCode(status).name}", text)
    return kind(call, status, name, text)
