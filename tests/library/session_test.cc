// Certificate paths, time-outs, bounded copies, and what a session hands to the connection layer.
#include "tests/library/library_test.h"

namespace {

struct PathCase {
  const char *rule;
  std::string directory;
  std::string file1, file2, file3;
  int status;
  std::string expected_directory;
};

void PrintTo(const PathCase &path, std::ostream *out) {
  *out << path.rule;
}

class CertificatePathsTest : public testing::TestWithParam<PathCase> {};

TEST_P(CertificatePathsTest, Rule) {
  const PathCase &c = GetParam();
  CertificatePaths paths;
  std::memset(&paths, 'x', sizeof paths);
  ASSERT_EQ(SetupCertificates(&paths, c.directory.c_str(), c.file1.c_str(), c.file2.c_str(), c.file3.c_str()),
            c.status);
  if (c.status != 0) {
    const std::string untouched(sizeof paths, 'x');
    EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(&paths), sizeof paths), untouched);
    return;
  }
  EXPECT_STREQ(paths.caPath[0], c.expected_directory.c_str());
  EXPECT_STREQ(paths.caPath[1], (c.expected_directory + c.file1).c_str());
  EXPECT_STREQ(paths.caPath[2], (c.expected_directory + c.file2).c_str());
  EXPECT_STREQ(paths.caPath[3], (c.expected_directory + c.file3).c_str());
}

const std::string k98(98, 'd'), k99(99, 'd'), k100(100, 'd'), k101(101, 'd');

INSTANTIATE_TEST_SUITE_P(
    Paths, CertificatePathsTest,
    testing::Values(PathCase{"a missing slash is added", "d", "a", "b", "c", 0, "d/"},
                    PathCase{"a slash that is there is kept", "d/", "a", "b", "c", 0, "d/"},
                    PathCase{"an empty directory becomes a lone slash", "", "a", "b", "c", 0, "/"},
                    PathCase{"98 characters leave room for the slash and one character", k98, "a", "b", "c", 0,
                             k98 + "/"},
                    PathCase{"the second file is measured too", k98, "a", "bb", "c", ERR_CERT_PATH_LENGTH, ""},
                    PathCase{"the third file is measured too", k98, "a", "b", "cc", ERR_CERT_PATH_LENGTH, ""},
                    PathCase{"99 characters become 100, which leaves no room for a file", k99, "a", "b", "c",
                             ERR_CERT_PATH_LENGTH, ""},
                    PathCase{"99 characters and empty file names are 100", k99, "", "", "", 0, k99 + "/"},
                    PathCase{"100 characters without slash get none", k100, "", "", "", ERR_CERT_DIR_FORM, ""},
                    PathCase{"100 characters without slash and a file: the length comes first", k100, "a", "", "",
                             ERR_CERT_PATH_LENGTH, ""},
                    PathCase{"100 characters that end in a slash", k99 + "/", "", "", "", 0, k99 + "/"},
                    PathCase{"101 characters", k101, "", "", "", ERR_CERT_PATH_LENGTH, ""},
                    PathCase{"101 characters that end in a slash", k100 + "/", "", "", "", ERR_CERT_PATH_LENGTH, ""}),
    [](const auto &info) {
      std::string name = info.param.rule;
      for (char &c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
      }
      return name;
    });

TEST(CertificatePathsTest, TraceNothing) {
  script::reset();
  CertificatePaths paths;
  SetupCertificates(&paths, k101.c_str(), "a", "b", "c");
  SetupCertificates(&paths, "d", "a", "b", "c");
  EXPECT_THAT(connection().traces, testing::IsEmpty());
}

TEST(BoundedCopyTest, CutsAndAlwaysWritesTheLastByte) {
  char destination[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(vesk_strlcpy(destination, "abc", 0), 3u);
  EXPECT_EQ(std::string_view(destination, 6), "xxxxxx");
  EXPECT_EQ(vesk_strlcpy(destination, "ab", 6), 2u);
  EXPECT_EQ(std::string_view(destination, 6), std::string_view("ab\0xx\0", 6));
  EXPECT_EQ(vesk_strlcpy(destination, "abcdefgh", 6), 8u);
  EXPECT_STREQ(destination, "abcde");
  EXPECT_EQ(vesk_strlcpy(destination, "wxyz", 1), 4u);
  EXPECT_STREQ(destination, "");
}

constexpr const char *kReply = "0000810430000";

class SessionTest : public LibraryTest {
 protected:
  // What one call writes into its session before it connects. The pointers are good for nothing any more.
  Session opened() {
    Session session{};
    connection().replies = kReply;
    connection().at_setup = [&](const Session &opening, const char *) { session = opening; };
    EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 0);
    return session;
  }
};

TEST_F(SessionTest, RecordsItsCallerTheServerAndThePaths) {
  const Session session = opened();
  EXPECT_TRUE(pthread_equal(session.tidCaller, pthread_self()));
  EXPECT_STREQ(session.caHost, "kms.example");
  EXPECT_STREQ(session.caPort, "5696");
  EXPECT_STREQ(session.caCertDir, "/certificates/");
  EXPECT_STREQ(session.caCertPath1, "/certificates/authority.pem");
  EXPECT_STREQ(session.caCertPath2, "/certificates/client.pem");
}

TEST_F(SessionTest, IsZeroButForWhatItRecords) {
  const Session session = opened();
  const auto bytes_of = [](const auto &field) {
    return std::string_view(reinterpret_cast<const char *>(&field), sizeof field);
  };
  EXPECT_EQ(bytes_of(session.pcaFilter), zeros(sizeof session.pcaFilter));
  EXPECT_EQ(bytes_of(session.caFilePath), zeros(2049));
  EXPECT_EQ(bytes_of(session.caRspBuf), zeros(16389));
  EXPECT_EQ(bytes_of(session.request), zeros(sizeof session.request));
  EXPECT_EQ(bytes_of(session.policy), zeros(1607));
  EXPECT_EQ(session.iBytesRead, 0);
  EXPECT_EQ(session.iStatus, 0);
  EXPECT_EQ(session.hTls, nullptr);
  EXPECT_EQ(session.hTlsAux, nullptr);
  EXPECT_EQ(session.hTlsRead, nullptr);
}

TEST_F(SessionTest, HandsOverTheCallersPathOfTheKeyAndKeepsACopy) {
  connection().replies = kReply;
  connection().at_setup = [&](const Session &session, const char *cert_path3) {
    EXPECT_EQ(cert_path3, paths_.caPath[3]);
    EXPECT_NE(session.pCertPath3, cert_path3);
    const std::string path = "/certificates/client-key.pem";
    EXPECT_EQ(std::string_view(session.pCertPath3, 2056), path + zeros(2056 - path.size()));
  };
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 0);
}

TEST_F(SessionTest, RecordsTenAndZeroAsTimeOutsUnlessToldOthers) {
  const Session untold = opened();
  EXPECT_STREQ(untold.caTimeout1, "10");
  EXPECT_STREQ(untold.caTimeout2, "0");
  SetTimeout(4294967295u, 7);
  const Session told = opened();
  SetTimeout(10, 0);
  EXPECT_STREQ(told.caTimeout1, "4294967295");
  EXPECT_STREQ(told.caTimeout2, "7");
  EXPECT_EQ(connection().setups.back().connect_timeout, 10);
}

TEST_F(SessionTest, KeepsTheTimeOutsThatItWasOpenedWith) {
  const Session *open = nullptr;
  connection().replies = kReply;
  connection().at_setup = [&](const Session &session, const char *) { open = &session; };
  connection().before_read = [&](int) {
    SetTimeout(1, 2);
    EXPECT_STREQ(open->caTimeout1, "10");
    EXPECT_STREQ(open->caTimeout2, "0");
  };
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 0);
  SetTimeout(10, 0);
}

TEST_F(SessionTest, HandsOverPathsInTheOrderTwoOneThree) {
  connection().replies = kReply;
  ASSERT_EQ(qAdminNoop(&paths_, host_, port_), 0);
  ASSERT_EQ(connection().setups.size(), 1u);
  const script::Setup &setup = connection().setups[0];
  EXPECT_EQ(setup.cert_path2, "/certificates/client.pem");
  EXPECT_EQ(setup.cert_path1, "/certificates/authority.pem");
  EXPECT_EQ(setup.cert_path3, "/certificates/client-key.pem");
  EXPECT_EQ(setup.reserved, 0);
  EXPECT_EQ(setup.connect_timeout, 10);
  EXPECT_EQ(setup.host, "kms.example");
  EXPECT_EQ(setup.port, "5696");
}

TEST_F(SessionTest, CutsTheHostAt40CharactersAndThePortAtFive) {
  const std::string host(41, 'h');
  connection().setup_status = 30004;
  EXPECT_EQ(qAdminNoop(&paths_, host.c_str(), 4294967295u), 30004);
  EXPECT_EQ(qAdminNoop(&paths_, host.substr(1).c_str(), 100000), 30004);
  EXPECT_EQ(connection().setups[0].host, std::string(40, 'h'));
  EXPECT_EQ(connection().setups[0].port, "42949");
  EXPECT_EQ(connection().setups[1].host, std::string(40, 'h'));
  EXPECT_EQ(connection().setups[1].port, "10000");
}

TEST_F(SessionTest, TakesANullHostForAnEmptyOne) {
  connection().setup_status = 30002;
  EXPECT_EQ(qAdminNoop(&paths_, nullptr, port_), 30002);
  EXPECT_EQ(connection().setups[0].host, "");
}

TEST_F(SessionTest, IsTornDownOnceAfterAFailedSetUp) {
  connection().setup_status = 30006;
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 30006);
  EXPECT_EQ(connection().teardowns, 1);
  EXPECT_FALSE(connection().torn_down_with_handles);
  EXPECT_THAT(connection().events,
              testing::ElementsAre("setup", "trace SetupSession Failed! ret = <30006>", "teardown"));
}

TEST_F(SessionTest, IsTornDownWithItsHandles) {
  connection().replies = kReply;
  EXPECT_EQ(qAdminNoop(&paths_, host_, port_), 0);
  EXPECT_TRUE(connection().torn_down_with_handles);
}

}  // namespace
