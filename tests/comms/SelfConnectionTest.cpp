#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/comms/BothTransports.h"
#include "tests/comms/SystemCalls.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

int bindTo(int descriptor, const char* address, unsigned int port) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<std::uint16_t>(port));
    own.sin_addr.s_addr = inet_addr(address);
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own);
}

/// Whether a host can have the port now, without any option that would make the system lenient.
bool canListenOn(unsigned int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool can = bindTo(descriptor, "127.0.0.1", port) == 0 && listen(descriptor, 1) == 0;
    ::close(descriptor);
    return can;
}

template <typename Transport>
class SelfConnection : public ConnectedTransport<Transport> {
  protected:
    /// Opens from an own address and port that the system might have chosen.
    bool openFrom(const char* ownAddress, unsigned int ownPort, unsigned int hostPort) {
        SystemCalls calls;
        calls.before("connect #1 AF_INET",
                     [&] { isBound = bindTo(calls.descriptors().front(), ownAddress, ownPort) == 0; });
        errno = 0;
        const bool isOpened = this->transport.openConnection(ScriptedHost::address(), hostPort);
        error = errno;
        closes = calls.textOf("close");
        return isOpened;
    }

    /// Opens from the very address and port that it connects to. Another program may take the port in between.
    bool openToItself() {
        bool isOpened = false;
        isBound = false;
        for (int attempt = 0; attempt < kAttempts && !isBound; ++attempt) {
            freePort = refusingPort();
            isOpened = openFrom("127.0.0.1", freePort, freePort);
        }
        EXPECT_TRUE(isBound) << "the test could not fail";
        return isOpened;
    }

    static constexpr int kAttempts = 20;
    unsigned int freePort = 0;
    bool isBound = false;
    int error = 0;
    std::string closes;
    const CapturedStreams streams;
};

TYPED_TEST_SUITE(SelfConnection, BothTransports, TransportNames);

TYPED_TEST(SelfConnection, IsAFailedAttempt) {
    EXPECT_FALSE(this->openToItself());
    EXPECT_EQ(this->transport.descriptor(), -1);
    EXPECT_EQ(this->closes, "close #1\n");
    EXPECT_EQ(this->transport.close(), -1);
}

TYPED_TEST(SelfConnection, PrintsNothing) {
    EXPECT_FALSE(this->openToItself());
    EXPECT_EQ(this->streams.out() + this->streams.err(), "");
}

TYPED_TEST(SelfConnection, LeavesThePortToAHostAtOnce) {
    EXPECT_FALSE(this->openToItself());
    EXPECT_TRUE(canListenOn(this->freePort));
}

TYPED_TEST(SelfConnection, LeavesTheNextAttemptItsChance) {
    EXPECT_FALSE(this->openToItself());
    this->connect();
    this->peer->send("0A");
    EXPECT_EQ(readOnce(this->transport, 1).bytes, "0A");
}

TYPED_TEST(SelfConnection, IsNoneFromTheSamePortOfAnotherAddress) {
    for (int own = 2; own < 2 + this->kAttempts && !this->isBound; ++own) {
        const std::string address = "127.0.0." + std::to_string(own);
        EXPECT_TRUE(this->openFrom(address.c_str(), this->host.port(), this->host.port()));
    }
    ASSERT_TRUE(this->isBound) << "the test could not fail";
    EXPECT_NE(this->host.accept(), nullptr);
}

}  // namespace
}  // namespace com_tesk::test
