#include <gtest/gtest.h>

#include <cerrno>

#include "tests/comms/OpenTransport.h"
#include "tests/comms/SystemCalls.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

struct TransportWriting : testing::Test {
    OpenTransport open;
};

TEST_F(TransportWriting, SendsAllBytesAndReturnsTheirNumber) {
    EXPECT_EQ(open.transport.writeMessage(messageOf("00 01 7F 80 FF")), 5);
    EXPECT_EQ(hexText(open.peer->receive(5)), "00 01 7F 80 FF");
}

TEST_F(TransportWriting, AddsNothingOfItsOwn) {
    EXPECT_EQ(open.transport.writeMessage(messageOf("A1")), 1);
    EXPECT_EQ(open.transport.writeMessage(messageOf("A2 A3")), 2);
    open.transport.close();
    EXPECT_EQ(hexText(open.peer->receive(10)), "A1 A2 A3");
}

TEST_F(TransportWriting, MakesOneCall) {
    const RawMessage message = messageOf("01 02 03 04");
    SystemCalls calls;
    EXPECT_EQ(open.transport.writeMessage(message), 4);
    EXPECT_EQ(calls.text(), "write #? 4\n");
}

TEST_F(TransportWriting, OfAnEmptyMessageSendsNothing) {
    EXPECT_EQ(open.transport.writeMessage(messageOf("")), 0);
    EXPECT_TRUE(open.peer->isQuietFor(std::chrono::milliseconds(20)));
}

TEST_F(TransportWriting, LeavesTheMessageUnchanged) {
    const RawMessage message = messageOf("01 02 03 04");
    open.transport.writeMessage(message);
    EXPECT_EQ(hexText(message), "01 02 03 04");
}

TEST_F(TransportWriting, DoesNotCompleteAShortWrite) {
    const RawMessage message = messageOf("01 02 03 04");
    SystemCalls calls;
    calls.answer("write", 3, 0);
    EXPECT_EQ(open.transport.writeMessage(message), 3);
    EXPECT_EQ(calls.text(), "write #? 4\n");
}

TEST_F(TransportWriting, DoesNotTryAgainAfterAnInterruption) {
    const RawMessage message = messageOf("01 02 03 04");
    SystemCalls calls;
    calls.fail("write", EINTR);
    EXPECT_EQ(open.transport.writeMessage(message), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(calls.text(), "write #? 4\n");
}

TEST_F(TransportWriting, ReturnsMinusOneWhenTheSendTimeOutPasses) {
    const RawMessage message = messageOf("01 02 03 04");
    SystemCalls calls;
    calls.fail("write", EAGAIN);
    EXPECT_EQ(open.transport.writeMessage(message), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(TransportWriting, PrintsNothingAndKeepsTheSocketWhenItFails) {
    const CapturedStreams streams;
    const RawMessage message = messageOf("01 02 03 04");
    {
        SystemCalls calls;
        calls.fail("write", EIO);
        EXPECT_EQ(open.transport.writeMessage(message), -1);
        EXPECT_EQ(calls.textOf("close"), "");
    }
    EXPECT_EQ(streams.out() + streams.err(), "");
    EXPECT_EQ(open.transport.writeMessage(message), 4);
    EXPECT_EQ(hexText(open.peer->receive(4)), "01 02 03 04");
}

TEST_F(TransportWriting, ToAConnectionThatThePeerHasDroppedFailsAndTheProcessLives) {
    open.peer->reset();
    const RawMessage message = messageOf("01 02 03 04");
    EXPECT_TRUE(eventually([&] { return open.transport.writeMessage(message) == -1; }));
    // The first failure reports the reset; it is the next one that would raise SIGPIPE.
    EXPECT_EQ(open.transport.writeMessage(message), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_GE(open.transport.descriptor(), 0);
    EXPECT_EQ(open.transport.close(), 0);
}

TEST_F(TransportWriting, ReturnsMinusOneAfterClose) {
    open.transport.close();
    const RawMessage message = messageOf("01");
    SystemCalls calls;
    EXPECT_EQ(open.transport.writeMessage(message), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(TransportWriting, WorksAgainAfterReopening) {
    open.transport.close();
    ASSERT_TRUE(open.transport.openConnection(ScriptedHost::address(), open.host.port()));
    const auto peer = open.host.accept();
    ASSERT_NE(peer, nullptr);
    EXPECT_EQ(open.transport.writeMessage(messageOf("A1 A2")), 2);
    EXPECT_EQ(hexText(peer->receive(2)), "A1 A2");
}

TEST(TransportWritingUnopened, ReturnsMinusOne) {
    VisibleTransport transport;
    EXPECT_EQ(transport.writeMessage(messageOf("01")), -1);
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace com_tesk::test
