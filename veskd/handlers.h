// The front desk: which transaction is answered by whom.
//
// A handler is a short function over the request's fields and the store. It gives a return code and fills the reply's
// record; bringing both on the wire is done here, by the reply's table.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orn/vesk/wire/appliance.h"
#include "orn/vesk/wire/codec.h"
#include "orn/vesk/wire/key_lifecycle.h"
#include "orn/vesk/wire/key_transfer.h"
#include "orn/vesk/wire/mirrors.h"
#include "veskd/return_codes.h"
#include "veskd/roles.h"
#include "veskd/secret.h"
#include "veskd/sensors.h"
#include "veskd/store.h"

namespace veskd {

// A request as a handler sees it.
struct Call {
  std::string_view text;     // as received
  std::string_view payload;  // what followed it, if the transaction has such
  const RequestFields &fields;
  StoreConnection &store;
  Store &lists;                // where a list takes its reader from
  const std::string &caller;   // the subject of the client's certificate
  const Scope &scope;          // the names that lists may tell; the names of the request are within it
  std::size_t max_page_bytes;  // of the entries on a page of a list; a page has one entry at least
  const Machine &machine;
};

// What became of one of the things that a request is about.
struct Outcome {
  std::string object;
  ReturnCode code;
};

// The bytes of a reply. A list goes on page by page: each is made when the one before it has been sent, so that no list
// is ever held whole. Without bytes the reply goes on all the same, when others have had their turn.
struct Reply {
  ReturnCode code = RC_SUCCESS;
  WipedText bytes;
  // What the audit tells, if that is not what the request names and how the reply ends.
  std::vector<Outcome> outcomes = {};
  std::function<Reply(StoreConnection &)> next_page;
};

enum class Access {
  kReads,    // works on any reader of the store
  kChanges,  // runs on the store's writer, and what it did is undone unless it succeeds
};

// The name of what a request is about, for the audit. Null for transactions that are not audited: they neither change
// anything of worth nor hand out a secret.
using AuditedObject = std::string (*)(const RequestFields &fields);

struct Handler {
  vesk::wire::Transaction transaction;
  Access access;
  Roles roles;  // those that may ask
  AuditedObject audited_object;
  // False when the request does not have the form of its transaction.
  bool (*parse)(std::string_view received, RequestFields &fields);
  Reply (*handle)(const Call &call);
  // Of a request whose length differs from one to the next.
  std::size_t max_request_bytes = vesk::wire::kMaxRequestBytes;
  // Of the payload behind the request, whose length the request's byte count announces. 0: there is none.
  std::size_t max_payload_bytes = 0;
};

// Null for an identifier that no transaction has.
const Handler *find_handler(std::string_view tran_id);

std::string return_code_text(ReturnCode code);

// A reply of the common header alone, as every refusal is. It also ends a list.
Reply refusal(std::string_view tran_id, ReturnCode code);

// ---- The handlers, by subject ----

// certificate_store.cc
ReturnCode import_certificate(const Call &call, KeyRecord &reply);
ReturnCode import_private_key(const Call &call, KeyRecord &reply);
Reply export_certificate(const Call &call);
ReturnCode delete_certificate(const Call &call, KeyRecord &reply);
ReturnCode delete_private_key(const Call &call, KeyRecord &reply);
Reply get_certificate_list(const Call &call);
Reply get_private_key_list(const Call &call);

// connectivity.cc
ReturnCode admin_noop(const Call &call, KeyRecord &reply);

// key_serving.cc
ReturnCode get_next_key(const Call &call, NextKeyBlock &reply);
ReturnCode retrieve_key(const Call &call, KeyRecord &reply);
ReturnCode display_sym_key_policy(const Call &call, KeyRecord &reply);

// key_lifecycle.cc
ReturnCode create_sym_key(const Call &call, KeyRecord &reply);
ReturnCode auto_gen_keys(const Call &call, KeyRecord &reply);
ReturnCode create_db(const Call &call, KeyRecord &reply);
ReturnCode delete_key(const Call &call, vesk::wire::DeleteKeyReply &reply);
ReturnCode change_deletable(const Call &call, KeyRecord &reply);

// key_metadata.cc
ReturnCode set_metadata(const Call &call, KeyRecord &reply);
Reply retrieve_metadata(const Call &call);

// key_names.cc
Reply display_key_name_list(const Call &call);

// key_templates.cc
ReturnCode get_template_depth(const Call &call, TemplateDepth &reply);
Reply get_template_list(const Call &call);
ReturnCode remove_template(const Call &call, KeyRecord &reply);
ReturnCode set_next_increment(const Call &call, KeyRecord &reply);

// key_transfer.cc
ReturnCode import_sym_key(const Call &call, KeyRecord &reply);
ReturnCode export_sym_key(const Call &call, vesk::wire::ExportedKey &reply);

// mirrors.cc
ReturnCode set_mirror_address(const Call &call, KeyRecord &reply);
ReturnCode get_mirror_address(const Call &call, vesk::wire::MirrorAddressReply &reply);
ReturnCode remove_mirror_address(const Call &call, KeyRecord &reply);
Reply list_mirror_names(const Call &call);
ReturnCode get_mirror_status(const Call &call, vesk::wire::MirrorStatusReply &reply);
ReturnCode get_queue_size(const Call &call, vesk::wire::QueueSizeReply &reply);
ReturnCode force_key_sync(const Call &call, KeyRecord &reply);

// appliance.cc
Reply get_system_status(const Call &call);
ReturnCode report_fips_mode(const Call &call, vesk::wire::FipsModeReply &reply);
Reply validate_db(const Call &call);

}  // namespace veskd
