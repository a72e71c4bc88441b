#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "tests/support/ChildProcess.h"
#include "tests/support/OwnAddress.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

/// The port that the publisher connects to.
constexpr unsigned int kPublisherPort = 55580;

// Bodies of the publisher's requests with simulator id 1.

inline std::string registrationOf(const std::string& name) {
    return "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 " + hexField(name);
}

/// @param valueHex  the hex text of the value's 32 bits.
inline std::string publicationOf(unsigned int id, const std::string& valueHex) {
    return "04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 " + hexWord(id) + " 00 00 00 00 " +
           valueHex;
}

inline std::string unregistrationOf(unsigned int id) {
    return "04 02 7F FF 00 00 00 18 00 7F 00 05 00 01 00 00 00 00 00 01 " + hexWord(id);
}

/// Returns the frame that confirms one output.
inline std::string confirmationOf(unsigned int id, const std::string& name) {
    return hexFrame("04 02 7F FF 00 00 00 44 00 7F 01 02 00 01 00 00 00 00 00 01 " + hexWord(id) +
                    " 00 00 04 B0 00 00 00 00 00 00 00 00 " + hexField(name));
}

inline std::string versionReply() {
    return hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 01 00 00 " + hexField("Host 2.1", 128) +
                    " 00 00 00 03 00 00 00 01");
}

/// Runs the publisher against a host that the test controls, at an address of this process alone.
class PublisherTest : public testing::Test {
  protected:
    using Arguments = std::vector<std::string>;

    PublisherTest() { listen(); }
    ~PublisherTest() override { stopListening(); }

    /// Runs the publisher as it is installed.
    static ChildProcess runAsBuilt(const Arguments& arguments, const std::string& ownName = "cspublish") {
        return {{CSPUBLISH_PATH, ownName, std::nullopt}, arguments};
    }
    /// Runs the publisher with a slow connection, which makes every byte and line predictable; see SlowConnect.cpp.
    static ChildProcess run(const Arguments& arguments, std::optional<std::size_t> outputSpace = std::nullopt) {
        return {{SLOW_CSPUBLISH_PATH, "cspublish", outputSpace}, arguments};
    }
    /// Waits for the end, and expects the exit code and all that was printed.
    static void expectEnd(ChildProcess& publisher, int exitCode, const std::string& out, const std::string& err) {
        EXPECT_EQ(publisher.exitCode(), exitCode);
        EXPECT_EQ(publisher.outText(), out);
        EXPECT_EQ(publisher.errText(), err);
    }

    void listen() {
        listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int yes = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kPublisherPort);
        address.sin_addr.s_addr = inet_addr(ownAddress().c_str());
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listener, SOMAXCONN) != 0) {
            throw std::system_error(errno, std::generic_category(), ownAddress());
        }
    }
    /// Makes the system refuse connections from now on.
    void stopListening() {
        if (listener >= 0) {
            close(listener);
            listener = -1;
        }
    }

    /// Accepts the next connection as `peer` and expects the version request. Throws when no connection arrives.
    void accept(const std::string& simulatorId = "00 01") {
        pollfd waiting{listener, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(ScriptedHost::kBound.count())) != 1) {
            throw std::runtime_error("no connection arrives");
        }
        peer = std::make_unique<ScriptedHost::Peer>(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        EXPECT_EQ(peer->receiveFrame(),
                  "00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
                  "04 02 7F FF 00 00 00 14 00 7F 00 06 " +
                      simulatorId + " 00 00 00 00 00 00");
    }
    void expectRegistration(const std::string& name) { EXPECT_EQ(peer->receiveBody(), registrationOf(name)); }
    void acceptRegistration(const std::string& name) {
        accept();
        expectRegistration(name);
    }
    /// Expects a registration, confirms it, and expects the publication of its value.
    void expectValue(unsigned int id, const std::string& name, const std::string& valueHex) {
        expectRegistration(name);
        peer->send(confirmationOf(id, name));
        EXPECT_EQ(peer->receiveBody(), publicationOf(id, valueHex));
    }

    std::unique_ptr<ScriptedHost::Peer> peer;

  private:
    int listener = -1;
};

}  // namespace com_tesk::test
