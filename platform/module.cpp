// The load entry of a shared object, as a Windows loader would call it.
//
// A module registers its entry once its static objects are built; the entry
// runs at once with DLL_PROCESS_ATTACH on the loading thread. Threads are not
// announced when they start (the platform cannot see them); instead a module
// tells the platform when a thread first uses it, and that thread then gets
// DLL_THREAD_ATTACH, and DLL_THREAD_DETACH when it ends. Unloading sends
// DLL_PROCESS_DETACH on the unloading thread.
#include <pthread.h>

#include <atomic>

#include <orvanest/platform/orvaext.h>

namespace {

constexpr unsigned kMaxModules = 32;

struct Module {
    ORVA_DLLENTRY entry;
    std::atomic<bool> live;
};

Module g_modules[kMaxModules];
std::atomic<unsigned> g_moduleCount{0};

pthread_key_t g_exitKey;
pthread_once_t g_exitKeyOnce = PTHREAD_ONCE_INIT;

// Modules that this thread uses, one bit each.
thread_local uint32_t t_usedModules = 0;

HMODULE HandleOf(unsigned index) { return reinterpret_cast<HMODULE>(&g_modules[index]); }

int IndexOf(HMODULE hModule) {
    auto* m = reinterpret_cast<Module*>(hModule);
    if (m < g_modules || m >= g_modules + kMaxModules) return -1;
    return static_cast<int>(m - g_modules);
}

// Runs at a thread's exit, while its thread-local storage still stands.
void OnThreadExit(void*) {
    uint32_t used = t_usedModules;
    t_usedModules = 0;
    for (unsigned i = 0; i < kMaxModules; ++i) {
        if ((used & (1u << i)) && g_modules[i].live.load()) {
            g_modules[i].entry(HandleOf(i), DLL_THREAD_DETACH, nullptr);
        }
    }
}

void MakeExitKey() { pthread_key_create(&g_exitKey, OnThreadExit); }

// Marks module `index` as used by this thread and arranges the exit call.
void MarkUsed(unsigned index) {
    pthread_once(&g_exitKeyOnce, MakeExitKey);
    if (t_usedModules == 0) pthread_setspecific(g_exitKey, reinterpret_cast<void*>(1));
    t_usedModules |= 1u << index;
}

}  // namespace

HMODULE OrvaModuleLoad(ORVA_DLLENTRY entry) {
    unsigned index = g_moduleCount.fetch_add(1);
    if (index >= kMaxModules || entry == nullptr) return nullptr;
    g_modules[index].entry = entry;
    g_modules[index].live.store(true);
    MarkUsed(index);
    entry(HandleOf(index), DLL_PROCESS_ATTACH, nullptr);
    return HandleOf(index);
}

void OrvaModuleUnload(HMODULE hModule) {
    int index = IndexOf(hModule);
    if (index < 0 || !g_modules[index].live.exchange(false)) return;
    g_modules[index].entry(hModule, DLL_PROCESS_DETACH, nullptr);
}

void OrvaModuleThreadUse(HMODULE hModule) {
    int index = IndexOf(hModule);
    if (index < 0 || (t_usedModules & (1u << index))) return;
    MarkUsed(static_cast<unsigned>(index));
    if (g_modules[index].live.load()) g_modules[index].entry(hModule, DLL_THREAD_ATTACH, nullptr);
}
