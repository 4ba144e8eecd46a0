// The requests of a client, as the server reads and answers them: one behind the other, as if each came on a connection
// of its own. What they change is undone behind the last.
#include <optional>

#include "fuzz/target.h"
#include "tests/library/wire_text.h"
#include "veskd/fields.h"
#include "veskd/replicated_keys.h"
#include "veskd/request_header.h"
#include "veskd/transaction.h"

namespace {

using namespace veskd;
using vesk::wire::kLengthDigits;

constexpr int kMaxPages = 20;

// A store on a disk in memory, in which there is one of everything.
class Server {
 public:
  Server() {
    const std::string policy = "02560000000000000000N0000YY1";
    Transaction transaction(connection_.database);
    for (const std::string &request : {
             "005841001" + padded("K1", 40) + policy + padded("User1", 256) + padded("Group1", 256),
             "005941117" + padded("TEMPLATE0000001", 39) + "06H1500003I" + policy + blanks(512),
             "003051129" + padded("M1", 40) + padded("mirror.example", 256) + "00443",
         })
      fuzz::require(answer_one(request) == RC_SUCCESS, "the store is filled");
    transaction.commit();
  }

  void answer_all(std::string_view requests) {
    Transaction undone(connection_.database);
    unread_ = requests;
    while (!unread_.empty() && answer() == RC_SUCCESS) {
    }
  }

 private:
  ReturnCode answer_one(std::string_view request) {
    unread_ = request;
    return answer();
  }

  // Everything that stands before a handler, in the order of veskd/peer.cc. Success is a request that was read whole.
  ReturnCode answer() {
    const std::optional<std::string> start = take(kRequestHeaderBytes);
    if (!start) return RC_MALFORMED_REQUEST;
    const RequestHeader header = read_header(*start);
    if (header.refused != RC_SUCCESS) return refuse(header.tran_id.empty() ? "0000" : header.tran_id, header.refused);
    const std::optional<std::size_t> length = declared_length(header.digits, *header.handler);
    if (!length) return refuse(header.tran_id, RC_MALFORMED_REQUEST);
    const std::optional<std::string> rest = take(kLengthDigits + *length - start->size());
    if (!rest) return RC_MALFORMED_REQUEST;
    const std::string text = *start + *rest;
    std::size_t payload_length = 0;
    if (header.handler->max_payload_bytes != 0) {
      const ReturnCode code = read_payload_length(*header.handler, text, payload_length);
      if (code != RC_SUCCESS) return refuse(header.tran_id, code);
    }
    const std::optional<std::string> payload = take(payload_length);
    if (!payload) return RC_MALFORMED_REQUEST;
    Wiped<RequestFields> fields;
    if (!header.handler->parse(text, *fields)) return refuse(header.tran_id, RC_MALFORMED_REQUEST);
    // A hundred thousand keys are no further case, but take their time.
    if (vesk::wire::to_int(fields->caKeyCount) > 50) return RC_SUCCESS;
    run(*header.handler, text, *payload, *fields);
    return RC_SUCCESS;
  }

  void run(const Handler &handler, std::string_view text, std::string_view payload, const RequestFields &fields) {
    if (handler.audited_object != nullptr) handler.audited_object(fields);
    connection_.database.begin_change();
    Reply reply = handler.handle({text, payload, fields, connection_, store_, caller_, scope_, 200, machine_});
    check(reply, handler.transaction.tran_id);
    for (int page = 0; reply.next_page && page < kMaxPages; ++page) {
      reply = reply.next_page(connection_);
      check(reply, handler.transaction.tran_id);
    }
    reply.code == RC_SUCCESS ? connection_.database.keep_change() : connection_.database.undo_change();
  }

  static ReturnCode refuse(std::string_view tran_id, ReturnCode code) {
    check(refusal(tran_id, code), tran_id);
    return code;
  }

  // A reply is as long as it says, but for the entries of a page, and is that of its transaction.
  static void check(const Reply &reply, std::string_view tran_id) {
    const std::string &bytes = reply.bytes.text();
    if (bytes.empty()) return;
    const int length = vesk::wire::to_int(std::string_view(bytes).substr(0, kLengthDigits));
    fuzz::require(length >= 8 && kLengthDigits + static_cast<std::size_t>(length) <= bytes.size(),
                  "the length is right");
    fuzz::require(bytes.compare(kLengthDigits, kTranIdDigits, tran_id) == 0, "the reply is the transaction's");
    fuzz::require(is_all_digits(bytes.substr(kLengthDigits + kTranIdDigits, 4)), "the return code is four digits");
  }

  std::optional<std::string> take(std::size_t count) {
    if (count > unread_.size()) return std::nullopt;
    const std::string taken(unread_.substr(0, count));
    unread_.remove_prefix(count);
    return taken;
  }

  const std::unique_ptr<MasterKey> master_ = MasterKey::create(fuzz::scratch().path("master.key"));
  const StoreAddress address_ = fuzz::scratch().path("store.db");
  const Log log_{true};
  Store store_{address_, *master_, log_};
  Database keys_in_{address_};
  const std::unique_ptr<StoreKeys> keys_ = read_store_keys(keys_in_, *master_);
  const Sealer sealer_{*keys_->values};
  StoreConnection connection_{Database(address_), sealer_, keys_->audit};
  const std::string caller_ = "CN=fuzz";
  const Scope scope_;
  const Machine machine_ = {.sensor_file = fuzz::scratch().write("sensors", "fan cpu 900 500 9000\napp a x 0 1\n"),
                            .store_directory = "/"};
  std::string_view unread_;
};

}  // namespace

FUZZ_TARGET(input) {
  static Server &server = *new Server;
  server.answer_all(input);
  return 0;
}
