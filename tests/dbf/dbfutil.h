// Helpers for the DBF tests: field records, tables made byte by byte from
// the format definition, today's header date.
#pragma once

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "testutil.h"

// A failing call's status, then cleared so that it does not block the next call.
#define EXPECT_FAIL(call, code) \
  do {                          \
    EXPECT_EQ((call), (code));  \
    KXESCODE(0);                \
  } while (0)

namespace dbftest {

using namespace testutil;

inline KXDBFFIELD F(const char* name, char type, uint16_t width, uint16_t decimals = 0) {
  return DbfField(name, type, width, decimals);
}

// Today as a header stores it: year - 1900, month, day.
inline std::vector<uint8_t> TodayBytes() {
  std::time_t now = std::time(nullptr);
  std::tm t = *std::localtime(&now);
  return {uint8_t(t.tm_year), uint8_t(t.tm_mon + 1), uint8_t(t.tm_mday)};
}

// A table file: version byte, descriptors (name, type, width, decimals),
// records as raw text with their flag byte, the end mark.
struct RawField {
  std::string name;
  char type;
  uint8_t len, dec;
};
inline std::vector<uint8_t> RawTable(uint8_t version, const std::vector<RawField>& fields,
                                     const std::vector<std::string>& records) {
  const size_t headerLen = 32 + 32 * fields.size() + 1;
  size_t recLen = 1;
  for (auto& f : fields) recLen += f.len;
  std::vector<uint8_t> b(headerLen, 0);
  const size_t n = records.size();
  const uint8_t head[12] = {version, 124, 5, 17, uint8_t(n), uint8_t(n >> 8), uint8_t(n >> 16),
                            uint8_t(n >> 24), uint8_t(headerLen), uint8_t(headerLen >> 8),
                            uint8_t(recLen), uint8_t(recLen >> 8)};
  std::memcpy(b.data(), head, sizeof head);
  for (size_t i = 0; i < fields.size(); ++i) {
    uint8_t* d = &b[32 + 32 * i];
    std::memcpy(d, fields[i].name.data(), fields[i].name.size());
    d[11] = uint8_t(fields[i].type);
    d[16] = fields[i].len;
    d[17] = fields[i].dec;
  }
  b.back() = 0x0D;
  for (auto r : records) {
    r.resize(recLen, ' ');
    b.insert(b.end(), r.begin(), r.end());
  }
  b.push_back(0x1A);
  return b;
}

// Runs a shell command (the peer programs).
inline int Shell(const std::string& cmd) { return std::system(cmd.c_str()); }

}  // namespace dbftest
