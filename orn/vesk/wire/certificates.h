// Certificates and private keys: imports, whose file follows the request, exports, whose certificate follows the reply,
// deletions, and the lists of names.
#pragma once

#include "orn/vesk/wire/list_page.h"

namespace vesk::wire {

// The most of a file that is sent. A private key may have one byte more.
inline constexpr std::size_t kMaxCertificateBytes = 16305;
inline constexpr std::size_t kMaxPrivateKeyBytes = 16306;

inline constexpr Transaction kImportCertificate = transaction("ImportCertificate");

// The count is that of the bytes that follow the request; its length digits leave them out.
inline constexpr auto kImportCertificateRequest = request(
    kImportCertificate,
    field<&RequestFields::caCertType>(9, 1),
    field<&RequestFields::caCertName>(10, 64),
    field<&RequestFields::caImportFlag>(74, 1),
    field<&RequestFields::caByteCount>(75, 5));

inline constexpr Transaction kImportPrivateKey = transaction("ImportPrivateKey");

inline constexpr auto kImportPrivateKeyRequest = request(
    kImportPrivateKey,
    field<&RequestFields::caCertName>(9, 64),
    field<&RequestFields::caImportFlag>(73, 1),
    field<&RequestFields::caByteCount>(74, 5));

// Of both imports; only its return code is traced.
inline constexpr auto kImportReply = record<KeyRecord>(
    field<&KeyRecord::caTranLen>(0, 5),
    field<&KeyRecord::caTranId>(5, 4),
    field<&KeyRecord::caReturnCode>(9, 4, "Return Code"));

inline constexpr Transaction kExportCertificate = transaction("ExportCertificate");

inline constexpr auto kExportCertificateRequest =
    request(kExportCertificate, field<&RequestFields::caCertType>(9, 1), field<&RequestFields::caCertName>(10, 64));

struct ExportedCertificate {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caCertType[2];
  char caCertName[65];
  char caCertLength[6];  // of the certificate, which follows outside the counted reply
};

inline constexpr auto kExportCertificateReply = reply<ExportedCertificate>(
    field<&ExportedCertificate::caCertType>(13, 1, "Cert Type"),
    field<&ExportedCertificate::caCertName>(14, 64, "Cert Name"),
    field<&ExportedCertificate::caCertLength>(78, 5, "Cert Length"));

inline constexpr Transaction kDeleteCertificate = transaction("DeleteCertificate");

inline constexpr auto kDeleteCertificateRequest =
    request(kDeleteCertificate, field<&RequestFields::caCertType>(9, 1), field<&RequestFields::caCertName>(10, 64));

inline constexpr auto kDeleteCertificateReply = reply<KeyRecord>();

inline constexpr Transaction kDeletePrivateKey = transaction("DeletePrivateKey");

inline constexpr auto kDeletePrivateKeyRequest = request(kDeletePrivateKey, field<&RequestFields::caCertName>(9, 64));

inline constexpr auto kDeletePrivateKeyReply = reply<KeyRecord>();

inline constexpr Transaction kGetCertificateList = transaction("GetCertificateList");

inline constexpr auto kGetCertificateListRequest =
    request(kGetCertificateList, field<&RequestFields::caCertType>(9, 1));

inline constexpr Transaction kGetPrivateKeyList = transaction("GetPrivateKeyList");

inline constexpr auto kGetPrivateKeyListRequest = request(kGetPrivateKeyList);

// An entry of both lists.
inline constexpr std::size_t kCertificateNameBytes = 64;

}  // namespace vesk::wire
