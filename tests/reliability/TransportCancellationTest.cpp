// Cancels a thread at every cancellation point of every operation of a transport.

#include <ostream>
#include <string>
#include <tuple>

#include "tests/reliability/CancellationFixture.h"

namespace com_tesk::test {
namespace {

using Pair = TransportPair;

struct TransportOperation {
    const char* name;
    void (*prepare)(Pair& pair);
    void (*call)(Pair& pair);
    /// What the peer does while the thread waits in its first `poll`.
    void (*duringPoll)(Pair& pair) = nullptr;
    ThreadScript::Writes writes = ThreadScript::Writes::WHOLE;

    // What a failed test prints.
    friend void PrintTo(const TransportOperation& printed, std::ostream* stream) { *stream << printed.name; }
};

void connect(Pair& pair) {
    pair.connect();
}

void open(Pair& pair) {
    pair.transport->openConnection(ScriptedHost::address(), pair.host.port());
}

void write(Pair& pair) {
    pair.transport->writeMessage(messageOf(hex("01 02 03 04 05 06 07 08")));
}

template <unsigned int Count>
void read(Pair& pair) {
    pair.transport->readMessage(Count, pair.received);
}

/// Connects; the peer sends so many bytes.
template <std::size_t Count>
void connectAndSend(Pair& pair) {
    pair.connect();
    pair.peer->send(Bytes(Count));
}

/// More than the buffered transport reads ahead.
constexpr unsigned int kLargeBody = 40'000;

const TransportOperation kTransportOperations[] = {
    {"Opening", [](Pair& /*pair*/) {}, open},
    {"OpeningAgain", connect, open},
    {"OpeningARefusingPort", [](Pair& pair) { pair.host.stopListening(); }, open},
    {"Closing", connect, [](Pair& pair) { pair.transport->close(); }},
    {"Interrupting", connect, [](Pair& pair) { pair.transport->setInterrupted(true); }},
    {"Destroying", connect, [](Pair& pair) { pair.transport.reset(); }},
    {"Reading", connectAndSend<2>, read<2>},
    {"ReadingNothing", connect, read<32>},
    {"ReadingWhileInterrupted",
     [](Pair& pair) {
         pair.connect();
         pair.transport->setInterrupted(true);
     },
     read<32>},
    {"ReadingAPart", connectAndSend<1>, read<2>, [](Pair& pair) { pair.peer->send("02"); }},
    {"ReadingPartOfALargeBody", connectAndSend<kLargeBody - 1>, read<kLargeBody>,
     [](Pair& pair) { pair.peer->send("02"); }},
    {"Writing", connect, write},
    {"WritingWhatFails", connect, write, nullptr, ThreadScript::Writes::FAILING},
    {"WritingInHalves", connect, write, nullptr, ThreadScript::Writes::HALVED},
    {"WritingInHalvesWhatIsAnswered", connect, write, [](Pair& pair) { pair.peer->send("01 02 03"); },
     ThreadScript::Writes::HALVED},
};

class TransportCancellation : public testing::TestWithParam<std::tuple<TransportOperation, TransportKind>> {
  protected:
    static const TransportOperation& operation() { return std::get<TransportOperation>(GetParam()); }
    static const TransportKind& kind() { return std::get<TransportKind>(GetParam()); }

    /// Expects that the transport opens, writes, reads and closes.
    static void expectUsable(Pair& pair) {
        pair.transport->setInterrupted(false);
        pair.peer.reset();
        // Connections that the test has not accepted may wait at the other host.
        ScriptedHost other;
        ASSERT_TRUE(pair.transport->openConnection(ScriptedHost::address(), other.port()));
        pair.peer = other.accept();
        ASSERT_TRUE(pair.peer);
        EXPECT_EQ(pair.transport->writeMessage(messageOf(hex("01 02 03"))), 3);
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

    /// Returns whether the operation has that cancellation point.
    static bool cancelAt(int point) {
        Pair pair(kind().newTransport());
        operation().prepare(pair);
        ApplicationThread thread([&pair] { operation().call(pair); });
        thread.script.cancelAt = point;
        thread.script.writes = operation().writes;
        if (operation().duringPoll != nullptr) {
            thread.script.duringPoll = [&pair] { operation().duringPoll(pair); };
        }
        thread.run();
        SCOPED_TRACE(thread.text());
        if (kind().isBuffered && !thread.hasReturned() && thread.script.writeCalls > 0) {
            // Half a frame may have left, so nothing follows on that connection.
            EXPECT_EQ(pair.transport->writeMessage(messageOf(hex("FF FF"))), -1);
            EXPECT_LT(pair.peer->receive(8).size(), 8U);
        }
        if (pair.transport != nullptr) {
            expectUsable(pair);
        }
        return thread.script.points >= point;
    }

    const RedirectedStreams streams{
        [](const char* /*text*/, std::size_t /*size*/) { passCancellationPoint("stream"); }};
};

TEST_P(TransportCancellation, LeavesAWorkingTransport) {
    cancelAtEachPoint(&cancelAt);
}

INSTANTIATE_TEST_SUITE_P(In, TransportCancellation,
                         testing::Combine(testing::ValuesIn(kTransportOperations),
                                          testing::Values(kStandard, kBuffered)),
                         [](const auto& tested) {
                             return std::string(std::get<0>(tested.param).name) + std::get<1>(tested.param).name;
                         });

}  // namespace
}  // namespace com_tesk::test
