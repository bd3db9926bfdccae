// Address space: reservations, commits, decommits and releases, what
// VirtualQuery tells about them, the system facts they align by, injected
// failures, and many threads at once.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include <orvanest/platform/platform.h>

namespace {

SYSTEM_INFO SystemInfo() {
    SYSTEM_INFO si;
    std::memset(&si, 0xCC, sizeof si);
    GetSystemInfo(&si);
    return si;
}

const SIZE_T kPage = SystemInfo().dwPageSize;
const SIZE_T kGranularity = SystemInfo().dwAllocationGranularity;

char* At(LPVOID p, SIZE_T offset = 0) { return static_cast<char*>(p) + offset; }

MEMORY_BASIC_INFORMATION Query(LPCVOID p) {
    MEMORY_BASIC_INFORMATION info;
    std::memset(&info, 0xCC, sizeof info);
    EXPECT_EQ(VirtualQuery(p, &info, sizeof info), sizeof info);
    return info;
}

// One run of pages of the region as VirtualQuery reports it from p on.
void ExpectRun(LPCVOID p, LPVOID region, SIZE_T size, DWORD state, DWORD protect) {
    SCOPED_TRACE(testing::Message() << "at offset " << static_cast<const char*>(p) - At(region));
    MEMORY_BASIC_INFORMATION info = Query(p);
    EXPECT_EQ(info.BaseAddress, reinterpret_cast<LPVOID>(reinterpret_cast<uintptr_t>(p) & ~(kPage - 1)));
    EXPECT_EQ(info.AllocationBase, region);
    EXPECT_EQ(info.RegionSize, size);
    EXPECT_EQ(info.State, state);
    EXPECT_EQ(info.Protect, protect);
    EXPECT_EQ(info.Type, static_cast<DWORD>(MEM_PRIVATE));
}

LPVOID Reserve(SIZE_T size) { return VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS); }

class VmemTest : public ::testing::Test {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

TEST_F(VmemTest, SystemInfoDescribesPagesAndGranularity) {
    SYSTEM_INFO si = SystemInfo();
    EXPECT_GE(si.dwPageSize, 4096u);
    EXPECT_EQ(si.dwPageSize & (si.dwPageSize - 1), 0u) << "a power of two";
    EXPECT_EQ(si.dwAllocationGranularity, si.dwPageSize > 0x10000 ? si.dwPageSize : 0x10000u);
    EXPECT_LT(si.lpMinimumApplicationAddress, si.lpMaximumApplicationAddress);
    EXPECT_GE(si.dwNumberOfProcessors, 1u);
    EXPECT_EQ(static_cast<DWORD>(__builtin_popcountll(si.dwActiveProcessorMask)),
              si.dwNumberOfProcessors < 64 ? si.dwNumberOfProcessors : 64u);
#if defined(__x86_64__)
    EXPECT_EQ(si.wProcessorArchitecture, PROCESSOR_ARCHITECTURE_AMD64);
#endif
}

TEST_F(VmemTest, ReservationIsAlignedAndRoundedToPages) {
    for (SIZE_T size : {SIZE_T{1}, kPage - 1, kPage, kPage + 1, 5 * kGranularity + 3}) {
        LPVOID p = Reserve(size);
        ASSERT_NE(p, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % kGranularity, 0u) << size;
        SIZE_T rounded = (size + kPage - 1) / kPage * kPage;
        ExpectRun(p, p, rounded, MEM_RESERVE, 0);
        ExpectRun(At(p, rounded - 1), p, kPage, MEM_RESERVE, 0);
        EXPECT_EQ(Query(p).AllocationProtect, static_cast<DWORD>(PAGE_NOACCESS));
        EXPECT_TRUE(VirtualFree(p, 0, MEM_RELEASE)) << size;
    }
    LPVOID q = VirtualAlloc(nullptr, kPage, MEM_COMMIT, PAGE_READWRITE);
    ASSERT_NE(q, nullptr) << "a commit with no address reserves as well";
    ExpectRun(q, q, kPage, MEM_COMMIT, PAGE_READWRITE);
    EXPECT_TRUE(VirtualFree(q, 0, MEM_RELEASE));
}

TEST_F(VmemTest, CommitsSplitTheRegionIntoRuns) {
    LPVOID p = Reserve(8 * kPage);
    ASSERT_NE(p, nullptr);
    // Bytes 2.5 pages to 4.5 pages touch pages 2, 3 and 4.
    LPVOID c = VirtualAlloc(At(p, 2 * kPage + kPage / 2), 2 * kPage, MEM_COMMIT, PAGE_READWRITE);
    EXPECT_EQ(c, At(p, 2 * kPage));
    ExpectRun(p, p, 2 * kPage, MEM_RESERVE, 0);
    ExpectRun(At(p, 2 * kPage), p, 3 * kPage, MEM_COMMIT, PAGE_READWRITE);
    ExpectRun(At(p, 4 * kPage + 7), p, kPage, MEM_COMMIT, PAGE_READWRITE);
    ExpectRun(At(p, 5 * kPage), p, 3 * kPage, MEM_RESERVE, 0);
    // A second commit over part of it with another protection splits the run.
    EXPECT_EQ(VirtualAlloc(At(p, 3 * kPage), 1, MEM_COMMIT, PAGE_READONLY), At(p, 3 * kPage));
    ExpectRun(At(p, 2 * kPage), p, kPage, MEM_COMMIT, PAGE_READWRITE);
    ExpectRun(At(p, 3 * kPage), p, kPage, MEM_COMMIT, PAGE_READONLY);
    ExpectRun(At(p, 4 * kPage), p, kPage, MEM_COMMIT, PAGE_READWRITE);
    EXPECT_TRUE(VirtualFree(p, 0, MEM_RELEASE));
}

TEST_F(VmemTest, CommittedPagesAreZeroAndKeepContentsUntilDecommitted) {
    LPVOID p = VirtualAlloc(nullptr, 4 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    ASSERT_NE(p, nullptr);
    for (SIZE_T i = 0; i < 4 * kPage; ++i) ASSERT_EQ(At(p)[i], 0) << i;
    std::memset(p, 0x5A, 4 * kPage);
    ASSERT_NE(VirtualAlloc(At(p, kPage), kPage, MEM_COMMIT, PAGE_READWRITE), nullptr);
    EXPECT_EQ(At(p, kPage)[0], 0x5A) << "committing again keeps what is there";
    // Page 1 decommitted reads zeros when committed anew; its neighbours keep their bytes.
    EXPECT_TRUE(VirtualFree(At(p, kPage), kPage, MEM_DECOMMIT));
    ExpectRun(At(p, kPage), p, kPage, MEM_RESERVE, 0);
    ASSERT_NE(VirtualAlloc(At(p, kPage), kPage, MEM_COMMIT, PAGE_READWRITE), nullptr);
    EXPECT_EQ(At(p, kPage)[0], 0);
    EXPECT_EQ(At(p, kPage)[kPage - 1], 0);
    EXPECT_EQ(At(p)[kPage - 1], 0x5A);
    EXPECT_EQ(At(p, 2 * kPage)[0], 0x5A);
    EXPECT_TRUE(VirtualFree(p, 0, MEM_DECOMMIT)) << "size 0 at the start decommits the whole region";
    ExpectRun(p, p, 4 * kPage, MEM_RESERVE, 0);
    EXPECT_TRUE(VirtualFree(p, 0, MEM_RELEASE));
}

TEST_F(VmemTest, ReservationAtAnAddress) {
    LPVOID p = Reserve(2 * kGranularity);
    ASSERT_NE(p, nullptr);
    SetLastError(0);
    EXPECT_EQ(VirtualAlloc(At(p, kGranularity), kPage, MEM_RESERVE, PAGE_NOACCESS), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ADDRESS)) << "the range is taken";
    ASSERT_TRUE(VirtualFree(p, 0, MEM_RELEASE));
    // A size that the offset into the granule carries past the top of the
    // address space is refused, not wrapped round to a page of the free range.
    SetLastError(0);
    EXPECT_EQ(VirtualAlloc(At(p, kPage), ~SIZE_T{0} - kPage / 2, MEM_RESERVE, PAGE_NOACCESS), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    // An address inside a granule is rounded down to it, and the region reaches
    // to the end of the asked range: 5 bytes in and a page long is two pages.
    LPVOID q = VirtualAlloc(At(p, kGranularity + 5), kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (q == nullptr) GTEST_SKIP() << "something else took the range meanwhile";
    EXPECT_EQ(q, At(p, kGranularity));
    ExpectRun(q, q, 2 * kPage, MEM_COMMIT, PAGE_READWRITE);
    EXPECT_TRUE(VirtualFree(q, 0, MEM_RELEASE));
}

// VirtualAlloc (rows with a protection) and VirtualFree (rows without).
TEST_F(VmemTest, BadArgumentsAreRefused) {
    LPVOID p = Reserve(2 * kPage);
    ASSERT_NE(p, nullptr);
    int onStack = 0;
    constexpr DWORD kParam = ERROR_INVALID_PARAMETER, kAddress = ERROR_INVALID_ADDRESS, RW = PAGE_READWRITE;
    struct Case {
        const char* what;
        LPVOID address;
        SIZE_T size;
        DWORD type, protect, error;
    } cases[] = {
        {"size 0", nullptr, 0, MEM_RESERVE, PAGE_NOACCESS, kParam},
        {"no type", nullptr, kPage, 0, PAGE_NOACCESS, kParam},
        {"release as a type", nullptr, kPage, MEM_RELEASE, PAGE_NOACCESS, kParam},
        {"execute", nullptr, kPage, MEM_RESERVE, 0x40, kParam},
        {"commit outside", &onStack, 1, MEM_COMMIT, RW, kAddress},
        {"commit past the end", At(p, kPage), kPage + 1, MEM_COMMIT, RW, kAddress},
        {"commit wrapping", At(p, kPage), ~SIZE_T{0} - 10, MEM_COMMIT, RW, kAddress},
        {"release with a size", p, kPage, MEM_RELEASE, 0, kParam},
        {"release inside", At(p, kPage), 0, MEM_RELEASE, 0, kAddress},
        {"release outside", &onStack, 0, MEM_RELEASE, 0, kAddress},
        {"decommit outside", &onStack, 1, MEM_DECOMMIT, 0, kAddress},
        {"decommit all from inside", At(p, kPage), 0, MEM_DECOMMIT, 0, kAddress},
        {"decommit past the end", At(p, kPage), 2 * kPage, MEM_DECOMMIT, 0, kAddress},
        {"free of an unknown type", p, 0, MEM_COMMIT, 0, kParam},
    };
    for (const Case& c : cases) {
        SetLastError(0);
        if (c.protect != 0) {
            EXPECT_EQ(VirtualAlloc(c.address, c.size, c.type, c.protect), nullptr) << c.what;
        } else {
            EXPECT_FALSE(VirtualFree(c.address, c.size, c.type)) << c.what;
        }
        EXPECT_EQ(GetLastError(), c.error) << c.what;
    }
    ExpectRun(p, p, 2 * kPage, MEM_RESERVE, 0);
    EXPECT_TRUE(VirtualFree(p, 0, MEM_RELEASE));
    SetLastError(0);
    EXPECT_FALSE(VirtualFree(p, 0, MEM_RELEASE)) << "released twice";
    EXPECT_EQ(GetLastError(), kAddress);
}

TEST_F(VmemTest, QueryOutsideRegionsAndBadQueries) {
    LPVOID p = Reserve(kPage);
    ASSERT_NE(p, nullptr);
    // The rest of the granule behind a one-page region belongs to no region.
    MEMORY_BASIC_INFORMATION info = Query(At(p, kPage));
    EXPECT_EQ(info.State, static_cast<DWORD>(MEM_FREE));
    EXPECT_EQ(info.AllocationBase, nullptr);
    EXPECT_EQ(info.Protect, static_cast<DWORD>(PAGE_NOACCESS));
    EXPECT_GT(info.RegionSize, 0u);
    SetLastError(0);
    EXPECT_EQ(VirtualQuery(p, &info, sizeof info - 1), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    SetLastError(0);
    EXPECT_EQ(VirtualQuery(reinterpret_cast<LPCVOID>(~uintptr_t{0}), &info, sizeof info), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    ASSERT_TRUE(VirtualFree(p, 0, MEM_RELEASE));
    EXPECT_EQ(Query(p).State, static_cast<DWORD>(MEM_FREE)) << "a released region is free";
}

TEST_F(VmemTest, InjectedFailuresOfReserveAndCommit) {
    OrvaFaultArm(ORVA_FAULT_VIRTUALALLOC, 2, ERROR_NOT_ENOUGH_MEMORY, FALSE);
    LPVOID p = Reserve(kPage);
    ASSERT_NE(p, nullptr);
    SetLastError(0);
    EXPECT_EQ(Reserve(kPage), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_VIRTUALALLOC), 1u);
    EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_VIRTUALCOMMIT), 0u);
    // Commits count apart from reservations; a refused call (outside any
    // region) does not count as one.
    OrvaFaultArm(ORVA_FAULT_VIRTUALCOMMIT, 1, 1455, TRUE);
    int onStack = 0;
    EXPECT_EQ(VirtualAlloc(&onStack, 1, MEM_COMMIT, PAGE_READWRITE), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ADDRESS));
    for (int i = 0; i < 2; ++i) {
        SetLastError(0);
        EXPECT_EQ(VirtualAlloc(p, 1, MEM_COMMIT, PAGE_READWRITE), nullptr);
        EXPECT_EQ(GetLastError(), 1455u);
    }
    EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_VIRTUALCOMMIT), 2u);
    ExpectRun(p, p, kPage, MEM_RESERVE, 0);
    EXPECT_EQ(VirtualAlloc(nullptr, kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE), nullptr) << "fails whole";
    EXPECT_EQ(GetLastError(), 1455u);
    OrvaFaultReset();
    EXPECT_NE(VirtualAlloc(p, 1, MEM_COMMIT, PAGE_READWRITE), nullptr);
    EXPECT_TRUE(VirtualFree(p, 0, MEM_RELEASE));
}

TEST_F(VmemTest, UncommittedAndReadOnlyPagesFault) {
    LPVOID p = Reserve(3 * kPage);
    ASSERT_NE(p, nullptr);
    ASSERT_NE(VirtualAlloc(At(p, kPage), kPage, MEM_COMMIT, PAGE_READONLY), nullptr);
    ASSERT_NE(VirtualAlloc(At(p, 2 * kPage), kPage, MEM_COMMIT, PAGE_READWRITE), nullptr);
    volatile char* bytes = At(p);
    EXPECT_DEATH(bytes[0] = 1, "") << "reserved";
    EXPECT_DEATH(bytes[kPage] = 1, "") << "read-only";
    EXPECT_EQ(bytes[kPage], 0) << "read-only pages read";
    bytes[2 * kPage] = 1;
    ASSERT_TRUE(VirtualFree(At(p, 2 * kPage), kPage, MEM_DECOMMIT));
    EXPECT_DEATH(bytes[2 * kPage] = 1, "") << "decommitted";
    EXPECT_TRUE(VirtualFree(p, 0, MEM_RELEASE));
}

// Threads that reserve, commit, write, query and release at once each see
// exactly their own regions.
TEST_F(VmemTest, ManyThreadsAtOnce) {
    constexpr int kThreads = 8;
    std::vector<int> failures(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &failures] {
            for (int r = 0; r < 200; ++r) {
                const SIZE_T size = kPage * (2 + (t + r) % 5);
                char* p = At(Reserve(size));
                MEMORY_BASIC_INFORMATION info;
                bool ok = p != nullptr && VirtualAlloc(p + size - 1, 1, MEM_COMMIT, PAGE_READWRITE) != nullptr;
                if (ok) p[size - 1] = static_cast<char>(t);
                ok = ok && VirtualQuery(p, &info, sizeof info) == sizeof info && info.AllocationBase == p &&
                     info.RegionSize == size - kPage && p[size - 1] == static_cast<char>(t);
                if (!ok || !VirtualFree(p, 0, MEM_RELEASE)) ++failures[t];
            }
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << t;
}

}  // namespace
