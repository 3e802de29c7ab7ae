// KXDMTADD: add a tag to an MDX file: its header block and an empty root
// leaf, then its entry in the tag table and the tag-name tree.
#include <cctype>

#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

namespace {

struct NewTag {
  uint8_t name[11];
  char type;
  uint16_t keyLength;
  bool unique, descending;
  char expr[kExprMax + 1];
};

// The arguments checked and put in the stored forms.
int16_t Prepare(const char* name, uint16_t type, const char* expression, int16_t length, const char* forExpr,
                NewTag* t) {
  if (forExpr && forExpr[0]) return KX_FAIL(KX_ERR_EXPR);
  std::memset(t, 0, sizeof *t);
  const size_t n = strnlen(name, kTagNameMax + 1);
  if (n < 1 || n > size_t(kTagNameMax)) return KX_FAIL(KX_ERR_RANGE);
  for (size_t i = 0; i < n; ++i) {
    const unsigned char c = static_cast<unsigned char>(name[i]);
    if (!std::isalnum(c) && c != '_') return KX_FAIL(KX_ERR_RANGE);
    t->name[i] = uint8_t(std::toupper(c));
  }
  size_t w = 0;
  for (size_t r = 0; expression[r]; ++r) {
    if (expression[r] == ' ') continue;
    if (w >= size_t(kExprMax)) return KX_FAIL(KX_ERR_EXPRLEN);
    t->expr[w++] = char(std::toupper(static_cast<unsigned char>(expression[r])));
  }
  if (w == 0) return KX_FAIL(KX_ERR_EXPRLEN);
  t->unique = (type & kOptUnique) != 0;
  t->descending = (type & kOptDescending) != 0;
  t->type = char(std::toupper(type & 0x7F));
  switch (t->type) {
    case 'C':
      if (length < 1 || length > kMaxKeyLength) return KX_FAIL(KX_ERR_EXPRLEN);
      t->keyLength = uint16_t(length);
      break;
    case 'N': t->keyLength = 12; break;
    case 'D': t->keyLength = 8; break;
    default: return KX_FAIL(KX_ERR_KEYTYPE);
  }
  if (type & ~(0x7F | kOptUnique | kOptDescending)) return KX_FAIL(KX_ERR_KEYTYPE);
  return 0;
}

int16_t AddTag(MdxState* st, const NewTag& t, int16_t* number) {
  KX_TRY(BeginFileChange(st));
  if (st->tagCount >= kMaxTags) return KX_FAIL(KX_ERR_NOHANDLE);
  uint8_t table[kTableBytes];
  KX_TRY(ReadNow(st, 0, table, kTableBytes));
  for (int i = 0; i < st->tagCount; ++i)
    if (std::memcmp(table + kEntryBase + i * kEntryBytes + 4, t.name, 11) == 0) return KX_FAIL(KX_ERR_RANGE);
  uint32_t head = 0, root = 0;
  KX_TRY(Allocate(st, &head));
  KX_TRY(Allocate(st, &root));
  KX_TRY(ix::PageGet(st, head, true));
  uint8_t* th = st->page;
  const uint16_t item = uint16_t((t.keyLength + 4 + 3) & ~3);
  Wr32(th + kTRoot, root);
  th[kTFormat] = uint8_t(kFormatBase | (t.descending ? kFormatDescending : 0) | (t.unique ? kFormatUnique : 0));
  th[kTType] = uint8_t(t.type);
  Wr16(th + kTKeyLength, t.keyLength);
  Wr16(th + kTPerNode, uint16_t((st->blockBytes - 12) / item));
  Wr16(th + kTSecondary, t.type == 'D' ? 1 : 0);
  Wr16(th + kTItem, item);
  th[kTUnique] = t.unique ? 0x40 : 0;
  std::memcpy(th + kTExpr, t.expr, std::strlen(t.expr));
  KX_TRY(Commit(st));
  // The entry, then the table with its tree, count and the header's pages.
  const int16_t tag = int16_t(st->tagCount + 1);
  uint8_t* e = table + kEntryBase + uint32_t(tag - 1) * kEntryBytes;
  std::memset(e, 0, kEntryBytes);
  Wr32(e, head);
  std::memcpy(e + 4, t.name, 11);
  e[15] = 0x10;
  e[19] = 0x02;
  e[20] = uint8_t(t.type);
  Wr16(table + kHTags, uint16_t(tag));
  NameTree(table, tag);
  KX_TRY(WriteTable(st, table));
  st->cur[tag].record = 0;
  *number = tag;
  return 0;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDMTADD(int16_t handle, const char* name, uint16_t type, const char* expression,
                                int16_t length, const char* forExpression, int16_t* tag) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  NewTag t;
  KX_TRY(Prepare(name, type, expression, length, forExpression, &t));
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t number = 0;
  int16_t s = AddTag(st, t, &number);
  EndTag(st, s, false);
  if (s < 0) return KX_FAIL(s);
  if (tag) *tag = number;
  return SetStatus(0);
}
