// Making an index key from a table's current record: the index's key
// expression evaluated through the expression evaluator, the value turned
// into the family's key form. Shared by the key-making exports of the index
// families.
#pragma once

#include <cstdint>

#include "kxcore.h"

namespace rv::ix {

// What a family gives: its handle kind, the key expression of a locked
// index state, and the conversion of the evaluated value (type 'C', 'N',
// 'F', 'D', ...; `*value` is the locked block `*block` holds) into the key,
// in place (the block may be resized; *value follows it).
struct KeyRecipe {
  int kind;
  const char* (*expression)(const void* state);
  int16_t (*convert)(const void* state, uint16_t type, KXBLOCK* block, void** value);
};

// Resizes a locked block, keeping it locked at *value.
int16_t ResizeLocked(KXBLOCK* block, void** value, uint32_t size);

// Evaluates the key into a block of its own (returned unlocked); the
// caller owns it.
int16_t MakeKey(int16_t table, int16_t index, const KeyRecipe& recipe, KXBLOCK* out);

// The bodies of the two key-making exports (after their entry frame). The
// pointer form keeps the block until the family's next pointer-form call or
// the close of that index, and stores null on failure; the block form hands
// the block over and stores all ones on failure.
int16_t MakeKeyPointer(int16_t table, int16_t index, const KeyRecipe& recipe, char** key);
int16_t MakeKeyBlock(int16_t table, int16_t index, const KeyRecipe& recipe, KXBLOCK* block);

// Frees the block the pointer form keeps when it was made for `index` of
// this kind (the index's close: the block goes with the index).
void DropLastKey(int kind, int16_t index);

}  // namespace rv::ix
