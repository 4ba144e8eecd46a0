// The frame of every public call: open a session, fill in the request, run the transaction, deliver its results, and
// tear the session down on every path.
#pragma once

#include "orn/vesk/libvesk/session.h"
#include "orn/vesk/libvesk/trace.h"
#include "orn/vesk/wire/text.h"
#include "orn/vesk/wire/transactions.h"

namespace vesk {

// Opens a session and hands it to use(), whose status becomes the call's. Nothing here throws but an allocation that
// failed, and that ends the process: no exception crosses into C.
template <typename Use>
int with_session(const Server &server, Use use) noexcept {
  const SessionOwner session = make_session();
  SetupSession(*session, server);
  if (session->iStatus != 0) {
    LIBVESK_TRACE("%s Failed! ret = <%i>", "SetupSession", session->iStatus);
    return session->iStatus;
  }
  return use(*session);
}

// fill(RequestFields &)  writes the request's fields, each to its full width
// run(Session *)         is the transaction function
// deliver(Session &)     copies the results to the caller and returns the call's status; not called after a failure
template <typename Fill, typename Run, typename Deliver>
int public_call(const Server &server, const wire::Transaction &transaction, Fill fill, Run run, Deliver deliver) {
  return with_session(server, [&](Session &session) {
    wire::put_padded(session.request.caTranId, transaction.tran_id);
    fill(session.request);
    run(&session);
    if (session.iStatus != 0) {
      LIBVESK_TRACE("%s Failed! ret = <%i>", transaction.function, session.iStatus);
      return session.iStatus;
    }
    return deliver(session);
  });
}

// A call whose status is all that it returns.
template <typename Fill, typename Run>
int public_call(const Server &server, const wire::Transaction &transaction, Fill fill, Run run) {
  return public_call(server, transaction, fill, run, [](const Session &) { return 0; });
}

// Fills nothing: the identifier is the whole request.
inline constexpr auto kNoFields = [](RequestFields &) {};

}  // namespace vesk
