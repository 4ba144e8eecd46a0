// What the tests of the library share: a fresh script for each, and the protocol's text written out.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "orn/skeys.h"
#include "orn/vesk.h"
#include "tests/library/scripted_connection.h"
#include "tests/library/wire_text.h"

using script::connection;

// A session as a program fills it that calls transaction functions itself.
inline std::unique_ptr<Session> open_session() {
  auto session = std::make_unique<Session>();
  session->hTls = script::kTls;
  session->hTlsRead = script::kTlsRead;
  return session;
}

// The descriptor that the next file gets: unchanged when every file was closed.
inline int next_descriptor() {
  const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(descriptor);
  return descriptor;
}

// A call that goes through leaves nothing of the script, tears down what it set up and closes its files.
class LibraryTest : public testing::Test {
 protected:
  LibraryTest() {
    script::reset();
    SetupCertificates(&paths_, "/certificates", "authority.pem", "client.pem", "client-key.pem");
  }
  ~LibraryTest() override {
    EXPECT_EQ(connection().replies, "") << "the call left bytes unread";
    EXPECT_EQ(static_cast<std::size_t>(connection().teardowns), connection().setups.size());
    EXPECT_EQ(next_descriptor(), descriptor_) << "a file was left open";
    script::reset();
  }

  const int descriptor_ = next_descriptor();
  CertificatePaths paths_;
  const char *const host_ = "kms.example";
  const uint32_t port_ = 5696;
};
