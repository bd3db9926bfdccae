// The structured-exception services for hosts: lexceptFilter on made-up
// records (its answer, mark and commit by where the address lies) and on
// real faults (first touches resumed, a failed commit raising through the
// faulting code), and the display, which shows nothing.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

using Node = tagLMM_VirtualAllocNode;

const DWORD kPage = lsysGetPageSize();

// A virtual block of `pages` pages of data beyond its header page.
class Block {
public:
    explicit Block(DWORD pages) : data_(static_cast<char*>(lmemVirtualAllocFunc(pages * kPage, 0))) {}
    ~Block() { lmemVirtualFree(data_); }
    Node* node() const { return lmemGetVirtualAllocNode(data_); }
    // The first byte of the n-th page of the region (page 0 holds the header).
    char* page(DWORD n) const { return reinterpret_cast<char*>(node()) + ULONG_PTR{n} * kPage; }

private:
    char* data_;
};

// Whether a call marked: the latest mark's value is kNew, not kOld.
constexpr DWORD kOld = 0x111, kNew = 0x222;
void ArmMarkProbe() {
    SetLastError(kOld);
    ldbgSetMarkErr(0);
    SetLastError(kNew);
}
bool Marked() {
    SetLastError(0);
    ldbgOpenSetErr();
    return GetLastError() == kNew;
}

const auto kNoHandler = [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "handler ran"; };
LONG CommitFilter(EXCEPTION_POINTERS* info) { return lexceptFilter(info); }

TEST(LexceptFilter, AnswersByWhereTheAddressLies) {
    Block block(4), other(1);
    Node* node = block.node();
    ASSERT_NE(node, nullptr);
    int outside = 0;
    std::atomic<void*> foreign{nullptr};
    std::atomic<bool> done{false};
    std::thread owner([&] {
        void* p = lmemVirtualAllocFunc(2 * kPage, 0);
        foreign = p;
        while (!done.load()) std::this_thread::yield();
        lmemVirtualFree(p);
    });
    while (foreign.load() == nullptr) std::this_thread::yield();

    constexpr DWORD kAccess = EXCEPTION_ACCESS_VIOLATION;
    constexpr int kSearch = EXCEPTION_CONTINUE_SEARCH, kResume = EXCEPTION_CONTINUE_EXECUTION;
    const struct {
        const char* what;
        DWORD code;
        const void* address;
        int answer;
        bool marks;
    } cases[] = {
        {"integer divide", EXCEPTION_INT_DIVIDE_BY_ZERO, block.page(2), kSearch, false},
        {"float divide", EXCEPTION_FLT_DIVIDE_BY_ZERO, block.page(2), kSearch, false},
        {"stack variable", kAccess, &outside, kSearch, true},
        {"null", kAccess, nullptr, kSearch, true},
        {"the block's header", kAccess, node, kSearch, true},
        {"just past the data", kAccess, static_cast<char*>(node->dataLast) + 1, kSearch, true},
        {"another thread's block", kAccess, foreign.load(), kSearch, true},
        {"second page", kAccess, block.page(1) + 5, kResume, false},
        {"last byte", kAccess, node->dataLast, kResume, false},
        {"another block", kAccess, other.page(1), kResume, false},
    };
    for (const auto& c : cases) {
        EXCEPTION_RECORD record = {};
        record.ExceptionCode = c.code;
        record.NumberParameters = 2;
        record.ExceptionInformation[0] = 1;
        record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(c.address);
        CONTEXT context = {};
        EXCEPTION_POINTERS pointers = {&record, &context};
        Node* target = lmemGetVirtualAllocNode(const_cast<void*>(c.address));
        const DWORD committed = target != nullptr ? target->committedSize : 0;
        ArmMarkProbe();
        EXPECT_EQ(lexceptFilter(&pointers), c.answer) << c.what;
        EXPECT_EQ(GetLastError(), kNew) << c.what << ": the last error stays";
        EXPECT_EQ(Marked(), c.marks) << c.what;
        if (c.answer == kResume) {
            EXPECT_EQ(target->committedSize, committed + kPage) << c.what;
            *static_cast<volatile char*>(const_cast<void*>(c.address)) = 9;  // usable now
        }
    }
    done = true;
    owner.join();
}

// Writes one way and reads the other: every page's first touch faults once
// and resumes.
TEST(LexceptFilter, FirstTouchesOfUncommittedPagesResume) {
    constexpr DWORD kPages = 6;
    Block block(kPages);
    ASSERT_EQ(block.node()->committedSize, kPage);
    BOOL completed = OrvaTryExcept(
        [&] {
            for (DWORD i = 1; i <= kPages; i += 2) block.page(i)[100] = static_cast<char>(i);
            for (DWORD i = kPages; i >= 1; --i) {
                EXPECT_EQ(*static_cast<volatile char*>(block.page(i) + 100), (i % 2) ? static_cast<char>(i) : 0);
            }
        },
        CommitFilter, kNoHandler);
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(block.node()->committedSize, (kPages + 1) * kPage);
}

// The faulting access sits in a function of its own with no cleanups, so
// that an exception raised by the filter can leave through it, and is called
// through a pointer, so that the compiler keeps the handler around the call.
void TouchByte(char* p) { *static_cast<volatile char*>(p) = 1; }
void (*volatile Touch)(char*) = TouchByte;

TEST(LexceptFilter, AFailedCommitRaisesThroughTheFaultingCode) {
    Block block(3);
    int caught = 0;
    BOOL completed = OrvaTryExcept(
        [&] {
            OrvaFaultArm(ORVA_FAULT_VIRTUALCOMMIT, 1, ERROR_NOT_ENOUGH_MEMORY, FALSE);
            try {
                Touch(block.page(1));
            } catch (L_CMemoryException* e) {
                caught += e->GetRuntimeClass() == RUNTIME_CLASS(L_CMemoryException);
            }
            Touch(block.page(2));  // the frame still works: the next fault commits
        },
        CommitFilter, kNoHandler);
    OrvaFaultReset();
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(caught, 1);
    EXPECT_EQ(block.node()->committedSize, 2 * kPage) << "only the second commit counted";
}

// The classification frame passes the access violation outward, where the
// commit filter repairs it.
TEST(LexceptFilter, RepairsAFaultInsideTheLibrarysOwnFrame) {
    Block block(2);
    bool safe = false;
    BOOL completed = OrvaTryExcept(
        [&] { safe = lsysIsSafeValue(*reinterpret_cast<double*>(block.page(2) + 8)); }, CommitFilter, kNoHandler);
    EXPECT_EQ(completed, TRUE);
    EXPECT_TRUE(safe) << "a zero-filled page holds +0.0";
    EXPECT_EQ(block.node()->committedSize, 2 * kPage);
}

TEST(LexceptDispInfo, ShowsNothing) {
    static int boxes = 0;
    ORVA_MSGBOXHANDLER previous = OrvaSetMessageBoxHandler([](HWND, LPCSTR, LPCSTR, UINT) { return ++boxes; });
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    CONTEXT context = {};
    EXCEPTION_POINTERS pointers = {&record, &context};
    SetLastError(77);
    lexceptDispInfo(&pointers);
    lexceptDispInfo(nullptr);
    OrvaSetMessageBoxHandler(previous);
    EXPECT_EQ(boxes, 0);
    EXPECT_EQ(GetLastError(), 77u);
}

}  // namespace
