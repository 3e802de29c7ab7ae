// MDX checker: reads a multiple-tag index file as bytes and verifies the
// header, the tag table and every tag's tree independently of the engine.
// Used by the tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "treecheck.h"

namespace mdxcheck {

struct Tag {
  std::string name;
  char type = 0;           // 'C', 'N' or 'D'
  bool unique = false, descending = false;
  std::string expression;
  treecheck::Result tree;  // keys (key-length bytes) and records in tag order
};

struct Result {
  bool ok = false;
  std::string error;       // first fault found
  std::vector<Tag> tags;
  int freeBlocks = 0;
};

// Checks the header (version 2, multiplier 1..32 and its block size, the
// markers '0' and ' ', tag count at most 47, page count, slot 0), the tag
// table (each entry's header page, name, type as its tag header's, the
// tag-name tree as its rebuild from the names in table order), then each
// tag: its header (key length and item length for its type, keys per node
// as the block allows) and its tree (key counts within the node, leaves at
// one depth, children inside the file, keys in the tag's order across the
// leaves: character keys as unsigned bytes, numeric keys by the value of
// their packed decimal digits, date keys as doubles, descending tags
// reversed, equal keys of a non-unique tag by record number; each branch key
// at least every key on its left). Every page from 4 to the page count is a
// tag header, a node or on the free list, exactly once.
Result Check(const std::string& path);

// The value of a 12-byte packed decimal key.
long double Number(const std::string& key);

}  // namespace mdxcheck
