// Exhausted memory in the creators of lists, trees, arrays, memory files and
// registry nodes: every injected failure of the global heap turns into
// L_CMemoryException, and a failed creation leaves no block behind.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>

#include <orvanest/ORVANEST.h>

namespace {

struct Creator {
    const char* name;
    std::function<void*()> create;
    std::function<void(void*)> destroy;
};
// Test names and listings show the name, not the bytes of the record.
void PrintTo(const Creator& c, std::ostream* os) { *os << c.name; }

tagLDE_SourceInfo g_table[2] = {{0x00700000, "inject\\table"}, {0, ""}};

const Creator kCreators[] = {
    {"ldlist", [] { return ldlistCreate(0); }, [](void* l) { ldlistDestroy(l); }},
    {"lslist", [] { return lslistCreate(8); }, [](void* l) { lslistDestroy(l); }},
    {"lavl", [] { return lavlCreate(0, nullptr); }, [](void* t) { lavlDestroy(t); }},
    {"laear", [] { return laearCreate(4, 10, 5); }, [](void* a) { laearDestroy(a); }},
    {"lmemfile", [] { return lmemfileCreate(64, 64); }, [](void* f) { lmemfileDestroy(f); }},
    {"registry", [] { return ldbgSetSourceInfo(g_table), static_cast<void*>(g_table); },
     [](void* t) { ldbgResetSourceInfo(static_cast<tagLDE_SourceInfo*>(t)); }},
};

class CreatorUnderFaults : public ::testing::TestWithParam<std::tuple<Creator, OrvaFaultOp>> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

// Fails the nth heap call of the given kind for n = 1, 2, ... until a run
// goes through with nothing injected.
TEST_P(CreatorUnderFaults, FailuresRaiseAndLeaveNothing) {
    const auto& [c, op] = GetParam();
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
        EXPECT_EQ(raised, injected != 0) << "n=" << n;
        EXPECT_EQ(made == nullptr, injected != 0) << "n=" << n;
        if (made != nullptr) c.destroy(made);
        EXPECT_EQ(OrvaGlobalLiveBlocks(), before) << "n=" << n;
        if (injected == 0) return;
    }
    FAIL() << "never completed";
}

INSTANTIATE_TEST_SUITE_P(Creators, CreatorUnderFaults,
                         ::testing::Combine(::testing::ValuesIn(kCreators),
                                            ::testing::Values(ORVA_FAULT_GLOBALALLOC, ORVA_FAULT_GLOBALLOCK)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) == ORVA_FAULT_GLOBALALLOC ? "Alloc" : "Lock");
                         });

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
}

}  // namespace
