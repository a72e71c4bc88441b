#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

#include "tests/support/Waiting.h"

namespace com_tesk::monitoring_test {

/// A connection to the server that sends and reads what the test says.
class HttpClient {
  public:
    explicit HttpClient(std::uint16_t port) : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        isOpen = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~HttpClient() { close(descriptor); }
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    bool isConnected() const { return isOpen; }

    void send(const std::string& text) const {
        EXPECT_EQ(::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }

    /// Returns everything up to the end of the connection.
    std::string response() const {
        std::string text;
        std::array<char, 4096> bytes{};
        pollfd waiting{descriptor, POLLIN, 0};
        while (poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(test::kWaitBound).count())) == 1) {
            const ssize_t size = recv(descriptor, bytes.data(), bytes.size(), 0);
            if (size <= 0) {
                return text;
            }
            text.append(bytes.data(), static_cast<std::size_t>(size));
        }
        ADD_FAILURE() << "the connection does not end after: " << text;
        return text;
    }

  private:
    const int descriptor;
    bool isOpen = false;
};

/// Returns the whole response.
inline std::string get(std::uint16_t port, const std::string& path = "/metrics") {
    const HttpClient client(port);
    client.send("GET " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    return client.response();
}

/// Returns what follows the headers of the response.
inline std::string bodyOf(const std::string& response) {
    const std::size_t end = response.find("\r\n\r\n");
    return end == std::string::npos ? "" : response.substr(end + 4);
}

}  // namespace com_tesk::monitoring_test
