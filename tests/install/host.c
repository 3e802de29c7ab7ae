/* A host program built against the installed library: creates a table,
   appends a record and reads it back. */
#include <stdio.h>
#include <string.h>

#include <rvdb4xx.h>

int main(int argc, char **argv) {
  KXDBFFIELD field;
  int16_t h = -1;
  uint32_t rec = 0;
  char name[21] = "";
  if (argc < 2 || KXDINIT(20, 4) < 0) return 1;
  memset(&field, 0, sizeof field);
  strcpy(field.name, "NAME");
  field.type = 'C';
  field.width = 20;
  if (KXDDCREATE(argv[1], 1, &field, 1) != 0 || KXDDOPENX(&h, argv[1], 0) != 0) return 2;
  if (KXDDFPUTS(h, 0, "installed") != 0 || KXDDRPUT(h, &rec, 0) != 0) return 3;
  if (KXDDRGET(h, (int32_t)rec) != 0 || KXDDFGETS(h, 0, name) != 0) return 4;
  printf("%u %s\n", rec, name);
  KXDDCLOSE(h);
  KXDTERM();
  return strncmp(name, "installed", 9) == 0 ? 0 : 5;
}
