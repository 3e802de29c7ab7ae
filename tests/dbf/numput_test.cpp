// Numbers stored into N fields: the text must be what the C library's
// "%*.*lf" prints for the field, the status 6 exactly when that text reads
// back as another value, and -33 when the text is too wide or too large.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "testutil.h"

using namespace testutil;

namespace {

KXDBFFIELD NumField(const char* name, uint16_t width, uint16_t dec) {
  KXDBFFIELD f{};
  std::snprintf(f.name, sizeof f.name, "%s", name);
  f.type = 'N';
  f.width = width;
  f.decimals = dec;
  return f;
}

}  // namespace

TEST_F(EngineTest, NumbersPrintAsTheCLibraryPrintsThem) {
  const struct {
    uint16_t width, dec;
  } shapes[] = {{12, 2}, {8, 0}, {10, 3}, {19, 15}, {5, 2}, {19, 4}, {3, 1}};
  const int count = int(sizeof shapes / sizeof shapes[0]);
  KXDBFFIELD fields[sizeof shapes / sizeof shapes[0]];
  for (int i = 0; i < count; ++i) {
    char name[8];
    std::snprintf(name, sizeof name, "N%d", i);
    fields[i] = NumField(name, shapes[i].width, shapes[i].dec);
  }
  const std::string path = dir.file("n.dbf");
  ASSERT_EQ(KXDDCREATE(path.c_str(), int16_t(count), fields, 3), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 3), 0);

  std::mt19937_64 rng(42);
  auto value = [&](int k, int dec) -> double {
    const double p10[] = {1, 10, 100, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};
    switch (k % 6) {
      case 0:  // a whole number of thousandths, ten-thousandths ...: ties
        return double(int64_t(rng() % 20000001) - 10000000) / p10[1 + rng() % 5];
      case 1:  // any magnitude
        return std::ldexp(double(rng() >> 11) / double(1ull << 53) - 0.5, int(rng() % 80) - 20);
      case 2:  // small negatives that print as -0
        return -double(rng() % 1000) / 1e6;
      case 3:  // exact halves of the last place
        return double(int64_t(rng() % 2000001) - 1000000) / 8.0;
      case 4: {  // near a half of the field's last decimal, on either side
        const double near[] = {1e-2, 1e-4, 1e-6, 1e-9, 1e-12};
        const double d = near[rng() % 5] * ((rng() & 1) ? 1 : -1);
        return (double(rng() % 100000) + 0.5 + d) / std::pow(10.0, dec);
      }
      default:
        return double(int64_t(rng() % 2000000001) - 1000000000) / 100.0;
    }
  };
  int checked = 0;
  for (int k = 0; k < 60000; ++k) {
    const int i = k % count;
    const double v = value(k, shapes[i].dec);
    const int width = shapes[i].width, dec = shapes[i].dec;
    char want[512];
    const int n = std::snprintf(want, sizeof want, "%*.*lf", width, dec, v);
    // The field's largest value: its width of nines, with the point.
    std::string nines(size_t(width), '9');
    if (dec > 0) nines[size_t(width - dec - 1)] = '.';
    const double largest = std::strtod(nines.c_str(), nullptr);
    int16_t expect;
    if (n > width || std::strtod(want, nullptr) > largest)
      expect = KX_ERR_VALUE;
    else
      expect = std::strtod(want, nullptr) != v ? KX_ROUNDED : 0;
    // The field starts blank, so a refused value leaves it blank.
    ASSERT_EQ(KXDDFPUTS(h, int16_t(i), ""), 0);
    const int16_t s = KXDDFPUT(h, int16_t(i), &v);
    ASSERT_EQ(s, expect) << "value " << v << " as " << width << "." << dec << ": " << want;
    if (s < 0) {
      ASSERT_EQ(KXESCODE(0), 0);
      continue;
    }
    char got[64];
    ASSERT_EQ(KXDDFGETS(h, int16_t(i), got), 0);
    ASSERT_STREQ(got, want) << "value " << v;
    ++checked;
  }
  EXPECT_GT(checked, 30000);
  ASSERT_EQ(KXDDCLOSE(h), 0);
}
