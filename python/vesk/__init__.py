"""Network key management from Python: libvesk's calls as methods of a client.

    import vesk

    client = vesk.Client("kms.example", 4000, "/etc/vesk")
    client.create_key("backup-2026")
    with client.key("backup-2026") as key:
        use(key.value)

Each method opens a connection of its own and closes it, and lets other threads run while it waits. A client may be
used by any number of threads at once. What fails raises a :class:`VeskError`, of a class by its status.
"""

from .client import Client
from .errors import (
    CertificateFileError,
    ConnectionFailed,
    NotFound,
    PeerRejected,
    ServerRefusal,
    TimedOut,
    VeskError,
)
from .records import (
    CertificateInfo,
    Comparison,
    Criterion,
    Key,
    KeyMetadata,
    MirrorAddress,
    MirrorStatus,
    SystemStatus,
    TemplateDepth,
)
from .return_codes import ReturnCode

__all__ = [
    "CertificateFileError",
    "CertificateInfo",
    "Client",
    "Comparison",
    "ConnectionFailed",
    "Criterion",
    "Key",
    "KeyMetadata",
    "MirrorAddress",
    "MirrorStatus",
    "NotFound",
    "PeerRejected",
    "ReturnCode",
    "ServerRefusal",
    "SystemStatus",
    "TemplateDepth",
    "TimedOut",
    "VeskError",
]
