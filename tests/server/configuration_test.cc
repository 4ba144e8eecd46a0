// The configuration file: what it says, and what is said of its mistakes.
#include "veskd/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "tests/server/laboratory.h"
#include "veskd/files.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;

class Configuration : public testing::Test {
 protected:
  ServiceSettings read() { return read_configuration(laboratory.file()); }
  void use_the_example() {
    fs::copy_file(VESKD_EXAMPLE, laboratory.file(), fs::copy_options::overwrite_existing);
    laboratory.write("sensors", "");
    const std::string digits(64, '7');
    replace_file(laboratory / "tickets.key", digits + "\n", kPrivateMode);
  }
  std::string mistakes() {
    return start_error([&] { read(); });
  }
  // What is said of the line behind those that every server has.
  std::string said_of(const std::string &sections) {
    laboratory.configure(sections);
    return mistakes();
  }
  std::string line(int number) { return laboratory.file().string() + ":" + std::to_string(number) + ": "; }

  Laboratory laboratory;
};

TEST_F(Configuration, TheExampleInTheDocumentsIsValid) {
  use_the_example();
  const ServiceSettings settings = read();
  EXPECT_EQ(settings.server.port, 5696);
  EXPECT_EQ(settings.server.tls.certificate_chain, laboratory / "server.pem");
  EXPECT_EQ(settings.mirror_tls->private_key, laboratory / "mirror-key.pem");
  EXPECT_EQ(settings.server.machine.sensor_file, laboratory / "sensors");
}

// Every value of the example that has a default is that default.
TEST_F(Configuration, TheExampleShowsTheDefaults) {
  use_the_example();
  const Limits shown = read().server.limits;
  const Limits standard;
  EXPECT_EQ(shown.max_connections, standard.max_connections);
  EXPECT_EQ(shown.num_threads, standard.num_threads);
  EXPECT_EQ(shown.max_page_bytes, standard.max_page_bytes);
  EXPECT_EQ(shown.handshake, standard.handshake);
  EXPECT_EQ(shown.request, standard.request);
  EXPECT_EQ(shown.begin, standard.begin);
  EXPECT_EQ(shown.ask, standard.ask);
  EXPECT_EQ(shown.reply, standard.reply);
  EXPECT_EQ(shown.list, standard.list);
  EXPECT_EQ(shown.closing, standard.closing);
  EXPECT_EQ(shown.stopping, standard.stopping);
  EXPECT_EQ(read().server.tickets.enabled, TicketOptions().enabled);
  EXPECT_EQ(read().server.tickets.rotate, TicketOptions().rotate);
  EXPECT_EQ(read().log.form, LogOptions().form);
  EXPECT_EQ(read().log.level, LogOptions().level);
  EXPECT_EQ(read().watch->address, WatchOptions().address);
}

TEST_F(Configuration, WhatIsNotGivenHasItsDefault) {
  const ServiceSettings settings = read();
  EXPECT_EQ(settings.server.address, "127.0.0.1");
  EXPECT_EQ(settings.server.limits.max_connections, Limits().max_connections);
  EXPECT_FALSE(settings.mirror_tls);
  EXPECT_EQ(settings.store, laboratory / "store.db");
  EXPECT_EQ(settings.server.machine.store_directory, laboratory.path());
}

TEST_F(Configuration, OnlyWhoSaysSoIsWatchedFromElsewhere) {
  EXPECT_FALSE(read().watch);
  EXPECT_EQ(said_of("[watch]\n"), line(11) + "watch.port: is missing");
  EXPECT_THAT(said_of("[watch]\nport = 1\naddress = '0.0.0.0'\n"),
              HasSubstr(":13: watch.address: '0.0.0.0' is no loopback address: set beyond_loopback"));
  laboratory.configure("[watch]\nport = 1\naddress = '::1'\n");
  EXPECT_EQ(read().watch, (WatchOptions{"::1", 1}));
  laboratory.configure("[watch]\nport = 1\naddress = '0.0.0.0'\nbeyond_loopback = true\n");
  EXPECT_EQ(read().watch, (WatchOptions{"0.0.0.0", 1}));
}

TEST_F(Configuration, DurationsHaveUnits) {
  laboratory.configure("[limits]\nhandshake = '250ms'\nrequest = '7s'\nlist = '2h'\n[log]\nlevel = 'warning'\n");
  const ServiceSettings settings = read();
  EXPECT_EQ(settings.server.limits.handshake, 250ms);
  EXPECT_EQ(settings.server.limits.request, 7s);
  EXPECT_EQ(settings.server.limits.list, 2h);
  EXPECT_EQ(settings.log.level, LogLevel::kWarning);
}

TEST_F(Configuration, PagesHaveAnySizeThatTheirCountCanTell) {
  for (const std::size_t bytes : {1, 40, 99999}) {
    laboratory.configure("[limits]\npage_bytes = " + std::to_string(bytes) + "\n");
    EXPECT_EQ(read().server.limits.max_page_bytes, bytes);
  }
  for (const char *bytes : {"0", "100000"})
    EXPECT_EQ(said_of(std::string("[limits]\npage_bytes = ") + bytes + "\n"),
              line(12) + "limits.page_bytes: must be a whole number from 1 to 99999");
}

// The parts that every server has are ten lines.
TEST_F(Configuration, EveryMistakeIsToldWithItsLine) {
  EXPECT_EQ(said_of("[limits]\nconnections = 0\nhandshake = '10'\nlists = 3\n[log]\nform = 'xml'\n"),
            line(12) + "limits.connections: must be a whole number from 1 to 100000\n" +  //
                line(13) +
                "limits.handshake: must be a number and its unit in quotes, such as \"30s\": ms, s, m, h or d\n" +
                line(14) + "limits.lists: there is no such key\n" +  //
                line(16) + "log.form: must be one of \"text\", \"json\"");
}

struct Mistake {
  const char *sections;
  int line;
  const char *reason;
};

TEST_F(Configuration, SaysWhatIsWrong) {
  const std::vector<Mistake> mistakes = {
      {"[limit]\n", 11, "limit: there is no such key"},
      {"[limits]\nconnections = '5'\n", 12, "limits.connections: must be a whole number"},
      {"[limits]\nconnections = 5.5\n", 12, "limits.connections: must be a whole number"},
      {"[limits]\nrequest = 30\n", 12, "limits.request: must be a number and its unit"},
      {"[limits]\nrequest = '0s'\n", 12, "limits.request: must be from 1ms to 3600s"},
      {"[limits]\nrequest = '99999999999999999999s'\n", 12, "limits.request: must be a number"},
      {"[limits]\nrequest = '-1s'\n", 12, "limits.request: must be a number"},
      {"[log]\nlevel = 3\n", 12, "log.level: must be one of"},
      {"[log]\nlevel = 'info'\nlevel = 'info'\n", 13, "cannot redefine"},
      {"[mirrors]\ncertificate = 'mirror.pem'\n", 11, "mirrors.private_key: is missing"},
      {"[mirrors]\ncertificate = 'mirror.pem'\nprivate_key = 'client-key.pem'\n", 13, "key values mismatch"},
      {"[mirrors]\ncertificate = 'none.pem'\nprivate_key = 'mirror-key.pem'\n", 12, "none.pem: No such file"},
      {"mirrors = 3\n", 11, "there is no such key"},
      {"[[roles]]\nrole = 'boss'\nuri = 'u'\n", 12, "roles.role: must be one of \"storage-client\", \"administrator\""},
      {"[[roles]]\nuri = 'u'\n", 11, "roles.role: is missing"},
      {"[[roles]]\nrole = 'auditor'\n", 12, "roles.role: needs one of subject, dns"},
      {"[[roles]]\nrole = 'auditor'\nuri = 'u'\ndns = 'd'\n", 12, "roles.role: needs one of subject, dns"},
      {"[[roles]]\nrole = 'auditor'\nfingerprint = '00:11'\n", 13, "roles.fingerprint: a SHA-256 fingerprint has 64"},
      {"[[roles]]\nrole = 'auditor'\nip = 'here'\n", 13, "roles.ip: 'here' is no numeric address"},
      {"[[roles]]\nrole = 'auditor'\nuri = 'u'\nprefixes = ['A']\n", 14, "roles.prefixes: are for storage clients"},
      {"[[roles]]\nrole = 'storage-client'\nuri = 'u'\nprefixes = []\n", 14, "roles.prefixes: must be a list"},
      {"[[roles]]\nrole = 'storage-client'\nuri = 'u'\nprefixes = [5]\n", 14, "roles.prefixes: must be a list"},
      {"[[roles]]\nrole = 'storage-client'\nuri = 'u'\nprefixes = ['']\n", 14, "roles.prefixes: must hold no empty"},
      {"[tls.tickets]\nrotate = '8d'\n", 12, "tls.tickets.rotate: must be from 1s to"},
      {"[tls.tickets]\nenabled = 1\n", 12, "tls.tickets.enabled: must be true or false"},
      {"[tls.tickets]\nkey_file = 'none'\n", 12, "tls.tickets.key_file: cannot open"},
      {"[tls.tickets]\nkey_file = 'server-key.pem'\n", 12, "does not hold 64 hexadecimal digits and a line end"},
      {"[log\n", 11, "rror"},
  };
  for (const Mistake &mistake : mistakes) {
    const std::string said = said_of(mistake.sections);
    EXPECT_THAT(said, HasSubstr(line(mistake.line))) << mistake.sections;
    EXPECT_THAT(said, HasSubstr(mistake.reason)) << mistake.sections;
  }
}

TEST_F(Configuration, SaysWhatIsMissing) {
  laboratory.write("veskd.toml", "[listen]\naddress = 'here'\n");
  EXPECT_EQ(mistakes(), line(1) + "tls: is missing\n" + line(1) + "store: is missing\n" + line(1) +
                            "master_key: is missing\n" + line(1) + "listen.port: is missing\n" + line(2) +
                            "listen.address: 'here' is no numeric address");
}

TEST_F(Configuration, SaysWhichFileCannotBeUsed) {
  fs::permissions(laboratory / "server-key.pem", fs::perms::group_read, fs::perm_options::add);
  EXPECT_THAT(mistakes(), HasSubstr(line(9) + "tls.private_key: others than its owner may read"));
  fs::remove(laboratory / "server-key.pem");
  EXPECT_THAT(mistakes(), HasSubstr(line(9) + "tls.private_key: cannot open"));
  fs::copy_file(laboratory / "client-key.pem", laboratory / "server-key.pem");
  EXPECT_THAT(mistakes(), HasSubstr(line(9) + "tls.private_key: cannot use the server key"));
  laboratory.write("server.pem", "no certificate");
  EXPECT_THAT(mistakes(), HasSubstr(line(8) + "tls.certificate: cannot use the server certificate"));
  laboratory.write("authority.pem", "no certificate");
  EXPECT_THAT(mistakes(), HasSubstr(line(10) + "tls.client_authority: cannot use the trusted authority"));
}

TEST_F(Configuration, AMasterKeyIsMissedOnlyWhenThereIsAStore) {
  fs::remove(laboratory / "master.key");
  EXPECT_EQ(mistakes(), "no error");
  laboratory.write("store.db", "");
  EXPECT_THAT(mistakes(), HasSubstr(line(4) + "master_key: cannot"));
}

TEST_F(Configuration, ADirectoryIsWhereRelativePathsBegin) {
  laboratory.write("veskd.toml", "directory = 'elsewhere'\nready_file = 'r'\n");
  EXPECT_THAT(mistakes(),
              HasSubstr(line(1) + "directory: " + (laboratory / "elsewhere").string() + " is no directory"));
  fs::create_directory(laboratory / "elsewhere");
  laboratory.write("veskd.toml", "directory = 'elsewhere'\nsensor_file = 's'\n");
  EXPECT_THAT(mistakes(), HasSubstr((laboratory / "elsewhere" / "s").string()));
}

}  // namespace
}  // namespace veskd::test
