// An application unloads a plugin as soon as the plugin's connection has ended. The worker thread of that connection is
// detached and may still have to run the last instructions of the library's code.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>

#include "tests/support/ScriptedHost.h"
#include "tests/support/SystemFunctions.h"
#include "tests/support/Waiting.h"

namespace {

constexpr int kTimes = 1'000;

/// Closing a connection that is complete takes 10 ms longer, so only one in so many is completed.
constexpr int kCompleteOneIn = 10;

std::atomic<int> unloads{0};
/// How many workers this program has stopped after their last unlock until the plugin was unloaded.
std::atomic<int> heldWorkers{0};
/// True on a worker that is about to release its engine's lock for the last time.
thread_local bool isEndingWorker = false;

}  // namespace

// These two replace the system's functions in every module of the process, the library included.

CSCLIENT_TEST_REPLACES int pthread_detach(pthread_t thread) {
    // Only a worker detaches itself. Then it releases its engine's lock.
    isEndingWorker = pthread_equal(thread, pthread_self()) != 0;
    static const auto systemDetach = com_tesk::test::systemFunction<int(pthread_t)>("pthread_detach");
    return systemDetach(thread);
}

CSCLIENT_TEST_REPLACES int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    static const auto systemUnlock = com_tesk::test::systemFunction<int(pthread_mutex_t*)>("pthread_mutex_unlock");
    if (!isEndingWorker) {
        return systemUnlock(mutex);
    }
    isEndingWorker = false;
    const int unloadsBefore = unloads;
    const int result = systemUnlock(mutex);
    // The scheduler can stop the worker here too, but seldom does.
    com_tesk::test::waitUntil([unloadsBefore] { return unloads != unloadsBefore; });
    ++heldWorkers;
    return result;
}

namespace {

bool isLoaded(const char* module) {
    void* const handle = dlopen(module, RTLD_LAZY | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

TEST(Unloading, WorkerEndsAfterItsPluginWasUnloaded) {
    com_tesk::test::ScriptedHost host;
    int connections = 0;
    for (int i = 0; i < kTimes; ++i) {
        void* const plugin = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(plugin, nullptr) << dlerror();
        const auto useConnection = reinterpret_cast<bool (*)(unsigned int, bool)>(dlsym(plugin, "useConnection"));
        ASSERT_NE(useConnection, nullptr) << dlerror();
        ASSERT_TRUE(useConnection(host.port(), i % kCompleteOneIn == 0)) << "the connection " << i;
        ASSERT_EQ(dlclose(plugin), 0) << dlerror();
        ASSERT_FALSE(isLoaded(PLUGIN_PATH));
        ++unloads;
        while (host.accept(std::chrono::milliseconds(0)) != nullptr) {
            ++connections;
        }
    }
    EXPECT_TRUE(isLoaded(LIBRARY_NAME));
    EXPECT_GE(connections, kTimes / kCompleteOneIn);
    EXPECT_TRUE(com_tesk::test::waitUntil([] { return heldWorkers == kTimes; }))
        << "a worker no longer detaches itself before its last unlock, so this test holds none";
}

}  // namespace
