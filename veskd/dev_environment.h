// A directory that holds all a server needs: certificates, which are made when they are missing, and places for master
// key and store.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "veskd/files.h"
#include "veskd/log.h"
#include "veskd/server.h"
#include "veskd/store_file.h"

namespace veskd {

class DevEnvironment {
 public:
  // Locks the directory, making it and what is missing in it. Throws StartError: another veskd has it, half of a pair
  // is missing, a file is not what it should be. authority_from is the directory of another server whose authority this
  // one shares, so that the two trust one another; empty for an authority of its own.
  DevEnvironment(const std::filesystem::path &directory, const std::vector<std::string> &host_names, const Log &log,
                 const std::filesystem::path &authority_from = {});

  const std::filesystem::path &directory() const { return directory_; }
  StoreFiles store_files() const { return store_files_in(directory_); }
  std::filesystem::path ready_file_path() const { return directory_ / "ready.json"; }
  std::filesystem::path authority_key_path() const { return directory_ / "authority-key.pem"; }
  TlsFiles tls_files() const;
  TlsFiles mirror_tls_files() const;  // that this server shows to its mirrors

  // The command to type next, and the one that names the server for all that follow: its words, and as it is typed.
  std::string next_command(const std::string &host, std::uint16_t port) const;
  std::vector<std::string> context_words(const std::string &name, const std::string &host, std::uint16_t port) const;
  std::string context_command(const std::string &name, const std::string &host, std::uint16_t port) const;

 private:
  void make_certificates(const std::vector<std::string> &host_names, const Log &log);

  std::filesystem::path directory_;
  Descriptor lock_;
};

}  // namespace veskd
