// The exception family: raising and catching by base pointers, the shared
// position, the singletons and the run-time class records.
#include <gtest/gtest.h>

#include <string>

#include <orvanest/ORVANEST.h>

namespace {

struct Raiser {
    void (*raise)(DWORD, char const*);
    const char* className;
    CRuntimeClass* record;
};

const Raiser kRaisers[] = {
    {lsysThrowStandard, "L_CStandardException", &L_CStandardException::classL_CStandardException},
    {lsysThrowMemory, "L_CMemoryException", &L_CMemoryException::classL_CMemoryException},
    {lsysThrowNotSupported, "L_CNotSupportedException", &L_CNotSupportedException::classL_CNotSupportedException},
    {lsysThrowArchive, "L_CArchiveException", &L_CArchiveException::classL_CArchiveException},
    {lsysThrowFile, "L_CFileException", &L_CFileException::classL_CFileException},
    {lsysThrowResource, "L_CResourceException", &L_CResourceException::classL_CResourceException},
};

CException* Catch(const Raiser& r, DWORD line, const char* file) {
    try {
        r.raise(line, file);
    } catch (CException* e) {
        return e;
    }
    return nullptr;
}

class RaiseTest : public ::testing::TestWithParam<Raiser> {};

TEST_P(RaiseTest, CaughtAsCExceptionIsTheLeafSingletonWithItsPosition) {
    const Raiser& r = GetParam();
    CException* first = Catch(r, 12, "a");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetRuntimeClass(), r.record);
    EXPECT_STREQ(first->GetRuntimeClass()->m_lpszClassName, r.className);
    auto* pos = dynamic_cast<L_CPosException*>(first);
    ASSERT_NE(pos, nullptr);
    EXPECT_EQ(pos->GetLine(), 12u);
    EXPECT_STREQ(pos->GetFileName(), "a");
    EXPECT_STREQ(pos->GetInfo(), "[ LINE:    12 ] SOURCE:a");
    EXPECT_FALSE(first->m_bAutoDelete);
    first->Delete();  // a singleton is never deleted
    EXPECT_EQ(Catch(r, 13, "b"), first) << "every raise throws the same object";
    EXPECT_STREQ(pos->GetInfo(), "[ LINE:    13 ] SOURCE:b");
}

INSTANTIATE_TEST_SUITE_P(AllSix, RaiseTest, ::testing::ValuesIn(kRaisers),
                         [](const auto& info) { return std::string(info.param.className); });

TEST(ExceptionTest, HandlersForEveryBasePointerCatch) {
    try {
        lsysThrowMemory(1, "x");
    } catch (L_CMemoryException*) {
        SUCCEED();
    }
    try {
        lsysThrowMemory(1, "x");
    } catch (L_CPosException*) {
        SUCCEED();
    }
    try {
        lsysThrowMemory(1, "x");
    } catch (L_CException*) {
        SUCCEED();
    }
    try {
        lsysThrowMemory(1, "x");
    } catch (CObject*) {
        SUCCEED();
    }
    try {
        lsysThrowMemory(1, "x");
    } catch (void*) {
        SUCCEED();
    }
}

TEST(ExceptionTest, EveryRecordNamesCExceptionAsBase) {
    CRuntimeClass* records[] = {&L_CException::classL_CException, &L_CPosException::classL_CPosException};
    for (CRuntimeClass* rc : records) EXPECT_EQ(rc->m_pBaseClass, &CException::classCException);
    for (const Raiser& r : kRaisers) {
        EXPECT_EQ(r.record->m_pBaseClass, &CException::classCException);
        EXPECT_EQ(r.record->m_wSchema, 0xFFFFu);
        EXPECT_EQ(r.record->m_pfnCreateObject, nullptr);
        EXPECT_EQ(r.record->m_nObjectSize, static_cast<int>(sizeof(CException)));
        EXPECT_EQ(CRuntimeClass::FromName(r.className), r.record) << "entered at load";
    }
    // So the run-time chain skips the two middle classes.
    CException* e = Catch(kRaisers[1], 1, "x");
    EXPECT_TRUE(e->IsKindOf(RUNTIME_CLASS(L_CMemoryException)));
    EXPECT_TRUE(e->IsKindOf(RUNTIME_CLASS(CException)));
    EXPECT_TRUE(e->IsKindOf(RUNTIME_CLASS(CObject)));
    EXPECT_FALSE(e->IsKindOf(RUNTIME_CLASS(L_CPosException)));
    EXPECT_FALSE(e->IsKindOf(RUNTIME_CLASS(L_CException)));
    EXPECT_FALSE(e->IsKindOf(RUNTIME_CLASS(L_CFileException)));
}

TEST(ExceptionTest, InfoFallsBackToTheFixedTextWithoutLineOrName) {
    // "[ LINE:未定義 ] SOURCE:未定義" in code page 932.
    const char* fixed = "[ LINE:\x96\xa2\x92\xe8\x8b\x60 ] SOURCE:\x96\xa2\x92\xe8\x8b\x60";
    L_CPosException pos(0, nullptr, 0);
    EXPECT_EQ(pos.GetLine(), 0u);
    EXPECT_STREQ(pos.GetFileName(), "");
    EXPECT_STREQ(pos.GetInfo(), fixed);
    pos.SetFileName("name");
    EXPECT_STREQ(pos.GetInfo(), fixed) << "line 0";
    pos.SetLine(123456);
    EXPECT_STREQ(pos.GetInfo(), "[ LINE:123456 ] SOURCE:name");
    pos.SetFileName("");
    EXPECT_STREQ(pos.GetInfo(), fixed) << "empty name";
}

TEST(ExceptionTest, PositionConstructorWipesAndOtherFormsKeep) {
    try {
        lsysThrowFile(77, "kept");
    } catch (CException*) {
    }
    L_CFileException flagOnly(0);
    L_CMemoryException plain;
    EXPECT_EQ(L_CPosException::m_dwLine, 77u);
    EXPECT_STREQ(L_CPosException::m_szFileName, "kept");
    L_CResourceException wiped(0, nullptr, 0);
    EXPECT_EQ(L_CPosException::m_dwLine, 0u);
    EXPECT_STREQ(L_CPosException::m_szFileName, "");
    L_CResourceException placed(5, "p", 0);
    EXPECT_EQ(L_CPosException::m_dwLine, 5u);
    EXPECT_STREQ(L_CPosException::m_szFileName, "p");
}

TEST(ExceptionTest, FileNameMustFitWithItsTerminator) {
    L_CPosException pos(1, "old", 0);
    std::string fits(259, 'f');
    EXPECT_EQ(pos.SetFileName(fits.c_str()), 1);
    EXPECT_EQ(std::string(pos.GetFileName()), fits);
    std::string tooLong(260, 't');
    EXPECT_EQ(pos.SetFileName(tooLong.c_str()), 0);
    EXPECT_EQ(std::string(pos.GetFileName()), fits);

    // A raise with a name that does not fit keeps the new line and old name.
    try {
        lsysThrowArchive(99, tooLong.c_str());
    } catch (L_CPosException* e) {
        EXPECT_EQ(e->GetLine(), 99u);
        EXPECT_EQ(std::string(e->GetFileName()), fits);
    }
}

TEST(ExceptionTest, HeapObjectsWithAutoDeleteAreDeleted) {
    CException* e = new L_CStandardException(5, "heap", TRUE);
    EXPECT_TRUE(e->m_bAutoDelete);
    e->Delete();  // would leak under the sanitizers if it did not delete
    L_CStandardException onStack;
    EXPECT_TRUE(onStack.m_bAutoDelete) << "the default form takes CException's default";
}

}  // namespace
