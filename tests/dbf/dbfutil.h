// Helpers for the DBF tests: field records, tables made byte by byte.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "testutil.h"

namespace dbftest {

inline KXDBFFIELD F(const char* name, char type, uint16_t width, uint16_t decimals = 0) {
  KXDBFFIELD f{};
  // A name of 11 characters or more fills the array without a terminator.
  size_t n = std::strlen(name);
  std::memcpy(f.name, name, n < sizeof f.name ? n : sizeof f.name);
  f.type = uint16_t(type);
  f.width = width;
  f.decimals = decimals;
  return f;
}

// A DBF file built by hand from the format definition: version byte,
// descriptors (name, type, width, decimals), records as raw text.
struct RawField {
  std::string name;
  char type;
  uint8_t len;
  uint8_t dec;
};
inline std::vector<uint8_t> RawTable(uint8_t version, const std::vector<RawField>& fields,
                                     const std::vector<std::string>& records) {
  size_t recLen = 1;
  for (auto& f : fields) recLen += f.len + (f.type == 'C' ? f.dec * 256u : 0u);
  size_t headerLen = 32 + 32 * fields.size() + 1;
  std::vector<uint8_t> b(headerLen, 0);
  b[0] = version;
  b[1] = 124;
  b[2] = 5;
  b[3] = 17;
  b[4] = uint8_t(records.size());
  b[8] = uint8_t(headerLen);
  b[9] = uint8_t(headerLen >> 8);
  b[10] = uint8_t(recLen);
  b[11] = uint8_t(recLen >> 8);
  for (size_t i = 0; i < fields.size(); ++i) {
    uint8_t* d = &b[32 + 32 * i];
    std::memcpy(d, fields[i].name.data(), fields[i].name.size());
    d[11] = uint8_t(fields[i].type);
    d[16] = fields[i].len;
    d[17] = fields[i].dec;
  }
  b[headerLen - 1] = 0x0D;
  for (auto& r : records) {
    std::string rec = r;
    rec.resize(recLen, ' ');
    b.insert(b.end(), rec.begin(), rec.end());
  }
  b.push_back(0x1A);
  return b;
}

// Runs a shell command; the peer programs must be installed.
inline int Shell(const std::string& cmd) { return std::system(cmd.c_str()); }

}  // namespace dbftest
