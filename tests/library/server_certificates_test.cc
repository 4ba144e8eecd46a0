// Inspection of the server's certificate chain.
#include "tests/library/library_test.h"

namespace {

X509 *certificate(const char *name) {
  X509 *made = X509_new();
  X509_NAME_add_entry_by_txt(X509_get_subject_name(made), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char *>(name), -1, -1, 0);
  return made;
}

class ServerCertificatesTest : public LibraryTest {
 protected:
  ServerCertificatesTest() {
    std::memset(&ca_, 'x', sizeof ca_);
    std::memset(&comm_, 'x', sizeof comm_);
  }
  CertificateInfo ca_, comm_;
};

TEST_F(ServerCertificatesTest, TakesTheLastTwoOfThree) {
  connection().peer_chain = {certificate("leaf"), certificate("middle"), certificate("root")};
  EXPECT_EQ(GetServerCertificateInfo(&paths_, host_, port_, &ca_, &comm_), 0);
  EXPECT_STREQ(ca_.subject, "/CN=root");
  EXPECT_STREQ(comm_.subject, "/CN=middle");
  EXPECT_THAT(connection().events,
              testing::ElementsAre("setup", "chain", "trace Certificates in Server Chain: <3>", "info /CN=root",
                                   "trace Server CA Cert\n/CN=root", "info /CN=middle",
                                   "trace Server Comm Cert\n/CN=middle", "teardown"));
  EXPECT_THAT(connection().writes, testing::IsEmpty());
}

TEST_F(ServerCertificatesTest, OfOneFillsTheAuthorityAlone) {
  connection().peer_chain = {certificate("only")};
  EXPECT_EQ(GetServerCertificateInfo(&paths_, host_, port_, &ca_, &comm_), ERR_NO_COMM_CERT);
  EXPECT_STREQ(ca_.subject, "/CN=only");
  EXPECT_EQ(comm_.subject[0], 'x');
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"),
              testing::ElementsAre("Certificates in Server Chain: <1>", "Server CA Cert\n/CN=only"));
}

TEST_F(ServerCertificatesTest, OfNoneFillsNeither) {
  EXPECT_EQ(GetServerCertificateInfo(&paths_, host_, port_, &ca_, &comm_), ERR_NO_CA_CERT);
  EXPECT_EQ(ca_.subject[0], 'x');
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), testing::ElementsAre("Certificates in Server Chain: <0>"));
}

TEST_F(ServerCertificatesTest, AConnectionWithoutChainCountsAsAnEmptyOne) {
  connection().has_peer_chain = false;
  EXPECT_EQ(GetServerCertificateInfo(&paths_, host_, port_, &ca_, &comm_), ERR_NO_CA_CERT);
  EXPECT_THAT(connection().traces_of("orn/vesk/libvesk"), testing::ElementsAre("Certificates in Server Chain: <0>"));
}

TEST_F(ServerCertificatesTest, ReturnTheConnectionLayersCode) {
  connection().setup_status = 30040;
  EXPECT_EQ(GetServerCertificateInfo(&paths_, host_, port_, &ca_, &comm_), 30040);
  EXPECT_THAT(connection().events,
              testing::ElementsAre("setup", "trace SetupSession Failed! ret = <30040>", "teardown"));
}

}  // namespace
