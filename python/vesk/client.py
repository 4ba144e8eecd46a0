"""The calls of libvesk as methods."""

import ctypes
import os
import threading
from collections.abc import Iterable, Iterator
from os import PathLike
from typing import BinaryIO

from . import _library
from .errors import VeskError, error_of
from .records import (
    NUM_FIELDS,
    CertificateInfo,
    Criterion,
    Key,
    KeyMetadata,
    MirrorAddress,
    MirrorStatus,
    SystemStatus,
    TemplateDepth,
)

_KEY_NAME_CHARACTERS = 40
_WRAPPED_BYTES = 256
_KEY_BYTES = 32
_HOST_BYTES = 257
_CERTIFICATE = "C"

# Text of the server need not be UTF-8; it comes back as it went.
_ERRORS = "surrogateescape"


def _encode(what: str, text: str, width: int) -> bytes:
    """The library cuts what is too long, which would name another key."""
    encoded = text.encode("utf-8", _ERRORS)
    if len(encoded) > width:
        raise ValueError(f"{what} has {len(encoded)} bytes, and at most {width} fit")
    if b"\0" in encoded:
        raise ValueError(f"{what} has a NUL")
    return encoded


def _decode(text: bytes) -> str:
    return text.decode("utf-8", _ERRORS)


def _key_name(name: str) -> bytes:
    if not name or name != name.rstrip(" "):
        raise ValueError("a key name is not empty and does not end in a blank")
    return _encode("key name", name, _KEY_NAME_CHARACTERS)


def _instance(instance: str) -> bytes:
    return _encode("instance", instance, 24)


def _constant(template: str) -> bytes:
    encoded = _encode("template", template, 15)
    if len(encoded) != 15:
        raise ValueError(f"template has {len(encoded)} bytes, and needs exactly 15")
    return encoded


def _stored_name(what: str, name: str) -> bytes:
    return _encode(what, name, 64)


def _mirror_name(name: str) -> bytes:
    return _encode("mirror name", name, _KEY_NAME_CHARACTERS)


def _path(path: str | PathLike[str]) -> bytes:
    encoded = os.fsencode(path)
    if not encoded or len(encoded) > 2048 or b"\0" in encoded:
        raise ValueError("a path has 1 to 2048 bytes and no NUL")
    return encoded


def _number(what: str, number: int, limit: int) -> int:
    if not 0 <= number <= limit:
        raise ValueError(f"{what} is {number}, and must be 0 to {limit}")
    return number


class _LinkedList:
    """A list for a call to fill."""

    def __init__(self, element: type[ctypes.Array | ctypes.Structure]):
        self._element = element
        self.handle = _library.support.ll_create(ctypes.sizeof(element))
        if not self.handle:
            raise MemoryError

    def __del__(self) -> None:
        _library.support.ll_free(self.handle)

    def __iter__(self) -> Iterator:
        node = _library.support.ll_first(self.handle)
        while node:
            yield self._element.from_address(_library.support.ll_element(node))
            node = _library.support.ll_next(node)


class KeyNames(Iterator[str]):
    """The names of keys, as they arrive from the server: memory does not grow with their number."""

    def __init__(self, client: "Client", prefix: str):
        self._highest = ctypes.c_uint32()
        self._failure: BaseException | None = None
        reading, writing = os.pipe()
        self._names: BinaryIO = os.fdopen(reading, "rb")
        arguments = (f"/dev/fd/{writing}".encode(), _encode("prefix", prefix, _KEY_NAME_CHARACTERS), self._highest)
        self._call = threading.Thread(target=self._run, args=(client, writing, arguments), daemon=True)
        self._call.start()

    def _run(self, client: "Client", writing: int, arguments: tuple) -> None:
        try:
            client._call("qRetrieveKeyNameListFiltered", *arguments)
        except BaseException as failure:
            self._failure = failure
        finally:
            os.close(writing)

    def __next__(self) -> str:
        line = b"" if self._names.closed else self._names.read(_KEY_NAME_CHARACTERS + 1)
        if len(line) == _KEY_NAME_CHARACTERS + 1:
            return _decode(line[:-1].rstrip(b" "))
        self.close()
        self._call.join()
        if self._failure:
            raise self._failure
        raise StopIteration

    @property
    def highest_sequence(self) -> int:
        """The highest sequence number in the names. Known when the last has been read."""
        self._call.join()
        return self._highest.value

    def close(self) -> None:
        """For who does not read on: ends the call too."""
        self._names.close()

    def __enter__(self) -> "KeyNames":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class Client:
    """A key server, and the certificate files to use with it.

    certificates is the directory of three PEM files: authority, the trusted authority; certificate, the client's
    chain; key, its private key, not encrypted. They are read when a method is called.
    """

    def __init__(
        self,
        host: str,
        port: int,
        certificates: str | PathLike[str],
        *,
        authority: str = "authority.pem",
        certificate: str = "client.pem",
        key: str = "client-key.pem",
    ):
        self._host = _encode("host", host, 40)
        self._port = _number("port", port, 65535)
        self._paths = _library.CertificatePaths()
        self._check(
            "SetupCertificates",
            _library.calls.SetupCertificates(
                self._paths, os.fsencode(certificates), os.fsencode(authority), os.fsencode(certificate), os.fsencode(key)
            ),
        )

    @staticmethod
    def _check(call: str, status: int) -> None:
        if status:
            raise error_of(call, status)

    def _call(self, name: str, *arguments: object) -> None:
        self._check(name, getattr(_library.calls, name)(self._paths, self._host, self._port, *arguments))

    def _names(self, call: str, width: int, *arguments: object) -> Iterator[str]:
        names = _LinkedList(ctypes.c_char * (width + 1))
        self._call(call, *arguments, names.handle)
        return (_decode(name.value) for name in names)

    # ---- Connectivity ----

    def ping(self) -> None:
        """Proves that the server can be reached, accepts the client's certificate and answers."""
        self._call("qAdminNoop")

    def server_certificates(self) -> tuple[CertificateInfo, CertificateInfo]:
        """The last certificate of the server's chain, and the one before it."""
        infos = (_library.CertificateInfo(), _library.CertificateInfo())
        self._call("GetServerCertificateInfo", *infos)
        names = [name for name, _ in _library.CertificateInfo._fields_]
        last, before = (CertificateInfo(*(_decode(getattr(info, name)) for name in names)) for info in infos)
        return last, before

    # ---- Keys ----

    def create_key(self, name: str, *, mirror: bool = False) -> None:
        """Creates a 256-bit key; a mirror key is replicated by the server."""
        self._call("qCreateSymKey", _key_name(name), b"Y" if mirror else b"N")

    def key(self, name: str, instance: str = "") -> Key:
        """Fetches a key; the current instance if none is named."""
        record = _library.KeyRecord()
        try:
            self._call("qRetrieveKey", _key_name(name), _instance(instance), record)
            size = min(int(record.caKeySizeBits) // 8, len(record.caKeyValue))
            return Key(
                name=_decode(record.caKeyName),
                instance=_decode(record.caInstance).rstrip(),
                value=bytearray(memoryview(record.caKeyValue)[:size]),
                expiration_date=_decode(record.caExpirationDate),
                last_rollover_date=_decode(record.caLastRolledDate),
            )
        finally:
            ctypes.memset(ctypes.byref(record), 0, ctypes.sizeof(record))

    def next_key(self, template: str) -> Key:
        """Draws the next key of a template: every call uses up an increment of its own."""
        name = ctypes.create_string_buffer(_KEY_NAME_CHARACTERS + 1)
        value = bytearray(_KEY_BYTES)
        increment = ctypes.c_uint32()
        buffer = (ctypes.c_ubyte * _KEY_BYTES).from_buffer(value)
        self._call("qGetNextKey", _constant(template), name, buffer, increment)
        return Key(name=_decode(name.value), instance="", value=value, increment=increment.value)

    def delete_key(self, name: str) -> None:
        self._call("qDeleteKey", _key_name(name))

    def make_deletable(self, name: str) -> None:
        """Lets a key be deleted; this cannot be taken back."""
        self._call("qChangeDeletable", _key_name(name), b"Y")

    def key_names(self, prefix: str = "") -> KeyNames:
        """The names of all keys that begin so, in the server's order."""
        return KeyNames(self, prefix)

    def create_database(self) -> None:
        self._call("qCreateDatabase")

    # ---- Metadata ----

    def metadata(self, name: str) -> tuple[str, ...]:
        """The sixteen metadata fields of a key, without the blanks that pad them."""
        values = _library.KeyMetadataValues()
        self._call("qRetrieveKeyMetadata", _key_name(name), values)
        return tuple(_decode(field.value.rstrip(b" ")) for field in values.md)

    def set_metadata(self, name: str, fields: Iterable[str], instance: str = "") -> None:
        """Overwrites all sixteen metadata fields of a key; those that are not given become empty."""
        given = list(fields)
        if len(given) > NUM_FIELDS:
            raise ValueError(f"there are {NUM_FIELDS} metadata fields, and {len(given)} were given")
        given += [""] * (NUM_FIELDS - len(given))
        encoded = [_encode(f"MD{number:02}", text, 64) for number, text in enumerate(given, 1)]
        self._call("qSetMetadata", _key_name(name), _instance(instance), *encoded)

    def find_keys(self, *criteria: Criterion) -> Iterator[KeyMetadata]:
        """The keys whose metadata meets every criterion; at most one to a field."""
        arguments: list[bytes | int | None] = [None, 0] * NUM_FIELDS
        for criterion in criteria:
            at = (_number("field", criterion.field, NUM_FIELDS) - 1) * 2
            if at < 0 or arguments[at] is not None:
                raise ValueError(f"field {criterion.field} is none of 1 to {NUM_FIELDS}, or has a criterion already")
            arguments[at : at + 2] = _encode("value", criterion.value, 64), int(criterion.comparison)
        keys = _LinkedList(_library.KeyMetadataSummary)
        self._call("qRetrieveMetadata_as_ll", *arguments, keys.handle)
        return (KeyMetadata(_decode(key.caKeyName), tuple(_decode(text.value.rstrip(b" ")) for text in key.md)) for key in keys)

    # ---- Templates ----

    def generate_keys(self, template: str, count: int, *, add: bool = False) -> None:
        """Generates keys for a new template, or adds them to one."""
        self._call("qAutoGenKeys", _constant(template), b"a" if add else b"i", _number("count", count, 99999))

    def template_depth(self, template: str) -> TemplateDepth:
        last, following = ctypes.c_uint32(), ctypes.c_uint32()
        self._call("qGetTemplateDepth", _constant(template), last, following)
        return TemplateDepth(last.value, following.value)

    def templates(self) -> Iterator[str]:
        """The constants of all templates."""
        return self._names("qGetTemplateList", 39)

    def set_next_increment(self, template: str, increment: int) -> None:
        self._call("qSetNextIncrement", _constant(template), _number("increment", increment, 0xFFFFFF))

    def remove_template(self, template: str) -> None:
        self._call("qRemoveTemplate", _constant(template))

    # ---- Key transfer ----

    def import_key(self, name: str, certificate: str, wrapped: bytes) -> None:
        """Brings in a 256-bit key that was wrapped under a certificate that the server keeps."""
        if len(wrapped) != _WRAPPED_BYTES:
            raise ValueError(f"a wrapped key has {_WRAPPED_BYTES} bytes, not {len(wrapped)}")
        self._call("qImportSymKey", _key_name(name), _stored_name("certificate", certificate), None, bytes(wrapped))

    def export_key(self, name: str, certificate: str, instance: str = "") -> bytes:
        """Fetches a key wrapped under a certificate that the server keeps."""
        wrapped = ctypes.create_string_buffer(_WRAPPED_BYTES)
        certificate_name = _stored_name("certificate", certificate)
        self._call("qExportSymKey", _key_name(name), _instance(instance), certificate_name, None, wrapped)
        return wrapped.raw

    # ---- Certificates and private keys ----

    def import_certificate(self, name: str, file: str | PathLike[str], *, replace: bool = False) -> None:
        self._call("qImportCertificate", _path(file), _stored_name("certificate", name), int(replace))

    def export_certificate(self, name: str, file: str | PathLike[str], kind: str = _CERTIFICATE) -> None:
        """Writes a certificate into a file, which is created or truncated."""
        self._call("qExportCertificate", _stored_name("certificate", name), _encode("kind", kind, 1), _path(file))

    def delete_certificate(self, name: str, kind: str = _CERTIFICATE) -> None:
        self._call("qDeleteCertificate", _stored_name("certificate", name), _encode("kind", kind, 1))

    def certificates(self, kind: str = _CERTIFICATE) -> Iterator[str]:
        """The names of the certificates. A server that refuses to tell them tells none."""
        return self._names("qGetCertificateList_as_ll", 64, _encode("kind", kind, 1))

    def import_private_key(self, name: str, file: str | PathLike[str]) -> None:
        self._call("qImportPrivateKey", _path(file), _stored_name("private key", name))

    def delete_private_key(self, name: str) -> None:
        self._call("qDeletePrivateKey", _stored_name("private key", name))

    def private_keys(self) -> Iterator[str]:
        """The names of the private keys. A server that refuses to tell them tells none."""
        return self._names("qGetPrivateKeyList_as_ll", 64)

    # ---- Mirrors ----

    def set_mirror(self, name: str, host: str, port: int) -> None:
        """Adds a mirror or gives it another address."""
        self._call("qSetMirrorAddress", _mirror_name(name), _encode("host", host, 256), _number("port", port, 65535))

    def mirror(self, name: str) -> MirrorAddress:
        host = ctypes.create_string_buffer(_HOST_BYTES)
        port = ctypes.c_uint32()
        self._call("qGetMirrorAddress", _mirror_name(name), host, len(host), port)
        return MirrorAddress(_decode(host.value), port.value)

    def remove_mirror(self, name: str) -> None:
        self._call("qRemoveMirrorAddress", _mirror_name(name))

    def mirrors(self) -> Iterator[str]:
        """The names of all mirrors."""
        return self._names("qListMirrorNames", _KEY_NAME_CHARACTERS)

    def mirror_status(self, name: str, *, try_it: bool = True) -> MirrorStatus:
        faults = ctypes.c_int32()
        status, hashes = ctypes.create_string_buffer(2), ctypes.create_string_buffer(2)
        self._call("qGetMirrorStatus", _mirror_name(name), int(try_it), faults, status, hashes)
        return MirrorStatus(faults.value, _decode(status.value), _decode(hashes.value))

    def mirror_queue_size(self, name: str) -> int:
        """How many changes wait for a mirror."""
        size = ctypes.c_int32()
        self._call("qGetQueueSize", _mirror_name(name), size)
        return size.value

    def sync_mirror(self, name: str, key: str | None = None) -> None:
        """Has a mirror sent all mirror keys again, or one."""
        self._call("qForceKeySync", _mirror_name(name), None if key is None else _key_name(key))

    # ---- The appliance ----

    def system_status(self, sensor_file: str | PathLike[str] | None = None) -> SystemStatus:
        """The health of the server's machine; its sensor readings go to a file. Prints "**end", as the library does."""
        texts = [ctypes.create_string_buffer(size) for size in (5, 9, 9, 9, 3, 5, 9)]
        file = b"" if sensor_file is None else _path(sensor_file)
        has_fault = self._tells("ERR_HARDWARE_FAULT", "qGetSystemStatus", *texts, file)
        return SystemStatus(*(_decode(text.value) for text in texts), has_fault=has_fault)

    def fips_mode(self) -> tuple[bool, str]:
        """Whether the server is in FIPS mode, and its version."""
        version = ctypes.create_string_buffer(33)
        status = _library.calls.qReportFipsMode(self._paths, self._host, self._port, version)
        if status != -1:
            self._check("qReportFipsMode", status)
        return status == 0, _decode(version.value.rstrip())

    def validate_database(self) -> bool:
        """Has the server check every key value that it keeps: whether all are good. Prints the headers of the pages,
        as the library does."""
        return not self._tells("ERR_DATABASE_INVALID", "qValidateKeyDatabase")

    def _tells(self, name: str, call: str, *arguments: object) -> bool:
        """Whether a call ended with a status that is its answer rather than a failure."""
        try:
            self._call(call, *arguments)
        except VeskError as failure:
            if failure.name != name:
                raise
            return True
        return False
