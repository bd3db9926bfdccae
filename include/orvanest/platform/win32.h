// The Win32 subset that the library stands on: base types, constants, the
// thread's last error, the global heap, critical sections and the message box.
// Declared in the global namespace with the names a Windows header uses, so a
// host ported from Windows compiles against it unchanged. No system type of
// the host shows here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "export.h"

#ifndef WINAPI
#define WINAPI
#endif
#ifndef CALLBACK
#define CALLBACK
#endif

// ---- base types -----------------------------------------------------------
typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef unsigned int UINT;
typedef int INT;
typedef char CHAR;
typedef uintptr_t ULONG_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t INT_PTR;
typedef uintptr_t DWORD_PTR;
typedef size_t SIZE_T;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef DWORD* LPDWORD;
typedef BYTE* LPBYTE;
typedef UINT* PUINT;
typedef void* HANDLE;
typedef HANDLE HGLOBAL;
typedef HANDLE HLOCAL;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef struct HWND__* HWND;
typedef LRESULT(CALLBACK* WNDPROC)(HWND, UINT, WPARAM, LPARAM);

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#define INVALID_HANDLE_VALUE ((HANDLE)(LONG_PTR)-1)
#define MAX_PATH 260

// ---- error codes ------------------------------------------------------------
#define ERROR_SUCCESS 0L
#define NO_ERROR 0L
#define ERROR_INVALID_FUNCTION 1L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_TOO_MANY_OPEN_FILES 4L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_BLOCK 9L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_NO_MORE_FILES 18L
#define ERROR_NOT_READY 21L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_HANDLE_EOF 38L
#define ERROR_BAD_NETPATH 53L
#define ERROR_FILE_EXISTS 80L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_DISK_FULL 112L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_INVALID_NAME 123L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_NOT_LOCKED 158L
#define ERROR_NOACCESS 998L

// ---- module load entry ------------------------------------------------------
#define DLL_PROCESS_DETACH 0
#define DLL_PROCESS_ATTACH 1
#define DLL_THREAD_ATTACH 2
#define DLL_THREAD_DETACH 3

// ---- last error -------------------------------------------------------------
// Each thread has its own; every failing platform call sets it.
ORVANEST_EXPORT DWORD GetLastError(void);
ORVANEST_EXPORT void SetLastError(DWORD dwErrCode);

// ---- global heap --------------------------------------------------------------
#define GMEM_FIXED 0x0000
#define GMEM_MOVEABLE 0x0002
#define GMEM_ZEROINIT 0x0040
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)

// A block of dwBytes (zero-filled with GMEM_ZEROINIT); null with last error 8
// when memory runs out. Blocks never move, so the handle of a movable block is
// also its address, and every call below takes either.
ORVANEST_EXPORT HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes);
// The block's address, and one more lock; null with last error 6 for a value
// that is not a live block.
ORVANEST_EXPORT LPVOID GlobalLock(HGLOBAL hMem);
// One lock less; FALSE when no lock remains (last error 0 then), or for a
// value that is not a live block (last error 6).
ORVANEST_EXPORT BOOL GlobalUnlock(HGLOBAL hMem);
// Null on success; the handle itself, with last error 6, for a value that is
// not a live block.
ORVANEST_EXPORT HGLOBAL GlobalFree(HGLOBAL hMem);
// The size asked for at allocation; 0 (last error 6) for anything that is not
// a live block: null, stack addresses, interior pointers, freed blocks.
ORVANEST_EXPORT SIZE_T GlobalSize(HGLOBAL hMem);

// ---- critical sections --------------------------------------------------------
// Re-entrant: the owning thread may enter again and must leave as often.
typedef struct _RTL_CRITICAL_SECTION {
    alignas(8) unsigned char opaque[64];
} CRITICAL_SECTION, *LPCRITICAL_SECTION;

ORVANEST_EXPORT void InitializeCriticalSection(LPCRITICAL_SECTION cs);
ORVANEST_EXPORT void DeleteCriticalSection(LPCRITICAL_SECTION cs);
ORVANEST_EXPORT void EnterCriticalSection(LPCRITICAL_SECTION cs);
ORVANEST_EXPORT BOOL TryEnterCriticalSection(LPCRITICAL_SECTION cs);
ORVANEST_EXPORT void LeaveCriticalSection(LPCRITICAL_SECTION cs);

// ---- message box ----------------------------------------------------------------
#define MB_OK 0x00000000L
#define MB_OKCANCEL 0x00000001L
#define MB_ABORTRETRYIGNORE 0x00000002L
#define MB_YESNOCANCEL 0x00000003L
#define MB_YESNO 0x00000004L
#define MB_RETRYCANCEL 0x00000005L
#define MB_TYPEMASK 0x0000000FL
#define MB_ICONHAND 0x00000010L
#define MB_ICONQUESTION 0x00000020L
#define MB_ICONEXCLAMATION 0x00000030L
#define MB_ICONASTERISK 0x00000040L
#define MB_ICONERROR MB_ICONHAND
#define MB_ICONWARNING MB_ICONEXCLAMATION
#define MB_ICONINFORMATION MB_ICONASTERISK
#define MB_SYSTEMMODAL 0x00001000L

#define IDOK 1
#define IDCANCEL 2
#define IDABORT 3
#define IDRETRY 4
#define IDIGNORE 5
#define IDYES 6
#define IDNO 7

// Shows a box and answers with the button chosen. The box goes to the handler
// set by OrvaSetMessageBoxHandler (orvaext.h); the default one writes the box
// to standard error and, when standard input is no terminal, answers IDCANCEL
// to a box that offers Cancel and the first button otherwise.
ORVANEST_EXPORT int MessageBoxA(HWND hWnd, LPCSTR lpText, LPCSTR lpCaption, UINT uType);
