// The NTX tree checker.
#include "ntxcheck.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <fstream>
#include <string_view>

namespace ntxcheck {
namespace {

constexpr uint32_t kPage = 1024;
using treecheck::Le16;
using treecheck::Le32;

struct Walker {
  const std::vector<uint8_t>& b;
  const Options& opt;
  Result& res;
  unsigned keyLen, maxKeys;
  treecheck::Seen seen{};  // by page number
  int leafDepth = -1;

  bool Fail(const std::string& why, uint32_t off) {
    res.error = why + " at " + std::to_string(off);
    return false;
  }
  bool IsPage(uint32_t off) const { return off >= kPage && off % kPage == 0 && off + kPage <= b.size(); }

  std::string_view KeyAt(uint32_t item) const {
    return {reinterpret_cast<const char*>(&b[item + 8]), keyLen};
  }

  // In-order walk of the subtree at `off`, whose keys lie within [lo, hi]
  // (views of the file's bytes; empty data() for no bound).
  bool Walk(uint32_t off, int depth, std::string_view lo, std::string_view hi) {
    if (!IsPage(off) || depth > 40 || !seen.Enter(off / kPage)) return Fail("bad or repeated child", off);
    ++res.treePages;
    const unsigned n = Le16(b, off);
    if (n > maxKeys || (depth > 0 && opt.minFill && n < maxKeys / 2)) return Fail("key count", off);
    std::array<uint32_t, 128> item;  // at most 100 keys a page
    std::bitset<kPage> used;
    for (unsigned i = 0; i <= maxKeys; ++i) {
      item[i] = off + Le16(b, off + 2 + 2 * i);
      if (item[i] < off + 2 * maxKeys + 4 || item[i] + keyLen + 8 > off + kPage || used[item[i] - off])
        return Fail("item offset outside the page or shared", off);
      used[item[i] - off] = true;
    }
    const bool leaf = Le32(b, item[0]) == 0;
    if (leaf && leafDepth < 0) leafDepth = depth;
    if (leaf && leafDepth != depth) return Fail("leaves at different depths", off);
    for (unsigned i = 0; i <= n; ++i)
      if ((Le32(b, item[i]) == 0) != leaf) return Fail("child pointer wrong for the page's kind", off);
    for (unsigned i = 0; i <= n; ++i) {
      const std::string_view key = i < n ? KeyAt(item[i]) : hi;
      if (!leaf && !Walk(Le32(b, item[i]), depth + 1, lo, key)) return false;
      if (i == n) break;
      if ((lo.data() && key < lo) || (hi.data() && key > hi)) return Fail("key order broken", off);
      res.keys.emplace_back(std::string(key), Le32(b, item[i] + 4));
      res.levels.push_back(depth);
      lo = key;
    }
    return true;
  }
};

}  // namespace

Result Check(const std::string& path, const Options& opt) {
  Result res;
  const std::vector<uint8_t> b = treecheck::Load(path);
  auto fail = [&](const char* why) {
    res.error = why;
    return res;
  };
  if (b.size() < 2 * kPage || b.size() % kPage != 0) return fail("length not two or more whole pages");
  const unsigned keyLen = Le16(b, 14), m = Le16(b, 18);
  if (Le16(b, 0) != 6 || keyLen < 1 || keyLen > 100 || Le16(b, 12) != keyLen + 8)
    return fail("signature, key length or item size wrong");
  if (m != ((1020 / (keyLen + 10) - 1) & ~1u) || Le16(b, 20) != m / 2) return fail("maximum keys or half page wrong");
  Walker w{b, opt, res, keyLen, m};
  res.keys.reserve(b.size() / kPage * (m / 2 + 1));
  if (!w.Walk(Le32(b, 4), 0, {}, {})) return res;
  res.depth = w.leafDepth + 1;
  for (uint32_t f = Le32(b, 8); f != 0; f = Le32(b, f), ++res.freePages)
    if (!w.IsPage(f) || !w.seen.Enter(f / kPage)) return fail("free list: bad offset, a cycle or a tree page");
  return treecheck::Finish(res, w.seen, b.size() / kPage - 1);
}

}  // namespace ntxcheck
