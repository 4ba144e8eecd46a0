// What is told of bytes that went over the wire, and of those that are not as they should be.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;

std::string padded(const std::string &text, std::size_t width) {
  return text + std::string(width - text.size(), ' ');
}

// A trace as the command writes it.
class TraceText {
 public:
  TraceText &connection(const std::string &server = "kms.example port 4000") {
    return line("connection to " + server + ", status 0");
  }
  TraceText &sent(const std::string &bytes) { return dump("sent", bytes); }
  TraceText &received(const std::string &bytes) { return dump("received", bytes); }
  TraceText &line(const std::string &message, const std::string &thread = "17") {
    text_ += "2026-11-21T20:06:55.123456Z " + thread + " vesk/capture:1 " + message + "\n";
    return *this;
  }
  const std::string &text() const { return text_; }

 private:
  TraceText &dump(const std::string &label, const std::string &bytes) {
    line(label + " (" + std::to_string(bytes.size()) + " bytes)");
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
      text_ += "    ";
      for (int shift = 12; shift >= 0; shift -= 4) text_ += kDigits[at >> shift & 15];
      text_ += ' ';
      for (const unsigned char byte : bytes.substr(at, 16)) (text_ += ' ') += {kDigits[byte >> 4], kDigits[byte & 15]};
      text_ += "  |?|\n";
    }
    return *this;
  }

  static constexpr const char *kDigits = "0123456789abcdef";
  std::string text_;
};

class Decode : public CommandTest {
 protected:
  // Of bytes that are in a file.
  Outcome decode(const std::string &input, std::vector<std::string> options = {}) const {
    write_file(files_.path("input"), input);
    options.insert(options.begin(), {"decode", "input"});
    return vesk(options);
  }

  // What a table says is wrong, one a line; nothing more is expected on standard error than the first.
  std::string faults(const std::string &input, const std::vector<std::string> &options = {}) const {
    const Outcome outcome = decode(input, options);
    std::string faults;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) {
      const std::size_t fault = line.find("FAULT at ");
      if (fault != line.npos) faults += line.substr(fault + 9) + "\n";
    }
    EXPECT_EQ(outcome.exit_code, faults.empty() ? 0 : 7) << outcome.err;
    return faults;
  }
};

const std::string kGetRequest = "000712001" + padded("K1", 40) + padded("", 24) + "BIN";
const std::string kGetReply = "0035120010000" + padded("K1", 40) + padded("I1", 24) + "00000000" + "20271231" + "0256" +
                              "BIN" + std::string(256, 'v');

// A record of a metadata query, with that label of the first field.
std::string metadata_record(const std::string &first_label) {
  std::string record(116, '0');
  for (int i = 1; i <= 16; ++i) {
    const std::string label = (i < 10 ? "MD0" : "MD") + std::to_string(i);
    record += (i == 1 ? first_label : label) + "'" + std::string(64, ' ') + "'";
  }
  return record;
}

// ---- Inputs ----

TEST_F(Decode, ARequestIsShownFieldByField) {
  EXPECT_THAT(decode(kGetRequest),
              Ends(0,
                   StrEq("exchange 1: RetrieveKey 2001\n"
                         "  request\n"
                         "      0     5  Tran Len              00071                     71 bytes follow\n"
                         "      5     4  Tran Id               2001                      RetrieveKey\n"
                         "      9    40  Key Name              K1\n"
                         "     49    24  Instance\n"
                         "     73     3  Key Format            BIN                       Binary value\n"
                         "\n1 exchange, 0 faults\n"),
                   IsEmpty()));
}

TEST_F(Decode, AReplyIsToldByItsIdentifierAndItsSecretIsMasked) {
  const Outcome outcome = decode(kGetReply);
  EXPECT_THAT(outcome, Ends(0,
                            AllOf(HasSubstr("  reply\n"), HasSubstr("20271231                  2027-12-31\n"),
                                  HasSubstr("    100   256  Key Value             masked, 256 bytes\n")),
                            IsEmpty()));
  EXPECT_THAT(outcome.out, Not(HasSubstr("vvvv")));
}

TEST_F(Decode, FormsTellTheSame) {
  const json document = document_in(decode(kGetReply, {"--output", "json"}));
  EXPECT_EQ(document.at("count"), 10);
  const json &value = document.at("fields").back();
  EXPECT_EQ(value.at("name"), "Key Value");
  EXPECT_EQ(value.at("masked"), true);
  EXPECT_EQ(value.at("offset"), 100);
  EXPECT_EQ(value.at("width"), 256);
  EXPECT_TRUE(value.at("value").is_null());
  EXPECT_THAT(decode(kGetReply, {"--output", "plain"}),
              Ends(0, StrEq("00351\n2001\n0000\nK1\nI1\n00000000\n20271231\n0256\nBIN\n\n"), IsEmpty()));
  EXPECT_THAT(
      decode(kGetReply, {"--output", "csv"}),
      Ends(0,
           AllOf(StartsWith("value,name,meaning,masked,offset,width,fault.offset,fault.text,"),
                 HasSubstr("\r\n0000,Return Code,RC_SUCCESS: the transaction was done,false,9,4,,,1,RetrieveKey,"
                           "reply,,,0,,,\r\n")),
           IsEmpty()));
}

TEST_F(Decode, BytesMayComeAsHexadecimalDigitsAndFromStandardInput) {
  const std::string digits = "30303030 34313034 33\n";
  const std::string table = decode("000041043").out;
  EXPECT_THAT(table, HasSubstr("AdminNoop"));
  EXPECT_EQ(decode(digits).out, table);
  Invocation piped = invocation({"decode", "-"});
  piped.input = digits;
  EXPECT_EQ(vesk(piped).out, table);
  EXPECT_THAT(decode("3030x0", {"--input", "hex"}),
              Ends(1, IsEmpty(), StrEq("vesk: decode: no pair of hexadecimal digits at offset 4\n")));
  EXPECT_THAT(decode("303", {"--input", "hex"}), Ends(1, IsEmpty(), HasSubstr("at offset 2\n")));
}

TEST_F(Decode, AReplyCanBeToldByAnOption) {
  const std::string reply = "0000899990204";
  EXPECT_EQ(faults(reply), "5: no transaction has this identifier\n");
  EXPECT_EQ(faults(reply, {"--transaction", "RetrieveKey"}), "5: should be 2001\n");
  EXPECT_EQ(faults(reply, {"--transaction", "2001"}), "5: should be 2001\n");
  // A request with a wrong length looks like a reply.
  EXPECT_THAT(faults("000051043", {"--request"}), StartsWith("0: should be 00004\n"));
  EXPECT_EQ(faults("000051043", {"--reply"}), "9: cut: 9 of 10 bytes have arrived\n");
}

TEST_F(Decode, WhatCannotBeMeantIsRefused) {
  EXPECT_THAT(decode(""), Ends(1, IsEmpty(), StrEq("vesk: decode: the input is empty\n")));
  EXPECT_THAT(decode("x", {"--input", "pcap"}),
              Ends(2, IsEmpty(), StrEq("vesk: decode: --input pcap is none of trace, bytes, hex\n")));
  EXPECT_THAT(decode("x", {"--transaction", "Bogus"}),
              Ends(2, IsEmpty(), StartsWith("vesk: decode: there is no transaction 'Bogus'\nhint: ")));
  EXPECT_THAT(decode("2026-11-21T20:06:55.123456Z 17 orn/vesk/skeys:10 F: AdminNoop\n"),
              Ends(1, IsEmpty(), StartsWith("vesk: decode: nothing was captured in this trace\nhint: ")));
  EXPECT_THAT(vesk({"decode", "gone"}), Ends(1, IsEmpty(), HasSubstr("cannot read gone")));
}

// ---- What is wrong ----

struct FaultyCase {
  const char *name;
  std::string input;
  std::string faults;
};

TEST_F(Decode, WhatIsWrongIsNamedWithItsOffset) {
  std::string with_nul = kGetRequest;
  with_nul[11] = '\0';
  std::string with_escape = kGetRequest;
  with_escape[12] = '\x1b';
  std::string wrong_reply = kGetReply;
  wrong_reply.replace(5, 4, "2003");
  const std::string list = "0001410370000N";
  const std::vector<FaultyCase> cases = {
      {"nothing", kGetRequest, ""},
      {"a NUL in a name", with_nul, "11: a NUL, which ends the text; 37 bytes of the field follow\n"},
      {"a control character in a name", with_escape, "12: the control character 0x1b\n"},
      {"bytes behind a request", kGetRequest + "x", "0: 1 byte behind the request\n"},
      {"a length without digits", "0x008" + kGetReply.substr(5, 8),
       "1: not five digits; it is read as 0\n5: the record ends before its field Tran Id\n0: 8 bytes behind the "
       "reply\n"},
      {"a length that the library refuses", "16385" + kGetReply.substr(5),
       "0: the library takes no more than 16384 bytes\n356: cut: 356 of 16390 bytes have arrived\n"},
      {"a return code without digits", "000082001   4", "9: not four digits; it is read as 4\n"},
      {"a date that is none", kGetReply.substr(0, 85) + "2027-12-" + kGetReply.substr(93),
       "85: not a date, which is YYYYMMDD\n"},
      {"fixed text that is another", "000121107CreateXX", "15: should be 'CreateDB'\n"},
      {"a reply that ends early", "0006820010000" + kGetReply.substr(13, 60),
       "73: cut after 20 of its 24 bytes\n73: the record ends before its field Last Rolled Date\n"},
      {"a refusal, which is the header alone", "0000820010204", ""},
      {"a reply with more than its fields", "0035220010000" + kGetReply.substr(13) + "v",
       "356: 1 byte more than the reply has\n"},
      {"a block that is cut", list + "00080" + padded("K1", 40) + "K2",
       "40: no whole entry of 40 bytes; the library drops it\n42: cut: 42 of 80 bytes have arrived, which List Count "
       "counts\n"},
      {"a block with part of an entry", list + "00041" + padded("K1", 41),
       "40: no whole entry of 40 bytes; the library drops it\n"},
      {"a page that does not follow", "0001410370000Y00040" + padded("K1", 40), "0: a page should follow\n"},
      {"bytes behind the last page", list + "00000x", "0: 1 byte behind the last page\n"},
      {"a count without digits", list + "-0040", "14: not a decimal number; it is read as -40\n"},
      {"a certificate that is cut", "0007811530000C" + padded("C1", 64) + "00005abc",
       "3: cut: 3 of 5 bytes have arrived, which Cert Length counts\n"},
      {"a key file that is longer than its count", "000741143" + padded("C1", 64) + "Y00003abcd",
       "3: more than the 3 bytes that Byte Count counts\n"},
      {"an export without its zero bytes", "001361025" + padded("K1", 64) + "RSA" + padded("C1", 64) + "2",
       "0: should be 5 zero bytes\n"},
      {"an export with other bytes there",
       "001361025" + padded("K1", 64) + "RSA" + padded("C1", 64) + "2" + std::string("\0\0x\0\0", 5),
       "2: should be zero\n"},
      {"a criterion that is none", "000781053" + padded("MD17 EQ 'x", 73) + "'",
       "9: not MDnn OP 'value' of 64 characters\n"},
      {"a record of a block with other fixed text",
       "0001410530000N02477" + metadata_record("MD01") + metadata_record("MD0X"), "1355: should be 'MD01'\n"},
      {"a metadata page with less than its own size", "0001410530000N00004", ""},
  };
  for (const FaultyCase &one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(faults(one.input), one.faults);
  }
  EXPECT_EQ(faults(TraceText().connection().sent(kGetRequest).received(wrong_reply).text()), "5: should be 2001\n");
  EXPECT_EQ(faults(TraceText().connection().sent(kGetRequest).text()), "0: no reply has arrived\n");
}

TEST_F(Decode, WhatNoFieldIsKnownForIsNotShown) {
  // It may be a key.
  for (const std::string &input :
       std::vector<std::string>{"secret key", "12345secret", "0000899990000secret", "0001499990000secret",
                                "00357" + kGetReply.substr(5) + "secret"}) {
    const Outcome outcome = decode(input);
    EXPECT_EQ(outcome.exit_code, 7);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("masked, "), Not(HasSubstr("secret"))));
  }
}

TEST_F(Decode, TextFromOutsideDoesNotSteerTheTerminal) {
  const std::string trace =
      TraceText().connection("\x1b[2J port 1").sent("000441015" + padded("\x1b]0;owned\x07", 40)).text();
  const Outcome outcome = decode(trace);
  EXPECT_EQ(outcome.exit_code, 7);
  EXPECT_EQ((outcome.out + outcome.err).find('\x1b'), std::string::npos);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\\x1b[2J:1"), HasSubstr("\\x1b]0;owned\\x07")));
}

TEST_F(Decode, ADamagedTraceIsSaidSoAndTheRestIsTold) {
  const std::string whole = TraceText().connection().sent(kGetRequest).received(kGetReply).text();
  for (const std::string line :
       {"sent", "sent (x bytes)", "sent (99999999999999999999 bytes)", "received, masked (99999999 bytes)",
        "received (4 bytes)", "connection to nowhere", "connection to a port 1", "connection to h port 1, status x",
        "sending, status ", "what else"}) {
    SCOPED_TRACE(line);
    EXPECT_THAT(faults(TraceText().connection().line(line, "18").text() + whole), HasSubstr("0: line 2 of the trace"));
  }
  // A dump that another program has written into.
  const std::size_t middle = whole.find("    0020 ");
  EXPECT_THAT(faults(whole.substr(0, middle) + "other\n" + whole.substr(middle)), HasSubstr("of the trace is not as"));
}

// ---- Hostile input ----

// How many exchanges and faults there are, by a document that shows no more than that.
std::pair<int, int> counted(const Outcome &outcome) {
  const json document = document_in(outcome);
  return {document.at("exchanges").get<int>(), document.at("faults").get<int>()};
}

TEST_F(Decode, ARecordThatIsCutAtAnyByteIsSaidToBe) {
  const std::string metadata_page = "0001410530000N01241" + metadata_record("MD01");
  const std::pair<std::string, std::string> exchanges[] = {
      {kGetRequest, kGetReply},
      {"000041037", "0001410370000Y00040" + padded("K1", 40) + "0001410370000N00080" + padded("K2", 80)},
      {"000741143" + padded("C1", 64) + "Y00040" + std::string(40, 'p'), "0000811430000"},
      {"001361025" + padded("K1", 64) + "RSA" + padded("C1", 64) + "2" + std::string(5, '\0'),
       "0034010250000" + padded("K1", 64) + "0256RSA20256" + std::string(256, 'w')},
      {"000691153C" + padded("C1", 64), "0007811530000C" + padded("C1", 64) + "00040" + std::string(40, 'c')},
      {"000781053MD01 EQ '" + padded("a", 64) + "'", metadata_page},
  };
  for (const auto &[request, reply] : exchanges) {
    SCOPED_TRACE(request.substr(5, 4));
    EXPECT_EQ(faults(TraceText().connection().sent(request).received(reply).text()), "");
    TraceText cut;
    for (std::size_t size = 1; size < request.size(); ++size) cut.connection().sent(request.substr(0, size));
    for (std::size_t size = 0; size < reply.size(); ++size) {
      cut.connection().sent(request).received(reply.substr(0, size));
    }
    const Outcome outcome = decode(cut.text());
    EXPECT_EQ(outcome.exit_code, 7);
    std::size_t num_exchanges = 0;
    for (std::size_t at = 0; (at = outcome.out.find("exchange ", at)) != std::string::npos; ++num_exchanges) {
      const std::size_t end = std::min(outcome.out.find("\n\n", at), outcome.out.size());
      EXPECT_THAT(outcome.out.substr(at, end - at), HasSubstr("FAULT at ")) << num_exchanges;
      at = end;
    }
    EXPECT_EQ(num_exchanges, request.size() - 1 + reply.size());
  }
}

TEST_F(Decode, NoByteOfARecordCanDoHarm) {
  std::string trace;
  int num_exchanges = 0;
  for (const std::string &record :
       {kGetReply, "0001410370000Y00040" + padded("K1", 40), "0001410530000N01241" + metadata_record("MD01"),
        "0034010250000" + padded("", 332)}) {
    for (std::size_t at = 0; at < std::min<std::size_t>(record.size(), 100); ++at) {
      for (const char byte : {'\0', '9', '-', '\xff'}) {
        std::string changed = record;
        changed[at] = byte;
        trace += TraceText().connection().sent(std::string("00004") + record.substr(5, 4)).received(changed).text();
        ++num_exchanges;
      }
    }
  }
  const Outcome outcome = decode(trace, {"--output", "json", "--limit", "1"});
  EXPECT_EQ(outcome.exit_code, 7);
  EXPECT_EQ(counted(outcome).first, num_exchanges);
}

TEST_F(Decode, ATraceThatIsCutAtAnyPlaceIsTold) {
  const std::string whole = TraceText().connection().sent(kGetRequest).received(kGetReply).text();
  for (std::size_t size = 1; size < whole.size(); size += 67) {
    const Outcome outcome = decode(whole.substr(0, size));
    EXPECT_THAT(outcome.exit_code, AnyOf(0, 7)) << size << outcome.err;
  }
}

}  // namespace
}  // namespace command_test
