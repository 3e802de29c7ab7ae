// The NTX tree checker used by the tests.
#include "ntxcheck.h"

#include "testutil.h"

namespace ntxcheck {
namespace {

using testutil::Le16;
using testutil::Le32;
constexpr uint32_t kPage = 1024;

struct Walker {
  const std::vector<uint8_t>& b;
  const Options& opt;
  Result& res;
  unsigned keyLen, maxKeys;
  treecheck::Seen seen{};
  int leafDepth = -1;

  bool Fail(const std::string& why, uint32_t off) {
    res.error = why + " at " + std::to_string(off);
    return false;
  }
  bool IsPage(uint32_t off) const { return off >= kPage && off % kPage == 0 && off + kPage <= b.size(); }

  // In-order walk of the subtree at `off`, whose keys lie within [lo, hi].
  bool Walk(uint32_t off, int depth, const std::string* lo, const std::string* hi) {
    if (!IsPage(off) || depth > 40 || !seen.Enter(off)) return Fail("bad or repeated child", off);
    ++res.treePages;
    const unsigned n = Le16(b, off);
    if (n > maxKeys || (depth > 0 && opt.minFill && n < maxKeys / 2)) return Fail("key count", off);
    std::vector<uint32_t> item(maxKeys + 1);
    std::vector<bool> used(kPage);
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
    std::vector<std::string> keys(n);
    for (unsigned i = 0; i <= n; ++i) {
      if (i < n) keys[i].assign(reinterpret_cast<const char*>(&b[item[i] + 8]), keyLen);
      if (!leaf && !Walk(Le32(b, item[i]), depth + 1, lo, i < n ? &keys[i] : hi)) return false;
      if (i == n) break;
      if ((lo && keys[i] < *lo) || (hi && keys[i] > *hi)) return Fail("key order broken", off);
      res.keys.emplace_back(keys[i], Le32(b, item[i] + 4));
      res.levels.push_back(depth);
      lo = &keys[i];
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
  if (!w.Walk(Le32(b, 4), 0, nullptr, nullptr)) return res;
  res.depth = w.leafDepth + 1;
  for (uint32_t f = Le32(b, 8); f != 0; f = Le32(b, f), ++res.freePages)
    if (!w.IsPage(f) || !w.seen.Enter(f)) return fail("free list: bad offset, a cycle or a tree page");
  return treecheck::Finish(res, w.seen, b.size() / kPage - 1);
}

}  // namespace ntxcheck
