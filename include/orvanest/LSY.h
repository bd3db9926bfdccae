// Exception classes and the functions that raise them.
//
// The library raises pointers to six static singletons, so a raise allocates
// nothing; the position of the latest raise is kept in two statics shared by
// the whole family. Every run-time class record names CException as its base.
#pragma once

#include <orvanest/platform/afx.h>

class ORVANEST_EXPORT L_CException : public CException {
public:
    L_CException(void);
    explicit L_CException(int bAutoDelete);
    ~L_CException() override;
    CRuntimeClass* GetRuntimeClass() const override;
    static CRuntimeClass classL_CException;
};

class ORVANEST_EXPORT L_CPosException : public L_CException {
public:
    L_CPosException(void);
    explicit L_CPosException(int bAutoDelete);
    // Wipes the position, then stores dwLine (when not 0) and pszFile (when not
    // null; the caller keeps it within 259 characters).
    L_CPosException(DWORD dwLine, char const* pszFile, int bAutoDelete);
    ~L_CPosException() override;
    CRuntimeClass* GetRuntimeClass() const override;

    int SetLine(DWORD dwLine);
    DWORD GetLine(void);
    // 1; 0 when the name does not fit with its NUL, and the old name stays.
    int SetFileName(char const* pszFile);
    char const* GetFileName(void);
    // "[ LINE:%6d ] SOURCE:%s", or the fixed text when the line is 0 or the
    // name empty, in one static buffer that the next call overwrites.
    char const* GetInfo(void);

    static char m_szFileName[260];
    static DWORD m_dwLine;
    static CRuntimeClass classL_CPosException;
};

#define ORVANEST_LEAF_EXCEPTION(name)                                      \
    class ORVANEST_EXPORT name : public L_CPosException {                  \
    public:                                                                \
        name(void);                                                        \
        explicit name(int bAutoDelete);                                    \
        name(DWORD dwLine, char const* pszFile, int bAutoDelete);          \
        ~name() override;                                                  \
        CRuntimeClass* GetRuntimeClass() const override;                   \
        static CRuntimeClass class##name;                                  \
    };

ORVANEST_LEAF_EXCEPTION(L_CStandardException)
ORVANEST_LEAF_EXCEPTION(L_CMemoryException)
ORVANEST_LEAF_EXCEPTION(L_CNotSupportedException)
ORVANEST_LEAF_EXCEPTION(L_CArchiveException)
ORVANEST_LEAF_EXCEPTION(L_CFileException)
ORVANEST_LEAF_EXCEPTION(L_CResourceException)

#undef ORVANEST_LEAF_EXCEPTION

// Each stores the position in the family's statics and throws a pointer to
// its class's singleton. They never return.
[[noreturn]] ORVANEST_EXPORT void lsysThrowStandard(DWORD dwLine, char const* pszFile);
[[noreturn]] ORVANEST_EXPORT void lsysThrowMemory(DWORD dwLine, char const* pszFile);
[[noreturn]] ORVANEST_EXPORT void lsysThrowNotSupported(DWORD dwLine, char const* pszFile);
[[noreturn]] ORVANEST_EXPORT void lsysThrowArchive(DWORD dwLine, char const* pszFile);
[[noreturn]] ORVANEST_EXPORT void lsysThrowFile(DWORD dwLine, char const* pszFile);
[[noreturn]] ORVANEST_EXPORT void lsysThrowResource(DWORD dwLine, char const* pszFile);
