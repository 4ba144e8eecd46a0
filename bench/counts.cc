#include "bench/counts.h"

#include <memory>

namespace bench {

namespace {

constexpr int kCalls = 100;

CallAllocations count(Client client, Manner manner, const Server &server) {
  const std::unique_ptr<Callers> made = callers(client, manner, server);
  const std::unique_ptr<Caller> caller = made->make(0);
  for (int i = 0; i < kCalls; ++i) caller->call();
  const Allocations before = allocations();
  for (int i = 0; i < kCalls; ++i) caller->call();
  const Allocations in_call = allocations() - before;
  Allocations in_exchange{};
  for (int i = 0; i < kCalls; ++i) in_exchange += caller->count_exchange();
  const auto per_call = [](std::int64_t number) { return static_cast<double>(number) / kCalls; };
  return {client,
          manner,
          per_call(in_call.all),
          per_call(in_call.all - in_call.of_openssl),
          per_call(in_exchange.all),
          per_call(in_exchange.all - in_exchange.of_openssl)};
}

}  // namespace

std::vector<CallAllocations> count_allocations(const Server &server) {
  std::vector<CallAllocations> counts;
  for (const Manner manner : kManners)
    for (const Client client : kClients) counts.push_back(count(client, manner, server));
  return counts;
}

}  // namespace bench
