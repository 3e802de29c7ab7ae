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
 * - A write that falls inside a file's shared view (index pages and headers
 *   of the index families, the DBF record count) is stored through the view:
 *   it is in the file at once for every process and survives the writer
 *   being killed, without a system call; the file's modification time then
 *   follows when the system writes the page back.
 * - Index pages are read through a shared view of the whole index file, so a
 *   page is always the file's current bytes. The views' pages that a process
 *   holds in memory are kept to 192 MiB (64 MiB in the 32-bit builds) over
 *   all its open files: past that, a search reads pages it has not touched
 *   yet with a system call, and a walk through a file lets the views' pages
 *   go and goes on through its view. What is read is the same either way.
 * - An index handle keeps its position (its path of pages from the root)
 *   from one call to the next only while the header's changing bytes (for
 *   NTX the counter, root and free head) are unchanged, the page the
 *   position is in is byte for byte unchanged in the file, and every page
 *   above it still leads to the page below through the child pointer the
 *   path took; otherwise it searches for its current key again. Pages above
 *   the position are read afresh whenever a call uses them. An add or a
 *   delete (and an NTX or IDX search) starts from the root without looking
 *   at the kept position.
 *   Writers that never change the counter are seen like any other.
 * - An NTX add or delete reads and checks every page it needs (free-chain
 *   links included) before it writes anything: one that fails leaves the
 *   file as it was. KXDCINDEX builds the new index beside its file and
 *   writes it over the file only when the build has succeeded.
 * - On POSIX, a program that cuts a table shorter than its header, or an
 *   index shorter than the pages this library last read from it, while the
 *   file is open here makes the next access to the view fault: xBase
 *   programs never do this (a pack or rebuild writes a new file; recreating
 *   an index that others have open is not shared use). The length of an
 *   index is read again whenever its header changes and before a page is
 *   added at its end.
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
 *   item outside the page), a tree deeper than its page size allows, or a
 *   walk or search that enters more pages than the file holds (a cycle, or
 *   pages shared between subtrees) gives -6; nothing is read or written
 *   outside the page. A free-chain link that is not a page of the file, or
 *   names the root or a page of the change's path, gives -6 before anything
 *   is written.
 * - Free pages: a free page's link to the next is read from its first four
 *   bytes, or, when the page holds a key count of 0 over a sound offsets
 *   table (the layout of other NTX writers), from its first item's child
 *   pointer. Pages freed here carry the link in the first four bytes, and
 *   also in that child pointer when the page would read the other way.
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
   position are put back afterwards. The index is built in a temporary
   file "<number>.NTX" beside `name` (the first free number), copied over
   `name` when complete and erased on every exit: on a failure `name` is
   left as it was (or not made). 0, -13, -21, -37 (table locked elsewhere), the codes
   of KXDCCREATE, -46 (temporary file), -3, -1, -2, -4, -7 and key-making
   failures. */
KXEXPORT int16_t KXAPI KXDCINDEX(int16_t table, const char *name, uint16_t type,
                                 char *expression, int16_t length, int16_t decimals);
/* ---- end of NTX indexes ---------------------------------------------------- */

/* ---- IDX indexes ----------------------------------------------------------- */
/*
 * IDX indexes: one B+ tree of 512-byte nodes per file, in the standard form
 * (whole keys in every node) or the compact form (interior nodes with whole
 * keys and record numbers, leaves with prefix and trailing-pad compression).
 * Keys live in the leaves; an interior entry holds its child's last key (in
 * the compact form also that key's record number). Keys are compared as
 * unsigned bytes; equal keys are kept in ascending record-number order, in
 * unique indexes too (as other IDX writers keep them). Every node of every
 * level is chained to its left and right neighbours. Sharing between
 * processes is the NTX family's: nodes are read through a shared view of
 * the file, a handle keeps its position only while the header's root, free
 * head and end-of-file words and every node of its path are unchanged, and
 * an add or delete reads and checks every node it needs before it writes
 * anything, so that one that fails leaves the file as it was.
 *
 * Choices made here:
 * - Key type: the file does not record it. A handle starts with type "C"
 *   (blank padding); call KXDIKTYPE with 'N', 'D' or 'L' after opening such
 *   an index: compact leaves drop trailing pad bytes, and the pad byte (blank
 *   for C, zero for D, L and N) is needed to read them back. KXDIINDEX knows
 *   the type and needs no call.
 * - Keys passed to KXDIKADD, KXDIKDEL and KXDIKFIND: for type C they are read
 *   up to their NUL (at most the key length) and padded with blanks, and a
 *   mode 1 find compares only the caller's own length (a prefix search); for
 *   types D, L and N they are exactly key length bytes (they may hold zero
 *   bytes) and compared whole. Key buffers passed out receive key length
 *   bytes and a NUL.
 * - Numeric and date keys: the 8-byte ordered form of KXDIKNUM; -0.0 is
 *   taken as 0.0. Date keys are the exact Julian day number (1 January 2000
 *   is 2451545), as FoxPro writes them; an empty date is 0.0 and sorts
 *   first. Logical keys are "T" or "F".
 * - Open modes: the low byte must be 0, 3, 4 or 8 (-18 otherwise); the four
 *   values open alike, access coming from 0x100 (read-only) and 0x400
 *   (shared) as for every family.
 * - End of file (header offset 8): in the standard form the engine keeps it
 *   equal to the file's length after every change. In the compact form
 *   FoxPro keeps a counter there, so the engine never reads it as a length
 *   and leaves it as it finds it (0 in files it creates). In both forms new
 *   nodes go at the file's real end and node offsets are checked against
 *   the file's real length.
 * - Free nodes: header offset 4 names the first; 0xFFFFFFFF and 0 both mean
 *   none. A free node holds the next one's offset in its first four bytes
 *   and zeros after them. Links are checked before they are followed (a
 *   node of the file, not in the tree's path, not the node itself): -6.
 * - Descending compact indexes (key order word 1 at header offset 502):
 *   keys are stored ascending whatever the word says, and the engine walks
 *   them in stored order (KXDIKTOP gives the lowest key); KXDIINFO reports
 *   the word as option 0x0100. Create always writes 0.
 * - Compact leaves: record-number, duplicate-count and trailing-count widths
 *   are read from each leaf's own header. Leaves written here use duplicate
 *   and trailing counts as wide as the key length needs (k bits) and entries
 *   of 2, 3 or 4 bytes (k = 1, 2..5, 6..7), widened a byte at a time when a
 *   record number needs more bits (record numbers up to 2^32 - 1).
 * - Node splits put the upper half in a new right neighbour; a node left
 *   under a third full is merged with a neighbour under the same parent when
 *   the two fit in one node; an emptied node goes to the free list; a root
 *   with one child hands the root to it.
 * - A node that cannot be a node of this index (key count above what fits,
 *   compact counts or widths that do not add up, an interior node with no
 *   entries), a tree deeper than 40 levels, or a walk that enters more nodes
 *   than the file holds gives -6; nothing is read or written outside a node.
 * - The handle keeps its nodes in the page cache shared by the index
 *   families (more than the four buffers the format's first engine had).
 */

/* Create an index file (not opened): type 'C', 'D', 'L' or 'N' (any case),
   + 0x80 unique, + 0x400 compact (0x100 is ignored); length is used for C
   (1..100); D and N keys are 8 bytes, L keys 1. Blanks are removed from
   `expression` in place. A standard file is 1024 bytes (header, empty root
   leaf at 512), a compact one 1536 (header, expression pool, empty root
   leaf at 1024). 0, -21, -7 (expression empty or over 220), -22, -23, -46, -1. */
KXEXPORT int16_t KXAPI KXDICREATE(const char *name, uint16_t type, char *expression,
                                  int16_t length);
/* Open an index (see the open modes above; 0x800 adds 0x600). 0, 7 (size not
   whole nodes), -21, -8, -46, -18, -2, -23 (key length), -7 (expression),
   -25 (root), -3; *handle is -1 on failure. */
KXEXPORT int16_t KXAPI KXDIOPENX(int16_t *handle, const char *name, uint16_t mode);
/* Close. 0, -13, -1. */
KXEXPORT int16_t KXAPI KXDICLOSE(int16_t handle);
/* Fill an index information record: key type = the handle's letter;
   options 0x0080 unique, 0x0400 compact, 0x0100 compact and descending;
   decimals 8 compact, 3 standard. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDIINFO(int16_t handle, KXINDEXINFO *info);
/* Copy the key expression into a 221-byte buffer. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDIEXPR(int16_t handle, char *buffer);
/* Re-read header bytes 0..11 and the file length. 0, -13, -2. */
KXEXPORT int16_t KXAPI KXDIHGET(int16_t handle);
/* Set the handle's key type: 'C', 'D', 'L' or 'N' (any case). 0, -22, -13. */
KXEXPORT int16_t KXAPI KXDIKTYPE(int16_t handle, uint16_t type);
/* The 8-byte ordered key of a number into buffer (8 bytes written). 0, -21. */
KXEXPORT int16_t KXAPI KXDIKNUM(char *buffer, double value);
/* First / last key. 0, 2 (empty), -13, -21, -4, -6, -2. */
KXEXPORT int16_t KXAPI KXDIKTOP(int16_t handle, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDIKBOT(int16_t handle, char *key, uint32_t *record);
/* Next / previous key: 0; 3 at the end / beginning (that key again); 4 the
   current key is gone with nothing below it; 2 empty; -13, -21, -4, -6, -2. */
KXEXPORT int16_t KXAPI KXDIKNEXT(int16_t handle, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDIKPREV(int16_t handle, char *key, uint32_t *record);
/* The current key again: 0; 4 none, or gone (then the greatest key below
   it, or the first key); -13, -21. */
KXEXPORT int16_t KXAPI KXDIKCUR(int16_t handle, char *key, uint32_t *record);
/* Search (mode 1 key, mode 2 key and record number): 0 found (also the first
   key when the search key is below every key); 4 not found, positioned on
   the greatest key below; 2 empty; -13, -21, -4, -6. */
KXEXPORT int16_t KXAPI KXDIKFIND(int16_t handle, char *key, uint32_t *record, int16_t mode);
/* Date key of a date string in `style` into key (9 bytes: the 8-byte key
   and a NUL). 0, -21, -12, -15. */
KXEXPORT int16_t KXAPI KXDIKDATE(char *key, const char *date, uint16_t style);
/* Make the key of the table's current record by evaluating the index's key
   expression: C values as they are, N and F values and dates in the 8-byte
   ordered form, logical values "T" or "F". The pointer and block forms and
   their ownership are those of KXDCKMAKE and KXDCKMAKEH. 0, -7, -13, -21. */
KXEXPORT int16_t KXAPI KXDIKMAKE(int16_t table, int16_t index, char **key);
KXEXPORT int16_t KXAPI KXDIKMAKEH(int16_t table, int16_t index, KXBLOCK *block);
/* Add a key. 0, -36 (read-only), -13, -21, -1, -2, -4, -6. */
KXEXPORT int16_t KXAPI KXDIKADD(int16_t handle, const char *key, uint32_t record);
/* Delete a key (unique indexes ignore the record number and delete the
   first equal key). 0, 4 not found, 2 empty, -36, -13, -21, -1, -2, -4, -6. */
KXEXPORT int16_t KXAPI KXDIKDEL(int16_t handle, const char *key, uint32_t record);
/* Build a whole index from every record of the table (deleted ones too), as
   KXDCINDEX builds an NTX index: created as KXDICREATE does (type, expression
   and length as there), leaves filled, upper levels built over them, left
   closed. Bare field names and DTOS( of a date field ) are read from the
   records, anything else is made per record as KXDIKMAKE does. The table
   lock, the work file "stacks.tmp", the temporary "<number>.IDX" beside
   `name` and the codes are those of KXDCINDEX. */
KXEXPORT int16_t KXAPI KXDIINDEX(int16_t table, const char *name, uint16_t type,
                                 char *expression, int16_t length);
/* ---- end of IDX indexes ---------------------------------------------------- */

/* ---- Memo files (FPT and DBT) ---------------------------------------------- */
/*
 * A memo field of a table (type M, 10 characters) holds the number of the
 * first block of its text in the table's memo file; 0 or blanks mean no memo.
 * The host reads the number with KXDDFGET, fetches the text with KXDWRGET or
 * KXDTRGET, stores new text with KXDWRPUT or KXDTRPUT and puts the number it
 * gets back into the field. Three layouts, all made of fixed-size blocks
 * (block n starts at byte n x block size, block 0 holds the header):
 *   FPT (KXDW..., handle kind 4; FoxPro and Clipper tables, version 0xF5):
 *     header: next free block, block size (big-endian 32-bit); the header
 *     area is at least 512 bytes. A memo: type (1 text), length, the text.
 *     The newest memo ends where its text ends (no filler).
 *   DBT dBASE III (KXDT..., kind 3; tables 0x83): header: next free block
 *     (little-endian 32-bit), byte 16 = 0x03; 512-byte blocks. A memo: the
 *     text and two 0x1A end marks; reading stops at the first 0x1A.
 *   DBT dBASE IV (kind 3; tables 0x8B): the header fills block 0: head of
 *     the free-block chain (little-endian 32-bit), the table's base name at
 *     8, block length (16-bit) at 20, a multiple of 512 up to 16384. A memo:
 *     FF FF 08 00, its length counting these 8 bytes, the text; padded with
 *     zeros to its last block's end. Free runs of blocks are chained in
 *     ascending order (first block: next run, number of blocks); the last
 *     run's next, or the header when nothing is free, holds the number of
 *     blocks in the file.
 *
 * Choices made here:
 * - Every read and write re-reads the header (next free block, chain head)
 *   through the shared view of the file's first bytes, so texts other
 *   programs appended are seen and two programs appending never take the
 *   same blocks, provided they append under the table's lock (KXDDLOCK
 *   function 1 around KXDWRPUT/KXDTRPUT and the record write). As for tables,
 *   cutting an open memo file shorter than its header is not supported.
 * - An append extends the file by the write itself (the bytes between the
 *   old end and the new memo read as zeros, as after a size change); bytes
 *   past the next free block, left by an append that did not finish, are
 *   written over, not cut. A dBASE IV allocation on a shared handle asks the
 *   file system where the file ends (another program may have appended); a
 *   handle opened without sharing knows it, until a quick close.
 * - Texts of any length work (the block arithmetic is 64-bit); a memo whose
 *   end would lie beyond 4 GiB gives -4. KXDWRPUT/KXDTRPUT take the text up
 *   to its NUL. KXDWRGET/KXDTRGET return the whole stored memo and a NUL in a
 *   new movable block, locked; the host releases it with KXMFREE(text). A
 *   stored memo that holds NUL bytes (binary data written by other programs)
 *   is returned whole, but its length is then not visible to the host.
 * - A memo number is checked before anything is read: 0, negative, or not
 *   below the file's end (FPT and dBASE III: the header's next free block;
 *   dBASE IV: the number of blocks in the file) gives -4. A memo the number
 *   points to that cannot be right gives -6 and nothing is allocated: a block
 *   that lies beyond the end of the file, a length that runs past the end of
 *   the file, a dBASE IV block without FF FF 08 00 (or a length below 8), a
 *   dBASE III text without an end mark before the end of the file. Writes
 *   also give -6 for a header whose next free block lies in the header area
 *   or a block or more beyond the end of the file, and for a broken dBASE IV
 *   free chain (a run outside the file or empty, a link that does not lead
 *   onwards, a link to a block with the used-block mark, a run freed twice).
 * - Writes, mode 0: append (dBASE IV: the first free run that is large
 *   enough, else at the end). Mode 256: rewrite the memo at *block in place
 *   when the new text fits, else append and return the new number; *block 0
 *   appends. It fits: FPT when the old length rounded up to whole blocks
 *   is at least the new length + 8; dBASE III when the new text and its two
 *   end marks need no more blocks than the old; dBASE IV when the new memo
 *   needs no more blocks than the old (blocks it no longer needs go to the
 *   free chain). A dBASE IV rewrite that does not fit writes the new memo
 *   first and then gives the old blocks to the free chain. A text holding
 *   0x1A cannot be stored in a dBASE III file: -34.
 * - DBT open: the low byte of the mode tells the variant: 0 decides from
 *   the header (byte 16 = 0x03 is dBASE III; otherwise a block length at
 *   bytes 20-21 that is a multiple of 512 from 512 to 16384 is dBASE IV;
 *   anything else is dBASE III, whose writers may leave garbage in those
 *   bytes); a host that knows the table's version byte passes it instead:
 *   0x83 (dBASE III, bytes 4-511 ignored) or 0x8B (dBASE IV; a header with
 *   byte 16 = 0x03 is then refused with -56, a bad block length is -49). Any
 *   other low byte is -18.
 * - Pack (KXDWPACK/KXDTPACK): under the table's full lock (KXDDLOCK function
 *   2), the memos of the table's live records are copied, in record order,
 *   into a new file in the memo file's directory ("<n>.FPT" / "<n>.DBT", the
 *   first number not taken) with the old block size in bytes (any size the
 *   open accepts, 512 and more included, whether or not KXDWCREATE could make
 *   it; a dBASE IV file keeps its base name), each memo byte for byte with
 *   its FPT record type. The table is not touched while copying; a live
 *   record whose memo cannot be read stops the pack there with its status,
 *   the new file is erased and nothing has changed. Then the old memo file
 *   becomes "<name>.TBK" (an older one is replaced), the new one takes its
 *   name, the live records' memo numbers are rewritten (only the memo
 *   fields; the record buffer keeps the host's record, with the new
 *   numbers if it is one of those), the full lock is released (also one
 *   the table's handle held before), and *memo gets a new handle on the
 *   packed file, shared (0x400). Pack the memo file before the table: the
 *   table's pack (KXDDPACK) drops the deleted records. Records marked deleted
 *   keep their old numbers, which mean nothing in the new file. A pack
 *   stopped before the renames leaves everything as it was; between the
 *   renames the old memo file is whole as "<name>.TBK"; a failed rename puts
 *   the old file back and reopens it into *memo. A pack stopped while it
 *   rewrites the numbers (the last, short step) leaves the new memo file and
 *   records not yet rewritten whose memos are in the ".TBK" file.
 */
#pragma pack(push, 1)
/* Memo information record (265 bytes, no padding). */
typedef struct KXMEMOINFO {
  uint16_t flags;        /* bit 0 read-only, bit 1 shared, bit 2 opened with 0x200 */
  char fileName[261];    /* the path given to the open */
  uint16_t value;        /* FPT: 0; DBT: 3 dBASE III, 4 dBASE IV */
} KXMEMOINFO;
#pragma pack(pop)

/* Create an FPT file (not opened): size 1..32 gives size x 512-byte blocks,
   33..511 blocks of that many bytes; header next free = ceil(512 / block
   size), file length one header area. 0, -21, -49, -14, -46, -1. */
KXEXPORT int16_t KXAPI KXDWCREATE(const char *path, uint16_t size);
/* Open an FPT file. mode: low byte 0 or 4; 0x100 read-only; 0x400 shared;
   0x800 adds 0x600 (not with 0x100). A file that cannot be opened for
   writing opens read-only and shared. 0, -21, -14, -8, -46, -18, -17
   (shorter than 512 bytes), -2, -49 (block size outside 33..16384).
   *handle is -1 after a failure. */
KXEXPORT int16_t KXAPI KXDWOPENX(int16_t *handle, const char *path, uint16_t mode);
/* Close an FPT handle; nothing is written. 0, -13. */
KXEXPORT int16_t KXAPI KXDWCLOSE(int16_t handle);
/* Memo information record. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDWINFO(int16_t handle, KXMEMOINFO *info);
/* Re-read the header's next free block. 0, -13, -2. */
KXEXPORT int16_t KXAPI KXDWHGET(int16_t handle);
/* Read memo `block` into a new locked block (*text; null on failure).
   0, -13, -21, -4, -6, -2, -3. */
KXEXPORT int16_t KXAPI KXDWRGET(int16_t handle, int32_t block, char **text);
/* Write a memo (type 1): mode 0 appends, 256 rewrites *block when the text
   fits; the memo's number comes back in *block. 0, -13, -21, -12 (mode),
   -36 (read-only), -4, -6, -2, -1. */
KXEXPORT int16_t KXAPI KXDWRPUT(int16_t handle, uint32_t *block, const char *text, uint16_t mode);
/* Pack the FPT file of `table` (see above); *memo gets the new handle.
   0, -13, -21, -36 (table or memo read-only), -12 (the table has no memo
   fields), -37 (another program holds a lock on the table), -14 (backup
   name), the read and write codes of the memos, -46, -5, -40. */
KXEXPORT int16_t KXAPI KXDWPACK(int16_t table, int16_t *memo);

/* Create a DBT file (not opened): size 0 a dBASE III file (512-byte blocks),
   1..32 a dBASE IV file of size x 512-byte blocks whose header holds the
   path's base name (at most 8 characters). 0, -21, -49, -14, -46, -1. */
KXEXPORT int16_t KXAPI KXDTCREATE(const char *path, uint16_t size);
/* Open a DBT file. mode: low byte 0, 0x83 or 0x8B (see above); 0x100,
   0x400, 0x800 as for FPT. 0, -21, -14, -8, -46, -18, -17 (shorter than
   512 bytes or than a dBASE IV header block), -2, -49, -56. *handle is -1
   after a failure. */
KXEXPORT int16_t KXAPI KXDTOPENX(int16_t *handle, const char *path, uint16_t mode);
/* Close a DBT handle; nothing is written. 0, -13. */
KXEXPORT int16_t KXAPI KXDTCLOSE(int16_t handle);
/* Memo information record. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDTINFO(int16_t handle, KXMEMOINFO *info);
/* Re-read the header's first word (next free block or chain head). 0, -13, -2. */
KXEXPORT int16_t KXAPI KXDTHGET(int16_t handle);
/* Read memo `block` as KXDWRGET does. 0, -13, -21, -4, -6, -2, -3. */
KXEXPORT int16_t KXAPI KXDTRGET(int16_t handle, int32_t block, char **text);
/* Write a memo as KXDWRPUT does. 0, -13, -21, -12, -36, -34 (0x1A in a
   dBASE III text), -4, -6, -2, -1. */
KXEXPORT int16_t KXAPI KXDTRPUT(int16_t handle, uint32_t *block, const char *text, uint16_t mode);
/* Pack the DBT file of `table` as KXDWPACK does. */
KXEXPORT int16_t KXAPI KXDTPACK(int16_t table, int16_t *memo);
/* ---- end of memo files ----------------------------------------------------- */

/* ---- NDX indexes ----------------------------------------------------------- */
/*
 * NDX indexes: one B+ tree of 512-byte blocks per file (dBASE III), every
 * record's key in a leaf, each branch entry holding the greatest key of its
 * left subtree. Character keys are compared as unsigned bytes when
 * RVDB4XX.INI's [sort] asciisort is 1 (the default), else through the
 * dBASE collating table; numeric and date keys are 8-byte IEEE doubles
 * (dates as day numbers). The index information record is KXINDEXINFO,
 * declared in the NTX section above.
 *
 * Sharing: every call sees what other handles and processes wrote before it.
 * Blocks are read through a shared view of the whole file; a handle keeps
 * its position (the blocks of its path from the root) from one call to the
 * next only while the header's root and next block and every block of that
 * path are byte for byte unchanged in the file, else it searches for its
 * current key again. An add or delete reads and checks every block it needs
 * (free-chain links, the path's depth, room in the path) before it writes
 * anything: one that fails leaves the file as it was. Its blocks, then the
 * header's root and next block (when they changed), are written when the
 * change is complete.
 *
 * Choices made here:
 * - Key buffers: a character key passed out is key length bytes and a NUL;
 *   a numeric or date key 8 bytes. Keys passed in are read up to their NUL
 *   (at most the key length); KXDNKADD and KXDNKDEL pad character keys with
 *   blanks; KXDNKFIND searches for the caller's own length (a prefix), or
 *   with flag 2 for the whole blank-padded key and the record number.
 * - A navigation export that has no key to give (2 empty index; 4 no
 *   current key, or the current key gone with no key below it) writes an
 *   empty key (zeros) and record 0 and leaves the current key as it was.
 *   KXDNKNEXT/KXDNKPREV whose current key is gone step from the greatest key
 *   below it (so KXDNKPREV then skips that key).
 * - A unique index keeps a repeated key in front of the equal ones, so its
 *   equal keys are not in record-number order: there KXDNKFIND with options
 *   2 (and the search for the current key before a step) looks through the
 *   equal keys for the record number; a non-unique index orders equal keys
 *   by record number and searches them by it.
 * - Deletions keep the tree balanced as dBASE does: a node below half full
 *   is merged with its sibling only when both fit in one block, keys are
 *   never borrowed, and a leaf emptied by a deletion leaves its last key in
 *   the branch above it; searches step on through the leaves past such
 *   keys. A branch may so be left with no key and one child (its sibling
 *   was full): readers that take the key count of a branch for its number
 *   of children less one read it as the format says; Perl's XBase::Index
 *   reads no child of such a branch.
 * - Freed blocks: blocks freed by deletions are chained in the handle that
 *   freed them (first byte 255, the link at byte 4) and reused by its later
 *   adds. A chain block that another program has used or cut off since is
 *   not taken: the chain is dropped and the file grows instead. KXDNCLOSE
 *   moves the highest live blocks down into freed ones and shortens the
 *   file; each move leaves a sound tree. (On Windows a file that another
 *   handle or program has open cannot be cut: it then keeps its length, the
 *   header's next block marks where the index ends, and opens report 7.)
 *   A damaged tree found by that pass stops it: -6, and the handle is
 *   closed all the same. KXDTERM and a quick close give the file back
 *   without the pass (freed blocks stay marked free, on no chain).
 * - A block that cannot be a node (key count negative or above the keys per
 *   block), a child or sibling that is not a block of the file or lies on
 *   the path already (a cycle), a tree deeper than the path allows, or a
 *   walk or search that enters more blocks than the file holds gives -6
 *   (-4 for a block number past the header's next block); nothing is read
 *   or written outside a block.
 * - The open also refuses with -26 a header whose keys per block is below 2
 *   or whose full node would not leave room for its last child field, and
 *   with -25 a next block beyond 32-bit offsets.
 * - KXDNINFO: key type 'C' (type 0) or 'N' (type 1, dates too), options
 *   0x0080 for a unique index, decimals 0, reserved the status byte (0).
 * - On POSIX, KXDNCLOSE's shortening of the file while another process is
 *   in the middle of a call on it (without the host's locks) may fault that
 *   process's view, as for any program that cuts an open index.
 */
/* Create an index file (not opened). type 'C', 'D' or 'N' (any case), +0x80
   unique; length is used for 'C' only (1..100; 'D' and 'N' keys are 8
   bytes); blanks are removed from `expression` in place. 0, -21, -7
   (expression over 220), -22, -23, -46, -1. */
KXEXPORT int16_t KXAPI KXDNCREATE(const char *name, uint16_t type, char *expression, int16_t length);
/* Open an index (mode: low byte 0, 1, 2 or 7; 0x100 read-only, 0x400
   shared, 0x800 adds 0x600). 0, 7 (size not next block x 512), -21, -8,
   -18, -46, -2, -23, -24, -25, -26, -7, -22, -3; *handle is -1 on failure. */
KXEXPORT int16_t KXAPI KXDNOPENX(int16_t *handle, const char *name, uint16_t mode);
/* Close: gives back freed blocks (see above), writes root and next block
   when they changed, closes the file. 0, -13, -6. */
KXEXPORT int16_t KXAPI KXDNCLOSE(int16_t handle);
/* Fill an index information record. 0, -13, -21. */
KXEXPORT int16_t KXAPI KXDNINFO(int16_t handle, KXINDEXINFO *info);
/* Copy the key expression (blank-free, upper case) into a 221-byte buffer.
   0, -13, -21. */
KXEXPORT int16_t KXAPI KXDNEXPR(int16_t handle, char *buffer);
/* Re-read the root and next block and the file length. 0, -13, -2. */
KXEXPORT int16_t KXAPI KXDNHGET(int16_t handle);
/* First / last key. 0, 2 (empty), -21, -13, -4, -6, -2. */
KXEXPORT int16_t KXAPI KXDNKTOP(int16_t handle, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDNKBOT(int16_t handle, char *key, uint32_t *record);
/* Next / previous key: 0; 3 at the end / beginning (that key again); 4 no
   current key (after open), or it is gone with no key below it; 2 empty;
   -21, -13, -4, -6, -2. */
KXEXPORT int16_t KXAPI KXDNKNEXT(int16_t handle, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDNKPREV(int16_t handle, char *key, uint32_t *record);
/* The current key again: 0; 4 gone (the greatest key below it is returned
   and becomes current), or none; 2 empty; -21, -13. */
KXEXPORT int16_t KXAPI KXDNKCUR(int16_t handle, char *key, uint32_t *record);
/* Seek: options flag 2 also matches the record number (the key then whole),
   flag 4 lets '?' in a character key match any character. 0 found (also the
   first key when the search key is below every key, or when *record was
   0xFFFFFFFF on an empty index, then without a key); 4 not found, on the
   greatest key below; 2 empty; -21, -13, -4, -6, -2. */
KXEXPORT int16_t KXAPI KXDNKFIND(int16_t handle, char *key, uint32_t *record, int16_t options);
/* Add a key (a unique index stores a repeated key in front of the equal
   one; equal keys of a non-unique index in record-number order). 0, -21,
   -36, -13, -1, -2, -4, -6, -9 (a change larger than the cache). */
KXEXPORT int16_t KXAPI KXDNKADD(int16_t handle, const char *key, uint32_t record);
/* Delete a key (a unique index ignores the record number). 0, 4 not found,
   2 empty, -21, -36, -13, -1, -2, -4, -6. */
KXEXPORT int16_t KXAPI KXDNKDEL(int16_t handle, const char *key, uint32_t record);
/* Compare two keys by mode (0 character keys as the index orders them, 1
   and 2 doubles, 3 and 5 unsigned and 4 and 6 signed little-endian integers
   of `length` bytes, 7 equal, 8 '?' in a matches any byte): negative, 0 or
   positive. No status; null pointers compare equal. */
KXEXPORT int16_t KXAPI _KXDNKCMP(const void *a, const void *b, int16_t mode, int16_t length);
/* Date key (8-byte double) of a date string in `style`: a blank date gives
   1e100, otherwise the day number counting every February as 28 days, plus
   1721410 (so 2000-02-29 and 2000-03-01 share a key). 0, -21, -12, -15. */
KXEXPORT int16_t KXAPI KXDNKDATE(char *key, const char *date, uint16_t style);
/* Numeric key: the 8-byte double itself. 0, -21. */
KXEXPORT int16_t KXAPI KXDNKNUM(char *key, double number);
/* Make the key of the table's current record by evaluating the index's key
   expression: C values as they are, numbers the double, dates their date
   key in the current date style. KXDNKMAKE returns it in a block the
   library owns, valid until the next KXDNKMAKE or the close of that index
   (null on failure); KXDNKMAKEH returns the block itself, which the caller
   frees with _KXMFREE (all ones on failure). 0, -7 (expression, or a value
   of another type), -13, -21. */
KXEXPORT int16_t KXAPI KXDNKMAKE(int16_t table, int16_t index, char **key);
KXEXPORT int16_t KXAPI KXDNKMAKEH(int16_t table, int16_t index, KXBLOCK *block);
/* Build a whole index from every record of the table (deleted ones too):
   creates `name` as KXDNCREATE does and fills it bottom-up, every leaf full
   but the last, each branch entry the greatest key of its left child, every
   branch full but the last two of a level (no branch is left with a lone
   child); equal keys in record-number order, character keys in the order of
   the asciisort switch. The index is left closed. The table is locked
   (KXDDLOCK function 2) for the build and unlocked after it, unless this
   handle already held that lock; the temporary file "stacks.tmp" is made in
   the current directory and erased on every exit. A bare character field
   (for a character index) or numeric field (for a numeric index) is read
   from the record as key making reads it, and DTOS( of a date field ) (for a
   character index) is made from the stored date; any other expression is
   made per record as KXDNKMAKE does, and the table's record buffer and
   position are put back afterwards. The index is built in a temporary file
   "<number>.NDX" beside `name` (the first free number), copied over `name`
   when complete and erased on every exit: on a failure `name` is left as it
   was (or not made). 0, -13, -21, -37 (table locked elsewhere), the codes of
   KXDNCREATE, -46 (temporary file), -3, -1, -2, -4, -7 and key-making
   failures. */
KXEXPORT int16_t KXAPI KXDNINDEX(int16_t table, const char *name, uint16_t type, char *expression,
                                 int16_t length);
/* ---- end of NDX indexes ---------------------------------------------------- */

/* ---- MDX multiple-tag indexes ----------------------------------------------- */
/*
 * MDX files (dBASE IV): one file of 512-byte pages holding up to 47 tags,
 * each with its own key expression and B+ tree of blocks of N pages (N, the
 * block multiplier, 1 to 32, fixed at create). Pages 0-3 are the file
 * header and the tag table; tag headers and tree nodes are blocks taken
 * from the file's free list (kept in the header, reused first) or from its
 * end. Tags are numbered from 1 in table order; removing a tag moves the
 * later tags down one number. A handle (kind 5) is the file; KXDMT exports
 * take the handle and a tag number (-48 when it is not 1..tag count).
 *
 * Keys: character keys (1..100 bytes, blank-padded; compared as NDX keys
 * are, by RVDB4XX.INI's asciisort), numeric keys the 12-byte packed decimal
 * form (KXDMKNUM; they compare as numbers: sign, then magnitude, zero below
 * every positive value), date keys an 8-byte double holding the Julian day
 * number (KXDMKDATE; a blank date is 1.0E100, after every date). A
 * descending tag keeps its keys in descending order in the file; equal keys
 * are in record-number order (a unique tag keeps a repeated key in front of
 * the equal ones, as NDX does). Key buffers passed out are key length + 1
 * bytes for character keys (NUL-terminated), 12 for numeric and 8 for date
 * keys; keys passed in are read likewise (character keys up to their NUL).
 *
 * Tag key operations follow the NDX exports of the same name (statuses,
 * positions, the current key kept per tag, options of KXDMTKFIND): top,
 * bottom, next, previous, current, find, add, delete. Each tag has its own
 * current key, kept by tag number.
 *
 * Sharing: every call reads the file header, the tag's table entry and its
 * tag header anew (through a shared view of the file where there is one),
 * so tags that other handles or processes added, removed or changed are
 * seen. A handle keeps its position in a tag from one call to the next only
 * while the tag number, its header page, its root, the file's page count
 * and free page and every block of the position's path are byte for byte
 * unchanged in the file. A change reads and checks every block it needs
 * before it writes anything; its blocks, then the tag's root and the file
 * header's page count and free page, are written when it is complete.
 *
 * Choices made here:
 * - KXDMCREATE writes version 2, today's date (years since 1900) as both the
 *   creation and the last update date, the table name in upper case, and no
 *   tags. With the production flag it also sets byte 28 of the table's
 *   header (the file beside the index with the extension .DBF, .dbf when the
 *   index's extension is in lower case) to 1; a table that cannot be opened
 *   gives -46 (the index is made all the same). KXDDOPENX only checks that
 *   byte (0 or 1, else -35) and opens no index: the host opens the
 *   production index itself. The per-field production flags (byte 31 of the
 *   field descriptors) are not set.
 * - KXDMTADD takes the key type 'C', 'N' or 'D' (any case), plus 0x80 for a
 *   unique tag and 0x100 for a descending one; the length is used for 'C'
 *   only. Tag names are 1 to 10 letters, digits or '_' (stored upper case).
 *   The expression is stored as given, in upper case and without blanks. A
 *   FOR condition is not evaluated by this library: a non-empty one is
 *   refused with -7 (pass null or ""). Key making evaluates the tag's
 *   expression; a value whose type does not match the tag's key type gives
 *   -7.
 * - The new tag's header block and empty root leaf come from the free list
 *   or the file's end. KXDMTDEL frees the tag's header and every node of its
 *   tree (pushed on the free list), removes its table entry (later entries
 *   move up) and rebuilds the tag-name tree; a tree that cannot be walked
 *   (a block out of range or met twice, a cycle) gives -57 and changes
 *   nothing.
 * - Open checks, in order: mode (-18), file shorter than its header or
 *   version not 2 (-19), multiplier not 1..32 (-49), block size not the
 *   multiplier's (-51), marker bytes 25 '0' (-52) and 26 ' ' (-53), tag count
 *   above 47 (-50), page count or free page out of range (-25), then for each
 *   tag: its header page out of range (-54), its type byte (-55), its header
 *   (-22 type, -23 key length, -24 item length, -26 keys per node, -55
 *   format byte, -25 root). 7 when the file's length is not page count x 512.
 *   Tag calls check the tag they use the same way.
 * - A block that cannot be a node (key count above the keys per node), a
 *   child outside the file or on the path already, or a walk that enters
 *   more blocks than the file holds gives -6; nothing is read or written
 *   outside a block. A free-list page that is not a block of the file, is
 *   the root or a tag header, or lies on the change's path is not taken: the
 *   list is dropped and the file grows instead.
 * - KXDMTINDEX rebuilds one tag from every record of the table (deleted ones
 *   too), bottom-up, as KXDNINDEX builds an NDX file; the tag's old nodes go
 *   on the free list and the new ones are written at the file's end. The
 *   work file "stacks.tmp" is made in the current directory and erased on
 *   every exit. A build that fails after writing new blocks leaves the tag
 *   as it was; the blocks past the header's page count make the next open
 *   report 7.
 * - Multiplier 2 (1024-byte blocks) is dBASE IV's default; some readers
 *   (Perl's XBase::Index) read only the first 1024 bytes of each block.
 */
#pragma pack(push, 1)
/* MDX file information (KXDMINFO); numbers first, so that every field is
   aligned although the record is packed. */
typedef struct KXMDXINFO {
  uint32_t pages;        /* pages in the file */
  uint32_t freePage;     /* first free page, 0 none */
  uint16_t flags;        /* bit 0 read-only, bit 1 shared */
  uint16_t multiplier;   /* pages per block, 1..32 */
  uint16_t blockSize;    /* bytes per block */
  uint16_t production;   /* 1 production index */
  uint16_t tagCount;
  uint8_t created[3];    /* years since 1900, month, day */
  uint8_t updated[3];
  char tableName[17];    /* NUL-terminated */
  char fileName[261];    /* the name given to open */
} KXMDXINFO;
/* MDX tag information (KXDMTINFO). */
typedef struct KXMDXTAGINFO {
  uint16_t keyType;      /* 'C', 'N' or 'D' */
  uint16_t keyLength;
  uint16_t options;      /* 0x80 unique, 0x100 descending */
  uint16_t hasFor;       /* 1 when the tag has a FOR condition (written by another program) */
  char name[11];         /* NUL-terminated */
  char expression[221];  /* NUL-terminated */
  char forExpression[221];
} KXMDXTAGINFO;
#pragma pack(pop)

/* Create an MDX file with no tags (not opened): block multiplier 1..32,
   production 0 or 1, table name 1..8 characters. 0, -21, -14 (empty name,
   table name), -49, -12 (production flag), -46, -1. */
KXEXPORT int16_t KXAPI KXDMCREATE(const char *name, int16_t multiplier, int16_t production, const char *table);
/* Open (mode as KXDNOPENX). 0, 7, -21, -8, -18, -46, -2, -19, -49, -51, -52,
   -53, -50, -25, -54, -55, -22, -23, -24, -26, -3; *handle is -1 on failure. */
KXEXPORT int16_t KXAPI KXDMOPENX(int16_t *handle, const char *name, uint16_t mode);
/* Close. 0, -13. */
KXEXPORT int16_t KXAPI KXDMCLOSE(int16_t handle);
/* File information as the file holds it now. 0, -13, -21, -2 and open's
   header codes. */
KXEXPORT int16_t KXAPI KXDMINFO(int16_t handle, KXMDXINFO *info);
/* Re-read the file header and length; forgets the kept positions. 0, -13,
   -2 and open's header codes. */
KXEXPORT int16_t KXAPI KXDMHGET(int16_t handle);
/* Add a tag (see above) with an empty tree; *tag (may be null) gets its
   number. 0, -21, -7 (FOR), -12 (name bad or already a tag), -22, -23
   (length, expression empty or over 220), -8 (47 tags), -36, -13, -1, -2. */
KXEXPORT int16_t KXAPI KXDMTADD(int16_t handle, const char *name, uint16_t type, const char *expression,
                                int16_t length, const char *forExpression, int16_t *tag);
/* Remove a tag and free its blocks. 0, -48, -57, -36, -13, -1, -2. */
KXEXPORT int16_t KXAPI KXDMTDEL(int16_t handle, int16_t tag);
/* The number of the tag of this name (any case). 0, -50 none, -21, -13. */
KXEXPORT int16_t KXAPI KXDMTFIND(int16_t handle, const char *name, int16_t *tag);
/* Describe a tag. 0, -48, -21, -13 and the tag header codes. */
KXEXPORT int16_t KXAPI KXDMTINFO(int16_t handle, int16_t tag, KXMDXTAGINFO *info);
/* Key operations of one tag, as the NDX exports of the same name. */
KXEXPORT int16_t KXAPI KXDMTKTOP(int16_t handle, int16_t tag, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDMTKBOT(int16_t handle, int16_t tag, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDMTKNEXT(int16_t handle, int16_t tag, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDMTKPREV(int16_t handle, int16_t tag, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDMTKCUR(int16_t handle, int16_t tag, char *key, uint32_t *record);
KXEXPORT int16_t KXAPI KXDMTKFIND(int16_t handle, int16_t tag, char *key, uint32_t *record, int16_t options);
KXEXPORT int16_t KXAPI KXDMTKADD(int16_t handle, int16_t tag, const char *key, uint32_t record);
KXEXPORT int16_t KXAPI KXDMTKDEL(int16_t handle, int16_t tag, const char *key, uint32_t record);
/* Compare two whole keys as the tag orders them (descending tags reversed):
   *result negative, 0 or positive. 0, -21, -48, -13. */
KXEXPORT int16_t KXAPI KXDMTKCMP(int16_t handle, int16_t tag, const void *a, const void *b, int16_t *result);
/* Make the tag's key of the table's current record (the tag's expression
   evaluated; a character value blank-padded to the key length, a number
   its packed decimal key, a date its Julian key in the current date style).
   KXDMTKMAKE returns it in a block the library owns, valid until the next
   KXDMTKMAKE or the close of that MDX handle (null on failure); KXDMTKMAKEH
   returns the block itself, freed by the caller with _KXMFREE (all ones on
   failure). 0, -7, -13, -21, -48. */
KXEXPORT int16_t KXAPI KXDMTKMAKE(int16_t table, int16_t handle, int16_t tag, char **key);
KXEXPORT int16_t KXAPI KXDMTKMAKEH(int16_t table, int16_t handle, int16_t tag, KXBLOCK *block);
/* Numeric key: the 12-byte packed decimal form of a number (15 significant
   digits). 0, -21. */
KXEXPORT int16_t KXAPI KXDMKNUM(char *key, double number);
/* Date key: the Julian day number of a date string in `style` as an 8-byte
   double; a blank date gives 1.0E100. 0, -21, -12, -15. */
KXEXPORT int16_t KXAPI KXDMKDATE(char *key, const char *date, uint16_t style);
/* Rebuild a tag from every record of the table (see above). The table is
   locked (KXDDLOCK function 2) for the build unless this handle already
   held that lock. 0, -13, -21, -48, -37, -36, -3, -1, -2, -4, -7. */
KXEXPORT int16_t KXAPI KXDMTINDEX(int16_t table, int16_t handle, int16_t tag);
/* ---- end of MDX indexes ---------------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif /* RVDB4XX_H */
