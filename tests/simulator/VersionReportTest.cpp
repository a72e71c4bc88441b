#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/simulator/SimulatorFixture.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

/// The report of a host that has the engine's id. The lower half of the simulator word is ignored.
std::string report(const std::string& text, unsigned int protocolVersion = 9, unsigned int status = 1) {
    return versionResponse(0x0005FFFF, text, protocolVersion, status);
}

class VersionReport : public SimulatorFixture {
  protected:
    /// "UNKNOWN 0" before the first report.
    std::string version() const {
        return engine.getServerVersion() + ' ' + std::to_string(engine.getProtocolVersion());
    }
};

TEST_F(VersionReport, IsStoredAndPrintedAndChangesNothingElse) {
    const std::string v127(127, 'v');
    const std::string v128(128, 'v');
    const std::tuple<std::string, unsigned int, std::string, std::string> reports[] = {
        {"HOST 1.2.3", 0x01020304, "HOST 1.2.3", "16909060"},
        {"HOST", 0xFFFFFFFF, "HOST", "4294967295"},
        {"", 0, "", "0"},
        {v127, 0x76767676, v127, "1987475062"},
        {v128, 0x76767676, v128, "1987475062"},  // The text has no zero byte: it is the field and no more.
        {std::string("HOST\0 AND MORE", 14), 9, "HOST", "9"},
        {"\xFFr\xC3\xA4\n%s", 9, "\xFFr\xC3\xA4\n%s", "9"},
    };
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("P")});
    engine.ignoreRequestsSoFar();
    EXPECT_EQ(version(), "UNKNOWN 0");
    std::string lines;
    for (const auto& [field, number, text, protocolVersion] : reports) {
        engine.receive(report(field, number));
        EXPECT_EQ(version(), text + ' ' + protocolVersion);
        lines += "Found server version: " + text + "\nFound simulator id: 5\nFound protocol version: ";
        lines += protocolVersion + '\n';
        EXPECT_EQ(streams.out(), lines);
    }
    EXPECT_EQ(streams.outInsertions(), 3 * 7);
    EXPECT_EQ(streams.err(), "");
    EXPECT_EQ(engine.getSimulatorId(), 5U);
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(newCallbacks(), Lines{});
}

TEST_F(VersionReport, WithAnyStatusButOneIsIgnored) {
    engine.registerInputs({input("A")});
    engine.ignoreRequestsSoFar();
    const unsigned int refusals[] = {0, 2, 0x100, 0x101, 0x01000000, 0x80000001, 0xFFFFFFFF};
    for (const std::string before : {"UNKNOWN 0", "HOST 9"}) {
        const std::string printedBefore = printed();
        for (const unsigned int status : refusals) {
            engine.receive(versionResponse(0x00060000, "OTHER", 10, status));
            EXPECT_EQ(version(), before) << status;
            EXPECT_EQ(engine.getSimulatorId(), 5U);
        }
        EXPECT_EQ(engine.requests(), Lines{});
        EXPECT_EQ(printed(), printedBefore);
        engine.receive(report("HOST"));
    }
}

TEST_F(VersionReport, NeedsOneHundredAndFiftyTwoBytes) {
    for (std::size_t length = 0; length < 152; ++length) {
        engine.receive(firstBytes(versionResponse(0x00060000, "HOST", 0x01010101), length));
        ASSERT_EQ(version(), "UNKNOWN 0") << length << " bytes";
        ASSERT_EQ(engine.getSimulatorId(), 5U) << length << " bytes";
    }
    // The byte past the end counts as 0: 00 00 00 and 00 00 01 are both something other than 1.
    for (const unsigned int status : {0x100U, 0x001U, 0x101U}) {
        engine.receive(firstBytes(report("HOST", 9, status), 151));
        EXPECT_EQ(version(), "UNKNOWN 0");
    }
    EXPECT_EQ(printed(), "");
    engine.receive(firstBytes(report("HOST"), 152));
    EXPECT_EQ(version(), "HOST 9");
    unsigned int protocolVersion = 10;
    for (const char* const rest : {" FF", " 00 00 00 00", " 01 02 03 04 05 06 07 08"}) {
        engine.receive(report("HOST", ++protocolVersion) + rest);
        EXPECT_EQ(version(), "HOST " + std::to_string(protocolVersion));
    }
}

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
    EXPECT_TRUE(waitUntil([&] { return started == 3; }));
    write();
    isOver = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

class ConcurrentReaders : public ::testing::Test {
  protected:
    CapturedStreams streams;
    TestEngine engine{0x0F0F, kSilent};
};

TEST_F(ConcurrentReaders, ReadSetAndSendWholeValuesWhileReportsArrive) {
    // Longer than the text that a string holds inside itself, and of different lengths.
    const std::string shortText(40, 'a');
    const std::string longText(128, 'b');
    std::atomic<int> wrong{0};
    makeReady(engine);
    const auto use = [&] {
        const std::string text = engine.getServerVersion();
        wrong += text == "UNKNOWN" || text == shortText || text == longText ? 0 : 1;
        const unsigned int version = engine.getProtocolVersion();
        wrong += version == 0 || version == 0x00FF00FF || version == 0xFF00FF00 ? 0 : 1;
        const unsigned int id = engine.getSimulatorId();
        wrong += id == 0x0F0F || id == 0x7070 || id == 0x1234 ? 0 : 1;
        engine.requestSimulatorVersion();
        engine.setSimulatorId(0x1234);
    };
    readWhile(use, [&] {
        for (int i = 0; i < 300; ++i) {
            engine.receive(versionResponse(0x70700000, shortText, 0x00FF00FF));
            engine.receive(versionResponse(0x0F0F0000, longText, 0xFF00FF00));
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(engine.getServerVersion(), longText);
    EXPECT_EQ(engine.getProtocolVersion(), 0xFF00FF00U);
    for (const std::string& request : engine.requests()) {
        const std::string word = request.substr(12 * 3, 4 * 3 - 1);
        ASSERT_TRUE(word == "0F 0F 00 00" || word == "70 70 00 00" || word == "12 34 00 00") << request;
    }
}

TEST_F(ConcurrentReaders, MayBeCallbacksAndOtherThreadsAtTheSameTime) {
    RecordingCallbacks callbacks;
    const auto readAll = [this] {
        return engine.getServerVersion() + ' ' + std::to_string(engine.getProtocolVersion()) + ' ' +
               std::to_string(engine.getSimulatorId());
    };
    callbacks.onLine = [&](const std::string& line) {
        const bool isLater = line == "outputs confirmed" || line == "state 4->3" || line == "state 3->0";
        EXPECT_EQ(readAll(), isLater ? "HOST 9 7" : "UNKNOWN 0 3855") << line;
    };
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(0x0100007F, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    readWhile(readAll, [&] {
        engine.fakeTransport().queueFrame(versionResponse(0x00070000, "HOST", 9));
        engine.fakeTransport().queueFrame(outputConfirmation(0, {}));
        EXPECT_TRUE(callbacks.waitFor("outputs confirmed"));
    });
    engine.forceCloseConnection();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    // Other threads see the end of the worker after the callbacks have returned.
    EXPECT_TRUE(waitUntil([&] { return engine.getState() == CSClient::STATE_DISCONNECTED; }));
}

const std::string kInputsLine = "Registering input parameters with server...\n";
const std::string kOutputsLine = "Registering output parameters with server...\n";
const std::string kConnecting = " -> reconnecting under the new id\n";
const std::string kSevenIsNew = "Simulator ID is now 7" + kConnecting;

/// The three lines about a host with this id.
std::string foundLines(const std::string& id) {
    return "Found server version: HOST\nFound simulator id: " + id + "\nFound protocol version: 9\n";
}

/// The requests that register inputs A and B and outputs P and Q again, under the simulator word.
Lines reregistration(const std::string& simulatorWord) {
    return {"04 02 7F FF 00 00 00 6C 00 7F 00 01 " + simulatorWord +
                " 00 00 00 02 00 00 2E E0 00 00 2E E0 00 00 00 00 " + hexField("A") +
                " 00 01 D4 C0 00 01 D4 C0 00 00 00 01 " + hexField("B"),
            "04 02 7F FF 00 00 00 64 00 7F 00 02 " + simulatorWord + " 00 00 00 02 00 00 04 B0 00 00 00 01 " +
                hexField("P") + " 00 00 04 B0 00 00 00 00 " + hexField("Q")};
}

/// A ready engine with the inputs A and B and the outputs P and Q, registered in the opposite order.
class EngineWithFour : public TestEngine {
  public:
    explicit EngineWithFour(unsigned int id, unsigned int optionFlags = 0) : TestEngine(id, optionFlags) {
        makeReady(*this);
        registerInputs({input("B", CSClient::TYPE_INT, 3), input("A", CSClient::TYPE_FLOAT, 1)});
        registerOutputs({output("Q", CSClient::TYPE_FLOAT), output("P", CSClient::TYPE_INT)});
        ignoreRequestsSoFar();
    }
};

class NewSimulatorId : public ::testing::Test {
  protected:
    CapturedStreams streams;
    RecordingCallbacks callbacks;
    EngineWithFour engine{5};
    const std::string sevenAnnounced = versionResponse(0x00070000, "HOST");
};

TEST_F(NewSimulatorId, LinesAndRequestsComeInOrder) {
    Lines printedAtWrite;
    engine.addCallbackInterface(&callbacks);
    engine.fakeTransport().onWrite = [&] {
        printedAtWrite.push_back(streams.out());
        EXPECT_EQ(engine.getServerVersion(), "HOST");
        EXPECT_EQ(engine.getSimulatorId(), 7U);
        EXPECT_EQ(engine.getProtocolVersion(), 0U) << "The protocol version is stored last.";
    };
    engine.receive(sevenAnnounced);
    EXPECT_EQ(printedAtWrite, (Lines{kSevenIsNew + kInputsLine, kSevenIsNew + kInputsLine + kOutputsLine}));
    EXPECT_EQ(engine.requests(), reregistration("00 07 00 00"));
    EXPECT_EQ(streams.out(), kSevenIsNew + kInputsLine + kOutputsLine + foundLines("7"));
    EXPECT_EQ(streams.outInsertions(), 6);
    EXPECT_EQ(streams.err(), "");
    EXPECT_EQ(engine.getProtocolVersion(), 9U);
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(callbacks.lines(), Lines{});
    EXPECT_EQ(engine.fakeTransport().closeCount(), 0);
}

TEST_F(NewSimulatorId, IsReportedEvenWhenSilentAndOnlyOnce) {
    EngineWithFour silent(5, kSilent);
    silent.receive(sevenAnnounced);
    EXPECT_EQ(newRequests(silent), reregistration("00 07 00 00"));
    silent.receive(sevenAnnounced);
    EXPECT_EQ(newRequests(silent), Lines{});
    EXPECT_EQ(streams.out(), kSevenIsNew);
    EXPECT_EQ(streams.outInsertions(), 1);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(NewSimulatorId, WithoutParametersSendsAndMentionsNothing) {
    engine.unregisterAllLocalParameters();
    engine.receive(sevenAnnounced);
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(streams.out(), kSevenIsNew + foundLines("7"));
}

TEST_F(NewSimulatorId, IsStoredWhenItHasFifteenBitsAndReportedAlways) {
    const std::tuple<unsigned int, unsigned int, std::string, unsigned int, std::string> rows[] = {
        {3, 0x7FFF0000, "32767", 32767, "7F FF 00 00"},
        {3, 0x0000FFFF, "0", 0, "00 00 00 00"},
        {3, 32768U << 16U, "32768", 3, "00 03 00 00"},
        {3, 40000U << 16U, "40000", 3, "00 03 00 00"},
        {3, 65535U << 16U, "65535", 3, "00 03 00 00"},
        {0x12345678, 0x56780000, "22136", 0x5678, "56 78 00 00"},  // All bits of the old id are compared.
    };
    for (const auto& [oldId, word, printedId, storedId, requestWord] : rows) {
        SCOPED_TRACE(printedId);
        const std::size_t before = streams.out().size();
        const std::string isNew = "Simulator ID is now " + printedId + kConnecting + kInputsLine + kOutputsLine;
        EngineWithFour other(oldId);
        other.receive(versionResponse(word, "HOST"));
        EXPECT_EQ(other.getSimulatorId(), storedId);
        EXPECT_EQ(newRequests(other), reregistration(requestWord));
        EXPECT_EQ(streams.out().substr(before), isNew + foundLines(printedId));
        EXPECT_EQ(other.getServerVersion(), "HOST");
        // An id that was not stored is new every time. One that equals an unchecked id of the constructor is not.
        other.receive(versionResponse(word, "HOST"));
        EXPECT_EQ(newRequests(other).size(), storedId == 3 ? 2U : 0U);
        EngineWithFour equal(word >> 16U);
        equal.receive(versionResponse(word, "HOST"));
        EXPECT_EQ(equal.requests(), Lines{});
    }
}

TEST_F(NewSimulatorId, FailedWriteGivesOneLineAndOneCloseAndTheRestGoesOn) {
    engine.addCallbackInterface(&callbacks);
    engine.fakeTransport().failWrites(-1, 104);
    engine.receive(sevenAnnounced);
    EXPECT_EQ(streams.err(), "Error writing to server (104) \n");
    EXPECT_EQ(callbacks.lines(), Lines{"state 4->3"});
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(streams.out(), kSevenIsNew + kInputsLine + kOutputsLine + foundLines("7"));
}

TEST_F(NewSimulatorId, WithoutAConnectionTheParametersWaitForTheNextOne) {
    engine.pretendState(CSClient::STATE_RECONNECTING);
    engine.receive(sevenAnnounced);
    EXPECT_EQ(engine.requests(), Lines{});
    engine.connect();
    const Lines requests = engine.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(Lines(requests.begin() + 1, requests.end()), reregistration("00 07 00 00"));
}

}  // namespace
}  // namespace com_tesk::test
