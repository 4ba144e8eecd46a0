#include "tests/connection/client.h"

#include <openssl/err.h>

namespace tests {

int Client::connect(const std::string &authority, const std::string &chain, const std::string &key,
                    const std::string &host, const std::string &port, int seconds) {
  tls_ = aux_ = read_ = this;
  int status = SetupConnection(&tls_, &aux_, &read_, chain.c_str(), authority.c_str(), 0, key.c_str(), host.c_str(),
                               port.c_str(), seconds);
  EXPECT_EQ(0U, ERR_peek_error());
  EXPECT_EQ(status == 0, tls_ != nullptr);
  EXPECT_EQ(status == 0, aux_ != nullptr);
  EXPECT_EQ(status == 0, read_ != nullptr);
  return status;
}

int Client::write(const std::string &bytes) {
  int status = TLSWrite(tls_, bytes.data(), static_cast<int>(bytes.size()));
  EXPECT_EQ(0U, ERR_peek_error());
  return status;
}

int Client::read(int count, int seconds) {
  received_.assign(static_cast<std::size_t>(count), '\0');
  int num_read = -1;
  int status = TLSRead(tls_, read_, received_.data(), count, seconds, &num_read);
  EXPECT_EQ(0U, ERR_peek_error());
  EXPECT_GE(num_read, 0);
  EXPECT_LE(num_read, count);
  EXPECT_EQ(status == 0, num_read == count);
  received_.resize(static_cast<std::size_t>(num_read));
  return status;
}

void Client::tear_down() {
  EXPECT_EQ(0, TLSTeardown(tls_, aux_, read_));
  EXPECT_EQ(0U, ERR_peek_error());
  tls_ = aux_ = read_ = nullptr;
}

World::World()
    : authority_file(folder.write_old("authority.pem", pem_of(authority.certificate.get()))),
      chain_file(folder.write_old("client.pem", pem_of(client.certificate.get()))),
      key_file(folder.write_old("key.pem", pem_of(client.key.get()))) {}

int World::status_against(const Identity &shown, std::vector<const Identity *> intermediates,
                          const std::string &host) const {
  TlsServer server(echo({.identity = &shown, .intermediates = std::move(intermediates)}));
  Client client;
  return connect(client, server, host);
}

const World &world() {
  static const World world;
  return world;
}

}  // namespace tests
