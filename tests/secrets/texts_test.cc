// What is told of calls that carry keys, by library, command and server: nothing of the keys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/secrets/key_transfer.h"
#include "tests/secrets/running_server.h"
#include "veskd/return_codes.h"

namespace secrets_test {
namespace {

using testing::Contains;
using testing::IsEmpty;
using veskd::test::TemporaryDirectory;

std::string contents_of(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string hexadecimal(const std::string &bytes) {
  std::string digits;
  for (const unsigned char byte : bytes) {
    digits += "0123456789abcdef"[byte >> 4];
    digits += "0123456789abcdef"[byte & 15];
  }
  return digits;
}

std::string base64(const std::string &bytes) {
  std::string text(bytes.size() * 2, '\0');
  text.resize(static_cast<std::size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()),
                                                       reinterpret_cast<const unsigned char *>(bytes.data()),
                                                       static_cast<int>(bytes.size()))));
  return text;
}

// Dumps have blanks between their digits, and digits of either case are the same.
std::string without_blanks_and_case(std::string text) {
  std::erase_if(text, [](unsigned char c) { return std::isspace(c) != 0; });
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// In what forms nine bytes in a row of the secret are in the text. A row of a dump, and a line of base64, has as many.
std::set<std::string> forms_in(const std::string &text, const std::string &secret) {
  constexpr std::size_t kBytes = 9;
  std::set<std::string> forms;
  const std::string digits = without_blanks_and_case(text);
  for (std::size_t at = 0; at + kBytes <= secret.size(); ++at) {
    const std::string part = secret.substr(at, kBytes);
    // What all texts have in common is no secret: blanks, padding of PEM.
    if (std::set<char>(part.begin(), part.end()).size() < 4) continue;
    if (text.find(part) != std::string::npos) forms.insert("raw");
    if (digits.find(hexadecimal(part)) != std::string::npos) forms.insert("hexadecimal");
    if (text.find(base64(part)) != std::string::npos) forms.insert("base64");
  }
  return forms;
}

// A server that tells all it can, calls and commands, everything that they say, and the secrets that they carried.
class Texts : public testing::Test {
 protected:
  Texts() : watch_url_(server_.program().read_line()) { watch_url_.resize(watch_url_.find(' ')); }

  void remember(const std::string &what, const void *bytes, std::size_t size) {
    secrets_[what] = std::string(static_cast<const char *>(bytes), size);
  }
  void remember_file(const std::string &what, const std::filesystem::path &path) { secrets_[what] = contents_of(path); }

  template <typename Call, typename... Arguments>
  int call(Call call, Arguments... arguments) const {
    return call(server_.paths(), server_.host(), server_.port(), arguments...);
  }

  // Runs a line of the shell in the test's folder; vesk has a trace.
  int run(const std::string &line) {
    const std::string command =
        "cd " + folder_.path().string() + " && export HOME=. && vesk() { " VESK_PROGRAM " --host 127.0.0.1 --port " +
        std::to_string(server_.port()) + " --certificates " + (server_ / "d").string() +
        " --trace trace.vesk \"$@\"; } && veskd() { " VESKD_PROGRAM " \"$@\"; } && { " + line + "; } >>said 2>&1";
    const int state = std::system(command.c_str());
    return WEXITSTATUS(state);
  }

  std::map<std::string, std::string> texts() {
    EXPECT_EQ(run("veskd audit show --dir " + (server_ / "d").string() + " && veskd audit show --output json --dir " +
                  (server_ / "d").string()),
              0);
    const std::string port =
        watch_url_.substr(watch_url_.rfind(':') + 1, watch_url_.rfind('/') - watch_url_.rfind(':') - 1);
    for (const char *path : {"/", "/metrics", "/readyz"})
      EXPECT_EQ(run("bash -c 'exec 3<>/dev/tcp/127.0.0.1/" + port + " && printf \"GET " + path +
                    " HTTP/1.0\\r\\n\\r\\n\" >&3 && cat <&3'"),
                0);
    return {{"trace of the library", contents_of(folder_ / "trace")},
            {"trace of the command", contents_of(folder_ / "trace.vesk")},
            {"audit, metrics, page, and what the command says", contents_of(folder_ / "said")},
            {"log", server_.program().errors()},
            {"store", contents_of(server_ / "d/store.db") + contents_of(server_ / "d/store.db-wal")}};
  }

  void expect_no_secrets() {
    for (const auto &[where, text] : texts()) {
      EXPECT_FALSE(text.empty()) << where;
      for (const auto &[what, secret] : secrets_) {
        ASSERT_GE(secret.size(), 32U) << what;
        EXPECT_THAT(forms_in(text, secret), IsEmpty()) << what << " in " << where;
      }
    }
  }

  const TemporaryDirectory folder_;
  RunningServer server_{{"--audit", "--watch-port", "0"}};
  std::string watch_url_;
  std::map<std::string, std::string> secrets_;
};

TEST_F(Texts, OfTheLibraryTellNoSecrets) {
  const KeyPair pair;
  ASSERT_EQ(TraceToFile((folder_ / "trace").c_str()), 0);
  KeyRecord record{};
  char name[41];
  unsigned char value[32], wrapped[256];
  std::uint32_t increment = 0;
  EXPECT_EQ(call(qCreateSymKey, "K", 'N'), 0);
  EXPECT_EQ(call(qRetrieveKey, "K", "", &record), 0);
  remember("retrieved key", record.caKeyValue, 32);
  EXPECT_EQ(call(qAutoGenKeys, "CONSTANT_000015", 'i', 2u), 0);
  EXPECT_EQ(call(qGetNextKey, "CONSTANT_000015", name, value, &increment), 0);
  remember("drawn key", value, 32);
  EXPECT_EQ(call(qImportCertificate, pair.file("certificate.pem").c_str(), "pair", 1), 0);
  EXPECT_EQ(call(qImportPrivateKey, pair.file("key.pem").c_str(), "pair"), 0);
  EXPECT_EQ(call(qImportPrivateKey, pair.file("key.der").c_str(), "another"), 0);
  EXPECT_EQ(call(qImportCertificate, pair.file("key.pem").c_str(), "refused", 1), veskd::RC_CERTIFICATE_INVALID);
  const std::string private_key = contents_of(pair.file("key.der"));
  remember("private key", private_key.data() + private_key.size() - 600, 400);
  remember("text of the private key", contents_of(pair.file("key.pem")).data() + 800, 400);
  const std::string file = folder_ / "wrapped";
  EXPECT_EQ(call(qExportSymKey, "K", "", "pair", file.c_str(), wrapped), 0);
  EXPECT_EQ(call(qImportSymKey, "K2", "pair", nullptr, wrapped), 0);
  EXPECT_EQ(call(qImportSymKey, "K3", "pair", file.c_str(), nullptr), 0);
  wrapped[5] ^= 1;
  EXPECT_EQ(call(qImportSymKey, "K4", "pair", nullptr, wrapped), veskd::RC_UNWRAP_FAILED);
  remember("wrapped key", wrapped + 6, 250);
  for (const char *format : {"BIN", "B16", "B64"}) {
    ASSERT_EQ(RAND_priv_bytes(value, sizeof value), 1);
    const std::string bytes(reinterpret_cast<const char *>(value), sizeof value);
    const std::string sent = format[1] == 'I' ? bytes : format[1] == '1' ? hexadecimal(bytes) : base64(bytes);
    const std::span<const unsigned char> text(reinterpret_cast<const unsigned char *>(sent.data()), sent.size());
    EXPECT_EQ(import_plain(server_.paths(), server_.port(), format, format, text), 0);
    EXPECT_EQ(import_plain(server_.paths(), server_.port(), format, format, text), veskd::RC_KEY_EXISTS);
    remember(format, bytes.data(), bytes.size());
    remember(std::string("text of ") + format, sent.data(), sent.size());
  }
  TraceOff();
  remember_file("master key", server_ / "d/master.key");
  // So that there is a trace of it; it carries no secret.
  EXPECT_EQ(run("vesk ping --output json"), 0);
  expect_no_secrets();
}

TEST_F(Texts, OfTheCommandTellNoSecrets) {
  const KeyPair pair;
  ASSERT_EQ(TraceToFile((folder_ / "trace").c_str()), 0);
  EXPECT_EQ(call(qAdminNoop), 0);
  TraceOff();
  const std::string files = pair.file("");
  EXPECT_EQ(
      run("vesk key create K && vesk key get K && vesk key get K --output json --out k && vesk key get K --hex --out "
          "k.hex && vesk key policy K && vesk template generate CONSTANT_000015 --count 2 && vesk key next "
          "CONSTANT_000015 --out next"),
      0);
  // Kept as it is.
  EXPECT_EQ(run("vesk key get K --out k"), 1);
  EXPECT_EQ(run("vesk certificate import pair " + files + "certificate.pem && vesk private-key import pair " + files +
                "key.pem && vesk key export K --certificate pair --out wrapped && vesk key export K --certificate pair "
                "--unwrap-with " +
                files + "key.pem --out unwrapped && cmp k unwrapped"),
            0);
  EXPECT_EQ(run("head -c 32 /dev/urandom >bytes && vesk key import I --certificate pair --in bytes && vesk key import "
                "W --certificate pair --in wrapped --wrapped"),
            0);
  // All wrong: the name is taken, the form is another, the file is no certificate, the server refuses.
  EXPECT_EQ(run("vesk key import I --certificate pair --in bytes"), 3);
  EXPECT_EQ(run("vesk key import J --certificate pair --in bytes --hex"), 1);
  EXPECT_EQ(run("vesk key import J --certificate pair --in bytes --base64"), 1);
  EXPECT_EQ(run("vesk certificate import other " + files + "both.pem"), 3);
  EXPECT_EQ(run("vesk private-key import other bytes"), 3);
  for (const char *name : {"k", "next", "wrapped", "unwrapped", "bytes"}) remember_file(name, folder_ / name);
  remember_file("k.hex", folder_ / "k.hex");
  const std::string private_key = contents_of(pair.file("key.der"));
  remember("private key", private_key.data() + private_key.size() - 600, 400);
  remember("text of the private key", contents_of(pair.file("key.pem")).data() + 800, 400);
  expect_no_secrets();
}

// That they would be found.
TEST_F(Texts, TellSecretsOnRequestAlone) {
  EXPECT_EQ(call(qCreateSymKey, "K", 'N'), 0);
  ASSERT_EQ(TraceToFile((folder_ / "trace").c_str()), 0);
  TraceRevealSecrets(1);
  KeyRecord record{};
  EXPECT_EQ(call(qRetrieveKey, "K", "", &record), 0);
  TraceRevealSecrets(0);
  TraceOff();
  const std::string value(record.caKeyValue, 32);
  EXPECT_THAT(forms_in(contents_of(folder_ / "trace"), value), Contains("hexadecimal"));
  EXPECT_THAT(forms_in("x" + base64("1" + value), value), Contains("base64"));
  EXPECT_THAT(forms_in(value, value), Contains("raw"));
}

}  // namespace
}  // namespace secrets_test
