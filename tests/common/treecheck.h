// What the test-side index checkers share: the result of a check, the
// file's bytes, and the checks that end every walk (each page accounted for
// once, each record number once).
#pragma once

#include <cstdint>
#include <fstream>
#include <set>
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

// Pages met by a walk: each at most once.
struct Seen {
  std::set<uint32_t> pages;
  bool Enter(uint32_t page) { return pages.insert(page).second; }
};

// The last checks: `pages` pages in the file (the header not counted) were
// all met, and no record number is in the tree twice.
inline Result& Finish(Result& res, const Seen& seen, size_t pages) {
  if (seen.pages.size() != pages) {
    res.error = "pages neither in the tree nor free";
    return res;
  }
  std::set<uint32_t> recs;
  for (const auto& k : res.keys) {
    if (!recs.insert(k.second).second) {
      res.error = "record number twice";
      return res;
    }
  }
  res.ok = true;
  return res;
}

}  // namespace treecheck
