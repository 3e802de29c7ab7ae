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

/* An NTX index over the sample table's names, made key by key from the
   records, searched, and walked in key order both ways. */
static int demo_index(int16_t table, uint32_t records) {
  static const char path[] = "rvdemo_name.ntx";
  char expression[] = "NAME";
  char key[40], seek[40];
  int16_t ix = -1, s;
  uint32_t recno, walked = 0;
  int bad = 0, shown;

  printf("\nNTX index %s on NAME\n", path);
  bad |= check("KXDCCREATE('C', NAME, 12)", KXDCCREATE(path, 'C', expression, 12, 0), 0);
  bad |= check("KXDCOPENX", KXDCOPENX(&ix, path, 0), 0);
  for (recno = 1; recno <= records; ++recno) {
    char *made = NULL;
    if (KXDDRGET(table, (int32_t)recno) < 0 || KXDCKMAKE(table, ix, &made) != 0 ||
        KXDCKADD(ix, made, recno) != 0) {
      bad |= check("make and add a key", KXECODE(), 0);
      break;
    }
  }
  strcpy(seek, "Grace 1");
  recno = 0;
  s = KXDCKFIND(ix, seek, &recno, 1);
  printf("  %-44s %6d: \"%s\" record %u\n", "KXDCKFIND(\"Grace 1\"), a prefix", s, seek, (unsigned)recno);
  bad |= s == 0 ? 0 : 1;
  strcpy(seek, "Zorro");
  s = KXDCKFIND(ix, seek, &recno, 1);
  printf("  %-44s %6d: \"%s\" record %u (the greatest below)\n", "KXDCKFIND(\"Zorro\")", s, seek, (unsigned)recno);

  printf("\n  the table in key order, forwards\n");
  shown = 0;
  for (s = KXDCKTOP(ix, key, &recno); s == 0; s = KXDCKNEXT(ix, key, &recno)) {
    if (shown++ < 6) printf("    %-14s record %u\n", key, (unsigned)recno);
    ++walked;
  }
  printf("    ... %u keys (status %d at the end)\n", (unsigned)walked, s);
  bad |= walked == records ? 0 : 1;
  printf("  and backwards\n");
  walked = 0;
  shown = 0;
  for (s = KXDCKBOT(ix, key, &recno); s == 0; s = KXDCKPREV(ix, key, &recno)) {
    if (shown++ < 6) printf("    %-14s record %u\n", key, (unsigned)recno);
    ++walked;
  }
  printf("    ... %u keys (status %d at the beginning)\n", (unsigned)walked, s);
  bad |= walked == records ? 0 : 1;
  KXESCODE(0);
  bad |= check("KXDCCLOSE", KXDCCLOSE(ix), 0);
  remove(path);
  return bad;
}

/* The text of a record's memo field ("" when it has none). The engine
   returns the text in a block of its own, which the host frees. */
static void memo_text(int16_t table, int16_t memo, char *out, size_t size) {
  uint32_t block = 0;
  char *text = NULL;
  out[0] = '\0';
  if (KXDDFGET(table, 4, &block) != 0 || block == 0) return;
  if (KXDTRGET(memo, (int32_t)block, &text) == 0) {
    snprintf(out, size, "%s", text);
    KXMFREE(text);
  }
}

static long file_size(const char *path) {
  FILE *f = fopen(path, "rb");
  long n = -1;
  if (f && fseek(f, 0, SEEK_END) == 0) n = ftell(f);
  if (f) fclose(f);
  return n;
}

/* The table's memo file after a rewrite that moves a memo and a pack that
   drops the deleted record's memo. */
static int demo_memo_pack(int16_t table, int16_t *memo, const char *memoPath) {
  char text[80], longer[700];
  uint32_t recno = 300, block = 0;
  int bad = 0;
  long before;

  printf("\nDBT memo file %s\n", memoPath);
  bad |= check("KXDDRGET(300)", KXDDRGET(table, 300), 0);
  KXDDFGET(table, 4, &block);
  snprintf(longer, sizeof longer, "%s", "Record 300 now has a note longer than a 512-byte block: it no "
           "longer fits where the old one was, so KXDTRPUT appends it and returns its new block number, "
           "which goes back into the field. The old text stays behind until a pack.");
  while (strlen(longer) + 40 < sizeof longer) strcat(longer, " And a few more words to fill it up.");
  bad |= check("KXDTRPUT(record 300's memo, mode 256)", KXDTRPUT(*memo, &block, longer, 256), 0);
  bad |= check("KXDDFPUT(NOTES) + KXDDRPUT(300, mode 256)", (int16_t)(KXDDFPUT(table, 4, &block) + KXDDRPUT(table, &recno, 256)), 0);
  printf("  %-44s %u\n", "record 300's memo is now at block", (unsigned)block);
  before = file_size(memoPath);
  bad |= check("KXDTPACK (record 150 is deleted)", KXDTPACK(table, memo), 0);
  printf("  %-44s %ld -> %ld bytes\n", "memo file size", before, file_size(memoPath));
  bad |= check("KXDDRGET(300)", KXDDRGET(table, 300), 0);
  memo_text(table, *memo, text, sizeof text);
  printf("  %-44s \"%.40s...\"\n", "record 300's memo after the pack", text);
  bad |= strncmp(text, longer, 40) == 0 ? 0 : 1;
  return bad;
}

/* A sample table: C, N, D, L and memo fields in a scratch file with its
   dBASE III memo file, a few hundred records appended (every fiftieth with
   a memo), some read back by number, one marked deleted. */
static int demo_table(void) {
  static const char path[] = "rvdemo_people.dbf", memoPath[] = "rvdemo_people.dbt";
  static const char *names[] = {"Ada", "Grace", "Alan", "Edsger", "Barbara", "Donald", "Niklaus"};
  KXDBFFIELD fields[5];
  int16_t h = -1, memo = -1;
  uint32_t count = 0, recno = 0, i;
  int bad = 0;
  int32_t show[] = {1, 2, 3, 150, 299, 300};
  size_t k;

  printf("\nDBF table %s\n", path);
  memset(fields, 0, sizeof fields);
  strcpy(fields[0].name, "NAME");   fields[0].type = 'C'; fields[0].width = 12;
  strcpy(fields[1].name, "SALARY"); fields[1].type = 'N'; fields[1].width = 9; fields[1].decimals = 2;
  strcpy(fields[2].name, "BORN");   fields[2].type = 'D'; fields[2].width = 8;
  strcpy(fields[3].name, "ACTIVE"); fields[3].type = 'L'; fields[3].width = 1;
  strcpy(fields[4].name, "NOTES");  fields[4].type = 'M'; fields[4].width = 10;
  bad |= check("KXDDCREATE(5 fields, mode 3)", KXDDCREATE(path, 5, fields, 3), 0);
  bad |= check("KXDDOPENX", KXDDOPENX(&h, path, 3), 0);
  bad |= check("KXDTCREATE(dBASE III memo file)", KXDTCREATE(memoPath, 0), 0);
  bad |= check("KXDTOPENX(as for a 0x83 table)", KXDTOPENX(&memo, memoPath, 0x83), 0);
  bad |= check("KXCDSTYLE(4): dates as yyyymmdd", KXCDSTYLE(4), 0);
  for (i = 1; i <= 300; ++i) {
    char name[16], born[16];
    double salary = 1000.0 + i * 12.25;
    uint8_t active = (i % 3) ? 1 : 0;
    snprintf(name, sizeof name, "%s %u", names[i % 7], (unsigned)i);
    snprintf(born, sizeof born, "19%02u%02u%02u", 40 + i % 50, 1 + i % 12, 1 + i % 28);
    KXDDRCLEAR(h);
    KXDDFPUT(h, 0, name);
    KXDDFPUT(h, 1, &salary);
    KXDDFPUT(h, 2, born);
    KXDDFPUT(h, 3, &active);
    if (i % 50 == 0) {
      char note[120];
      uint32_t block = 0;
      snprintf(note, sizeof note, "%s joined in %.4s; a note written in the memo file, block by block.", name, born);
      if (KXDTRPUT(memo, &block, note, 0) != 0) bad |= check("KXDTRPUT append", KXECODE(), 0);
      KXDDFPUT(h, 4, &block);
    }
    if (KXDDRPUT(h, &recno, 0) != 0) {
      bad |= check("KXDDRPUT append", KXECODE(), 0);
      break;
    }
  }
  bad |= check("KXDDSIZE after 300 appends", KXDDSIZE(h, &count), 0);
  printf("  %-44s %u\n", "records", (unsigned)count);
  bad |= check("KXDDRDEL(150)", KXDDRDEL(h, 150), 0);
  printf("\n  %-6s %-3s %-12s %10s %-10s %-6s %s\n", "recno", "del", "NAME", "SALARY", "BORN", "ACTIVE", "NOTES");
  for (k = 0; k < sizeof show / sizeof show[0]; ++k) {
    char name[16], born[16], note[40];
    double salary = 0;
    uint8_t active = 0;
    int16_t s = KXDDRGET(h, show[k]);
    KXDDFGET(h, 0, name);
    KXDDFGET(h, 1, &salary);
    KXDDFGET(h, 2, born);
    KXDDFGET(h, 3, &active);
    memo_text(h, memo, note, sizeof note);
    printf("  %-6d %-3s %-12s %10.2f %-10s %-6s %s\n", (int)show[k], s == KX_DELETED ? "*" : "",
           name, salary, born, active == 1 ? "yes" : active == 0 ? "no" : "?", note);
    if (s < 0) bad |= check("KXDDRGET", s, 0);
  }
  printf("\n");
  bad |= check("KXDDRGET(301) is past the end", KXDDRGET(h, 301), KX_ERR_SEEK);
  KXESCODE(0);
  bad |= demo_index(h, count);
  bad |= demo_memo_pack(h, &memo, memoPath);
  bad |= check("KXDTCLOSE", KXDTCLOSE(memo), 0);
  bad |= check("KXDDCLOSE", KXDDCLOSE(h), 0);
  remove(path);
  remove(memoPath);
  remove("rvdemo_people.TBK");
  return bad;
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

  bad |= demo_table();

  KXDTERM();
  printf("\nKXDTERM done; KXECODE() now %d\n", KXECODE());
  printf("\n%s\n", bad ? "demo FAILED" : "demo finished");
  return bad;
}
