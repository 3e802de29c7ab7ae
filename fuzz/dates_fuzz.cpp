// Date and time strings from arbitrary bytes through every parsing export
// in every date style (and the styles out of range), with the numeric
// conversions fed from the same bytes. Output buffers have exactly the
// documented sizes.
//
// Input: byte 0 a style offset, 6 bytes of year, month and day, 4 bytes of
// day number; then two strings separated by a NUL.
#include <cstring>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

constexpr size_t kPrefix = 11;

struct Out {
  Bytes date = Bytes(11), name = Bytes(10), style = Bytes(23), time = Bytes(9), key = Bytes(10);
  char* Date() { return reinterpret_cast<char*>(date.data()); }
  char* Name() { return reinterpret_cast<char*>(name.data()); }
};

void DateStrings(const char* first, const char* second, uint16_t s, uint16_t s2, Out& o) {
  int16_t y = 0, m = 0, d = 0, w = 0;
  int32_t n = 0;
  uint32_t days = 0;
  Call(KXCDS2I(&y, &m, &d, first, s));
  Call(KXCDS2LX(&n, first, s));
  Call(KXCDS2S(o.Date(), s2, first, s));
  Call(KXCDSVALID(first, s));
  Call(KXCDSDIFF(&days, first, s, second, s2));
  Call(KXCDS2DOW(&w, first, s));
  Call(KXCDS2DAY(o.Name(), first, s));
  Call(KXCDS2MON(o.Name(), first, s));
  Call(KXCDSLEAP(first, s));
  Call(KXCDSPERM(&d, first, s));
  Call(KXDCKDATE(reinterpret_cast<char*>(o.key.data()), first, s));
}

void Numbers(Reader in, uint16_t s, Out& o) {
  const int16_t y = int16_t(in.U16()), m = int16_t(in.U16()), d = int16_t(in.U16());
  const int32_t n = int32_t(in.U32());
  int16_t a = 0, b = 0, c = 0;
  int32_t day = 0;
  Call(KXCDI2S(o.Date(), s, y, m, d));
  Call(KXCDL2SX(o.Date(), s, n));
  Call(KXCDI2L(&day, y, m, d));
  Call(KXCDL2I(&a, &b, &c, n));
  Call(KXCDL2DOW(&a, n));
  Call(KXCDSDAY(o.Name(), d));
  Call(KXCDSMONTH(o.Name(), m));
  Call(KXCDILEAP(y));
  Call(KXCDIPERM(&a, y, m));
  Call(KXCTI2S(reinterpret_cast<char*>(o.time.data()), s % 4, y, m, d));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kPrefix) return 0;
  Engine engine;
  const std::string rest(reinterpret_cast<const char*>(data + kPrefix), size - kPrefix);
  const std::string first = rest.substr(0, rest.find('\0'));
  const std::string second = first.size() < rest.size() ? rest.substr(first.size() + 1) : std::string();
  Out o;
  for (uint16_t s = 0; s <= 16; ++s) {
    const uint16_t s2 = uint16_t((s + data[0]) % 17);
    DateStrings(first.c_str(), second.c_str(), s, s2, o);
    Numbers(Reader{data + 1, 10}, s, o);
    uint16_t style = 0;
    Call(KXCDSTYLE(s));
    Call(KXCDGSTYLE(&style, reinterpret_cast<char*>(o.style.data())));
    if (s <= 3) {
      int16_t h = 0, m = 0, sec = 0;
      uint32_t secs = 0;
      Call(KXCTS2I(&h, &m, &sec, first.c_str(), s));
      Call(KXCTSVALID(first.c_str(), s));
      Call(KXCTSDIFF(&secs, first.c_str(), s, second.c_str(), s2 % 4));
    }
  }
  return 0;
}

// Dates written by the engine in every style, each with a time after it,
// and times before dates.
void fuzz::Prepare() {}

void fuzz::Seeds(const fs::path& out) {
  Engine engine;
  const int16_t dates[][3] = {{1999, 12, 31}, {2024, 2, 29}, {1, 1, 1}, {9999, 12, 31}, {1900, 3, 1}};
  const int16_t times[][3] = {{23, 59, 59}, {0, 0, 0}, {7, 5, 3}};
  for (uint16_t s = 1; s <= 15; ++s) {
    char text[11], time[9];
    const int16_t* d = dates[s % 5];
    const int16_t* t = times[s % 3];
    if (KXCDI2S(text, s, d[0], d[1], d[2]) != 0 || KXCTI2S(time, 1 + s % 2, t[0], t[1], t[2]) != 0) std::abort();
    Bytes prefix = {uint8_t(s), uint8_t(d[0]), uint8_t(d[0] >> 8), uint8_t(d[1]), 0, uint8_t(d[2]), 0, 0x60, 0x2E, 0x0B, 0};
    Bytes body(text, text + std::strlen(text));
    body.push_back(0);
    body.insert(body.end(), time, time + std::strlen(time));
    WriteSeed(out, "style" + std::to_string(s), prefix, body);
    if (s <= 2) {  // a time first: the time exports parse the first string
      body.assign(time, time + std::strlen(time));
      body.push_back(0);
      body.insert(body.end(), text, text + std::strlen(text));
      WriteSeed(out, "time" + std::to_string(s), prefix, body);
    }
  }
}
