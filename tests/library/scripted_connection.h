// A support layer that is linked in place of the real one: it plays a script of replies and failures to the library and
// records, in order, everything that the library does with it.
#pragma once

#include <openssl/x509.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "orn/skeys.h"
#include "orn/support.h"

// The list of the scripted layer: its elements as whole bytes.
struct LinkedList {
  std::size_t element_size;
  std::vector<std::string> elements;

  // The elements as C strings.
  std::vector<std::string> texts() const;
};

namespace script {

// Handles that the scripted set-up hands out.
inline void *const kTls = reinterpret_cast<void *>(0x1010);
inline void *const kTlsAux = reinterpret_cast<void *>(0x2020);
inline void *const kTlsRead = reinterpret_cast<void *>(0x3030);

// What a read gets when the script has fewer bytes left than it wants.
inline constexpr int kClosed = 30060;

struct Setup {
  std::string cert_path2, cert_path1, cert_path3, host, port;
  int reserved, connect_timeout;
};

struct Read {
  int count, timeout;
  bool operator==(const Read &) const = default;
};

struct Dump {
  std::string path, label, bytes;
};

struct Connection {
  // The script.
  int setup_status = 0;
  std::string replies;                   // the bytes that the server sends, in order
  std::map<int, int> failing_writes;     // ordinal of the write, from 0, to its status
  std::map<int, int> failing_reads;      // likewise
  std::function<void(int)> before_read;  // called with the ordinal of each read
  // Called with the session that is being opened, and the path as it was handed over.
  std::function<void(const Session &, const char *cert_path3)> at_setup;
  std::deque<X509 *> peer_chain;  // owned by the connection
  bool has_peer_chain = true;

  // The record.
  std::vector<Setup> setups;
  std::vector<std::string> writes;
  std::vector<Read> reads;
  std::vector<std::string> traces;  // "path|text"
  std::vector<Dump> dumps;
  std::vector<std::string> events;  // all of these by name: "setup", "write", "read", "trace text", "dump label", ...
  int teardowns = 0;
  bool torn_down_with_handles = false;

  // The texts of the traces under one path, in order.
  std::vector<std::string> traces_of(std::string_view path) const;
};

// The connection of the test that runs.
Connection &connection();

// Forgets everything and starts afresh.
void reset();

}  // namespace script
