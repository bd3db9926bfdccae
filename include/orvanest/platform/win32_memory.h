// The Win32 subset for address space: reserving, committing, decommitting and
// releasing regions, asking what lies at an address, and the system facts
// (page size, allocation granularity) that go with them.
//
// A region is reserved whole, starts on an allocation-granularity boundary
// (64 KiB) and spans a whole number of pages; inside it each page is either
// reserved (no access) or committed. Committed pages read as zeros until they
// are written, also after a decommit and a fresh commit. The platform answers
// only for regions it reserved itself: VirtualQuery reports everything else as
// free address space.
#pragma once

#include "win32.h"

// ---- constants ----------------------------------------------------------------
#define MEM_COMMIT 0x00001000
#define MEM_RESERVE 0x00002000
#define MEM_DECOMMIT 0x00004000
#define MEM_RELEASE 0x00008000
#define MEM_FREE 0x00010000
#define MEM_PRIVATE 0x00020000

#define PAGE_NOACCESS 0x01
#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04

#ifndef ERROR_INVALID_ADDRESS
#define ERROR_INVALID_ADDRESS 487L
#endif

#define PROCESSOR_ARCHITECTURE_INTEL 0
#define PROCESSOR_ARCHITECTURE_ARM64 12
#define PROCESSOR_ARCHITECTURE_AMD64 9
#define PROCESSOR_ARCHITECTURE_UNKNOWN 0xFFFF

// ---- records ------------------------------------------------------------------
// What lies at an address: the run of pages from BaseAddress that share State
// and Protect, inside the region that starts at AllocationBase.
typedef struct _MEMORY_BASIC_INFORMATION {
    LPVOID BaseAddress;      // the queried address rounded down to its page
    LPVOID AllocationBase;   // the region's start; null for free space
    DWORD AllocationProtect; // the protection given at reservation; 0 for free space
    SIZE_T RegionSize;       // bytes from BaseAddress that share State and Protect
    DWORD State;             // MEM_COMMIT, MEM_RESERVE or MEM_FREE
    DWORD Protect;           // PAGE_* of committed pages; 0 reserved; PAGE_NOACCESS free
    DWORD Type;              // MEM_PRIVATE inside a region; 0 for free space
} MEMORY_BASIC_INFORMATION, *PMEMORY_BASIC_INFORMATION;

typedef struct _SYSTEM_INFO {
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
} SYSTEM_INFO, *LPSYSTEM_INFO;

// ---- address space ------------------------------------------------------------
// MEM_RESERVE: a new region of dwSize bytes rounded up to whole pages, with
// lpAddress null (anywhere) or rounded down to the granularity (there, and
// only when that range is free: else ERROR_INVALID_ADDRESS); flProtect must be
// PAGE_NOACCESS, PAGE_READONLY or PAGE_READWRITE and is remembered as the
// region's AllocationProtect. MEM_COMMIT: commits the pages that hold
// [lpAddress, lpAddress + dwSize) with flProtect; they must lie in one region
// (else ERROR_INVALID_ADDRESS); pages already committed keep their contents
// and take the new protection. MEM_RESERVE | MEM_COMMIT, or MEM_COMMIT with a
// null lpAddress: both at once. Gives the region's start for a reservation,
// the first committed page for a commit; null on failure with the last error
// set (ERROR_INVALID_PARAMETER for a size of 0, unknown flags or protection,
// ERROR_NOT_ENOUGH_MEMORY when the system refuses). Fault injection can fail
// reservations (ORVA_FAULT_VIRTUALALLOC) and commits (ORVA_FAULT_VIRTUALCOMMIT).
ORVANEST_EXPORT LPVOID VirtualAlloc(LPVOID lpAddress, SIZE_T dwSize, DWORD flAllocationType, DWORD flProtect);
// MEM_RELEASE: gives back the whole region that starts at lpAddress; dwSize
// must be 0 (else ERROR_INVALID_PARAMETER) and lpAddress a region's start
// (else ERROR_INVALID_ADDRESS). MEM_DECOMMIT: turns the pages that hold
// [lpAddress, lpAddress + dwSize) back into reserved pages and drops their
// contents; dwSize 0 at a region's start means the whole region. TRUE on
// success; FALSE with the last error set.
ORVANEST_EXPORT BOOL VirtualFree(LPVOID lpAddress, SIZE_T dwSize, DWORD dwFreeType);
// Fills *lpBuffer for the page that holds lpAddress and gives
// sizeof(MEMORY_BASIC_INFORMATION); 0 with ERROR_INVALID_PARAMETER when dwLength
// is too small or the address lies above lpMaximumApplicationAddress. Outside
// the platform's regions the answer is MEM_FREE, running to the next region
// (or to the top of the address space).
ORVANEST_EXPORT SIZE_T VirtualQuery(LPCVOID lpAddress, PMEMORY_BASIC_INFORMATION lpBuffer, SIZE_T dwLength);

// ---- system facts -------------------------------------------------------------
// The processor, the page size of the system and the allocation granularity
// (64 KiB, the alignment of every reservation).
ORVANEST_EXPORT void GetSystemInfo(LPSYSTEM_INFO lpSystemInfo);
