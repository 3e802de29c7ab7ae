// A second process for the index tests: it changes a shared NTX index (or
// an NDX index, when the path ends in ".ndx") through the public interface
// and reports the outcome in its exit code. Closing an NDX index gives back
// the blocks the change freed.
//
//   ntxworker add PATH KEY RECORD   exit 0 added
//   ntxworker del PATH KEY RECORD   exit 0 deleted, 4 not found
//   (1 the index did not open, 2 the operation failed, 100 bad arguments,
//   102 a family this build does not have)
#include <cstdlib>
#include <string>

#include "rvdb4xx.h"

namespace {

struct Family {
  int16_t(KXAPI* open)(int16_t*, const char*, uint16_t);
  int16_t(KXAPI* add)(int16_t, const char*, uint32_t);
  int16_t(KXAPI* del)(int16_t, const char*, uint32_t);
  int16_t(KXAPI* close)(int16_t);
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 100;
  const std::string cmd = argv[1], path = argv[2];
  if (cmd != "add" && cmd != "del") return 100;
  const bool ndx = path.size() > 4 && (path.compare(path.size() - 4, 4, ".ndx") == 0 ||
                                       path.compare(path.size() - 4, 4, ".NDX") == 0);
  Family f{};
#if defined(WORKER_NDX)
  if (ndx) f = {KXDNOPENX, KXDNKADD, KXDNKDEL, KXDNCLOSE};
#endif
#if defined(WORKER_NTX)
  if (!ndx) f = {KXDCOPENX, KXDCKADD, KXDCKDEL, KXDCCLOSE};
#endif
  if (!f.open) return 102;
  if (KXDINIT(20, 4) != 0) return 101;
  int rc = 1;
  int16_t h = -1;
  if (f.open(&h, argv[2], 0x400) >= 0) {
    const uint32_t record = uint32_t(std::strtoul(argv[4], nullptr, 0));
    int16_t s = (cmd == "add" ? f.add : f.del)(h, argv[3], record);
    rc = s == 0 ? 0 : s == KX_NOTFOUND ? 4 : 2;
    if (f.close(h) != 0) rc = 2;
  }
  KXDTERM();
  return rc;
}
