// HTempName: a free temporary file name beside a file.
#include <cctype>
#include <cstdio>

#include "kxcore.h"

namespace rv {

int16_t HTempName(const char* beside, const char* extension, char* out, size_t size) {
  size_t split = 0;
  for (size_t i = 0; beside[i]; ++i)
    if (beside[i] == ':' || beside[i] == '\\' || beside[i] == '/') split = i + 1;
  for (int number = 0; number <= 0x7FFF; ++number) {
    int n = std::snprintf(out, size, "%.*s%d%s", int(split), beside, number, extension);
    if (n < 0 || size_t(n) >= size) return KX_FAIL(KX_ERR_FILENAME);
    // Never the file itself, which need not exist yet (names may ignore case).
    size_t i = 0;
    while (out[i] && std::tolower(static_cast<unsigned char>(out[i])) ==
                         std::tolower(static_cast<unsigned char>(beside[i])))
      ++i;
    if (out[i] == '\0' && beside[i] == '\0') continue;
    int16_t exists = HEXIST(out);
    if (exists < 0) return KX_FAIL(exists);
    if (exists == 0) return 0;
  }
  return KX_FAIL(KX_ERR_OPEN);
}

}  // namespace rv
