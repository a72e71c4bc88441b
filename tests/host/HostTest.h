#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <system_error>

#include "host/LoopbackHost.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/Waiting.h"

namespace com_tesk::host_test {

using test::Bytes;
using test::hex;
using test::hexField;
using test::hexText;

constexpr std::chrono::milliseconds kBound = test::ScriptedHost::kBound;

// Messages as hex texts, with which tests compose requests and compare replies. None of these functions uses the host.

/// Returns a data frame around a body.
inline std::string frame(const std::string& body) {
    return test::hexFrame(hexText(hex(body)));
}

/// Returns the body of a request: a sub-header with the right length and this code, then `rest`.
inline std::string requestBody(const std::string& code, const std::string& rest) {
    const auto size = static_cast<unsigned int>(12 + hex(rest).size());
    return hexText(hex("04027FFF " + test::hexWord(size) + " 007F00" + code + rest));
}

inline std::string request(const std::string& code, const std::string& rest) {
    return frame(requestBody(code, rest));
}

// Requests of simulator id 5.

inline std::string versionRequest() {
    return request("06", "00050000 00000000");
}

inline std::string subscribe(const std::string& name, bool isInteger = false) {
    return request("01", "00050000 00000001 00002EE0 00002EE0 0000000" + std::to_string(isInteger) + hexField(name));
}

inline std::string registerOutput(const std::string& name, bool isInteger = false) {
    return request("02", "00050000 00000001 000004B0 0000000" + std::to_string(isInteger) + hexField(name));
}

/// Publishes one record, given as its three words.
inline std::string publish(const std::string& idFlagValue) {
    return request("03", "00050000 00000000 00000001" + idFlagValue);
}

inline std::string unsubscribe(const std::string& id) {
    return request("04", "00050000 00000001" + id);
}

inline std::string unregister(const std::string& id) {
    return request("05", "00050000 00000001" + id);
}

// Messages of the host to a client of simulator id 5, with one record each.

inline std::string inputReply(const std::string& id, const std::string& flagAndValue, const std::string& name) {
    return frame("04027FFF 00000048 007F0101 00050000 00000001" + id + "00002EE0 00002EE0" + flagAndValue +
                 hexField(name));
}

inline std::string outputReply(const std::string& id, const std::string& flag, const std::string& name) {
    return frame("04027FFF 00000044 007F0102 00050000 00000001" + id + "000004B0" + flag + "00000000" + hexField(name));
}

inline std::string update(const std::string& idFlagValue) {
    return frame("04027FFF 00000024 007F0003 00050000 00000000 00000001" + idFlagValue);
}

inline std::string versionReply(const std::string& simulatorWord, const std::string& versionText,
                                const std::string& protocolVersion) {
    return frame("04027FFF 00000098 007F0106" + simulatorWord + hexField(versionText, 128) + protocolVersion +
                 "00000001");
}

/// A client that the test controls byte by byte.
class Client : public test::ScriptedHost::Peer {
  public:
    /// Throws std::system_error when it cannot connect.
    /// @param receiveBuffer  bytes for SO_RCVBUF; 0 leaves the system's choice.
    explicit Client(std::uint16_t port, const std::string& address = "127.0.0.1", int receiveBuffer = 0)
        : Client(connectTo(port, address, receiveBuffer)) {}

    /// Sends, and returns the next frame.
    std::string ask(const std::string& message) {
        send(message);
        return receiveFrame();
    }

    enum class End { CLOSED, RESET, STILL_OPEN };
    /// Discards received bytes until the connection ends.
    End end() {
        Bytes dropped(65536);
        pollfd entry{descriptor, POLLIN, 0};
        while (poll(&entry, 1, static_cast<int>(kBound.count())) == 1) {
            const ssize_t count = recv(descriptor, dropped.data(), dropped.size(), 0);
            if (count <= 0) {
                return count == 0 ? End::CLOSED : End::RESET;
            }
        }
        return End::STILL_OPEN;
    }

  private:
    explicit Client(int connected) : Peer(connected), descriptor(connected) {}

    static int connectTo(std::uint16_t port, const std::string& address, int receiveBuffer) {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (receiveBuffer > 0) {
            setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        }
        sockaddr_in host{};
        host.sin_family = AF_INET;
        host.sin_port = htons(port);
        host.sin_addr.s_addr = inet_addr(address.c_str());
        if (connect(descriptor, reinterpret_cast<const sockaddr*>(&host), sizeof host) != 0) {
            const std::error_code error(errno, std::system_category());
            ::close(descriptor);
            throw std::system_error(error, "connect");
        }
        return descriptor;
    }

    int descriptor;
};

/// Collects a host's events as text. Must outlive the host. Any thread.
class EventLog {
  public:
    /// Returns the function for HostOptions::eventSink.
    std::function<void(const HostEvent&)> sink() {
        return [this](const HostEvent& event) {
            const std::lock_guard<std::mutex> lock(mutex);
            events.push_back(describe(event));
        };
    }

    /// Waits until an event contains this text. Returns false when the bound passes first.
    bool waitFor(const std::string& part) {
        return test::waitUntil([&] { return has(part); });
    }

    bool has(const std::string& part) { return count(part) > 0; }
    std::size_t count(const std::string& part) {
        const std::vector<std::string> lines = all();
        return static_cast<std::size_t>(std::count_if(
            lines.begin(), lines.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
    }
    std::vector<std::string> all() {
        const std::lock_guard<std::mutex> lock(mutex);
        return events;
    }

  private:
    std::mutex mutex;
    std::vector<std::string> events;  // guarded by mutex
};

/// Has a host, started on first use with `options`, and a log of its events.
class HostTest : public testing::Test {
  protected:
    LoopbackHost& host() {
        if (!startedHost) {
            if (!options.eventSink) {
                options.eventSink = log.sink();
            }
            startedHost = std::make_unique<LoopbackHost>(options);
        }
        return *startedHost;
    }
    Client connect() { return Client(host().port()); }

    /// True when the host answers a version request of this client next.
    static bool isServed(Client& client) { return client.ask(versionRequest()).substr(0, 11) == "00 00 00 B8"; }

    HostOptions options;
    EventLog log;

  private:
    std::unique_ptr<LoopbackHost> startedHost;
};

}  // namespace com_tesk::host_test
