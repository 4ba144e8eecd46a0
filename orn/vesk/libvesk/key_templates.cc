#include "orn/vesk/wire/key_templates.h"

#include "orn/vesk/libvesk/call_frame.h"
#include "orn/vesk/libvesk/template_fields.h"

using namespace vesk;

int qGetTemplateDepth(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant,
                      uint32_t *piTemplateSize, uint32_t *piSequenceOut) {
  TemplateDepth depth{};
  return public_call(
      {paths, host, port}, wire::kGetTemplateDepth, [&](RequestFields &request) { put_template(request, constant); },
      [&](Session *session) { GetTemplateDepth(session, &depth); },
      [&](const Session &) {
        *piTemplateSize = wire::to_hex(depth.caLastIncrement);
        *piSequenceOut = wire::to_hex(depth.caNextIncrement);
        LIBVESK_TRACE("Template Size <%i>", static_cast<int>(*piTemplateSize));
        LIBVESK_TRACE("Sequence Out <%i>", static_cast<int>(*piSequenceOut));
        // A full template has no next increment: what it names was served last.
        if (depth.caTemplateFull[0] == 'Y') ++*piSequenceOut;
        return 0;
      });
}

int qGetTemplateList(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list) {
  return public_call({paths, host, port}, wire::kGetTemplateList, kNoFields,
                     [&](Session *session) { GetTemplateList(session, list); });
}

int qRemoveTemplate(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant) {
  return public_call(
      {paths, host, port}, wire::kRemoveTemplate, [&](RequestFields &request) { put_template(request, constant); },
      RemoveTemplate);
}

int qSetNextIncrement(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant,
                      uint32_t iNextIncrement) {
  return public_call(
      {paths, host, port}, wire::kSetNextIncrement,
      [&](RequestFields &request) {
        put_template(request, constant);
        wire::put_number(request.caNextIncrement, "%06X", iNextIncrement);
      },
      SetNextIncrement);
}
