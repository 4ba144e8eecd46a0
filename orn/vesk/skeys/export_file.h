// The file that an exported key or certificate goes to, at session.caFilePath.
#pragma once

#include "orn/vesk/skeys/error_text.h"
#include "orn/vesk/skeys/exchange.h"
#include "orn/vesk/skeys/output_file.h"

namespace vesk::skeys {

// A step that fails leaves its status in iStatus.
class ExportFile {
 public:
  ExportFile(Session &session, const Transaction &transaction) : session_(session), name_(transaction.function) {}

  // Creates or truncates.
  bool open() {
    if (file_.open(session_.caFilePath)) return true;
    const ErrorText reason;
    session_.iStatus = ERR_EXPORT_FILE_OPEN;
    SKEYS_TRACE("%s ERR <%d> Error opening export file <%s>", name_, session_.iStatus, session_.caFilePath);
    SKEYS_TRACE("<%s>", reason.c_str());
    return false;
  }

  bool write(std::span<const char> bytes) {
    const std::size_t written = file_.write({bytes.data(), bytes.size()});
    total_ += written;
    if (written == bytes.size()) return true;
    session_.iStatus = ERR_EXPORT_FILE_WRITE;
    SKEYS_TRACE("%s ERR <%d> fwrite returned <%d> items", name_, session_.iStatus, static_cast<int>(total_));
    SKEYS_TRACE(" instead of 1");  // whatever was to be written
    SKEYS_TRACE(" ferror returned <%d>", file_.error_indicator());
    SKEYS_TRACE(" feof returned <%d>", file_.end_indicator());
    return false;
  }

  // Writes what is still buffered, if the file is open. A failure is traced and leaves the status as it is.
  void close() {
    if (!file_.is_open()) return;
    errno = 0;
    if (file_.close()) return;
    const ErrorText reason;
    SKEYS_TRACE("%s ERR <%d> fclose failed for file <%s>", name_, session_.iStatus, session_.caFilePath);
    SKEYS_TRACE("<%s>", reason.c_str());
  }

 private:
  Session &session_;
  const char *name_;
  OutputFile file_;
  std::size_t total_ = 0;
};

}  // namespace vesk::skeys
