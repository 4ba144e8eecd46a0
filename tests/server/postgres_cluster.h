// A PostgreSQL of the tests' own, on a socket in a temporary directory. It ends with the thread that started it.
#pragma once

#include <sys/types.h>

#include <string>

#include "tests/server/test_server.h"

namespace veskd::test {

class PostgresCluster {
 public:
  // Whether what is committed is on the disk, or need not outlive the machine.
  enum class Durability { kOnDisk, kInMemory };

  explicit PostgresCluster(Durability durability = Durability::kInMemory);
  ~PostgresCluster();
  PostgresCluster(const PostgresCluster &) = delete;
  PostgresCluster &operator=(const PostgresCluster &) = delete;

  // Of its database.
  std::string uri() const;

  // Kills it without warning, and starts it again.
  void kill();
  void start();

 private:
  TemporaryDirectory directory_;
  Durability durability_;
  pid_t pid_ = -1;
};

}  // namespace veskd::test
