// The table of user procedures: lookup and release. The table lives in the
// working copy's procedure block, sorted in ascending byte order of names.
#include <cstring>

#include "expr.h"

namespace rv::expr {

ProcEntry* ProcTable() {
  if (g_work.procCapacity == 0) return nullptr;
  void* p = nullptr;
  if (MemLock(&p, g_work.procBlock) < 0) return nullptr;
  MemUnlock(g_work.procBlock);  // blocks stay put while the table exists
  return static_cast<ProcEntry*>(p);
}

namespace {

// Compares an entry's name with the text over the name's length, as
// unsigned bytes; the text's terminator sorts below every name byte.
int CompareName(const ProcEntry& e, const char* text) {
  void* p = nullptr;
  if (MemLock(&p, e.nameBlock) < 0) return 1;
  const auto* name = static_cast<const unsigned char*>(p);
  const auto* t = reinterpret_cast<const unsigned char*>(text);
  int r = 0;
  for (uint16_t i = 0; i < e.nameLength && r == 0; ++i) {
    if (name[i] != t[i]) r = name[i] < t[i] ? -1 : 1;
    if (t[i] == 0) break;
  }
  MemUnlock(e.nameBlock);
  return r;
}

}  // namespace

int FindProc(const char* text) {
  ProcEntry* table = ProcTable();
  int lo = 0, hi = table ? g_work.procCount - 1 : -1;
  while (lo <= hi) {
    int mid = (lo + hi) / 2;
    int c = CompareName(table[mid], text);
    if (c == 0) return mid;
    if (c < 0)
      lo = mid + 1;
    else
      hi = mid - 1;
  }
  return -lo - 1;
}

void SaveProcs() {
  if (Context* c = FindContext()) {
    c->procBlock = g_work.procBlock;
    c->procCount = g_work.procCount;
    c->procCapacity = g_work.procCapacity;
  }
}

// Frees every entry's name and the table itself (KXDTERM frees the table
// block after this; a table emptied by KXDXDEL is freed here).
void ReleaseEntries() {
  ProcEntry* table = ProcTable();
  for (uint16_t i = 0; table && i < g_work.procCount; ++i) MemFree(table[i].nameBlock);
  g_work.procCount = 0;
}

void ReleaseProcTable() {
  ReleaseEntries();
  if (g_work.procCapacity != 0) MemFree(g_work.procBlock);
  g_work.procBlock = static_cast<KXBLOCK>(~KXBLOCK(0));
  g_work.procCount = 0;
  g_work.procCapacity = 0;
  SaveProcs();
}

namespace {
// KXDTERM frees the table block itself after the entries.
struct Hook {
  Hook() { g_releaseProcedures = &ReleaseEntries; }
} g_hook;
}  // namespace

void Normalize(char* text) {
  char* out = text;
  for (char* in = text; *in; ++in) {
    if (*in == ' ') continue;
    char c = *in;
    *out++ = (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
  }
  *out = '\0';
}

}  // namespace rv::expr
