// The names of all keys, one by one as the server tells them. The library writes a list of names to a file; here that
// is a pipe, so that a list of any length takes no room.
#pragma once

#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "vesk/connection.h"

namespace command {

class NameStream {
 public:
  // prefix is empty for all names.
  NameStream(const Connection &connection, const std::string &prefix);

  // The next name, without the blanks that fill it up. False at the end of what the server told.
  bool next(std::string &name);

  // Call it when there is no next name. Fails when the list has failed; returns the highest sequence number of the
  // names.
  std::uint32_t finish();

 private:
  struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
  };

  const Connection &connection_;
  std::exception_ptr failure_;
  std::uint32_t highest_sequence_ = 0;
  std::jthread call_;
  // Closed before the call is waited for, which ends it if it is still writing.
  std::unique_ptr<std::FILE, CloseFile> names_;
};

}  // namespace command
