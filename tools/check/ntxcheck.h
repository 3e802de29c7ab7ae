// NTX tree checker: reads an index file as bytes and verifies its structure
// independently of the engine. Used by `rvdb verify` and by the tests.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "treecheck.h"

namespace ntxcheck {

struct Options {
  bool minFill = true;  // non-root pages hold at least half page keys
};

using Result = treecheck::Result;

// Checks the header, then walks the tree and the free list: key order within
// and across pages, separators, child offsets, page fill, leaves at one depth,
// every page in the tree or free exactly once, every record number once.
Result Check(const std::string& path, const Options& options = {});

}  // namespace ntxcheck
