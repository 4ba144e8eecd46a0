#include "vesk/store_names.h"

#include <memory>
#include <new>

#include "orn/vesk/wire/certificates.h"

namespace command {
namespace {

struct FreeList {
  void operator()(LinkedList *list) const { ll_free(list); }
};

}  // namespace

std::vector<std::string> store_names(const std::function<void(LinkedList *)> &call) {
  const std::unique_ptr<LinkedList, FreeList> list(ll_create(vesk::wire::kCertificateNameBytes + 1));
  if (!list) throw std::bad_alloc();
  call(list.get());
  std::vector<std::string> names;
  for (const LinkedListNode *node = ll_first(list.get()); node; node = ll_next(node))
    names.emplace_back(static_cast<const char *>(ll_element(node)));
  return names;
}

void show_store_names(const Settings &settings, const ListOptions &options, const char *member,
                      const std::vector<std::string> &names) {
  ListOutput output(settings, options, member, {"name"});
  for (const std::string &name : names) output.add_name(name);
  output.end();
}

}  // namespace command
