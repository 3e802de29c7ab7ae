// NDX tree checker: reads an index file as bytes and verifies its structure
// independently of the engine. Used by `rvdb verify` and by the tests.
#pragma once

#include <cstdint>
#include <string>

#include "treecheck.h"

namespace ndxcheck {

using Result = treecheck::Result;

// Checks the header, then walks the tree: key counts within the block's
// room, leaves at one depth, children inside the file and met once, leaf
// keys in order across the tree (character keys as unsigned bytes, numeric
// keys as doubles; equal keys of a non-unique index by record number), each
// branch key at least every key on its left, every block not in the tree
// marked free (first byte 255), and the file at least next block * 512 bytes
// long (a file that another handle maps on Windows cannot be cut).
// With `exact`, each branch key is the greatest key on its left where the
// rightmost leaf of its left subtree holds keys. A deletion that empties a
// leaf leaves the key that leaf last held in the branch above (merges carry
// it on, and later adds may put smaller keys to its right: a search that
// goes left of them steps on to the right), so only trees without such
// deletions are exact.
// Keys are returned as their key-length bytes (8 for numeric keys).
Result Check(const std::string& path, bool exact = false);

// A numeric key's value.
double Number(const std::string& key);

}  // namespace ndxcheck
