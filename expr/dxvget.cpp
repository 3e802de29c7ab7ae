// DXVGET: read one integer argument of a function or user procedure.
#include <cstring>

#include "expr.h"

namespace rv::expr {

int16_t IntArg(int16_t* value) {
  char* p = g_state.pub.pos;
  if (!p) return KX_FAIL(KX_ERR_EXPR);
  if (*p) ++p;
  char* comma = std::strchr(p, ',');
  char* close = std::strchr(p, ')');
  if (!comma && !close) return KX_FAIL(KX_ERR_EXPR);
  char* end = !comma ? close : !close ? comma : (comma < close ? comma : close);
  if (end == p) return KX_FAIL(KX_ERR_EXPR);
  long v = 0;
  for (char* q = p; q < end && *q >= '0' && *q <= '9'; ++q) v = v < 100000 ? v * 10 + (*q - '0') : v;
  *value = static_cast<int16_t>(v > 32767 ? 32767 : v);
  g_state.pub.pos = end;
  return 0;
}

}  // namespace rv::expr

using namespace rv;

extern "C" KXEXPORT int16_t KXAPI KXDXVGET(int16_t* value) {
  KX_ENTER();
  if (!value) return KX_FAIL(KX_ERR_NULL);
  KX_TRY(expr::IntArg(value));
  return SetStatus(0);
}
