#include "orn/vesk/wire/key_templates.h"

#include "orn/vesk/skeys/pages.h"

using namespace vesk;

void GetTemplateDepth(Session *session, TemplateDepth *depth) {
  skeys::begin(*session, wire::kGetTemplateDepth);
  Wiped<TemplateDepth> reply;
  if (!skeys::exchange(*session, wire::kGetTemplateDepth, wire::kGetTemplateDepthRequest, wire::kGetTemplateDepthReply,
                       *reply))
    return;
  if (depth != nullptr) *depth = *reply;
  skeys::conclude(*session, reply->caReturnCode);
}

void GetTemplateList(Session *session, LinkedList *list) {
  skeys::begin(*session, wire::kGetTemplateList);
  if (!skeys::send_request(*session, wire::kGetTemplateListRequest)) return;
  skeys::ListName name(list, wire::kTemplateNameBytes);
  wire::ListPage page;
  do {
    const auto received = skeys::receive_page(*session, wire::kGetTemplateList, wire::kListPage, page);
    if (!received) return;
    const auto take = [&](std::string_view entry) {
      SKEYS_TRACE("template: <%s>", name.take(entry));
      name.append();
      return true;
    };
    if (!skeys::read_entries(*session, received->size(), wire::to_int(page.caListCount), wire::kTemplateEntryBytes,
                             take))
      return;
  } while (page.caMoreFlag[0] == 'Y');
  skeys::conclude(*session, page.caReturnCode);
}

void RemoveTemplate(Session *session) {
  skeys::transact(*session, wire::kRemoveTemplate, wire::kRemoveTemplateRequest, wire::kRemoveTemplateReply);
}

void SetNextIncrement(Session *session) {
  skeys::transact(*session, wire::kSetNextIncrement, wire::kSetNextIncrementRequest, wire::kSetNextIncrementReply);
}
