// Files of key pairs, in the directory where the command runs.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tests/command/command_test.h"
#include "tests/server/key_pairs.h"

namespace command_test {

class KeyPairTest : public ServedCommandTest {
 protected:
  // NAME.pem and NAME-key.pem: a certificate and its private key.
  void make_pair(const std::string &name, int number, int days_before = 1, int days_behind = 365) {
    EVP_PKEY *key = veskd::test::rsa_key(number);
    const veskd::CertificatePtr certificate = veskd::test::certificate_of(key, days_before, days_behind);
    write_file(files_.path(name + ".pem"), veskd::test::pem_of(certificate.get()));
    write_secret(files_.path(name + "-key.pem"), veskd::test::pem_of(key));
  }

  // The pair, and both its parts in the server's store.
  void store_pair(const std::string &name, int number, int days_before = 1, int days_behind = 365) {
    make_pair(name, number, days_before, days_behind);
    ASSERT_EQ(vesk({"certificate", "import", name, name + ".pem"}).exit_code, 0);
    ASSERT_EQ(vesk({"private-key", "import", name, name + "-key.pem"}).exit_code, 0);
  }

  // From now on the server is another, with nothing in it, which does these things wrong.
  void misbehave(const std::string &faults) {
    write_file(files_.path("faults.toml"), faults);
    faulty_server_.emplace(server_files_.path("faulty"),
                           std::vector<std::string>{"--faults", files_.path("faults.toml")});
  }

  Invocation invocation(std::vector<std::string> arguments) const override {
    Invocation made = ServedCommandTest::invocation(std::move(arguments));
    if (!faulty_server_) return made;
    made.environment["VESK_PORT"] = faulty_server_->port();
    made.environment["VESK_CERTIFICATES"] = server_files_.path("faulty");
    return made;
  }

  std::string content(const std::string &name) const { return contents_of(files_.path(name)); }

  Outcome openssl(std::vector<std::string> arguments) const {
    return run_program(OPENSSL_PROGRAM, CommandTest::invocation(std::move(arguments)));
  }

  // Runs the command where no file can grow.
  Outcome vesk_on_a_full_disk(const std::string &arguments) const {
    Invocation shell = invocation({"-c", "trap '' XFSZ; ulimit -f 0; exec " VESK_PROGRAM " " + arguments});
    return run_program("/bin/sh", shell);
  }

 private:
  std::optional<RunningServer> faulty_server_;
};

}  // namespace command_test
