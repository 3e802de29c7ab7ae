// Helpers for the date and time tests: statuses as they read, and calls
// that write text.
#pragma once

#include <string>

#include "calendar.h"
#include "testutil.h"

using testutil::InOrder;

// A status, then cleared so that it does not block the next call.
inline int16_t Clear(int16_t s) { KXESCODE(0); return s; }
inline std::string St(int16_t s) { return "status " + std::to_string(s); }
// A call that writes text into `out`: the text, or its status (then cleared).
#define OUT(call) [&] { char out[32] = ""; const int16_t s_ = Clear(call); return s_ ? St(s_) : std::string(out); }()
