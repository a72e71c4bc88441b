#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

// Longer than what a string holds inside itself, and of different lengths, so that a torn read shows.
const std::string kShortText(40, 'a');
const std::string kLongText(128, 'b');

constexpr int kRounds = 300;

/// Runs `read` on three threads for as long as `write` runs on this one, and at least once on each.
template <typename Read, typename Write>
void readWhile(const Read& read, const Write& write) {
    std::atomic<bool> isOver{false};
    std::atomic<int> started{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            ++started;
            do {
                read();
            } while (!isOver);
        });
    }
    while (started != 3) {
        std::this_thread::yield();
    }
    write();
    isOver = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

TEST(ConcurrentReaders, SeeOneOfTheVersionTextsWhole) {
    ReadyEngine engine;
    std::atomic<int> torn{0};
    const auto read = [&] {
        const std::string text = engine.getServerVersion();
        if (text != "UNKNOWN" && text != kShortText && text != kLongText) {
            ++torn;
        }
    };
    readWhile(read, [&] {
        const std::string first = versionResponse(0x00050000, kShortText);
        const std::string second = versionResponse(0x00050000, kLongText);
        for (int i = 0; i < kRounds; ++i) {
            engine.receive(first);
            engine.receive(second);
        }
    });
    EXPECT_EQ(0, torn);
    EXPECT_EQ(kLongText, engine.getServerVersion());
}

TEST(ConcurrentReaders, SeeOneOfTheProtocolVersions) {
    ReadyEngine engine;
    std::atomic<int> torn{0};
    const auto read = [&] {
        const unsigned int version = engine.getProtocolVersion();
        if (version != 0 && version != 0x00FF00FF && version != 0xFF00FF00) {
            ++torn;
        }
    };
    readWhile(read, [&] {
        const std::string first = versionResponse(0x00050000, kShortText, 0x00FF00FF);
        const std::string second = versionResponse(0x00050000, kShortText, 0xFF00FF00);
        for (int i = 0; i < kRounds; ++i) {
            engine.receive(first);
            engine.receive(second);
        }
    });
    EXPECT_EQ(0, torn);
    EXPECT_EQ(0xFF00FF00U, engine.getProtocolVersion());
}

TEST(ConcurrentReaders, SeeOneOfTheSimulatorIdsAndUseItInRequests) {
    CapturedStreams streams;
    ReadyEngine engine(0x0F0F);
    std::atomic<int> torn{0};
    const auto read = [&] {
        const unsigned int id = engine.getSimulatorId();
        if (id != 0x0F0F && id != 0x7070) {
            ++torn;
        }
        engine.requestSimulatorVersion();
    };
    readWhile(read, [&] {
        const std::string first = versionResponse(0x70700000, kShortText);
        const std::string second = versionResponse(0x0F0F0000, kShortText);
        for (int i = 0; i < kRounds; ++i) {
            engine.receive(first);
            engine.receive(second);
        }
    });
    EXPECT_EQ(0, torn);
    for (const std::string& request : engine.requests()) {
        const std::string word = request.substr(12 * 3, 4 * 3 - 1);
        ASSERT_TRUE(word == "0F 0F 00 00" || word == "70 70 00 00") << request;
    }
}

TEST(ConcurrentReaders, IdMayBeSetWhileResponsesArrive) {
    CapturedStreams streams;
    ReadyEngine engine(5);
    readWhile([&] { engine.setSimulatorId(6); },
              [&] {
                  for (int i = 0; i < kRounds; ++i) {
                      engine.receive(versionResponse(0x00070000, kShortText));
                  }
              });
    const unsigned int id = engine.getSimulatorId();
    EXPECT_TRUE(id == 6 || id == 7) << id;
}

/// Asks, in each callback, for what the worker writes.
class AskingCallbacks : public RecordingCallbacks {
  public:
    explicit AskingCallbacks(SimulatorProtocol& askedEngine) : engine(askedEngine) {}

  protected:
    void record(const std::string& line) override {
        RecordingCallbacks::record(line + ' ' + engine.getServerVersion() + ' ' +
                                   std::to_string(engine.getProtocolVersion()) + ' ' +
                                   std::to_string(engine.getSimulatorId()));
    }

  private:
    SimulatorProtocol& engine;
};

TEST(ConcurrentReaders, MayAskOnTheWorkerInsideCallbacksAndOutsideAtTheSameTime) {
    CapturedStreams streams;
    TestEngine engine(5, kSilent);
    AskingCallbacks callbacks(engine);
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(0, engine.openConnection(0x0100007F, 1, nullptr));
    ASSERT_TRUE(callbacks.waitFor("state 2->4 UNKNOWN 0 5"));
    readWhile(
        [&] {
            engine.getServerVersion();
            engine.getProtocolVersion();
            engine.getSimulatorId();
        },
        [&] {
            engine.fakeTransport().queueFrame(versionResponse(0x00070000, "HOST", 9));
            engine.fakeTransport().queueFrame(outputConfirmation(0, {}));
            EXPECT_TRUE(callbacks.waitFor("outputs confirmed HOST 9 7"));
        });
    engine.forceCloseConnection();
    EXPECT_TRUE(callbacks.waitFor("state 3->0 HOST 9 7"));
    // The end of the worker is announced to other threads once the callbacks have returned.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (engine.getState() != CSClient::STATE_DISCONNECTED && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(CSClient::STATE_DISCONNECTED, engine.getState());
}

}  // namespace
}  // namespace com_tesk::test
