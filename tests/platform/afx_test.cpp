// The MFC subset: run-time class chains, the class list, exceptions with and
// without automatic deletion, extension-module records; and the re-entrant
// critical section.
#include <gtest/gtest.h>

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

TEST(AfxTest, RuntimeClassesAnswerKindQuestionsAndAreFoundByName) {
    CCircle circle;
    EXPECT_TRUE(circle.IsKindOf(RUNTIME_CLASS(CShape)));
    EXPECT_TRUE(circle.IsKindOf(RUNTIME_CLASS(CObject)));
    EXPECT_FALSE(circle.IsKindOf(RUNTIME_CLASS(CException)));
    EXPECT_FALSE(RUNTIME_CLASS(CShape)->IsDerivedFrom(RUNTIME_CLASS(CCircle)));

    EXPECT_EQ(CRuntimeClass::FromName("CShape"), nullptr);
    AfxClassInit(RUNTIME_CLASS(CShape));
    AfxClassInit(RUNTIME_CLASS(CShape));  // a second entry changes nothing
    AfxClassInit(RUNTIME_CLASS(CCircle));
    EXPECT_EQ(CRuntimeClass::FromName("CCircle"), RUNTIME_CLASS(CCircle));
    CObject* made = CRuntimeClass::FromName("CShape")->CreateObject();
    EXPECT_TRUE(made != nullptr && made->IsKindOf(RUNTIME_CLASS(CShape)));
    delete made;
    EXPECT_EQ(RUNTIME_CLASS(CCircle)->CreateObject(), nullptr);

    AFX_EXTENSION_MODULE module = {FALSE, nullptr, nullptr, nullptr};
    EXPECT_TRUE(AfxInitExtensionModule(module, reinterpret_cast<HMODULE>(&module)));
    EXPECT_TRUE(module.bInitialized);
    EXPECT_EQ(module.pFirstSharedClass, RUNTIME_CLASS(CCircle)) << "the newest entry heads the list";
    EXPECT_EQ(CDynLinkLibrary(module).m_hModule, module.hModule);
}

TEST(AfxTest, DeleteHonoursTheAutomaticDeleteFlag) {
    CException onStack(FALSE);
    onStack.Delete();  // must not free an automatic object
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
    const auto otherThreadGets = [&cs] {
        BOOL got = FALSE;
        std::thread([&] {
            if ((got = TryEnterCriticalSection(&cs))) LeaveCriticalSection(&cs);
        }).join();
        return got;
    };
    EnterCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EXPECT_FALSE(otherThreadGets());
    LeaveCriticalSection(&cs);
    EXPECT_FALSE(otherThreadGets()) << "still held once";
    LeaveCriticalSection(&cs);
    EXPECT_TRUE(otherThreadGets());
    DeleteCriticalSection(&cs);
}

}  // namespace
