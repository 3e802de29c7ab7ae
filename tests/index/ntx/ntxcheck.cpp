// The NTX tree checker used by the tests.
#include "ntxcheck.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

namespace ntxcheck {
namespace {

constexpr uint32_t kPage = 1024;

uint16_t U16(const std::vector<uint8_t>& b, size_t o) { return uint16_t(b[o] | b[o + 1] << 8); }
uint32_t U32(const std::vector<uint8_t>& b, size_t o) {
  return uint32_t(b[o]) | uint32_t(b[o + 1]) << 8 | uint32_t(b[o + 2]) << 16 |
         uint32_t(b[o + 3]) << 24;
}

struct Walker {
  const std::vector<uint8_t>& file;
  const Options& opt;
  Result& res;
  uint16_t keyLen, itemSize, maxKeys, half;
  std::set<uint32_t> seen;
  int leafDepth = -1;

  bool Fail(const std::string& why) {
    if (res.error.empty()) res.error = why;
    return false;
  }

  bool ValidPage(uint32_t off) const {
    return off >= kPage && off % kPage == 0 && off + kPage <= file.size();
  }

  // In-order walk of the subtree at `off`; keys must lie within [lo, hi].
  bool Walk(uint32_t off, int depth, const std::string* lo, const std::string* hi) {
    if (!ValidPage(off)) return Fail("child offset out of range: " + std::to_string(off));
    if (!seen.insert(off).second) return Fail("page reached twice: " + std::to_string(off));
    if (depth > 40) return Fail("tree too deep");
    ++res.treePages;
    uint16_t n = U16(file, off);
    if (n > maxKeys) return Fail("key count above maximum at " + std::to_string(off));
    bool isRoot = depth == 0;
    if (!isRoot && opt.minFill && n < half)
      return Fail("page below half full at " + std::to_string(off));
    std::vector<uint16_t> slots(maxKeys + 1);
    bool used[kPage] = {};
    for (int i = 0; i <= maxKeys; ++i) {
      slots[i] = U16(file, off + 2 + 2 * i);
      if (slots[i] < 2 * maxKeys + 4 || slots[i] + itemSize > kPage)
        return Fail("item offset outside the page at " + std::to_string(off));
      if (used[slots[i]]) 
        return Fail("two positions share an item slot at " + std::to_string(off));
      used[slots[i]] = true;
    }
    auto child = [&](int i) { return U32(file, off + slots[i]); };
    bool leaf = child(0) == 0;
    if (leaf) {
      if (leafDepth < 0) leafDepth = depth;
      if (leafDepth != depth) return Fail("leaves at different depths");
      for (int i = 1; i <= n; ++i)
        if (child(i) != 0) return Fail("child pointer in a leaf at " + std::to_string(off));
    } else {
      for (int i = 0; i <= n; ++i)
        if (child(i) == 0) return Fail("missing child pointer at " + std::to_string(off));
    }
    const std::string* left = lo;
    std::vector<std::string> keys(n);
    for (int i = 0; i < n; ++i) {
      keys[i].assign(reinterpret_cast<const char*>(&file[off + slots[i] + 8]), keyLen);
      if (!leaf && !Walk(child(i), depth + 1, left, &keys[i])) return false;
      if (left && keys[i] < *left) return Fail("key order broken at " + std::to_string(off));
      if (hi && keys[i] > *hi) return Fail("key above its separator at " + std::to_string(off));
      res.keys.emplace_back(keys[i], U32(file, off + slots[i] + 4));
      res.levels.push_back(depth);
      left = &keys[i];
    }
    if (!leaf && !Walk(child(n), depth + 1, left, hi)) return false;
    return true;
  }
};

}  // namespace

Result Check(const std::string& path, const Options& opt) {
  Result res;
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), {});
  if (file.size() < 2 * kPage) {
    res.error = "file shorter than two pages";
    return res;
  }
  if (file.size() % kPage != 0) {
    res.error = "file length not a whole number of pages";
    return res;
  }
  if (U16(file, 0) != 6) {
    res.error = "signature is not 6";
    return res;
  }
  Walker w{file, opt, res, U16(file, 14), U16(file, 12), U16(file, 18), U16(file, 20), {}, -1};
  res.counter = U16(file, 2);
  res.root = U32(file, 4);
  res.freeHead = U32(file, 8);
  res.keyLength = w.keyLen;
  res.maxKeys = w.maxKeys;
  if (w.keyLen < 1 || w.keyLen > 100 || w.itemSize != w.keyLen + 8) {
    res.error = "key length or item size wrong";
    return res;
  }
  unsigned m = (1020 / (w.keyLen + 10) - 1) & ~1u;
  if (w.maxKeys != m || w.half != m / 2) {
    res.error = "maximum keys or half page wrong";
    return res;
  }
  if (!w.Walk(res.root, 0, nullptr, nullptr)) return res;
  res.depth = w.leafDepth + 1;
  // Free list: valid pages, no cycle, none in the tree.
  for (uint32_t f = res.freeHead; f != 0; f = U32(file, f)) {
    if (!w.ValidPage(f)) {
      res.error = "free page offset out of range";
      return res;
    }
    if (!w.seen.insert(f).second) {
      res.error = "free page also in the tree or listed twice";
      return res;
    }
    ++res.freePages;
  }
  if (opt.allPagesAccounted && w.seen.size() != file.size() / kPage - 1) {
    res.error = "pages neither in the tree nor free: " +
                std::to_string(file.size() / kPage - 1 - w.seen.size());
    return res;
  }
  if (opt.uniqueRecords) {
    std::set<uint32_t> recs;
    for (auto& k : res.keys)
      if (!recs.insert(k.second).second) {
        res.error = "record number twice: " + std::to_string(k.second);
        return res;
      }
  }
  res.ok = true;
  return res;
}

}  // namespace ntxcheck
