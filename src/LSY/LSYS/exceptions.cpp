// The exception family and the six raise functions.
//
// No class adds a field to CException: the position of the latest raise is
// kept in two statics of L_CPosException, and the objects raised are the six
// singletons of startup.cpp, so a raise needs no memory. Every run-time class
// record names CException as its base, also for the classes below
// L_CPosException, so IsKindOf sees only the leaf and CException while a C++
// handler for any base pointer still catches.
#include <cstdio>
#include <cstring>

#include "internal/singletons.h"

char L_CPosException::m_szFileName[260] = "";
DWORD L_CPosException::m_dwLine = 0;

namespace {
// The text of GetInfo, rewritten by every call.
char g_infoText[512];

// "[ LINE:未定義 ] SOURCE:未定義" in code page 932.
const char kNoPosition[] = "[ LINE:\x96\xa2\x92\xe8\x8b\x60 ] SOURCE:\x96\xa2\x92\xe8\x8b\x60";
}  // namespace

#define ORVANEST_CLASS_RECORD(name) \
    CRuntimeClass name::class##name = {#name, sizeof(name), 0xFFFF, nullptr, &CException::classCException, nullptr}

ORVANEST_CLASS_RECORD(L_CException);
ORVANEST_CLASS_RECORD(L_CPosException);
ORVANEST_CLASS_RECORD(L_CStandardException);
ORVANEST_CLASS_RECORD(L_CMemoryException);
ORVANEST_CLASS_RECORD(L_CNotSupportedException);
ORVANEST_CLASS_RECORD(L_CArchiveException);
ORVANEST_CLASS_RECORD(L_CFileException);
ORVANEST_CLASS_RECORD(L_CResourceException);

// ---- L_CException -------------------------------------------------------------------

L_CException::L_CException(void) : CException() {}
L_CException::L_CException(int bAutoDelete) : CException(bAutoDelete) {}
L_CException::~L_CException() {}
CRuntimeClass* L_CException::GetRuntimeClass() const { return &classL_CException; }

// ---- L_CPosException ----------------------------------------------------------------

L_CPosException::L_CPosException(void) : L_CException() {}
L_CPosException::L_CPosException(int bAutoDelete) : L_CException(bAutoDelete) {}

L_CPosException::L_CPosException(DWORD dwLine, char const* pszFile, int bAutoDelete) : L_CException(bAutoDelete) {
    m_dwLine = 0;
    std::memset(m_szFileName, 0, sizeof m_szFileName);
    if (dwLine != 0) m_dwLine = dwLine;
    if (pszFile != nullptr) std::strcpy(m_szFileName, pszFile);
}

L_CPosException::~L_CPosException() {}
CRuntimeClass* L_CPosException::GetRuntimeClass() const { return &classL_CPosException; }

int L_CPosException::SetLine(DWORD dwLine) {
    m_dwLine = dwLine;
    return 1;
}

DWORD L_CPosException::GetLine(void) { return m_dwLine; }

int L_CPosException::SetFileName(char const* pszFile) {
    size_t length = std::strlen(pszFile);
    if (length + 1 > sizeof m_szFileName) return 0;
    std::memcpy(m_szFileName, pszFile, length + 1);
    return 1;
}

char const* L_CPosException::GetFileName(void) { return m_szFileName; }

char const* L_CPosException::GetInfo(void) {
    if (m_szFileName[0] != '\0' && m_dwLine != 0) {
        std::snprintf(g_infoText, sizeof g_infoText, "[ LINE:%6d ] SOURCE:%s", static_cast<int>(m_dwLine),
                      m_szFileName);
    } else {
        std::memcpy(g_infoText, kNoPosition, sizeof kNoPosition);
    }
    return g_infoText;
}

// ---- the six leaves ------------------------------------------------------------------

#define ORVANEST_LEAF_MEMBERS(name)                                                                    \
    name::name(void) : L_CPosException() {}                                                            \
    name::name(int bAutoDelete) : L_CPosException(bAutoDelete) {}                                      \
    name::name(DWORD dwLine, char const* pszFile, int bAutoDelete)                                     \
        : L_CPosException(dwLine, pszFile, bAutoDelete) {}                                             \
    name::~name() {}                                                                                   \
    CRuntimeClass* name::GetRuntimeClass() const { return &class##name; }

ORVANEST_LEAF_MEMBERS(L_CStandardException)
ORVANEST_LEAF_MEMBERS(L_CMemoryException)
ORVANEST_LEAF_MEMBERS(L_CNotSupportedException)
ORVANEST_LEAF_MEMBERS(L_CArchiveException)
ORVANEST_LEAF_MEMBERS(L_CFileException)
ORVANEST_LEAF_MEMBERS(L_CResourceException)

// ---- raising ---------------------------------------------------------------------------

namespace {
// Stores the position on the singleton, then throws a pointer of its own type.
// A name that does not fit leaves the previous one in place.
template <class Leaf>
[[noreturn]] void Raise(Leaf& singleton, DWORD dwLine, char const* pszFile) {
    singleton.SetLine(dwLine);
    singleton.SetFileName(pszFile);
    throw &singleton;
}
}  // namespace

void lsysThrowStandard(DWORD dwLine, char const* pszFile) { Raise(lsy::g_standardException, dwLine, pszFile); }
void lsysThrowMemory(DWORD dwLine, char const* pszFile) { Raise(lsy::g_memoryException, dwLine, pszFile); }
void lsysThrowNotSupported(DWORD dwLine, char const* pszFile) {
    Raise(lsy::g_notSupportedException, dwLine, pszFile);
}
void lsysThrowArchive(DWORD dwLine, char const* pszFile) { Raise(lsy::g_archiveException, dwLine, pszFile); }
void lsysThrowFile(DWORD dwLine, char const* pszFile) { Raise(lsy::g_fileException, dwLine, pszFile); }
void lsysThrowResource(DWORD dwLine, char const* pszFile) { Raise(lsy::g_resourceException, dwLine, pszFile); }
