"""The binding against a server that it starts: VESKD_PROGRAM serves, VESK_SOURCE is where the headers are."""

import ctypes
import json
import os
import pathlib
import pickle
import re
import subprocess
import tempfile
import threading
import unittest

import vesk
from vesk import _library
from vesk.return_codes import NOT_FOUND

VESKD = os.environ["VESKD_PROGRAM"]
SOURCE = pathlib.Path(os.environ["VESK_SOURCE"])
TEMPLATE = "CONSTANT_000015"


class Server:
    def __init__(self) -> None:
        self._directory = tempfile.TemporaryDirectory()
        self.directory = pathlib.Path(self._directory.name)
        self._program = subprocess.Popen(
            [VESKD, "dev", "--dir", self.directory, "--quiet"], stdout=subprocess.PIPE, text=True
        )
        self._program.stdout.readline()
        self.port = json.loads((self.directory / "ready.json").read_text())["port"]

    def client(self, **names: str) -> vesk.Client:
        return vesk.Client("127.0.0.1", self.port, self.directory, **names)

    def stop(self) -> None:
        self._program.terminate()
        self._program.wait(30)
        self._program.stdout.close()
        self._directory.cleanup()


class WithServer(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.server = Server()
        cls.client = cls.server.client()

    @classmethod
    def tearDownClass(cls) -> None:
        cls.server.stop()


class Keys(WithServer):
    def test_are_created_fetched_and_deleted(self) -> None:
        self.client.create_key("K1")
        with self.client.key("K1") as key:
            self.assertEqual(key.name, "K1")
            self.assertEqual(len(key.value), 32)
            self.assertNotEqual(key.value, bytes(32))
            self.assertEqual(self.client.key("K1", key.instance).value, key.value)
            self.assertNotIn(repr(bytes(key.value)), repr(key))
        self.assertEqual(key.value, bytes(32))
        self.client.make_deletable("K1")
        self.client.delete_key("K1")
        with self.assertRaises(vesk.NotFound):
            self.client.key("K1")

    def test_that_are_there_are_not_made_again(self) -> None:
        self.client.create_key("K2")
        with self.assertRaises(vesk.ServerRefusal) as caught:
            self.client.create_key("K2")
        self.assertNotIsInstance(caught.exception, vesk.NotFound)
        self.assertEqual(caught.exception.status, vesk.ReturnCode.KEY_EXISTS)
        self.assertEqual(caught.exception.name, "RC_KEY_EXISTS")

    def test_names_that_would_be_cut_are_refused(self) -> None:
        for name in ("K" * 41, "", "K ", "K\0", "ü" * 21):
            with self.assertRaises(ValueError):
                self.client.create_key(name)

    def test_are_drawn_from_a_template_by_threads_once_each(self) -> None:
        self.client.generate_keys(TEMPLATE, 40)
        drawn: list[vesk.Key] = []

        def draw() -> None:
            try:
                while True:
                    drawn.append(self.client.next_key(TEMPLATE))
            except vesk.ServerRefusal as exhausted:
                self.assertEqual(exhausted.status, vesk.ReturnCode.TEMPLATE_EXHAUSTED)

        threads = [threading.Thread(target=draw) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(sorted(key.increment for key in drawn), list(range(40)))
        self.assertEqual(len({bytes(key.value) for key in drawn}), 40)
        self.assertEqual(self.client.template_depth(TEMPLATE), vesk.TemplateDepth(39, 40))
        self.assertEqual(list(self.client.templates()), [TEMPLATE])
        self.client.generate_keys(TEMPLATE, 2, add=True)
        self.client.set_next_increment(TEMPLATE, 41)
        self.assertEqual(self.client.next_key(TEMPLATE).increment, 41)
        self.client.remove_template(TEMPLATE)
        with self.assertRaises(vesk.NotFound):
            self.client.template_depth(TEMPLATE)


class Names(WithServer):
    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.client.create_key("A 1")
        cls.client.create_key("B1")
        cls.client.generate_keys(TEMPLATE, 2000)

    def test_arrive_one_by_one(self) -> None:
        names = self.client.key_names()
        self.assertEqual(next(names), "A 1")
        self.assertEqual(len(list(names)), 2001)
        self.assertEqual(names.highest_sequence, 1999)

    def test_are_filtered(self) -> None:
        self.assertEqual(list(self.client.key_names("B")), ["B1"])
        self.assertEqual(list(self.client.key_names("none")), [])

    def test_need_not_be_read_to_the_end(self) -> None:
        with self.client.key_names() as names:
            self.assertEqual(next(names), "A 1")
        self.client.ping()

    def test_say_why_they_end(self) -> None:
        unreachable = self.server.client(key="none.pem")
        with self.assertRaises(vesk.CertificateFileError):
            next(unreachable.key_names())


class Metadata(WithServer):
    def test_comes_back(self) -> None:
        self.client.create_key("K1")
        fields = tuple(f"field {number}, «{number}»" for number in range(1, 17))
        self.client.set_metadata("K1", fields)
        self.assertEqual(self.client.metadata("K1"), fields)
        self.client.set_metadata("K1", ["only"])
        self.assertEqual(self.client.metadata("K1"), ("only",) + ("",) * 15)

    def test_is_searched(self) -> None:
        for number in range(3):
            self.client.create_key(f"S{number}")
            self.client.set_metadata(f"S{number}", ["tape", str(number)])
        above = self.client.find_keys(
            vesk.Criterion(1, vesk.Comparison.EQ, "tape"), vesk.Criterion(2, vesk.Comparison.GT, "0")
        )
        self.assertEqual([(key.name, key.fields[:3]) for key in above], [("S1", ("tape", "1", "")), ("S2", ("tape", "2", ""))])

    def test_criteria_that_make_no_sense_are_refused(self) -> None:
        once = vesk.Criterion(1, vesk.Comparison.EQ, "x")
        for criteria in ((once, once), (vesk.Criterion(0, vesk.Comparison.EQ, "x"),), (vesk.Criterion(17, vesk.Comparison.EQ, "x"),)):
            with self.assertRaises(ValueError):
                self.client.find_keys(*criteria)
        with self.assertRaises(ValueError):
            self.client.set_metadata("K1", [""] * 17)


class Transfer(WithServer):
    def _openssl(self, *arguments: str, data: bytes = b"") -> bytes:
        done = subprocess.run(["openssl", *arguments], input=data, capture_output=True, cwd=self.server.directory)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def test_goes_both_ways(self) -> None:
        self._openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=pair", "-keyout", "pair-key.pem",
                      "-out", "pair.pem")
        self.client.import_certificate("pair", self.server.directory / "pair.pem")
        self.client.import_private_key("pair", self.server.directory / "pair-key.pem")
        self.assertEqual(list(self.client.certificates()), ["pair"])
        self.assertEqual(list(self.client.private_keys()), ["pair"])
        oaep = ("-pkeyopt", "rsa_padding_mode:oaep", "-pkeyopt", "rsa_oaep_md:sha256", "-pkeyopt", "rsa_mgf1_md:sha256")
        value = os.urandom(32)
        wrapped = self._openssl("pkeyutl", "-encrypt", "-certin", "-inkey", "pair.pem", *oaep, data=value)
        self.client.import_key("K1", "pair", wrapped)
        self.assertEqual(self.client.key("K1").value, value)
        exported = self.client.export_key("K1", "pair")
        self.assertEqual(self._openssl("pkeyutl", "-decrypt", "-inkey", "pair-key.pem", *oaep, data=exported), value)
        self.client.export_certificate("pair", self.server.directory / "back.pem")
        back = (self.server.directory / "back.pem").read_bytes()
        self.assertEqual(back, (self.server.directory / "pair.pem").read_bytes())
        self.client.import_certificate("pair", self.server.directory / "back.pem", replace=True)
        self.client.delete_private_key("pair")
        self.client.delete_certificate("pair")
        with self.assertRaises(vesk.NotFound):
            self.client.export_key("K1", "pair")
        with self.assertRaises(ValueError):
            self.client.import_key("K2", "pair", wrapped[:-1])


class Mirrors(WithServer):
    def test_are_kept_in_the_address_book(self) -> None:
        self.client.set_mirror("M1", "mirror.example", 4000)
        self.assertEqual(self.client.mirror("M1"), vesk.MirrorAddress("mirror.example", 4000))
        self.assertEqual(list(self.client.mirrors()), ["M1"])
        self.assertEqual(self.client.mirror_queue_size("M1"), 0)
        self.client.create_key("K1", mirror=True)
        self.client.sync_mirror("M1", "K1")
        self.assertGreater(self.client.mirror_queue_size("M1"), 0)
        self.assertEqual(len(self.client.mirror_status("M1", try_it=False).status), 1)
        self.client.sync_mirror("M1")
        self.client.remove_mirror("M1")
        with self.assertRaises(vesk.NotFound):
            self.client.mirror("M1")


class Appliance(WithServer):
    def test_tells_of_itself(self) -> None:
        file = self.server.directory / "sensors"
        status = self.client.system_status(file)
        self.assertEqual(len(status.appliance), 4)
        self.assertEqual(status.has_fault, any(fault in "".join(map(str, vars(status).values())) for fault in "18"))
        self.assertTrue(file.exists())
        in_fips_mode, version = self.client.fips_mode()
        self.assertFalse(in_fips_mode)
        self.assertTrue(version)
        self.assertTrue(self.client.validate_database())
        self.client.ping()

    def test_shows_its_certificates(self) -> None:
        last, before = self.client.server_certificates()
        self.assertEqual(before.issuer, last.subject)
        self.assertIn("IP:127.0.0.1", before.names)

    def test_creates_no_database_twice(self) -> None:
        try:
            self.client.create_database()
        except vesk.ServerRefusal:
            pass
        self.client.ping()


class Failures(unittest.TestCase):
    def test_have_a_class_by_their_status(self) -> None:
        server, other = Server(), Server()
        client = server.client()
        stranger = vesk.Client("127.0.0.1", server.port, other.directory)
        with self.assertRaises(vesk.PeerRejected):
            stranger.ping()
        other.stop()
        server.stop()
        with self.assertRaises(vesk.CertificateFileError) as gone:
            client.ping()
        self.assertEqual(gone.exception.name, "CONN_ERR_AUTHORITY_MISSING")
        self.assertEqual(pickle.loads(pickle.dumps(gone.exception)).args, gone.exception.args)

    def test_of_the_connection_are_the_language_s_own_too(self) -> None:
        server = Server()
        try:
            with self.assertRaises(ConnectionError) as refused:
                vesk.Client("127.0.0.1", 1, server.directory).ping()
            self.assertEqual(refused.exception.name, "CONN_ERR_REFUSED")
        finally:
            server.stop()
        self.assertTrue(issubclass(vesk.TimedOut, TimeoutError))
        self.assertTrue(issubclass(vesk.NotFound, LookupError))

    def test_of_arguments_are_told_at_once(self) -> None:
        for host, port, directory in (("h" * 41, 1, "."), ("h", 65536, "."), ("h", -1, ".")):
            with self.assertRaises(ValueError):
                vesk.Client(host, port, directory)
        with self.assertRaises(vesk.VeskError) as long:
            vesk.Client("h", 1, "d" * 101)
        self.assertEqual(long.exception.name, "ERR_CERT_PATH_LENGTH")


class Headers(unittest.TestCase):
    """What the binding repeats of the headers is as it is there."""

    TYPES = {
        "uint32_t": ctypes.c_uint32,
        "int": ctypes.c_int,
        "char": ctypes.c_char,
        "const char *": ctypes.c_char_p,
        "char *": ctypes.c_char_p,
        "unsigned char *": ctypes.POINTER(ctypes.c_ubyte),
        "uint32_t *": ctypes.POINTER(ctypes.c_uint32),
        "int32_t *": ctypes.POINTER(ctypes.c_int32),
        "const void *": ctypes.c_void_p,
        "void *": ctypes.c_void_p,
        "LinkedList *": ctypes.c_void_p,
        "const CertificatePaths *": ctypes.POINTER(_library.CertificatePaths),
        "CertificateInfo *": ctypes.POINTER(_library.CertificateInfo),
        "KeyRecord *": ctypes.POINTER(_library.KeyRecord),
        "KeyMetadataValues *": ctypes.POINTER(_library.KeyMetadataValues),
    }

    def test_prototypes(self) -> None:
        header = (SOURCE / "orn/vesk.h").read_text()
        prototypes = dict(re.findall(r"^int (\w+)\((const CertificatePaths \*paths,[^)]*)\);", header, re.M))
        self.assertEqual(prototypes.keys(), _library.CALLS.keys())
        for name, arguments in prototypes.items():
            kinds = [re.sub(r"\w+$", "", argument.strip()).strip() for argument in arguments.split(",")]
            expected = [self.TYPES[kind] for kind in kinds]
            self.assertEqual(list(getattr(_library.calls, name).argtypes), expected, name)

    def test_records(self) -> None:
        records = (SOURCE / "orn/records.h").read_text() + (SOURCE / "orn/support.h").read_text()
        for record in (_library.KeyRecord, _library.KeyMetadataValues, _library.KeyMetadataSummary, _library.CertificateInfo):
            body = re.search(rf"typedef struct {record.__name__} {{(.*?)}} {record.__name__};", records, re.S).group(1)
            members = re.findall(r"^\s*char (\w+)((?:\[\d+\])+);", body, re.M)
            sizes = [(name, eval(sizes.replace("][", "*").strip("[]"))) for name, sizes in members]
            self.assertEqual([(name, ctypes.sizeof(kind)) for name, kind in record._fields_], sizes)

    def test_return_codes(self) -> None:
        header = (SOURCE / "veskd/return_codes.h").read_text()
        codes = {name: int(value) for name, value in re.findall(r"X\(RC_(\w+), (\d+),", header)}
        self.assertEqual({code.name: code.value for code in vesk.ReturnCode}, codes)
        unknown = {value for name, value in codes.items() if name.endswith("_UNKNOWN") and name != "OUTCOME_UNKNOWN"}
        self.assertEqual(set(NOT_FOUND), unknown)


if __name__ == "__main__":
    unittest.main()
