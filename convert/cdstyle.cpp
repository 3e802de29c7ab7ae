// Setting the caller's current date style.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDSTYLE(uint16_t style) {
  // The sticky check without clearing the status: a success hands back the
  // status as it was.
  int16_t s = rv::Sticky(KX_MODULE, __LINE__);
  if (s < 0) return s;
  rv::LoadWorking(rv::FindContext());
  if (!rv::ValidStyle(style)) return KX_FAIL(KX_ERR_RANGE);
  rv::g_work.dateStyle = style;
  rv::SaveContext();
  return rv::GetStatus();
}
