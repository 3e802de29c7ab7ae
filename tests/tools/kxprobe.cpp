// A second process for the tests: it does one thing to a shared file and
// reports the outcome in its exit code.
//
//   kxprobe lock PATH OFFSET LENGTH   exit 0 locked, 37 refused, 1 other
//   kxprobe open PATH MODE            exit 0 opened, 2 refused
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kxcore.h"

namespace {

int Lock(const char* path, uint32_t off, uint32_t len) {
  int16_t file = 0;
  if (!rv::files::Open(path, 15 | 0x8000, &file)) return 1;
  int16_t s = rv::Hlock(file, 0, off, len);
  if (s == 0) return 0;
  return s == KX_ERR_LOCK ? 37 : 1;
}

int Open(const char* path, uint16_t mode) {
  int16_t file = 0;
  return rv::files::Open(path, uint16_t(mode | 0x8000), &file) ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 100;
  if (KXDINIT(20, 4) != 0) return 101;
  std::string cmd = argv[1];
  int rc = 100;
  if (cmd == "lock" && argc == 5) {
    rc = Lock(argv[2], uint32_t(std::strtoul(argv[3], nullptr, 0)), uint32_t(std::strtoul(argv[4], nullptr, 0)));
  } else if (cmd == "open" && argc == 4) {
    rc = Open(argv[2], uint16_t(std::strtoul(argv[3], nullptr, 0)));
  }
  KXDTERM();
  return rc;
}
