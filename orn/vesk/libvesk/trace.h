// Trace lines of the public calls and their frame. The path is the one that log readers filter by, whatever file a line
// is from.
#pragma once

#include "orn/support.h"

#define LIBVESK_PATH "orn/vesk/libvesk"
#define LIBVESK_TRACE(...) TraceT(0, LIBVESK_PATH, __LINE__, __VA_ARGS__)
