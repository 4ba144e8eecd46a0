// The trace's destination and its lines.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <exception>
#include <mutex>
#include <string>

#include "orn/support/tracing.h"

namespace orn {
namespace {

constexpr const char *kContinuation = "\n    ";

// Where lines go: at most one of stream, descriptor and callback is set.
struct Destination {
  std::FILE *stream = nullptr;
  int descriptor = -1;
  TraceSink callback = nullptr;
  void *context = nullptr;
};

// Never destroyed: threads may still trace while the process ends.
std::mutex destination_mutex;
Destination destination;

// A child of fork() gets the mutex free, whatever the other threads of its parent were doing.
void survive_fork() {
  static std::once_flag once;
  std::call_once(once, [] {
    pthread_atfork([] { destination_mutex.lock(); }, [] { destination_mutex.unlock(); },
                   [] { destination_mutex.unlock(); });
  });
}

void switch_to(const Destination &next) {
  survive_fork();
  std::lock_guard lock(destination_mutex);
  if (destination.descriptor >= 0) close(destination.descriptor);
  destination = next;
  trace_is_on.store(next.stream || next.descriptor >= 0 || next.callback, std::memory_order_relaxed);
}

// Whoever reads the trace may have gone. The signal that a write then raises stays here; one that was pending before
// stays pending.
class NoBrokenPipe {
 public:
  NoBrokenPipe() {
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&broken_pipe_);
    sigaddset(&broken_pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &broken_pipe_, &before_);
  }
  NoBrokenPipe(const NoBrokenPipe &) = delete;
  NoBrokenPipe &operator=(const NoBrokenPipe &) = delete;
  ~NoBrokenPipe() {
    const timespec at_once{};
    while (!was_pending_ && sigtimedwait(&broken_pipe_, nullptr, &at_once) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t broken_pipe_;
  sigset_t before_;
  bool was_pending_;
};

void write_all(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    // A full disk must not stop the work that is being traced.
    if (written <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void call_back_by_line(const Destination &to, std::string &lines) {
  for (std::size_t begin = 0; begin < lines.size();) {
    std::size_t end = lines.find('\n', begin);
    lines[end] = '\0';
    to.callback(to.context, lines.c_str() + begin);
    begin = end + 1;
  }
}

std::string head(const char *path, int line) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  std::array<char, 32> time{};
  std::strftime(time.data(), time.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::array<char, 256> text{};
  std::snprintf(text.data(), text.size(), "%s.%06ldZ %ld %s:%d ", time.data(), now.tv_nsec / 1000,
                static_cast<long>(gettid()), path ? path : "", line);
  return text.data();
}

std::string formatted(const char *format, va_list values) {
  va_list again;
  va_copy(again, values);
  int length = std::vsnprintf(nullptr, 0, format, values);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

}  // namespace

void append_printable(std::string &lines, std::string_view text) {
  constexpr const char *kDigits = "0123456789abcdef";
  for (unsigned char byte : text) {
    if (byte == '\n') {
      lines += kContinuation;
    } else if (byte < 0x20 || byte > 0x7e) {
      lines += "\\x";
      lines += kDigits[byte >> 4];
      lines += kDigits[byte & 15];
    } else {
      lines += static_cast<char>(byte);
    }
  }
}

void write_trace(const char *path, int line, const std::string &message) {
  std::string lines;
  append_printable(lines, head(path, line));
  lines += message;
  lines += '\n';
  std::lock_guard lock(destination_mutex);
  if (destination.callback) return call_back_by_line(destination, lines);
  const NoBrokenPipe none;
  if (destination.stream) {
    std::fwrite(lines.data(), 1, lines.size(), destination.stream);
    std::fflush(destination.stream);
  } else if (destination.descriptor >= 0) {
    write_all(destination.descriptor, lines);
  }
}

}  // namespace orn

void TraceToStream(FILE *stream) {
  orn::switch_to({.stream = stream});
}

int TraceToFile(const char *path) {
  if (!path) return CONN_ERR_SYSTEM;
  int descriptor = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, S_IRUSR | S_IWUSR);
  if (descriptor < 0) return CONN_ERR_SYSTEM;
  orn::switch_to({.descriptor = descriptor});
  return 0;
}

void TraceToCallback(TraceSink sink, void *context) {
  orn::switch_to({.callback = sink, .context = context});
}

void TraceOff(void) {
  orn::switch_to({});
}

void TraceRevealSecrets(int reveal) {
  orn::trace_reveals_secrets.store(reveal != 0, std::memory_order_relaxed);
}

void TraceT(int, const char *path, int line, const char *format, ...) {
  if (!orn::trace_is_on.load(std::memory_order_relaxed) || !format) return;
  // The caller may still want to know why the call that it traces has failed.
  int kept_errno = errno;
  va_list values;
  va_start(values, format);
  try {
    std::string message;
    orn::append_printable(message, orn::formatted(format, values));
    orn::write_trace(path, line, message);
  } catch (const std::exception &) {
    // Without memory there is no line; the work goes on.
  }
  va_end(values);
  errno = kept_errno;
}
