#include "orn/vesk/wire/key_names.h"

#include "orn/vesk/skeys/output_file.h"
#include "orn/vesk/skeys/pages.h"

using namespace vesk;

namespace {

// The highest sequence number that the names of a listing have carried.
class HighestSequence {
 public:
  void take(const char *name) {
    char digits[wire::kSequenceDigits + 1] = {};
    std::memcpy(digits, name + wire::kSequenceOffset, wire::kSequenceDigits);
    const std::uint32_t sequence = wire::to_hex(digits);
    if (sequence == 0 && std::string_view(digits) == "000000") {
      // A name that carries zeros starts the count anew, whatever came before it.
      SKEYS_TRACE("Set highest sequence to zero");
      highest_ = 0;
    } else if (sequence > highest_ || highest_ == wire::kNoSequence) {
      SKEYS_TRACE("Set highest sequence to <%i>", static_cast<int>(sequence));
      highest_ = sequence;
    }
  }

  std::uint32_t value() const { return highest_; }

 private:
  std::uint32_t highest_ = wire::kNoSequence;
};

// What happens to each name of a listing.
class KeyNameSink {
 public:
  KeyNameSink(const RequestFields &request, LinkedList *list)
      : filter_(wire::text_in(request.caKeyFilter).substr(0, wire::kKeyNameBytes)),
        list_(list),
        element_(std::max(sizeof name_, list == nullptr ? 0 : ll_get_element_size(list))) {}

  bool open(const char *path) { return file_.open(path); }

  // Returns false when the file takes no more.
  bool take(std::string_view entry) {
    entry.copy(name_, wire::kKeyNameBytes);
    if (!entry.starts_with(filter_)) return true;
    SKEYS_TRACE("%s\n", name_);
    highest_.take(name_);
    if (file_.is_open() && !write_name()) return false;
    if (list_ != nullptr) {
      std::memcpy(element_.data(), name_, sizeof name_);
      ll_append(list_, element_.data());
    }
    return true;
  }

  // Writes out what is still buffered. Returns whether the file took all of it.
  bool finish() { return !file_.is_open() || file_.close() || wrote_short(0); }

  const char *last_name() const { return name_; }
  std::uint32_t highest_sequence() const { return highest_.value(); }

 private:
  // The name and a line end; it is the name that must be written whole.
  bool write_name() {
    char line[wire::kKeyNameBytes + 1];
    std::memcpy(line, name_, wire::kKeyNameBytes);
    line[wire::kKeyNameBytes] = '\n';
    const std::size_t written = file_.write({line, sizeof line});
    return written >= wire::kKeyNameBytes || wrote_short(written);
  }

  bool wrote_short(std::size_t written) {
    SKEYS_TRACE("Failed to write to the file.  Bytes written: <%X>", static_cast<unsigned>(written));
    return false;
  }

  std::string_view filter_;
  LinkedList *list_;
  std::vector<char> element_;  // ll_append copies the list's element size
  char name_[wire::kKeyNameBytes + 1] = {};
  HighestSequence highest_;
  skeys::BufferedFile<16384> file_;  // of a long listing
};

}  // namespace

void DisplayKeyNameList(Session *session, LinkedList *list) {
  RequestFields &request = session->request;
  skeys::begin(*session, wire::kDisplayKeyNameList);
  if (!skeys::send_request(*session, wire::kDisplayKeyNameListRequest)) return;

  KeyNameSink names(request, list);
  if (request.caDataFile[0] != '\0' && !names.open(request.caDataFile)) {
    SKEYS_TRACE("Failed to open data file <%s>", request.caDataFile);
    session->iStatus = ERR_LIST_FILE;
    return;
  }
  wire::ListPage page;
  do {
    const auto received = skeys::receive_page(*session, wire::kDisplayKeyNameList, wire::kListPage, page);
    if (!received) return;
    const int count = wire::to_int(page.caListCount);
    const auto take = [&](std::string_view entry) { return names.take(entry); };
    if (count > 0 && !skeys::read_entries(*session, received->size(), count, wire::kKeyNameBytes, take)) return;
  } while (page.caMoreFlag[0] == 'Y');
  if (!names.finish()) return;
  SKEYS_TRACE("%s", names.last_name());
  wire::put_number(request.caHighestSequence, "%06X", names.highest_sequence());
  skeys::conclude(*session, page.caReturnCode);
}
