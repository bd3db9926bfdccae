// The load-entry emulation: process attach at load on the loading thread,
// thread attach at a thread's first use, thread detach at its exit, process
// detach at unload, and nothing after it.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

#include <orvanest/platform/platform.h>

namespace {

struct Call {
    DWORD reason;
    std::thread::id thread;
};

std::mutex g_lock;
std::vector<Call> g_calls;
HMODULE g_self = nullptr;

BOOL RecordingEntry(HINSTANCE h, DWORD reason, LPVOID) {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_self == nullptr) g_self = h;
    g_calls.push_back({reason, std::this_thread::get_id()});
    return TRUE;
}

std::vector<Call> Calls() {
    std::lock_guard<std::mutex> guard(g_lock);
    return g_calls;
}

TEST(ModuleTest, EntryRunsForLoadThreadsAndUnload) {
    HMODULE h = OrvaModuleLoad(RecordingEntry);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h, g_self);
    std::vector<Call> calls = Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].reason, static_cast<DWORD>(DLL_PROCESS_ATTACH));
    EXPECT_EQ(calls[0].thread, std::this_thread::get_id());

    OrvaModuleThreadUse(h);  // the loading thread is attached already
    EXPECT_EQ(Calls().size(), 1u);

    std::thread::id worker;
    std::thread t([&] {
        worker = std::this_thread::get_id();
        OrvaModuleThreadUse(h);
        OrvaModuleThreadUse(h);
    });
    t.join();
    calls = Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].reason, static_cast<DWORD>(DLL_THREAD_ATTACH));
    EXPECT_EQ(calls[1].thread, worker);
    EXPECT_EQ(calls[2].reason, static_cast<DWORD>(DLL_THREAD_DETACH));
    EXPECT_EQ(calls[2].thread, worker);

    std::thread([] {}).join();  // a thread that never uses the module
    EXPECT_EQ(Calls().size(), 3u);

    OrvaModuleUnload(h);
    calls = Calls();
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[3].reason, static_cast<DWORD>(DLL_PROCESS_DETACH));
    OrvaModuleUnload(h);
    std::thread([&] { OrvaModuleThreadUse(h); }).join();
    EXPECT_EQ(Calls().size(), 4u) << "an unloaded module gets no more calls";
}

TEST(ModuleTest, ForeignHandlesAreIgnored) {
    int notAModule = 0;
    OrvaModuleThreadUse(reinterpret_cast<HMODULE>(&notAModule));
    OrvaModuleUnload(reinterpret_cast<HMODULE>(&notAModule));
    OrvaModuleUnload(nullptr);
    EXPECT_EQ(OrvaModuleLoad(nullptr), nullptr);
}

}  // namespace
