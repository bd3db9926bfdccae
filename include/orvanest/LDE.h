// Source registry, error marks and the library's own error codes.
//
// An error mark is a 32-bit word: bit 31 the mark bit, bits 30..16 the id
// that the registry gave a source file, bits 15..0 the line.
#pragma once

#include <orvanest/platform/win32.h>

// ---- the library's error codes, beside the system's in the last error ----------
#define LERR_INVALIDARG 0x20000001UL
#define LERR_BUFTOOSMALL 0x20000002UL
#define LERR_BADHANDLE 0x20000003UL
#define LERR_TEXTEOFMARK 0x20000004UL
#define LERR_TEXTLONECR 0x20000005UL
#define LERR_NODATA 0x20000006UL
#define LERR_BADPATH 0x20000007UL
#define LERR_AVLDUPLICATE 0x20000008UL
#define LERR_BADSIZE 0x20000009UL
#define LERR_LOCKED 0x2000000aUL
#define LERR_NOTLOCKED 0x2000000bUL
#define LERR_RESERVED 0x2000000cUL
#define LERR_NOTRESERVED 0x2000000dUL

#define LDE_MARKBIT 0x80000000UL
#define LDE_SOURCEMASK 0x7FFF0000UL

// One row of a source table; a row with id 0 ends the table.
struct tagLDE_SourceInfo {
    DWORD id;        // (n << 16), n from 1
    char name[256];  // NUL-terminated
};

// A source table of exactly two rows, its own and the terminator, that
// registers itself when built. The first word of the object is its id, which
// a source ORs with its line to compose a mark. The destructor leaves the
// object registered.
class ORVANEST_EXPORT LDE_CSourceInfo {
public:
    explicit LDE_CSourceInfo(char* name);
    explicit LDE_CSourceInfo(const char* name) : LDE_CSourceInfo(const_cast<char*>(name)) {}
    LDE_CSourceInfo(void);
    ~LDE_CSourceInfo(void);

    tagLDE_SourceInfo m_info[2];
};

// Registers a table (rows up to the one with id 0); 1, or 0 when the list
// refused. Raises L_CMemoryException when no node can be had.
ORVANEST_EXPORT int ldbgSetSourceInfo(struct tagLDE_SourceInfo* info);
// Takes a registered table out; 1, or 0 (no mark, last error unchanged) when
// it is not registered.
ORVANEST_EXPORT int ldbgResetSourceInfo(struct tagLDE_SourceInfo* info);
// The name of the row whose id is the mark's source id, or null. The mark bit
// and the line are ignored. The last error afterwards is the thread's latest
// mark's, when there is one.
ORVANEST_EXPORT char* ldbgFindSource(DWORD mark);

// Keeps the thread's last error as the latest mark's value; the last error
// stays as it was. `mark` is the position and is not used.
ORVANEST_EXPORT void ldbgSetMarkErr(DWORD mark);
// Passes a callee's failure on; does nothing.
ORVANEST_EXPORT void ldbgSetErr(DWORD mark);
// Opens the bracket around release steps of a failing function.
ORVANEST_EXPORT void ldbgCloseSetErr(void);
// Closes it: the last error becomes the latest mark's value, if one was made.
ORVANEST_EXPORT void ldbgOpenSetErr(void);

// Shows the thread's ring of error positions in message boxes titled
// "orvane標準ﾗｲﾌﾞﾗﾘ ｴﾗｰ情報" (code page 932), 16 rows a box with OK and
// Cancel: each row its number, the source's name and id or "不明", the line,
// and for a marked row the last-error value kept with it. OK shows the next
// 16 rows (after row 127 the count starts again); only Cancel returns.
ORVANEST_EXPORT void ldbgDispErrPos(void);
