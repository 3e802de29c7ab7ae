/*
 * rvdb4xx.h - public interface of the RVDB4XX xBase engine.
 *
 * Plain C, usable from C and C++. Every export returns a signed 16-bit
 * status (see the KX_* constants below) unless its comment says otherwise:
 * 0 is success, a negative value a failure, a positive value an expected
 * outcome (end of index, record deleted, value truncated ...).
 *
 * The status is sticky: once an export has failed, every export other than
 * the lifecycle, error and memory exports returns that same negative code at
 * once, doing nothing, until the host calls KXESCODE(0).
 *
 * Platform notes (POSIX builds)
 * -----------------------------
 * - Configuration: RVDB4XX.INI is looked for first at the path named by the
 *   environment variable RVDB4XX_INI, then as "RVDB4XX.INI" and
 *   "rvdb4xx.ini" in the current directory. Section and key names match
 *   without regard to case, as the Windows profile calls do; a missing file
 *   or key gives the built-in defaults (asciisort 1, datesort style 1).
 * - Share modes: an open without share bits is exclusive; a second open of
 *   the same file (by this or another process) fails as a sharing violation.
 *   Opens with any share bit coexist with each other. This is emulated with
 *   flock() per open file description: exclusive opens take LOCK_EX, shared
 *   opens LOCK_SH, both non-blocking. Programs that do not use flock() are
 *   not kept out.
 * - Byte-range locks behave as on Windows: a lock belongs to the file
 *   number that took it, two file numbers of one process conflict, closing
 *   one never drops another's locks, a region overlapping one already held
 *   through the same file number cannot be locked again, and only a region
 *   held exactly can be unlocked. They are Linux open-file-description locks
 *   (F_OFD_SETLK), so they are also seen by other processes using OFD or
 *   classic fcntl locks.
 * - Memory blocks: a block handle is a 32-bit number, not an address, on
 *   POSIX (on Windows it is the HGLOBAL itself). An invalid or freed handle
 *   gives a status, never a crash: _KXMLOCK gives -58, _KXMFREE returns the
 *   current status unchanged (the "discarded" case).
 * - Process context: a context belongs to the process that called KXDINIT.
 *   A child made by fork() is another process and must call KXDINIT itself;
 *   until it does, every export gives -59 in the child.
 *
 * Sharing (all platforms)
 * -----------------------
 * - Every write reaches the file at once, and every call sees what other
 *   processes wrote before it. An open table or index keeps a shared memory
 *   view of its first bytes (the DBF record count; the NTX update counter,
 *   root and free head), so that this costs no system call per call.
 * - NTX pages stay cached between calls while the index's update counter,
 *   root and free head are unchanged; every writer changes the counter on
 *   every change, as NTX programs have always relied on. (A handle left idle
 *   across exactly 65,536 changes that leave root and free head as they were
 *   would not notice: the counter is 16 bits wide in the file.)
 * - On POSIX, a program that cuts a table or index shorter than its header
 *   while this library has it open makes the next access to the view fault:
 *   xBase programs never do this (a pack writes a new file and renames it).
 *   On Windows such a file cannot be cut or replaced while it is open here.
 *
 * Windows builds
 * --------------
 * - RVDB4XX.DLL (32-bit x86): every export is __stdcall (KXAPI) and is
 *   exported under its plain name (KXDINIT, _KXMALLOC), no "@n" decoration;
 *   the import library RVDB4XX.lib maps the decorated names that C callers
 *   compiled with this header refer to onto those exports. A 64-bit DLL of
 *   the same name uses the x64 calling convention. Both need only system
 *   DLLs (KERNEL32, USER32, MSVCRT).
 * - Files are Win32 handles (CreateFileA with FILE_FLAG_RANDOM_ACCESS, not
 *   inheritable, critical-error dialogs off). Share modes and byte-range
 *   locks are Windows' own (LockFile/UnlockFile); an unlock of a region not
 *   held through that file number gives -38, as on POSIX.
 * - Memory blocks: a block handle is the HGLOBAL (HLOCAL for the local
 *   family) itself. Handles the engine did not hand out, or has freed, are
 *   refused before they reach the allocator (-58 from _KXMLOCK, the status
 *   unchanged from _KXMFREE), so a stale handle never frees a reused block.
 * - Configuration: RVDB4XX_INI, when set, names the file (a relative name is
 *   taken from the current directory); otherwise GetPrivateProfileIntA and
 *   GetPrivateProfileStringA look for "RVDB4XX.INI" in the Windows
 *   directory, as for any profile file.
 * - Process context: contexts are keyed by GetCurrentProcessId(), because
 *   GetCurrentProcess() returns the same pseudo-handle constant in every
 *   process and could not tell two processes apart.
 * - The date notice ("mauvaise Longueur") is a MessageBoxA with an OK
 *   button, shown only on a desktop a user can see (the process's window
 *   station is visible). With RVDB4XX_NOTICE=0 (the tests set it), in a
 *   service or without a display, no box is shown: the text goes to the
 *   debugger (OutputDebugStringA) and, unless RVDB4XX_NOTICE=0, to stderr.
 *   Either way the conversion gives -15.
 * - The error log is a text-mode C stream, so its lines end in CR LF.
 */
#ifndef RVDB4XX_H
#define RVDB4XX_H

#include <stdint.h>

#if defined(_WIN32) && !defined(_WIN64)
#define KXAPI __stdcall
#else
#define KXAPI
#endif

#if defined(_WIN32)
#define KXEXPORT
#elif defined(RVDB4XX_BUILD)
#define KXEXPORT __attribute__((visibility("default")))
#else
#define KXEXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A movable memory block handle: an HGLOBAL on Windows, a 32-bit number
   elsewhere. 0 is never a valid block. */
#if defined(_WIN32)
typedef uintptr_t KXBLOCK;
#else
typedef uint32_t KXBLOCK;
#endif

/* ---- Status codes ------------------------------------------------------ */
#define KX_OK                  0
#define KX_DELETED             1    /* record is marked deleted */
#define KX_EMPTY               2    /* index empty, key not in it, empty date */
#define KX_END                 3    /* end or beginning of index / list reached */
#define KX_NOTFOUND            4    /* no current key; file to erase not found */
#define KX_TRUNCATED           5    /* character value cut to the field width */
#define KX_ROUNDED             6    /* number stored with loss */
#define KX_SIZEWARN            7    /* opened, but file size disagrees with header */
#define KX_NOTDONE             8    /* operation not performed (KXDDFLUSH) */
#define KX_DUPLICATE          11    /* procedure name already defined */
#define KX_ERR_WRITE          (-1)
#define KX_ERR_READ           (-2)
#define KX_ERR_NOMEM          (-3)
#define KX_ERR_SEEK           (-4)  /* seek failed; record or page number out of range */
#define KX_ERR_NOFILE         (-5)  /* rename: the file does not exist */
#define KX_ERR_STRUCTURE      (-6)
#define KX_ERR_EXPR           (-7)
#define KX_ERR_NOHANDLE       (-8)  /* no free handle slot; too many tags */
#define KX_ERR_PAGEPOS        (-9)
#define KX_ERR_PAGEWRITE      (-10)
#define KX_ERR_RANGE          (-12) /* argument value out of range */
#define KX_ERR_HANDLE         (-13)
#define KX_ERR_FILENAME       (-14)
#define KX_ERR_DATE           (-15)
#define KX_ERR_TIME           (-16)
#define KX_ERR_MEMOHEADER     (-17)
#define KX_ERR_VERSION        (-18)
#define KX_ERR_HEADERLEN      (-19)
#define KX_ERR_MDXHEADER      (-20)
#define KX_ERR_NULL           (-21)
#define KX_ERR_KEYTYPE        (-22)
#define KX_ERR_EXPRLEN        (-23)
#define KX_ERR_ITEMSIZE       (-24)
#define KX_ERR_ROOT           (-25)
#define KX_ERR_HEADERFIELD    (-26)
#define KX_ERR_FIELDNO        (-27)
#define KX_ERR_FIELDNAME      (-28)
#define KX_ERR_FIELDLEN       (-29)
#define KX_ERR_DECIMALS       (-30)
#define KX_ERR_FIELDTYPE      (-31)
#define KX_ERR_RECLEN         (-32)
#define KX_ERR_VALUE          (-33)
#define KX_ERR_MEMOVALUE      (-34)
#define KX_ERR_PRODINDEX      (-35)
#define KX_ERR_READONLY       (-36)
#define KX_ERR_LOCK           (-37)
#define KX_ERR_UNLOCK         (-38)
#define KX_ERR_ACCESS         (-40)
#define KX_ERR_NTXHEADER      (-44)
#define KX_ERR_OPEN           (-46)
#define KX_ERR_FLUSH          (-47)
#define KX_ERR_TAGNO          (-48)
#define KX_ERR_BLOCKSIZE      (-49)
#define KX_ERR_TAG            (-50)
#define KX_ERR_MDXBLOCKSIZE   (-51)
#define KX_ERR_MDXMARK0       (-52)
#define KX_ERR_MDXMARKBLANK   (-53)
#define KX_ERR_MDXTAGINDEX    (-54)
#define KX_ERR_MDXTAGFLAGS    (-55)
#define KX_ERR_KIND           (-56)
#define KX_ERR_TAGERASE       (-57)
#define KX_ERR_MEMLOCK        (-58)
#define KX_ERR_NOINIT         (-59)
#define KX_ERR_CACHEHIGH      (-5000)
#define KX_ERR_CACHELOW       (-5001)
/* A rename that failed with C-library error n (other than 2 and 13) gives
   (int16_t)(0xC000 | n); so do Htell/Herase failures and unknown lock
   errors inside the file layer. */
#define KX_ERR_CLIB(n)        ((int16_t)(0xC000 | (n)))

/* ---- Handle kinds ------------------------------------------------------ */
#define KX_KIND_FREE 0
#define KX_KIND_DBF  1
#define KX_KIND_NDX  2
#define KX_KIND_DBT  3
#define KX_KIND_FPT  4
#define KX_KIND_MDX  5
#define KX_KIND_IDX  6
#define KX_KIND_NTX  7

/* ---- Lifecycle --------------------------------------------------------- */

/* Initialise for this process with `handles` handles (5..; at most 100
   count, 5 are reserved: 100 gives 95 slots) and date style 1..15 (any other
   value reads "datesort" from RVDB4XX.INI). A second call in the same
   process closes every handle of the first. Status 0, -13 (fewer than 5
   handles), -3. */
KXEXPORT int16_t KXAPI KXDINIT(int16_t handles, uint8_t dateStyle);
/* Close every open handle of this process and drop its context. No status. */
KXEXPORT void KXAPI KXDTERM(void);
/* Close the operating-system file of every open handle; the next use of a
   handle reopens it. Status 0 or -59. */
KXEXPORT int16_t KXAPI KXDQCLOSE(void);
/* 0 when the caller was built for interface version 3, else -18. Needs no
   context and leaves the error status alone. */
KXEXPORT int16_t KXAPI KXDVERSION(uint16_t version);
/* Entry point of the host development environment: KXDINIT(100, 0); returns
   1 on success, 0 on failure. The first value is ignored, the second kept. */
KXEXPORT int16_t KXAPI RV5InitInstance(uint32_t unused, uint32_t hostValue);

/* ---- Error status and log ---------------------------------------------- */

/* The caller's error status; -59 without a context. */
KXEXPORT int16_t KXAPI KXECODE(void);
/* Set the caller's error status (0 clears a sticky failure); returns it, or
   -59 (nothing stored) without a context. */
KXEXPORT int16_t KXAPI KXESCODE(int16_t code);
/* Log mode: 0 off, 1 on with `logFile` (a NUL-terminated path of at most 29
   characters; read only for mode 1, then -21 if null), other values log to
   the path set earlier. Each failure appends "module\tline\tcode\n".
   Returns the current error status, or -59 without a context. */
KXEXPORT int16_t KXAPI KXESLOG(uint16_t mode, const char *logFile);

/* ---- Memory blocks (no sticky check; success leaves the status alone) ---- */

/* Allocate a zero-filled movable block of size + 128 bytes. 0 or -3. */
KXEXPORT int16_t KXAPI _KXMALLOC(KXBLOCK *block, uint32_t size);
/* Resize to newSize + 128 bytes, growth zero-filled; on failure the old block
   stays valid and *block is untouched. 0 or -3 (also for a bad handle). */
KXEXPORT int16_t KXAPI _KXMRALLOC(KXBLOCK *block, uint32_t newSize);
/* Undo every outstanding lock and free. 0; -3 when the free fails; an
   invalid (or already freed) handle returns the current status unchanged. */
KXEXPORT int16_t KXAPI _KXMFREE(KXBLOCK block);
/* Free the block that `address` (from _KXMLOCK) lies in. Always 0. */
KXEXPORT int16_t KXAPI KXMFREE(void *address);
/* Lock the block and store its address. 0, -58 (bad handle), -21. */
KXEXPORT int16_t KXAPI _KXMLOCK(void **address, KXBLOCK block);
/* Undo one lock. Always 0. */
KXEXPORT int16_t KXAPI _KXMUNLOCK(KXBLOCK block);

/* ---- DBF tables, records, fields ---------------------------------------- */
/*
 * A table is a DBF file: a 32-byte header, one 32-byte descriptor per field,
 * a terminator, fixed-length records and a 0x1A end mark. Field types C
 * (character), D (date "yyyymmdd"), F (float), L (logical), M (memo block
 * number, 10 characters) and N (numeric).
 *
 * Compatibility modes (low byte of the create and open modes):
 *   mode  fields  record  version bytes opened   version with memo fields
 *   1,3,9  128    4000    0x03 0x83              0x83 (9: 32-byte terminator)
 *   2      255    4000    0x03 0x83 0x8B         0x8B
 *   4      128    4000    0x03 0xF5              0xF5
 *   5      1023   4000    0x03 0x83              0x83
 *   6      1023   8192    0x03 0x83              0x83 (C fields up to 2048)
 *   7      512    4000    0x03 0x83              0x83
 *   8      255    4000    0x03 0xF5              0xF5
 * N and F fields are 1..19 wide (1..20 in modes 2, 4, 8), with 0 decimals or
 * at most width - 2 (at most 15 outside modes 2, 4, 8); F only in modes 2, 4,
 * 8. D, L and M widths are forced to 8, 1 and 10.
 *
 * Paths are at most 259 characters; a longer path gives -14.
 *
 * Host value forms of the field functions (and, one after another, of the
 * packed records of KXDDRGETX/KXDDRPUTX):
 *   type  host value                                   packed slot
 *   C     NUL-terminated string                        width + 1
 *   D     NUL-terminated date in the current style     width + 1 (9)
 *   N, F  double                                       8
 *   L     one byte: 1 true, 0 false, '?' unknown        width (1)
 *   M     uint32_t memo block number                   4
 * A packed record is the deletion flag byte followed by the slots with no
 * gaps (doubles are unaligned). A date in a ten-character style runs into the
 * next slot, which the next field then overwrites; in the last slot it is cut
 * to 8 characters so that nothing is written past the packed record. Hosts
 * that use the ten-character styles read dates one field at a time.
 *
 * Field get rules (KXDDFGET): a field is empty when it and everything after
 * it to the end of the record is blank. C: the full width and a NUL (blanks
 * kept; the buffer needs width + 1 bytes). D: empty gives blanks in the width
 * of the current style (8, 10 or 6); otherwise the stored date in the current
 * style (buffer of at least 11 bytes); a blank date followed by non-blank
 * fields also reads as blanks. N, F: empty gives 0.0, otherwise the text read
 * with "%lf" (text that does not read as a number leaves the double as it
 * was). L: empty gives '?'; 0, 'F', 'N', 'f', 'n' give 0; 1, 'T', 'Y', 'y'
 * give 1; any other byte (a stored lower-case 't' included) leaves the host
 * byte as it was. M: empty gives 0, otherwise the number.
 * Field put rules (KXDDFPUT): C: blank-filled, cut to the width (status 5).
 * D: empty or blank gives 8 blanks, otherwise the date is read in the current
 * style (its failures -12, -15) and stored as yyyymmdd. N, F: printed with
 * "%*.*lf" at the field's width and decimals; a value above the field's
 * largest value, a printed text wider than the field (large negative values)
 * or a value that is not finite is -33 and leaves the field unchanged; a value
 * that does not read back exactly is stored with status 6. L: 1, 'T', 'Y',
 * 't', 'y' store "T"; 0, 'F', 'N', 'f', 'n' store "F"; anything else -33.
 * M: the number printed with "%10lu", right-aligned in the field's width
 * (a field wider than ten, from another program's header, gets blanks
 * before it); a number wider than the field is -33.
 * The S variants (KXDDFGETS/KXDDFPUTS) apply the C rules to any field.
 */
#pragma pack(push, 1)
/* Field record of KXDDCREATE and KXDDFINFO (17 bytes):
   offset 0 name[11] (NUL-terminated), 11 type (character code, u16),
   13 width (u16; the full width, C fields over 255 included), 15 decimals
   (u16; for C fields KXDDFINFO gives the width's high byte, as stored). */
typedef struct KXDBFFIELD {
  char name[11];
  uint16_t type;
  uint16_t width;
  uint16_t decimals;
} KXDBFFIELD;

/* Information record of KXDDINFO (282 bytes):
   0 lockOffset, 4 lockLength (u32: the region of the last lock or unlock);
   8 flags (u16: bit 0 read-only, bit 1 shared, bit 2 opened with 0x200 or
   0x800); 10 path[260]; 270 mode (u16, 1..9); 272 memo (u16: 1 when the table
   has memo fields); 274 prodIndex, 276 header14, 278 header15 (u16: header
   bytes 28, 14 and 15); 280 lockState (u16: the lock state byte, 0 until a
   lock function sets it). */
typedef struct KXDBFINFO {
  uint32_t lockOffset;
  uint32_t lockLength;
  uint16_t flags;
  char path[260];
  uint16_t mode;
  uint16_t memo;
  uint16_t prodIndex;
  uint16_t header14;
  uint16_t header15;
  uint16_t lockState;
} KXDBFINFO;

/* Record information of KXDDRINFO and KXDDRINFOH:
   0 recordLength (u16), 2 fieldCount (u16), 4 the record buffer: its address
   (KXDDRINFO; pointer-sized) or its memory block (KXDDRINFOH; KXBLOCK). The
   buffer stays at its address until the table is closed. */
typedef struct KXRECINFO {
  uint16_t recordLength;
  uint16_t fieldCount;
  union {
    uint8_t *address;
    KXBLOCK block;
  } buffer;
} KXRECINFO;
#pragma pack(pop)

/* Create a table. mode: 1..9, plus 0x200 to set the production index flag.
   0, -21, -14 (empty or too long path), -18 (mode), -27 (count), -28 (name),
   -29 (width), -30 (decimals), -31 (type), -32 (record too long), -46, -1. */
KXEXPORT int16_t KXAPI KXDDCREATE(const char *path, int16_t fieldCount,
                                  const KXDBFFIELD *fields, uint16_t mode);
/* Open a table. mode: low byte 0..9 (0 is 1); 0x100 read-only; 0x400 shared;
   0x800 shared and 0x200 (ignored with 0x100). A file that cannot be opened
   for writing opens read-only and shared. 0; 7 (opened, but the file size
   disagrees with the header); -21, -14, -46, -8, -2 (truncated header), -12
   (mode), -18 (version byte), -19 (header length), -35 (production index
   flag, modes 2 and 8), -28, -31, -29 (a field of width 0: it could hold no
   value, and its packed slot would be empty), -32 (record length). Widths
   other than those create gives (an L or M field wider than 1 or 10) are
   accepted as they stand. *handle is -1 after a failure. */
KXEXPORT int16_t KXAPI KXDDOPENX(int16_t *handle, const char *path, uint16_t mode);
/* Close a table; writes the last-update date if records were written.
   0, -13, -1. */
KXEXPORT int16_t KXAPI KXDDCLOSE(int16_t handle);
/* Record count of the header copy. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDDSIZE(int16_t handle, uint32_t *count);
/* Re-read the 32-byte header from the file (record count, last-update date),
   e.g. after locking, to see records other programs appended. 0, -13, -2;
   -19 / -32 when the file's header length / record length no longer match
   the open table (the copy is then left as it was). */
KXEXPORT int16_t KXAPI KXDDHGET(int16_t handle);
/* Number (from 0) of the field named `name` (any case). 0, -13, -21, -28. */
KXEXPORT int16_t KXAPI KXDDFNAM2NO(int16_t handle, int16_t *number, const char *name);
/* Name of field `number` into `name` (11 bytes). 0, -13, -21, -27. */
KXEXPORT int16_t KXAPI KXDDFNO2NAM(int16_t handle, char *name, int16_t number);
/* Width of the widest field, and one KXDBFFIELD per field into `fields`
   (room for the field count). 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDDFINFO(int16_t handle, int16_t *widest, KXDBFFIELD *fields);
/* Table information. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDDINFO(int16_t handle, KXDBFINFO *info);
/* Last-update date of the header in date style `style` (buffer of at least
   11 bytes). 0, -13, -21, -15 (the header holds no valid date), -12. */
KXEXPORT int16_t KXAPI KXDDLUD(int16_t handle, char *date, uint32_t style);

/* Read record `recno` into the buffer and, when `packed` is not null,
   convert every field into it. 0, 1 (deleted: flag byte not blank), -13,
   -4 (recno outside 1..count), -2, -15 (stored date invalid). */
KXEXPORT int16_t KXAPI KXDDRGETX(int16_t handle, void *packed, int32_t recno);
/* KXDDRGETX without a packed record. */
KXEXPORT int16_t KXAPI KXDDRGET(int16_t handle, int32_t recno);
/* Store the packed record's fields (when not null), then write the buffer:
   mode 0 appends (the new number comes back in *recno), mode 256 rewrites
   record *recno (numbers past the count are written at their offset and the
   count is left alone). The deletion flag is always cleared. 0, 5 or 6 (a
   field was cut or rounded), -13, -21, -12 (mode), -36 (read-only), -4
   (recno 0, or an offset beyond 4 GiB), -33, -15, -1. */
KXEXPORT int16_t KXAPI KXDDRPUTX(int16_t handle, const void *packed, uint32_t *recno,
                                 uint16_t mode);
/* KXDDRPUTX without a packed record. */
KXEXPORT int16_t KXAPI KXDDRPUT(int16_t handle, uint32_t *recno, uint16_t mode);
/* Mark record `recno` deleted / clear the mark (written only when it changes).
   0, -13, -36, -4, -2, -1. */
KXEXPORT int16_t KXAPI KXDDRDEL(int16_t handle, uint32_t recno);
KXEXPORT int16_t KXAPI KXDDRUNDEL(int16_t handle, uint32_t recno);
/* 1 when the buffer's deletion flag is '*', else 0; -13. */
KXEXPORT int16_t KXAPI KXDDRSTAT(int16_t handle);
/* Number of the record in the buffer (0 after open). 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDDRNUM(int16_t handle, uint32_t *recno);
/* Record length, field count and the record buffer's address. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDDRINFO(int16_t handle, KXRECINFO *info);
/* As KXDDRINFO with the buffer's memory block instead. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDDRINFOH(int16_t handle, KXRECINFO *info);
/* Fill the record buffer, deletion flag included, with blanks. 0, -13. */
KXEXPORT int16_t KXAPI KXDDRCLEAR(int16_t handle);

/* Field `number` (from 0) of the buffer into `value` by its type.
   0, -13, -21, -27, -15, -12. */
KXEXPORT int16_t KXAPI KXDDFGET(int16_t handle, int16_t number, void *value);
/* Any field as its raw text (width + 1 bytes). 0, -13, -21, -27. */
KXEXPORT int16_t KXAPI KXDDFGETS(int16_t handle, int16_t number, char *value);
/* By name; -28 for an unknown name. */
KXEXPORT int16_t KXAPI KXDDFNGET(int16_t handle, const char *name, void *value);
KXEXPORT int16_t KXAPI KXDDFNGETS(int16_t handle, const char *name, char *value);
/* Store `value` into field `number` of the buffer by its type. 0, 5 (cut),
   6 (rounded), -13, -21, -27, -33, -15, -12. */
KXEXPORT int16_t KXAPI KXDDFPUT(int16_t handle, int16_t number, const void *value);
/* Store text into any field by the character rule. 0, 5, -13, -21, -27. */
KXEXPORT int16_t KXAPI KXDDFPUTS(int16_t handle, int16_t number, const char *value);
/* By name; -28 for an unknown name. */
KXEXPORT int16_t KXAPI KXDDFNPUT(int16_t handle, const char *name, const void *value);
KXEXPORT int16_t KXAPI KXDDFNPUTS(int16_t handle, const char *name, const char *value);
/* ---- end of DBF tables, records, fields -------------------------------- */

/* ---- DBF locking, flush and pack ----------------------------------------- */
/*
 * Programs sharing a table coordinate through byte-range locks on the DBF
 * file, at fixed offsets beyond any data (offset, length):
 *   file lock                 0x7FFFFFFE, 1
 *   full region               0x5FFFFFC0, 0x2000003F (up to 0x7FFFFFFE)
 *   full region less file byte 0x5FFFFFC0, 0x2000003E
 *   record area (reader test) 0x5FFFFFC0, 0x1FFFFFFF
 *   reader slot s (3..64)     0x7FFFFFFF - s, 1
 *   slots and file byte test  0x7FFFFFBF, 63
 *   record r                  0x7FFFFFBF - r, 1
 * A lock belongs to the handle that took it (two handles conflict, even in
 * one process) and goes when the handle is closed or the program ends.
 * The out flag (may be null) is 0 when the lock was taken and 100 when it
 * was refused; a refusal is written to the error log but is not an error:
 * the status is 0. Regions overlapping a lock this handle already holds are
 * refused too, a repeated lock of the same region included; only record
 * locks remember what the handle holds (KXDDRLOCK). KXDQCLOSE drops every
 * lock of the closed files: lock again after it.
 * Every successful file lock (functions 1 to 4) re-reads the header, so
 * the record count includes what other programs appended.
 * KXDDINFO's lockOffset/lockLength give the region of the last file-level
 * lock or unlock (record locks and the tests of function 5 leave it), and
 * its lockState the file-level locks held: 0x01 function 1, 0x02 function 2,
 * 0x04 function 3, 0x08 a reader slot.
 */
/* File locks. function 1 file lock; 2 full region; 3 full region less the
   file byte; 4 shared reader lock (refused while any record is locked,
   then the first free reader slot from 3 down to 64; one slot per handle);
   5 test only: flag 100
   while any reader slot is held. 0; -13; -12 (other function); -19/-32/-2
   (the header re-read failed; the lock is released again); an unlock code
   of the test in functions 4 and 5. */
KXEXPORT int16_t KXAPI KXDDLOCK(int16_t handle, uint16_t function, uint16_t *flag);
/* Release: 1, 2, 3 as KXDDLOCK; 4 this handle's reader slot; any other
   value the region of the last lock or unlock. Flag 0, or 100 on failure.
   0; -13; -38 (that region is not locked through this handle; the handle
   then no longer counts it as held). */
KXEXPORT int16_t KXAPI KXDDUNLOCK(int16_t handle, uint16_t function, uint16_t *flag);
/* Record locks. function 5 test (flag 100 when another handle holds the
   record; a record this handle holds tests free); 6 unlock (recno 0: every
   record this handle holds, the last locked first); 7 lock (a record held
   already stays held, listed once). A handle lists at most 16,384 records:
   past that, the record's byte is locked but the flag says 100. Other
   functions do nothing and leave the flag alone. 0; -13; -12 (recno above
   0x7FFFFFBF for 5 and 7); -38 (an unlock failed; function 6 releases the
   others all the same). */
KXEXPORT int16_t KXAPI KXDDRLOCK(int16_t handle, uint32_t recno, uint16_t function,
                                 uint16_t *flag);
/* Kept for older hosts: does nothing. 0. */
KXEXPORT int16_t KXAPI KXDDHLOCK(int16_t handle);
/* Every write already reaches the file: nothing to do, for any handle. 8. */
KXEXPORT int16_t KXAPI KXDDFLUSH(int16_t handle);
/* Remove the deleted records. The live records are copied into a temporary
   table "<dir>N.DBF" (N the first of 0, 1, 2 ... not taken) created with the
   table's fields and mode (and its production index flag), which ends
   without the 0x1A mark; the old file becomes the backup (the name's last
   extension replaced by ".BAK", or ".BAK" appended; an old backup is
   erased); then the table is reopened with its mode + 0x600 (shared) and
   *handle receives the new handle. The table must be lockable with
   function 2 (this handle may hold that lock already; it must not hold
   other locks of the table). Until the renames nothing of the table changes: a failure
   before them leaves it open under the same handle and removes the
   temporary table. After a failure in the renames or the reopen *handle is
   -1 (the table is then under its own name, or, if the second rename
   failed and could not be undone, under the backup name). On Windows an
   open file cannot be renamed: while any other handle or program has the
   table open the first rename fails (-40) and the table stays, closed,
   under its name. Memo and index
   files are not touched. 0; -21; -13; -36 (read-only); -37 (another
   program holds a lock); -14 (names too long, or a table whose name ends
   in ".BAK"); -46, -1, -2, -5, -40 and the codes of KXDDCREATE/KXDDOPENX. */
KXEXPORT int16_t KXAPI KXDDPACK(int16_t *handle);
/* ---- end of DBF locking, flush and pack ---------------------------------- */

/* ---- Dates and times ------------------------------------------------------- */
/*
 * Date strings use one of fifteen styles (codes 1..15):
 *   1 mm/dd/yy   2 mm/dd/yyyy   3 yyyy/ddd (Julian)   4 yyyymmdd (dBASE)
 *   5 ddmmyy     6 dd.mm.yy     7 dd.mm.yyyy          8 dd/mm/yy (British)
 *   9 dd/mm/yyyy 10 dd/mm/yy (French)  11 dd/mm/yyyy (French)
 *   12 dd-mm-yy  13 dd-mm-yyyy  14 yy.mm.dd           15 yyyy.mm.dd
 * Parsing reads fixed positions of the string after every blank has been
 * removed (the blanks are not read as zeros, so ' 5/12/92' reads as
 * '5/12/92'); separators are never checked. Two-digit years 00..99 are
 * 1900..1999 (no pivot). A blank string or one holding only separators is
 * the empty date: status 2, year = month = day = 0. Strings longer than 32
 * characters (blanks included) are not dates: -15. Style 1..3 accept '\'
 * for '/'. A style-4 string whose length without blanks is not 8 also shows
 * the notice "mauvaise Longueur" with the string as its caption: on POSIX
 * one line on standard error (RVDB4XX_NOTICE=0 silences it), on Windows a
 * message box unless switched off; the result is -15 either way.
 * Day numbers: 1 is 1 January of year 1; a date's number is
 * (year-1)*365.2425 truncated plus its day of year, the value existing files
 * and hosts hold. It differs by one from the exact Gregorian count in some
 * years, and 800 day numbers (the first days of those years, the first being
 * 74144) have no date: converting them back gives -15.
 * The month-length table is shared: its February entry is whatever the last
 * leap computation set, and the Julian style (3) parses the day of year with
 * it before the parsed year's own rule is applied.
 * Buffers: 11 bytes for a date, 10 for a month or weekday name, 23 for a
 * style name, 9 for a time. Time styles: 1 'hh:mm:ss' (a blank may stand
 * for the leading 0 of the hours), 2 'hhmm'; only the canonical form is
 * accepted. A string that fails its length or separator checks leaves the
 * outputs untouched; one that parses but fails validation leaves the parsed
 * values in them.
 */
/* Set the current date style. Returns the status as it was; -12, -59. */
KXEXPORT int16_t KXAPI KXCDSTYLE(uint16_t style);
/* Current style and its name (23 bytes). Status as it was; -21, -59. */
KXEXPORT int16_t KXAPI KXCDGSTYLE(uint16_t *style, char *name);
/* Date string to parts. 0, 2 (empty date), -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDS2I(int16_t *year, int16_t *month, int16_t *day,
                               const char *text, uint16_t style);
/* Parts to date string. 0, -21 (null buffer, checked first), -15, then -12. */
KXEXPORT int16_t KXAPI KXCDI2S(char *out, uint16_t style, int16_t year,
                               int16_t month, int16_t day);
/* Parts (year 0..9999) to day number. 0, -15, -21. */
KXEXPORT int16_t KXAPI KXCDI2L(int32_t *dayNumber, int16_t year, int16_t month,
                               int16_t day);
/* Day number (1..3652059) to parts. 0, -15, -21; outputs set on success only. */
KXEXPORT int16_t KXAPI KXCDL2I(int16_t *year, int16_t *month, int16_t *day,
                               int32_t dayNumber);
/* Date string to day number; the empty date is -15. 0, -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDS2LX(int32_t *dayNumber, const char *text, uint16_t style);
/* Day number to date string. 0, -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDL2SX(char *out, uint16_t style, int32_t dayNumber);
/* Date string from one style to another; the empty date is -15. 0, -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDS2S(char *out, uint16_t outStyle, const char *text,
                               uint16_t inStyle);
/* Status of parsing the string: 0, 2 (empty), -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDSVALID(const char *text, uint16_t style);
/* Absolute difference in days of two date strings. 0, -12, -15, -21 (checked first). */
KXEXPORT int16_t KXAPI KXCDSDIFF(uint32_t *days, const char *first, uint16_t firstStyle,
                                 const char *second, uint16_t secondStyle);
/* Weekday (0 Sunday .. 6 Saturday) of a day number 1..3652059. 0, -15, -21. */
KXEXPORT int16_t KXAPI KXCDL2DOW(int16_t *weekday, int32_t dayNumber);
/* Weekday of a date string. 0, -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDS2DOW(int16_t *weekday, const char *text, uint16_t style);
/* Name of weekday 0..6 ("Sunday" ..). 0, -15, -21. */
KXEXPORT int16_t KXAPI KXCDSDAY(char *out, int16_t weekday);
/* Weekday name of a date string. 0, -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDS2DAY(char *out, const char *text, uint16_t style);
/* Name of month 1..12 ("January" ..). 0, -15, -21. */
KXEXPORT int16_t KXAPI KXCDSMONTH(char *out, int16_t month);
/* Month name of a date string. 0, -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDS2MON(char *out, const char *text, uint16_t style);
/* 1 for a leap year, else 0; sets the shared February length. Needs no
   context; sets no status. */
KXEXPORT int16_t KXAPI KXCDILEAP(int16_t year);
/* 1 or 0 for the year of a date string (also left as the status); -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDSLEAP(const char *text, uint16_t style);
/* Days in the month (year 1..9999, month 1..12). 0, -15, -21. */
KXEXPORT int16_t KXAPI KXCDIPERM(int16_t *days, int16_t year, int16_t month);
/* Days in the month of a date string. 0, -12, -15, -21. */
KXEXPORT int16_t KXAPI KXCDSPERM(int16_t *days, const char *text, uint16_t style);
/* Today's local date and weekday (0 Sunday). 0, -21. */
KXEXPORT int16_t KXAPI KXCDIGET(int16_t *year, int16_t *month, int16_t *day,
                                int16_t *weekday);
/* Today's date as a date string. 0, -12, -21. */
KXEXPORT int16_t KXAPI KXCDSGET(char *out, uint16_t style);
/* Time string to parts (style 2: seconds 0). 0, -12, -16, -21. */
KXEXPORT int16_t KXAPI KXCTS2I(int16_t *hours, int16_t *minutes, int16_t *seconds,
                               const char *text, uint16_t style);
/* Parts to time string (9 bytes). 0, -21, -16 (all three ranges, also for
   style 2), then -12. */
KXEXPORT int16_t KXAPI KXCTI2S(char *out, uint16_t style, int16_t hours,
                               int16_t minutes, int16_t seconds);
/* Status of parsing the time string: 0, -12, -16, -21. */
KXEXPORT int16_t KXAPI KXCTSVALID(const char *text, uint16_t style);
/* Absolute difference in seconds; both strings are parsed before the output
   pointer is checked. 0, -12, -16, -21. */
KXEXPORT int16_t KXAPI KXCTSDIFF(uint32_t *secs, const char *first, uint16_t firstStyle,
                                 const char *second, uint16_t secondStyle);
/* The current local time; hundredths is always 0. 0, -21. */
KXEXPORT int16_t KXAPI KXCTIGET(int16_t *hours, int16_t *minutes, int16_t *seconds,
                                int16_t *hundredths);
/* The current time as a time string. 0, -12, -21. */
KXEXPORT int16_t KXAPI KXCTSGET(char *out, uint16_t style);
/* ---- end of dates and times ------------------------------------------------ */

/* ---- Expressions and user procedures ------------------------------------- */
/* Key expressions are evaluated over a table's current record: field names,
   numbers (digits and "."), bare words (character literals, at most 10
   characters), "+" (concatenation of strings, addition of numbers) and the
   functions SUBSTR(c,start[,count]) LEFT(c,n) RIGHT(c,n) STR(x[,len[,dec]])
   DTOC(d) DTOS(d). Positions and counts past the end of a string are held to
   its end; STR( prints at most 255 wide and 100 decimals. */

/* The record a user procedure works on. On entry `pos` points just past the
   procedure's name in the expression. A procedure reads integer arguments
   with KXDXVGET and evaluates a term with KXDXPROC (which leaves the term in
   `result`); to return a value of its own it frees `result` with _KXMFREE
   (if set), allocates and locks a new block with _KXMALLOC/_KXMLOCK, and sets
   result, result_ptr, type ('C' NUL-terminated text, 'N' a double, 'D' a
   date string, 'L' one byte) and length. It returns a status; a negative one
   ends the evaluation. */
typedef struct KXEXPRSTATE {
  KXBLOCK result;
  void *result_ptr;
  uint16_t type;
  uint16_t length;
  char *pos;
} KXEXPRSTATE;
typedef int16_t (KXAPI *KXUSERPROC)(KXEXPRSTATE *state);

/* What KXDXEVAL returns: the value stays valid until the next evaluation. */
typedef struct KXEXPRVALUE {
  void *value;
  uint16_t type;
  uint16_t length;
} KXEXPRVALUE;

/* Evaluate `expression` (blanks removed and upper-cased in place) over the
   table's current record. Terms nest through function arguments and user
   procedures (KXDXPROC) at most 100 deep; a deeper term is a bad expression.
   0, -7 bad expression, -13 bad handle, -21. */
KXEXPORT int16_t KXAPI KXDXEVAL(int16_t table, char *expression, KXEXPRVALUE *result);
/* Inside a user procedure: evaluate one term at the current position. 0, -7. */
KXEXPORT int16_t KXAPI KXDXPROC(void);
/* Inside a user procedure: read an integer argument. 0, -7 none, -21. */
KXEXPORT int16_t KXAPI KXDXVGET(int16_t *value);
/* Register a procedure (name upper-cased in place; a registered name that
   the new one begins with counts as the same). 0, 11 already defined, -3,
   -12 empty name, -21. */
KXEXPORT int16_t KXAPI KXDXADD(char *name, KXUSERPROC proc);
/* Remove a procedure (name upper-cased in place). 0, 4 not registered, -21. */
KXEXPORT int16_t KXAPI KXDXDEL(char *name);
/* Name of procedure `index` (from 0, in name order) into `name`. 0, 3 when
   index is at or past the end, -12 negative index, -21. */
KXEXPORT int16_t KXAPI KXDXLIST(char *name, int16_t index);
/* Number of procedures and the longest name's length. 0, 2 none, -21. */
KXEXPORT int16_t KXAPI KXDXINFO(uint16_t *count, uint16_t *longest);
/* ---- end of expressions and user procedures ------------------------------ */

/* ---- NTX indexes ----------------------------------------------------------- */
/*
 * NTX indexes: one B-tree of 1024-byte pages per file. Keys are compared as
 * unsigned bytes. Every key operation re-reads the header (update counter,
 * root, free head), so changes made through other handles or programs are
 * seen; every page and header write reaches the file at once.
 *
 * Choices made here:
 * - Key buffers passed out receive key length bytes and a NUL. Keys passed
 *   to KXDCKADD, KXDCKDEL and KXDCKFIND are read up to their NUL (at most the
 *   key length) and padded with blanks; KXDCKFIND compares only the caller's
 *   own length (a prefix search) in mode 1. KXDCKFIND mode 2 also compares the
 *   record number; any other mode value is mode 1.
 * - Equal keys keep the order in which they were added (a unique index stores
 *   a repeated key in front of the equal ones).
 * - KXDCKNEXT/KXDCKPREV/KXDCKCUR on an empty index give 2. When the current
 *   key was deleted and no key lies below it, they give 4 and return the
 *   first key, which becomes current.
 * - A page that cannot be a valid NTX page (key count above the maximum, an
 *   item outside the page) or a tree deeper than its page size allows gives
 *   -6; nothing is read or written outside the page.
 * - KXDCKNUM writes at most key length characters (longer texts are cut).
 */
#pragma pack(push, 1)
/* Index information record (375 bytes, no padding). */
typedef struct KXINDEXINFO {
  char fileName[261];    /* the name given to open */
  uint16_t flags;        /* bit 0 read-only, bit 1 shared, bit 2 reserved; others kept */
  uint16_t keyLength;
  uint16_t keyType;      /* NTX: always '?' */
  uint16_t options;      /* 0x0080 unique, 0x0100 expression begins with DESCEND */
  uint16_t decimals;
  uint16_t reserved;
  uint16_t exprLength;
  char expression[100];  /* min(exprLength + 1, 100) bytes: not terminated at 100+ */
} KXINDEXINFO;
#pragma pack(pop)

/* Create an index file (not opened). type 'C', 'D' or 'N' (any case), + 0x80
   for unique; blanks are removed from `expression` in place. 0, -21, -7
   (expression over 255), -22 (type), -23 (length), -30 (decimals), -46, -1. */
KXEXPORT int16_t KXAPI KXDCCREATE(const char *name, uint16_t type, char *expression,
                                  int16_t length, int16_t decimals);
/* Open an index (mode: low byte 0, 5 or 6; 0x100 read-only, 0x400 shared,
   0x800 adds 0x600). 0, 7 (size not whole pages), -21, -8, -46, -18, -2,
   -23, -24, -25, -26, -44, -7, -3; *handle is -1 on failure. */
KXEXPORT int16_t KXAPI KXDCOPENX(int16_t *handle, const char *name, uint16_t mode);
/* Close (bumps the update counter when a bulk build changed it). 0, -13, -1. */
KXEXPORT int16_t KXAPI KXDCCLOSE(int16_t handle);
/* Fill an index information record. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDCINFO(int16_t handle, KXINDEXINFO *info);
/* Copy the key expression into a 256-byte buffer. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDCEXPR(int16_t handle, char *buffer);
/* Re-read the header's counter, root and free head and the file length. 0, -13, -2. */
KXEXPORT int16_t KXAPI KXDCHGET(int16_t handle);
/* Numeric key text for this index ("%0L.Dlf"; negatives complemented after
   the sign) into buffer (key length + 1 bytes). 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDCKNUM(int16_t handle, char *buffer, double value);
/* First / last key. 0, 2 (empty), -13, -21, -4, -6, -2. */
KXEXPORT int16_t KXAPI KXDCKTOP(int16_t handle, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDCKBOT(int16_t handle, char *key, uint32_t *record);
/* Next / previous key: 0; 3 at the end / beginning (that key again); 4 the
   current key is gone with nothing below it; 2 empty; -13, -21, -4, -6, -2. */
KXEXPORT int16_t KXAPI KXDCKNEXT(int16_t handle, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDCKPREV(int16_t handle, char *key, uint32_t *record);
/* The current key again: 0; 4 none, or gone (then the greatest key below it,
   or the first key); -13, -21. */
KXEXPORT int16_t KXAPI KXDCKCUR(int16_t handle, char *key, uint32_t *record);
/* Search (mode 1 key, mode 2 key and record number): 0 found (also the first
   key when the search key is below every key); 4 not found, positioned on
   the greatest key below; 2 empty; -13, -21. */
KXEXPORT int16_t KXAPI KXDCKFIND(int16_t handle, char *key, uint32_t *record, int16_t mode);
/* Add a key. 0, -36 (read-only), -13, -21, -1, -2, -4, -6. */
KXEXPORT int16_t KXAPI KXDCKADD(int16_t handle, const char *key, uint32_t record);
/* Delete a key (unique indexes ignore the record number). 0, 4 not found,
   2 empty, -36, -13, -21, -1, -2, -4, -6. */
KXEXPORT int16_t KXAPI KXDCKDEL(int16_t handle, const char *key, uint32_t record);
/* Date key ("yyyymmdd" and a NUL) of a date string in `style` into key (10
   bytes): an empty date gives eight blanks, byte 8 untouched, byte 9 NUL.
   0, -21, -12 (style), -15 (invalid date). */
KXEXPORT int16_t KXAPI KXDCKDATE(char *key, const char *date, uint16_t style);
/* Make the key of the table's current record by evaluating the index's key
   expression: C values as they are, dates as "yyyymmdd" (an empty date as 8
   blanks), numbers as "%0L.Dlf" text (negative numbers keep their minus sign,
   unlike KXDCKNUM). KXDCKMAKE returns the key text in a block the library
   owns, valid until the next KXDCKMAKE or the close of that index (null on
   failure); KXDCKMAKEH returns
   the block itself, which the caller frees with _KXMFREE (all ones on
   failure). 0, -7 (expression, or a value of another type than C, D or N:
   an expression that begins with an F field is F, and makes no key), -13,
   -21. */
KXEXPORT int16_t KXAPI KXDCKMAKE(int16_t table, int16_t index, char **key);
KXEXPORT int16_t KXAPI KXDCKMAKEH(int16_t table, int16_t index, KXBLOCK *block);
/* Build a whole index from every record of the table (deleted ones too):
   creates `name` as KXDCCREATE does, fills every page to the maximum and
   leaves the index closed with its update counter bumped. The table is
   locked (KXDDLOCK function 2) for the build and unlocked after it, unless
   this handle already held that lock; the temporary file "stacks.tmp" is
   made in the current directory and erased on every exit. A bare field
   name reads the field's text (a numeric field of another width or decimals
   than the key is printed again as "%0L.Dlf", negatives complemented over
   the key length after the sign, so they end in "\"); any other expression
   is made per record as KXDCKMAKE does, and the table's record buffer and
   position are put back afterwards. On a failure the index file is left as
   far as it was built. 0, -13, -21, -37 (table locked elsewhere), the codes
   of KXDCCREATE, -46 (temporary file), -3, -1, -2, -4, -7 and key-making
   failures. */
KXEXPORT int16_t KXAPI KXDCINDEX(int16_t table, const char *name, uint16_t type,
                                 char *expression, int16_t length, int16_t decimals);
/* ---- end of NTX indexes ---------------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif /* RVDB4XX_H */
