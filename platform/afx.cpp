// The MFC subset: run-time class records and their list, CObject,
// CException, and the extension-module record of a loadable module.
#include <cstring>
#include <mutex>

#include <orvanest/platform/afx.h>

namespace {

// The process's class list, newest first, and the chain of loaded modules.
// Both are filled while modules load and are read by name look-ups.
std::mutex g_classLock;
CRuntimeClass* g_firstClass = nullptr;
CDynLinkLibrary* g_firstDLL = nullptr;

bool InClassList(const CRuntimeClass* pClass) {
    for (CRuntimeClass* c = g_firstClass; c != nullptr; c = c->m_pNextClass) {
        if (c == pClass) return true;
    }
    return false;
}

}  // namespace

// ---- CRuntimeClass --------------------------------------------------------------

CObject* CRuntimeClass::CreateObject() const {
    return m_pfnCreateObject != nullptr ? m_pfnCreateObject() : nullptr;
}

BOOL CRuntimeClass::IsDerivedFrom(const CRuntimeClass* pBaseClass) const {
    for (const CRuntimeClass* c = this; c != nullptr; c = c->m_pBaseClass) {
        if (c == pBaseClass) return TRUE;
    }
    return FALSE;
}

CRuntimeClass* CRuntimeClass::FromName(LPCSTR lpszClassName) {
    if (lpszClassName == nullptr) return nullptr;
    std::lock_guard<std::mutex> guard(g_classLock);
    for (CRuntimeClass* c = g_firstClass; c != nullptr; c = c->m_pNextClass) {
        if (std::strcmp(c->m_lpszClassName, lpszClassName) == 0) return c;
    }
    return nullptr;
}

void AfxClassInit(CRuntimeClass* pClass) {
    if (pClass == nullptr) return;
    std::lock_guard<std::mutex> guard(g_classLock);
    if (InClassList(pClass)) return;
    pClass->m_pNextClass = g_firstClass;
    g_firstClass = pClass;
}

// ---- CObject ----------------------------------------------------------------------

CRuntimeClass CObject::classCObject = {"CObject", sizeof(CObject), 0xFFFF, nullptr, nullptr, nullptr};

CObject::CObject() = default;
CObject::~CObject() = default;

CRuntimeClass* CObject::GetRuntimeClass() const { return &CObject::classCObject; }

void CObject::Serialize(CArchive&) {}

void CObject::AssertValid() const {}

void CObject::Dump(CDumpContext&) const {}

BOOL CObject::IsKindOf(const CRuntimeClass* pClass) const { return GetRuntimeClass()->IsDerivedFrom(pClass); }

// ---- CException -------------------------------------------------------------------

CRuntimeClass CException::classCException = {"CException", sizeof(CException), 0xFFFF, nullptr,
                                             &CObject::classCObject, nullptr};

CException::CException() : m_bAutoDelete(TRUE) {}

CException::CException(BOOL bAutoDelete) : m_bAutoDelete(bAutoDelete) {}

CException::~CException() = default;

CRuntimeClass* CException::GetRuntimeClass() const { return &CException::classCException; }

BOOL CException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext) const {
    if (pnHelpContext != nullptr) *pnHelpContext = 0;
    if (lpszError != nullptr && nMaxError > 0) lpszError[0] = '\0';
    return FALSE;
}

BOOL CException::GetErrorMessage(wchar_t* lpszError, UINT nMaxError, PUINT pnHelpContext) const {
    if (pnHelpContext != nullptr) *pnHelpContext = 0;
    if (lpszError != nullptr && nMaxError > 0) lpszError[0] = L'\0';
    return FALSE;
}

int CException::ReportError(UINT nType, UINT) const {
    char text[512];
    if (!GetErrorMessage(text, sizeof text)) std::strcpy(text, "No error message is available.");
    return MessageBoxA(nullptr, text, GetRuntimeClass()->m_lpszClassName, nType);
}

void CException::Delete() {
    if (m_bAutoDelete > 0) delete this;
}

// ---- loadable modules -------------------------------------------------------------

BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& state, HMODULE hModule) {
    if (state.bInitialized) return TRUE;
    std::lock_guard<std::mutex> guard(g_classLock);
    state.hModule = hModule;
    state.hResource = hModule;
    state.pFirstSharedClass = g_firstClass;
    state.bInitialized = TRUE;
    return TRUE;
}

CDynLinkLibrary::CDynLinkLibrary(AFX_EXTENSION_MODULE& state)
    : m_hModule(state.hModule), m_pFirstSharedClass(state.pFirstSharedClass), m_pNextDLL(nullptr) {
    std::lock_guard<std::mutex> guard(g_classLock);
    m_pNextDLL = g_firstDLL;
    g_firstDLL = this;
}

CDynLinkLibrary::~CDynLinkLibrary() {
    std::lock_guard<std::mutex> guard(g_classLock);
    for (CDynLinkLibrary** p = &g_firstDLL; *p != nullptr; p = &(*p)->m_pNextDLL) {
        if (*p == this) {
            *p = m_pNextDLL;
            break;
        }
    }
}
