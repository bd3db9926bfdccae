// TEMPORARY: the base allocator's interface, until its branch is merged and
// <orvanest/LMM.h> declares it. Delete this file at that merge.
#pragma once

#include <orvanest/platform/win32.h>

struct tagLMM_VirtualAllocNode;
ORVANEST_EXPORT void* lmemAllocFunc(DWORD size, DWORD mark);
ORVANEST_EXPORT int lmemFree(void* p);
ORVANEST_EXPORT void* lmemVirtualAllocFunc(DWORD size, DWORD mark);
ORVANEST_EXPORT void* lmemVirtualCommit(void* p, DWORD size);
ORVANEST_EXPORT struct tagLMM_VirtualAllocNode* lmemGetVirtualAllocNode(void* p);
