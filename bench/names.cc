#include "bench/names.h"

#include <sys/resource.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "bench/bare_client.h"

namespace bench {

namespace {

struct Closer {
  void operator()(std::FILE *file) const { std::fclose(file); }
};

void list(const Server &server, const char *path) {
  require_done(qRetrieveKeyNameList(&server.paths, server.host.c_str(), server.port, path), "qRetrieveKeyNameList");
}

// The server closes the connection behind the last page.
void bare_list(const Server &server, const char *path) {
  const std::unique_ptr<std::FILE, Closer> file(std::fopen(path, "w"));
  require(file != nullptr, "opening the file of names");
  const BareContext context = read_context(server);
  BareConnection connection(server, context.get(), nullptr);
  connection.write("000041037");
  static char room[16384];
  while (const std::size_t got = connection.read(room)) std::fwrite(room, 1, got, file.get());
}

std::size_t names_in(const std::string &path) {
  constexpr std::size_t kLineBytes = 41;
  return std::filesystem::file_size(path) / kLineBytes;
}

long peak_memory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

template <typename List>
void measure(List list, const Server &server, const std::string &file, std::size_t names, ListFigures &figures) {
  const Stopwatch watch;
  list(server, file.c_str());
  const Cost cost = watch.read();
  figures.microseconds.push_back(1e6 * cost.processor / static_cast<double>(names));
  figures.clock_microseconds.push_back(1e6 * cost.clock / static_cast<double>(names));
}

}  // namespace

NameFigures measure_names(const Server &with_few, const Server &with_many, const std::string &file, int rounds) {
  NameFigures figures{};
  // A call to each server, so that what its kind of certificates takes is there before.
  list(with_few, file.c_str());
  figures.few = names_in(file);
  require_done(qAdminNoop(&with_many.paths, with_many.host.c_str(), with_many.port), "qAdminNoop");
  const long before = peak_memory();
  list(with_many, file.c_str());
  figures.memory_growth = peak_memory() - before;
  figures.many = names_in(file);
  for (int round = 0; round < rounds; ++round) {
    measure(bare_list, with_many, file, figures.many, figures.bare);
    measure(list, with_many, file, figures.many, figures.library);
  }
  return figures;
}

}  // namespace bench
