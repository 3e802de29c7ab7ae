// Test-side NTX tree checker: reads an index file as bytes and verifies its
// structure independently of the engine.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ntxcheck {

struct Options {
  bool minFill = true;         // non-root pages hold at least half page keys
  bool uniqueRecords = true;   // every record number appears once
  bool allPagesAccounted = true;  // every page is in the tree or on the free list
};

struct Result {
  bool ok = false;
  std::string error;           // first fault found
  std::vector<std::pair<std::string, uint32_t>> keys;  // in key order
  std::vector<int> levels;     // tree level of each key (0 = root)
  uint32_t root = 0;
  uint32_t freeHead = 0;
  uint16_t counter = 0;
  int depth = 0;               // levels, 1 for a lone root
  int treePages = 0;
  int freePages = 0;
  uint16_t keyLength = 0;
  uint16_t maxKeys = 0;
};

Result Check(const std::string& path, const Options& options = {});

}  // namespace ntxcheck
