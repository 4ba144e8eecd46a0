// Listing all key names into a file, against a bare loop that reads the same bytes from the same server and writes them
// to a file. Rounds are interleaved and medians compared. Tells the process's peak memory as well: it must not grow
// with the number of names.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "bench/bare_client.h"
#include "bench/server.h"

namespace {

using bench::server;

constexpr int kRounds = 7;
constexpr std::size_t kLineBytes = 41;

double seconds_of(auto work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

void list(const char *path) {
  bench::require_done(qRetrieveKeyNameList(&server().paths, server().host.c_str(), server().port, path), "list");
}

// The server closes the connection behind the last page.
void bare_list(const char *path) {
  const File file(std::fopen(path, "w"), std::fclose);
  bench::BareConnection connection;
  connection.write("000041037");
  std::vector<char> room(16384);
  while (const std::size_t got = connection.read(room)) std::fwrite(room.data(), 1, got, file.get());
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

std::size_t lines_in(const char *path) {
  const File file(std::fopen(path, "r"), std::fclose);
  std::fseek(file.get(), 0, SEEK_END);
  return static_cast<std::size_t>(std::ftell(file.get())) / kLineBytes;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: names_bench FILE\n");
    return 2;
  }
  std::vector<double> ours, bare;
  for (int round = 0; round < kRounds; ++round) {
    bare.push_back(seconds_of([&] { bare_list(argv[1]); }));
    ours.push_back(seconds_of([&] { list(argv[1]); }));
  }
  const std::size_t names = lines_in(argv[1]);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%10zu names: %7.3f us a name, %.2f of the bare loop, peak memory %ld kB\n", names,
              1e6 * median(ours) / static_cast<double>(std::max<std::size_t>(names, 1)), median(ours) / median(bare),
              usage.ru_maxrss);
  return 0;
}
