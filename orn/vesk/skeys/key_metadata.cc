#include "orn/vesk/wire/key_metadata.h"

#include <cstdio>

#include "orn/vesk/skeys/output_file.h"
#include "orn/vesk/skeys/pages.h"

using namespace vesk;

namespace {

constexpr int kMetadataSize = static_cast<int>(wire::kMetadataBytes);

// Whether all sixteen fields have exactly their width; otherwise the status tells which one has not. The first field's
// status is that of an oversized reply as well, and it alone is told on standard output too.
bool check_metadata(Session &session) {
  for (std::size_t i = 0; i < wire::kMetadataFields; ++i) {
    const int size = static_cast<int>(wire::text_in(session.request.caMetadata[i]).size());
    if (size == kMetadataSize) continue;
    session.iStatus = 10000 - static_cast<int>(i + 1);
    SKEYS_TRACE("SetMetadata ERR <%d> %s size <%d> should be <%d>", session.iStatus, wire::kMetadataLabels[i], size,
                kMetadataSize);
    if (i == 0)
      std::printf("SetMetadata ERR <%d> MD01 size <%d> should be <%d>\n", session.iStatus, size, kMetadataSize);
    return false;
  }
  return true;
}

// The request of a query: its length, its identifier, and the criteria that are not empty, a blank between two.
void append_query(const Session &session, std::span<char> buffer, wire::Appender &out) {
  const auto append_field = [&](const auto &field) { out.append({field, sizeof field - 1}); };
  out.append("00000");
  append_field(session.request.caTranId);
  append_field(session.request.caKeyName);
  append_field(session.request.caInstance);
  const std::size_t first_criterion = out.length();
  for (std::size_t i = 0; i < wire::kMetadataFields && session.pcaFilter[i] != nullptr; ++i) {
    SKEYS_TRACE("idx <%d>", static_cast<int>(i));
    const std::string_view criterion(session.pcaFilter[i], strnlen(session.pcaFilter[i], wire::kCriterionBytes));
    if (!criterion.empty() && out.length() > first_criterion) out.append(" ");
    out.append(criterion);
  }
  char digits[wire::kLengthDigits + 1];
  wire::put_number(digits, "%05u", static_cast<std::uint32_t>(out.length() - wire::kLengthDigits));
  std::memcpy(buffer.data(), digits, wire::kLengthDigits);
}

bool send_query(Session &session) {
  Wiped<skeys::RequestBuffer> buffer;
  wire::Appender request(*buffer);
  append_query(session, *buffer, request);
  return skeys::send_bytes(session, std::span(*buffer).first(request.length()));
}

// What happens to each record of a query.
class MetadataSink {
 public:
  explicit MetadataSink(LinkedList *list)
      : list_(list), element_(std::max(sizeof summary_, list == nullptr ? 0 : ll_get_element_size(list))) {}

  bool open(const char *path) { return file_.open(path); }

  // Returns false when the file takes no more.
  bool take(std::string_view received) {
    Wiped<KeyRecord> record;
    skeys::parse(wire::kMetadataRecord, received, *record);
    summary_ = {};
    strip(record->caKeyName, summary_.caKeyName);
    for (std::size_t i = 0; i < std::size(summary_.md); ++i) strip(record->md[i], summary_.md[i]);
    if (file_.is_open() && !write()) return false;
    if (list_ != nullptr) {
      std::memcpy(element_.data(), &summary_, sizeof summary_);
      ll_append(list_, element_.data());
    }
    return true;
  }

  // Writes out what is still buffered.
  void finish() {
    if (file_.is_open() && !file_.close()) wrote(0);
  }

 private:
  bool write() {
    const auto &[name, md] = summary_;
    return wrote(file_.print("%s,%s,%s,%s,%s,%s,%s,%s\n", name, md[0], md[1], md[2], md[3], md[4], md[5], md[6]));
  }

  bool wrote(int written) {
    if (written > 0) return true;
    SKEYS_TRACE("Failed to write to the file.  Bytes written: <%X>", static_cast<unsigned>(written));
    return false;
  }

  LinkedList *list_;
  KeyMetadataSummary summary_{};
  std::vector<char> element_;  // ll_append copies the list's element size
  skeys::OutputFile file_;
};

// Reads the records behind a page and hands each to the sink. Records are counted before they are read and handled
// whatever becomes of the read: what did not arrive is empty, and the status tells.
bool take_records(Session &session, int block_length, MetadataSink &sink) {
  constexpr std::size_t kRecordBytes = wire::kMetadataRecordBytes;
  SKEYS_TRACE("iNrRecords <%d>", block_length / static_cast<int>(kRecordBytes));
  bool line_is_up = true;
  const bool taken = skeys::in_pieces(session, 0, block_length, kRecordBytes, [&](std::span<char> piece) {
    std::fill(piece.begin(), piece.end(), '\0');
    line_is_up = line_is_up && skeys::read_bytes(session, piece, wire::kReadTimeoutSeconds);
    return skeys::for_each_entry(piece, kRecordBytes, [&](std::string_view record) { return sink.take(record); });
  });
  return taken && line_is_up;
}

}  // namespace

void SetMetadata(Session *session) {
  skeys::begin(*session, wire::kSetMetadata);
  if (!check_metadata(*session)) return;
  Wiped<KeyRecord> reply;
  if (!skeys::exchange(*session, wire::kSetMetadata, wire::kSetMetadataRequest, wire::kSetMetadataReply, *reply))
    return;
  skeys::conclude(*session, reply->caReturnCode);
}

void RetrieveMetadata(Session *session, LinkedList *list) {
  skeys::begin(*session, wire::kRetrieveMetadata);
  if (!send_query(*session)) return;

  MetadataSink sink(list);
  const char *path = session->request.caDataFile;
  if (path[0] != '\0' && !sink.open(path)) {
    SKEYS_TRACE("Unable to open output file");  // and nothing else: the call succeeds
    return;
  }
  wire::MetadataPage page;
  do {
    if (!skeys::receive_page(*session, wire::kRetrieveMetadata, wire::kMetadataPage, page)) return;
    skeys::conclude(*session, page.caReturnCode);
    if (session->iStatus != 0) return;
    const int block_length = wire::to_int(page.caDataSize) - wire::kDataSizeOverhead;
    if (block_length < 1) break;
    if (!take_records(*session, block_length, sink)) return;
  } while (page.caMoreFlag[0] != 'N');
  sink.finish();
}
