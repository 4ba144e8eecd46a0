#include "tests/server/ledger.h"

#include <gtest/gtest.h>

#include <iterator>

namespace veskd::test {

bool Ledger::add(std::uint32_t increment, DrawnKey key) {
  const std::lock_guard lock(mutex_);
  return keys_.emplace(increment, std::move(key)).second;
}

void Ledger::add_created(std::string name) {
  const std::lock_guard lock(mutex_);
  created_.push_back(std::move(name));
}

std::size_t Ledger::size() const {
  const std::lock_guard lock(mutex_);
  return keys_.size() + created_.size();
}

int draw(const CertificatePaths &paths, std::uint16_t port, Ledger &ledger) {
  char name[41] = {};
  unsigned char value[32] = {};
  std::uint32_t increment = 0;
  const int status = qGetNextKey(&paths, "127.0.0.1", port, kLedgerConstant, name, value, &increment);
  if (status == 0) {
    EXPECT_TRUE(ledger.add(increment, {name, std::string(std::begin(value), std::end(value))})) << increment;
  }
  return status;
}

void expect_kept(const CertificatePaths &paths, std::uint16_t port, const Ledger &ledger) {
  for (const auto &[increment, key] : ledger.keys()) {
    KeyRecord record{};
    ASSERT_EQ(qRetrieveKey(&paths, "127.0.0.1", port, key.name.c_str(), "", &record), 0) << key.name;
    ASSERT_EQ(std::string(record.caKeyValue, 32), key.value) << key.name;
  }
}

}  // namespace veskd::test
