// The line under a TLS connection: a socket that OpenSSL reads and writes through a BIO of ours.
//
// OpenSSL's own socket BIO would raise SIGPIPE and knows no deadline. A peer that keeps OpenSSL busy with messages that
// never end is stopped here: once the deadline has passed, the line soon seems to have nothing more.
#ifndef ORN_SUPPORT_CHANNEL_H
#define ORN_SUPPORT_CHANNEL_H

#include <array>
#include <cstddef>
#include <memory>

#include "orn/support/openssl_ptr.h"
#include "orn/support/socket.h"

namespace orn {

class Channel {
 public:
  explicit Channel(std::unique_ptr<Socket> socket) : socket_(std::move(socket)) {}
  Channel(const Channel &) = delete;
  Channel &operator=(const Channel &) = delete;
  ~Channel() = default;

  // A BIO on this channel, which must outlive it. Null when out of memory.
  BioPtr new_bio();

  // What is read or written from now on must be so by the deadline. Both wait until then.
  void set_deadline(Deadline deadline);

  // Whether the last read or write ended because time was up.
  bool timed_out() const { return timed_out_; }

  // Gathers what OpenSSL writes until it flushes, so that a flight of the handshake leaves whole, or ends that.
  void gather(bool on);

  // Acknowledges what has arrived, and what comes next, without the usual delay. A server that sends session tickets
  // and its reply in separate small segments holds the reply back until the tickets are acknowledged.
  void acknowledge_at_once();

  // Makes ready for a close that waits for nobody. A connection that is closed on this side first keeps its local port
  // for a minute; when so many are that ports could run out, and the peer needs nothing more, the port is given up with
  // a reset instead.
  void prepare_close(bool peer_needs_nothing);

  int error() const { return error_; }     // errno of the call that failed for good, or 0
  bool at_end() const { return at_end_; }  // the peer has closed
  bool is_not_tls() const;                 // the peer's first bytes begin no TLS record

  int descriptor() const { return socket_->descriptor.number(); }

 private:
  friend struct ChannelBio;

  // Calls after the deadline that may still take what is at hand, so that a time-out of 0 can read what has arrived.
  static constexpr int kOvertimeCalls = 16;

  // Runs recv() or send() with flags until it moves something, fails or is out of time.
  template <typename Transfer>
  int transfer(SliceOfTime &slice, Transfer transfer);
  int receive(char *buffer, int count);
  int write(const char *bytes, int count);
  int send(const char *bytes, int count);
  // False when something is left to send.
  bool flush();

  const std::unique_ptr<Socket> socket_;
  Deadline deadline_ = Deadline::in_seconds(0);
  int overtime_calls_ = 0;
  bool timed_out_ = false;
  bool gathers_ = false;
  std::size_t num_gathered_ = 0;
  std::size_t num_flushed_ = 0;
  int error_ = 0;
  bool at_end_ = false;
  std::array<unsigned char, 2> first_bytes_{};
  std::size_t num_first_bytes_ = 0;
  std::array<char, 16384> gathered_;  // room for a flight; nothing is in it until something is gathered
};

}  // namespace orn

#endif
