#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"
#include "tests/support/BlackHole.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

/// What closing and destroying may take in every situation.
constexpr double kInTime = 2.0;

/// Callbacks that take their time over updates.
class SlowCallbacks : public RecordingCallbacks {
  public:
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override {
        ++updates;
        std::this_thread::sleep_for(milliseconds(5));
    }

    std::atomic<int> updates{0};
};

/// A client with the buffered transport in a situation that it cannot leave by itself.
class Stuck {
  public:
    explicit Stuck(unsigned int options) : client(std::make_unique<SimClient>(1, options | CSClient::OPTION_SILENT)) {
        EXPECT_TRUE(
            client->changeCommsInterface(new CSCommsInterfaceTCPBuffered(CSCommsInterfaceTCPBuffered::Options())));
        client->addCallbackInterface(&callbacks);
    }
    ~Stuck() {
        if (client) {
            client->close();  // Lets the threads out.
        }
        joinAll();
    }

    void joinAll() {
        isOver = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
    }

    void open(const CSClient::ConnectionOptions* connectionOptions = nullptr) {
        ASSERT_EQ(client->open(ScriptedHost::address(), host.port(), connectionOptions), 0);
    }

    /// Connects, and takes the version request.
    void connect(const CSClient::ConnectionOptions* connectionOptions = nullptr) {
        open(connectionOptions);
        peer = host.accept();
        ASSERT_TRUE(peer);
        peer->receiveFrame();
        ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    }

    /// Waits until the change to ready is complete: what is registered from then on is sent by the thread that registers.
    void waitForTheChange() { ASSERT_EQ(client->open(ScriptedHost::address(), host.port(), nullptr), 2); }

    /// Sends bytes of a frame that does not come to an end, and lets the client take them in.
    void stallAfter(const std::string& hexBytes) {
        connect();
        peer->send(hexBytes);
        std::this_thread::sleep_for(milliseconds(100));
    }

    /// Waits for the beginning of a frame, and reads no more of it.
    void waitForABlockedWrite() {
        ASSERT_EQ(peer->receive(32).size(), 32U);
        std::this_thread::sleep_for(milliseconds(100));
        ASSERT_FALSE(hasReturned);
    }

    /// Sends frame after frame, until the connection has ended.
    void flood(const std::function<Bytes(unsigned int)>& frameNumber) {
        threads.emplace_back([this, frameNumber] {
            try {
                for (unsigned int i = 0; !isOver; ++i) {
                    peer->send(frameNumber(i));
                }
            } catch (const std::exception&) {
                // The client has closed.
            }
        });
    }

    CapturedStreams captured;
    ScriptedHost host;
    SlowCallbacks callbacks;
    std::unique_ptr<ScriptedHost::Peer> peer;
    std::unique_ptr<BlackHole> hole;
    std::atomic<bool> isOver{false};
    /// Whether a thread of the test is inside an operation of the client.
    bool isInsideAnOperation = false;
    /// Whether the operation that is to be blocked has returned.
    std::atomic<bool> hasReturned{false};
    std::vector<std::thread> threads;
    std::unique_ptr<SimClient> client;
};

constexpr char kRestOfHeader[] = " 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";

Bytes floodedUpdate() {
    return hex(
        hexFrame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 "
                 "00 00 00 07 00 00 00 00 3F C0 00 00"));
}

/// A version response that says: you are simulator `id`.
Bytes otherId(unsigned int id) {
    return hex(hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 " + hexWord(id << 16U) + ' ' + hexField("4.4.1", 128) +
                        ' ' + hexWord(1) + ' ' + hexWord(1)));
}

std::vector<CSClient::OutputDef> manyOutputs() {
    constexpr int kMany = 8'000;  // 352,000 bytes of request.
    std::vector<CSClient::OutputDef> definitions;
    definitions.reserve(kMany);
    for (int i = 0; i < kMany; ++i) {
        definitions.push_back({"output " + std::to_string(i), CSClient::TYPE_FLOAT});
    }
    return definitions;
}

/// Options with which writes block soon.
const CSClient::ConnectionOptions kSmallSendBuffer{0, 4'096};

struct Situation {
    const char* name;
    std::function<void(Stuck&)> arrange;
};

std::vector<Situation> situations() {
    return {
        {"QuietHost", [](Stuck& stuck) { stuck.connect(); }},
        {"StallInHeader", [](Stuck& stuck) { stuck.stallAfter("00 00 00 2C 00"); }},
        {"StallBetweenHeaderAndBody",
         [](Stuck& stuck) { stuck.stallAfter(std::string("00 00 00 2C") + kRestOfHeader); }},
        {"StallInBody", [](Stuck& stuck) { stuck.stallAfter(std::string("00 00 00 2C") + kRestOfHeader + " 04 02"); }},
        {"StallInLargeBody",
         [](Stuck& stuck) {
             stuck.stallAfter(std::string("00 10 00 00") + kRestOfHeader + ' ' + hexText(Bytes(50'000)));
         }},
        {"FourGibibytesAnnounced",
         [](Stuck& stuck) { stuck.stallAfter(std::string("FF FF FF FF") + kRestOfHeader + " 04 02"); }},
        {"FloodOfUpdates",
         [](Stuck& stuck) {
             const CSClient::InputDef input{"A", CSClient::TYPE_FLOAT, 1};
             stuck.connect();
             ASSERT_EQ(stuck.client->registerInputParameter(input), 0);
             stuck.peer->receiveFrame();
             stuck.peer->send(hexFrame(inputConfirmation(7, "A")));
             stuck.flood([](unsigned int) { return floodedUpdate(); });
             const Stopwatch watch;
             while (stuck.callbacks.updates < 10 && watch.seconds() < 10.0) {
                 std::this_thread::yield();
             }
             ASSERT_GE(stuck.callbacks.updates, 10);
         }},
        {"AnotherIdForEver",
         [](Stuck& stuck) {
             ASSERT_EQ(stuck.client->registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
             stuck.connect();
             stuck.flood([](unsigned int i) { return otherId(2 + i % 2); });
             ASSERT_TRUE(stuck.captured.waitForOut("Simulator ID is now 3"));
         }},
        {"RegistrationBlockedInItsWrite",
         [](Stuck& stuck) {
             const std::vector<CSClient::OutputDef> definitions = manyOutputs();
             stuck.connect(&kSmallSendBuffer);
             stuck.waitForTheChange();
             stuck.isInsideAnOperation = true;
             stuck.threads.emplace_back([&stuck, definitions] {
                 stuck.client->registerOutputParameters(definitions);
                 stuck.hasReturned = true;
             });
             stuck.waitForABlockedWrite();
         }},
        {"PublishBlockedInItsWrite",
         [](Stuck& stuck) {
             stuck.connect(&kSmallSendBuffer);
             ASSERT_EQ(stuck.client->registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
             stuck.peer->receiveFrame();
             stuck.peer->send(hexFrame(outputConfirmation(9, "A")));
             ASSERT_TRUE(stuck.callbacks.waitFor("outputs confirmed A"));
             stuck.isInsideAnOperation = true;
             stuck.threads.emplace_back([&stuck] {
                 const std::vector<CSClient::Parameter> parameters(2'000, floatParameter("A", 1.5F));
                 while (!stuck.isOver && stuck.client->getConnectionState() == CSClient::STATE_READY) {
                     stuck.client->publishParameters(parameters);
                 }
             });
             stuck.waitForABlockedWrite();
         }},
        {"ReregistrationBlockedInItsWrite",
         [](Stuck& stuck) {
             ASSERT_EQ(stuck.client->registerOutputParameters(manyOutputs()), 0);
             stuck.connect(&kSmallSendBuffer);
             stuck.waitForABlockedWrite();
         }},
        {"ConnectHangs",
         [](Stuck& stuck) {
             stuck.hole = std::make_unique<BlackHole>();
             ASSERT_EQ(stuck.client->open(BlackHole::host(), stuck.hole->port(), nullptr), 0);
             std::this_thread::sleep_for(milliseconds(100));
         }},
        {"ConnectIsAboutToHang",
         [](Stuck& stuck) {
             stuck.hole = std::make_unique<BlackHole>();
             ASSERT_EQ(stuck.client->open(BlackHole::host(), stuck.hole->port(), nullptr), 0);
         }},
    };
}

class BufferedClose : public testing::TestWithParam<std::tuple<std::size_t, unsigned int>> {
  protected:
    BufferedClose() : stuck(std::get<1>(GetParam())) {}

    void SetUp() override { ASSERT_NO_FATAL_FAILURE(situations()[std::get<0>(GetParam())].arrange(stuck)); }

    Stuck stuck;
};

std::string nameOf(const testing::TestParamInfo<std::tuple<std::size_t, unsigned int>>& parameters) {
    return std::string(situations()[std::get<0>(parameters.param)].name) +
           (std::get<1>(parameters.param) == 0 ? "" : "WithReconnect");
}

INSTANTIATE_TEST_SUITE_P(In, BufferedClose,
                         testing::Combine(testing::Range<std::size_t>(0, situations().size()),
                                          testing::Values(0U, unsigned{CSClient::OPTION_AUTO_RECONNECT})),
                         nameOf);

TEST_P(BufferedClose, EndsInStateZeroInTimeAndTheClientCanBeDestroyedAtOnce) {
    const Stopwatch watch;
    EXPECT_EQ(stuck.client->close(), CSClient::STATE_DISCONNECTED);
    EXPECT_LT(watch.seconds(), kInTime);
    EXPECT_EQ(stuck.client->getConnectionState(), CSClient::STATE_DISCONNECTED);
    stuck.joinAll();
    const Stopwatch destruction;
    stuck.client.reset();
    EXPECT_LT(destruction.seconds(), 0.5);
}

TEST_P(BufferedClose, IsDoneByTheDestructorInTimeToo) {
    stuck.isOver = true;
    const Stopwatch watch;
    if (stuck.isInsideAnOperation) {
        // The destructor must not begin while another thread is inside the client: it is let out first.
        stuck.client->close();
        stuck.joinAll();
    }
    stuck.client.reset();
    EXPECT_LT(watch.seconds(), kInTime);
}

TEST_P(BufferedClose, LeavesAClientThatCanBeOpenedAgain) {
    ASSERT_EQ(stuck.client->close(), CSClient::STATE_DISCONNECTED);
    stuck.joinAll();
    ScriptedHost other;
    ASSERT_EQ(stuck.client->open(ScriptedHost::address(), other.port(), nullptr), 0);
    const auto newPeer = other.accept();
    ASSERT_TRUE(newPeer);
    EXPECT_EQ(newPeer->receiveFrame().substr(0, 11), "00 00 00 34");
    EXPECT_TRUE(newPeer->isQuietFor(milliseconds(50))) << "closing has forgotten every registration";
    EXPECT_TRUE(stuck.client->waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(stuck.client->close(), CSClient::STATE_DISCONNECTED);
}

}  // namespace
}  // namespace com_tesk::test
