// The source registry and the error operations.
//
// Registry nodes are global blocks holding the two links of the process-wide
// sourceList and a pointer to a caller's table; the table itself stays the
// caller's. The error operations keep the last error of a thread's latest
// mark, so that release steps after a failure can be undone.
#include <cstring>

#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLDE

namespace {

// A registry node: the list's links, then the table (the default key word).
struct RegistryNode {
    void* next;
    void* prev;
    tagLDE_SourceInfo* table;
};

}  // namespace

using namespace lde;

LDE_CSourceInfo::LDE_CSourceInfo(char* name) {
    if (g_sourceListCreated == 0) {
        InitializeCriticalSection(&g_libraryLock);
        g_sourceList = ldlistCreate(0);
        g_sourceListCreated = 1;
    }
    m_info[0].id = (static_cast<DWORD>(ldlistGetEntryNum(g_sourceList)) + 1) << 16;
    std::strcpy(m_info[0].name, name);
    m_info[1].id = 0;
    m_info[1].name[0] = '\0';
    ldbgSetSourceInfo(m_info);
}

LDE_CSourceInfo::LDE_CSourceInfo(void) : LDE_CSourceInfo(const_cast<char*>("")) {}

LDE_CSourceInfo::~LDE_CSourceInfo(void) {}

int ldbgSetSourceInfo(struct tagLDE_SourceInfo* info) {
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(RegistryNode));
    if (h == nullptr) LDE_THROW_MEMORY();
    auto* node = static_cast<RegistryNode*>(GlobalLock(h));
    if (node == nullptr) {
        GlobalFree(h);  // nothing may be left behind by a failed registration
        LDE_THROW_MEMORY();
    }
    node->table = info;
    return ldlistIns(g_sourceList, node, reinterpret_cast<void*>(~ULONG_PTR{0})) != 0 ? 1 : 0;
}

int ldbgResetSourceInfo(struct tagLDE_SourceInfo* info) {
    void* node = ldlistSearch(g_sourceList, reinterpret_cast<ULONG_PTR>(info), nullptr);
    if (node == nullptr) return 0;
    ldlistDel(g_sourceList, node);
    return lmemGlobalFree(node) != 0 ? 1 : 0;
}

char* ldbgFindSource(DWORD mark) {
    ldbgCloseSetErr();
    DWORD key = mark & LDE_SOURCEMASK;
    for (void* n = ldlistGetFirstNode(g_sourceList, 0); n != nullptr; n = ldlistGetNextNode(g_sourceList, n, 1)) {
        for (tagLDE_SourceInfo* row = static_cast<RegistryNode*>(n)->table; row->id != 0; ++row) {
            if (row->id == key) {
                ldbgOpenSetErr();
                return row->name;
            }
        }
    }
    ldbgOpenSetErr();
    return nullptr;
}

void ldbgSetMarkErr(DWORD) {
    DWORD error = GetLastError();
    Context()->lastMarkError = error;
    SetLastError(error);
}

void ldbgSetErr(DWORD) {}

void ldbgCloseSetErr(void) { Context()->setErrClosed = 1; }

void ldbgOpenSetErr(void) {
    tagLDE_ThreadContext* ctx = Context();
    if (ctx->lastMarkError != 0) SetLastError(ctx->lastMarkError);
    ctx->setErrClosed = 0;
}
