// Trace lines of the transaction functions. The path is the one that log readers filter by, whatever file a line is
// from.
#pragma once

#include "orn/support.h"

#define SKEYS_PATH "orn/vesk/skeys"
#define SKEYS_TRACE(...) TraceT(0, SKEYS_PATH, __LINE__, __VA_ARGS__)
