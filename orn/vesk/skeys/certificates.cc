#include "orn/vesk/wire/certificates.h"

#include "orn/vesk/skeys/export_file.h"
#include "orn/vesk/skeys/input_file.h"
#include "orn/vesk/skeys/pages.h"

using namespace vesk;

namespace {

// Sends what the opened file holds, at most max_bytes of it, behind a request that gives the count.
template <std::size_t kRows>
void import_file(Session &session, const wire::Transaction &transaction,
                 const wire::Table<RequestFields, kRows> &request, skeys::InputFile &file, std::size_t max_bytes) {
  Wiped<std::array<char, wire::kMaxPrivateKeyBytes>> data;
  const std::span<const char> content = std::span(*data).first(file.read(std::span(*data).first(max_bytes)));
  if (file.error_indicator() != 0) {
    SKEYS_TRACE("Error reading file <%i>", file.error_indicator());
    session.iStatus = ERR_DATA_FILE;
    return;
  }
  wire::put_number(session.request.caByteCount, "%05u", static_cast<std::uint32_t>(content.size()));
  skeys::send_request(session, request);  // the status is that of the second send, which is made in any case
  if (!skeys::send_payload(session, content)) return;

  const auto received = skeys::receive(session, transaction);
  if (!received) return;
  Wiped<KeyRecord> reply;
  skeys::parse(wire::kImportReply, *received, *reply);
  skeys::conclude(session, reply->caReturnCode);
}

// Reads the certificate behind a reply of reply_bytes into the file. All its bytes are written whatever becomes of the
// read: those that did not arrive are zero, and the status tells.
bool take_certificate(Session &session, std::size_t reply_bytes, int length, skeys::ExportFile &file) {
  bool line_is_up = true;
  return skeys::in_pieces(session, reply_bytes, length, 1, [&](std::span<char> piece) {
    std::ranges::fill(piece, '\0');
    line_is_up = line_is_up && skeys::read_bytes(session, piece, wire::kReadTimeoutSeconds);
    return file.write(piece);
  });
}

using Name = char[wire::kCertificateNameBytes + 1];

// What happens to each name of a listing. A step that fails leaves its status in iStatus.
class NameSink {
 public:
  NameSink(Session &session, LinkedList *list) : session_(session), list_name_(list, wire::kCertificateNameBytes) {}

  bool open(const char *path) {
    if (file_.open(path)) return true;
    session_.iStatus = ERR_NAME_FILE_OPEN;
    SKEYS_TRACE("Failed to open file <%s>", path);
    return false;
  }

  bool take(std::string_view entry, void (*trim)(Name &)) {
    std::memset(name_, 0, sizeof name_);
    entry.copy(name_, wire::kCertificateNameBytes);
    trim(name_);
    if (file_.is_open()) {
      file_.print("%s\n", name_);
      if (file_.error_indicator() != 0) return failed_to_write();
    }
    list_name_.take(wire::text_in(name_));
    list_name_.append();
    return true;
  }

  // Writes out what is still buffered: a short listing meets a full disk only here.
  void finish() {
    if (file_.is_open() && !file_.close()) failed_to_write();
  }

  const char *last_name() const { return name_; }

 private:
  bool failed_to_write() {
    session_.iStatus = ERR_NAME_FILE_WRITE;
    SKEYS_TRACE("Error writing to file");
    return false;
  }

  Session &session_;
  Name name_ = {};
  skeys::ListName list_name_;
  skeys::OutputFile file_;
};

// A listing, whose pages differ from one transaction to the other in nothing but what a NUL within a name means. The
// pages' return codes are traced and do not count.
template <std::size_t kRows>
void list_names(Session &session, const wire::Transaction &transaction,
                const wire::Table<RequestFields, kRows> &request, LinkedList *list, void (*trim)(Name &)) {
  constexpr std::size_t kEntryBytes = wire::kCertificateNameBytes;
  skeys::begin(session, transaction);
  wire::put_padded(session.request.caTranId, transaction.tran_id);
  if (!skeys::send_request(session, request)) return;
  NameSink names(session, list);
  if (session.caFilePath[0] != '\0' && !names.open(session.caFilePath)) return;
  wire::ListPage page;
  do {
    const auto received = skeys::receive_page(session, transaction, wire::kListPage, page);
    if (!received) return;
    const auto take_piece = [&](std::span<char> piece) {
      if (!skeys::read_bytes(session, piece, wire::kReadTimeoutSeconds)) return false;
      skeys::trace_received(session);
      return skeys::for_each_entry(piece, kEntryBytes, [&](std::string_view entry) { return names.take(entry, trim); });
    };
    if (!skeys::in_pieces(session, received->size(), wire::to_int(page.caListCount), kEntryBytes, take_piece)) return;
  } while (page.caMoreFlag[0] == 'Y');
  SKEYS_TRACE("%s", names.last_name());
  names.finish();
}

}  // namespace

void ImportCertificate(Session *session) {
  skeys::begin(*session, wire::kImportCertificate);
  skeys::InputFile file;
  if (!file.open(session->caFilePath)) {
    SKEYS_TRACE("Failed to open data file <%s>", session->caFilePath);
    session->iStatus = ERR_DATA_FILE;
    return;
  }
  import_file(*session, wire::kImportCertificate, wire::kImportCertificateRequest, file, wire::kMaxCertificateBytes);
}

void ImportPrivateKey(Session *session) {
  skeys::begin(*session, wire::kImportPrivateKey);
  skeys::InputFile file;
  if (!file.open(session->caFilePath)) {
    SKEYS_TRACE("Failed to open data file");
    session->iStatus = ERR_DATA_FILE;
    return;
  }
  wire::put_padded(session->request.caTranId, wire::kImportPrivateKey.tran_id);
  import_file(*session, wire::kImportPrivateKey, wire::kImportPrivateKeyRequest, file, wire::kMaxPrivateKeyBytes);
}

void ExportCertificate(Session *session) {
  const RequestFields &request = session->request;
  skeys::begin(*session, wire::kExportCertificate);
  SKEYS_TRACE("Transaction Length <%s>", wire::kExportCertificate.length.data());
  SKEYS_TRACE("Tran Id <%s>", request.caTranId);
  SKEYS_TRACE("Cert Type <%s>", request.caCertType);
  SKEYS_TRACE("Cert Name <%s>", request.caCertName);
  SKEYS_TRACE("EI File Path <%s>", session->caFilePath);
  if (!skeys::send_request(*session, wire::kExportCertificateRequest)) return;
  const auto received = skeys::receive(*session, wire::kExportCertificate);
  if (!received) return;
  Wiped<wire::ExportedCertificate> reply;
  skeys::parse(wire::kExportCertificateReply, *received, *reply);

  skeys::ExportFile file(*session, wire::kExportCertificate);
  if (file.open() && take_certificate(*session, received->size(), wire::to_int(reply->caCertLength), file))
    skeys::conclude(*session, reply->caReturnCode);
}

void DeleteCertificate(Session *session) {
  skeys::transact(*session, wire::kDeleteCertificate, wire::kDeleteCertificateRequest, wire::kDeleteCertificateReply);
}

void DeletePrivateKey(Session *session) {
  skeys::transact(*session, wire::kDeletePrivateKey, wire::kDeletePrivateKeyRequest, wire::kDeletePrivateKeyReply);
}

void GetCertificateList(Session *session, LinkedList *list) {
  list_names(*session, wire::kGetCertificateList, wire::kGetCertificateListRequest, list,
             [](Name &name) { strip(name, name); });
}

void GetPrivateKeyList(Session *session, LinkedList *list) {
  list_names(*session, wire::kGetPrivateKeyList, wire::kGetPrivateKeyListRequest, list,
             [](Name &name) { strip_with_length(name, name, wire::kCertificateNameBytes); });
}
