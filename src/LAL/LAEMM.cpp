// The arena allocator under its second names. Each function forwards to its
// lamlc* twin, which does the work, the marking and the raising.
#include <orvanest/LAL.h>
#include <orvanest/LMM.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAEMM

void* laemmCreateFunc(DWORD firstSize, DWORD unitSize, DWORD ignored) {
    return lamlcCreate(firstSize, unitSize, ignored);
}

int laemmDestroy(void* arena) { return lamlcDestroy(arena); }

void* laemmAlloc(void* arena, DWORD size) { return lamlcAlloc(arena, size); }

int laemmFree(void* arena, void* p) { return lamlcFree(arena, p); }

void* laemmReSize(void* arena, void* p, DWORD size) { return lamlcReSize(arena, p, size); }

int laemmCompact(void* arena) { return lamlcCompact(arena); }

int laemmCheckNodeLink(void) { return lamlcCheck(); }
