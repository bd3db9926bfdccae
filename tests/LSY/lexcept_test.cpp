// The structured-exception services for hosts: lexceptFilter against made-up
// records (what it answers, what it marks, what it commits) and against real
// faults in frames (first touches resumed, faults outside every block passed
// outward, a failed commit raising through the faulting code), and the
// display of an exception, which shows nothing.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

using Node = tagLMM_VirtualAllocNode;

const DWORD kPage = lsysGetPageSize();

// A virtual block of `pages` pages of data beyond its first page, freed at
// the end of the test.
class Block {
public:
    explicit Block(DWORD pages) : data_(static_cast<char*>(lmemVirtualAllocFunc(pages * kPage, 0))) {}
    ~Block() { lmemVirtualFree(data_); }
    char* data() const { return data_; }
    Node* node() const { return lmemGetVirtualAllocNode(data_); }
    // The first byte of the n-th page of the region (page 0 holds the header).
    char* page(DWORD n) const {
        auto start = reinterpret_cast<ULONG_PTR>(node());
        return reinterpret_cast<char*>(start + ULONG_PTR{n} * kPage);
    }

private:
    char* data_;
};

struct Records {
    EXCEPTION_RECORD record = {};
    CONTEXT context = {};
    EXCEPTION_POINTERS pointers = {&record, &context};

    EXCEPTION_POINTERS* Make(DWORD code, const void* address) {
        record.ExceptionCode = code;
        record.NumberParameters = code == EXCEPTION_ACCESS_VIOLATION ? 2 : 0;
        record.ExceptionInformation[0] = 1;
        record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(address);
        return &pointers;
    }
};

// Whether a call marked: the latest mark's last error is what it was before
// (kOld) or what stood when the call ran (kNew).
constexpr DWORD kOld = 0x111;
constexpr DWORD kNew = 0x222;

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

TEST(LexceptFilter, AnswersByWhereTheAddressLies) {
    Block block(4);
    Block other(1);
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

    struct Case {
        const char* what;
        DWORD code;
        const void* address;
        int answer;
        bool marks;
    } cases[] = {
        {"integer divide", EXCEPTION_INT_DIVIDE_BY_ZERO, block.page(2), EXCEPTION_CONTINUE_SEARCH, false},
        {"float divide", EXCEPTION_FLT_DIVIDE_BY_ZERO, block.page(2), EXCEPTION_CONTINUE_SEARCH, false},
        {"stack variable", EXCEPTION_ACCESS_VIOLATION, &outside, EXCEPTION_CONTINUE_SEARCH, true},
        {"null", EXCEPTION_ACCESS_VIOLATION, nullptr, EXCEPTION_CONTINUE_SEARCH, true},
        {"the block's header", EXCEPTION_ACCESS_VIOLATION, node, EXCEPTION_CONTINUE_SEARCH, true},
        {"just past the data", EXCEPTION_ACCESS_VIOLATION, static_cast<char*>(node->dataLast) + 1,
         EXCEPTION_CONTINUE_SEARCH, true},
        {"another thread's block", EXCEPTION_ACCESS_VIOLATION, foreign.load(), EXCEPTION_CONTINUE_SEARCH, true},
        {"second page", EXCEPTION_ACCESS_VIOLATION, block.page(1) + 5, EXCEPTION_CONTINUE_EXECUTION, false},
        {"last byte", EXCEPTION_ACCESS_VIOLATION, node->dataLast, EXCEPTION_CONTINUE_EXECUTION, false},
        {"another block", EXCEPTION_ACCESS_VIOLATION, other.page(1), EXCEPTION_CONTINUE_EXECUTION, false},
    };
    for (const Case& c : cases) {
        Records records;
        Node* target = lmemGetVirtualAllocNode(const_cast<void*>(c.address));
        DWORD committed = target != nullptr ? target->committedSize : 0;
        ArmMarkProbe();
        int answer = lexceptFilter(records.Make(c.code, c.address));
        EXPECT_EQ(GetLastError(), kNew) << c.what << ": the last error stays";
        EXPECT_EQ(answer, c.answer) << c.what;
        EXPECT_EQ(Marked(), c.marks) << c.what;
        if (c.answer == EXCEPTION_CONTINUE_EXECUTION) {
            EXPECT_EQ(target->committedSize, committed + kPage) << c.what;
            // The page is usable now.
            *static_cast<volatile char*>(const_cast<void*>(c.address)) = 9;
        }
    }
    done = true;
    owner.join();
}

// ---- real faults -----------------------------------------------------------------------

LONG CommitFilter(EXCEPTION_POINTERS* info) { return lexceptFilter(info); }

TEST(LexceptFilter, FirstTouchesOfUncommittedPagesResume) {
    constexpr DWORD kPages = 6;
    Block block(kPages);
    Node* node = block.node();
    ASSERT_EQ(node->committedSize, kPage);
    BOOL completed = OrvaTryExcept(
        [&] {
            // Writes in one direction and reads in the other: every page's
            // first touch faults once, reads and writes alike.
            for (DWORD i = 1; i <= kPages; i += 2) block.page(i)[100] = static_cast<char>(i);
            for (DWORD i = kPages; i >= 1; --i) {
                volatile char value = block.page(i)[100];
                EXPECT_EQ(value, (i % 2) ? static_cast<char>(i) : 0) << i;
            }
        },
        CommitFilter, [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "handler ran"; });
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(node->committedSize, (kPages + 1) * kPage);
}

TEST(LexceptFilter, AFaultOutsideEveryBlockReachesTheOuterHandler) {
    Block block(2);
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* stray = mmap(nullptr, page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(stray, MAP_FAILED);
    int innerHandler = 0;
    int outerHandler = 0;
    ULONG_PTR outerAddress = 0;
    bool resumedFirst = false;
    ArmMarkProbe();
    BOOL completed = OrvaTryExcept(
        [&] {
            OrvaTryExcept(
                [&] {
                    block.page(1)[0] = 1;  // repaired
                    resumedFirst = true;
                    (void)*static_cast<volatile char*>(stray);  // not repaired
                },
                CommitFilter, [&](const EXCEPTION_RECORD*) { ++innerHandler; });
        },
        [&](EXCEPTION_POINTERS* info) -> LONG {
            outerAddress = info->ExceptionRecord->ExceptionInformation[1];
            return EXCEPTION_EXECUTE_HANDLER;
        },
        [&](const EXCEPTION_RECORD*) { ++outerHandler; });
    EXPECT_EQ(completed, FALSE);
    EXPECT_TRUE(resumedFirst);
    EXPECT_EQ(innerHandler, 0);
    EXPECT_EQ(outerHandler, 1);
    EXPECT_EQ(outerAddress, reinterpret_cast<ULONG_PTR>(stray));
    EXPECT_TRUE(Marked()) << "the miss was marked";
    munmap(stray, page);
}

// The faulting access sits in a function of its own with no cleanups, so that
// an exception raised by the filter can leave through it, called through a
// pointer, so that the compiler keeps the handler around the call.
void TouchByte(char* p) { *static_cast<volatile char*>(p) = 1; }
void (*volatile Touch)(char*) = TouchByte;

TEST(LexceptFilter, AFailedCommitRaisesThroughTheFaultingCode) {
    Block block(3);
    Node* node = block.node();
    int caught = 0;
    BOOL completed = OrvaTryExcept(
        [&] {
            OrvaFaultArm(ORVA_FAULT_VIRTUALCOMMIT, 1, ERROR_NOT_ENOUGH_MEMORY, FALSE);
            try {
                Touch(block.page(1));
            } catch (L_CMemoryException* e) {
                EXPECT_EQ(e->GetRuntimeClass(), RUNTIME_CLASS(L_CMemoryException));
                ++caught;
            }
            // The frame still works: the next fault commits.
            Touch(block.page(2));
        },
        CommitFilter, [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "handler ran"; });
    OrvaFaultReset();
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(caught, 1);
    EXPECT_EQ(node->committedSize, 2 * kPage) << "only the second commit counted";
}

// The classification frame passes the access violation outward, where the
// commit filter repairs it.
TEST(LexceptFilter, RepairsAFaultInsideTheLibrarysOwnFrame) {
    Block block(2);
    Node* node = block.node();
    bool safe = false;
    BOOL completed = OrvaTryExcept(
        [&] { safe = lsysIsSafeValue(*reinterpret_cast<double*>(block.page(2) + 8)); }, CommitFilter,
        [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "handler ran"; });
    EXPECT_EQ(completed, TRUE);
    EXPECT_TRUE(safe) << "a zero-filled page holds +0.0";
    EXPECT_EQ(node->committedSize, 2 * kPage);
}

// ---- display ---------------------------------------------------------------------------

int g_boxes = 0;

int CountBox(HWND, LPCSTR, LPCSTR, UINT) {
    ++g_boxes;
    return IDOK;
}

// Called from a filter with a real fault's record, as a host would, it shows
// no box and leaves the last error alone.
TEST(LexceptDispInfo, ShowsNothing) {
    ORVA_MSGBOXHANDLER previous = OrvaSetMessageBoxHandler(CountBox);
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
    OrvaSetMessageBoxHandler(previous);
}

}  // namespace
