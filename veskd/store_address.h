// Where a store is: a file, or a database on a server.
#pragma once

#include <filesystem>
#include <string>

namespace veskd {

class StoreAddress {
 public:
  // Nowhere yet.
  StoreAddress() : is_shared_(false) {}

  // A path means SQLite; postgresql://… or postgres://… means PostgreSQL. The conversions let either be written where
  // an address is wanted. Throws StartError for a URI that is none of PostgreSQL's.
  StoreAddress(const std::string &text);
  StoreAddress(const char *text) : StoreAddress(std::string(text)) {}
  StoreAddress(const std::filesystem::path &path) : StoreAddress(path.string()) {}

  bool operator==(const StoreAddress &) const = default;

  // Whether further servers may share the store.
  bool is_shared() const { return is_shared_; }

  // The path or the URI; a URI may hold a password.
  const std::string &text() const { return text_; }

  // For messages: without a password.
  const std::string &name() const { return name_; }

 private:
  std::string text_;
  bool is_shared_;
  std::string name_;
};

}  // namespace veskd
