#include "tests/library/calls.h"

#include "tests/library/library_test.h"

namespace {

constexpr const char *kHost = "kms.example";
constexpr uint32_t kPort = 5696;
constexpr const char *kConstant = "TEMPLATE0000001";

const std::string kPolicy = std::string("0256") + "00000000" + "00000000" + "N" + "0000" + "Y";

KeyRecord record;
KeyMetadataValues values;
LinkedList list{40, {}};
char key_name[41];
unsigned char key_value[32];
uint32_t number, other_number;

int set_metadata(const CertificatePaths &p) {
  return qSetMetadata(&p, kHost, kPort, "K1", "I1", "m1", "m2", "m3", "m4", "m5", "m6", "m7", "m8", "m9", "m10", "m11",
                      "m12", "m13", "m14", "m15", "m16");
}

std::string set_metadata_request() {
  std::string request =
      "01188"
      "1039" +
      padded("K1", 40) + padded("I1", 24) + "MD01'" + padded("m1", 64);
  for (int k = 2; k <= 16; ++k)
    request += std::string("'MD") + (k < 10 ? "0" : "") + std::to_string(k) + "'" + padded("m" + std::to_string(k), 64);
  return request + "'";
}

int query_metadata(const CertificatePaths &p) {
  return qRetrieveMetadata_as_ll(&p, kHost, kPort, "unused", 0, "a", 1, nullptr, 1, nullptr, 0, "b", 6, "", 0, "", 0,
                                 "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, &list);
}

}  // namespace

const std::vector<CallCase> &all_calls() {
  static const std::vector<CallCase> calls = {
      {"AdminNoop", [](const CertificatePaths &p) { return qAdminNoop(&p, kHost, kPort); }, "000041043", "1043", 60,
       9999, "AdminNoop"},
      {"CreateSymKey", [](const CertificatePaths &p) { return qCreateSymKey(&p, kHost, kPort, "K1", 'Y'); },
       "00584"
       "1001" +
           padded("K1", 40) + kPolicy + "Y" + "1" + padded("User1", 256) + padded("Group1", 256),
       "1001", 60, 9999, "CreateSymKey"},
      {"DisplaySymKeyPolicy",
       [](const CertificatePaths &p) { return qRetrieveKeyMetadata(&p, kHost, kPort, "K1", &values); },
       "00068"
       "1003" +
           padded("K1", 40) + blanks(24),
       "1003", 60, 9999, "DisplaySymKeyPolicy"},
      {"ChangeDeletable", [](const CertificatePaths &p) { return qChangeDeletable(&p, kHost, kPort, "K1", 'N'); },
       "00069"
       "1005" +
           padded("K1", 40) + blanks(24) + "Y",
       "1005", 1200, 9227, "ChangeDeletable"},
      {"DeleteKey", [](const CertificatePaths &p) { return qDeleteKey(&p, kHost, kPort, "K1"); },
       "00044"
       "1015" +
           padded("K1", 40),
       "1015", 60, 9999, "DeleteKey"},
      {"CreateDB", [](const CertificatePaths &p) { return qCreateDatabase(&p, kHost, kPort); }, "000121107CreateDB",
       "1107", 60, 9999, "CreateDB"},
      {"AutoGenKeys", [](const CertificatePaths &p) { return qAutoGenKeys(&p, kHost, kPort, kConstant, 'i', 25); },
       "00594"
       "1117" +
           padded(kConstant, 39) + "06" + "H" + "15" + "00025" + "I" + kPolicy + "Y" + "1" + blanks(512),
       "1117", 1200, 9227, "AutoGenKeys"},
      {"GetTemplateDepth",
       [](const CertificatePaths &p) { return qGetTemplateDepth(&p, kHost, kPort, kConstant, &number, &other_number); },
       "00047"
       "1121" +
           padded(kConstant, 39) + "06" + "15",
       "1121", 60, 9260, "GetTemplateDepth"},
      {"GetTemplateList", [](const CertificatePaths &p) { return qGetTemplateList(&p, kHost, kPort, &list); },
       "000041123", "1123", 60, 9261, "GetTemplateList", true},
      {"RemoveTemplate", [](const CertificatePaths &p) { return qRemoveTemplate(&p, kHost, kPort, kConstant); },
       "00048"
       "1125"
       "Y" +
           padded(kConstant, 39) + "15" + "06",
       "1125", 60, 9999, "RemoveTemplate"},
      {"SetNextIncrement",
       [](const CertificatePaths &p) { return qSetNextIncrement(&p, kHost, kPort, kConstant, 255); },
       "00087"
       "1159" +
           padded(kConstant, 39) + "06" + "15" + "0000FF" + blanks(34),
       "1159", 60, 9260, "SetNextIncrement"},
      {"RetrieveKey", [](const CertificatePaths &p) { return qRetrieveKey(&p, kHost, kPort, "K1", "I1", &record); },
       "00071"
       "2001" +
           padded("K1", 40) + padded("I1", 24) + "BIN",
       "2001", 60, 9999, "ActivateKey", false, 20000},
      {"GetNextKey",
       [](const CertificatePaths &p) { return qGetNextKey(&p, kHost, kPort, kConstant, key_name, key_value, &number); },
       "00051"
       "2003" +
           padded(kConstant, 39) + "06" + "H" + "15" + "BIN",
       "2003", 60, 5109, "GetNextKeyRsp"},
      {"SetMetadata", [](const CertificatePaths &p) { return set_metadata(p); }, set_metadata_request(), "1039", 60,
       9999, "SetMetadata"},
      {"RetrieveMetadata", [](const CertificatePaths &p) { return query_metadata(p); },
       "00153"
       "1053"
       "MD02 EQ '" +
           padded("a", 64) + "' MD05 GE '" + padded("b", 64) + "'",
       "1053", 300, 9145, "RetrieveMetadata"},
      {"DisplayKeyNameList",
       [](const CertificatePaths &p) { return qRetrieveKeyNameList_as_ll(&p, kHost, kPort, &list); }, "000041037",
       "1037", 300, 9999, "DisplayKeyNameList"},
  };
  return calls;
}
