#include "bench/next_keys.h"

#include <memory>

#include "bench/callers.h"
#include "bench/server_log.h"

namespace bench {

namespace {

// Makes more keys than a measurement draws, for the template that is there from an earlier one or for a new one.
void generate_keys(const Server &server) {
  constexpr std::uint32_t kKeys = 99999;
  const auto generate = [&](char mode) {
    return qAutoGenKeys(&server.paths, server.host.c_str(), server.port, kConstant, mode, kKeys);
  };
  if (generate('a') != 0) require_done(generate('i'), "qAutoGenKeys");
}

NextKeyFigures measure(const Server &server, int clients, int rounds) {
  const auto next_key = callers(Client::kLibrary, Manner::kResumed, server, Wanted::kNextKey);
  const auto answer = callers(Client::kLibrary, Manner::kResumed, server, Wanted::kAnswer);
  const auto bare_answer = callers(Client::kBare, Manner::kResumed, server, Wanted::kAnswer);
  NextKeyFigures figures{clients, {}, {}, {}, 0};
  const ServerLog log(server);
  for (int round = 0; round < rounds; ++round)
    measure_side_by_side(
        {{*next_key, figures.next_key}, {*answer, figures.answer}, {*bare_answer, figures.bare_answer}}, clients);
  figures.answering = spread_of(log.durations_of("AdminNoop")).median;
  return figures;
}

}  // namespace

TimeShares shares_of(const NextKeyFigures &figures) {
  // Of a client, for one call of a round.
  const auto microseconds = [&](const CallFigures &calls, std::size_t round) {
    return 1e6 * figures.clients / calls.per_second[round];
  };
  std::vector<double> tls;
  std::vector<double> store;
  std::vector<double> own;
  for (std::size_t round = 0; round < figures.next_key.per_second.size(); ++round) {
    const double whole = microseconds(figures.next_key, round);
    tls.push_back((microseconds(figures.bare_answer, round) - figures.answering) / whole);
    store.push_back((whole - microseconds(figures.answer, round)) / whole);
    own.push_back(1 - tls.back() - store.back());
  }
  return {spread_of(tls), spread_of(store), spread_of(own)};
}

std::vector<NextKeyFigures> measure_next_keys(const Server &server, int rounds) {
  std::vector<NextKeyFigures> all;
  for (const int clients : {1, 8, 64}) {
    generate_keys(server);
    all.push_back(measure(server, clients, rounds));
  }
  return all;
}

}  // namespace bench
