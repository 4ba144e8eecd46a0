#include "vesk/memory_file.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "vesk/failure.h"

namespace command {
namespace {

Failure failed(std::string_view step) {
  return Failure(ExitCode::kOther,
                 fmt::format("cannot {} a file in memory: {}", step, std::generic_category().message(errno)));
}

}  // namespace

MemoryFile::MemoryFile(std::string_view content)
    : descriptor_(memfd_create("vesk", MFD_CLOEXEC)), path_(fmt::format("/proc/self/fd/{}", descriptor_)) {
  if (descriptor_ < 0) throw failed("make");
  // Memory takes all of a small file, or nothing.
  if (write(descriptor_, content.data(), content.size()) == static_cast<ssize_t>(content.size())) return;
  const int error = errno;
  close(descriptor_);
  errno = error;
  throw failed("write");
}

MemoryFile::~MemoryFile() {
  close(descriptor_);
}

std::string MemoryFile::content() const {
  std::string content;
  std::array<char, 4096> piece;
  ssize_t count = 0;
  while ((count = pread(descriptor_, piece.data(), piece.size(), static_cast<off_t>(content.size()))) > 0)
    content.append(piece.data(), static_cast<std::size_t>(count));
  if (count < 0) throw failed("read");
  return content;
}

}  // namespace command
