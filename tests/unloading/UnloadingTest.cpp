// An application unloads a plugin as soon as the plugin's connection has ended. The worker thread of that connection is
// detached and may still have to run the last instructions of the library's code.

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr int kTimes = 1'000;

/// Closing a connection that has been made takes 10 ms longer, so only one in so many is made first.
constexpr int kMadeOneIn = 10;

/// The plugin was unloaded so many times.
std::atomic<int> unloads{0};
/// So many workers were held until then.
std::atomic<int> heldWorkers{0};
/// Whether this thread is a worker that is about to release its engine's lock for the last time.
thread_local bool isEndingWorker = false;

/// Holds a worker that has released its engine's lock for the last time until the plugin is unloaded. The scheduler can do
/// the same, but seldom does.
void holdWorker(int unloadsBefore) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (unloads == unloadsBefore && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(1));
    }
    ++heldWorkers;
}

template <typename Function>
Function systemFunction(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These two replace the system's functions in every module of the process, the library included.

extern "C" __attribute__((visibility("default"))) int pthread_detach(pthread_t thread) {
    // Only a worker detaches itself. Then it releases its engine's lock.
    isEndingWorker = pthread_equal(thread, pthread_self()) != 0;
    static const auto systemDetach = systemFunction<int (*)(pthread_t)>("pthread_detach");
    return systemDetach(thread);
}

extern "C" __attribute__((visibility("default"))) int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    static const auto systemUnlock = systemFunction<int (*)(pthread_mutex_t*)>("pthread_mutex_unlock");
    if (!isEndingWorker) {
        return systemUnlock(mutex);
    }
    isEndingWorker = false;
    const int unloadsBefore = unloads;
    const int result = systemUnlock(mutex);
    holdWorker(unloadsBefore);
    return result;
}

namespace {

/// Listens on a port of 127.0.0.1 that the system picks.
class LoopbackListener {
  public:
    LoopbackListener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        isListening = bind(descriptor, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                      listen(descriptor, SOMAXCONN) == 0 &&
                      getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
        portNumber = ntohs(address.sin_port);
    }
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;
    ~LoopbackListener() { close(descriptor); }

    bool works() const { return isListening; }
    unsigned int port() const { return portNumber; }

    /// Closes the connections that were made since the last call.
    /// @return how many there were.
    int dropConnections() const {
        int count = 0;
        for (int connection = -1; (connection = accept(descriptor, nullptr, nullptr)) >= 0; ++count) {
            close(connection);
        }
        return count;
    }

  private:
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    bool isListening = false;
    unsigned int portNumber = 0;
};

bool isLoaded(const char* module) {
    void* const handle = dlopen(module, RTLD_LAZY | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

TEST(Unloading, WorkerEndsAfterItsPluginWasUnloaded) {
    const LoopbackListener host;
    ASSERT_TRUE(host.works());
    int connections = 0;
    for (int i = 0; i < kTimes; ++i) {
        void* const plugin = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(plugin, nullptr) << dlerror();
        const auto useConnection = reinterpret_cast<bool (*)(unsigned int, bool)>(dlsym(plugin, "useConnection"));
        ASSERT_NE(useConnection, nullptr) << dlerror();
        ASSERT_TRUE(useConnection(host.port(), i % kMadeOneIn == 0)) << "the connection " << i;
        ASSERT_EQ(dlclose(plugin), 0) << dlerror();
        ASSERT_FALSE(isLoaded(PLUGIN_PATH));
        ++unloads;
        connections += host.dropConnections();
    }
    EXPECT_TRUE(isLoaded(LIBRARY_NAME));
    EXPECT_GE(connections, kTimes / kMadeOneIn);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (heldWorkers < kTimes && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(heldWorkers, kTimes)
        << "a worker no longer detaches itself before its last unlock, so this test holds none";
}

}  // namespace
