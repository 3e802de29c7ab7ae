// The error status of the calling process, the sticky rule and the error log.
#include <cstdio>

#include "kxcore.h"

namespace rv {

namespace {
int16_t g_lastStatus = 0;  // mirror of the last status read or set
}

int16_t SetStatus(int16_t code) {
  g_lastStatus = code;
  if (Context* c = FindContext()) c->status = code;
  return code;
}

int16_t GetStatus() {
  Context* c = FindContext();
  return c ? c->status : 0;
}

void LogFailure(const char* module, int line, int16_t code) {
  if (g_work.logMode == 0 || g_work.logFile[0] == '\0') return;
  // Opened and closed for every line, so the log survives a crash of the host.
  FILE* f = std::fopen(g_work.logFile, "a+");
  if (!f) return;
  std::fprintf(f, "%s\t%d\t%d\n", module, line, static_cast<int>(code));
  std::fclose(f);
}

int16_t Fail(int16_t code, const char* module, int line) {
  SetStatus(code);
  LogFailure(module, line, code);
  return code;
}

int16_t Sticky(const char* module, int line) {
  Context* c = FindContext();
  if (!c) {
    g_lastStatus = KX_ERR_NOINIT;
    return KX_ERR_NOINIT;
  }
  if (c->status < 0) {
    LogFailure(module, line, c->status);
    return c->status;
  }
  return 0;
}

int16_t Enter(const char* module, int line) {
  Context* c = FindContext();
  if (!c) {
    g_lastStatus = KX_ERR_NOINIT;
    return KX_ERR_NOINIT;
  }
  LoadWorking(c);
  if (c->status < 0) {
    LogFailure(module, line, c->status);
    return c->status;
  }
  c->status = 0;
  return 0;
}

int16_t MirrorStatus() { return g_lastStatus; }
void SetMirror(int16_t code) { g_lastStatus = code; }

}  // namespace rv
