// Loaded before a program's libraries: its flushes to the disk never end, from the one on that STALL_AT counts.
#include <unistd.h>

#include <cstdlib>

extern "C" int fsync(int) {
  static int num_flushes = 0;
  const char *first = std::getenv("STALL_AT");
  if (!first || ++num_flushes < std::atoi(first)) return 0;
  constexpr char kSaid[] = "stalled\n";
  if (write(STDERR_FILENO, kSaid, sizeof kSaid - 1) < 0) return -1;
  for (;;) pause();
}
