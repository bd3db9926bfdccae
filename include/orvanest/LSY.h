// Exception classes and the functions that raise them; the filters and the
// stop-message scope that a host puts around its own code; the system
// services (version, time, page size, floating-point classification) with the
// scope object that masks floating-point traps.
//
// The library raises pointers to six static singletons, so a raise allocates
// nothing; the position of the latest raise is kept in two statics shared by
// the whole family. Every run-time class record names CException as its base.
#pragma once

#include <orvanest/platform/afx.h>
#include <orvanest/platform/win32_seh.h>
#include <orvanest/platform/win32_system.h>

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

// ---- filters and stop messages ------------------------------------------------------

// A filter for a host's frames around code that touches virtual blocks
// without committing them. An access violation inside the data of one of this
// thread's blocks commits the page at the address and gives
// EXCEPTION_CONTINUE_EXECUTION (-1), so the instruction runs again; 1 when the
// commit gives null. An access violation anywhere else (another thread's
// block, a block's header, no block) marks and gives EXCEPTION_CONTINUE_SEARCH
// (0); any other exception gives 0 with no mark. A failed commit raises
// L_CMemoryException, which leaves through the faulting code.
ORVANEST_EXPORT int lexceptFilter(struct _EXCEPTION_POINTERS* info);
// Shows nothing: a host that calls it from its filters sees only that it
// returns.
ORVANEST_EXPORT void lexceptDispInfo(struct _EXCEPTION_POINTERS* info);
// A filter for a host's C++ handlers: ignores the object and gives 1.
ORVANEST_EXPORT int lcppexcpFilter(class CObject* object);

// While one of these lives on a thread, the host does not want exception
// messages there; they nest. Nothing in the library shows such messages: the
// count is for hosts, which ask IsStopMsg.
class ORVANEST_EXPORT L_CStopExceptMsg {
public:
    L_CStopExceptMsg(void);
    virtual ~L_CStopExceptMsg(void);
    // 1 while any L_CStopExceptMsg lives on this thread, else 0.
    static int IsStopMsg(void);
};

// ---- system services ---------------------------------------------------------------

// The library's information record.
struct tagLSY_OrvanestInfo {
    char version[8];  // "1.00.05" and its NUL
};

// 0x80000000 when the platform is Win32s (bit 31 of GetVersion), else 0.
ORVANEST_EXPORT int lsysIsWin32s(void);
// The local time, by GetLocalTime.
ORVANEST_EXPORT void lsysGetLocalTime(struct _SYSTEMTIME* time);
// Copies the 8 bytes of the version text into info.
ORVANEST_EXPORT void lsysGetOrvanestInfo(struct tagLSY_OrvanestInfo* info);
// 4096 on Win32s, else the page size of GetSystemInfo; asked on every call.
ORVANEST_EXPORT DWORD lsysGetPageSize(void);
// 65536 on Win32s, else the allocation granularity of GetSystemInfo; asked on
// every call.
ORVANEST_EXPORT DWORD lsysGetAllocUnit(void);

// Whether _isnan, or _finite, says so. Neither lets a trap out, whatever the
// thread's control word, and both leave the control word as they found it.
ORVANEST_EXPORT bool lsysIsDoubleNaN(double const& value);
ORVANEST_EXPORT bool lsysIsDoubleFinite(double const& value);
// value when it is a normal number or a zero of either sign, else 0.0. Should
// classifying trap, the result says what trapped: -DBL_MAX for an underflow,
// +DBL_MAX for an overflow or a division by zero, 0.0 for anything else. The
// thread's safeValue holds that result.
ORVANEST_EXPORT double lsysSafeValueDouble(double const& value);
// true when value is a normal number or a zero of either sign; false for
// NaNs, infinities and denormals, and when classifying traps.
ORVANEST_EXPORT bool lsysIsSafeValue(double const& value);

// Masks every floating-point exception of the thread for its lifetime. On
// the way out it drops the status flags raised inside and puts the mask bits
// back as it found them; the other control bits are not touched. Nests.
class ORVANEST_EXPORT L_CAnnulException {
public:
    L_CAnnulException(void);
    ~L_CAnnulException(void);
    // Copies savedControl and nothing else: this object then restores the
    // other one's word.
    L_CAnnulException& operator=(L_CAnnulException const& other);

    unsigned int savedControl;  // the control word at construction
};
