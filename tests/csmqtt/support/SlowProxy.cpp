#include "tests/csmqtt/support/SlowProxy.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "tests/csmqtt/support/OwnPlace.h"

namespace com_tesk::mqtt_test {

namespace {

constexpr std::chrono::milliseconds kInterval{10};

int newSocket() {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

/// Passes at most so many bytes on. Returns false when either side has ended.
bool pass(int from, int to, std::size_t limit) {
    std::array<char, 4'096> part{};
    const ssize_t size = recv(from, part.data(), std::min(limit, part.size()), 0);
    return size > 0 && send(to, part.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) == size;
}

}  // namespace

SlowProxy::SlowProxy(std::uint16_t brokerPort, std::size_t bytesPerSecond)
    : target(brokerPort), rate(bytesPerSecond), listener(newSocket()) {
    // A large buffer would hide that the line is slow. Connections inherit the size.
    const int bufferSize = 4'096;
    setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
    sockaddr_in place = ownPlace(0);
    socklen_t size = sizeof place;
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&place), size), 0);
    EXPECT_EQ(listen(listener, 1), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size), 0);
    port = ntohs(place.sin_port);
    thread = std::thread([this] { run(); });
}

SlowProxy::~SlowProxy() {
    isStopping.store(true);
    shutdown(listener, SHUT_RDWR);
    thread.join();
    close(listener);
}

std::string SlowProxy::address() const {
    return test::ownAddress() + ':' + std::to_string(port);
}

void SlowProxy::run() {
    while (!isStopping.load()) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) {
            return;
        }
        const int broker = newSocket();
        const sockaddr_in place = ownPlace(target);
        if (connect(broker, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0) {
            serve(client, broker);
        }
        close(broker);
        close(client);
    }
}

void SlowProxy::serve(int client, int broker) {
    using Clock = std::chrono::steady_clock;
    const std::size_t share = rate * static_cast<std::size_t>(kInterval.count()) / 1'000;
    Clock::time_point next = Clock::now();
    while (!isStopping.load()) {
        const bool isTurn = Clock::now() >= next;
        const short events = POLLIN;
        pollfd waiting[2] = {{broker, events, 0}, {isTurn ? client : -1, events, 0}};
        poll(waiting, 2, static_cast<int>(kInterval.count()));
        if (waiting[0].revents != 0 && !pass(broker, client, SIZE_MAX)) {
            return;
        }
        if (waiting[1].revents != 0) {
            next = Clock::now() + kInterval;
            if (!pass(client, broker, share)) {
                return;
            }
        }
    }
}

}  // namespace com_tesk::mqtt_test
