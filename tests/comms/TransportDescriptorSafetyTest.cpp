#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

#include "tests/comms/ForeignPair.h"
#include "tests/comms/OpenTransport.h"
#include "tests/comms/SystemCalls.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

/// An operation on another thread that is held up at the gate of its system call: it has chosen its descriptor, but
/// the system has not got it yet. It goes on when it is let go, or by itself after a while, since who closes may wait
/// for it.
class HeldOperation {
  public:
    template <typename Operation>
    HeldOperation(const std::string& call, Operation operation)
        : thread([this, call, operation] {
              SystemCalls calls;
              calls.before(call, [this] {
                  isHeld = true;
                  eventually([this] { return mayGo.load(); }, std::chrono::milliseconds(200));
                  hasGone = true;
              });
              result = operation();
          }) {}
    HeldOperation(const HeldOperation&) = delete;
    HeldOperation& operator=(const HeldOperation&) = delete;
    ~HeldOperation() { finish(); }

    bool waitForHold() const {
        return eventually([this] { return isHeld.load(); });
    }

    /// Lets it go and waits for its end.
    int finish() {
        mayGo = true;
        if (thread.joinable()) {
            thread.join();
        }
        return result;
    }

    std::atomic<bool> hasGone{false};

  private:
    std::atomic<bool> isHeld{false};
    std::atomic<bool> mayGo{false};
    int result = -99;
    std::thread thread;
};

TEST(TransportDescriptorSafety, AWriteOvertakenByCloseDoesNotReachAForeignDescriptor) {
    OpenTransport open;
    const RawMessage message = messageOf("A1 A2 A3");
    HeldOperation writer("write", [&] { return open.transport.writeMessage(message); });
    ASSERT_TRUE(writer.waitForHold());
    const int descriptor = open.transport.descriptor();
    EXPECT_EQ(open.transport.close(), 0);
    const ForeignPair foreign;
    ASSERT_TRUE(foreign.hasNumber(descriptor)) << "the test could not fail";
    EXPECT_EQ(writer.finish(), -1);
    EXPECT_EQ(foreign.contents(), "1 0");
}

TEST(TransportDescriptorSafety, AReadOvertakenByCloseDoesNotReachAForeignDescriptor) {
    OpenTransport open;
    RawMessage message(RawMessage::DATA);
    HeldOperation reader("read", [&] { return open.transport.readMessage(3, message); });
    ASSERT_TRUE(reader.waitForHold());
    const int descriptor = open.transport.descriptor();
    EXPECT_EQ(open.transport.close(), 0);
    const ForeignPair foreign;
    ASSERT_TRUE(foreign.hasNumber(descriptor)) << "the test could not fail";
    EXPECT_LE(reader.finish(), 0);
    EXPECT_EQ(foreign.contents(), "1 0");
    EXPECT_EQ(hexText(message), "00 00 00");
}

TEST(TransportDescriptorSafety, AWriteOvertakenByDestructionDoesNotReachAForeignDescriptor) {
    ScriptedHost host;
    auto transport = std::make_unique<VisibleTransport>();
    ASSERT_TRUE(transport->openConnection(ScriptedHost::address(), host.port()));
    const RawMessage message = messageOf("A1 A2 A3");
    VisibleTransport& used = *transport;
    HeldOperation writer("write", [&] { return used.writeMessage(message); });
    ASSERT_TRUE(writer.waitForHold());
    const int descriptor = transport->descriptor();
    transport.reset();
    const ForeignPair foreign;
    ASSERT_TRUE(foreign.hasNumber(descriptor)) << "the test could not fail";
    EXPECT_EQ(writer.finish(), -1);
    EXPECT_EQ(foreign.contents(), "1 0");
}

TEST(TransportDescriptorSafety, AWriteOvertakenByAReopeningDoesNotReachTheNewConnection) {
    OpenTransport open;
    ScriptedHost newHost;
    const RawMessage message = messageOf("A1 A2 A3");
    HeldOperation writer("write", [&] { return open.transport.writeMessage(message); });
    ASSERT_TRUE(writer.waitForHold());
    const int descriptor = open.transport.descriptor();
    ASSERT_TRUE(open.transport.openConnection(ScriptedHost::address(), newHost.port()));
    ASSERT_EQ(open.transport.descriptor(), descriptor) << "the test could not fail";
    writer.finish();
    const auto newPeer = newHost.accept();
    ASSERT_NE(newPeer, nullptr);
    EXPECT_TRUE(newPeer->isQuietFor(std::chrono::milliseconds(50)));
}

TEST(TransportDescriptorSafety, CloseWaitsForAWriteThatIsUnderWay) {
    OpenTransport open;
    const RawMessage message = messageOf("A1");
    HeldOperation writer("write", [&] { return open.transport.writeMessage(message); });
    ASSERT_TRUE(writer.waitForHold());
    open.transport.close();
    EXPECT_TRUE(writer.hasGone);
}

TEST(TransportDescriptorSafety, AWriteThatComesWhileCloseWaitsIsTurnedAwayAtOnce) {
    OpenTransport open;
    const RawMessage message = messageOf("A1");
    HeldOperation writer("write", [&] { return open.transport.writeMessage(message); });
    ASSERT_TRUE(writer.waitForHold());
    std::thread closer([&] { open.transport.close(); });
    EXPECT_TRUE(eventually([&] { return open.transport.descriptor() == -1; }));
    {
        SystemCalls calls;
        EXPECT_EQ(open.transport.writeMessage(message), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(calls.text(), "");
    }
    EXPECT_EQ(open.transport.close(), -1);
    closer.join();
    writer.finish();
}

TEST(TransportDescriptorSafety, AnUnopenedTransportTouchesNoDescriptor) {
    VisibleTransport transport;
    const RawMessage sent = messageOf("A1");
    RawMessage received(RawMessage::DATA);
    SystemCalls calls;
    EXPECT_EQ(transport.writeMessage(sent), -1);
    EXPECT_EQ(transport.readMessage(1, received), -1);
    EXPECT_EQ(calls.text(), "");
}

/// What another thread sees of a transport whose connect takes its time.
struct SlowConnect : testing::Test {
    SlowConnect()
        : opener("connect", [this] { return transport.openConnection(ScriptedHost::address(), host.port()) ? 1 : 0; }) {
    }

    ScriptedHost host;
    VisibleTransport transport;
    HeldOperation opener;
};

TEST_F(SlowConnect, DoesNotHoldCloseUp) {
    ASSERT_TRUE(opener.waitForHold());
    EXPECT_EQ(transport.close(), -1);
    EXPECT_FALSE(opener.hasGone);
    // There is no socket before the connection stands, so this close has closed nothing.
    EXPECT_EQ(opener.finish(), 1);
    EXPECT_EQ(transport.close(), 0);
}

TEST_F(SlowConnect, TurnsAWriterAwayAtOnce) {
    ASSERT_TRUE(opener.waitForHold());
    EXPECT_EQ(transport.writeMessage(messageOf("A1")), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(opener.hasGone);
    EXPECT_EQ(opener.finish(), 1);
}

}  // namespace
}  // namespace com_tesk::test
