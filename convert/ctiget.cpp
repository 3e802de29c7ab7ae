// The current local time.
#include "convert/dates.h"
#include "platform.h"

namespace rv {

void TimeNow(int16_t* hours, int16_t* minutes, int16_t* seconds) {
  plat::LocalTime t = plat::Now();
  *hours = static_cast<int16_t>(t.hour);
  *minutes = static_cast<int16_t>(t.minute);
  *seconds = static_cast<int16_t>(t.second);
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCTIGET(int16_t* hours, int16_t* minutes, int16_t* seconds,
                                int16_t* hundredths) {
  KX_ENTER();
  if (!hours || !minutes || !seconds || !hundredths) return KX_FAIL(KX_ERR_NULL);
  rv::TimeNow(hours, minutes, seconds);
  *hundredths = 0;
  return rv::SetStatus(0);
}
