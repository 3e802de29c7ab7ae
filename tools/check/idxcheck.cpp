// The IDX tree checker (see idxcheck.h).
#include "idxcheck.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

namespace idxcheck {
namespace {

constexpr uint32_t kNode = 512;
constexpr uint32_t kNone = 0xFFFFFFFFu;

uint32_t Le32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }
uint16_t Le16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
uint32_t Be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

struct Entry {
  std::string key;
  uint32_t rec = 0, child = 0;
};

struct Walker {
  const std::vector<uint8_t>& b;
  const Options& opt;
  Result& res;
  unsigned L = 0;
  bool compact = false;
  uint32_t first = 0;
  std::set<uint32_t> seen;
  std::map<int, std::vector<uint32_t>> levels;  // nodes of each depth, left to right
  int leafDepth = -1;

  bool Fail(const std::string& why, uint32_t off) {
    res.error = why + " at " + std::to_string(off);
    return false;
  }
  bool IsNode(uint32_t off) const { return off >= first && off % kNode == 0 && uint64_t(off) + kNode <= b.size(); }

  bool Decode(uint32_t off, bool leaf, unsigned n, std::vector<Entry>* out) {
    const uint8_t* pg = &b[off];
    if (compact && leaf) {
      const uint32_t recMask = Le32(pg + 14);
      const unsigned R = pg[20], D = pg[21], T = pg[22], B = pg[23];
      if (B < 1 || B > 8 || R > 32 || R + D + T > 8 * B) return Fail("leaf widths", off);
      if (recMask != (R == 32 ? kNone : (1u << R) - 1) || pg[18] != (1u << D) - 1 || pg[19] != (1u << T) - 1)
        return Fail("leaf masks", off);
      if (24 + n * B > kNode) return Fail("leaf count", off);
      int pos = kNode;
      std::string prev;
      for (unsigned i = 0; i < n; ++i) {
        uint64_t v = 0;
        for (int k = int(B) - 1; k >= 0; --k) v = v << 8 | pg[24 + i * B + unsigned(k)];
        Entry e;
        e.rec = uint32_t(v) & recMask;
        unsigned dup = unsigned(v >> R) & pg[18];
        const unsigned trail = unsigned(v >> (R + D)) & pg[19];
        if (i == 0) dup = 0;
        if (dup + trail > L) return Fail("leaf counts exceed key", off);
        const unsigned fresh = L - dup - trail;
        pos -= int(fresh);
        if (pos < int(24 + n * B)) return Fail("leaf tails overlap entries", off);
        e.key = prev.substr(0, dup) + std::string(reinterpret_cast<const char*>(pg + pos), fresh) +
                std::string(trail, char(opt.pad));
        prev = e.key;
        out->push_back(e);
      }
      if (Le16(pg + 12) != unsigned(pos) - (24 + n * B)) return Fail("leaf free bytes", off);
      return true;
    }
    const unsigned size = L + (compact ? 8 : 4);
    if (12 + n * size > kNode) return Fail("entry count", off);
    for (unsigned i = 0; i < n; ++i) {
      const uint8_t* p = pg + 12 + i * size;
      Entry e;
      e.key.assign(reinterpret_cast<const char*>(p), L);
      if (compact) {
        e.rec = Be32(p + L);
        e.child = Be32(p + L + 4);
        if (leaf) return Fail("compact leaf read as interior", off);
      } else if (leaf) {
        e.rec = Be32(p + L);
      } else {
        e.child = Be32(p + L);
      }
      out->push_back(e);
    }
    return true;
  }

  // Walks the subtree at `off`; *last receives its last entry.
  bool Walk(uint32_t off, int depth, Entry* last) {
    if (!IsNode(off) || depth > 40 || !seen.insert(off).second) return Fail("bad or repeated node", off);
    ++res.treeNodes;
    const uint8_t* pg = &b[off];
    const unsigned attr = Le16(pg), n = Le16(pg + 2);
    const bool leaf = (attr & 2) != 0;
    if (((attr & 1) != 0) != (depth == 0)) return Fail("root bit", off);
    if (n == 0 && depth > 0) return Fail("empty node", off);
    if (leaf) {
      if (leafDepth < 0) leafDepth = depth;
      if (leafDepth != depth) return Fail("leaves at different depths", off);
    }
    levels[depth].push_back(off);
    if (depth + 1 > res.depth) res.depth = depth + 1;
    std::vector<Entry> es;
    if (!Decode(off, leaf, n, &es)) return false;
    for (const Entry& e : es) {
      if (leaf) {
        if (!res.keys.empty()) {
          const auto& [pk, pr] = res.keys.back();
          if (e.key < pk || (opt.recordOrder && e.key == pk && e.rec < pr)) return Fail("key order broken", off);
        }
        res.keys.emplace_back(e.key, e.rec);
        continue;
      }
      Entry sub;
      if (!Walk(e.child, depth + 1, &sub)) return false;
      if (sub.key != e.key || (compact && sub.rec != e.rec)) return Fail("parent entry is not its child's last", off);
    }
    if (!es.empty()) *last = es.back();
    return true;
  }

  bool Chains() {
    for (const auto& [depth, nodes] : levels) {
      for (size_t i = 0; i < nodes.size(); ++i) {
        const uint8_t* pg = &b[nodes[i]];
        const uint32_t left = i ? nodes[i - 1] : kNone, right = i + 1 < nodes.size() ? nodes[i + 1] : kNone;
        if (Le32(pg + 4) != left || Le32(pg + 8) != right) return Fail("sibling links", nodes[i]);
      }
    }
    return true;
  }
};

}  // namespace

Result CheckBytes(const std::vector<uint8_t>& b, const Options& opt) {
  Result res;
  if (b.size() < kNode) {
    res.error = "file shorter than a header";
    return res;
  }
  Walker w{b, opt, res, 0, false, 0, {}, {}, -1};
  w.L = Le16(&b[12]);
  w.compact = (b[14] & 0x20) != 0;
  res.compact = w.compact;
  w.first = w.compact ? 2 * kNode : kNode;
  if (w.L < 1 || w.L > 100) {
    res.error = "key length";
    return res;
  }
  Entry last;
  if (!w.Walk(Le32(&b[0]), 0, &last) || !w.Chains()) return res;
  for (uint32_t f = Le32(&b[4]); f != 0 && f != kNone; f = Le32(&b[f])) {
    if (!w.IsNode(f) || !w.seen.insert(f).second) return w.Fail("bad free link", f), res;
    ++res.freeNodes;
  }
  for (uint32_t off = w.first; uint64_t(off) + kNode <= b.size(); off += kNode)
    if (!w.seen.count(off)) return w.Fail("node neither in the tree nor free", off), res;
  if (!w.compact && Le32(&b[8]) != b.size()) return w.Fail("end of file word", uint32_t(b.size())), res;
  res.ok = true;
  return res;
}

Result Check(const std::string& path, const Options& options) {
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> b((std::istreambuf_iterator<char>(in)), {});
  return CheckBytes(b, options);
}

}  // namespace idxcheck
