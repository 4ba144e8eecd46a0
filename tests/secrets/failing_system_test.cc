// Calls whose system fails them, at each point in turn, over real TLS to a server: each returns a status that has a
// name, or did what it was asked for; nothing is left open, and nothing grows.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/secrets/failing.h"
#include "tests/secrets/key_transfer.h"
#include "tests/secrets/running_server.h"

namespace secrets_test {
namespace {

using testing::Not;
using testing::StartsWith;
using veskd::test::TemporaryDirectory;

long num_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

struct Call {
  const char *name;
  std::function<int()> run;
};

struct FreeList {
  void operator()(LinkedList *list) const { ll_free(list); }
};

class FailingSystem : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    server_ = std::make_unique<RunningServer>();
    folder_ = std::make_unique<TemporaryDirectory>();
    pair_ = std::make_unique<KeyPair>();
    ASSERT_EQ(call(qCreateSymKey, "K", 'Y'), 0);
    ASSERT_EQ(call(qCreateSymKey, "MIRRORED", 'Y'), 0);
    ASSERT_EQ(call(qAutoGenKeys, "CONSTANT_000015", 'i', 5000u), 0);
    ASSERT_EQ(call(qImportCertificate, pair_->file("certificate.pem").c_str(), "pair", 1), 0);
    ASSERT_EQ(call(qImportPrivateKey, pair_->file("key.pem").c_str(), "pair"), 0);
    ASSERT_EQ(call(qExportSymKey, "K", "", "pair", file("wrapped").c_str(), nullptr), 0);
    ASSERT_EQ(call(qRetrieveKey, "K", "", &expected_), 0);
  }
  static void TearDownTestSuite() {
    server_.reset();
    folder_.reset();
    pair_.reset();
    TLSForgetAll();
  }

  template <typename PublicCall, typename... Arguments>
  static int call(PublicCall public_call, Arguments... arguments) {
    return public_call(server_->paths(), server_->host(), server_->port(), arguments...);
  }

  static std::string file(const std::string &name) { return *folder_ / name; }

  // A success is one: the key is there, and is the right one.
  static int retrieve() {
    KeyRecord record{};
    const int status = call(qRetrieveKey, "K", "", &record);
    const bool is_right = std::equal(record.caKeyValue, record.caKeyValue + 32, expected_.caKeyValue);
    return status == 0 && !is_right ? kWrong : status;
  }

  template <typename List>
  static int list(List list_call, std::size_t element_bytes) {
    const std::unique_ptr<LinkedList, FreeList> list(ll_create(element_bytes));
    return list ? list_call(list.get()) : CONN_ERR_RESOURCES;
  }

  static std::vector<Call> calls() {
    // Made beforehand: memory for a name is not what is to fail.
    static const std::string names = file("names"), sensors = file("sensors"), wrapped = file("wrapped"),
                             exported = file("exported"), certificate = file("certificate"),
                             certificate_file = pair_->file("certificate.pem");
    static std::uint32_t number, other;
    static std::int32_t count;
    static char text[300], character, version[33], status[7][9];
    static KeyMetadataValues values;
    static unsigned char value[256];
    return {
        {"RetrieveKey", retrieve},
        {"AdminNoop", [] { return call(qAdminNoop); }},
        {"GetNextKey", [] { return call(qGetNextKey, "CONSTANT_000015", text, value, &number); }},
        {"RetrieveKeyMetadata", [] { return call(qRetrieveKeyMetadata, "K", &values); }},
        {"CreateSymKey", [] { return call(qCreateSymKey, "NEW", 'N'); }},
        {"AutoGenKeys", [] { return call(qAutoGenKeys, "CONSTANT_000016", 'i', 2u); }},
        {"CreateDatabase", [] { return call(qCreateDatabase); }},
        {"ChangeDeletable", [] { return call(qChangeDeletable, "K", 'Y'); }},
        {"DeleteKey", [] { return call(qDeleteKey, "NEW"); }},
        {"GetTemplateDepth", [] { return call(qGetTemplateDepth, "CONSTANT_000015", &number, &other); }},
        {"GetTemplateList", [] { return list([](LinkedList *to) { return call(qGetTemplateList, to); }, 40); }},
        {"RemoveTemplate", [] { return call(qRemoveTemplate, "CONSTANT_000016"); }},
        {"SetNextIncrement", [] { return call(qSetNextIncrement, "CONSTANT_000015", 4000u); }},
        {"SetMetadata",
         [] {
           return call(qSetMetadata, "K", "", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14",
                       "15", "16");
         }},
        {"RetrieveKeyNameList", [] { return call(qRetrieveKeyNameList, names.c_str()); }},
        {"RetrieveKeyNameList_as_ll",
         [] {
           return list([](LinkedList *to) { return call(qRetrieveKeyNameListFiltered_as_ll, to, "K", &number); }, 41);
         }},
        {"SetMirrorAddress", [] { return call(qSetMirrorAddress, "M", "127.0.0.1", 1u); }},
        {"GetMirrorAddress", [] { return call(qGetMirrorAddress, "M", text, 256u, &number); }},
        {"ListMirrorNames", [] { return list([](LinkedList *to) { return call(qListMirrorNames, to); }, 41); }},
        {"GetMirrorStatus", [] { return call(qGetMirrorStatus, "M", 0, &count, &character, &character); }},
        {"GetQueueSize", [] { return call(qGetQueueSize, "M", &count); }},
        {"ForceKeySync", [] { return call(qForceKeySync, "M", "MIRRORED"); }},
        {"RemoveMirrorAddress", [] { return call(qRemoveMirrorAddress, "M"); }},
        {"GetSystemStatus",
         [] {
           return call(qGetSystemStatus, status[0], status[1], status[2], status[3], status[4], status[5], status[6],
                       sensors.c_str());
         }},
        {"ReportFipsMode", [] { return call(qReportFipsMode, version); }},
        {"ValidateKeyDatabase", [] { return call(qValidateKeyDatabase); }},
        {"ImportSymKey", [] { return call(qImportSymKey, "IMPORTED", "pair", wrapped.c_str(), nullptr); }},
        {"ExportSymKey", [] { return call(qExportSymKey, "K", "", "pair", exported.c_str(), value); }},
        {"ImportCertificate", [] { return call(qImportCertificate, certificate_file.c_str(), "pair", 1); }},
        // Refused soon: a good one has its primes tested, which takes its time.
        {"ImportPrivateKey", [] { return call(qImportPrivateKey, certificate_file.c_str(), "pair"); }},
        {"ExportCertificate", [] { return call(qExportCertificate, "pair", 'C', certificate.c_str()); }},
        {"GetCertificateList", [] { return call(qGetCertificateList, 'C', names.c_str()); }},
        {"GetPrivateKeyList_as_ll",
         [] { return list([](LinkedList *to) { return call(qGetPrivateKeyList_as_ll, to); }, 65); }},
        {"DeleteCertificate", [] { return call(qDeleteCertificate, "none", 'C'); }},
        {"DeletePrivateKey", [] { return call(qDeletePrivateKey, "none"); }},
    };
  }

  // A status that no call returns.
  static constexpr int kWrong = -12345;

  static inline std::unique_ptr<RunningServer> server_;
  static inline std::unique_ptr<TemporaryDirectory> folder_;
  static inline std::unique_ptr<KeyPair> pair_;
  static inline KeyRecord expected_{};
};

bool has_a_name(int status) {
  return std::string(StatusName(status)) != "UNKNOWN_STATUS";
}

std::int64_t count_calls(Function function, const Call &call) {
  const FailingCall none(function, FailingCall::kMeasures, 0);
  call.run();
  return none.num_calls();
}

// Of a call that fails in a way that no call has failed in before, some memory of OpenSSL's own stays.
constexpr std::int64_t kOnceForAll = 4096;

// What is left of calls when all that is kept between them is dropped.
class Leftovers {
 public:
  Leftovers() : descriptors_(num_descriptors()), bytes_((TLSForgetAll(), num_allocated_bytes())) {}

  long descriptors() const { return num_descriptors() - descriptors_; }
  std::int64_t bytes() const {
    TLSForgetAll();
    return num_allocated_bytes() - bytes_;
  }

 private:
  const long descriptors_;
  const std::int64_t bytes_;
};

// ---- System calls ----

struct Failure {
  Function function;
  const char *name;
  int error;
};

// What each call does itself, and what the connection of all of them does.
constexpr Failure kFailuresOfEach[] = {
    {Function::kOpen, "open", EACCES},
    {Function::kCloseFile, "fclose", ENOSPC},
    {Function::kSend, "send", ECONNRESET},
    {Function::kReceive, "recv", ECONNRESET},
};
constexpr Failure kFailuresOfAll[] = {
    {Function::kOpen, "open", EMFILE},         {Function::kReadFile, "read", EIO},
    {Function::kSocket, "socket", EMFILE},     {Function::kSetOption, "setsockopt", ENOBUFS},
    {Function::kConnect, "connect", ENETDOWN}, {Function::kSend, "send", EINTR},
    {Function::kSend, "send", ENOBUFS},        {Function::kReceive, "recv", EINTR},
    {Function::kReceive, "recv", ENOMEM},
};

// At each place in turn. Returns how often the call failed. With the files read anew, or as they are kept.
int fail_everywhere(const Call &call, const Failure &failure, bool reads_files) {
  int num_failed = 0;
  if (reads_files) TLSForgetAll();
  const std::int64_t num_calls = count_calls(failure.function, call);
  for (std::int64_t number = 0; number < num_calls; ++number) {
    if (reads_files) TLSForgetAll();
    const FailingCall failing(failure.function, number, failure.error);
    const int status = call.run();
    EXPECT_TRUE(has_a_name(status)) << call.name << ", " << failure.name << " " << number << ": " << status;
    // A signal ends no call.
    if (failure.error == EINTR) {
      EXPECT_THAT(StatusName(status), Not(StartsWith("CONN_ERR_"))) << call.name;
    }
    num_failed += status != 0;
  }
  return num_failed;
}

TEST_F(FailingSystem, SystemCallsThatFailBecomeStatuses) {
  testing::internal::CaptureStdout();
  const std::vector<Call> all = calls();
  int num_failed = 0;
  const auto fail_connection = [&] {
    for (const Failure &failure : kFailuresOfAll) {
      for (const bool reads_files : {false, true}) num_failed += fail_everywhere(all.front(), failure, reads_files);
    }
  };
  fail_connection();
  const Leftovers leftovers;
  fail_connection();
  for (const Call &call : all) {
    for (const Failure &failure : kFailuresOfEach) num_failed += fail_everywhere(call, failure, false);
  }
  EXPECT_EQ(leftovers.descriptors(), 0);
  EXPECT_LT(leftovers.bytes(), kOnceForAll);
  testing::internal::GetCapturedStdout();
  EXPECT_GT(num_failed, 100);
  EXPECT_EQ(retrieve(), 0);
}

// ---- Memory ----

// What a child tells its parent, also when it has ended.
struct Progress {
  std::int64_t number;     // of the allocation that fails
  std::int64_t num_ended;  // processes that ended for want of memory
  std::int64_t bytes;      // that stay allocated
  long descriptors;        // that stay open
  int wrong_status;
};

constexpr int kOutOfMemory = 77;

// The library's way to end a process: an allocation that it cannot do without.
[[noreturn]] void end_without_memory() {
  try {
    if (std::exception_ptr failure = std::current_exception()) std::rethrow_exception(failure);
  } catch (const std::bad_alloc &) {
    _exit(kOutOfMemory);
  } catch (...) {
  }
  _exit(1);
}

// The first ones, and of the others as many again, evenly spread: making a connection takes hundreds.
std::int64_t next_sample(std::int64_t number, std::int64_t num_calls, std::int64_t num_first) {
  return number + 1 + (number < num_first ? 0 : num_calls / num_first);
}

void fail_allocations(const Call &call, std::int64_t num_first, Progress &progress) {
  std::set_terminate(end_without_memory);
  // Nobody reads what is said here.
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  call.run();
  const int status_before = call.run();
  const std::int64_t num_calls = count_calls(Function::kAllocate, call);
  const Leftovers leftovers;
  for (; progress.number < num_calls; progress.number = next_sample(progress.number, num_calls, num_first)) {
    int status = 0;
    {
      const FailingCall failing(Function::kAllocate, progress.number, ENOMEM);
      status = call.run();
    }
    if (!has_a_name(status)) progress.wrong_status = status;
    // The next call may still find what this one left half made in OpenSSL, and puts it away; the one behind it does
    // not.
    if (status == status_before) continue;
    call.run();
    if (const int status_now = call.run(); status_now != status_before) progress.wrong_status = status_now;
  }
  progress.descriptors = std::max(progress.descriptors, leftovers.descriptors());
  progress.bytes = std::max(progress.bytes, leftovers.bytes());
}

// In processes of their own, since one that has no memory for a session ends.
void expect_allocations_to_fail_well(const Call &call, std::int64_t num_first) {
  void *shared = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto &progress = *new (shared) Progress{};
  for (bool is_done = false; !is_done;) {
    const pid_t child = fork();
    if (child == 0) {
      fail_allocations(call, num_first, progress);
      _exit(0);
    }
    int state = 0;
    ASSERT_EQ(waitpid(child, &state, 0), child);
    ASSERT_TRUE(WIFEXITED(state)) << call.name << " at " << progress.number << ": " << WTERMSIG(state);
    is_done = WEXITSTATUS(state) != kOutOfMemory;
    if (is_done) {
      ASSERT_EQ(WEXITSTATUS(state), 0) << call.name << " at " << progress.number;
    } else {
      ++progress.num_ended;
      ++progress.number;
    }
  }
  EXPECT_EQ(progress.wrong_status, 0) << call.name << ": " << StatusName(progress.wrong_status);
  EXPECT_EQ(progress.descriptors, 0) << call.name;
  EXPECT_LT(progress.bytes, kOnceForAll) << call.name;
  // The session's own two, and no other.
  EXPECT_EQ(progress.num_ended, 2) << call.name;
  munmap(shared, sizeof(Progress));
}

// The connection of one call for all, and what each call does itself.
TEST_F(FailingSystem, AllocationsThatFailBecomeStatusesOrTheEndOfTheProcess) {
  const std::vector<Call> all = calls();
  expect_allocations_to_fail_well(all.front(), 100);
  for (const Call &call : all) expect_allocations_to_fail_well(call, 5);
}

}  // namespace
}  // namespace secrets_test
