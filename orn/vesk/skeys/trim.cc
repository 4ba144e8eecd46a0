// Trimming of the blank-padded fields of a reply.
#include <cstring>

#include "orn/vesk.h"

char *strip_with_length(const char *source, char *destination, size_t length) {
  std::memmove(destination, source, length + 1);
  for (size_t end = length; end > 0; --end) {
    const char last = destination[end - 1];
    if (last != ' ' && last != '\t' && last != '\n') {
      destination[end] = '\0';
      return destination;
    }
  }
  return destination;  // all blank: unchanged
}

char *strip(const char *source, char *destination) {
  return strip_with_length(source, destination, std::strlen(source));
}
