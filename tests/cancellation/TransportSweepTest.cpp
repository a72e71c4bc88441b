// Cancels a thread at every cancellation point of every operation of a transport.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "comms/CSCommsInterfaceTCP.h"
#include "tests/cancellation/Scene.h"
#include "tests/comms/BufferedPair.h"
#include "tests/message/MessageOf.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

constexpr int kMaxPoints = 100;

/// A transport that is connected to a peer.
struct Pair {
    explicit Pair(bool isBuffered) : transport(newTransport(isBuffered)) {}

    void connect() {
        ASSERT_TRUE(transport->openConnection(ScriptedHost::address(), host.port()));
        peer = host.accept();
        ASSERT_TRUE(peer);
    }

    ScriptedHost host;
    std::unique_ptr<CSCommsInterfaceTCP> transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
    RawMessage received{RawMessage::DATA};
};

struct TransportOperation {
    const char* name;
    void (*prepare)(Pair& pair);
    void (*operate)(Pair& pair);
    /// What the peer does while the thread waits in its first `poll`.
    void (*meanwhile)(Pair& pair) = nullptr;
    ThreadScript::Writes writes = ThreadScript::Writes::WHOLE;

    // What a failed test prints.
    friend void PrintTo(const TransportOperation& printed, std::ostream* stream) { *stream << printed.name; }
};

void connect(Pair& pair) {
    pair.connect();
}

void write(Pair& pair) {
    pair.transport->writeMessage(messageOf("01 02 03 04 05 06 07 08"));
}

/// More than the buffered transport reads ahead.
constexpr std::size_t kLargeBody = 40'000;

const TransportOperation kOperations[] = {
    {"Opening", [](Pair&) {},
     [](Pair& pair) { pair.transport->openConnection(ScriptedHost::address(), pair.host.port()); }},
    {"OpeningAgain", connect,
     [](Pair& pair) { pair.transport->openConnection(ScriptedHost::address(), pair.host.port()); }},
    {"OpeningInVain", [](Pair& pair) { pair.host.stopListening(); },
     [](Pair& pair) { pair.transport->openConnection(ScriptedHost::address(), pair.host.port()); }},
    {"Closing", connect, [](Pair& pair) { pair.transport->close(); }},
    {"Interrupting", connect, [](Pair& pair) { pair.transport->setInterrupted(true); }},
    {"Destroying", connect, [](Pair& pair) { pair.transport.reset(); }},
    {"Reading",
     [](Pair& pair) {
         pair.connect();
         pair.peer->send("01 02");
     },
     [](Pair& pair) { pair.transport->readMessage(2, pair.received); }},
    {"ReadingNothing", connect, [](Pair& pair) { pair.transport->readMessage(32, pair.received); }},
    {"ReadingWhileInterrupted",
     [](Pair& pair) {
         pair.connect();
         pair.transport->setInterrupted(true);
     },
     [](Pair& pair) { pair.transport->readMessage(32, pair.received); }},
    {"ReadingAPart",
     [](Pair& pair) {
         pair.connect();
         pair.peer->send("01");
     },
     [](Pair& pair) { pair.transport->readMessage(2, pair.received); }, [](Pair& pair) { pair.peer->send("02"); }},
    {"ReadingPartOfALargeBody",
     [](Pair& pair) {
         pair.connect();
         pair.peer->send(Bytes(kLargeBody - 1));
     },
     [](Pair& pair) { pair.transport->readMessage(kLargeBody, pair.received); },
     [](Pair& pair) { pair.peer->send("02"); }},
    {"Writing", connect, write},
    {"WritingInVain", connect, write, nullptr, ThreadScript::Writes::FAILING},
    {"WritingInHalves", connect, write, nullptr, ThreadScript::Writes::HALVED},
    {"WritingInHalvesWhatIsAnswered", connect, write, [](Pair& pair) { pair.peer->send("01 02 03"); },
     ThreadScript::Writes::HALVED},
};

using Parameters = std::tuple<TransportOperation, bool>;

class TransportCancellation : public testing::TestWithParam<Parameters> {
  protected:
    static const TransportOperation& operation() { return std::get<TransportOperation>(GetParam()); }
    static bool isBuffered() { return std::get<bool>(GetParam()); }

    /// The transport opens, writes, reads and closes as if nothing had happened.
    static void expectUsable(Pair& pair) {
        if (pair.transport == nullptr) {
            return;
        }
        pair.transport->setInterrupted(false);
        pair.peer.reset();
        // A listener of its own, because connections that nobody has accepted may wait at the other one.
        ScriptedHost other;
        ASSERT_TRUE(pair.transport->openConnection(ScriptedHost::address(), other.port()));
        pair.peer = other.accept();
        ASSERT_TRUE(pair.peer);
        EXPECT_EQ(pair.transport->writeMessage(messageOf("01 02 03")), 3);
        EXPECT_EQ(hexText(pair.peer->receive(3)), "01 02 03");
        pair.peer->send("04 05");
        RawMessage message(RawMessage::DATA);
        int result = -2;
        ASSERT_TRUE(waitUntil([&] {
            message.clear();
            result = pair.transport->readMessage(2, message);
            return result != -2;
        }));
        EXPECT_EQ(result, 2);
        EXPECT_EQ(hexText(message), "04 05");
        EXPECT_EQ(pair.transport->close(), 0);
        EXPECT_TRUE(pair.peer->waitForEnd());
    }

    /// @return whether the point was reached.
    static bool cancelAt(int point) {
        Pair pair(isBuffered());
        operation().prepare(pair);
        ApplicationThread thread([&pair] { operation().operate(pair); });
        thread.script.cancelAt = point;
        thread.script.writes = operation().writes;
        if (operation().meanwhile != nullptr) {
            thread.script.inPoll = [&pair] { operation().meanwhile(pair); };
        }
        thread.run();
        SCOPED_TRACE(std::string(thread.hasReturned() ? "returned after " : "cancelled at ") + thread.script.lastPoint);
        if (isBuffered() && !thread.hasReturned() && thread.script.writeCalls > 0) {
            // Half a frame may have left, so nothing follows on that connection.
            EXPECT_EQ(pair.transport->writeMessage(messageOf("FF FF")), -1);
            EXPECT_LT(pair.peer->receive(8).size(), 8U);
        }
        expectUsable(pair);
        return thread.script.points >= point;
    }

    const CancellableStreams streams;
};

TEST_P(TransportCancellation, LeavesAWorkingTransport) {
    const std::size_t descriptors = openDescriptors();
    int point = 1;
    while (point < kMaxPoints && cancelAt(point) && !HasFailure()) {
        ++point;
    }
    EXPECT_LT(point, kMaxPoints);
    EXPECT_FALSE(HasFailure()) << "at cancellation point " << point;
    EXPECT_EQ(openDescriptors(), descriptors);
    RecordProperty("points", point - 1);
}

std::string caseName(const testing::TestParamInfo<Parameters>& info) {
    return std::string(std::get<TransportOperation>(info.param).name) +
           (std::get<bool>(info.param) ? "Buffered" : "Standard");
}

INSTANTIATE_TEST_SUITE_P(Of, TransportCancellation, testing::Combine(testing::ValuesIn(kOperations), testing::Bool()),
                         caseName);

}  // namespace
}  // namespace com_tesk::test
