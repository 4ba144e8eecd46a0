// Certificates and private keys of the server's store.
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tests/command/key_pair_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;

class Certificates : public KeyPairTest {
 protected:
  void SetUp() override { make_pair("c1", 1); }
};

TEST_F(Certificates, ACertificateGoesToTheServerAndComesBackAsItWas) {
  EXPECT_THAT(vesk({"certificate", "import", "c1", "c1.pem"}), Ends(0, StrEq("imported certificate c1\n"), IsEmpty()));
  EXPECT_THAT(vesk({"certificate", "list"}), Ends(0, StrEq("c1\n"), IsEmpty()));
  EXPECT_THAT(vesk({"certificate", "export", "c1", "--out", "copy.pem"}),
              Ends(0, StrEq("wrote certificate c1 to copy.pem\n"), IsEmpty()));
  EXPECT_EQ(content("copy.pem"), content("c1.pem"));
  EXPECT_THAT(vesk({"certificate", "export", "c1", "--out", "-"}), Ends(0, StrEq(content("c1.pem")), IsEmpty()));
  EXPECT_THAT(vesk({"certificate", "delete", "c1", "--yes"}), Ends(0, StrEq("deleted certificate c1\n"), IsEmpty()));
  EXPECT_THAT(vesk({"certificate", "list"}), Ends(0, IsEmpty(), IsEmpty()));
}

TEST_F(Certificates, ACertificateMayComeFromAPipe) {
  Invocation piped = invocation({"certificate", "import", "c1", "-"});
  piped.input = content("c1.pem");
  EXPECT_THAT(vesk(piped), Ends(0, StrEq("imported certificate c1\n"), IsEmpty()));
}

TEST_F(Certificates, DocumentsSayTheSame) {
  const auto document = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--output", "json"});
    return document_in(vesk(arguments));
  };
  EXPECT_EQ(document({"certificate", "import", "c1", "c1.pem"}), json({{"imported", "c1"}}));
  EXPECT_EQ(document({"private-key", "import", "c1", "c1-key.pem"}), json({{"imported", "c1"}}));
  EXPECT_EQ(document({"certificate", "list"}), json({{"certificates", {"c1"}}, {"count", 1}, {"complete", true}}));
  EXPECT_EQ(document({"private-key", "list"}), json({{"private_keys", {"c1"}}, {"count", 1}, {"complete", true}}));
  EXPECT_EQ(document({"certificate", "export", "c1", "--out", "copy"}), json({{"name", "c1"}, {"file", "copy"}}));
  EXPECT_EQ(document({"certificate", "delete", "c1", "--yes"}), json({{"deleted", "c1"}}));
  EXPECT_EQ(document({"private-key", "delete", "c1", "--yes"}), json({{"deleted", "c1"}}));
  EXPECT_EQ(document({"private-key", "list"}),
            json({{"private_keys", json::array()}, {"count", 0}, {"complete", true}}));
}

TEST_F(Certificates, WhatIsThereIsReplacedOnlyWhenTold) {
  vesk({"certificate", "import", "c1", "c1.pem"});
  EXPECT_THAT(vesk({"certificate", "import", "c1", "c1.pem"}),
              Ends(3, IsEmpty(),
                   AllOf(StartsWith("vesk: certificate import: certificate c1: a certificate of that name exists"),
                         HasSubstr("hint: replace it with --replace\n"))));
  EXPECT_EQ(vesk({"certificate", "import", "c1", "c1.pem", "--replace"}).exit_code, 0);
  vesk({"private-key", "import", "c1", "c1-key.pem"});
  EXPECT_THAT(vesk({"private-key", "import", "c1", "c1-key.pem"}),
              Ends(3, IsEmpty(),
                   AllOf(StartsWith("vesk: private-key import: private key c1: a private key of that name exists"),
                         HasSubstr("hint: replace it with --replace\n"))));
  EXPECT_EQ(vesk({"private-key", "import", "c1", "c1-key.pem", "--replace"}).exit_code, 0);
}

TEST_F(Certificates, AFileThatCannotBeReadIsNamed) {
  EXPECT_THAT(vesk({"certificate", "import", "c1", "gone.pem"}),
              Ends(1, IsEmpty(), StrEq("vesk: certificate import: cannot read gone.pem: No such file or directory\n")));
  EXPECT_THAT(vesk({"private-key", "import", "c1", files_.path()}), Ends(1, IsEmpty(), HasSubstr("Is a directory")));
  write_file(files_.path("long"), std::string(16306, 'x'));
  EXPECT_THAT(vesk({"certificate", "import", "c1", "long"}),
              Ends(1, IsEmpty(),
                   StrEq("vesk: certificate import: long has more than 16305 bytes, the most that a certificate may "
                         "have\n")));
  // One byte more is let through to the server, which finds that it is none.
  EXPECT_THAT(vesk({"private-key", "import", "c1", "long"}), Ends(3, IsEmpty(), HasSubstr("RC_PRIVATE_KEY_INVALID")));
}

TEST_F(Certificates, WhatTheServerRefusesIsExplained) {
  write_secret(files_.path("encrypted.pem"), veskd::test::encrypted_pem_of(veskd::test::rsa_key(1)));
  EXPECT_THAT(vesk({"private-key", "import", "c1", "encrypted.pem"}),
              Ends(3, IsEmpty(), AllOf(HasSubstr("RC_PRIVATE_KEY_ENCRYPTED"), HasSubstr("hint: decrypt it"))));
  EXPECT_THAT(vesk({"certificate", "import", "c1", "c1-key.pem"}),
              Ends(3, IsEmpty(), HasSubstr("RC_CERTIFICATE_INVALID")));
  make_pair("c2", 2);
  // A chain: the hint leads to its first certificate.
  write_file(files_.path("chain.pem"), content("c1.pem") + content("c2.pem"));
  EXPECT_THAT(
      vesk({"certificate", "import", "chain", "chain.pem"}),
      Ends(3, IsEmpty(), HasSubstr("hint: take the first certificate out of it: openssl x509 -in FILE -out NEW")));
  ASSERT_EQ(openssl({"x509", "-in", "chain.pem", "-out", "first.pem"}).exit_code, 0);
  EXPECT_EQ(vesk({"certificate", "import", "chain", "first.pem"}).exit_code, 0);
  vesk({"certificate", "import", "c1", "c1.pem"});
  EXPECT_THAT(vesk({"private-key", "import", "c1", "c2-key.pem"}),
              Ends(3, IsEmpty(), AllOf(HasSubstr("RC_PAIR_MISMATCH"), HasSubstr("hint: give another name"))));
  EXPECT_THAT(vesk({"certificate", "export", "c2", "--out", "copy.pem"}),
              Ends(4, IsEmpty(), AllOf(HasSubstr("RC_CERTIFICATE_UNKNOWN"), HasSubstr("vesk certificate list"))));
  EXPECT_THAT(vesk({"certificate", "delete", "c2", "--yes"}), Ends(4, IsEmpty(), HasSubstr("certificate c2")));
  EXPECT_THAT(vesk({"private-key", "delete", "c2", "--yes"}), Ends(4, IsEmpty(), HasSubstr("private key c2")));
  EXPECT_THAT(names_in(files_.path()), Not(testing::Contains("copy.pem")));
}

TEST_F(Certificates, AnExportNeverTakesTheNameOfAnotherFile) {
  vesk({"certificate", "import", "c1", "c1.pem"});
  write_file(files_.path("copy.pem"), "kept");
  EXPECT_THAT(vesk({"certificate", "export", "c1", "--out", "copy.pem"}),
              Ends(1, IsEmpty(), HasSubstr("copy.pem exists already and was left as it is\n")));
  EXPECT_EQ(content("copy.pem"), "kept");
  EXPECT_EQ(vesk({"certificate", "export", "c1", "--out", "copy.pem", "--force"}).exit_code, 0);
  EXPECT_EQ(content("copy.pem"), content("c1.pem"));
  EXPECT_THAT(vesk({"certificate", "export", "c1", "--out", files_.path()}),
              Ends(1, IsEmpty(), HasSubstr(" is not a regular file and was left as it is\n")));
  EXPECT_THAT(vesk({"certificate", "export", "c1", "--out", ""}),
              Ends(2, IsEmpty(), StrEq("vesk: certificate export: the name of the file to write is empty\n")));
}

// The library shows a list that was refused as an empty one. Whoever took that for the truth would replace a key.
TEST_F(Certificates, AListThatIsRefusedIsNotShownAsEmpty) {
  misbehave(
      "[[fault]]\noperation = \"GetCertificateList\"\ndo = \"return-code\"\ncode = 112\n"
      "[[fault]]\noperation = \"GetPrivateKeyList\"\ndo = \"return-code\"\ncode = 104\n");
  EXPECT_THAT(
      vesk({"certificate", "list", "--output", "json"}),
      Ends(3, IsEmpty(), StartsWith("vesk: certificate list: certificates: no role of the client may do this")));
  EXPECT_THAT(vesk({"private-key", "list"}),
              Ends(3, IsEmpty(), StartsWith("vesk: private-key list: private keys: the server could not read")));
  EXPECT_THAT(vesk({"private-key", "import", "c1", "c1-key.pem"}), Ends(3, IsEmpty(), HasSubstr("RC_SERVER_FAILURE")));
  EXPECT_THAT(vesk({"private-key", "delete", "c1", "--dry-run"}), Ends(3, IsEmpty(), HasSubstr("RC_SERVER_FAILURE")));
  EXPECT_THAT(vesk({"private-key", "import", "c1", "c1-key.pem", "--replace"}), Ends(0, HasSubstr("c1"), IsEmpty()));
}

TEST_F(Certificates, AnExportThatCannotBeWrittenLeavesNothing) {
  vesk({"certificate", "import", "c1", "c1.pem"});
  EXPECT_THAT(vesk({"certificate", "export", "c1", "--out", "nowhere/copy.pem"}),
              Ends(1, IsEmpty(),
                   StrEq("vesk: certificate export: cannot create nowhere/copy.pem: No such file or directory\n")));
  EXPECT_THAT(vesk_on_a_full_disk("certificate export c1 --out copy.pem"),
              Ends(1, IsEmpty(), StrEq("vesk: certificate export: certificate c1 did not arrive whole\n")));
  EXPECT_THAT(names_in(files_.path()), ElementsAre("c1-key.pem", "c1.pem"));
  Invocation full = invocation({"certificate", "export", "c1", "--out", "-"});
  full.standard_output_path = "/dev/full";
  EXPECT_THAT(vesk(full), Ends(1, IsEmpty(), HasSubstr("No space left on device")));
}

TEST_F(Certificates, BinaryIsNotWrittenToATerminal) {
  write_file(files_.path("c1.der"), veskd::test::der_of(veskd::test::certificate_of(veskd::test::rsa_key(1)).get()));
  vesk({"certificate", "import", "der", "c1.der"});
  vesk({"certificate", "import", "pem", "c1.pem"});
  Invocation terminal = invocation({"certificate", "export", "der", "--out", "-"});
  terminal.standard_output = Stream::kTerminal;
  EXPECT_THAT(vesk(terminal), Ends(1, IsEmpty(), HasSubstr("hint: write it to a file: --out FILE")));
  terminal.arguments[2] = "pem";
  EXPECT_EQ(vesk(terminal).terminal, content("c1.pem"));
}

TEST_F(Certificates, AnEndThatIsNearIsWarnedOf) {
  make_pair("soon", 1, 1, 10);
  make_pair("later", 1, 1, 31);
  make_pair("past", 1, 10, -1);
  EXPECT_THAT(vesk({"certificate", "import", "soon", "soon.pem"}),
              Ends(0, StrEq("imported certificate soon\n"),
                   MatchesRegex("warning: certificate soon expires on [-0-9]+, in (9|10) days\n")));
  EXPECT_THAT(vesk({"certificate", "import", "later", "later.pem"}),
              Ends(0, StrEq("imported certificate later\n"), IsEmpty()));
  EXPECT_THAT(vesk({"certificate", "export", "soon", "--out", "-"}),
              Ends(0, StrEq(content("soon.pem")), StartsWith("warning: certificate soon expires on ")));
  EXPECT_THAT(vesk({"certificate", "export", "later", "--out", "-"}), Ends(0, StrEq(content("later.pem")), IsEmpty()));
  const veskd::CertificatePtr today = veskd::test::certificate_of(veskd::test::rsa_key(1));
  X509_gmtime_adj(X509_getm_notAfter(today.get()), 3600);
  write_file(files_.path("today.pem"), veskd::test::pem_of(today.get()));
  EXPECT_THAT(vesk({"certificate", "import", "today", "today.pem"}),
              Ends(0, StrEq("imported certificate today\n"), HasSubstr(", within a day\n")));
  EXPECT_THAT(vesk({"certificate", "import", "past", "past.pem"}),
              Ends(0, StrEq("imported certificate past\n"), StartsWith("warning: certificate past expired on ")));
}

TEST_F(Certificates, DeletingAsksOnATerminalAndNeedsYesElsewhere) {
  vesk({"certificate", "import", "c1", "c1.pem"});
  vesk({"private-key", "import", "c1", "c1-key.pem"});
  for (const char *group : {"certificate", "private-key"}) {
    EXPECT_THAT(vesk({group, "delete", "c1"}), Ends(2, IsEmpty(), HasSubstr("hint: add --yes if you are sure")));
    EXPECT_THAT(vesk({group, "list"}), Ends(0, StrEq("c1\n"), IsEmpty()));
  }
}

TEST_F(Certificates, NamesThatTheProtocolWouldCutAreRefused) {
  const std::string longest(64, 'n');
  EXPECT_EQ(vesk({"certificate", "import", longest, "c1.pem"}).exit_code, 0);
  EXPECT_THAT(vesk({"certificate", "import", longest + "n", "c1.pem"}),
              Ends(2, IsEmpty(), HasSubstr("is 65 bytes long; at most 64 are allowed")));
  EXPECT_THAT(vesk({"private-key", "delete", longest + "n", "--yes"}),
              Ends(2, IsEmpty(), HasSubstr("the private key name")));
  EXPECT_THAT(vesk({"certificate", "list", "--type", "A"}),
              Ends(2, IsEmpty(), StrEq("vesk: certificate list: --type A is none of C\n")));
}

TEST_F(Certificates, APrivateKeyIsInNoTraceAndNoMessage) {
  const Outcome outcome = vesk({"private-key", "import", "c1", "c1-key.pem", "--trace", "-"});
  ASSERT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("F: ImportPrivateKey"));
  // The first line of digits, whole and in the pieces that a dump would show.
  const std::string digits = content("c1-key.pem").substr(28, 64);
  EXPECT_THAT(outcome.err, Not(HasSubstr(digits.substr(32, 16))));
  EXPECT_THAT(outcome.err, Not(HasSubstr("BEGIN PRIVATE")));
}

}  // namespace
}  // namespace command_test
