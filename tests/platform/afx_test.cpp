// The MFC subset: run-time class chains, the class list, exceptions with and
// without automatic deletion, extension-module records; and the re-entrant
// critical section.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <orvanest/platform/platform.h>

namespace {

class CShape : public CObject {
public:
    CRuntimeClass* GetRuntimeClass() const override { return &classCShape; }
    static CObject* Create() { return new CShape; }
    static CRuntimeClass classCShape;
};
CRuntimeClass CShape::classCShape = {"CShape", sizeof(CShape), 1, CShape::Create, &CObject::classCObject, nullptr};

class CCircle : public CShape {
public:
    CRuntimeClass* GetRuntimeClass() const override { return &classCCircle; }
    static CRuntimeClass classCCircle;
};
CRuntimeClass CCircle::classCCircle = {"CCircle", sizeof(CCircle), 1, nullptr, &CShape::classCShape, nullptr};

TEST(AfxTest, RuntimeClassChainsAnswerKindQuestions) {
    CCircle circle;
    EXPECT_TRUE(circle.IsKindOf(RUNTIME_CLASS(CCircle)));
    EXPECT_TRUE(circle.IsKindOf(RUNTIME_CLASS(CShape)));
    EXPECT_TRUE(circle.IsKindOf(RUNTIME_CLASS(CObject)));
    EXPECT_FALSE(circle.IsKindOf(RUNTIME_CLASS(CException)));
    EXPECT_FALSE(RUNTIME_CLASS(CShape)->IsDerivedFrom(RUNTIME_CLASS(CCircle)));
    EXPECT_TRUE(RUNTIME_CLASS(CException)->IsDerivedFrom(RUNTIME_CLASS(CObject)));
}

TEST(AfxTest, ClassListFindsEnteredClassesByName) {
    EXPECT_EQ(CRuntimeClass::FromName("CShape"), nullptr);
    AfxClassInit(RUNTIME_CLASS(CShape));
    AfxClassInit(RUNTIME_CLASS(CShape));  // a second entry changes nothing
    AfxClassInit(RUNTIME_CLASS(CCircle));
    EXPECT_EQ(CRuntimeClass::FromName("CShape"), RUNTIME_CLASS(CShape));
    EXPECT_EQ(CRuntimeClass::FromName("CCircle"), RUNTIME_CLASS(CCircle));
    CObject* made = CRuntimeClass::FromName("CShape")->CreateObject();
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(made->IsKindOf(RUNTIME_CLASS(CShape)));
    delete made;
    EXPECT_EQ(RUNTIME_CLASS(CCircle)->CreateObject(), nullptr);

    AFX_EXTENSION_MODULE module = {FALSE, nullptr, nullptr, nullptr};
    EXPECT_TRUE(AfxInitExtensionModule(module, reinterpret_cast<HMODULE>(&module)));
    EXPECT_TRUE(module.bInitialized);
    EXPECT_EQ(module.pFirstSharedClass, RUNTIME_CLASS(CCircle)) << "the newest entry heads the list";
    auto* dll = new CDynLinkLibrary(module);
    EXPECT_EQ(dll->m_hModule, module.hModule);
    delete dll;
}

TEST(AfxTest, DeleteHonoursTheAutomaticDeleteFlag) {
    CException onStack(FALSE);
    onStack.Delete();  // must not free a static or automatic object
    CException* onHeap = new CException();
    EXPECT_TRUE(onHeap->m_bAutoDelete);
    onHeap->Delete();  // the sanitizers would report a leak otherwise
    char text[8] = "xxxxxxx";
    UINT help = 77;
    EXPECT_FALSE(onStack.GetErrorMessage(text, sizeof text, &help));
    EXPECT_STREQ(text, "");
    EXPECT_EQ(help, 0u);
}

TEST(CriticalSectionTest, IsReentrantAndExcludesOtherThreads) {
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EnterCriticalSection(&cs);
    std::atomic<int> got{-1};
    std::thread([&] { got = TryEnterCriticalSection(&cs); }).join();
    EXPECT_EQ(got.load(), FALSE);
    LeaveCriticalSection(&cs);
    std::thread([&] { got = TryEnterCriticalSection(&cs); }).join();
    EXPECT_EQ(got.load(), FALSE) << "still held once";
    LeaveCriticalSection(&cs);
    std::thread([&] {
        got = TryEnterCriticalSection(&cs);
        if (got) LeaveCriticalSection(&cs);
    }).join();
    EXPECT_EQ(got.load(), TRUE);
    DeleteCriticalSection(&cs);
}

}  // namespace
