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

// Test names and listings show the class, not the bytes of the record.
void PrintTo(const Raiser& r, std::ostream* os) { *os << r.className; }

const Raiser kRaisers[] = {
    {lsysThrowStandard, "L_CStandardException", &L_CStandardException::classL_CStandardException},
    {lsysThrowMemory, "L_CMemoryException", &L_CMemoryException::classL_CMemoryException},
    {lsysThrowNotSupported, "L_CNotSupportedException", &L_CNotSupportedException::classL_CNotSupportedException},
    {lsysThrowArchive, "L_CArchiveException", &L_CArchiveException::classL_CArchiveException},
    {lsysThrowFile, "L_CFileException", &L_CFileException::classL_CFileException},
    {lsysThrowResource, "L_CResourceException", &L_CResourceException::classL_CResourceException},
};

template <class Handler = CException*>
Handler Catch(const Raiser& r, DWORD line, const char* file) {
    try {
        r.raise(line, file);
    } catch (Handler e) {
        return e;
    } catch (...) {
    }
    return nullptr;
}

class RaiseTest : public ::testing::TestWithParam<Raiser> {};

// Every record names CException as its base, is entered at load, and makes
// no object; each raise throws the same singleton with the new position.
TEST_P(RaiseTest, CaughtAsCExceptionIsTheLeafSingletonWithItsPosition) {
    const Raiser& r = GetParam();
    EXPECT_EQ(r.record->m_pBaseClass, &CException::classCException);
    EXPECT_EQ(r.record->m_wSchema, 0xFFFFu);
    EXPECT_EQ(r.record->m_pfnCreateObject, nullptr);
    EXPECT_EQ(r.record->m_nObjectSize, static_cast<int>(sizeof(CException)));
    EXPECT_EQ(CRuntimeClass::FromName(r.className), r.record);
    CException* first = Catch(r, 12, "a");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetRuntimeClass(), r.record);
    auto* pos = dynamic_cast<L_CPosException*>(first);
    ASSERT_NE(pos, nullptr);
    EXPECT_EQ(pos->GetLine(), 12u);
    EXPECT_STREQ(pos->GetFileName(), "a");
    EXPECT_STREQ(pos->GetInfo(), "[ LINE:    12 ] SOURCE:a");
    EXPECT_FALSE(first->m_bAutoDelete);
    first->Delete();  // a singleton is never deleted
    EXPECT_EQ(Catch(r, 13, "b"), first);
    EXPECT_STREQ(pos->GetInfo(), "[ LINE:    13 ] SOURCE:b");
}

INSTANTIATE_TEST_SUITE_P(AllSix, RaiseTest, ::testing::ValuesIn(kRaisers),
                         [](const auto& info) { return std::string(info.param.className); });

// Any base pointer's handler catches, while the run-time chain, whose
// records all name CException, skips the two middle classes.
TEST(ExceptionTest, HandlersForEveryBasePointerCatchButIsKindOfSeesOnlyTheLeaf) {
    const Raiser& memory = kRaisers[1];
    EXPECT_NE(Catch<L_CMemoryException*>(memory, 1, "x"), nullptr);
    EXPECT_NE(Catch<L_CPosException*>(memory, 1, "x"), nullptr);
    EXPECT_NE(Catch<L_CException*>(memory, 1, "x"), nullptr);
    EXPECT_NE(Catch<CObject*>(memory, 1, "x"), nullptr);
    EXPECT_NE(Catch<void*>(memory, 1, "x"), nullptr);
    EXPECT_EQ(L_CException::classL_CException.m_pBaseClass, &CException::classCException);
    EXPECT_EQ(L_CPosException::classL_CPosException.m_pBaseClass, &CException::classCException);
    CException* e = Catch(memory, 1, "x");
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

// The position constructor wipes the shared position and sets what it is
// given; the other forms keep it.
TEST(ExceptionTest, PositionConstructorWipesAndOtherFormsKeep) {
    Catch(kRaisers[4], 77, "kept");
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

// A name must fit with its terminator; a raise with one that does not keeps
// the new line and the old name.
TEST(ExceptionTest, FileNameMustFitWithItsTerminator) {
    L_CPosException pos(1, "old", 0);
    const std::string fits(259, 'f'), tooLong(260, 't');
    EXPECT_EQ(pos.SetFileName(fits.c_str()), 1);
    EXPECT_EQ(pos.SetFileName(tooLong.c_str()), 0);
    EXPECT_EQ(std::string(pos.GetFileName()), fits);
    Catch(kRaisers[3], 99, tooLong.c_str());
    EXPECT_EQ(pos.GetLine(), 99u);
    EXPECT_EQ(std::string(pos.GetFileName()), fits);
}

TEST(ExceptionTest, HeapObjectsWithAutoDeleteAreDeleted) {
    CException* e = new L_CStandardException(5, "heap", TRUE);
    EXPECT_TRUE(e->m_bAutoDelete);
    e->Delete();  // would leak under the sanitizers if it did not delete
    L_CStandardException onStack;
    EXPECT_TRUE(onStack.m_bAutoDelete) << "the default form takes CException's default";
}

}  // namespace
