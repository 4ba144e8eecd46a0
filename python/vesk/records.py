"""What the calls of a client take and give."""

import enum
from dataclasses import dataclass, field

NUM_FIELDS = 16


@dataclass
class Key:
    """A key and its value, which the caller wipes, at the end of a with statement or by wipe()."""

    name: str
    instance: str
    value: bytearray = field(repr=False)
    increment: int | None = None
    """Of a key that was drawn from a template."""
    expiration_date: str | None = None
    last_rollover_date: str | None = None

    def wipe(self) -> None:
        self.value[:] = bytes(len(self.value))

    def __enter__(self) -> "Key":
        return self

    def __exit__(self, *_: object) -> None:
        self.wipe()


@dataclass(frozen=True)
class KeyMetadata:
    """What a query tells of a key: its metadata fields MD01 to MD07."""

    name: str
    fields: tuple[str, ...]


class Comparison(enum.IntEnum):
    """How a metadata field is compared: blank-padded text, byte by byte."""

    EQ = 1
    NE = 2
    CT = 3
    """The field contains the value."""
    GT = 4
    LT = 5
    GE = 6
    LE = 7


@dataclass(frozen=True)
class Criterion:
    """Of a metadata query: field 1 to 16 compares with value."""

    field: int
    comparison: Comparison
    value: str


@dataclass(frozen=True)
class TemplateDepth:
    last_increment: int
    next_increment: int
    """One more than the last when all are served."""


@dataclass(frozen=True)
class MirrorAddress:
    host: str
    port: int


@dataclass(frozen=True)
class MirrorStatus:
    """The two characters have the meaning that the server gives them."""

    fault_count: int
    status: str
    data_hash_status: str


@dataclass(frozen=True)
class SystemStatus:
    """A '1' or an '8' in any of them is a fault."""

    appliance: str
    cores: str
    disks: str
    voltages: str
    batteries: str
    fans: str
    temperature: str
    has_fault: bool


@dataclass(frozen=True)
class CertificateInfo:
    subject: str
    issuer: str
    serial_number: str
    not_before: str
    not_after: str
    names: str
    key: str
    sha256_fingerprint: str
