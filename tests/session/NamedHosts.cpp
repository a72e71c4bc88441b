#include "tests/session/NamedHosts.h"

#include <dlfcn.h>
#include <netdb.h>

#include <cstring>

namespace com_tesk::session_test {

test::Gate& slowNameGate() {
    static test::Gate gate;
    return gate;
}

}  // namespace com_tesk::session_test

using namespace com_tesk::session_test;

/// Takes the place of the system's function in this program.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found) {
    if (name != nullptr && std::strcmp(name, kSlowName) == 0) {
        slowNameGate().pass();
        return EAI_NONAME;
    }
    if (name != nullptr && std::strcmp(name, kUnknownName) == 0) {
        return EAI_NONAME;
    }
    const bool isLoopback = name != nullptr && std::strcmp(name, kLoopbackName) == 0;
    const auto real = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(isLoopback ? "127.0.0.1" : name, service, hints, found);
}
