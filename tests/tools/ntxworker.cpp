// A second process for the NTX tests: it changes a shared index through the
// public interface and reports the outcome in its exit code.
//
//   ntxworker add PATH KEY RECORD   exit 0 added
//   ntxworker del PATH KEY RECORD   exit 0 deleted, 4 not found
//   (1 the index did not open, 2 the operation failed, 100 bad arguments)
#include <cstdlib>
#include <string>

#include "rvdb4xx.h"

int main(int argc, char** argv) {
  if (argc != 5) return 100;
  const std::string cmd = argv[1];
  if (cmd != "add" && cmd != "del") return 100;
  if (KXDINIT(20, 4) != 0) return 101;
  int rc = 1;
  int16_t h = -1;
  if (KXDCOPENX(&h, argv[2], 0x400) >= 0) {
    const uint32_t record = uint32_t(std::strtoul(argv[4], nullptr, 0));
    int16_t s = cmd == "add" ? KXDCKADD(h, argv[3], record) : KXDCKDEL(h, argv[3], record);
    rc = s == 0 ? 0 : s == KX_NOTFOUND ? 4 : 2;
    if (KXDCCLOSE(h) != 0) rc = 2;
  }
  KXDTERM();
  return rc;
}
