// The bottom-up writer of the dBASE tree (NDX files, MDX tags) that the bulk
// builds share, and the key forms they sort by.
#pragma once

#include <cstdint>

#include "index/common/bulkbuild.h"
#include "index/common/dbtree.h"

namespace rv::ix {

// A double's key order as 8 big-endian bytes, and back.
void DoubleToOrder(const uint8_t* key, uint8_t* out);
void DoubleFromOrder(const uint8_t* in, uint8_t* key);
// The value strtod gives a plain decimal field text: blanks, a minus sign,
// at most 15 digits with a point among them, blanks. False for any other
// text (the field is then read as key making reads it).
bool PlainNumber(const uint8_t* p, size_t width, double* out);
// A character key as the adds take it: up to its NUL (at most `limit`
// bytes), blank-padded to the key length.
void CharKey(uint8_t* out, const char* text, size_t limit, uint16_t keyLength);

// How a bulk build reads each record's key straight from the record: a
// bare character field or DTOS( of a date field ) for a character key, a
// bare numeric field for a numeric key; any other key through key making.
struct FieldKeys {
  const dbf::Field* text = nullptr;
  const dbf::Field* dtos = nullptr;
  int16_t number = -1;
  // Picks the way; true when keys go through the table's record buffer.
  bool Plan(dbf::DbfState* db, const char* expression, bool numeric);
  // A character key of `length` bytes from the record's bytes: 1 made, 0
  // when no field gives it.
  int16_t Text(dbf::DbfState* db, const uint8_t* rec, uint8_t* key, uint16_t length) const;
  // The numeric field's value: plain text read as it stands, anything else
  // as the evaluator reads it (the record put in the table's buffer).
  int16_t Number(dbf::DbfState* db, const uint8_t* rec, uint32_t record, double* value) const;
};

// Lays sorted entries out bottom-up in the shape of `st`: full leaves, each
// branch entry the greatest key of the child on its left, full branches,
// and no branch left with a lone child. Nodes are numbered from `next` on
// (nodeSize / unit pages each), the first leaf at `firstLeaf`.
class TreeBuilder : public EntrySink {
 public:
  int16_t Init(TreeState* st, uint32_t firstLeaf, uint32_t next, uint32_t keyBytes);
  int16_t Emit(const uint8_t* entry) override;
  // Closes every level; the root and the next free page come back (the
  // family writes its header).
  int16_t Finish(uint32_t* root, uint32_t* next);

 protected:
  ~TreeBuilder() = default;
  // The stored key of a sort entry.
  virtual void StoredKey(const uint8_t* entry, uint8_t* key) const = 0;

 private:
  struct Level {
    uint32_t page;
    uint8_t* node;
    int count;  // entries stored (a branch's last one becomes its rightmost child)
    bool has;
  };
  int16_t Start(Level& lv);
  void Store(Level& lv, uint32_t child, uint32_t record, const uint8_t* key);
  const uint8_t* LastKey(const Level& lv) const;
  int16_t AddChild(int level, uint32_t child, const uint8_t* key, bool last = false);
  int16_t Write(Level& lv, bool leaf);

  TreeState* st_ = nullptr;
  uint32_t keyBytes_ = 0;
  int depth_ = 0;
  uint32_t next_ = 0;
  Block levelBlock_, nodeBlock_;
  Level* levels_ = nullptr;
  PageWriter out_;
};

}  // namespace rv::ix
