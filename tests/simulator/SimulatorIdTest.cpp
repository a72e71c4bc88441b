#include <gtest/gtest.h>

#include "tests/simulator/SimulatorFixture.h"

namespace com_tesk::test {
namespace {

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

/// Connects again, and expects the four parameters to be registered under the id 7.
void expectReregistrationUnderSeven(TestEngine& engine) {
    engine.connect();
    const Lines requests = engine.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(Lines(requests.begin() + 1, requests.end()), reregistration("00 07 00 00"));
}

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
    engine.unregisterAllInputParameters();
    engine.ignoreRequestsSoFar();
    engine.receive(sevenAnnounced);
    EXPECT_EQ(newRequests(engine), Lines{reregistration("00 07 00 00")[1]});
    EXPECT_EQ(streams.out(), kSevenIsNew + kOutputsLine + foundLines("7"));
    engine.unregisterAllOutputParameters();
    engine.ignoreRequestsSoFar();
    const std::size_t before = streams.out().size();
    engine.setSimulatorId(5);
    engine.receive(sevenAnnounced);
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(streams.out().substr(before), kSevenIsNew + foundLines("7"));
}

TEST_F(NewSimulatorId, InputsWaitAgainAndOutputsStayConfirmed) {
    engine.receive(inputsConfirmed({{21, "A"}}));
    engine.receive(outputsConfirmed({{31, "P"}}));
    engine.receive(sevenAnnounced);
    EXPECT_EQ(engine.inputTable(), (Lines{"A type 1 mode 1 waiting", "B type 2 mode 3 waiting"}));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(engine.outputTable(), (Lines{"P type 2 id 31 00000000", "Q type 1 waiting 00000000"}));
    EXPECT_EQ(engine.outputIds(), "31=P");
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
        // An id that was not stored is new every time.
        other.receive(versionResponse(word, "HOST"));
        EXPECT_EQ(newRequests(other).size(), storedId == 3 ? 2U : 0U);
    }
}

TEST_F(NewSimulatorId, EqualToAnUncheckedConstructorIdIsNotNew) {
    EngineWithFour other(40000, kSilent);
    other.receive(versionResponse(40000U << 16U, "HOST"));
    EXPECT_EQ(other.requests(), Lines{});
    EXPECT_EQ(streams.out(), "");
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

TEST_F(NewSimulatorId, FailedWriteReconnectsOnceAndRegistersUnderTheNewId) {
    EngineWithFour other(5, kReconnect | kSilent);
    other.skipPauses();
    other.addCallbackInterface(&callbacks);
    other.fakeTransport().failWrites(-1, 104);
    other.receive(sevenAnnounced);
    EXPECT_EQ(callbacks.lines(), (Lines{"state 4->5", "state 5->1"}));
    EXPECT_EQ(other.requests(), Lines{});
    EXPECT_EQ(streams.out(), kSevenIsNew);
    EXPECT_EQ(other.getProtocolVersion(), 9U);
    expectReregistrationUnderSeven(other);
}

TEST_F(NewSimulatorId, WithoutAConnectionTheParametersWaitForTheNextOne) {
    engine.pretendState(CSClient::STATE_RECONNECTING);
    engine.receive(sevenAnnounced);
    EXPECT_EQ(engine.requests(), Lines{});
    expectReregistrationUnderSeven(engine);
}

}  // namespace
}  // namespace com_tesk::test
