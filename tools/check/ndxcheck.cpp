// The NDX tree checker.
#include "ndxcheck.h"

#include <cstring>


namespace ndxcheck {
namespace {

using treecheck::Le16;
using treecheck::Le32;
constexpr uint32_t kBlock = 512;

struct Walker {
  const std::vector<uint8_t>& b;
  Result& res;
  unsigned keyLen, perBlock, group, next;
  bool numeric, unique, exact;
  treecheck::Seen seen{};
  int leafDepth = -1;

  bool Fail(const std::string& why, uint32_t block) {
    res.error = why + " in block " + std::to_string(block);
    return false;
  }
  // Negative, 0 or positive: keys in index order.
  int Order(const std::string& x, const std::string& y) const {
    if (!numeric) return x.compare(y);
    const double a = Number(x), c = Number(y);
    return a < c ? -1 : a > c ? 1 : 0;
  }
  // In-order walk of the subtree at `block`; *last is the last key of its
  // rightmost leaf (empty when that leaf holds none).
  bool Walk(uint32_t block, int depth, std::string* last) {
    if (block < 1 || block >= next || depth > 40 || !seen.Enter(block)) return Fail("bad or repeated child", block);
    ++res.treePages;
    const size_t at = size_t(block) * kBlock;
    const int n = int8_t(b[at]);
    if (n < 0 || unsigned(n) > perBlock) return Fail("key count", block);
    auto entry = [&](int i) { return at + 4 + size_t(i) * group; };
    const bool leaf = Le32(b, entry(0)) == 0;
    if (leaf) {
      if (leafDepth < 0) leafDepth = depth;
      if (leafDepth != depth) return Fail("leaves at different depths", block);
      last->clear();
      for (int i = 0; i < n; ++i) {
        std::string key(reinterpret_cast<const char*>(&b[entry(i) + 8]), keyLen);
        const uint32_t rec = Le32(b, entry(i) + 4);
        if (Le32(b, entry(i)) != 0) return Fail("child in a leaf", block);
        if (!res.keys.empty()) {
          const int c = Order(res.keys.back().first, key);
          if (c > 0 || (c == 0 && !unique && res.keys.back().second > rec)) return Fail("key order broken", block);
        }
        res.keys.emplace_back(key, rec);
        res.levels.push_back(depth);
        *last = key;
      }
      return true;
    }
    if (depth == 0 && n == 0) return Fail("a root branch without keys", block);
    for (int i = 0; i <= n; ++i) {
      const uint32_t child = Le32(b, entry(i));
      if (child == 0) return Fail("branch entry without a child", block);
      if (!Walk(child, depth + 1, last)) return false;
      if (i == n) break;
      const std::string key(reinterpret_cast<const char*>(&b[entry(i) + 8]), keyLen);
      if (Le32(b, entry(i) + 4) != 0) return Fail("branch entry with a record number", block);
      // Every key on its left is at most the branch key.
      if (!res.keys.empty() && Order(res.keys.back().first, key) > 0) return Fail("branch key below its left", block);
      if (exact && !last->empty() && *last != key) return Fail("branch key not the greatest on its left", block);
    }
    return true;
  }
};

}  // namespace

double Number(const std::string& key) {
  double v = 0;
  if (key.size() >= 8) std::memcpy(&v, key.data(), 8);
  return v;
}

Result Check(const std::string& path, bool exact) {
  Result res;
  const std::vector<uint8_t> b = treecheck::Load(path);
  auto fail = [&](const std::string& why) {
    res.error = why;
    return res;
  };
  if (b.size() < 2 * kBlock || b.size() % kBlock != 0) return fail("length not two or more whole blocks");
  const uint32_t root = Le32(b, 0), next = Le32(b, 4);
  const unsigned keyLen = Le16(b, 12), perBlock = Le16(b, 14), type = Le16(b, 16), group = Le16(b, 18);
  if (next * size_t(kBlock) > b.size()) return fail("file shorter than next block * 512");
  if (keyLen < 1 || keyLen > 100 || group != ((keyLen + 3) & ~3u) + 8 || perBlock != 504 / group || type > 1 ||
      (type == 1 && keyLen != 8))
    return fail("key length, group, keys per block or type wrong");
  Walker w{b, res, keyLen, perBlock, group, next, type == 1, (b[23] & 1) != 0, exact};
  std::string last;
  if (!w.Walk(root, 0, &last)) return res;
  res.depth = w.leafDepth + 1;
  for (uint32_t blk = 1; blk < next; ++blk) {
    if (blk < w.seen.pages.size() && w.seen.pages[blk]) continue;
    if (b[size_t(blk) * kBlock] != 255) return fail("block " + std::to_string(blk) + " neither in the tree nor free");
    w.seen.Enter(blk);
    ++res.freePages;
  }
  return treecheck::Finish(res, w.seen, next - 1);
}

}  // namespace ndxcheck
