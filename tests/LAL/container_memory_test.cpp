// Exhausted memory in the creators of lists, trees, arrays and registry
// nodes: every injected failure of the global heap turns into
// L_CMemoryException, and a failed creation leaves no block behind.
#include <gtest/gtest.h>

#include <functional>

#include <orvanest/ORVANEST.h>

namespace {

struct Creator {
    const char* name;
    std::function<void*()> create;
    std::function<void(void*)> destroy;
};

tagLDE_SourceInfo g_table[2] = {{0x00700000, "inject\\table"}, {0, ""}};

class CreatorUnderFaults : public ::testing::TestWithParam<Creator> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

// Fails the nth heap call of the given kind for n = 1, 2, ... until a run
// goes through with nothing injected; each failed run must raise and leave
// the live block count as it was.
void RunFailureLoop(const Creator& c, OrvaFaultOp op) {
    for (DWORD n = 1; n < 20; ++n) {
        SIZE_T before = OrvaGlobalLiveBlocks();
        OrvaFaultArm(op, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        void* made = nullptr;
        bool raised = false;
        try {
            made = c.create();
        } catch (L_CMemoryException* e) {
            raised = true;
            EXPECT_NE(e->GetLine(), 0u);
        }
        DWORD injected = OrvaFaultInjected(op);
        OrvaFaultReset();
        if (injected == 0) {
            ASSERT_FALSE(raised) << c.name << " raised with nothing injected";
            ASSERT_NE(made, nullptr);
            c.destroy(made);
            EXPECT_EQ(OrvaGlobalLiveBlocks(), before);
            return;
        }
        EXPECT_TRUE(raised) << c.name << " n=" << n;
        EXPECT_EQ(made, nullptr);
        EXPECT_EQ(OrvaGlobalLiveBlocks(), before) << c.name << " n=" << n << " left a block";
    }
    FAIL() << c.name << " never completed";
}

TEST_P(CreatorUnderFaults, AllocationFailuresRaiseAndLeaveNothing) {
    RunFailureLoop(GetParam(), ORVA_FAULT_GLOBALALLOC);
}

TEST_P(CreatorUnderFaults, LockFailuresRaiseAndLeaveNothing) { RunFailureLoop(GetParam(), ORVA_FAULT_GLOBALLOCK); }

const Creator kCreators[] = {
    {"ldlist", [] { return ldlistCreate(0); }, [](void* l) { ldlistDestroy(l); }},
    {"lslist", [] { return lslistCreate(8); }, [](void* l) { lslistDestroy(l); }},
    {"lavl", [] { return lavlCreate(0, nullptr); }, [](void* t) { lavlDestroy(t); }},
    {"laear", [] { return laearCreate(4, 10, 5); }, [](void* a) { laearDestroy(a); }},
    {"registry",
     [] {
         ldbgSetSourceInfo(g_table);
         return static_cast<void*>(g_table);
     },
     [](void* t) { ldbgResetSourceInfo(static_cast<tagLDE_SourceInfo*>(t)); }},
};

INSTANTIATE_TEST_SUITE_P(Creators, CreatorUnderFaults, ::testing::ValuesIn(kCreators),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(GlobalFreeTest, FailingFreeRaisesAndTheListStaysWhole) {
    void* list = ldlistCreate(0);
    OrvaFaultArm(ORVA_FAULT_GLOBALFREE, 1, ERROR_INVALID_HANDLE, FALSE);
    EXPECT_THROW(ldlistDestroy(list), L_CMemoryException*);
    OrvaFaultReset();
    EXPECT_EQ(ldlistGetEntryNum(list), 0u);
    EXPECT_EQ(ldlistDestroy(list), 1);
}

TEST(GlobalFreeTest, TreeDestroyReportsAFailedFreeWithoutRaising) {
    void* tree = lavlCreate(0, nullptr);
    OrvaFaultArm(ORVA_FAULT_GLOBALFREE, 1, ERROR_INVALID_HANDLE, FALSE);
    EXPECT_EQ(lavlDestroy(tree), 0);
    OrvaFaultReset();
    EXPECT_EQ(lavlDestroy(tree), 1);
    SetLastError(0);
    EXPECT_EQ(lavlDestroy(nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

}  // namespace
