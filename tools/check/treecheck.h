// What the index checkers share: the result of a check, the
// file's bytes, and the checks that end every walk (each page accounted for
// once, each record number once).
#pragma once

#include <cstdint>
#include <algorithm>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace treecheck {

struct Result {
  bool ok = false;
  std::string error;                                   // first fault found
  std::vector<std::pair<std::string, uint32_t>> keys;  // key and record, in key order
  std::vector<int> levels;                             // tree level of each key (0 = root)
  int depth = 0, treePages = 0, freePages = 0;         // depth 1 for a lone root
};

// The whole file (checks run after every change).
inline std::vector<uint8_t> Load(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  std::vector<uint8_t> b(in ? size_t(in.tellg()) : 0);
  in.seekg(0).read(reinterpret_cast<char*>(b.data()), std::streamsize(b.size()));
  return b;
}

// Little-endian fields of the file's bytes.
inline uint16_t Le16(const std::vector<uint8_t>& b, size_t off) { return uint16_t(b[off] | b[off + 1] << 8); }
inline uint32_t Le32(const std::vector<uint8_t>& b, size_t off) {
  return Le16(b, off) | uint32_t(Le16(b, off + 2)) << 16;
}

// Pages met by a walk, by page number: each at most once.
struct Seen {
  std::vector<bool> pages;
  size_t count = 0;
  bool Enter(uint32_t page) {
    if (page >= pages.size()) pages.resize(std::max<size_t>(size_t(page) + 1, pages.size() * 2));
    if (pages[page]) return false;
    pages[page] = true;
    ++count;
    return true;
  }
};

// The last checks: `pages` pages in the file (the header not counted) were
// all met, and no record number is in the tree twice.
inline Result& Finish(Result& res, const Seen& seen, size_t pages) {
  if (seen.count != pages) {
    res.error = "pages neither in the tree nor free";
    return res;
  }
  std::vector<bool> recs;
  for (const auto& k : res.keys) {
    if (k.second >= recs.size()) recs.resize(std::max<size_t>(size_t(k.second) + 1, recs.size() * 2));
    if (recs[k.second]) {
      res.error = "record number twice";
      return res;
    }
    recs[k.second] = true;
  }
  res.ok = true;
  return res;
}

}  // namespace treecheck
