/*
 * rvdemo - a small host program for the RVDB4XX engine, written as a host
 * would write it: plain C, the public header, the shared library.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "rvdb4xx.h"

static int check(const char *what, int16_t got, int16_t want) {
  printf("  %-44s %6d%s\n", what, got, got == want ? "" : "   <-- unexpected");
  return got == want ? 0 : 1;
}

int main(void) {
  int bad = 0;
  const int16_t handles = 100;
  const char *ini = getenv("RVDB4XX_INI");

  printf("RVDB4XX demo host\n\n");
  printf("Library\n");
  bad |= check("KXDVERSION(3) (built for this interface)", KXDVERSION(3), 0);
  bad |= check("KXECODE() before KXDINIT", KXECODE(), KX_ERR_NOINIT);
  bad |= check("KXDINIT(100 handles, style from RVDB4XX.INI)", KXDINIT(handles, 0), 0);

  printf("\nConfiguration in effect\n");
  printf("  %-44s %s\n", "RVDB4XX.INI looked for at",
         ini && *ini ? ini : "./RVDB4XX.INI (RVDB4XX_INI not set)");
  printf("  %-44s %d of %d asked for\n", "handle slots", (handles <= 100 ? handles : 100) - 5, handles);

  printf("\nError status and log\n");
  static const char logName[] = "rvdemo.log";
  remove(logName);
  bad |= check("KXESLOG(1, \"rvdemo.log\")", KXESLOG(1, logName), 0);
  {
    void *address = NULL;
    /* Locking a block handle that was never allocated fails and sticks. */
    bad |= check("_KXMLOCK on a block that does not exist", _KXMLOCK(&address, (KXBLOCK)12345), KX_ERR_MEMLOCK);
    bad |= check("KXECODE() afterwards (sticky)", KXECODE(), KX_ERR_MEMLOCK);
    bad |= check("KXESCODE(0) clears it", KXESCODE(0), 0);
    bad |= check("KXECODE()", KXECODE(), 0);
  }
  {
    FILE *f = fopen(logName, "r");
    char line[200];
    printf("  error log %s:\n", logName);
    while (f && fgets(line, sizeof line, f)) printf("    %s", line);
    if (f) fclose(f);
    remove(logName);
  }
  KXESLOG(0, NULL);

  printf("\nMemory blocks\n");
  {
    KXBLOCK block = 0;
    char *text = NULL;
    bad |= check("_KXMALLOC(64 bytes)", _KXMALLOC(&block, 64), 0);
    bad |= check("_KXMLOCK", _KXMLOCK((void **)&text, block), 0);
    strcpy(text, "hello from a movable block");
    printf("  %-44s %s\n", "block holds", text);
    bad |= check("_KXMUNLOCK", _KXMUNLOCK(block), 0);
    bad |= check("_KXMFREE", _KXMFREE(block), 0);
  }

  KXDTERM();
  printf("\nKXDTERM done; KXECODE() now %d\n", KXECODE());
  printf("\n%s\n", bad ? "demo FAILED" : "demo finished");
  return bad;
}
