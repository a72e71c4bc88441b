#include <gtest/gtest.h>

#include "comms/CSLockGuard.h"
#include "tests/simulator/SimulatorFixture.h"

namespace com_tesk::test {
namespace {

/// Entries for a request: B, A and B again.
struct Batch {
    InputEntry inputA{"A", CSClient::TYPE_FLOAT, 1, CSClientProtocol::kUnassignedId};
    InputEntry inputB{"B", CSClient::TYPE_INT, 3, 0x01020304};
    OutputEntry outputA{"A", CSClient::TYPE_FLOAT, CSClientProtocol::kUnassignedId, false, {1.0F}};
    OutputEntry outputB{"B", CSClient::TYPE_INT, 0xFFFFFFFF, true, {1.0F}};
    std::vector<InputEntry*> inputs{&inputB, &inputA, &inputB};
    std::vector<OutputEntry*> outputs{&outputB, &outputA, &outputB};

    /// Makes the batch `count` times A.
    void resize(std::size_t count) {
        inputs.assign(count, &inputA);
        outputs.assign(count, &outputA);
    }
};

/// One of the six requests.
struct Sender {
    std::string name;
    int (*send)(TestEngine& engine, const Batch& batch);
    std::size_t recordLength;  ///< 0 for the version request, which has no records.
    std::string body;          ///< The body with the entries of `Batch`, from simulator 5.
};

std::vector<Sender> senders() {
    const std::string inputB = " 00 01 D4 C0 00 01 D4 C0 00 00 00 01 " + hexField("B");
    const std::string outputB = " 00 00 04 B0 00 00 00 01 " + hexField("B");
    const std::string valueB = " FF FF FF FF 00 00 00 01 3F 80 00 00";
    return {
        {"Version", [](TestEngine& engine, const Batch&) { return engine.requestSimulatorVersion(); }, 0,
         "04 02 7F FF 00 00 00 14 00 7F 00 06 00 05 00 00 00 00 00 00"},
        {"SubscribeInputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendInputSubscriptionRequest(batch.inputs); }, 44,
         "04 02 7F FF 00 00 00 98 00 7F 00 01 00 05 00 00 00 00 00 03" + inputB +
             " 00 00 2E E0 00 00 2E E0 00 00 00 00 " + hexField("A") + inputB},
        {"UnsubscribeInputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendInputUnsubscriptionRequest(batch.inputs); }, 4,
         "04 02 7F FF 00 00 00 20 00 7F 00 04 00 05 00 00 00 00 00 03 01 02 03 04 00 0F FF FF 01 02 03 04"},
        {"RegisterOutputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendOutputSubscriptionRequest(batch.outputs); }, 40,
         "04 02 7F FF 00 00 00 8C 00 7F 00 02 00 05 00 00 00 00 00 03" + outputB + " 00 00 04 B0 00 00 00 00 " +
             hexField("A") + outputB},
        {"UnregisterOutputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendOutputUnsubscriptionRequest(batch.outputs); },
         4, "04 02 7F FF 00 00 00 20 00 7F 00 05 00 05 00 00 00 00 00 03 FF FF FF FF 00 0F FF FF FF FF FF FF"},
        {"Publish",
         [](TestEngine& engine, const Batch& batch) {
             return engine.sendParameterPublishRequest(batch.outputs, CSClientProtocol::PUBLISH_DEFAULT);
         },
         12,
         "04 02 7F FF 00 00 00 3C 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 03" + valueB +
             " 00 0F FF FF 00 00 00 00 3F 80 00 00" + valueB},
    };
}

class Requests : public SimulatorFixture, public ::testing::WithParamInterface<Sender> {
  protected:
    int send() { return GetParam().send(engine, batch); }

    Batch batch;
};

INSTANTIATE_TEST_SUITE_P(Six, Requests, ::testing::ValuesIn(senders()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(Requests, IsOneFrameInTheBatchsOrderAndChangesNoEntry) {
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(engine.requests(), Lines{GetParam().body});
    EXPECT_EQ(engine.fakeTransport().written().back(),
              hexWord(static_cast<unsigned int>(hex(GetParam().body).size()) + 32) +
                  " 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF " +
                  GetParam().body);
    engine.ignoreRequestsSoFar();
    for (const Sender& sender : senders()) {
        sender.send(engine, batch);
        EXPECT_EQ(newRequests(engine), Lines{sender.body}) << "The entries have changed.";
    }
    EXPECT_TRUE(!batch.outputA.published && batch.outputB.published);
}

TEST_P(Requests, IsSentInBothConnectedStatesAndTakesNoEngineLock) {
    for (const CSClient::State connected : {CSClient::STATE_CONNECTED, CSClient::STATE_READY}) {
        engine.pretendState(connected);
        engine.underConnectionLock([this] {
            const CSLockGuard lock(engine.parameterMutex());
            EXPECT_EQ(send(), 0);
        });
        EXPECT_EQ(newRequests(engine), Lines{GetParam().body}) << connected;
    }
}

TEST_P(Requests, WithoutAConnectionOnlyTheVersionRequestFails) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        engine.pretendState(state);
        EXPECT_EQ(send(), GetParam().recordLength == 0 ? 1 : 0) << state;
    }
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(printed(), "");
}

TEST_P(Requests, FailedWriteGivesTwoAndOneCloseAndOneLineUnlessSilent) {
    TestEngine silent(5, kSilent);
    makeReady(silent);
    for (TestEngine* const each : {&silent, &engine}) {
        each->fakeTransport().failWrites(-1, 32);
        EXPECT_EQ(GetParam().send(*each, batch), 2);
        EXPECT_EQ(each->getState(), CSClient::STATE_DISCONNECTING);
        EXPECT_EQ(printed(), each == &silent ? "" : "Error writing to server (32) \n");
    }
    EXPECT_EQ(streams.errInsertions(), 1);
    EXPECT_EQ(newCallbacks(), Lines{"state 4->3"});
}

TEST_P(Requests, ThousandEntriesAreOneMessageAndNoneAreNoMessage) {
    const std::size_t recordLength = GetParam().recordLength;
    if (recordLength == 0) {
        return;
    }
    const std::size_t emptyLength = hex(GetParam().body).size() - 3 * recordLength;
    batch.resize(1000);
    EXPECT_EQ(send(), 0);
    const Lines requests = newRequests(engine);
    ASSERT_EQ(requests.size(), 1U);
    const std::size_t length = emptyLength + 1000 * recordLength;
    EXPECT_EQ(hex(requests[0]).size(), length);
    EXPECT_EQ(requests[0].substr(4 * 3, 4 * 3 - 1), hexWord(static_cast<unsigned int>(length)));
    EXPECT_EQ(requests[0].substr((emptyLength - 4) * 3, 4 * 3 - 1), "00 00 03 E8");

    batch.resize(0);
    engine.fakeTransport().failWrites(-1, 32);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
}

using Request = SimulatorFixture;

TEST_F(Request, WrittenInPartFailsAndIsNotRepeated) {
    int writes = 0;
    engine.fakeTransport().onWrite = [&writes] { ++writes; };
    // The version request is a frame of 52 bytes.
    engine.fakeTransport().failWrites(51, 0);
    EXPECT_EQ(engine.requestSimulatorVersion(), 2);
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine.requestSimulatorVersion(), 1);
    EXPECT_EQ(writes, 1);
}

TEST_F(Request, ToPublishHasItsModeAndForAnUnknownTypeTheIdAlone) {
    OutputEntry first{"A", CSClient::TYPE_FLOAT, 7, true, {1.0F}};
    OutputEntry unknown{"B", 5, CSClientProtocol::kUnassignedId, true, {1.0F}};
    OutputEntry last{"C", CSClient::TYPE_UNDEFINED, 9, true, {1.0F}};
    const auto mode = static_cast<CSClientProtocol::PublishMode>(0x01020304);
    EXPECT_EQ(engine.sendParameterPublishRequest({&first, &unknown, &last}, mode), 0);
    EXPECT_EQ(engine.requests(), Lines{"04 02 7F FF 00 00 00 34 00 7F 00 03 00 05 00 00 01 02 03 04 00 00 00 03 "
                                       "00 00 00 07 00 00 00 00 3F 80 00 00 00 0F FF FF "
                                       "00 00 00 09 00 00 00 00 00 00 00 00"});
}

using SimulatorId = SimulatorFixture;

/// Bytes 12 to 15 of each of the six requests.
Lines simulatorWords(TestEngine& engine) {
    const Batch batch;
    Lines words;
    for (const Sender& sender : senders()) {
        sender.send(engine, batch);
        words.push_back(engine.requests().back().substr(12 * 3, 4 * 3 - 1));
    }
    return words;
}

TEST_F(SimulatorId, IsTheUpperHalfOfTheWordInEveryRequest) {
    // The constructor accepts ids that setting refuses. Bits above the word are lost.
    const std::pair<unsigned int, std::string> ids[] = {
        {0, "00 00 00 00"},     {5, "00 05 00 00"},          {32767, "7F FF 00 00"},      {32768, "80 00 00 00"},
        {65535, "FF FF 00 00"}, {0x12345678, "56 78 00 00"}, {0x00010000, "00 00 00 00"}, {0xFFFFFFFF, "FF FF 00 00"},
    };
    for (const auto& [id, word] : ids) {
        TestEngine other(id);
        makeReady(other);
        EXPECT_EQ(other.getSimulatorId(), id);
        EXPECT_EQ(simulatorWords(other), Lines(6, word)) << id;
    }
}

TEST_F(SimulatorId, SettingRefusesAnIdOverFifteenBitsAndKeepsTheOldId) {
    engine.registerInputs({input("I")});
    engine.registerOutputs({output("O")});
    engine.receive(inputsConfirmed({{7, "I"}}));
    engine.receive(outputsConfirmed({{8, "O"}}));
    engine.ignoreRequestsSoFar();
    for (const unsigned int id : {0U, 32766U, 32767U, 0x1234U}) {
        EXPECT_EQ(engine.setSimulatorId(id), 0);
        EXPECT_EQ(engine.getSimulatorId(), id);
    }
    for (const unsigned int id : {32768U, 32769U, 65535U, 65536U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(engine.setSimulatorId(id), 3) << id;
        EXPECT_EQ(engine.getSimulatorId(), 0x1234U);
    }
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(engine.inputIds() + ' ' + engine.outputIds(), "7=I 8=O") << "The confirmations stay.";
    EXPECT_EQ(simulatorWords(engine), Lines(6, "12 34 00 00"));
}

TEST_F(SimulatorId, OutlastsAReconnectionAndTheConnection) {
    engine.setSimulatorId(6);
    engine.changeState(CSClient::STATE_RECONNECTING);
    engine.connect();
    EXPECT_EQ(engine.getSimulatorId(), 6U);
    EXPECT_EQ(engine.requests(), Lines{"04 02 7F FF 00 00 00 14 00 7F 00 06 00 06 00 00 00 00 00 00"});
    engine.changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(engine.getSimulatorId(), 6U);
}

}  // namespace
}  // namespace com_tesk::test
