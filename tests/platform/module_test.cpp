// The load-entry emulation: process attach at load on the loading thread,
// thread attach at a thread's first use, thread detach at its exit, process
// detach at unload, and nothing after it.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

#include <orvanest/platform/platform.h>

namespace {

using Call = std::tuple<HMODULE, DWORD, std::thread::id>;  // module, reason, thread

std::mutex g_lock;
std::vector<Call> g_calls;

BOOL RecordingEntry(HINSTANCE h, DWORD reason, LPVOID) {
    std::lock_guard<std::mutex> guard(g_lock);
    g_calls.emplace_back(h, reason, std::this_thread::get_id());
    return TRUE;
}

TEST(ModuleTest, EntryRunsForLoadThreadsAndUnload) {
    HMODULE h = OrvaModuleLoad(RecordingEntry);
    ASSERT_NE(h, nullptr);
    OrvaModuleThreadUse(h);  // the loading thread is attached already
    std::thread::id worker;
    std::thread([&] {
        worker = std::this_thread::get_id();
        OrvaModuleThreadUse(h);
        OrvaModuleThreadUse(h);
    }).join();
    std::thread([] {}).join();  // a thread that never uses the module
    OrvaModuleUnload(h);
    OrvaModuleUnload(h);
    std::thread([&] { OrvaModuleThreadUse(h); }).join();  // an unloaded module gets no more calls

    const auto self = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(g_lock);
    EXPECT_EQ(g_calls, (std::vector<Call>{{h, DLL_PROCESS_ATTACH, self}, {h, DLL_THREAD_ATTACH, worker},
                                          {h, DLL_THREAD_DETACH, worker}, {h, DLL_PROCESS_DETACH, self}}));
}

TEST(ModuleTest, ForeignHandlesAreIgnored) {
    int notAModule = 0;
    OrvaModuleThreadUse(reinterpret_cast<HMODULE>(&notAModule));
    OrvaModuleUnload(reinterpret_cast<HMODULE>(&notAModule));
    OrvaModuleUnload(nullptr);
    EXPECT_EQ(OrvaModuleLoad(nullptr), nullptr);
}

}  // namespace
