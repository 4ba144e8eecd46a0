// Replies that no good server sends: none of them steers the terminal, names a wrong size or passes for success.
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"
#include "tests/command/played_server.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

class Replies : public CommandTest {
 protected:
  Outcome vesk_gets(const std::string &reply, std::vector<std::string> arguments) const {
    const PlayedServer server(server_files_.path(), {}, reply);
    Invocation made = invocation(std::move(arguments));
    made.environment = {
        {"VESK_HOST", "127.0.0.1"}, {"VESK_PORT", server.port()}, {"VESK_CERTIFICATES", server_files_.path()}};
    return vesk(made);
  }

  TemporaryDirectory server_files_;
};

std::string padded(std::string text, std::size_t width) {
  text.resize(width, ' ');
  return text;
}

// A key as the server serves it; the value is 256 times 'v'.
std::string key_reply(const std::string &name, const std::string &instance, const std::string &size) {
  return "00351"
         "2001"
         "0000" +
         padded(name, 40) + padded(instance, 24) +
         "20260102"
         "20271231" +
         size + "BIN" + std::string(256, 'v');
}

// The library goes by the More Flag of these lists alone, which a refusal does not have.
TEST_F(Replies, ARefusalWithinAListIsNoEndOfIt) {
  const std::string page =
      "00014"
      "1049"
      "0000"
      "Y"
      "00064" +
      padded("C1", 64);
  EXPECT_THAT(vesk_gets(page + "00008"
                               "1049"
                               "0104",
                        {"certificate", "list"}),
              Ends(3, IsEmpty(), StartsWith("vesk: certificate list: certificates: the server could not read or")));
}

TEST_F(Replies, AReturnCodeThatNobodyKnowsIsPassedOn) {
  EXPECT_THAT(vesk_gets("00008"
                        "1043"
                        "0777",
                        {"ping"}),
              Ends(3, IsEmpty(),
                   StartsWith("vesk: ping: refused: the server refused, with a code that this command does not know "
                              "(return code 0777 from 127.0.0.1:")));
}

TEST_F(Replies, ATooLongReplyIsNoReturnCode) {
  EXPECT_THAT(
      vesk_gets("16385", {"ping"}),
      Ends(1, IsEmpty(), AllOf(StartsWith("vesk: ping: 127.0.0.1:"), HasSubstr("(ERR_TRANSACTION_SIZE 9999)"))));
}

TEST_F(Replies, AKeyOfAnotherNameIsNotTaken) {
  EXPECT_THAT(vesk_gets(key_reply("K2", "I", "0256"), {"key", "get", "K1", "--out", "k1.key"}),
              Ends(1, IsEmpty(), HasSubstr("(ERR_KEY_NAME_MISMATCH 20000)")));
  EXPECT_THAT(names_in(files_.path()), IsEmpty());
}

TEST_F(Replies, DatesAreReadable) {
  EXPECT_THAT(
      vesk_gets(key_reply("K1", "I", "0256"), {"key", "get", "K1"}),
      Ends(0, AllOf(HasSubstr("last rolled   2026-01-02\n"), HasSubstr("expires       2027-12-31\n")), IsEmpty()));
}

TEST_F(Replies, AKeyIsAsLongAsTheServerSays) {
  EXPECT_THAT(vesk_gets(key_reply("K1", "I", "0128"), {"key", "get", "K1", "--out", "-"}),
              Ends(0, StrEq(std::string(16, 'v')), IsEmpty()));
  EXPECT_THAT(vesk_gets(key_reply("K1", "I", "2048"), {"key", "get", "K1", "--out", "-", "--base64"}),
              Ends(0, HasSubstr("dnZ2dg==\n"), IsEmpty()));
}

TEST_F(Replies, AKeySizeThatCannotBeIsRefused) {
  for (const std::string size : {"2056", "9999", "0000", "0255", "    ", "-008", "25x6"}) {
    EXPECT_THAT(vesk_gets(key_reply("K1", "I", size), {"key", "get", "K1", "--out", "k1.key"}),
                Ends(1, IsEmpty(), HasSubstr("the server gave the key size '")))
        << size;
  }
  EXPECT_THAT(names_in(files_.path()), IsEmpty());
}

TEST_F(Replies, TheServersTextDoesNotSteerTheTerminal) {
  const std::string reply = key_reply("K1", "\x1b]0;owned\x07\x9b", "0256");
  EXPECT_THAT(vesk_gets(reply, {"key", "get", "K1"}), Ends(0, HasSubstr("\\x1b]0;owned\\x07\\x9b\n"), IsEmpty()));
  const Outcome outcome = vesk_gets(reply, {"key", "get", "K1", "--output", "json"});
  EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos);
  EXPECT_EQ(document_in(outcome).at("instance"), "\x1b]0;owned\x07\xef\xbf\xbd");

  const std::string list =
      "00014"
      "1123"
      "0000"
      "N"
      "00044" +
      padded("\x1b[2Jtemplate", 44);
  EXPECT_THAT(vesk_gets(list, {"template", "list"}), Ends(0, StrEq("\\x1b[2Jtemplate\n"), IsEmpty()));
}

TEST_F(Replies, WhatArrivedOfAReplyIsCaptured) {
  const std::string reply = key_reply("K1", "I1", "0256");
  EXPECT_EQ(vesk_gets(reply.substr(0, 120), {"key", "get", "K1", "--trace", "trace"}).exit_code, 5);
  const Outcome outcome = vesk({"decode", "trace"});
  EXPECT_THAT(outcome, Ends(7,
                            AllOf(HasSubstr("masked, 20 bytes"), HasSubstr("CONN_ERR_CLOSED: "),
                                  HasSubstr("FAULT at 120: cut: 120 of 356 bytes have arrived\n")),
                            HasSubstr("reply, offset 120: cut after 20 of its 256 bytes\n")));
  EXPECT_EQ((outcome.out + contents_of(files_.path("trace"))).find("vvvv"), std::string::npos);
}

TEST_F(Replies, ATooLongReplyIsCapturedAsFarAsItWasRead) {
  vesk_gets("16385", {"ping", "--trace", "trace"});
  EXPECT_THAT(vesk({"decode", "trace"}),
              Ends(7, HasSubstr("FAULT at 0: the library takes no more than 16384 bytes\n"), HasSubstr("2 faults")));
}

TEST_F(Replies, AChainOfOneCertificateIsShownAsFarAsItGoes) {
  EXPECT_THAT(vesk_gets("", {"server", "certificates"}),
              Ends(5, StartsWith("authority (the chain's last certificate)\n"), HasSubstr("(ERR_NO_COMM_CERT 20011)")));
  const Outcome outcome = vesk_gets("", {"server", "certificates", "--output", "json"});
  EXPECT_TRUE(document_in(outcome).at("communication").is_null());
}

}  // namespace
}  // namespace command_test
