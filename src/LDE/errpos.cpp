// The error-position display, a diagnostic for hosts: the thread's ring of
// error positions in message boxes, 16 rows a page, until the user cancels.
// Source .\LDE\LDE; nothing in the library calls it, and it changes nothing.
//
// The ring is closed, so the display has no last page: after the eighth it
// starts again at row 0, and only Cancel ends it.
#include "LDE/errpos.h"

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLDE

namespace {

// "orvane標準ﾗｲﾌﾞﾗﾘ ｴﾗｰ情報" in code page 932, written as bytes so that the
// source file's own encoding cannot change it.
const char kTitle[] = "orvane\x95\x57\x8F\x80\xD7\xB2\xCC\xDE\xD7\xD8 \xB4\xD7\xB0\x8F\xEE\x95\xF1";

}  // namespace

void ldbgDispErrPos(void) {
    const tagLDE_ThreadContext* ctx = lde::Context();
    lde::ErrPosCursor cursor{ctx->errPosFirst, kErrPosRingSize, 0};
    char page[lde::kErrPosPageSize];
    for (;;) {
        lde::BuildErrPosPage(&cursor, ctx->errCodes, ctx->errCodeIndex, page);
        if (MessageBoxA(nullptr, page, kTitle, MB_OKCANCEL | MB_SYSTEMMODAL) == IDCANCEL) return;
    }
}
