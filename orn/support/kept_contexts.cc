#include "orn/support/kept_contexts.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "orn/support/context.h"

namespace orn {
namespace {

constexpr std::size_t kMostContexts = 16;

using Identities = std::array<FileIdentity, 3>;

struct KeptContext {
  std::array<std::string, 3> paths;
  Identities identities;
  std::shared_ptr<SharedContext> context;

  bool is_of(const CertificateFiles &files) const {
    return paths[0] == files.authority && paths[1] == files.certificates && paths[2] == files.key;
  }
};

// Never destroyed: threads may still call while the process ends. The last used comes first.
std::mutex &mutex = *new std::mutex;
std::list<KeptContext> &kept = *new std::list<KeptContext>;

// What a child of fork() had from its parent. It is not used again: a ticket serves once, in one process, and another
// thread of the parent may have been inside OpenSSL at that moment.
std::list<KeptContext> &abandoned = *new std::list<KeptContext>;

void survive_fork() {
  static std::once_flag once;
  std::call_once(once, [] {
    pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); },
                   [] {
                     abandoned.splice(abandoned.end(), kept);
                     mutex.unlock();
                   });
  });
}

std::optional<Identities> identities_of(const CertificateFiles &files) {
  Identities identities;
  const std::array paths = {files.authority, files.certificates, files.key};
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const std::optional<FileIdentity> identity = FileIdentity::of(paths[i]);
    if (!identity) return std::nullopt;
    identities[i] = *identity;
  }
  return identities;
}

// Null if there is none, or if it is out of date, which is then the end of it.
std::shared_ptr<SharedContext> find(const CertificateFiles &files) {
  const std::optional<Identities> identities = identities_of(files);
  std::lock_guard lock(mutex);
  const auto found = std::find_if(kept.begin(), kept.end(), [&](const auto &entry) { return entry.is_of(files); });
  if (found == kept.end()) return nullptr;
  if (identities != found->identities) {
    kept.erase(found);
    return nullptr;
  }
  kept.splice(kept.begin(), kept, found);
  return found->context;
}

// Another thread may have been faster: then its context is kept, and used instead.
void keep(const CertificateFiles &files, const Identities &identities, std::shared_ptr<SharedContext> &context) {
  std::list<KeptContext> made;
  made.push_back({{files.authority, files.certificates, files.key}, identities, context});
  std::lock_guard lock(mutex);
  const auto found = std::find_if(kept.begin(), kept.end(), [&](const auto &entry) { return entry.is_of(files); });
  if (found != kept.end() && found->identities == identities) {
    context = found->context;
    return;
  }
  if (found != kept.end()) kept.erase(found);
  kept.splice(kept.begin(), made);
  if (kept.size() > kMostContexts) kept.pop_back();
}

}  // namespace

int context_for(const CertificateFiles &files, std::shared_ptr<SharedContext> &context) {
  survive_fork();
  context = find(files);
  if (context) return 0;
  const auto now = std::chrono::system_clock::now();
  Credentials credentials;
  auto made = std::make_shared<SharedContext>();
  if (int status = load_credentials(files, credentials)) return status;
  if (int status = make_context(credentials, made->tls)) return status;
  const Identities &read = credentials.identities;
  if (std::all_of(read.begin(), read.end(), [&](const auto &identity) { return identity.is_settled(now); }))
    keep(files, read, made);
  context = std::move(made);
  return 0;
}

void forget_sessions() {
  std::lock_guard lock(mutex);
  for (const KeptContext &entry : kept) entry.context->sessions.drop_all();
}

void forget_context(const SharedContext &context) {
  std::list<KeptContext> forgotten;
  std::lock_guard lock(mutex);
  const auto found =
      std::find_if(kept.begin(), kept.end(), [&](const auto &entry) { return entry.context.get() == &context; });
  if (found != kept.end()) forgotten.splice(forgotten.end(), kept, found);
}

void forget_contexts() {
  std::list<KeptContext> forgotten;
  std::lock_guard lock(mutex);
  forgotten.swap(kept);
}

}  // namespace orn
