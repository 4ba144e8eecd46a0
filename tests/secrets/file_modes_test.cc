// The files and folders that the programs make have their modes from the first instant, whatever the umask is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/secrets/key_transfer.h"
#include "tests/secrets/running_server.h"

namespace secrets_test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::EndsWith;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::Pair;
using veskd::test::TemporaryDirectory;

class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  Umask(const Umask &) = delete;
  Umask &operator=(const Umask &) = delete;
  ~Umask() { umask(before_); }

 private:
  const mode_t before_;
};

// What programs that are started meanwhile make.
class Notes {
 public:
  explicit Notes(const std::string &log) : log_(log) {
    std::ofstream(log_).flush();
    setenv("FILE_MODES_LOG", log.c_str(), 1);
    setenv("LD_PRELOAD", FILE_MODES_LIBRARY, 1);
  }
  Notes(const Notes &) = delete;
  Notes &operator=(const Notes &) = delete;
  ~Notes() {
    unsetenv("LD_PRELOAD");
    unsetenv("FILE_MODES_LOG");
  }

  // Name without folder, and mode, of what was made; kind is "file", "folder" or "change".
  std::multimap<std::string, std::string> of(const std::string &kind) const {
    std::multimap<std::string, std::string> modes;
    std::ifstream lines(log_);
    std::string what, mode, path;
    while (lines >> what >> mode && std::getline(lines >> std::ws, path)) {
      if (what == kind && path != "/dev/null") modes.emplace(path.substr(path.rfind('/') + 1), mode);
    }
    return modes;
  }

 private:
  const std::string log_;
};

// Server and command do all that makes files, in a folder of the test.
class FileModes : public testing::Test {
 protected:
  int run(const std::string &line) const {
    const std::string command = "cd " + folder_.path().string() + " && export HOME=. && unset XDG_CONFIG_HOME && { " +
                                line + "; } >/dev/null 2>&1";
    return WEXITSTATUS(std::system(command.c_str()));
  }

  // With a server of that port.
  int run_commands(std::uint16_t port) const {
    const std::string vesk = VESK_PROGRAM " --host 127.0.0.1 --certificates new/d --port " + std::to_string(port) + " ";
    return run(vesk + "--trace trace key create K && " + vesk + "key get K --out value && " + vesk +
               "key create --from names; " + vesk + "certificate import pair " + pair_.file("certificate.pem") +
               " && " + vesk + "certificate export pair --out certificate && " + vesk +
               "key export K --certificate pair --out wrapped && " VESK_PROGRAM
               " context add here --host 127.0.0.1 --port 1 --certificates .");
  }

  int run_maintenance() const {
    return run(VESKD_PROGRAM " backup --dir new/d --to backup --master-key-to key-copy && " VESKD_PROGRAM
                             " restore --from backup --dir other/d --master-key key-copy && " VESKD_PROGRAM
                             " rotate-master-key --dir other/d");
  }

  void run_all() const {
    {
      veskd::test::DevServer server(folder_ / "new/d");
      // The second of the names is taken: the journal stays.
      std::ofstream(folder_ / "names") << "N1\nK\n";
      num_failed_ += run_commands(server.port()) != 0;
    }
    num_failed_ += run_maintenance() != 0;
  }

  const TemporaryDirectory folder_;
  const KeyPair pair_;
  mutable int num_failed_ = 0;
};

bool is_public(const std::string &name) {
  const std::set<std::string> names = {"authority.pem.new", "server.pem.new", "client.pem.new", "mirror.pem.new",
                                       "ready.json.new"};
  return names.contains(name);
}

TEST_F(FileModes, ArePrivateWhereTheUmaskAllowsEverything) {
  const Umask all(0);
  const Notes notes(folder_ / "log");
  run_all();
  EXPECT_EQ(num_failed_, 0);
  const auto files = notes.of("file");
  for (const auto &[name, mode] : files) EXPECT_EQ(mode, is_public(name) ? "0644" : "0600") << name;
  for (const char *name : {"authority-key.pem.new", "server-key.pem.new", "client-key.pem.new", "mirror-key.pem.new",
                           "master.key.new", "store.db", "store.db-wal", "store.db-shm", "veskd.lock", "ready.json.new",
                           "backup.new", "key-copy.new", "master.key.next.new", "trace", "names.journal"})
    EXPECT_THAT(files, Contains(Pair(EndsWith(name), testing::_))) << name;
  // Values, wrapped keys, certificates and the contexts go there.
  EXPECT_GE(
      std::count_if(files.begin(), files.end(), [](const auto &file) { return file.first.starts_with(".vesk-"); }), 4);
  const auto folders = notes.of("folder");
  for (const auto &[name, mode] : folders) EXPECT_EQ(mode, "0700") << name;
  EXPECT_THAT(folders,
              IsSupersetOf({Pair("new", "0700"), Pair("d", "0700"), Pair("vesk", "0700"), Pair(".config", "0700")}));
  EXPECT_THAT(notes.of("change"), IsEmpty());
}

// Then even the owner may do nothing, and the programs fail unless they are root's; but nothing is opened up for that.
TEST_F(FileModes, ArePrivateWhereTheUmaskForbidsEverything) {
  const Notes notes(folder_ / "log");
  {
    const Umask none(0777);
    try {
      run_all();
    } catch (const std::runtime_error &) {
      EXPECT_NE(geteuid(), 0U);
    }
  }
  EXPECT_THAT(notes.of("folder"), Not(IsEmpty()));
  for (const char *kind : {"file", "folder"}) {
    for (const auto &[name, mode] : notes.of(kind)) EXPECT_EQ(mode, "0000") << name;
  }
  EXPECT_THAT(notes.of("change"), IsEmpty());
  EXPECT_EQ(run("chmod -R u+rwX ."), 0);
}

// A folder and a file that are there keep their modes: whoever made them may have had reasons.
TEST_F(FileModes, OfWhatIsThereStay) {
  const Umask all(0);
  ASSERT_EQ(mkdir((folder_ / "new").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((folder_ / "new/d").c_str(), 0750), 0);
  { veskd::test::DevServer server(folder_ / "new/d"); }
  EXPECT_EQ(veskd::test::mode_of(folder_ / "new"), 0755U);
  EXPECT_EQ(veskd::test::mode_of(folder_ / "new/d"), 0750U);
}

// Of the library: its trace is private, and its export files have the mode that the umask leaves, as any program's.
TEST_F(FileModes, OfTheLibraryAreThoseOfItsContract) {
  veskd::test::TestServer server;
  const auto call = [&](auto function, auto... arguments) {
    return function(server.paths(), server.host(), server.port(), arguments...);
  };
  for (const mode_t mask : {0, 027}) {
    const Umask umask(mask);
    const std::string name = std::to_string(mask);
    ASSERT_EQ(TraceToFile((folder_ / ("trace" + name)).c_str()), 0);
    TraceOff();
    EXPECT_EQ(call(qImportCertificate, pair_.file("certificate.pem").c_str(), "pair", 1), 0);
    EXPECT_EQ(call(qExportCertificate, "pair", 'C', (folder_ / ("certificate" + name)).c_str()), 0);
    EXPECT_EQ(call(qCreateSymKey, name.c_str(), 'N'), 0);
    EXPECT_EQ(call(qExportSymKey, name.c_str(), "", "pair", (folder_ / ("wrapped" + name)).c_str(), nullptr), 0);
    EXPECT_EQ(veskd::test::mode_of(folder_ / ("trace" + name)), 0600U);
    EXPECT_EQ(veskd::test::mode_of(folder_ / ("certificate" + name)), 0666U & ~mask);
    EXPECT_EQ(veskd::test::mode_of(folder_ / ("wrapped" + name)), 0666U & ~mask);
  }
}

}  // namespace
}  // namespace secrets_test
