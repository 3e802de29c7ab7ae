// IDX tree checker for tests and tools: reads an index file as bytes and
// verifies its structure, standard or compact, independently of the engine.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace idxcheck {

struct Options {
  uint8_t pad = ' ';         // trailing pad byte of the key type (0 for D, L, N)
  bool recordOrder = true;   // equal keys in ascending record-number order
};

struct Result {
  bool ok = false;
  bool compact = false;
  std::string error;                                   // first fault found
  std::vector<std::pair<std::string, uint32_t>> keys;  // key and record, in key order
  int depth = 0, treeNodes = 0, freeNodes = 0;         // depth 1 for a lone root leaf
};

// Checks the header, walks the tree and the free list: node layouts (compact
// leaves decoded with their own widths), key order within and across nodes,
// parents' entries equal to their children's last entries, sibling chains on
// every level, leaves at one depth, every node in the tree or free once.
Result Check(const std::string& path, const Options& options = {});
Result CheckBytes(const std::vector<uint8_t>& bytes, const Options& options = {});

}  // namespace idxcheck
