// Readers of RVDB4XX.INI, section "sort".
#include <cctype>
#include <cstring>

#include "kxcore.h"
#include "platform.h"

namespace rv {

uint8_t ReadAsciiSort() {
  return plat::ProfileInt("sort", "asciisort", 1) == 0 ? 0 : 1;
}

uint16_t ReadDateStyle() {
  static const struct {
    const char* name;
    uint16_t style;
  } kNames[] = {
      {"GREGOR", 1},   {"GREGORL", 2},  {"JULIAN", 3},    {"YMD", 4},
      {"DMY", 5},      {"GERMAN", 6},   {"EURODATE", 6},  {"GERMANL", 7},
      {"EURODATEL", 7}, {"BRITISH", 8}, {"BRITISHL", 9},  {"FRENCH", 10},
      {"FRENCHL", 11}, {"ITALIAN", 12}, {"ITALIANL", 13}, {"ENSI", 14},
      {"ENSIL", 15},
  };
  char value[10];
  plat::ProfileString("sort", "datesort", "", value, sizeof value);
  for (const auto& n : kNames) {
    size_t len = std::strlen(n.name);
    if (std::strlen(value) != len) continue;
    bool same = true;
    for (size_t i = 0; i < len && same; ++i)
      same = std::toupper(static_cast<unsigned char>(value[i])) == n.name[i];
    if (same) return n.style;
  }
  return 1;
}

void CopyString(char* dst, size_t size, const char* src) {
  if (!dst || size == 0) return;
  size_t n = 0;
  if (src)
    while (n + 1 < size && src[n]) ++n;
  if (n) std::memcpy(dst, src, n);
  dst[n] = '\0';
}

}  // namespace rv
