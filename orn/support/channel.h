// The line under a TLS connection: a socket that OpenSSL reads and writes through a BIO of ours.
//
// OpenSSL's own socket BIO would raise SIGPIPE and knows no deadline. A peer that keeps OpenSSL busy with messages that
// never end is stopped here: once the deadline has passed, the line soon seems to have nothing more.
#ifndef ORN_SUPPORT_CHANNEL_H
#define ORN_SUPPORT_CHANNEL_H

#include <array>
#include <cstddef>

#include "orn/support/openssl_ptr.h"
#include "orn/support/socket.h"

namespace orn {

class Channel {
 public:
  explicit Channel(Descriptor socket) : socket_(std::move(socket)) {}
  Channel(const Channel &) = delete;
  Channel &operator=(const Channel &) = delete;

  // A BIO on this channel, which must outlive it. Null when out of memory.
  BioPtr new_bio();

  // What is read or written from now on must be so by the deadline.
  void set_deadline(Deadline deadline);

  // Waits for one of poll()'s events until the deadline.
  Wait wait(short events) const;

  // Acknowledges what has arrived, and what comes next, without the usual delay. A server that sends session tickets
  // and its reply in separate small segments holds the reply back until the tickets are acknowledged.
  void acknowledge_at_once();

  // Throws away what has arrived: closing a socket with unread bytes sends a reset, which can overtake what was sent.
  void discard_unread();

  int error() const { return error_; }     // errno of the call that failed for good, or 0
  bool at_end() const { return at_end_; }  // the peer has closed
  bool is_not_tls() const;                 // the peer's first bytes begin no TLS record

  int descriptor() const { return socket_.number(); }

 private:
  friend struct ChannelBio;

  // Calls after the deadline that may still take what is at hand, so that a time-out of 0 can read what has arrived.
  static constexpr int kOvertimeCalls = 16;

  bool is_over();
  int receive(char *buffer, int count);
  int send(const char *bytes, int count);

  Descriptor socket_;
  Deadline deadline_ = Deadline::in_seconds(0);
  int overtime_calls_ = 0;
  int error_ = 0;
  bool at_end_ = false;
  std::array<unsigned char, 2> first_bytes_{};
  std::size_t num_first_bytes_ = 0;
};

}  // namespace orn

#endif
