#include "orn/support/channel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>

namespace orn {
namespace {

// Counts the connections of this process that are closed on this side first. A quarter of the ports that Linux hands
// out may wait out their minute at the same time.
bool may_keep_port() {
  constexpr std::uint64_t kMostAMinute = 7000;
  static std::atomic<std::uint64_t> minute_and_count{0};
  const auto since_boot = std::chrono::steady_clock::now().time_since_epoch();
  const auto minute = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::minutes>(since_boot).count());
  std::uint64_t before = minute_and_count.load(std::memory_order_relaxed);
  std::uint64_t after = 0;
  do {
    const std::uint64_t count = before >> 32 == minute ? before & 0xffffffff : 0;
    if (count >= kMostAMinute) return false;
    after = minute << 32 | (count + 1);
  } while (!minute_and_count.compare_exchange_weak(before, after, std::memory_order_relaxed));
  return true;
}

}  // namespace

// The functions of the BIO. Like all of OpenSSL's they return what was moved, or -1 with a retry flag or without.
struct ChannelBio {
  static Channel *channel(BIO *bio) { return static_cast<Channel *>(BIO_get_data(bio)); }

  static int read(BIO *bio, char *buffer, int count) {
    BIO_clear_retry_flags(bio);
    int received = channel(bio)->receive(buffer, count);
    if (received < 0 && channel(bio)->error_ == 0) BIO_set_retry_read(bio);
    return received;
  }

  static int write(BIO *bio, const char *bytes, int count) {
    BIO_clear_retry_flags(bio);
    int sent = channel(bio)->write(bytes, count);
    if (sent < 0 && channel(bio)->error_ == 0) BIO_set_retry_write(bio);
    return sent;
  }

  static long flush(BIO *bio) {
    BIO_clear_retry_flags(bio);
    if (channel(bio)->flush()) return 1;
    if (channel(bio)->error_ == 0) BIO_set_retry_write(bio);
    return -1;
  }

  static long control(BIO *bio, int command, long, void *pointer) {
    switch (command) {
      case BIO_CTRL_FLUSH:
        return flush(bio);
      case BIO_CTRL_EOF:
        return channel(bio)->at_end_ ? 1 : 0;
      case BIO_C_GET_FD:
        if (pointer) *static_cast<int *>(pointer) = channel(bio)->descriptor();
        return channel(bio)->descriptor();
      default:
        return 0;
    }
  }

  // Made once and kept: connections may be open while the process ends.
  static const BIO_METHOD *method() {
    static const BIO_METHOD *made = [] {
      BIO_METHOD *method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK | BIO_TYPE_DESCRIPTOR, "channel");
      if (method) {
        BIO_meth_set_read(method, read);
        BIO_meth_set_write(method, write);
        BIO_meth_set_ctrl(method, control);
      }
      return method;
    }();
    return made;
  }
};

BioPtr Channel::new_bio() {
  const BIO_METHOD *method = ChannelBio::method();
  BioPtr bio(method ? BIO_new(method) : nullptr);
  if (bio) {
    BIO_set_data(bio.get(), this);
    BIO_set_init(bio.get(), 1);
  }
  return bio;
}

void Channel::set_deadline(Deadline deadline) {
  deadline_ = deadline;
  overtime_calls_ = kOvertimeCalls;
  timed_out_ = false;
}

void Channel::gather(bool on) {
  gathers_ = on;
}

void Channel::acknowledge_at_once() {
  const int on = 1;
  // Without it the connection is slower, no more.
  static_cast<void>(setsockopt(descriptor(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on));
}

void Channel::prepare_close(bool peer_needs_nothing) {
  // A close with unread bytes would send a reset, which can overtake what was sent.
  std::array<char, 4096> unread;
  ssize_t received = 1;
  for (int i = 0; i < kOvertimeCalls && received > 0 && !at_end_; ++i) {
    received = recv(descriptor(), unread.data(), unread.size(), MSG_DONTWAIT);
    at_end_ = received == 0;
  }
  if (at_end_ || !peer_needs_nothing || may_keep_port()) return;
  const linger none = {.l_onoff = 1, .l_linger = 0};
  static_cast<void>(setsockopt(descriptor(), SOL_SOCKET, SO_LINGER, &none, sizeof none));
}

bool Channel::is_not_tls() const {
  constexpr unsigned char kAlertRecord = 0x15;
  constexpr unsigned char kHandshakeRecord = 0x16;
  constexpr unsigned char kMajorVersion = 3;
  if (num_first_bytes_ >= 1 && first_bytes_[0] != kAlertRecord && first_bytes_[0] != kHandshakeRecord) return true;
  return num_first_bytes_ >= 2 && first_bytes_[1] != kMajorVersion;
}

template <typename Transfer>
int Channel::transfer(SliceOfTime &slice, Transfer transfer) {
  for (;;) {
    const auto left = deadline_.left();
    const bool over = left <= left.zero();
    if (over && --overtime_calls_ < 0) break;
    const ssize_t moved = over || slice.limit(descriptor(), left) ? transfer(over ? MSG_DONTWAIT : 0) : ssize_t{-1};
    if (moved >= 0) return static_cast<int>(moved);
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      error_ = errno;
      return -1;
    }
    if (over) break;
  }
  timed_out_ = true;
  return -1;
}

int Channel::receive(char *buffer, int count) {
  // More of it would tell nothing new, and might never come.
  if (is_not_tls()) return -1;
  const int received = transfer(socket_->receiving, [&](int flags) {
    return recv(descriptor(), buffer, static_cast<std::size_t>(count), flags);
  });
  if (received == 0) at_end_ = true;
  for (int i = 0; i < received && num_first_bytes_ < first_bytes_.size(); ++i) {
    first_bytes_[num_first_bytes_++] = static_cast<unsigned char>(buffer[i]);
  }
  return received;
}

int Channel::send(const char *bytes, int count) {
  return transfer(socket_->sending, [&](int flags) {
    return ::send(descriptor(), bytes, static_cast<std::size_t>(count), flags | MSG_NOSIGNAL);
  });
}

int Channel::write(const char *bytes, int count) {
  const auto size = static_cast<std::size_t>(count);
  if (!gathers_ || size > gathered_.size()) return flush() ? send(bytes, count) : -1;
  if (size > gathered_.size() - num_gathered_ && !flush()) return -1;
  std::memcpy(gathered_.data() + num_gathered_, bytes, size);
  num_gathered_ += size;
  return count;
}

bool Channel::flush() {
  while (num_flushed_ < num_gathered_) {
    const int sent = send(gathered_.data() + num_flushed_, static_cast<int>(num_gathered_ - num_flushed_));
    if (sent < 0) return false;
    num_flushed_ += static_cast<std::size_t>(sent);
  }
  num_gathered_ = num_flushed_ = 0;
  return true;
}

}  // namespace orn
