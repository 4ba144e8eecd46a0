#include "orn/support/channel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace orn {

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
    int sent = channel(bio)->send(bytes, count);
    if (sent < 0 && channel(bio)->error_ == 0) BIO_set_retry_write(bio);
    return sent;
  }

  static long control(BIO *bio, int command, long, void *pointer) {
    switch (command) {
      case BIO_CTRL_FLUSH:
        return 1;
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
}

Wait Channel::wait(short events) const {
  if (overtime_calls_ <= 0) return Wait::kTimedOut;
  return wait_for(descriptor(), events, deadline_);
}

void Channel::acknowledge_at_once() {
  const int on = 1;
  // Without it the connection is slower, no more.
  static_cast<void>(setsockopt(descriptor(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on));
}

void Channel::discard_unread() {
  std::array<char, 4096> unread;
  for (int i = 0; i < kOvertimeCalls; ++i) {
    if (recv(descriptor(), unread.data(), unread.size(), MSG_DONTWAIT) <= 0) return;
  }
}

bool Channel::is_not_tls() const {
  constexpr unsigned char kAlertRecord = 0x15;
  constexpr unsigned char kHandshakeRecord = 0x16;
  constexpr unsigned char kMajorVersion = 3;
  if (num_first_bytes_ >= 1 && first_bytes_[0] != kAlertRecord && first_bytes_[0] != kHandshakeRecord) return true;
  return num_first_bytes_ >= 2 && first_bytes_[1] != kMajorVersion;
}

bool Channel::is_over() {
  return deadline_.passed() && --overtime_calls_ < 0;
}

int Channel::receive(char *buffer, int count) {
  if (is_over()) return -1;
  ssize_t received;
  do {
    received = recv(descriptor(), buffer, static_cast<std::size_t>(count), 0);
  } while (received < 0 && errno == EINTR);
  if (received == 0) at_end_ = true;
  if (received < 0 && errno != EAGAIN && errno != EWOULDBLOCK) error_ = errno;
  for (ssize_t i = 0; i < received && num_first_bytes_ < first_bytes_.size(); ++i) {
    first_bytes_[num_first_bytes_++] = static_cast<unsigned char>(buffer[i]);
  }
  return static_cast<int>(received);
}

int Channel::send(const char *bytes, int count) {
  if (is_over()) return -1;
  ssize_t sent;
  do {
    sent = ::send(descriptor(), bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) error_ = errno;
  return static_cast<int>(sent);
}

}  // namespace orn
