// The MDX checker.
#include "mdxcheck.h"

#include <cmath>
#include <cstring>

namespace mdxcheck {
namespace {

using treecheck::Le16;
using treecheck::Le32;
constexpr uint32_t kPage = 512;

struct Walker {
  const std::vector<uint8_t>& b;
  treecheck::Result& res;
  treecheck::Seen& seen;
  unsigned keyLen, perNode, item, multiplier, pages;
  char type;
  bool unique, descending;
  int leafDepth = -1;

  bool Fail(const std::string& why, uint32_t page) {
    res.error = why + " in the block at page " + std::to_string(page);
    return false;
  }
  int Order(const std::string& x, const std::string& y) const {
    int c = 0;
    if (type == 'C') {
      c = x.compare(y);
    } else if (type == 'N') {
      const long double a = Number(x), d = Number(y);
      c = a < d ? -1 : a > d ? 1 : 0;
    } else {
      double a = 0, d = 0;
      std::memcpy(&a, x.data(), 8);
      std::memcpy(&d, y.data(), 8);
      c = a < d ? -1 : a > d ? 1 : 0;
    }
    return descending ? -c : c;
  }
  bool Enter(uint32_t page) {
    if (page < 4 || page + multiplier > pages) return false;
    for (uint32_t p = page; p < page + multiplier; ++p)
      if (!seen.Enter(p)) return false;
    return true;
  }
  bool Walk(uint32_t page, int depth) {
    if (depth > 40 || !Enter(page)) return Fail("bad or repeated child", page);
    ++res.treePages;
    const size_t at = size_t(page) * kPage;
    const uint32_t n = Le32(b, at);
    if (n > perNode) return Fail("key count", page);
    auto entry = [&](uint32_t i) { return at + 8 + size_t(i) * item; };
    const bool leaf = Le32(b, entry(n)) == 0;
    if (leaf) {
      if (leafDepth < 0) leafDepth = depth;
      if (leafDepth != depth) return Fail("leaves at different depths", page);
      for (uint32_t i = 0; i < n; ++i) {
        std::string key(reinterpret_cast<const char*>(&b[entry(i) + 4]), keyLen);
        const uint32_t rec = Le32(b, entry(i));
        if (rec == 0) return Fail("record number 0", page);
        if (!res.keys.empty()) {
          const int c = Order(res.keys.back().first, key);
          if (c > 0 || (c == 0 && !unique && res.keys.back().second > rec)) return Fail("key order broken", page);
        }
        res.keys.emplace_back(key, rec);
        res.levels.push_back(depth);
      }
      return true;
    }
    if (depth == 0 && n == 0) return Fail("a root branch without keys", page);
    for (uint32_t i = 0; i <= n; ++i) {
      const uint32_t child = Le32(b, entry(i));
      if (child == 0) return Fail("branch item without a child", page);
      if (!Walk(child, depth + 1)) return false;
      if (i == n) break;
      const std::string key(reinterpret_cast<const char*>(&b[entry(i) + 4]), keyLen);
      if (!res.keys.empty() && Order(res.keys.back().first, key) > 0) return Fail("branch key below its left", page);
    }
    return true;
  }
};

}  // namespace

long double Number(const std::string& key) {
  if (key.size() < 12) return 0;
  const auto* k = reinterpret_cast<const uint8_t*>(key.data());
  const int digits = (k[1] >> 2) & 0x1F;
  long double v = 0;
  for (int i = 0; i < digits && i < 20; ++i) v = v * 10 + ((k[2 + i / 2] >> (i % 2 ? 0 : 4)) & 0x0F);
  if (digits == 0) return 0;
  v *= std::pow(10.0L, int(k[0]) - 0x34 - digits);
  return (k[1] & 0x80) ? -v : v;
}

Result Check(const std::string& path) {
  Result res;
  const std::vector<uint8_t> b = treecheck::Load(path);
  auto fail = [&](const std::string& why) {
    res.error = why;
    return res;
  };
  if (b.size() < 2048) return fail("shorter than its header");
  const unsigned multiplier = Le16(b, 20), tags = Le16(b, 28);
  const uint32_t pages = Le32(b, 32), freePage = Le32(b, 36);
  if (b[0] != 2 || multiplier < 1 || multiplier > 32 || Le16(b, 22) != multiplier * kPage || b[25] != 0x30 ||
      b[26] != 0x20 || tags > 47 || b[529] != 1)
    return fail("header fields");
  if (pages < 4 || size_t(pages) * kPage > b.size()) return fail("page count beyond the file");
  treecheck::Seen seen;
  for (uint32_t p = 0; p < 4; ++p) seen.Enter(p);
  // The name tree rebuilt from the names in table order.
  auto entry = [&](unsigned i) { return size_t(544 + (i - 1) * 32); };
  std::vector<uint8_t> left(tags + 1), right(tags + 1), parent(tags + 1);
  for (unsigned i = 2; i <= tags; ++i) {
    unsigned at = 1;
    for (;;) {
      const bool l = std::memcmp(&b[entry(i) + 4], &b[entry(at) + 4], 11) < 0;
      uint8_t& link = l ? left[at] : right[at];
      if (!link) {
        link = uint8_t(i);
        parent[i] = uint8_t(at);
        break;
      }
      at = link;
    }
  }
  for (unsigned i = 1; i <= tags; ++i) {
    const size_t e = entry(i);
    Tag t;
    t.name.assign(reinterpret_cast<const char*>(&b[e + 4]), strnlen(reinterpret_cast<const char*>(&b[e + 4]), 11));
    if (b[e + 16] != left[i] || b[e + 17] != right[i] || b[e + 18] != parent[i]) return fail("tag-name tree of " + t.name);
    if (t.name.empty() || b[e + 15] != 0x10 || b[e + 19] != 2) return fail("tag entry of " + t.name);
    const uint32_t head = Le32(b, e);
    Walker w{b, t.tree, seen, 0, 0, 0, multiplier, pages, 0, false, false};
    if (!w.Enter(head)) return fail("tag header page of " + t.name);
    const size_t h = size_t(head) * kPage;
    t.type = char(b[h + 9]);
    const uint8_t format = b[h + 8];
    t.unique = b[h + 23] != 0;
    t.descending = (format & 0x08) != 0;
    t.expression.assign(reinterpret_cast<const char*>(&b[h + 24]), strnlen(reinterpret_cast<const char*>(&b[h + 24]), 221));
    w.keyLen = Le16(b, h + 12);
    w.perNode = Le16(b, h + 14);
    w.item = Le16(b, h + 18);
    w.type = t.type;
    w.unique = t.unique;
    w.descending = t.descending;
    if (t.type != char(b[e + 20]) || (format & ~0x48) != 0x10 || ((format & 0x40) != 0) != t.unique)
      return fail("type or format of " + t.name);
    const unsigned want = t.type == 'N' ? 12 : t.type == 'D' ? 8 : w.keyLen;
    if ((t.type != 'C' && t.type != 'N' && t.type != 'D') || w.keyLen != want || w.keyLen < 1 || w.keyLen > 100 ||
        w.item != ((w.keyLen + 7) & ~3u) || w.perNode != (multiplier * kPage - 12) / w.item ||
        Le16(b, h + 16) != (t.type == 'D' ? 1 : 0))
      return fail("key length, item length, keys per node of " + t.name);
    if (!w.Walk(Le32(b, h), 0)) return fail(t.name + ": " + t.tree.error);
    t.tree.depth = w.leafDepth + 1;
    std::vector<bool> recs;
    for (const auto& k : t.tree.keys) {
      if (k.second >= recs.size()) recs.resize(std::max<size_t>(k.second + 1, recs.size() * 2));
      if (recs[k.second]) return fail(t.name + ": record number twice");
      recs[k.second] = true;
    }
    t.tree.ok = true;
    res.tags.push_back(std::move(t));
  }
  // The free list: blocks of the file, each once.
  treecheck::Result none;
  Walker fw{b, none, seen, 0, 0, 0, multiplier, pages, 'C', false, false};
  for (uint32_t f = freePage; f != 0; f = Le32(b, size_t(f) * kPage + 4)) {
    if (!fw.Enter(f)) return fail("free list block at page " + std::to_string(f));
    ++res.freeBlocks;
  }
  if (seen.count != pages) return fail("pages neither in a tag nor free");
  res.ok = true;
  return res;
}

}  // namespace mdxcheck
