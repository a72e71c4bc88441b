#include "tests/csmqtt/support/FakeBroker.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <utility>

namespace com_tesk::mqtt_test {

namespace {

std::size_t byteAt(const std::string& bytes, std::size_t index) {
    return static_cast<unsigned char>(bytes.at(index));
}

/// Returns where the content of a packet begins and ends; nothing while the length is not complete.
std::optional<std::pair<std::size_t, std::size_t>> contentOf(const std::string& bytes) {
    if (bytes.size() < 2 || (byteAt(bytes, 1) >= 0x80 && bytes.size() < 3)) {
        return std::nullopt;
    }
    if (byteAt(bytes, 1) < 0x80) {
        return std::pair(std::size_t{2}, 2 + byteAt(bytes, 1));
    }
    return std::pair(std::size_t{3}, 3 + (byteAt(bytes, 1) & 0x7FU) + (byteAt(bytes, 2) << 7U));
}

}  // namespace

FakeBroker::FakeBroker(Answer packetAnswer)
    : answer(std::move(packetAnswer)), listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof place;
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&place), size), 0);
    EXPECT_EQ(listen(listener, 1), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size), 0);
    port = ntohs(place.sin_port);
    thread = std::thread([this] { run(); });
}

FakeBroker::~FakeBroker() {
    shutdown(listener, SHUT_RDWR);  // Ends a wait for a connection. One that exists is ended by its client.
    thread.join();
    close(listener);
}

void FakeBroker::run() const {
    const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    std::string bytes;
    std::array<char, 4'096> part{};
    for (ssize_t size = 0; (size = recv(peer, part.data(), part.size(), 0)) > 0;) {
        bytes.append(part.data(), static_cast<std::size_t>(size));
        for (auto content = contentOf(bytes); content && bytes.size() >= content->second; content = contentOf(bytes)) {
            const std::string reply = answer(bytes.substr(0, content->second));
            send(peer, reply.data(), reply.size(), MSG_NOSIGNAL);
            bytes.erase(0, content->second);
        }
    }
    close(peer);
}

std::string answerTo(const std::string& packet, unsigned char subscriptionReason) {
    using namespace std::string_literals;
    const std::size_t content = contentOf(packet)->first;
    const std::size_t first = byteAt(packet, 0);
    switch (first & 0xF0U) {
        case 0x10:
            return "\x20\x03\x00\x00\x00"s;
        case 0x30:
            if ((first & 0x06U) == 0) {
                return {};
            }
            return "\x40\x02"s +
                   packet.substr(content + 2 + (byteAt(packet, content) << 8U) + byteAt(packet, content + 1), 2);
        case 0x80:
            return "\x90\x04"s + packet.substr(content, 2) + '\0' + static_cast<char>(subscriptionReason);
        case 0xC0:
            return "\xD0\x00"s;
        default:
            return {};
    }
}

}  // namespace com_tesk::mqtt_test
