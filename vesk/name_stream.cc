#include "vesk/name_stream.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "orn/support/descriptor.h"
#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

// A line of the library's file: the name at its full width and a line end.
constexpr std::size_t kNameBytes = 40;

Failure no_pipe() {
  return Failure(ExitCode::kOther, fmt::format("cannot make a pipe: {}", std::generic_category().message(errno)));
}

}  // namespace

NameStream::NameStream(const Connection &connection, const std::string &prefix) : connection_(connection) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw no_pipe();
  orn::Descriptor from(ends[0]);
  orn::Descriptor to(ends[1]);
  names_.reset(fdopen(from.number(), "r"));
  if (!names_) throw no_pipe();
  from.release();
  // The library opens the pipe by its name; when the thread has closed this end as well, the names are at their end.
  call_ = std::jthread([this, prefix, to = std::move(to)]() mutable {
    const std::string path = fmt::format("/dev/fd/{}", to.number());
    try {
      connection_.run({}, qRetrieveKeyNameListFiltered, path.c_str(), prefix.c_str(), &highest_sequence_);
    } catch (const Failure &) {
      failure_ = std::current_exception();
    }
    const orn::Descriptor closed(std::move(to));
  });
}

bool NameStream::next(std::string &name) {
  std::array<char, kNameBytes + 1> line;
  if (std::fread(line.data(), line.size(), 1, names_.get()) != 1) return false;
  name = trimmed({line.data(), kNameBytes});
  return true;
}

std::uint32_t NameStream::finish() {
  call_.join();
  if (failure_) std::rethrow_exception(failure_);
  return highest_sequence_;
}

}  // namespace command
