#include <dlfcn.h>
#include <sys/socket.h>

#include <chrono>
#include <thread>

// Linked into the publisher for tests that compare every byte. A registration made while the library is in the middle
// of its change to the ready state reaches the host twice. The publisher looks for that state once a second, beginning
// as soon as the library connects; here the connection comes between two looks, never during one.
extern "C" __attribute__((visibility("default"))) int connect(int descriptor, const sockaddr* address,
                                                              socklen_t length) {
    using Connect = int (*)(int, const sockaddr*, socklen_t);
    static const auto systemConnect = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "connect"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return systemConnect(descriptor, address, length);
}
