// vesk_bench measure ECDSA_DIRECTORY RSA_DIRECTORY OUTPUT_DIRECTORY
//   measures against the servers that run in two directories, the first of which has many keys; writes a table to
//   standard output, and results.json and results.svg.
// vesk_bench call CLIENT MANNER COUNT DIRECTORY
//   makes calls and nothing else, for strace, perf and the like.
#include <fmt/format.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/chart.h"
#include "bench/report.h"

namespace bench {

namespace {

constexpr int kCallRounds = 11;
constexpr int kNameRounds = 7;

void measure_host_names(Results &results, const Server &server) {
  Server named = server;
  named.host = "localhost";
  const auto by_address = callers(Client::kLibrary, Manner::kResumed, server);
  const auto by_host_name = callers(Client::kLibrary, Manner::kResumed, named);
  for (int round = 0; round < results.rounds; ++round)
    measure_side_by_side({{*by_address, results.by_address}, {*by_host_name, results.by_host_name}}, 1);
}

int measure(const std::string &ecdsa_directory, const std::string &rsa_directory, const std::string &output) {
  const std::vector<Server> servers = {server_in(ecdsa_directory, "ECDSA"), server_in(rsa_directory, "RSA")};
  const Server &ecdsa = servers[0];
  Results results{};
  results.rounds = kCallRounds;
  results.names = measure_names(servers[1], ecdsa, rsa_directory + "/names", kNameRounds);
  results.calls = measure_all_calls(servers, results.rounds);
  measure_host_names(results, ecdsa);
  results.allocations = count_allocations(ecdsa);
  results.system_calls = count_system_calls(ecdsa, ecdsa_directory);
  results.trace = measure_trace(ecdsa);
  results.server_times = measure_store_reads(ecdsa);
  results.next_keys = measure_next_keys(ecdsa, results.rounds);
  print_table(results);
  std::ofstream json(output + "/results.json");
  json << to_json(results).dump(2) << '\n';
  std::ofstream chart(output + "/results.svg");
  chart << chart_of(results);
  require(json.flush().good() && chart.flush().good(), "writing the results");
  return EXIT_SUCCESS;
}

template <typename Choices>
auto named(const Choices &choices, const std::string &name) {
  for (const auto choice : choices)
    if (name == name_of(choice)) return choice;
  require(false, ("finding out what " + name + " means").c_str());
  return choices.front();
}

int call(const std::string &client, const std::string &manner, int count, const std::string &directory) {
  const Server server = server_in(directory, "");
  const auto made = callers(named(kClients, client), named(kManners, manner), server);
  const auto caller = made->make(0);
  for (int i = 0; i < count; ++i) caller->call();
  return EXIT_SUCCESS;
}

}  // namespace

}  // namespace bench

int main(int argc, char **argv) {
  bench::count_openssl_allocations();
  // The bare client writes as if its server never went away.
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 4 && words[0] == "measure") return bench::measure(words[1], words[2], words[3]);
  if (words.size() == 5 && words[0] == "call")
    return bench::call(words[1], words[2], std::atoi(words[3].c_str()), words[4]);
  fmt::print(stderr,
             "usage: vesk_bench measure ECDSA_DIRECTORY RSA_DIRECTORY OUTPUT_DIRECTORY\n"
             "       vesk_bench call CLIENT MANNER COUNT DIRECTORY\n");
  return 2;
}
