// Names and sentences of statuses.
#include <array>

#include "orn/support.h"

namespace {

struct StatusWords {
  const char *name;
  const char *text;
};

// The metadata fields whose status is 10000 less their number. MD01's is ERR_TRANSACTION_SIZE.
#define ORN_METADATA_FIELDS(X) X(02) X(03) X(04) X(05) X(06) X(07) X(08) X(09) X(10) X(11) X(12) X(13) X(14) X(15) X(16)
#define ORN_METADATA_WORDS(number) \
  StatusWords{"ERR_METADATA_SIZE_MD" #number, "metadata field MD" #number " is not exactly 64 characters"},
constexpr std::array kMetadataWords = {ORN_METADATA_FIELDS(ORN_METADATA_WORDS)};
#undef ORN_METADATA_WORDS
#undef ORN_METADATA_FIELDS

constexpr int kFirstMetadataStatus = 9998;
constexpr int kLastMetadataStatus = 9984;
static_assert(kMetadataWords.size() == kFirstMetadataStatus - kLastMetadataStatus + 1);

// The compiler refuses two codes of one value.
StatusWords words(int status) {
#define ORN_STATUS_CASE(name, value, sentence) \
  case value:                                  \
    return {#name, sentence};
  switch (status) {
    ORN_LIBRARY_STATUSES(ORN_STATUS_CASE)
    ORN_CONNECTION_STATUSES(ORN_STATUS_CASE)
    case 0:
      return {"OK", "success"};
    case -1:
      return {"CALL_FAILED",
              "what the call asks for is not so: the server is not in FIPS mode, or the key import failed"};
    default:
      break;
  }
#undef ORN_STATUS_CASE
  if (status >= kLastMetadataStatus && status <= kFirstMetadataStatus) {
    return kMetadataWords[static_cast<std::size_t>(kFirstMetadataStatus - status)];
  }
  if (status >= 1 && status <= 9999) return {"SERVER_RETURN_CODE", "the server's return code"};
  return {"UNKNOWN_STATUS", "a status that nobody uses"};
}

}  // namespace

const char *StatusName(int status) {
  return words(status).name;
}

const char *StatusText(int status) {
  return words(status).text;
}
