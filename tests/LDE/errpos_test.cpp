// The error-position display: paging through message boxes until Cancel,
// the title and flags of the box, and the rows of a page on a ring made here
// with marked rows, registered sources and wrapping codes.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "../../src/LDE/errpos.h"

namespace {

struct Box {
    std::string text, caption;
    UINT type;
};
std::vector<Box> g_boxes;
int g_okBeforeCancel = 0;

int Answering(HWND, LPCSTR text, LPCSTR caption, UINT type) {
    g_boxes.push_back({text, caption, type});
    return static_cast<int>(g_boxes.size()) <= g_okBeforeCancel ? IDOK : IDCANCEL;
}

std::string Unmarked(int row) { return "(" + std::to_string(row) + ") \x95\x73\x96\xBE     line = 0  \n"; }

std::string UnmarkedPage(int first) {
    std::string page;
    for (int r = first; r < first + 16; ++r) page += Unmarked(r);
    return page;
}

// Eight pages with OK, then Cancel: the ninth starts again at row 0. The
// display runs on a fresh thread, whose ring holds no mark: every row is
// unknown, line 0. Title, flags and last error are checked on every box.
TEST(DispErrPos, PagesUntilCancelWrappingAfterTheEighth) {
    g_boxes.clear();
    g_okBeforeCancel = 8;
    ORVA_MSGBOXHANDLER old = OrvaSetMessageBoxHandler(Answering);
    DWORD lastError = 0;
    std::thread([&] {
        SetLastError(77);
        ldbgDispErrPos();
        lastError = GetLastError();
    }).join();
    OrvaSetMessageBoxHandler(old);
    EXPECT_EQ(lastError, 77u);
    ASSERT_EQ(g_boxes.size(), 9u);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(g_boxes[i].caption, "orvane\x95\x57\x8F\x80\xD7\xB2\xCC\xDE\xD7\xD8 \xB4\xD7\xB0\x8F\xEE\x95\xF1");
        EXPECT_EQ(g_boxes[i].type, 0x1001u);
        EXPECT_EQ(g_boxes[i].text, UnmarkedPage(16 * (i % 8))) << i;
    }
}

// A ring of the same shape as the thread's, with marks of registered
// sources: marked rows take their codes from errCodes in turn, starting at
// errCodeIndex and wrapping from 16 to 0; the row count and the code index
// start again after row 127.
TEST(DispErrPos, MarkedRowsOnAMadeRing) {
    tagLDE_ErrPos ring[128];
    for (int i = 0; i < 128; ++i) {
        ring[i].mark = 0;
        ring[i].next = &ring[(i + 1) % 128];
    }
    ring[0].mark = 0x80100123;   // marked, source 16, line 0x123
    ring[1].mark = 0x00010007;   // source 1, line 7, not marked
    ring[2].mark = 0x80100001;
    ring[3].mark = 0x7FFF0005;   // no such source
    ring[127].mark = 0x80100002;
    DWORD codes[16];
    for (int i = 0; i < 16; ++i) codes[i] = 0xA0 + i;
    lde::ErrPosCursor cursor{ring, 128, 0};
    char page[lde::kErrPosPageSize];
    const std::string source16 = ldbgFindSource(0x00100000), source1 = ldbgFindSource(0x00010000);
    auto marked = [&](int row, int line, const char* code) {
        return "(" + std::to_string(row) + ") source = " + source16 + "( 16)     line = " + std::to_string(line) +
               "  Marked  GetLastError() = 000000" + code + "\n";
    };
    lde::BuildErrPosPage(&cursor, codes, 15, page);
    const std::string expected = marked(0, 291, "af") + "(1) source = " + source1 + "(  1)     line = 7  \n" +
                                 marked(2, 1, "a0") + "(3) \x95\x73\x96\xBE     line = 5  \n";
    EXPECT_EQ(std::string(page).substr(0, expected.size()), expected);
    EXPECT_EQ(cursor.row, 16);
    EXPECT_EQ(cursor.entry, &ring[16]);
    for (int p = 1; p < 8; ++p) lde::BuildErrPosPage(&cursor, codes, 15, page);
    EXPECT_NE(std::string(page).find(marked(127, 2, "a1")), std::string::npos);
    lde::BuildErrPosPage(&cursor, codes, 3, page);
    EXPECT_EQ(std::string(page).rfind(marked(0, 291, "a3"), 0), 0u);
}

}  // namespace
