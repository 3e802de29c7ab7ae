// Reading the caller's current date style and its name.
#include <cstring>

#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDGSTYLE(uint16_t* style, char* name) {
  int16_t s = rv::Sticky(KX_MODULE, __LINE__);
  if (s < 0) return s;
  rv::LoadWorking(rv::FindContext());
  if (!style || !name) return KX_FAIL(KX_ERR_NULL);
  uint16_t cur = rv::g_work.dateStyle;
  *style = cur;
  std::strcpy(name, rv::ValidStyle(cur) ? rv::kDateStyles[cur].name : "");
  return rv::GetStatus();
}
