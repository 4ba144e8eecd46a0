// The appliance: system status and sensor data, validation of the key database.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "tests/library/library_test.h"
#include "tests/library/temporary_file.h"

namespace {

using script::Read;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// Calls and returns what the call wrote to standard output.
template <typename Call>
std::string printed_by(Call call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

std::string five_digits(std::size_t number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%05zu", number);
  return digits;
}

// The lowest descriptor that is free: a call that leaves one open moves it.
int free_descriptor() {
  const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(descriptor);
  return descriptor;
}

// ---- System status ----

// The seven fields in their order on the wire.
struct Health {
  std::string app = "0000", disk = "00000002", core = "00000003", voltage = "00000004", battery = "05", fan = "0006",
              temperature = "00000037";

  std::string text() const { return app + disk + core + voltage + battery + fan + temperature; }
};

std::string status_page(const std::string &data, char more, const Health &health = {},
                        const char *return_code = "0000") {
  return framed("1137" + std::string(return_code) + more + health.text() + five_digits(data.size())) + data;
}

class SystemStatusTest : public LibraryTest {
 protected:
  SystemStatusTest() { blank_outputs(); }

  void blank_outputs() { std::memset(outputs_, 'x', sizeof outputs_); }
  int get(const char *path = "") {
    int status = 0;
    printed_ = printed_by([&] {
      status =
          qGetSystemStatus(&paths_, host_, port_, app_, core_, disk_, voltage_, battery_, fan_, temperature_, path);
    });
    return status;
  }
  void expect_untouched(const std::string &what) const {
    EXPECT_EQ(std::string_view(outputs_, sizeof outputs_), std::string(sizeof outputs_, 'x')) << what;
  }

  char outputs_[5 + 9 + 9 + 9 + 3 + 5 + 9 + 1];  // one behind another, and a byte behind the last
  char *const app_ = outputs_, *const core_ = app_ + 5, *const disk_ = core_ + 9, *const voltage_ = disk_ + 9,
              *const battery_ = voltage_ + 9, *const fan_ = battery_ + 3, *const temperature_ = fan_ + 5;
  std::string printed_;
  TemporaryFile file_;
};

TEST_F(SystemStatusTest, FillsTheSevenOutputs) {
  connection().replies = status_page("", 'N');
  EXPECT_EQ(get(), 0);
  EXPECT_STREQ(app_, "0000");
  EXPECT_STREQ(core_, "00000003");
  EXPECT_STREQ(disk_, "00000002");
  EXPECT_STREQ(voltage_, "00000004");
  EXPECT_STREQ(battery_, "05");
  EXPECT_STREQ(fan_, "0006");
  EXPECT_STREQ(temperature_, "00000037");
  EXPECT_EQ(outputs_[sizeof outputs_ - 1], 'x') << "written behind the last output";
}

TEST_F(SystemStatusTest, TracesThePageInItsOrderAndPrintsTheEnd) {
  connection().replies = status_page("sensor data", 'N');
  EXPECT_EQ(get(), 0);
  EXPECT_THAT(connection().writes, ElementsAre("000041137"));
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{56, 60}, Read{11, 60}));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: GetSystemStatus", "iBytesRead <56>", "iBytesRead <0>", "Tran Len <00056>", "Tran Id <1137>",
                  "Return Code <0000>", "More Flag <N>", "App Status <0000>", "Disk Status <00000002>",
                  "Core Status <00000003>", "Voltage Status <00000004>", "Battery Status <05>", "Fan Status <0006>",
                  "Temperature <00000037>", "List Segment Length <00011>", "iBytesRead <11>"));
  EXPECT_EQ(connection().dumps.back().label, "Response buffer");
  EXPECT_EQ(connection().dumps.back().bytes, "sensor data");
  EXPECT_EQ(printed_, "**end\n");
}

TEST_F(SystemStatusTest, FindsAFaultInEveryOutput) {
  std::string Health::*const fields[] = {&Health::app,     &Health::disk, &Health::core,       &Health::voltage,
                                         &Health::battery, &Health::fan,  &Health::temperature};
  for (const auto field : fields) {
    for (const char digit : {'1', '8'}) {
      for (const std::size_t at : {std::size_t{0}, Health().*field == "05" ? std::size_t{1} : std::size_t{3}}) {
        script::reset();
        blank_outputs();
        Health health;
        (health.*field)[at] = digit;
        connection().replies = status_page("", 'N', health);
        EXPECT_EQ(get(), ERR_HARDWARE_FAULT) << health.text();
        EXPECT_EQ(std::string(app_) + disk_ + core_ + voltage_ + battery_ + fan_ + temperature_, health.text());
        EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), IsEmpty()) << "a fault is no failure of the call";
      }
    }
  }
}

TEST_F(SystemStatusTest, FindsNoFaultInOtherCharacters) {
  connection().replies = status_page("", 'N', {"0234", "5679!!  ", "--------", "        ", "AB", "lI|O", "23.4567C"});
  EXPECT_EQ(get(), 0);
}

TEST_F(SystemStatusTest, ReadsAnOutputUpToANul) {
  connection().replies = status_page("", 'N',
                                     {.app = std::string("0\0"
                                                         "18",
                                                         4)});
  EXPECT_EQ(get(), 0);
  EXPECT_STREQ(app_, "0");
}

TEST_F(SystemStatusTest, IsEmptyWhereTheReplyIsCutShort) {
  connection().replies = framed(
      "11370000N"
      "0000"
      "000");
  EXPECT_EQ(get(), 0);
  EXPECT_STREQ(app_, "0000");
  EXPECT_STREQ(disk_, "000");
  EXPECT_STREQ(core_, "");
  EXPECT_STREQ(temperature_, "");
}

TEST_F(SystemStatusTest, WritesTheSensorDataOfAllPagesUnchanged) {
  const std::string first = std::string("a\0b\n%s", 6), second(16000, '\xff');
  connection().replies = status_page(first, 'Y') + status_page("", 'Y') + status_page(second, 'N');
  EXPECT_EQ(get(file_.path().c_str()), 0);
  EXPECT_EQ(file_.contents(), first + second);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 60}, Read{56, 60}, Read{6, 60}, Read{5, 60}, Read{56, 60},
                                              Read{5, 60}, Read{56, 60}, Read{16000, 60}));
  EXPECT_EQ(printed_, "**end\n") << "once, at the end";
}

TEST_F(SystemStatusTest, TruncatesAFileThatExists) {
  std::ofstream(file_.path()) << "what was there before";
  connection().replies = status_page("new", 'N');
  EXPECT_EQ(get(file_.path().c_str()), 0);
  EXPECT_EQ(file_.contents(), "new");
}

TEST_F(SystemStatusTest, ReadsSensorDataWithoutAFileToo) {
  for (const char *path : {"", static_cast<const char *>(nullptr)}) {
    script::reset();
    connection().replies = status_page("sensor data", 'N');
    EXPECT_EQ(get(path), 0);
    EXPECT_STREQ(app_, "0000");
  }
}

TEST_F(SystemStatusTest, ReadsSensorDataOfAnySizeInPieces) {
  for (const std::size_t size : {16328u, 16329u, 16389u, 16390u, 99999u}) {
    script::reset();
    std::string data;
    for (std::size_t i = 0; i < size; ++i) data += static_cast<char>(i * 7 + i / 251);
    connection().replies = status_page(data, 'Y') + status_page("end", 'N');
    EXPECT_EQ(get(file_.path().c_str()), 0);
    EXPECT_EQ(file_.contents(), data + "end") << size;
    const Read third = connection().reads.at(2);
    EXPECT_EQ(third, (Read{size <= 16328 ? static_cast<int>(size) : std::min(static_cast<int>(size), 16389), 60}))
        << "what fits behind the page is one read";
  }
}

TEST_F(SystemStatusTest, MakesNoReadForASegmentOfZeroOrLess) {
  for (const char *length : {"00000", "-0011", "     "}) {
    script::reset();
    connection().replies = framed("11370000N" + Health().text() + length);
    EXPECT_EQ(get(file_.path().c_str()), 0);
    EXPECT_EQ(connection().reads.size(), 2u);
    EXPECT_EQ(file_.contents(), "");
  }
}

TEST_F(SystemStatusTest, EndsOnAnyMoreFlagButY) {
  for (const char more : {'N', 'y', ' ', '\0'}) {
    script::reset();
    connection().replies = status_page("data", more);
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(printed_, "**end\n");
  }
}

TEST_F(SystemStatusTest, DeliversTheLastPage) {
  connection().replies = status_page("a", 'Y', {.app = "1111", .fan = "8888"}, "0031") + status_page("b", 'N');
  EXPECT_EQ(get(), 0);
  EXPECT_STREQ(app_, "0000");
  EXPECT_STREQ(fan_, "0006");
}

TEST_F(SystemStatusTest, ShowsNothingOfThePageBeforeWhenOneIsCutShort) {
  connection().replies = status_page("a", 'Y') + framed("11370000");
  EXPECT_EQ(get(), 0);
  EXPECT_STREQ(app_, "");
  EXPECT_STREQ(temperature_, "");
}

TEST_F(SystemStatusTest, ReturnsTheStatusOfAFileThatCannotBeOpenedAfterTheRequest) {
  for (const std::string &path : {file_.folder() + "/missing/file", file_.folder(), "/" + std::string(5000, 'p')}) {
    script::reset();
    EXPECT_EQ(get(path.c_str()), ERR_SENSOR_FILE);
    EXPECT_THAT(connection().writes, ElementsAre("000041137"));
    EXPECT_THAT(connection().reads, IsEmpty());
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
                ElementsAre("F: GetSystemStatus", "Failed to open sensor data file"));
    EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre("GetSystemStatus Failed! ret = <20008>"));
    EXPECT_EQ(printed_, "");
    expect_untouched(path);
  }
}

TEST_F(SystemStatusTest, OpensNoFileBeforeTheRequestWasSent) {
  connection().failing_writes = {{0, 30061}};
  EXPECT_EQ(get(file_.path().c_str()), 30061);
  EXPECT_FALSE(file_.exists());
}

TEST_F(SystemStatusTest, UsesAtMost2048CharactersOfAPath) {
  // The path names the same file through many slashes, then through too many.
  const std::string tail = file_.path().substr(1);
  connection().replies = status_page("data", 'N');
  EXPECT_EQ(get((std::string(2048 - tail.size(), '/') + tail).c_str()), 0);
  EXPECT_EQ(file_.contents(), "data");
  connection().replies = status_page("data", 'N');
  EXPECT_EQ(get((std::string(2049 - tail.size(), '/') + tail).c_str()), 0);
  EXPECT_TRUE(std::filesystem::exists(file_.folder() + "/fil")) << "the last character is cut";
}

TEST_F(SystemStatusTest, DeliversTheStatusOnAFullDisk) {
  // The first is met when writing, the second only when the file is closed.
  for (const std::size_t size : {99999u, 10u}) {
    script::reset();
    blank_outputs();
    connection().replies = status_page(std::string(size, 'd'), 'Y') + status_page(std::string(size, 'd'), 'N');
    EXPECT_EQ(get("/dev/full"), 0) << size;
    EXPECT_STREQ(app_, "0000");
    const auto traces = connection().traces_of("orn/vesk/skeys");
    EXPECT_EQ(std::ranges::count(traces, "Failed to write sensor data file"), 1) << size;
  }
}

TEST_F(SystemStatusTest, LeavesOutputsUntouchedAndNoFileOpenAfterEveryFailure) {
  const std::string whole = status_page("first", 'Y') + status_page("second", 'N');
  const int before = free_descriptor();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    script::reset();
    connection().replies = whole.substr(0, length);
    EXPECT_EQ(get(file_.path().c_str()), script::kClosed) << length;
    EXPECT_EQ(file_.contents(), length < 66 ? "" : "first") << length;
    EXPECT_EQ(printed_, "") << length;
    expect_untouched(std::to_string(length));
  }
  EXPECT_EQ(free_descriptor(), before) << "a descriptor was left open";

  connection().replies = status_page("first", 'Y') + "16385";
  EXPECT_EQ(get(), 9169);
  expect_untouched("too long");
  connection().replies.clear();
  connection().replies = status_page("", 'N', {}, "0031");
  EXPECT_EQ(get(), 31);
  EXPECT_EQ(printed_, "**end\n");
  expect_untouched("the server refuses");
  connection().setup_status = 30006;
  EXPECT_EQ(get(), 30006);
  expect_untouched("no connection");
}

TEST_F(SystemStatusTest, TransactionFunctionFillsTheRecordAndKeepsThePage) {
  const auto session = open_session();
  std::strcpy(session->request.caTranId, "1137");
  std::strcpy(session->caFilePath, file_.path().c_str());
  connection().replies = status_page("data", 'N', {}, "0031");
  SystemStatusRecord record;
  std::memset(&record, 'x', sizeof record);
  printed_by([&] { GetSystemStatus(session.get(), &record); });
  EXPECT_EQ(session->iStatus, 31);
  const std::string expected = std::string("1137") + zeros(7) + "0031" + '\0' + "0000" + '\0' + "00000002" + '\0' +
                               "00000003" + '\0' + "00000004" + '\0' + "05" + '\0' + "0006" + '\0' + "00000037" + '\0';
  EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(&record), sizeof record), expected);
  EXPECT_STREQ(session->caMoreFlag, "N");
  EXPECT_STREQ(session->caListCount, "00004");
  EXPECT_EQ(file_.contents(), "data");
}

// ---- Validation of the key database ----

std::string entry(const std::string &key_name, const std::string &detail = "detail") {
  return padded(key_name, 40) + padded(detail, 24);
}

std::string validation_page(const std::string &entries, char more, const char *return_code = "0000") {
  return framed("1041" + std::string(return_code) + more + five_digits(entries.size())) + entries;
}

class ValidationTest : public LibraryTest {
 protected:
  int validate() {
    int status = 0;
    printed_ = printed_by([&] { status = qValidateKeyDatabase(&paths_, host_, port_); });
    return status;
  }
  std::string printed_;
};

TEST_F(ValidationTest, OfASoundDatabaseMakesNoFurtherRead) {
  for (const char more : {'N', 'Y', ' '}) {
    script::reset();
    connection().replies = validation_page("", more);
    EXPECT_EQ(validate(), 0);
    EXPECT_THAT(connection().writes, ElementsAre("000041041"));
    EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60})) << "whatever the More Flag says";
    EXPECT_THAT(
        connection().traces_of("orn/vesk/skeys"),
        ElementsAre("F: ValidateDB", "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1041>",
                    "Return Code <0000>", std::string("More Flag <") + more + ">", "List Segment Length <00000>"));
    EXPECT_EQ(printed_, std::string("Tran Len <00014>\nTran Id <1041>\nReturn Code <0000>\nMore Flag <") + more +
                            ">\nList Segment Length <00000>\n");
  }
}

TEST_F(ValidationTest, TracesEveryEntryAndPrintsTheHeaders) {
  connection().replies = validation_page(entry("K1", "I1") + entry("K2"), 'Y') + validation_page(entry("K3"), 'N');
  EXPECT_EQ(validate(), ERR_DATABASE_INVALID);
  EXPECT_THAT(connection().reads,
              ElementsAre(Read{5, 300}, Read{14, 60}, Read{128, 60}, Read{5, 300}, Read{14, 60}, Read{64, 60}));
  EXPECT_THAT(
      connection().traces_of("orn/vesk/skeys"),
      ElementsAre("F: ValidateDB", "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1041>",
                  "Return Code <0000>", "More Flag <Y>", "List Segment Length <00128>", "iBytesRead <128>",
                  "iListNumber <2>", "idx <0>", padded("K1", 40), padded("I1", 24), "idx <1>", padded("K2", 40),
                  padded("detail", 24), "iBytesRead <14>", "iBytesRead <0>", "Tran Len <00014>", "Tran Id <1041>",
                  "Return Code <0000>", "More Flag <N>", "List Segment Length <00064>", "iBytesRead <64>",
                  "iListNumber <1>", "idx <0>", padded("K3", 40), padded("detail", 24), "**end"));
  EXPECT_EQ(connection().dumps.back().label, "Response buffer");
  EXPECT_EQ(connection().dumps.back().bytes, entry("K3"));
  EXPECT_EQ(printed_,
            "Tran Len <00014>\nTran Id <1041>\nReturn Code <0000>\nMore Flag <Y>\nList Segment Length <00128>\n"
            "Tran Len <00014>\nTran Id <1041>\nReturn Code <0000>\nMore Flag <N>\nList Segment Length <00064>\n");
}

TEST_F(ValidationTest, TracesFullFieldsApart) {
  connection().replies = validation_page(std::string(40, '%') + std::string(24, 's'), 'N');
  EXPECT_EQ(validate(), ERR_DATABASE_INVALID);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              testing::IsSupersetOf({std::string(40, '%'), std::string(24, 's')}));
}

TEST_F(ValidationTest, IsJudgedByTheLastPage) {
  connection().replies = validation_page(entry("K1"), 'Y') + validation_page("", 'N');
  EXPECT_EQ(validate(), 0);
  connection().replies = validation_page(entry("K1"), 'Y') + validation_page("x", 'N');
  EXPECT_EQ(validate(), ERR_DATABASE_INVALID) << "a byte that is no entry counts as well";
}

TEST_F(ValidationTest, TakesANegativeLengthForZero) {
  connection().replies = framed("10410000Y-0064");
  EXPECT_EQ(validate(), 0);
  EXPECT_THAT(connection().reads, ElementsAre(Read{5, 300}, Read{14, 60}));
}

TEST_F(ValidationTest, EndsOnAnyMoreFlagButY) {
  for (const char more : {'N', 'y', ' ', '\0'}) {
    script::reset();
    connection().replies = validation_page(entry("K1"), more);
    EXPECT_EQ(validate(), ERR_DATABASE_INVALID);
    EXPECT_EQ(connection().traces_of("orn/vesk/skeys").back(), "**end");
  }
}

TEST_F(ValidationTest, DropsWhatIsLeftOfASegment) {
  for (const std::size_t left : {1u, 40u, 63u}) {
    script::reset();
    connection().replies =
        validation_page(entry("K1") + std::string(left, 'r'), 'Y') + validation_page(std::string(left, 'r'), 'N');
    EXPECT_EQ(validate(), ERR_DATABASE_INVALID);
    const auto traces = connection().traces_of("orn/vesk/skeys");
    EXPECT_THAT(traces, testing::IsSupersetOf({"iListNumber <1>", "iListNumber <0>"}));
    EXPECT_THAT(traces, Not(Contains("idx <1>")));
    EXPECT_THAT(traces, Not(Contains(StartsWith("r"))));
  }
}

TEST_F(ValidationTest, ReadsASegmentOfAnySizeInPieces) {
  std::string entries;
  for (int i = 0; i < 1562; ++i) entries += entry("key-" + std::to_string(i));
  entries += std::string(31, 'r');
  ASSERT_EQ(entries.size(), 99999u);
  connection().replies = validation_page(entries, 'Y') + validation_page(entry("last"), 'N');
  EXPECT_EQ(validate(), ERR_DATABASE_INVALID);
  const auto traces = connection().traces_of("orn/vesk/skeys");
  EXPECT_EQ(std::ranges::count(traces, "iListNumber <1562>"), 1);
  for (int i = 0; i < 1562; ++i) {
    const auto index = std::ranges::find(traces, "idx <" + std::to_string(i) + ">");
    ASSERT_NE(index, traces.end()) << i;
    ASSERT_EQ(index[1], padded("key-" + std::to_string(i), 40));
  }
  EXPECT_THAT(traces, Contains(padded("last", 40)));
}

TEST_F(ValidationTest, ReturnsTheReturnCodeOfTheLastPage) {
  connection().replies = validation_page(entry("K1"), 'Y', "0009") + validation_page(entry("K2"), 'N', "0008");
  EXPECT_EQ(validate(), 8);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), ElementsAre("ValidateDB Failed! ret = <8>"));
  connection().replies = validation_page(entry("K1"), 'Y', "0009") + validation_page("", 'N');
  EXPECT_EQ(validate(), 0);
}

TEST_F(ValidationTest, ReturnsTheCodeOfALineThatIsCut) {
  const std::string whole = validation_page(entry("K1"), 'Y') + validation_page(entry("K2"), 'N');
  for (std::size_t length = 0; length < whole.size(); ++length) {
    script::reset();
    connection().replies = whole.substr(0, length);
    EXPECT_EQ(validate(), script::kClosed) << length;
    EXPECT_THAT(connection().traces_of("orn/vesk/skeys"), Not(Contains("**end"))) << length;
  }
}

TEST_F(ValidationTest, RefusesALaterPageAbove16384) {
  connection().replies = validation_page(entry("K1"), 'Y') + "16385";
  EXPECT_EQ(validate(), 9169);
  EXPECT_THAT(connection().traces_of("orn/vesk/skeys"),
              Contains("ValidateDB ERR <9169> Transaction size <16385> exceeds maximum <16384>"));
}

TEST_F(ValidationTest, ShowsNothingOfThePageBeforeWhenOneIsCutShort) {
  connection().replies = validation_page(entry("K1"), 'Y') + framed("10410000");
  EXPECT_EQ(validate(), 0);
}

}  // namespace
