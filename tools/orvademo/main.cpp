// A small host that shows the frame at work: it registers a table of its own
// sources, composes a mark, catches a raised exception and prints where it
// came from, and keeps nodes in an AVL tree and in a list.
#include <cstdio>

#include <orvanest/ORVANEST.h>

namespace {

tagLDE_SourceInfo g_hostSources[] = {
    {0, "demo\\main"},
    {0, "demo\\report"},
    {0, ""},
};

struct Item {
    void* link[4];    // AVL link: parent, right, left, balance
    ULONG_PTR key;    // the key word behind the link
    void* listLink[2];
    ULONG_PTR listKey;
};

int PrintItem(ULONG_PTR value, void* item, ULONG_PTR* accumulator) {
    std::printf("%s%lu", *accumulator == 0 ? "" : " ", static_cast<unsigned long>(static_cast<Item*>(item)->key));
    *accumulator += value;
    return 1;
}

}  // namespace

int main() {
    // A host's first source gets the id after the library's 28.
    g_hostSources[0].id = 0x001D0000;
    g_hostSources[1].id = 0x001E0000;
    ldbgSetSourceInfo(g_hostSources);
    DWORD mark = LDE_MARKBIT | g_hostSources[1].id | 42;
    std::printf("mark 0x%08X names source \"%s\", line %u\n", mark, ldbgFindSource(mark), mark & 0xFFFF);

    SetLastError(LERR_BADSIZE);
    ldbgSetMarkErr(mark);
    SetLastError(0);
    ldbgCloseSetErr();
    ldbgOpenSetErr();
    std::printf("last error after the release bracket: 0x%08X\n", GetLastError());

    try {
        lsysThrowMemory(__LINE__, "demo\\main");
    } catch (CException* e) {
        std::printf("caught %s: %s\n", e->GetRuntimeClass()->m_lpszClassName,
                    static_cast<L_CPosException*>(e)->GetInfo());
        e->Delete();
    }

    Item items[7];
    const ULONG_PTR keys[7] = {40, 10, 60, 30, 50, 20, 70};
    void* tree = lavlCreate(0, nullptr);
    void* list = ldlistCreate(offsetof(Item, listLink));
    for (int i = 0; i < 7; ++i) {
        items[i].key = keys[i];
        items[i].listKey = keys[i];
        lavlIns(tree, &items[i]);
        ldlistIns(list, &items[i], reinterpret_cast<void*>(~ULONG_PTR{0}));
    }
    ULONG_PTR count = 0;
    std::printf("tree in order:");
    std::printf(" ");
    lavlEnum(tree, 1, PrintItem, &count);
    std::printf("  (%lu nodes)\n", static_cast<unsigned long>(count));
    Item probe{};
    probe.key = 35;
    void* found = nullptr;
    int result = lavlSearch(tree, &probe, &found, 1);
    std::printf("nearest above 35: %lu (result %d)\n", static_cast<unsigned long>(static_cast<Item*>(found)->key),
                result);
    count = 0;
    std::printf("list in insertion order: ");
    ldlistEnum(list, 1, PrintItem, &count);
    std::printf("  (%u nodes)\n", ldlistGetEntryNum(list));
    ldlistDestroy(list);
    lavlDestroy(tree);
    ldbgResetSourceInfo(g_hostSources);
    return 0;
}
