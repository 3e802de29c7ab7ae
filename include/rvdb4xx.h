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
/* ---- end of DBF tables, records, fields -------------------------------- */

/* ---- DBF locking, flush and pack ----------------------------------------- */
/* ---- end of DBF locking, flush and pack ---------------------------------- */

/* ---- Dates and times ------------------------------------------------------- */
/* ---- end of dates and times ------------------------------------------------ */

/* ---- Expressions and user procedures ------------------------------------- */
/* ---- end of expressions and user procedures ------------------------------ */

/* ---- NTX indexes ----------------------------------------------------------- */
/* ---- end of NTX indexes ---------------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif /* RVDB4XX_H */
