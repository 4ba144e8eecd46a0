#include "tests/secrets/memory.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "orn/support/descriptor.h"

namespace secrets_test {
namespace {

constexpr std::uint64_t kMask = 0x5ac396a55a3c69a5;
constexpr std::size_t kPieceBytes = sizeof kMask;
constexpr const char *kRoomName = "secrets-test";

[[noreturn]] void fail(const std::string &what) {
  throw std::system_error(errno, std::generic_category(), what);
}

using orn::Descriptor;

Descriptor opened(const std::string &path) {
  Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) fail("cannot open " + path);
  return file;
}

// What is looked at lies here, in a mapping of a name of its own, which is not looked at.
class Room {
 public:
  static constexpr std::size_t kBytes = std::size_t{1} << 20;

  Room() {
    const Descriptor memory(memfd_create(kRoomName, MFD_CLOEXEC));
    if (!memory || ftruncate(memory.number(), kBytes) != 0) fail("no room");
    void *mapped = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, memory.number(), 0);
    if (mapped == MAP_FAILED) fail("no room");
    bytes_ = static_cast<unsigned char *>(mapped);
  }
  Room(const Room &) = delete;
  Room &operator=(const Room &) = delete;
  ~Room() {
    OPENSSL_cleanse(bytes_, kBytes);
    munmap(bytes_, kBytes);
  }

  unsigned char *bytes() const { return bytes_; }

 private:
  unsigned char *bytes_;
};

struct Mapping {
  std::uintptr_t begin;
  std::uintptr_t end;
  std::string name;
};

std::vector<Mapping> writable_mappings(pid_t process) {
  std::ifstream lines("/proc/" + std::to_string(process) + "/maps");
  std::vector<Mapping> mappings;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string permissions, offset, device, inode;
    Mapping mapping;
    char dash = 0;
    words >> std::hex >> mapping.begin >> dash >> mapping.end >> permissions >> offset >> device >> inode;
    std::getline(words >> std::ws, mapping.name);
    if (permissions.starts_with("rw") && mapping.name.find(kRoomName) == std::string::npos) mappings.push_back(mapping);
  }
  if (mappings.empty()) throw std::runtime_error("the process has no memory");
  return mappings;
}

class Search {
 public:
  explicit Search(const Needle &needle) : needle_(needle) {
    for (const std::uint64_t piece : needle.encoded) begins_.set((piece ^ kMask) & 0xffff);
  }

  void look_at(const Mapping &mapping, int memory) {
    // A piece may lie across two steps.
    constexpr std::size_t kStep = Room::kBytes - kPieceBytes + 1;
    for (std::uintptr_t at = mapping.begin; at < mapping.end; at += kStep) {
      const std::size_t wanted = std::min<std::uintptr_t>(Room::kBytes, mapping.end - at);
      const ssize_t got = pread(memory, room_.bytes(), wanted, static_cast<off_t>(at));
      // The memory of another process may go meanwhile, and some of a file's lies behind its end.
      if (got > 0) look_at(at, static_cast<std::size_t>(got), mapping.name);
    }
  }

  std::vector<Place> take_places() { return std::move(places_); }

 private:
  void look_at(std::uintptr_t address, std::size_t size, const std::string &name) {
    for (std::size_t at = 0; at + kPieceBytes <= size; ++at) {
      std::uint64_t piece;
      std::memcpy(&piece, room_.bytes() + at, sizeof piece);
      if (piece == 0 || !begins_.test(piece & 0xffff)) continue;
      for (std::size_t i = 0; i < needle_.encoded.size(); ++i) {
        if ((piece ^ kMask) == needle_.encoded[i]) add({address + at - i * kPieceBytes, name});
      }
    }
  }

  void add(const Place &place) {
    if (std::find(places_.begin(), places_.end(), place) == places_.end()) places_.push_back(place);
  }

  const Needle &needle_;
  std::bitset<0x10000> begins_;
  Room room_;
  std::vector<Place> places_;
};

}  // namespace

Needle::Needle(std::span<const unsigned char> secret) : encoded(secret.size() / kPieceBytes) {
  for (std::size_t i = 0; i < encoded.size() * kPieceBytes; ++i)
    reinterpret_cast<unsigned char *>(encoded.data())[i] =
        secret[i] ^ reinterpret_cast<const unsigned char *>(&kMask)[i % kPieceBytes];
}

Needle Needle::of_file(const std::filesystem::path &path, std::size_t offset, std::size_t size) {
  const Descriptor file = opened(path);
  const Room room;
  if (pread(file.number(), room.bytes(), size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size))
    fail("cannot read " + path.string());
  return Needle({room.bytes(), size});
}

Needle Needle::reversed() const {
  Needle result({});
  for (const std::uint64_t piece : encoded) result.encoded.push_back(__builtin_bswap64(piece ^ kMask) ^ kMask);
  std::reverse(result.encoded.begin(), result.encoded.end());
  return result;
}

bool Needle::is_a_secret() const {
  return !encoded.empty() && std::find(encoded.begin(), encoded.end(), kMask) == encoded.end();
}

void PrintTo(const Place &place, std::ostream *stream) {
  *stream << std::hex << place.address << std::dec << " in " << (place.mapping.empty() ? "no file" : place.mapping);
}

std::vector<Place> places_of(const Needle &needle, pid_t process) {
  const Descriptor memory = opened("/proc/" + std::to_string(process) + "/mem");
  Search search(needle);
  for (const Mapping &mapping : writable_mappings(process)) search.look_at(mapping, memory.number());
  return search.take_places();
}

std::vector<Place> places_of(const Needle &needle) {
  return places_of(needle, getpid());
}

}  // namespace secrets_test
