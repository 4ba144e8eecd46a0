// The keys of a template that clients drew from servers that are killed meanwhile: each increment once, and none lost.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "orn/vesk.h"

namespace veskd::test {

// The template that the keys are of.
inline constexpr const char *kLedgerConstant = "CONSTANT_000015";

struct DrawnKey {
  std::string name;
  std::string value;
};

// The keys that all clients received, by increment, and the names of those that they created.
class Ledger {
 public:
  // False when the increment was drawn before.
  bool add(std::uint32_t increment, DrawnKey key);
  void add_created(std::string name);
  std::size_t size() const;
  // While no client runs.
  const std::map<std::uint32_t, DrawnKey> &keys() const { return keys_; }
  const std::vector<std::string> &created() const { return created_; }

 private:
  mutable std::mutex mutex_;
  std::map<std::uint32_t, DrawnKey> keys_;
  std::vector<std::string> created_;
};

// Draws one key. Returns the call's status; what was received goes to the ledger, and is expected not to be there.
int draw(const CertificatePaths &paths, std::uint16_t port, Ledger &ledger);

// Every key of the ledger can still be retrieved, with the value that was received.
void expect_kept(const CertificatePaths &paths, std::uint16_t port, const Ledger &ledger);

}  // namespace veskd::test
