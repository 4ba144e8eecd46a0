#include "orn/vesk/skeys/pages.h"

namespace vesk::skeys {

std::optional<std::string_view> receive_page(Session &session, const Transaction &transaction, wire::ListPage &page) {
  std::memset(session.caRspBuf, 0, sizeof session.caRspBuf);
  page = {};
  const std::optional<std::string_view> received = receive(session, transaction);
  if (!received) return std::nullopt;
  parse(wire::kListPage, *received, page);
  wire::copy_field(page.caMoreFlag, session.caMoreFlag);
  wire::copy_field(page.caListCount, session.caListCount);
  return received;
}

}  // namespace vesk::skeys
