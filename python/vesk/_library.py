"""The two shared libraries, the layouts of their records and the prototypes of their calls.

VESK_LIBRARY_DIR names the directory of the libraries; without it the system's loader looks for them.
"""

import ctypes
import os
from ctypes import POINTER, c_char, c_char_p, c_int, c_int32, c_size_t, c_uint32, c_void_p


def _text(size: int) -> type:
    return c_char * size


class CertificatePaths(ctypes.Structure):
    _fields_ = [("caPath", _text(2049) * 4)]


class KeyRecord(ctypes.Structure):
    _fields_ = [
        ("caTranLen", _text(6)),
        ("caTranId", _text(5)),
        ("caKeyName", _text(41)),
        ("caKeySizeBits", _text(5)),
        ("caKeyCreationDate", _text(9)),
        ("caActivationDate", _text(9)),
        ("caExpirationDate", _text(9)),
        ("caRolloverCode", _text(2)),
        ("caRolloverDays", _text(5)),
        ("caLastRolledDate", _text(9)),
        ("caDeletable", _text(4)),
        ("caRevokedDate", _text(9)),
        ("caMirrorKey", _text(2)),
        ("caReturnCode", _text(5)),
        ("caInstance", _text(25)),
        ("caCurrent", _text(2)),
        ("caKeyFormat", _text(9)),
        ("caKeyValue", ctypes.c_ubyte * 396),
        ("caPolicyExtra", _text(15)),
        ("md", _text(65) * 16),
    ]


class KeyMetadataValues(ctypes.Structure):
    _fields_ = [("md", _text(65) * 16)]


class KeyMetadataSummary(ctypes.Structure):
    _fields_ = [("caKeyName", _text(41)), ("md", _text(65) * 7)]


class CertificateInfo(ctypes.Structure):
    _fields_ = [
        ("subject", _text(512)),
        ("issuer", _text(512)),
        ("serialNumber", _text(64)),
        ("notBefore", _text(32)),
        ("notAfter", _text(32)),
        ("names", _text(1024)),
        ("key", _text(64)),
        ("sha256Fingerprint", _text(96)),
    ]


_PATHS = POINTER(CertificatePaths)
_SERVER = (_PATHS, c_char_p, c_uint32)
_BYTES = POINTER(ctypes.c_ubyte)
_NUMBER = POINTER(c_uint32)
_SIGNED = POINTER(c_int32)
_INFO = POINTER(CertificateInfo)
_LIST = c_void_p
_CRITERIA = (c_char_p, c_int) * 16

# Of the calls that take a server, what follows it. They all return a status.
CALLS: dict[str, tuple[type, ...]] = {
    "GetServerCertificateInfo": (_INFO, _INFO),
    "qAdminNoop": (),
    "qGetNextKey": (c_char_p, c_char_p, _BYTES, _NUMBER),
    "qRetrieveKey": (c_char_p, c_char_p, POINTER(KeyRecord)),
    "qRetrieveKeyMetadata": (c_char_p, POINTER(KeyMetadataValues)),
    "qCreateSymKey": (c_char_p, c_char),
    "qAutoGenKeys": (c_char_p, c_char, c_uint32),
    "qCreateDatabase": (),
    "qDeleteKey": (c_char_p,),
    "qChangeDeletable": (c_char_p, c_char),
    "qGetTemplateDepth": (c_char_p, _NUMBER, _NUMBER),
    "qGetTemplateList": (_LIST,),
    "qRemoveTemplate": (c_char_p,),
    "qSetNextIncrement": (c_char_p, c_uint32),
    "qSetMetadata": (c_char_p, c_char_p) + (c_char_p,) * 16,
    "qRetrieveMetadata": _CRITERIA + (c_char_p,),
    "qRetrieveMetadata_as_ll": _CRITERIA + (_LIST,),
    "qRetrieveKeyNameList": (c_char_p,),
    "qRetrieveKeyNameList_as_ll": (_LIST,),
    "qRetrieveKeyNameListFiltered": (c_char_p, c_char_p, _NUMBER),
    "qRetrieveKeyNameListFiltered_as_ll": (_LIST, c_char_p, _NUMBER),
    "qSetMirrorAddress": (c_char_p, c_char_p, c_uint32),
    "qGetMirrorAddress": (c_char_p, c_char_p, c_uint32, _NUMBER),
    "qRemoveMirrorAddress": (c_char_p,),
    "qListMirrorNames": (_LIST,),
    "qGetMirrorStatus": (c_char_p, c_int, _SIGNED, c_char_p, c_char_p),
    "qGetQueueSize": (c_char_p, _SIGNED),
    "qForceKeySync": (c_char_p, c_char_p),
    "qGetSystemStatus": (c_char_p,) * 8,
    "qReportFipsMode": (c_char_p,),
    "qValidateKeyDatabase": (),
    "qImportSymKey": (c_char_p, c_char_p, c_char_p, c_void_p),
    "qExportSymKey": (c_char_p, c_char_p, c_char_p, c_char_p, c_void_p),
    "qImportCertificate": (c_char_p, c_char_p, c_int),
    "qImportPrivateKey": (c_char_p, c_char_p),
    "qExportCertificate": (c_char_p, c_char, c_char_p),
    "qDeleteCertificate": (c_char_p, c_char),
    "qDeletePrivateKey": (c_char_p,),
    "qGetCertificateList": (c_char, c_char_p),
    "qGetCertificateList_as_ll": (c_char, _LIST),
    "qGetPrivateKeyList": (c_char_p,),
    "qGetPrivateKeyList_as_ll": (_LIST,),
}


def _load(name: str, mode: int = ctypes.DEFAULT_MODE) -> ctypes.CDLL:
    return ctypes.CDLL(os.path.join(os.environ.get("VESK_LIBRARY_DIR", ""), name), mode)


def _declare(library: ctypes.CDLL, name: str, result: type | None, *arguments: type) -> None:
    function = getattr(library, name)
    function.restype = result
    function.argtypes = arguments


# Where libvesk finds its connection layer.
support = _load("libornsupport.so.1", ctypes.RTLD_GLOBAL)
calls = _load("libvesk.so.1")

for _name, _arguments in CALLS.items():
    _declare(calls, _name, c_int, *_SERVER, *_arguments)
_declare(calls, "SetupCertificates", c_int, _PATHS, *(c_char_p,) * 4)
_declare(support, "ll_create", c_void_p, c_size_t)
_declare(support, "ll_free", None, _LIST)
_declare(support, "ll_first", c_void_p, _LIST)
_declare(support, "ll_next", c_void_p, c_void_p)
_declare(support, "ll_element", c_void_p, c_void_p)
_declare(support, "StatusName", c_char_p, c_int)
_declare(support, "StatusText", c_char_p, c_int)
