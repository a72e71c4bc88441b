#include <dlfcn.h>
#include <sys/socket.h>

#include <chrono>
#include <thread>

// Linked into the publisher for tests that compare every byte. A registration reaches the host twice when it is made
// while the library changes to the ready state. The publisher polls for that state once a second from the start of the
// connection. This delay moves the change of state between two polls.
extern "C" __attribute__((visibility("default"))) int connect(int descriptor, const sockaddr* address,
                                                              socklen_t length) {
    using Connect = int (*)(int, const sockaddr*, socklen_t);
    static const auto systemConnect = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "connect"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return systemConnect(descriptor, address, length);
}
