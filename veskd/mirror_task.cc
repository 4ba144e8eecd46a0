#include "veskd/mirror_task.h"

#include <fmt/format.h>

#include <algorithm>
#include <asio/associated_executor.hpp>
#include <asio/async_result.hpp>
#include <asio/post.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <random>

#include "orn/vesk/wire/codec.h"
#include "veskd/dates.h"
#include "veskd/fields.h"
#include "veskd/mirror_link.h"

namespace veskd {
namespace {

using namespace vesk::wire;
using namespace veskd::wire;

// Of a reply: what every reply begins with.
constexpr std::size_t kTranIdDigits = 4;
constexpr std::size_t kReturnCodeOffset = 9;

// Takes the place of a return code that is not four digits.
constexpr int kNoCode = -1;

constexpr const char *kNonsense = "the reply makes no sense";

int code_at(std::string_view reply, std::size_t offset) {
  const std::string_view digits = offset < reply.size() ? reply.substr(offset, kCodeDigits) : std::string_view();
  return digits.size() == kCodeDigits && is_all_digits(digits) ? to_int(digits) : kNoCode;
}

// Between half of the time and all of it, so that servers that lost one another do not return in step.
std::chrono::milliseconds jittered(std::chrono::milliseconds time) {
  thread_local std::minstd_rand random(std::random_device{}());
  return std::chrono::milliseconds(std::uniform_int_distribution<std::int64_t>(time.count() / 2, time.count())(random));
}

// The columns that an attempt leaves behind.
void record(StoreConnection &store, std::int64_t mirror_id, std::string_view status, std::int64_t num_faults,
            std::int64_t last_fault) {
  Query(store.database,
        "UPDATE mirrors SET status = ?2, fault_count = fault_count + ?3, "
        "last_fault = CASE WHEN ?3 > 0 THEN ?4 ELSE last_fault END WHERE id = ?1",
        mirror_id, status, num_faults, last_fault)
      .run();
}

}  // namespace

Replicator::Task::Task(std::int64_t mirror_id, const asio::any_io_executor &executor, Store &store,
                       asio::ssl::context &tls, const Log &log, const ReplicationTimes &times, const bool &delivers)
    : mirror_id_(mirror_id),
      timer_(executor),
      store_(store),
      tls_(tls),
      log_(log),
      times_(times),
      delivers_(delivers),
      next_retry_(times.first_retry) {}

asio::awaitable<void> Replicator::Task::run() {
  for (;;) {
    bool failed = false;
    try {
      if (!co_await step()) co_return;
    } catch (const std::exception &error) {
      log_.error(fmt::format("replication: {}", error.what()));
      failed = true;
    }
    if (!failed) continue;
    try_later();
    co_await sleep_until(retry_at_);
  }
}

// One thing at a time: the queue first, then the comparison, else sleep. False when the mirror is gone.
asio::awaitable<bool> Replicator::Task::step() {
  const Clock::time_point now = Clock::now();
  std::optional<Mirror> mirror;
  ReplicationBatch batch;
  {
    Store::Reader reader(store_);
    mirror = find_mirror(*reader, mirror_id_);
    if (!mirror) co_return false;
    if (mirror->attempt != attempt_) {
      attempt_ = mirror->attempt;
      retry_at_ = compare_at_ = Clock::time_point::min();
    }
    if (delivers_ && now >= retry_at_) batch = read_batch(*reader, mirror_id_);
  }
  if (!delivers_) {
    co_await sleep_until(Clock::time_point::max());
  } else if (now < retry_at_) {
    co_await sleep_until(retry_at_);
  } else if (batch.last_number > 0) {
    co_await deliver(*mirror, batch);
  } else if (now >= compare_at_) {
    co_await compare(*mirror);
  } else {
    co_await sleep_until(compare_at_);
  }
  co_return true;
}

// A change that the mirror refuses is a fault and leaves the queue: it must not hold up those behind it.
asio::awaitable<void> Replicator::Task::deliver(const Mirror &mirror, const ReplicationBatch &batch) {
  Outcome outcome{mirror.status, 0, 0, {}};
  std::vector<AuditEvent> events;
  if (!batch.keys.empty()) {
    const std::string reply =
        co_await ask(mirror, batch.request, kChangeCodesOffset + batch.keys.size() * kCodeDigits, outcome);
    const bool tells_codes = is_all_digits(reply.substr(std::min(kChangeCodesOffset, reply.size())));
    if (!tells_codes) outcome = {kDown, 1, 0, kNonsense};
    if (reply.empty() || !tells_codes) co_return co_await record_failure(mirror, outcome);
    for (std::size_t i = 0; i < batch.keys.size(); ++i) {
      const int code = code_at(reply, kChangeCodesOffset + i * kCodeDigits);
      events.push_back(event_of(mirror, batch.keys[i], code));
      if (code == RC_SUCCESS) continue;
      ++outcome.num_faults;
      outcome.last_fault = code;
    }
    if (outcome.num_faults > 0)
      log(mirror, fmt::format("refused {} changes, last with {:04}", outcome.num_faults, outcome.last_fault));
    tried_successfully();
  }
  for (const std::string &name : batch.damaged) log(mirror, fmt::format("key {} is damaged and was not sent", name));
  if (!batch.damaged.empty()) outcome.last_fault = RC_SERVER_FAILURE;
  outcome.num_faults += static_cast<std::int64_t>(batch.damaged.size());
  const std::int64_t last_number = batch.last_number;
  // Named, here and below: GCC 12 destroys a temporary of an awaited call twice.
  const StoreChange finish = [id = mirror_id_, outcome, last_number, events](StoreConnection &store) {
    finish_changes(store, id, last_number);
    for (const AuditEvent &event : events) append_audit_entry(store, event);
    record(store, id, outcome.status, outcome.num_faults, outcome.last_fault);
  };
  co_await change(finish);
  compare_at_ = std::min(compare_at_,
                         compared_at_ == Clock::time_point::min() ? compared_at_ : compared_at_ + times_.compare_pause);
}

// What was sent is recorded as it leaves the queue: while a delivery is tried again, it is still to be recorded.
AuditEvent Replicator::Task::event_of(const Mirror &mirror, const std::string &key_name, std::int64_t code) const {
  return {.caller = fmt::format("to mirror {}", mirror.name),
          .fingerprint = {},
          .peer = fmt::format("{}:{}", mirror.host, mirror.port),
          .tran_id = kReplicateKeys.tran_id,
          .function = kReplicateKeys.function,
          .object = key_name,
          .return_code = code};
}

asio::awaitable<void> Replicator::Task::compare(const Mirror &mirror) {
  const WipedText request(fmt::format("{}{}", kCompareKeys.length, kCompareKeys.tran_id));
  Outcome outcome;
  const std::string reply = co_await ask(mirror, request, vesk::wire::wire_size(kCompareKeysReply), outcome);
  if (reply.empty()) co_return co_await record_failure(mirror, outcome);
  tried_successfully();
  CompareKeysReply there{};
  read_fields(kCompareKeysReply, reply, there);
  MirrorDigest here;
  bool changes_wait = false;
  {
    Store::Reader reader(store_);
    here = digest_of_mirror_keys(*reader);
    changes_wait = queue_size(*reader, mirror) > 0;
  }
  const bool same = here.hexadecimal == text_in(there.caDigest);
  // What was changed here since the mirror told its digest may be all the difference.
  const bool is_conclusive = same || !changes_wait;
  const std::int64_t num_there = to_int(text_in(there.caNumKeys));
  const StoreChange write_result = [id = mirror_id_, is_conclusive, same, num_here = here.num_keys,
                                    num_there](StoreConnection &store) {
    record(store, id, kUp, 0, 0);
    if (!is_conclusive) return;
    Query(store.database,
          "UPDATE mirrors SET data_hash_status = ?2, num_keys_here = ?3, num_keys_there = ?4, compared_time = ?5 "
          "WHERE id = ?1",
          id, same ? kSameData : kOtherData, num_here, num_there, timestamp())
        .run();
  };
  co_await change(write_result);
  compared_at_ = Clock::now();
  compare_at_ = compared_at_ + (same ? times_.compare_every : times_.compare_pause);
}

asio::awaitable<std::string> Replicator::Task::ask(const Mirror &mirror, const WipedText &request,
                                                   std::size_t reply_bytes, Outcome &outcome) {
  const MirrorAddress address{mirror.host, mirror.port};
  std::string reply;
  try {
    reply = co_await exchange(tls_, address, request, times_.exchange);
  } catch (const ExchangeError &error) {
    outcome = {kDown, 1, 0, error.what()};
  }
  if (reply.empty()) co_return reply;
  const int code = code_at(reply, kReturnCodeOffset);
  const std::string_view tran_id(request.text().data() + kLengthDigits, kTranIdDigits);
  const bool answers_it = std::string_view(reply).substr(kLengthDigits, kTranIdDigits) == tran_id;
  if (!answers_it || code == kNoCode || (code == RC_SUCCESS && reply.size() != reply_bytes)) {
    outcome = {kDown, 1, 0, kNonsense};
    co_return std::string();
  }
  if (code != RC_SUCCESS) {
    outcome = {kRefuses, 1, code, fmt::format("refuses with return code {:04}", code)};
    co_return std::string();
  }
  outcome.status = kUp;
  co_return reply;
}

asio::awaitable<void> Replicator::Task::record_failure(const Mirror &mirror, const Outcome &outcome) {
  log(mirror, outcome.text);
  try_later();
  const StoreChange write_failure = [id = mirror_id_, outcome](StoreConnection &store) {
    record(store, id, outcome.status, outcome.num_faults, outcome.last_fault);
    Query(store.database, "UPDATE mirrors SET data_hash_status = '?' WHERE id = ?1", id).run();
  };
  co_await change(write_failure);
}

// The replicator waits for changes under way before it lets go of its tasks, and so of what the closures refer to.
asio::awaitable<void> Replicator::Task::change(const StoreChange &apply) {
  const auto durable = std::make_shared<bool>(false);
  const auto queue_change = [&](auto resume) {
    const auto resume_later = std::make_shared<decltype(resume)>(std::move(resume));
    store_.change({.apply =
                       [apply](StoreConnection &store) {
                         apply(store);
                         return true;
                       },
                   .done =
                       [resume_later, durable](ChangeOutcome outcome) {
                         *durable = outcome == ChangeOutcome::kDone;
                         const auto executor = asio::get_associated_executor(*resume_later);
                         asio::post(executor, [resume_later] { (*resume_later)(); });
                       }});
  };
  co_await asio::async_initiate<const asio::use_awaitable_t<> &, void()>(queue_change, asio::use_awaitable);
  if (!*durable) throw std::runtime_error("the state of a mirror could not be stored");
}

asio::awaitable<void> Replicator::Task::sleep_until(Clock::time_point time) {
  asio::error_code woken;
  timer_.expires_at(time);
  co_await timer_.async_wait(asio::redirect_error(asio::use_awaitable, woken));
}

void Replicator::Task::log(const Mirror &mirror, const std::string &text) const {
  log_.warning(fmt::format("mirror {} at {} port {}: {}", mirror.name, mirror.host, mirror.port, text));
}

void Replicator::Task::try_later() {
  retry_at_ = Clock::now() + jittered(next_retry_);
  next_retry_ = std::min(next_retry_ * 2, times_.longest_retry);
}

void Replicator::Task::tried_successfully() {
  retry_at_ = Clock::time_point::min();
  next_retry_ = times_.first_retry;
}

}  // namespace veskd
