// Records that may hold key values or key material.
#pragma once

#include <openssl/crypto.h>

#include <type_traits>

namespace vesk {

// A zeroed record that is wiped when it goes out of scope.
template <typename Record>
class Wiped {
  static_assert(std::is_trivially_copyable_v<Record>);

 public:
  Wiped() = default;
  Wiped(const Wiped &) = delete;
  Wiped &operator=(const Wiped &) = delete;
  ~Wiped() { OPENSSL_cleanse(&record_, sizeof record_); }

  Record &operator*() { return record_; }
  const Record &operator*() const { return record_; }
  Record *operator->() { return &record_; }
  const Record *operator->() const { return &record_; }

 private:
  Record record_{};
};

}  // namespace vesk
