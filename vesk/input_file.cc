#include "vesk/input_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

class Input {
 public:
  explicit Input(const std::string &path)
      : is_file_(path != "-"),
        name_(name_of_input(path)),
        descriptor_(is_file_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO) {
    if (descriptor_ < 0) throw failed();
  }
  ~Input() {
    if (is_file_) close(descriptor_);
  }
  Input(const Input &) = delete;
  Input &operator=(const Input &) = delete;

  // Returns the number of bytes; 0 at the end.
  std::size_t read(char *room, std::size_t size) {
    for (;;) {
      const ssize_t count = ::read(descriptor_, room, size);
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno != EINTR) throw failed();
    }
  }

  const std::string &name() const { return name_; }

 private:
  Failure failed() const {
    return Failure(ExitCode::kOther, fmt::format("cannot read {}: {}", name_, std::generic_category().message(errno)));
  }

  bool is_file_;
  std::string name_;
  int descriptor_;
};

Failure too_long(const std::string &name, std::size_t max_bytes, const char *what) {
  return Failure(ExitCode::kOther,
                 fmt::format("{} has more than {} bytes, the most that a {} may have", name, max_bytes, what));
}

// The room that is left behind is wiped.
void grow(veskd::WipedText &content, std::size_t size) {
  veskd::WipedText larger(std::string(size, '\0'));
  content.text().copy(larger.text().data(), content.text().size());
  content = std::move(larger);
}

}  // namespace

std::string name_of_input(const std::string &path) {
  if (path == "-") return "standard input";
  return path.empty() ? "''" : printable(path);
}

veskd::WipedText read_input(const std::string &path, std::size_t max_bytes, const char *what) {
  constexpr std::size_t kFirstRoom = 65536;
  Input input(path);
  // One byte more than allowed tells that there are too many.
  const std::size_t most = max_bytes + 1;
  veskd::WipedText content(std::string(std::min(most, kFirstRoom), '\0'));
  std::size_t length = 0;
  while (const std::size_t count = input.read(content.text().data() + length, content.text().size() - length)) {
    length += count;
    if (length == content.text().size() && length < most) grow(content, std::min(most, 2 * length));
  }
  if (length > max_bytes) throw too_long(input.name(), max_bytes, what);
  content.text().resize(length);
  return content;
}

std::string read_text(const std::string &path, std::size_t max_bytes, const char *what) {
  Input input(path);
  std::string text;
  std::array<char, 65536> piece;
  while (const std::size_t count = input.read(piece.data(), piece.size())) {
    text.append(piece.data(), count);
    if (text.size() > max_bytes) throw too_long(input.name(), max_bytes, what);
  }
  return text;
}

}  // namespace command
