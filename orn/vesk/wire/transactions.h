// The transactions, a row each: what an exchange needs to know besides its fields.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "orn/status.h"

namespace vesk::wire {

struct Transaction {
  const char *function;          // the transaction function, as the traces name it
  const char *tran_id;           // transaction identifier, four digits
  std::string_view length;       // the request's length digits; empty where each request sets its own
  int reply_timeout_seconds;     // of the read of a reply's length digits
  std::int32_t oversize_status;  // of a reply longer than kMaxReplyLength
  const char *oversize_name;     // opens the trace of such a reply

  constexpr std::size_t declared_length() const {
    std::size_t value = 0;
    for (const char digit : length) value = value * 10 + static_cast<std::size_t>(digit - '0');
    return value;
  }
};

// The most bytes that a reply may declare behind its length digits.
inline constexpr int kMaxReplyLength = 16384;

// Of every read but that of the length digits.
inline constexpr int kReadTimeoutSeconds = 60;

// Names and statuses are the protocol's own, the odd ones included: callers and log readers rely on them.
inline constexpr std::array kTransactions = {
    Transaction{"AdminNoop", "1043", "00004", 60, ERR_TRANSACTION_SIZE, "AdminNoop"},
    Transaction{"CreateSymKey", "1001", "00584", 60, ERR_TRANSACTION_SIZE, "CreateSymKey"},
    Transaction{"DisplaySymKeyPolicy", "1003", "00068", 60, ERR_TRANSACTION_SIZE, "DisplaySymKeyPolicy"},
    Transaction{"ChangeDeletable", "1005", "00069", 1200, ERR_AUTOGEN_SIZE, "ChangeDeletable"},
    Transaction{"DeleteKey", "1015", "00044", 60, ERR_TRANSACTION_SIZE, "DeleteKey"},
    Transaction{"ImportSymKey", "1023", "00908", 60, ERR_TRANSACTION_SIZE, "ImportSymKey"},
    Transaction{"ExportSymKey", "1025", "00136", 60, ERR_EXPORT_SIZE, "ExportSymKey"},
    Transaction{"DisplayKeyNameList", "1037", "00004", 300, ERR_TRANSACTION_SIZE, "DisplayKeyNameList"},
    Transaction{"SetMetadata", "1039", "01188", 60, ERR_TRANSACTION_SIZE, "SetMetadata"},
    Transaction{"ValidateDB", "1041", "00004", 300, ERR_APPLIANCE_SIZE, "ValidateDB"},
    Transaction{"ReportFipsMode", "1047", "00004", 60, ERR_TRANSACTION_SIZE, "ReportFipsMode"},
    Transaction{"GetCertificateList", "1049", "00005", 60, ERR_LIST_SIZE, "GetCertificateList"},
    Transaction{"RetrieveMetadata", "1053", "", 300, ERR_METADATA_TRANSACTION_SIZE, "RetrieveMetadata"},
    Transaction{"CreateDB", "1107", "00012", 60, ERR_TRANSACTION_SIZE, "CreateDB"},
    Transaction{"AutoGenKeys", "1117", "00594", 1200, ERR_AUTOGEN_SIZE, "AutoGenKeys"},
    Transaction{"GetPrivateKeyList", "1119", "00004", 60, ERR_LIST_SIZE, "GetP:rivateKeyList"},
    Transaction{"GetTemplateDepth", "1121", "00047", 60, ERR_REPLY_SIZE, "GetTemplateDepth"},
    Transaction{"GetTemplateList", "1123", "00004", 60, ERR_LIST_SIZE, "GetTemplateList"},
    Transaction{"RemoveTemplate", "1125", "00048", 60, ERR_TRANSACTION_SIZE, "RemoveTemplate"},
    Transaction{"GetMirrorAddress", "1127", "00044", 60, ERR_TRANSACTION_SIZE, "GetMirrorAddress"},
    Transaction{"SetMirrorAddress", "1129", "00305", 60, ERR_REPLY_SIZE, "SetMirrorAddress"},
    Transaction{"RemoveMirrorAddress", "1131", "00044", 60, ERR_TRANSACTION_SIZE, "GetMirrorStatus"},
    Transaction{"ListMirrorNames", "1133", "00004", 300, ERR_TRANSACTION_SIZE, "ListMirrorNames"},
    Transaction{"GetMirrorStatus", "1135", "00045", 60, ERR_TRANSACTION_SIZE, "GetMirrorStatus"},
    Transaction{"GetSystemStatus", "1137", "00004", 60, ERR_APPLIANCE_SIZE, "GetSystemStatusDB"},
    Transaction{"ImportCertificate", "1139", "00075", 60, ERR_TRANSACTION_SIZE, "ImportCertificate"},
    Transaction{"DeleteCertificate", "1141", "00069", 60, ERR_TRANSACTION_SIZE, "DeleteCertificate"},
    Transaction{"ImportPrivateKey", "1143", "00074", 60, ERR_TRANSACTION_SIZE, "ImportPrivateKey"},
    Transaction{"DeletePrivateKey", "1145", "00068", 60, ERR_TRANSACTION_SIZE, "DeletePrivateKey"},
    Transaction{"GetQueueSize", "1147", "00044", 60, ERR_TRANSACTION_SIZE, "GetQueueSize"},
    Transaction{"ForceKeySync", "1151", "00085", 60, ERR_TRANSACTION_SIZE, "ForceKeySync"},
    Transaction{"ExportCertificate", "1153", "00069", 60, ERR_EXPORT_SIZE, "ExportCertificate"},
    Transaction{"SetNextIncrement", "1159", "00087", 60, ERR_REPLY_SIZE, "SetNextIncrement"},
    Transaction{"RetrieveKey", "2001", "00071", 60, ERR_TRANSACTION_SIZE, "ActivateKey"},
    Transaction{"GetNextKey", "2003", "00051", 60, ERR_NEXT_KEY_SIZE, "GetNextKeyRsp"},
};

// The row of a transaction function; a name that has none does not compile.
constexpr const Transaction &transaction(std::string_view function) {
  for (const Transaction &row : kTransactions) {
    if (row.function == function) return row;
  }
  throw "no such transaction";
}

}  // namespace vesk::wire
