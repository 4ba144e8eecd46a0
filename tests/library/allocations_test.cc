// What the exchange of each call takes from the heap, over a connection layer that takes nothing: nothing. And what its
// session gives back.
//
// The program's own malloc() and its kin stand in front of the C library's and count.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>

#include "orn/skeys.h"
#include "orn/support.h"
#include "tests/library/calls.h"
#include "tests/library/replies.h"

extern "C" {
void *__libc_malloc(std::size_t bytes);
void *__libc_calloc(std::size_t count, std::size_t bytes);
void *__libc_realloc(void *memory, std::size_t bytes);
void __libc_free(void *memory);
}

namespace {

bool is_counting = false;
int num_allocations = 0;
std::string_view unread;  // of the reply
std::string_view page;    // that follows it, again and again
int num_pages = 0;
int handle = 0;
const char *session = nullptr;  // of the call that runs
int num_sessions_given_back_zero = 0;

void count() {
  if (is_counting) ++num_allocations;
}

}  // namespace

extern "C" {
void *malloc(std::size_t bytes) {
  count();
  return __libc_malloc(bytes);
}
void *calloc(std::size_t count_of, std::size_t bytes) {
  count();
  return __libc_calloc(count_of, bytes);
}
void *realloc(void *memory, std::size_t bytes) {
  count();
  return __libc_realloc(memory, bytes);
}
void free(void *memory) {
  if (memory != nullptr && memory == session) {
    if (std::all_of(session, session + sizeof(Session), [](char byte) { return byte == '\0'; }))
      ++num_sessions_given_back_zero;
    session = nullptr;
  }
  __libc_free(memory);
}
}

struct LinkedList {
  std::size_t element_size;
};

int SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *, const char *, int, const char *,
                    const char *, const char *, int) {
  *phTls = *phTlsAux = *phTlsRead = &handle;
  session = reinterpret_cast<const char *>(phTls) - offsetof(Session, hTls);
  is_counting = true;
  return 0;
}

int TLSWrite(void *, const void *, int) {
  return 0;
}

int TLSRead(void *, void *, void *buffer, int wanted, int, int *bytesRead) {
  if (unread.empty() && num_pages > 0) {
    unread = page;
    --num_pages;
  }
  const std::size_t arrived = std::min(unread.size(), static_cast<std::size_t>(wanted));
  std::memcpy(buffer, unread.data(), arrived);
  unread.remove_prefix(arrived);
  *bytesRead = static_cast<int>(arrived);
  return *bytesRead == wanted ? 0 : CONN_ERR_CLOSED;
}

int TLSTeardown(void *, void *, void *) {
  is_counting = false;
  return 0;
}

void TraceT(int, const char *, int, const char *, ...) {}
void DumpBuffer(int, const char *, int, const void *, int, const char *) {}
void X509_get_info(X509 *, CertificateInfo *) {}
char *CertificateInfo_to_string(const CertificateInfo *) {
  return nullptr;
}
int ll_append(LinkedList *, const void *) {
  return 0;
}
size_t ll_get_element_size(const LinkedList *list) {
  return list->element_size;
}

namespace {

// The element that is handed to a caller's list is as large as the list says; a file that is read or written has a
// buffer.
int num_for_list_or_file(std::string_view function) {
  static const std::set<std::string_view> kWithListOrFile = {
      "GetTemplateList",  "RetrieveMetadata",  "DisplayKeyNameList", "ListMirrorNames",   "ImportCertificate",
      "ImportPrivateKey", "ExportCertificate", "GetCertificateList", "GetPrivateKeyList", "ValidateDB"};
  return kWithListOrFile.contains(function) ? 1 : 0;
}

class Allocations : public testing::TestWithParam<CallCase> {};

INSTANTIATE_TEST_SUITE_P(Calls, Allocations, testing::ValuesIn(all_calls()),
                         [](const auto &info) { return std::string(info.param.function); });

// Behind the header all blank.
std::string blank_reply(const CallCase &call) {
  const std::string body = call.tran_id + "0000";
  return "00500" + body + std::string(500 - body.size(), ' ');
}

TEST_P(Allocations, AreNotMadeByTheExchange) {
  const CallCase &call = GetParam();
  const std::string reply = blank_reply(call);
  unread = reply;
  num_allocations = 0;
  CertificatePaths paths = {};
  call.call(paths);
  EXPECT_LE(num_allocations, num_for_list_or_file(call.function));
  EXPECT_LT(unread.size(), reply.size());
}

TEST_P(Allocations, OfTheSessionAreGivenBackAsZeros) {
  const CallCase &call = GetParam();
  const std::string reply = blank_reply(call);
  unread = reply;
  num_sessions_given_back_zero = 0;
  CertificatePaths paths = {};
  call.call(paths);
  EXPECT_EQ(num_sessions_given_back_zero, 1);
}

std::vector<CallCase> paged_calls() {
  std::vector<CallCase> calls = all_calls();
  std::erase_if(calls, [](const CallCase &call) { return !reply_shape(call.function).more_flag; });
  return calls;
}

// Has the server send a page again and again, and counts from there.
void send_pages_without_end(std::string_view function, std::string_view tran_id) {
  static std::string endless;
  const ReplyShape &shape = reply_shape(function);
  endless = whole_reply(shape, tran_id, 'a');
  put_field(endless, *shape.more_flag, "Y");
  unread = page = endless;
  num_pages = 20'000;
  num_allocations = 0;
}

class PagedAllocations : public Allocations {};

INSTANTIATE_TEST_SUITE_P(Calls, PagedAllocations, testing::ValuesIn(paged_calls()),
                         [](const auto &info) { return std::string(info.param.function); });

// Memory does not grow with what a server sends: that of the elements is the caller's.
TEST_P(PagedAllocations, AreNotMoreForPagesWithoutEnd) {
  const CallCase &call = GetParam();
  send_pages_without_end(call.function, call.tran_id);
  CertificatePaths paths = {};
  EXPECT_EQ(call.call(paths), CONN_ERR_CLOSED);
  EXPECT_LE(num_allocations, num_for_list_or_file(call.function));
  EXPECT_EQ(num_pages, 0);
}

// Nor with what goes into a file.
TEST(ListingAllocations, AreNotMoreForPagesWithoutEnd) {
  CertificatePaths paths = {};
  std::uint32_t highest = 0;
  constexpr int kFileAndElement = 2;
  send_pages_without_end("DisplayKeyNameList", "1037");
  EXPECT_EQ(qRetrieveKeyNameListFiltered(&paths, "", 0, "/dev/null", "", &highest), CONN_ERR_CLOSED);
  EXPECT_LE(num_allocations, kFileAndElement);
  EXPECT_EQ(num_pages, 0);

  send_pages_without_end("RetrieveMetadata", "1053");
  EXPECT_EQ(qRetrieveMetadata(&paths, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "",
                              0, "", 0, "", 0, "", 0, "", 0, "", 0, "/dev/null"),
            CONN_ERR_CLOSED);
  EXPECT_LE(num_allocations, kFileAndElement);
  EXPECT_EQ(num_pages, 0);
}

}  // namespace
