// The bottom-up writer of the dBASE tree (see dbbuild.h).
#include "index/common/dbbuild.h"

namespace rv::ix {

void DoubleToOrder(const uint8_t* key, uint8_t* out) {
  const uint64_t v = NumberOrder(key);
  for (int i = 0; i < 8; ++i) out[i] = uint8_t(v >> (56 - 8 * i));
}

void DoubleFromOrder(const uint8_t* in, uint8_t* key) {
  uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v = v << 8 | in[i];
  const uint64_t bits = (v >> 63) ? v & ~(uint64_t(1) << 63) : ~v;
  for (int i = 0; i < 8; ++i) key[i] = uint8_t(bits >> (8 * i));
}

// The digits as an integer and the power of ten are both exact, so one
// division rounds as strtod does.
bool PlainNumber(const uint8_t* p, size_t width, double* out) {
  static const double kTens[16] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  size_t i = 0;
  while (i < width && p[i] == ' ') ++i;
  const bool negative = i < width && p[i] == '-';
  if (negative) ++i;
  uint64_t digits = 0;
  int count = 0, decimals = -1;
  for (; i < width && p[i] != ' '; ++i) {
    if (p[i] == '.' && decimals < 0) {
      decimals = 0;
    } else if (p[i] >= '0' && p[i] <= '9' && count < 15) {
      digits = digits * 10 + (p[i] - '0');
      ++count;
      if (decimals >= 0) ++decimals;
    } else {
      return false;
    }
  }
  for (; i < width; ++i)
    if (p[i] != ' ') return false;
  if (count == 0) return false;
  const double v = double(digits) / kTens[decimals > 0 ? decimals : 0];
  *out = negative ? -v : v;
  return true;
}

void CharKey(uint8_t* out, const char* text, size_t limit, uint16_t keyLength) {
  size_t n = 0;
  const size_t most = limit < keyLength ? limit : keyLength;
  for (; n < most && text[n]; ++n) out[n] = uint8_t(text[n]);
  std::memset(out + n, ' ', keyLength - n);
}

bool FieldKeys::Plan(dbf::DbfState* db, const char* expression, bool numeric) {
  const KeyPlan plan = PlanKeys(db, expression);
  if (plan.field && !numeric && plan.field->type == 'C') {
    text = plan.field;
  } else if (plan.field && numeric && (plan.field->type == 'N' || plan.field->type == 'F')) {
    number = plan.fieldNo;
  } else if (plan.dtos && !numeric) {
    dtos = plan.dtos;
  }
  return !text && !dtos;
}

int16_t FieldKeys::Text(dbf::DbfState* db, const uint8_t* rec, uint8_t* key, uint16_t length) const {
  if (text) {
    CharKey(key, reinterpret_cast<const char*>(rec + text->offset), text->width, length);
    return 1;
  }
  if (dtos) {
    KX_TRY(DtosKey(*dtos, rec, dbf::RecLen(db), key, length));
    return 1;
  }
  return 0;
}

int16_t FieldKeys::Number(dbf::DbfState* db, const uint8_t* rec, uint32_t record, double* value) const {
  const dbf::Field& f = db->fields[number];
  if (PlainNumber(rec + f.offset, f.width, value)) return 0;
  std::memcpy(db->rec, rec, dbf::RecLen(db));
  db->recPos = record;
  KX_TRY(dbf::FieldGet(db, number, value, false));
  return 0;
}

int16_t TreeBuilder::Init(TreeState* st, uint32_t firstLeaf, uint32_t next, uint32_t keyBytes) {
  st_ = st;
  keyBytes_ = keyBytes;
  depth_ = st->stackCapacity;
  if (levelBlock_.Alloc(uint32_t(sizeof(Level) * size_t(depth_))) < 0) return KX_FAIL(KX_ERR_NOMEM);
  // Each node's buffer has room past the node for a full branch's last
  // entry, of which only the child field is written.
  const uint32_t room = 2 * st->nodeSize;
  if (nodeBlock_.Alloc(room * uint32_t(depth_)) < 0) return KX_FAIL(KX_ERR_NOMEM);
  KX_TRY(out_.Init(st->fs.file, st->nodeSize, OffsetOfPage(st, firstLeaf)));
  levels_ = static_cast<Level*>(levelBlock_.ptr);
  for (int i = 0; i < depth_; ++i) levels_[i] = {0, nodeBlock_.bytes() + size_t(i) * room, 0, false};
  levels_[0].page = firstLeaf;
  levels_[0].has = true;
  next_ = next;
  return 0;
}

int16_t TreeBuilder::Emit(const uint8_t* entry) {
  Level& leaf = levels_[0];
  if (leaf.count == st_->keysPerBlock) {
    KX_TRY(AddChild(1, leaf.page, LastKey(leaf)));
    KX_TRY(Write(leaf, true));
    KX_TRY(Start(leaf));
  }
  uint8_t* e = EntryAt(st_, leaf.node, leaf.count++);
  Wr32(e + st_->recordAt, EntryRecord(entry, keyBytes_));
  StoredKey(entry, e + st_->keyAt);
  return 0;
}

int16_t TreeBuilder::Finish(uint32_t* root, uint32_t* next) {
  Level& leaf = levels_[0];
  KX_TRY(Write(leaf, true));
  uint32_t below = leaf.page;
  uint8_t belowKey[kMaxTreeKey];
  std::memcpy(belowKey, LastKey(leaf), st_->keyLength);
  for (int i = 1; i < depth_ && levels_[i].has; ++i) {
    KX_TRY(AddChild(i, below, belowKey, true));
    KX_TRY(Write(levels_[i], false));
    below = levels_[i].page;
    std::memcpy(belowKey, LastKey(levels_[i]), st_->keyLength);
  }
  KX_TRY(out_.Flush());
  *root = below;
  *next = next_;
  return 0;
}

int16_t TreeBuilder::Start(Level& lv) {
  const uint32_t pages = st_->nodeSize / st_->unit;
  if (uint64_t(next_) + 2 * pages >= 0xFFFFFFFFu / st_->unit) return KX_FAIL(KX_ERR_SEEK);
  lv.page = next_;
  next_ += pages;
  lv.has = true;
  lv.count = 0;
  std::memset(lv.node, 0, 2 * st_->nodeSize);
  return 0;
}

void TreeBuilder::Store(Level& lv, uint32_t child, uint32_t record, const uint8_t* key) {
  uint8_t* e = EntryAt(st_, lv.node, lv.count);
  Wr32(e, child);
  if (record) Wr32(e + st_->recordAt, record);
  std::memmove(e + st_->keyAt, key, st_->keyLength);
  ++lv.count;
}

// The greatest key below a node: its last entry's (an empty leaf's first
// entry holds zeros).
const uint8_t* TreeBuilder::LastKey(const Level& lv) const {
  return EntryAt(st_, lv.node, lv.count > 0 ? lv.count - 1 : 0) + st_->keyAt;
}

// A child below `level` is complete and has the greatest key `key`: it goes
// into the level's node; a full node (keys per node + 1 children) is closed
// first, its greatest key going up in turn. The last child of a level never
// stays alone in a node: the full node gives it its own last child.
int16_t TreeBuilder::AddChild(int level, uint32_t child, const uint8_t* key, bool last) {
  if (level >= depth_) return KX_FAIL(KX_ERR_STRUCTURE);
  Level& lv = levels_[level];
  if (!lv.has) KX_TRY(Start(lv));
  const int full = st_->keysPerBlock + 1;
  if (lv.count == full) {
    uint8_t moved[8 + kMaxTreeKey];
    if (last) {
      // Closed with one child fewer: its greatest key is the one before.
      std::memcpy(moved, EntryAt(st_, lv.node, full - 1), size_t(st_->keyLength) + st_->keyAt);
      lv.count = full - 1;
    }
    KX_TRY(AddChild(level + 1, lv.page, LastKey(lv)));
    KX_TRY(Write(lv, false));
    KX_TRY(Start(lv));
    if (last) Store(lv, Rd32(moved), 0, moved + st_->keyAt);
  }
  Store(lv, child, 0, key);
  return 0;
}

// A leaf holds its entries; a branch's last entry keeps only its child.
int16_t TreeBuilder::Write(Level& lv, bool leaf) {
  const int count = leaf ? lv.count : lv.count - 1;
  if (!leaf) std::memset(EntryAt(st_, lv.node, count) + 4, 0, size_t(st_->group) - 4);
  SetNodeCount(st_, lv.node, count);
  return out_.Put(OffsetOfPage(st_, lv.page), lv.node);
}

}  // namespace rv::ix
