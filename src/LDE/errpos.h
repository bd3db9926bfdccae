// The pages of the error-position display: 16 rows of the thread's ring at a
// time, as text for one message box. Kept apart from ldbgDispErrPos, and
// inline, so that the page text can be checked on a ring made for the
// purpose.
#pragma once

#include <cstring>

#include "../internal/context.h"

namespace lde {

constexpr int kErrPosRowsPerPage = 16;
// A row: "(127) ", "source = " and a name of up to 255 bytes with "(nnn)",
// five blanks, "line = 65535", two blanks, the code text and a line feed.
constexpr int kErrPosRowSize = 8 + 9 + 255 + 8 + 5 + 13 + 2 + 34 + 2;
constexpr int kErrPosPageSize = kErrPosRowsPerPage * kErrPosRowSize;

// Where the display stands: the next entry, its row number (128 before the
// first page and after the eighth, which starts the count again) and the
// next slot of errCodes.
struct ErrPosCursor {
    const tagLDE_ErrPos* entry;
    int row;
    DWORD errorIndex;
};

// Writes the next page into page (kErrPosPageSize bytes) and moves the
// cursor on by 16 rows.
inline void BuildErrPosPage(ErrPosCursor* cursor, const DWORD* errCodes, DWORD errCodeIndex, char* page) {
    // "不明", unknown, in code page 932.
    static const char kUnknown[] = "\x95\x73\x96\xBE";
    if (cursor->row == kErrPosRingSize) {
        cursor->row = 0;
        cursor->errorIndex = errCodeIndex;
    }
    char* end = page;
    *end = '\0';
    for (int i = 0; i < kErrPosRowsPerPage; ++i) {
        const DWORD mark = cursor->entry->mark;
        char number[16], source[300], line[24], code[48];
        wsprintfA(number, "(%d) ", cursor->row);
        const char* name = ldbgFindSource(mark);
        if (name != nullptr) {
            wsprintfA(source, "source = %s(%3d)", name, static_cast<int>((mark >> 16) & 0x7FFF));
        } else {
            std::strcpy(source, kUnknown);
        }
        code[0] = '\0';
        if (mark & LDE_MARKBIT) {
            wsprintfA(code, "Marked  GetLastError() = %08x", errCodes[cursor->errorIndex % kErrCodeCount]);
            cursor->errorIndex = (cursor->errorIndex + 1) % kErrCodeCount;
        }
        wsprintfA(line, "line = %d", static_cast<int>(mark & 0xFFFF));
        lstrCatEx(end, number, source, "     ", line, "  ", code, "\n", nullptr);
        end += std::strlen(end);
        ++cursor->row;
        cursor->entry = cursor->entry->next;
    }
}

}  // namespace lde
