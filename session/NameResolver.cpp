#include "session/NameResolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <utility>

#include "comms/SignalsBlocked.h"

namespace com_tesk::session {

/// A look-up. The thread that performs it owns a share of it.
struct NameResolver::Lookup {
    std::string name;
    std::shared_ptr<WakePipe> wake;
    std::uint32_t address = 0;
    int error = 0;
    /// Set last.
    std::atomic<bool> isComplete{false};

    void run() {
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        error = getaddrinfo(name.c_str(), nullptr, &hints, &found);
        if (error == 0) {
            sockaddr_in first{};
            std::memcpy(&first, found->ai_addr, sizeof first);
            address = first.sin_addr.s_addr;
            freeaddrinfo(found);
        }
        isComplete = true;
        wake->signal();
    }
};

NameResolver::NameResolver(std::string hostName, std::shared_ptr<WakePipe> wakeOfSession)
    : name(std::move(hostName)), wake(std::move(wakeOfSession)) {
    in_addr parsed{};
    isLiteral = inet_pton(AF_INET, name.c_str(), &parsed) == 1;
    literal = parsed.s_addr;
}

NameResolver::~NameResolver() = default;

void NameResolver::begin() {
    if (isLiteral || (lookup != nullptr && !lookup->isComplete)) {
        return;
    }
    auto next = std::make_shared<Lookup>();
    next->name = name;
    next->wake = wake;
    const SignalsBlocked inherited;
    std::thread([next] { next->run(); }).detach();
    lookup = std::move(next);
}

NameResolver::Result NameResolver::result() const {
    if (isLiteral) {
        return {true, literal, 0};
    }
    if (lookup == nullptr || !lookup->isComplete) {
        return {};
    }
    return {true, lookup->address, lookup->error};
}

}  // namespace com_tesk::session
