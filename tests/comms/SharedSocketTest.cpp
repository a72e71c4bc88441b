#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <memory>

#include "tests/comms/BothTransports.h"

namespace com_tesk::test {
namespace {

/// Another descriptor of the same socket, as a forked child has it.
class Copy {
  public:
    explicit Copy(int original) : descriptor(fcntl(original, F_DUPFD_CLOEXEC, 0)) { EXPECT_GE(descriptor, 0); }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;
    ~Copy() { ::close(descriptor); }

  private:
    const int descriptor;
};

template <typename Transport>
class SharedSocket : public ConnectedTransport<Transport> {
  protected:
    void SetUp() override { this->connect(); }
};

TYPED_TEST_SUITE(SharedSocket, BothTransports, TransportNames);

TYPED_TEST(SharedSocket, IsEndedForTheHostByClose) {
    const Copy copy(this->transport.descriptor());
    EXPECT_EQ(this->transport.close(), 0);
    EXPECT_TRUE(this->peer->waitForEnd(std::chrono::seconds(2)));
}

TYPED_TEST(SharedSocket, IsEndedForTheHostByTheNextOpening) {
    const auto old = std::move(this->peer);
    const Copy copy(this->transport.descriptor());
    this->connect();
    EXPECT_TRUE(old->waitForEnd(std::chrono::seconds(2)));
}

TYPED_TEST(SharedSocket, IsEndedForTheHostByDestruction) {
    auto destroyed = std::make_unique<TypeParam>();
    ASSERT_TRUE(destroyed->openConnection(ScriptedHost::address(), this->host.port()));
    const auto itsPeer = this->host.accept();
    ASSERT_TRUE(itsPeer);
    const Copy copy(destroyed->descriptor());
    destroyed.reset();
    EXPECT_TRUE(itsPeer->waitForEnd(std::chrono::seconds(2)));
}

TYPED_TEST(SharedSocket, IsEndedForTheHostAlsoWhileAForkedChildHasIt) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        pause();
        _exit(0);
    }
    EXPECT_EQ(this->transport.close(), 0);
    EXPECT_TRUE(this->peer->waitForEnd(std::chrono::seconds(2)));
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

}  // namespace
}  // namespace com_tesk::test
