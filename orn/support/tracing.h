// How this layer traces its own doings.
#ifndef ORN_SUPPORT_TRACING_H
#define ORN_SUPPORT_TRACING_H

#include <atomic>
#include <string>
#include <string_view>

#include "orn/support.h"

#define ORN_TRACE(...) TraceT(0, "orn/support", __LINE__, __VA_ARGS__)

namespace orn {

inline std::atomic<bool> trace_is_on{false};
inline std::atomic<bool> trace_reveals_secrets{false};

// Appends text with control characters and non-ASCII bytes as \xNN. A line feed begins an indented line, so that text
// from a server can never look like a line of its own.
void append_printable(std::string &lines, std::string_view text);

// Writes a message of one or more lines behind a head of time, thread, path and line, whole.
void write_trace(const char *path, int line, const std::string &message);

}  // namespace orn

#endif
