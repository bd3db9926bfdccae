// The structured-exception services for hosts: the display of an exception
// (which shows nothing, however it is reached).
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <orvanest/ORVANEST.h>

namespace {

int g_boxes = 0;

int CountBox(HWND, LPCSTR, LPCSTR, UINT) {
    ++g_boxes;
    return IDOK;
}

class LexceptTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_boxes = 0;
        previous_ = OrvaSetMessageBoxHandler(CountBox);
    }
    void TearDown() override { OrvaSetMessageBoxHandler(previous_); }
    ORVA_MSGBOXHANDLER previous_ = nullptr;
};

// Called from a filter with a real fault's record, as a host would, it shows
// no box and leaves the last error alone.
TEST_F(LexceptTest, DispInfoShowsNothing) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* base = mmap(nullptr, page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(base, MAP_FAILED);
    SetLastError(77);
    int filterCalls = 0;
    BOOL completed = OrvaTryExcept([&] { (void)*static_cast<volatile char*>(base); },
                                   [&](EXCEPTION_POINTERS* info) -> LONG {
                                       ++filterCalls;
                                       lexceptDispInfo(info);
                                       return EXCEPTION_EXECUTE_HANDLER;
                                   },
                                   [](const EXCEPTION_RECORD*) {});
    EXPECT_EQ(completed, FALSE);
    EXPECT_EQ(filterCalls, 1);
    lexceptDispInfo(nullptr);
    EXPECT_EQ(g_boxes, 0);
    EXPECT_EQ(GetLastError(), 77u);
    munmap(base, page);
}

}  // namespace
