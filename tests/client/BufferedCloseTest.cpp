// Over the buffered transport, closing and destroying a client end at once whatever the worker waits for.

#include <atomic>
#include <exception>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/client/ClientFixtures.h"
#include "tests/support/BlackHole.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

/// With this send buffer, writes soon block.
const CSClient::ConnectionOptions kSmallSendBuffer{0, 4'096};

std::vector<CSClient::OutputDef> manyOutputs(int count) {
    std::vector<CSClient::OutputDef> definitions;
    for (int i = 0; i < count; ++i) {
        definitions.push_back(output("output " + std::to_string(i)));
    }
    return definitions;
}

/// A session over the buffered transport in a situation that it does not leave by itself.
class StuckSession : public ScriptedSession {
  public:
    explicit StuckSession(unsigned int options) : ScriptedSession(options | kSilent) {
        EXPECT_TRUE(
            client->changeCommsInterface(new CSCommsInterfaceTCPBuffered(CSCommsInterfaceTCPBuffered::Options())));
    }
    ~StuckSession() {
        if (client) {
            client->close();  // Ends the operations of the threads.
        }
        joinAll();
        client.reset();  // The streams stay captured until its threads have ended.
    }

    void joinAll() {
        isOver = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
    }

    /// Sends bytes of a frame that does not end, and gives the client time to read them.
    void stallAfter(const std::string& hexBytes) {
        ASSERT_NO_FATAL_FAILURE(connect());
        peer->send(hexBytes);
        std::this_thread::sleep_for(milliseconds(100));
    }

    /// Waits for the beginning of a frame, and reads no more of it.
    void waitForABlockedWrite() {
        ASSERT_EQ(peer->receive(32).size(), 32U);
        std::this_thread::sleep_for(milliseconds(100));
        ASSERT_FALSE(hasReturned);
    }

    /// Sends a frame again and again until the connection ends.
    void sendWithoutEnd(const std::string& bodyHex) {
        threads.emplace_back([this, frame = hex(hexFrame(bodyHex))] {
            try {
                while (!isOver) {
                    peer->send(frame);
                }
            } catch (const std::exception&) {
                // The client has closed.
            }
        });
    }

    /// The worker must end while `close` sleeps for the first time.
    void expectEndAtOnce() const { EXPECT_EQ(closeWithoutSleeping(*client), CSClient::STATE_DISCONNECTED); }

    /// The worker must end while the destructor sleeps for the first time.
    void expectEndAtOnceByTheDestructor() {
        const SimClient& destroyed = *client;
        const CountedSleeps sleeps([&](int) { EXPECT_TRUE(waitForState(destroyed, CSClient::STATE_DISCONNECTED)); });
        client.reset();
        EXPECT_LE(sleeps.count(), 1);
    }

    void connectToBlackHole() {
        hole = std::make_unique<BlackHole>();
        ASSERT_EQ(client->open(BlackHole::host(), hole->port(), nullptr), 0);
    }

    CapturedStreams captured;
    std::unique_ptr<BlackHole> hole;
    std::atomic<bool> isOver{false};
    /// True while a thread of the test is inside an operation of the client.
    bool isInsideAnOperation = false;
    /// True when the operation that is to block has returned.
    std::atomic<bool> hasReturned{false};
    std::vector<std::thread> threads;
};

constexpr char kRestOfHeader[] =
    " 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF ";

void receiveUpdatesWithoutEnd(StuckSession& session) {
    session.callbacks.onLine = [](const std::string& line) {
        if (line == "updated A=float:1.5") {
            std::this_thread::sleep_for(milliseconds(5));
        }
    };
    ASSERT_NO_FATAL_FAILURE(session.connect());
    ASSERT_EQ(session.client->registerInputParameter(input("A")), 0);
    session.peer->receiveFrame();
    session.peer->send(hexFrame(inputsConfirmed({{7, "A"}})));
    session.sendWithoutEnd(update(1, {updated(7, 0, "3F C0 00 00")}));
    ASSERT_TRUE(session.callbacks.waitFor("updated A=float:1.5", 10));
}

void blockInARegistration(StuckSession& session) {
    ASSERT_NO_FATAL_FAILURE(session.connect(&kSmallSendBuffer));
    // This waits until the change to ready is complete. A later registration is sent by the thread that registers.
    ASSERT_EQ(session.client->open(ScriptedHost::address(), session.host.port(), nullptr), 2);
    session.isInsideAnOperation = true;
    session.threads.emplace_back([&session] {
        session.client->registerOutputParameters(manyOutputs(8'000));
        session.hasReturned = true;
    });
    session.waitForABlockedWrite();
}

void blockInAReregistration(StuckSession& session) {
    ASSERT_EQ(session.client->registerOutputParameters(manyOutputs(8'000)), 0);
    ASSERT_NO_FATAL_FAILURE(session.connect(&kSmallSendBuffer));
    session.waitForABlockedWrite();
}

struct Situation {
    const char* name;
    std::function<void(StuckSession&)> arrange;
};

Situation stall(const char* name, const std::string& hexBytes) {
    return {name, [hexBytes](StuckSession& session) { session.stallAfter(hexBytes); }};
}

const Situation kSituations[] = {
    stall("SilentHost", ""),
    stall("StallInHeader", "00 00 00 2C 00"),
    stall("StallBetweenHeaderAndBody", std::string("00 00 00 2C") + kRestOfHeader),
    stall("StallInBody", std::string("00 00 00 2C") + kRestOfHeader + "04 02"),
    stall("StallInLargeBody", std::string("00 10 00 00") + kRestOfHeader + hexText(Bytes(50'000))),
    stall("FourGibibytesAnnounced", std::string("FF FF FF FF") + kRestOfHeader + "04 02"),
    {"UpdatesWithoutEnd", receiveUpdatesWithoutEnd},
    {"RegistrationBlockedInItsWrite", blockInARegistration},
    {"ReregistrationBlockedInItsWrite", blockInAReregistration},
    {"ConnectHangs",
     [](StuckSession& session) {
         session.connectToBlackHole();
         std::this_thread::sleep_for(milliseconds(100));
     }},
    {"ConnectBegins", [](StuckSession& session) { session.connectToBlackHole(); }},
};

class BufferedClose : public testing::TestWithParam<std::tuple<Situation, unsigned int>> {
  protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(std::get<0>(GetParam()).arrange(session)); }

    StuckSession session{std::get<1>(GetParam())};
};

INSTANTIATE_TEST_SUITE_P(In, BufferedClose,
                         testing::Combine(testing::ValuesIn(kSituations), testing::Values(0U, kReconnect)),
                         [](const auto& parameters) {
                             return std::string(std::get<0>(parameters.param).name) +
                                    (std::get<1>(parameters.param) == 0 ? "" : "WithReconnect");
                         });

TEST_P(BufferedClose, EndsAtOnceAndTheClientCanBeDestroyedWithoutAPause) {
    session.expectEndAtOnce();
    EXPECT_EQ(session.client->getConnectionState(), CSClient::STATE_DISCONNECTED);
    session.joinAll();
    const CountedSleeps sleeps;
    session.client.reset();
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_P(BufferedClose, ByTheDestructorEndsAtOnce) {
    session.isOver = true;
    if (session.isInsideAnOperation) {
        // Destruction must not begin while another thread is inside the client.
        session.expectEndAtOnce();
        session.joinAll();
    }
    session.expectEndAtOnceByTheDestructor();
}

TEST_P(BufferedClose, LeavesAClientThatCanBeOpenedAgain) {
    ASSERT_EQ(session.client->close(), CSClient::STATE_DISCONNECTED);
    session.joinAll();
    ScriptedHost other;
    ASSERT_EQ(session.client->open(ScriptedHost::address(), other.port(), nullptr), 0);
    const auto newPeer = other.accept();
    ASSERT_TRUE(newPeer);
    EXPECT_EQ(newPeer->receiveFrame().substr(0, 11), "00 00 00 34");
    EXPECT_TRUE(newPeer->isQuietFor(milliseconds(50))) << "closing has erased every registration";
    EXPECT_TRUE(session.client->waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(session.client->close(), CSClient::STATE_DISCONNECTED);
}

/// The pauses between attempts to connect last half a minute longer, unless the client ends them.
class BufferedPause : public testing::Test {
  protected:
    void openAndWaitForAPause() {
        session.host.stopListening();
        ASSERT_NO_FATAL_FAILURE(session.open());
        ASSERT_TRUE(LongPauses::waitForOne());
    }

    /// Loses the connection, and has the next attempt refused.
    void lose() {
        session.host.stopListening();
        session.peer->reset();
    }

    StuckSession session{kReconnect};
    const LongPauses pauses;
};

TEST_F(BufferedPause, AfterALossIsEndedByClose) {
    ASSERT_NO_FATAL_FAILURE(session.connect());
    lose();
    ASSERT_TRUE(session.callbacks.waitFor("state 5->1"));
    ASSERT_TRUE(LongPauses::waitForOne());
    session.expectEndAtOnce();
}

TEST_F(BufferedPause, DoesNotBeginWhenCloseComesRightAfterALoss) {
    ASSERT_NO_FATAL_FAILURE(session.connect());
    lose();
    ASSERT_TRUE(session.callbacks.waitFor("state 4->5"));
    session.expectEndAtOnce();
}

TEST_F(BufferedPause, AfterALossInAReregistrationIsEndedByClose) {
    ASSERT_EQ(session.client->registerOutputParameters(manyOutputs(20'000)), 0);
    ASSERT_NO_FATAL_FAILURE(session.connect(&kSmallSendBuffer));
    ASSERT_EQ(session.peer->receive(32).size(), 32U) << "the re-registration has begun";
    lose();
    session.expectEndAtOnce();
}

TEST_F(BufferedPause, IsEndedByTheDestructor) {
    ASSERT_NO_FATAL_FAILURE(openAndWaitForAPause());
    session.expectEndAtOnceByTheDestructor();
}

TEST_F(BufferedPause, LastsItsTimeAgainAfterTheNextOpening) {
    ASSERT_NO_FATAL_FAILURE(openAndWaitForAPause());
    session.expectEndAtOnce();
    const LongPauses countedAgain;
    ASSERT_NO_FATAL_FAILURE(openAndWaitForAPause());
    session.host.listenAgain();
    EXPECT_EQ(session.host.accept(milliseconds(300)), nullptr) << "an ended pause does not end the next";
    session.expectEndAtOnce();
}

}  // namespace
}  // namespace com_tesk::test
