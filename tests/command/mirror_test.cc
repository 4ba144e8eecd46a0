// Mirrors, as an administrator sets them up and watches them.
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

class Mirrors : public ServedCommandTest {
 protected:
  // At the other server, which shares the authority of the first.
  Outcome at_mirror(std::vector<std::string> arguments) const {
    Invocation made = invocation(std::move(arguments));
    made.environment["VESK_PORT"] = mirror_.port();
    made.environment["VESK_CERTIFICATES"] = server_files_.path("m");
    return vesk(made);
  }
  using CommandTest::vesk;

  // Whether the command ends with that code within twenty seconds.
  bool ends_with(int exit_code, const std::vector<std::string> &arguments) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < end) {
      if (vesk(arguments).exit_code == exit_code) return true;
    }
    return false;
  }
  json document(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--output", "json"});
    return document_in(vesk(arguments));
  }
  void set_mirror() const {
    ASSERT_THAT(vesk({"mirror", "set", "west", "127.0.0.1", mirror_.port()}),
                Ends(0, StrEq("mirror west is at 127.0.0.1 port " + mirror_.port() + "\n"), IsEmpty()));
  }
  bool mirror_holds_the_same_keys() const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < end) {
      if (document({"mirror", "status", "west"}).at("data") == "the same keys") return true;
    }
    return false;
  }

  RunningServer mirror_{server_files_.path("m"), {"--authority-from", server_files_.path("d")}};
};

TEST_F(Mirrors, AddressesAreSetShownListedAndRemoved) {
  set_mirror();
  EXPECT_THAT(vesk({"mirror", "get", "west"}),
              Ends(0, StrEq("mirror  west\nhost    127.0.0.1\nport    " + mirror_.port() + "\n"), IsEmpty()));
  EXPECT_THAT(vesk({"mirror", "list"}), Ends(0, StrEq("west\n"), IsEmpty()));
  EXPECT_EQ(document({"mirror", "list"}), json({{"mirrors", {"west"}}, {"count", 1}, {"complete", true}}));
  EXPECT_THAT(vesk({"mirror", "remove", "west"}), Ends(2, IsEmpty(), HasSubstr("add --yes if you are sure")));
  EXPECT_THAT(vesk({"mirror", "remove", "west", "--yes"}), Ends(0, StrEq("removed mirror west\n"), IsEmpty()));
  EXPECT_THAT(vesk({"mirror", "list"}), Ends(0, IsEmpty(), IsEmpty()));
}

TEST_F(Mirrors, AMirrorThatIsNotThereIsNotFound) {
  for (const std::vector<std::string> &command : {std::vector<std::string>{"get", "west"},
                                                  {"remove", "west", "--yes"},
                                                  {"status", "west"},
                                                  {"queue", "west"},
                                                  {"sync", "west", "--all"}}) {
    std::vector<std::string> arguments = {"mirror"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    EXPECT_THAT(vesk(arguments), Ends(4, IsEmpty(), HasSubstr("(return code 0603 RC_MIRROR_UNKNOWN from ")))
        << command.front();
  }
}

TEST_F(Mirrors, WhatTheProtocolWouldCutIsRefused) {
  const std::vector<std::vector<std::string>> wrong = {
      {"mirror", "set", std::string(41, 'n'), "h", "1"},
      {"mirror", "set", "n", std::string(257, 'h'), "1"},
      {"mirror", "set", "n", "h", "65536"},
      {"mirror", "set", "n", "h", "0"},
      {"mirror", "set", "", "h", "1"},
      {"mirror", "sync", "n"},
      {"mirror", "sync", "n", "--all", "--only", "K"},
  };
  for (const std::vector<std::string> &arguments : wrong)
    EXPECT_THAT(vesk(arguments), Ends(2, IsEmpty(), StartsWith("vesk: mirror "))) << arguments.back();
}

TEST_F(Mirrors, KeysReachTheMirrorAndItsStatusTellsSo) {
  set_mirror();
  ASSERT_EQ(vesk({"key", "create", "K1", "--mirror"}).exit_code, 0);
  ASSERT_TRUE(mirror_holds_the_same_keys());
  EXPECT_EQ(at_mirror({"key", "get", "K1"}).exit_code, 0);
  EXPECT_THAT(vesk({"mirror", "status", "west"}), Ends(0,
                                                       StrEq("mirror           west\n"
                                                             "state            up\n"
                                                             "data             the same keys\n"
                                                             "faults           0\n"
                                                             "changes waiting  0\n"),
                                                       IsEmpty()));
  EXPECT_EQ(document({"mirror", "queue", "west"}), json({{"mirror", "west"}, {"queue_size", 0}}));
}

TEST_F(Mirrors, AMirrorWithOtherKeysIsAHealthFaultUntilItIsSentThem) {
  ASSERT_EQ(vesk({"key", "create", "K1", "--mirror"}).exit_code, 0);
  set_mirror();
  ASSERT_TRUE(ends_with(7, {"mirror", "status", "west"}));
  EXPECT_THAT(vesk({"mirror", "status", "west"}),
              Ends(7, HasSubstr("data             other keys\n"),
                   StrEq("vesk: mirror status: mirror west holds other keys\n"
                         "hint: send it what it lacks: vesk mirror sync NAME --all\n")));
  EXPECT_THAT(vesk({"mirror", "sync", "west", "--only", "K1"}),
              Ends(0, StrEq("key K1 will be sent to mirror west\n"), IsEmpty()));
  EXPECT_TRUE(mirror_holds_the_same_keys());
  EXPECT_THAT(vesk({"mirror", "sync", "west", "--all"}),
              Ends(0, StrEq("all mirror keys will be sent to mirror west\n"), IsEmpty()));
}

TEST_F(Mirrors, AMirrorThatIsAwayIsAHealthFault) {
  // Nothing listens on the port that the system keeps for it.
  ASSERT_EQ(vesk({"mirror", "set", "west", "127.0.0.1", "1"}).exit_code, 0);
  ASSERT_TRUE(ends_with(7, {"mirror", "status", "west"}));
  EXPECT_THAT(vesk({"mirror", "status", "west"}),
              Ends(7, HasSubstr("state            down\n"), HasSubstr("mirror west: down\n")));
}

TEST_F(Mirrors, AKeyThatIsNotMirroredIsNotSent) {
  set_mirror();
  ASSERT_EQ(vesk({"key", "create", "K1"}).exit_code, 0);
  EXPECT_THAT(vesk({"mirror", "sync", "west", "--only", "K1"}),
              Ends(3, IsEmpty(), AllOf(HasSubstr("RC_NOT_A_MIRROR_KEY"), HasSubstr("--mirror\n"))));
}

}  // namespace
}  // namespace command_test
