// Keys that are brought in and taken out, with openssl's own command as the other party.
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tests/command/key_pair_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;

class KeyTransfer : public KeyPairTest {
 protected:
  void SetUp() override {
    store_pair("pair", 1);
    write_secret(files_.path("raw"), value_);
  }

  std::string key(const std::string &name) const { return vesk({"key", "get", name, "--out", "-"}).out; }

  unsigned mode_of(const std::string &name) const {
    struct stat file {};
    EXPECT_EQ(lstat(files_.path(name).c_str(), &file), 0);
    return file.st_mode & 07777;
  }

  // Bytes of every kind.
  const std::string value_ = std::string("0123456789abcdef") + std::string("\0\1\n\xff ", 5) + "fghijklmnop";
  const std::string hex_ = "3031323334353637383961626364656600010aff20666768696a6b6c6d6e6f70";
  const std::string base64_ = "MDEyMzQ1Njc4OWFiY2RlZgABCv8gZmdoaWprbG1ub3A=";
};

TEST_F(KeyTransfer, AKeyComesInFromAFileOrAPipeInEveryForm) {
  ASSERT_EQ(value_.size(), 32U);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--in", "raw"}),
              Ends(0, StrEq("imported key K1\n"), IsEmpty()));
  EXPECT_EQ(key("K1"), value_);
  int number = 1;
  const std::vector<std::pair<std::string, std::string>> texts = {
      {hex_, "--hex"}, {hex_ + "\n", "--hex"}, {base64_, "--base64"}, {base64_ + "\r\n", "--base64"}};
  for (const auto &[text, option] : texts) {
    const std::string name = "K" + std::to_string(++number);
    Invocation piped = invocation({"key", "import", name, "--certificate", "pair", "--in", "-", option});
    piped.input = text;
    EXPECT_THAT(vesk(piped), Ends(0, StrEq("imported key " + name + "\n"), IsEmpty()));
    EXPECT_EQ(key(name), value_);
  }
  const Outcome outcome = vesk({"key", "import", "K9", "--certificate", "pair", "--in", "raw", "--output", "json"});
  EXPECT_EQ(document_in(outcome), json({{"imported", "K9"}, {"certificate", "pair"}}));
}

TEST_F(KeyTransfer, WhatIsNoKeyIsNotSent) {
  const auto import = [&](const std::string &text, std::vector<std::string> options = {}) {
    write_secret(files_.path("in"), text);
    std::vector<std::string> arguments = {"key", "import", "K1", "--certificate", "pair", "--in", "in"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return vesk(arguments);
  };
  for (const std::string &text : {std::string(), value_.substr(1), value_ + "x"}) {
    EXPECT_THAT(import(text), Ends(1, IsEmpty(),
                                   StrEq("vesk: key import: in does not hold a 256-bit key: that is 32 raw bytes\n"
                                         "hint: if it is text: add --hex or --base64\n")));
  }
  EXPECT_THAT(import(std::string(67, 'x')), Ends(1, IsEmpty(), HasSubstr("in has more than 66 bytes")));
  EXPECT_THAT(import(hex_ + "0", {"--hex"}), Ends(1, IsEmpty(), HasSubstr("64 hexadecimal digits")));
  EXPECT_THAT(import(base64_ + "=", {"--base64"}), Ends(1, IsEmpty(), HasSubstr("44 base64 characters")));
  EXPECT_THAT(import(std::string(255, 'x'), {"--wrapped"}),
              Ends(1, IsEmpty(), HasSubstr("in has 255 bytes; a wrapped key has 256")));
  EXPECT_THAT(import(value_, {"--wrapped", "--hex"}), Ends(2, IsEmpty(), HasSubstr("--hex")));
  EXPECT_EQ(vesk({"key", "get", "K1"}).exit_code, 4);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--in", "gone"}),
              Ends(1, IsEmpty(), StrEq("vesk: key import: cannot read gone: No such file or directory\n")));
}

TEST_F(KeyTransfer, WhatOpensslHasWrappedComesIn) {
  ASSERT_EQ(openssl({"pkeyutl", "-encrypt", "-certin", "-inkey", "pair.pem", "-in", "raw", "-out", "wrapped",
                     "-pkeyopt", "rsa_padding_mode:oaep", "-pkeyopt", "rsa_oaep_md:sha256"})
                .exit_code,
            0);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--in", "wrapped", "--wrapped"}),
              Ends(0, StrEq("imported key K1\n"), IsEmpty()));
  EXPECT_EQ(key("K1"), value_);
}

TEST_F(KeyTransfer, AWrongWrapIsRefused) {
  ASSERT_EQ(
      openssl({"pkeyutl", "-encrypt", "-certin", "-inkey", "pair.pem", "-in", "raw", "-out", "wrapped"}).exit_code, 0);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--in", "wrapped", "--wrapped"}),
              Ends(3, IsEmpty(),
                   AllOf(HasSubstr("RC_UNWRAP_FAILED"), HasSubstr("hint: was it wrapped under that certificate"))));
  make_pair("other", 2);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--certificate-file", "other.pem", "--in", "raw"}),
              Ends(3, IsEmpty(), HasSubstr("RC_UNWRAP_FAILED")));
  EXPECT_EQ(vesk({"key", "get", "K1"}).exit_code, 4);
}

// What the server keeps is compared: its first answer has another value, the second none.
TEST_F(KeyTransfer, AnImportThatDidNotGoWellIsSaidSo) {
  misbehave(
      "[[fault]]\noperation = \"RetrieveKey\"\nnth = 1\ndo = \"short\"\nbytes = 256\n"
      "[[fault]]\noperation = \"RetrieveKey\"\nnth = 2\ndo = \"return-code\"\ncode = 104\n");
  store_pair("pair", 1);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--in", "raw"}),
              Ends(1, IsEmpty(),
                   StrEq("vesk: key import: the server keeps another value under that name than the one given\n"
                         "hint: the key was imported: look at it with: vesk key get K1\n")));
  EXPECT_THAT(
      vesk({"key", "import", "K2", "--certificate", "pair", "--in", "raw"}),
      Ends(3, IsEmpty(),
           AllOf(StartsWith("vesk: key import: the imported key could not be checked: key K2: the server could"),
                 HasSubstr("hint: the key was imported: look at it with: vesk key get K2\n"))));
  EXPECT_EQ(key("K1") + key("K2"), value_ + value_);
}

TEST_F(KeyTransfer, ACertificateFileStandsInForTheServers) {
  ASSERT_EQ(vesk({"certificate", "delete", "pair", "--yes"}).exit_code, 0);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--in", "raw"}),
              Ends(4, IsEmpty(), HasSubstr("RC_CERTIFICATE_UNKNOWN")));
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "pair", "--certificate-file", "pair.pem", "--in", "raw"}),
              Ends(0, StrEq("imported key K1\n"), IsEmpty()));
  EXPECT_EQ(key("K1"), value_);
  EXPECT_THAT(vesk({"key", "import", "K2", "--certificate", "pair", "--certificate-file", "raw", "--in", "raw"}),
              Ends(1, IsEmpty(), HasSubstr("raw: the file is not one certificate, PEM or DER")));
  write_file(files_.path("ec.pem"), veskd::test::pem_of(veskd::test::certificate_of(veskd::test::ec_key()).get()));
  EXPECT_THAT(vesk({"key", "import", "K2", "--certificate", "pair", "--certificate-file", "ec.pem", "--in", "raw"}),
              Ends(1, IsEmpty(), HasSubstr("ec.pem: the certificate fits no use: keys are wrapped")));
  EXPECT_THAT(vesk({"key", "import", "K2", "--certificate", "pair", "--certificate-file", "gone", "--in", "raw"}),
              Ends(1, IsEmpty(), HasSubstr("cannot read gone")));
}

TEST_F(KeyTransfer, AnExportedKeyIsUnwrappedByOpenssl) {
  vesk({"key", "create", "K1"});
  EXPECT_THAT(vesk({"key", "export", "K1", "--certificate", "pair", "--out", "wrapped"}),
              Ends(0,
                   StrEq("name           K1\nwrapped under  pair\ncontent        the wrapped key\n"
                         "written to     wrapped\n"),
                   IsEmpty()));
  EXPECT_EQ(content("wrapped").size(), 256U);
  EXPECT_EQ(mode_of("wrapped"), 0600U);
  ASSERT_EQ(openssl({"pkeyutl", "-decrypt", "-inkey", "pair-key.pem", "-in", "wrapped", "-out", "opened", "-pkeyopt",
                     "rsa_padding_mode:oaep", "-pkeyopt", "rsa_oaep_md:sha256"})
                .exit_code,
            0);
  EXPECT_EQ(content("opened"), key("K1"));
}

TEST_F(KeyTransfer, AnExportedKeyIsUnwrappedOnTheSpot) {
  vesk({"key", "create", "K1"});
  EXPECT_THAT(vesk({"key", "export", "K1", "--certificate", "pair", "--out", "k1", "--unwrap-with", "pair-key.pem"}),
              Ends(0, HasSubstr("content        the key\n"), IsEmpty()));
  EXPECT_EQ(content("k1"), key("K1"));
  EXPECT_EQ(mode_of("k1"), 0600U);
  const Outcome hex =
      vesk({"key", "export", "K1", "--certificate", "pair", "--out", "-", "--hex", "--unwrap-with", "pair-key.pem"});
  EXPECT_EQ(hex.out, vesk({"key", "get", "K1", "--out", "-", "--hex"}).out);
}

TEST_F(KeyTransfer, AnInstanceIsExportedByItsName) {
  vesk({"key", "create", "K1"});
  const std::string instance = document_in(vesk({"key", "get", "K1", "--output", "json"})).at("instance");
  EXPECT_EQ(vesk({"key", "export", "K1", "--instance", instance, "--certificate", "pair", "--out", "k1"}).exit_code, 0);
  EXPECT_THAT(vesk({"key", "export", "K1", "--instance", "none", "--certificate", "pair", "--out", "k2"}),
              Ends(4, IsEmpty(), StartsWith("vesk: key export: key K1, instance none: the key has no such instance")));
  EXPECT_THAT(names_in(files_.path()), Not(testing::Contains("k2")));
}

TEST_F(KeyTransfer, APrivateKeyThatDoesNotFitIsSaidSo) {
  vesk({"key", "create", "K1"});
  make_pair("other", 2);
  write_secret(files_.path("encrypted.pem"), veskd::test::encrypted_pem_of(veskd::test::rsa_key(1)));
  write_secret(files_.path("ec.pem"), veskd::test::pem_of(veskd::test::ec_key()));
  const auto export_with = [&](const char *file) {
    return vesk({"key", "export", "K1", "--certificate", "pair", "--out", "k1", "--unwrap-with", file});
  };
  EXPECT_THAT(export_with("other-key.pem"),
              Ends(1, IsEmpty(),
                   StrEq("vesk: key export: other-key.pem does not unwrap what is wrapped under certificate pair: do "
                         "they belong together?\n")));
  EXPECT_THAT(export_with("encrypted.pem"),
              Ends(1, IsEmpty(),
                   StrEq("vesk: key export: encrypted.pem: the private key is encrypted\n"
                         "hint: decrypt it into a file that only you can read: openssl pkey -in FILE -out NEW\n")));
  Invocation piped = invocation({"key", "export", "K1", "--certificate", "pair", "--out", "k1", "--unwrap-with", "-"});
  piped.input = content("encrypted.pem");
  EXPECT_THAT(vesk(piped), Ends(1, IsEmpty(), StartsWith("vesk: key export: standard input: the private key is enc")));
  EXPECT_THAT(export_with("ec.pem"), Ends(1, IsEmpty(), HasSubstr("ec.pem: the private key fits no use: keys are")));
  EXPECT_THAT(export_with("pair.pem"), Ends(1, IsEmpty(), HasSubstr("pair.pem: the file holds no private key, PEM")));
  EXPECT_THAT(export_with("gone.pem"), Ends(1, IsEmpty(), HasSubstr("cannot read gone.pem")));
  EXPECT_THAT(export_with(""), Ends(1, IsEmpty(), HasSubstr("cannot read '': No such file or directory")));
  EXPECT_THAT(names_in(files_.path()), Not(testing::Contains("k1")));
}

TEST_F(KeyTransfer, AnEndThatIsNearIsWarnedOfAndAnEndThatIsPastRefused) {
  store_pair("soon", 2, 1, 10);
  store_pair("past", 3, 10, -1);
  EXPECT_THAT(vesk({"key", "import", "K1", "--certificate", "soon", "--in", "raw"}),
              Ends(0, StrEq("imported key K1\n"), StartsWith("warning: certificate soon expires on ")));
  EXPECT_THAT(vesk({"key", "export", "K1", "--certificate", "soon", "--out", "k1"}),
              Ends(0, HasSubstr("k1\n"), StartsWith("warning: certificate soon expires on ")));
  EXPECT_THAT(vesk({"key", "import", "K3", "--certificate", "soon", "--certificate-file", "soon.pem", "--in", "raw"}),
              Ends(0, StrEq("imported key K3\n"), StartsWith("warning: soon.pem expires on ")));
  EXPECT_THAT(vesk({"key", "import", "K2", "--certificate", "past", "--in", "raw"}),
              Ends(1, IsEmpty(), StartsWith("vesk: key import: certificate past: it is valid from ")));
  EXPECT_THAT(vesk({"key", "export", "K1", "--certificate", "past", "--out", "k2"}),
              Ends(3, IsEmpty(), HasSubstr("RC_CERTIFICATE_EXPIRED")));
}

TEST_F(KeyTransfer, AnExportNeverTakesTheNameOfAnotherFile) {
  vesk({"key", "create", "K1"});
  write_file(files_.path("k1"), "kept");
  EXPECT_THAT(vesk({"key", "export", "K1", "--certificate", "pair", "--out", "k1"}),
              Ends(1, IsEmpty(), HasSubstr("k1 exists already and was left as it is\n")));
  EXPECT_EQ(content("k1"), "kept");
  EXPECT_EQ(vesk({"key", "export", "K1", "--certificate", "pair", "--out", "k1", "--force"}).exit_code, 0);
  EXPECT_EQ(content("k1").size(), 256U);
}

TEST_F(KeyTransfer, AnExportThatCannotBeWrittenLeavesNothing) {
  vesk({"key", "create", "K1"});
  const std::vector<std::string> before = names_in(files_.path());
  EXPECT_THAT(vesk({"key", "export", "K1", "--certificate", "pair", "--out", "nowhere/k1"}),
              Ends(1, IsEmpty(), StrEq("vesk: key export: cannot create nowhere/k1: No such file or directory\n")));
  EXPECT_THAT(vesk_on_a_full_disk("key export K1 --certificate pair --out k1"),
              Ends(1, IsEmpty(), StrEq("vesk: key export: certificate pair did not arrive whole\n")));
  Invocation full = invocation({"key", "export", "K1", "--certificate", "pair", "--out", "-"});
  full.standard_output_path = "/dev/full";
  EXPECT_THAT(vesk(full), Ends(1, IsEmpty(), HasSubstr("No space left on device")));
  EXPECT_EQ(names_in(files_.path()), before);
}

TEST_F(KeyTransfer, AKeyIsInNoTraceAndNoMessage) {
  const Outcome in = vesk({"key", "import", "K1", "--certificate", "pair", "--in", "raw", "--trace", "-"});
  ASSERT_EQ(in.exit_code, 0);
  const Outcome out = vesk(
      {"key", "export", "K1", "--certificate", "pair", "--out", "k1", "--unwrap-with", "pair-key.pem", "--trace", "-"});
  ASSERT_EQ(out.exit_code, 0);
  EXPECT_THAT(in.err, AllOf(HasSubstr("F: ImportSymKey"), HasSubstr("F: RetrieveKey")));
  EXPECT_THAT(out.err, HasSubstr("F: ExportSymKey"));
  for (const std::string &seen : {in.err + in.out, out.err + out.out}) {
    EXPECT_THAT(seen, Not(HasSubstr(value_.substr(0, 8))));
    EXPECT_THAT(seen, Not(HasSubstr("30 31 32 33 34")));
    EXPECT_THAT(seen, Not(HasSubstr(hex_.substr(0, 16))));
  }
}

}  // namespace
}  // namespace command_test
