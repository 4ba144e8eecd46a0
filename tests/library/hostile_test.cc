// Servers that mean harm: for every call, replies that are wrong in each field of its table. The call ends, its outputs
// hold nothing but what it received, and after a failure what orn/vesk.h says.
#include "tests/library/calls.h"
#include "tests/library/library_test.h"
#include "tests/library/replies.h"

namespace {

using vesk::wire::RowKind;

// What a call did to its caller.
struct Outcome {
  int status = 0;
  std::vector<std::string> outputs = {};
  std::vector<std::string> elements = {};
  std::size_t unread = 0;
};

constexpr char kPattern = '\x5a';

// A call to be answered.
class Victim {
 public:
  Victim(const CallCase &call, const CertificatePaths &paths) : call_(call), paths_(paths) {}

  const ReplyShape &shape() const { return shape_; }
  std::string whole(char filler) const { return whole_reply(shape_, call_.tran_id, filler); }
  bool is_failure(int status) const { return !outputs_.hold_reply(status); }

  // An output as a failure leaves it.
  std::string blank(std::size_t bytes) const { return std::string(bytes, outputs_.zeroed_first ? '\0' : kPattern); }

  // Makes the call with outputs full of the pattern.
  Outcome play(const std::string &reply, char pattern = kPattern) const {
    script::reset();
    connection().replies = reply;
    return run(pattern);
  }

  // Makes the call against a server that sends a page again and again.
  Outcome play_pages(const std::string &page, int count) const {
    script::reset();
    connection().before_read = [&](int) {
      if (connection().replies.empty() && count-- > 0) connection().replies = page;
    };
    return run(kPattern);
  }
  // Makes the call twice, each time with another pattern in the outputs and after another reply that left its bytes
  // wherever replies are kept: a byte of an output that differs and is not the caller's came from there.
  Outcome check(const std::string &reply) const {
    play(whole('S'));
    const Outcome first = play(reply);
    play(whole('T'));
    const Outcome second = play(reply, '\xa5');
    EXPECT_EQ(first.status, second.status);
    EXPECT_EQ(first.elements, second.elements);
    for (std::size_t i = 0; i < first.outputs.size(); ++i) {
      const std::string &a = first.outputs[i], &b = second.outputs[i];
      if (is_failure(first.status)) {
        EXPECT_EQ(a, blank(a.size())) << "output " << i;
        continue;
      }
      for (std::size_t at = 0; at < a.size(); ++at) {
        if (a[at] == b[at]) continue;
        // What the call leaves as it was can only be behind the end of a text.
        EXPECT_EQ(a[at], kPattern) << "output " << i << " at " << at;
        EXPECT_LT(a.find('\0'), at) << "output " << i;
      }
    }
    return first;
  }

  // The text fields but the length digits.
  std::vector<ReplyField> text_fields() const {
    std::vector<ReplyField> fields;
    for (const ReplyField &field : shape_.fields) {
      if (field.offset > 0 && field.kind == RowKind::kText) fields.push_back(field);
    }
    return fields;
  }

 private:
  Outcome run(char pattern) const {
    for (const std::span<char> output : outputs_.buffers) std::ranges::fill(output, pattern);
    list_of_calls().elements.clear();
    Outcome outcome = {.status = call_.call(paths_)};
    for (const std::span<char> output : outputs_.buffers) outcome.outputs.emplace_back(output.data(), output.size());
    outcome.elements = list_of_calls().elements;
    outcome.unread = connection().replies.size();
    EXPECT_EQ(connection().teardowns, 1);
    return outcome;
  }

  const CallCase &call_;
  const CertificatePaths &paths_;
  const ReplyShape &shape_ = reply_shape(call_.function);
  const Outputs outputs_ = outputs_of(call_);
};

class HostileServer : public LibraryTest {
 protected:
  ~HostileServer() override { script::reset(); }

  // Every call in turn, within one test: it is quick, and a process for each would not be.
  template <typename Test>
  void for_each_call(Test test) {
    for (const CallCase &call : all_calls()) {
      SCOPED_TRACE(call.function);
      test(Victim(call, paths_));
    }
  }
};

// What may stand where a number is expected, of any width.
std::vector<std::string> numbers(int right) {
  std::vector<std::string> edges = {"-1",    "-9999", "",   " ", "0",     "00000", "1",
                                    "99999", "16384", "+7", "-", "12x45", "0x1F",  "\xff\xff\xff\xff\xff"};
  for (const int number : {right - 1, right + 1}) edges.push_back(std::to_string(number));
  return edges;
}

TEST_F(HostileServer, AReplyThatIsAsItShouldBeGoesThrough) {
  for_each_call([&](const Victim &victim) {
    const Outcome outcome = victim.check(victim.whole('a'));
    EXPECT_FALSE(victim.is_failure(outcome.status)) << outcome.status;
    EXPECT_EQ(outcome.unread, 0U);
  });
}

TEST_F(HostileServer, MayCutTheReplyAnywhere) {
  for_each_call([&](const Victim &victim) {
    const std::string reply = victim.whole('a');
    for (std::size_t length = 0; length < reply.size(); ++length) {
      SCOPED_TRACE(length);
      const Outcome outcome = victim.play(reply.substr(0, length));
      EXPECT_EQ(outcome.status, script::kClosed);
      for (const std::string &output : outcome.outputs) EXPECT_EQ(output, victim.blank(output.size()));
    }
  });
}

TEST_F(HostileServer, MayDeclareAnyLength) {
  for_each_call([&](const Victim &victim) {
    const std::string reply = victim.whole('a');
    for (const std::string &length : numbers(static_cast<int>(victim.shape().bytes()) - 5)) {
      SCOPED_TRACE(length);
      std::string distorted = reply;
      put_field(distorted, {0, 5, RowKind::kText}, length);
      victim.check(distorted);
      victim.check(distorted + std::string(20000, 'a'));
    }
  });
}

TEST_F(HostileServer, MayPutAnyNumberIntoAnyField) {
  for_each_call([&](const Victim &victim) {
    const std::string reply = victim.whole('a');
    const std::string more(100'000, 'a');  // as much as five digits count
    for (const ReplyField &field : victim.text_fields()) {
      const int right = victim.shape().count && victim.shape().count->offset == field.offset
                            ? static_cast<int>(2 * victim.shape().entry_bytes) + victim.shape().count_overhead
                            : 0;
      for (const std::string &number : numbers(right)) {
        SCOPED_TRACE(std::to_string(field.offset) + " " + number);
        std::string distorted = reply;
        put_field(distorted, field, number);
        victim.check(distorted);
        if (right > 0) victim.check(distorted + more);
      }
    }
  });
}

TEST_F(HostileServer, MayPutAnyBytesIntoAnyField) {
  for_each_call([&](const Victim &victim) {
    const std::string reply = victim.whole('a');
    for (const ReplyField &field : victim.text_fields()) {
      for (const char byte : {'\0', '\x01', '\n', '\x1b', '\x7f', '\xff', '%', 'Y'}) {
        SCOPED_TRACE(std::to_string(field.offset) + " " + std::to_string(byte));
        std::string distorted = reply;
        distorted.replace(field.offset, field.width, std::string(field.width, byte));
        victim.check(distorted);
        // And a NUL in the middle of text.
        distorted = reply;
        distorted[field.offset + field.width / 2] = byte;
        victim.check(distorted);
      }
    }
  });
}

TEST_F(HostileServer, MayPutAnyBytesBehindAPage) {
  for_each_call([&](const Victim &victim) {
    for (const char byte : {'\0', '\x01', '\n', '\x1b', '\x7f', '\xff', '%'}) {
      std::string reply = victim.whole('a');
      std::fill(reply.begin() + static_cast<std::ptrdiff_t>(victim.shape().bytes()), reply.end(), byte);
      EXPECT_FALSE(victim.is_failure(victim.check(reply).status)) << static_cast<int>(byte);
    }
  });
}

TEST_F(HostileServer, MayAnswerAnotherTransaction) {
  for_each_call([&](const Victim &victim) {
    for (const CallCase &other : all_calls()) {
      SCOPED_TRACE(other.function);
      victim.check(whole_reply(reply_shape(other.function), other.tran_id, 'a'));
    }
  });
}

TEST_F(HostileServer, MaySendMoreThanItDeclared) {
  for_each_call([&](const Victim &victim) {
    const Outcome right = victim.check(victim.whole('a'));
    const std::string more = victim.whole('b') + "and more";
    const Outcome outcome = victim.check(victim.whole('a') + more);
    EXPECT_EQ(outcome.status, right.status);
    EXPECT_EQ(outcome.elements, right.elements);
    EXPECT_EQ(outcome.outputs, right.outputs);
    EXPECT_EQ(outcome.unread, more.size());
  });
}

// What the page before it held is not taken for the page's own.
TEST_F(HostileServer, MayCutAPageBehindAWholeOne) {
  for_each_call([&](const Victim &victim) {
    if (!victim.shape().more_flag) return;
    std::string page = victim.whole('S');
    put_field(page, *victim.shape().more_flag, "Y");
    const Outcome whole = victim.check(victim.whole('S'));
    const Outcome cut = victim.check(page + framed("99990000"));
    EXPECT_EQ(cut.elements, whole.elements);
    EXPECT_EQ(cut.unread, 0U);
    for (const std::string &output : cut.outputs) EXPECT_EQ(output.find('S'), std::string::npos) << output;
  });
}

// The call goes on for as long as pages come, and ends with the connection.
TEST_F(HostileServer, MaySendPagesWithoutEnd) {
  for_each_call([&](const Victim &victim) {
    if (!victim.shape().more_flag) return;
    constexpr int kNumPages = 1000;
    std::string page = victim.whole('a');
    put_field(page, *victim.shape().more_flag, "Y");
    const Outcome outcome = victim.play_pages(page, kNumPages);
    EXPECT_EQ(outcome.status, script::kClosed);
    EXPECT_EQ(outcome.unread, 0U);
    EXPECT_GE(connection().reads.size(), 2U * kNumPages);
  });
}

// A transaction without its line in calls.cc or replies.cc would go untested.
TEST(HostileServers, AreOfEveryTransaction) {
  for (const vesk::wire::Transaction &transaction : vesk::wire::kTransactions) {
    EXPECT_EQ(std::ranges::count(all_calls(), transaction.tran_id, &CallCase::tran_id), 1) << transaction.function;
    EXPECT_GE(reply_shape(transaction.function).bytes(), 13U);
  }
}

}  // namespace
