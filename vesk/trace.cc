#include "vesk/trace.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "orn/support.h"
#include "orn/vesk/wire/text.h"
#include "vesk/capture.h"
#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::string_view kConnectionLayer = "orn/support:";
constexpr std::string_view kTransactionFunctions = "orn/vesk/skeys:";
constexpr std::string_view kReturnCode = "Return Code <";
constexpr std::size_t kMaxDetails = 8;

// Of the calls of this thread.
thread_local std::vector<std::string> details;
thread_local int return_code = 0;

// What stands before the next blank is taken off the line.
std::string_view take_word(std::string_view &line) {
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(word.size() + 1, line.size()));
  return word;
}

void keep_detail(std::string_view message) {
  // These repeat what the error says anyway.
  if (message.starts_with("connected to ") || message.starts_with("no connection to ")) return;
  if (details.size() < kMaxDetails) details.emplace_back(message);
}

void keep_return_code(std::string_view message) {
  if (return_code == 0 && message.starts_with(kReturnCode))
    return_code = vesk::wire::to_int(message.substr(kReturnCode.size()));
}

// A line is time, thread, path:line and message, with a blank between them.
void keep(std::string_view line) {
  take_word(line);
  take_word(line);
  const std::string_view place = take_word(line);
  if (place.starts_with(kConnectionLayer)) keep_detail(line);
  if (place.starts_with(kTransactionFunctions)) keep_return_code(line);
}

bool is_openssl_reason(const std::string &detail) {
  return detail.starts_with("OpenSSL: ");
}

std::FILE *open_for_append(const std::string &path) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600);
  std::FILE *file = descriptor < 0 ? nullptr : fdopen(descriptor, "a");
  if (file) return file;
  const int error = errno;
  if (descriptor >= 0) close(descriptor);
  throw Failure(ExitCode::kOther, fmt::format("cannot open the trace file {}: {}", printable(path),
                                              std::generic_category().message(error)));
}

}  // namespace

Trace::Trace(const std::string &path) {
  if (!path.empty() && path != "-") file_.reset(open_for_append(path));
  stream_ = path == "-" ? stderr : file_.get();
  set_capture(stream_ != nullptr);
  TraceToCallback(receive, this);
}

Trace::~Trace() {
  set_capture(false);
  TraceOff();
}

void Trace::receive(void *trace, const char *line) {
  keep(line);
  std::FILE *stream = static_cast<Trace *>(trace)->stream_;
  if (!stream) return;
  // Each line at once: a trace is read when something went wrong.
  std::fprintf(stream, "%s\n", line);
  std::fflush(stream);
}

std::vector<std::string> Trace::take_connection_details() {
  std::vector<std::string> taken;
  taken.swap(details);
  // OpenSSL's own words are for when there are no better ones.
  const bool only_openssl = std::all_of(taken.begin(), taken.end(), is_openssl_reason);
  if (!only_openssl) std::erase_if(taken, is_openssl_reason);
  return taken;
}

int Trace::take_return_code() {
  return std::exchange(return_code, 0);
}

}  // namespace command
