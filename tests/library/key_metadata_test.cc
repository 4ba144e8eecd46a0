// The sixteen metadata fields of a key.
#include <sys/mman.h>

#include "tests/library/library_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Fields = std::array<const char *, 16>;

class SetMetadataTest : public LibraryTest {
 protected:
  int set(const Fields &f) {
    return qSetMetadata(&paths_, host_, port_, "K1", "", f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9],
                        f[10], f[11], f[12], f[13], f[14], f[15]);
  }
  static Fields fields() {
    Fields f;
    f.fill("text");
    return f;
  }
  static std::string sent(int k) { return connection().writes.at(0).substr(78 + 70 * (k - 1), 64); }
};

TEST_F(SetMetadataTest, SendsEveryFieldAt64Characters) {
  Fields f = fields();
  const std::string v63(63, 'c'), v64(64, 'd'), v65 = std::string(64, 'e') + "X";
  f[0] = "";
  f[1] = "abc";
  f[13] = v63.c_str();
  f[14] = v64.c_str();
  f[15] = v65.c_str();
  connection().replies = framed("10390000" + padded("K1", 40) + padded("I1", 24));
  EXPECT_EQ(set(f), 0);
  ASSERT_EQ(connection().writes[0].size(), 1193u);
  EXPECT_EQ(connection().writes[0].substr(0, 78), "011881039" + padded("K1", 40) + blanks(24) + "MD01'");
  EXPECT_EQ(sent(1), blanks(64));
  EXPECT_EQ(sent(2), padded("abc", 64));
  EXPECT_EQ(sent(14), v63 + " ");
  EXPECT_EQ(sent(15), v64);
  EXPECT_EQ(sent(16), std::string(64, 'e'));
  EXPECT_EQ(connection().writes[0].substr(1122, 6), "'MD16'");
  EXPECT_EQ(connection().writes[0].back(), '\'');
}

TEST_F(SetMetadataTest, CutsNameAndInstanceAndTakesNullForEmptyOnes) {
  const char *const t = "text";
  const std::string name(41, 'n'), instance(25, 'i');
  const auto set_of = [&](const char *key_name, const char *key_instance) {
    connection().replies = framed("10390000");
    EXPECT_EQ(
        qSetMetadata(&paths_, host_, port_, key_name, key_instance, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t), 0);
    return connection().writes.back();
  };
  const std::string cut = set_of(name.c_str(), instance.c_str());
  EXPECT_EQ(cut.substr(0, 78), "011881039" + name.substr(0, 40) + instance.substr(0, 24) + "MD01'");
  EXPECT_EQ(cut.size(), 1193u);
  EXPECT_EQ(set_of(nullptr, nullptr).substr(0, 78), "011881039" + blanks(64) + "MD01'");
}

TEST_F(SetMetadataTest, TracesTheFieldsAndTheReply) {
  connection().replies = framed("10390000" + padded("K1", 40) + padded("I1", 24));
  EXPECT_EQ(set(fields()), 0);
  std::string expected = "Metadata:\n";
  for (int k = 1; k <= 16; ++k) expected += "[" + padded("text", 64) + "]\n";
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre(expected));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: SetMetadata", "iBytesRead <72>", "iBytesRead <0>", "Tran Len <00072>", "Tran Id <1039>",
                  "Return Code <0000>", "Key Name <" + padded("K1", 40) + ">", "Instance <" + padded("I1", 24) + ">"));
  ASSERT_GE(connection().events.size(), 5u);
  EXPECT_THAT(std::vector(connection().events.begin(), connection().events.begin() + 5),
              ElementsAre("setup", "trace " + expected, "trace F: SetMetadata", "dump caReqBuf", "write"));
}

TEST_F(SetMetadataTest, RefusesANullFieldButTheThirdBeforeAnythingElse) {
  for (int k = 1; k <= 16; ++k) {
    script::reset();
    Fields f = fields();
    f[k - 1] = nullptr;
    connection().replies = framed("10390000");
    EXPECT_EQ(set(f), k == 3 ? 0 : ERR_METADATA_ARGUMENT) << k;
    if (k == 3) {
      EXPECT_EQ(sent(3), blanks(64));
    } else {
      EXPECT_THAT(connection().events, IsEmpty()) << k;
    }
    connection().replies.clear();
  }
}

TEST_F(SetMetadataTest, RefusesAddressesThatShareNoBit) {
  // Two pages at addresses without a common bit, the offset into each being 0.
  const auto page_at = [](std::uintptr_t address) {
    return mmap(reinterpret_cast<void *>(address), 4096, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  };
  void *const low = page_at(0x10000000), *const high = page_at(0x20000000);
  ASSERT_EQ(low, reinterpret_cast<void *>(0x10000000));
  ASSERT_EQ(high, reinterpret_cast<void *>(0x20000000));
  Fields f;
  f.fill(static_cast<const char *>(low));
  f[7] = static_cast<const char *>(high);
  EXPECT_EQ(set(f), ERR_METADATA_ARGUMENT);
  EXPECT_THAT(connection().events, IsEmpty());

  // The third is not among them; all the others at one address share its bit.
  f.fill(static_cast<const char *>(low));
  f[2] = static_cast<const char *>(high);
  connection().replies = framed("10390000");
  EXPECT_EQ(set(f), 0);
  munmap(low, 4096);
  munmap(high, 4096);
}

TEST_F(SetMetadataTest, TransactionFunctionRefusesAFieldOfAnotherLength) {
  for (int k = 1; k <= 16; ++k) {
    for (const std::size_t length : {0u, 10u, 63u, 65u}) {  // the last has no terminator
      script::reset();
      const auto session = open_session();
      for (auto &field : session->request.caMetadata) std::strcpy(field, padded("text", 64).c_str());
      auto &wrong = session->request.caMetadata[k - 1];
      std::memset(wrong, 0, sizeof wrong);
      std::memset(wrong, 'x', length);
      if (k < 16) session->request.caMetadata[15][0] = '\0';  // the first failure counts
      testing::internal::CaptureStdout();
      SetMetadata(session.get());
      const std::string printed = testing::internal::GetCapturedStdout();
      const std::string message = "SetMetadata ERR <" + std::to_string(10000 - k) + "> " + metadata_label(k) +
                                  " size <" + std::to_string(length) + "> should be <64>";
      EXPECT_EQ(session->iStatus, 10000 - k);
      EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), ElementsAre("F: SetMetadata", message));
      EXPECT_THAT(connection().writes, IsEmpty());
      EXPECT_EQ(printed, k == 1 ? message + "\n" : "");
    }
  }
}

TEST_F(SetMetadataTest, TransactionFunctionSendsItsFullLengthWhateverTheNames) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1039");
  std::strcpy(session->request.caKeyName, "K1");
  for (auto &field : session->request.caMetadata) std::strcpy(field, padded("text", 64).c_str());
  connection().replies = framed("10390000");
  SetMetadata(session.get());
  EXPECT_EQ(session->iStatus, 0);
  ASSERT_EQ(connection().writes.size(), 1u);
  // What the two left short, zeros make up for at the end.
  EXPECT_EQ(connection().writes[0].substr(0, 16), "011881039K1MD01'");
  ASSERT_EQ(connection().writes[0].size(), 1193u);
  EXPECT_EQ(connection().writes[0].substr(1130), "'" + zeros(62));
}

}  // namespace
