#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "comms/CSLockGuard.h"
#include "simulator/HostMessages.h"
#include "simulator/LastUpdate.h"
#include "simulator/RequestEncoding.h"
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
};

/// One of the six requests.
struct Sender {
    std::string name;
    int (*send)(TestEngine& engine, const Batch& batch);
    bool hasRecords;
    std::string body;  ///< The body with the entries of `Batch`, from simulator 5.
};

std::vector<Sender> senders() {
    const std::string inputB = " 00 01 D4 C0 00 01 D4 C0 00 00 00 01 " + hexField("B");
    const std::string outputB = " 00 00 04 B0 00 00 00 01 " + hexField("B");
    const std::string valueB = " FF FF FF FF 00 00 00 01 3F 80 00 00";
    return {
        {"Version", [](TestEngine& engine, const Batch&) { return engine.requestSimulatorVersion(); }, false,
         "04 02 7F FF 00 00 00 14 00 7F 00 06 00 05 00 00 00 00 00 00"},
        {"SubscribeInputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendInputSubscriptionRequest(batch.inputs); }, true,
         "04 02 7F FF 00 00 00 98 00 7F 00 01 00 05 00 00 00 00 00 03" + inputB +
             " 00 00 2E E0 00 00 2E E0 00 00 00 00 " + hexField("A") + inputB},
        {"UnsubscribeInputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendInputUnsubscriptionRequest(batch.inputs); },
         true, "04 02 7F FF 00 00 00 20 00 7F 00 04 00 05 00 00 00 00 00 03 01 02 03 04 00 0F FF FF 01 02 03 04"},
        {"RegisterOutputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendOutputSubscriptionRequest(batch.outputs); },
         true,
         "04 02 7F FF 00 00 00 8C 00 7F 00 02 00 05 00 00 00 00 00 03" + outputB + " 00 00 04 B0 00 00 00 00 " +
             hexField("A") + outputB},
        {"UnregisterOutputs",
         [](TestEngine& engine, const Batch& batch) { return engine.sendOutputUnsubscriptionRequest(batch.outputs); },
         true, "04 02 7F FF 00 00 00 20 00 7F 00 05 00 05 00 00 00 00 00 03 FF FF FF FF 00 0F FF FF FF FF FF FF"},
        {"Publish",
         [](TestEngine& engine, const Batch& batch) {
             return engine.sendParameterPublishRequest(batch.outputs, CSClientProtocol::PUBLISH_DEFAULT);
         },
         true,
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

TEST_P(Requests, WithoutAConnectionOnlyTheVersionRequestFails) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        engine.pretendState(state);
        EXPECT_EQ(send(), GetParam().hasRecords ? 0 : 1) << state;
    }
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(printed(), "");
}

TEST_P(Requests, FailedWriteGivesTwoAndOneCloseAndOneLineUnlessSilent) {
    TestEngine silent(5, kSilent);
    makeReady(silent);
    for (TestEngine* const each : {&silent, &engine}) {
        each->fakeTransport().failWrites(GetParam().hasRecords ? -1 : 51, 32);
        EXPECT_EQ(GetParam().send(*each, batch), 2);
        EXPECT_EQ(each->getState(), CSClient::STATE_DISCONNECTING);
        EXPECT_EQ(printed(), each == &silent ? "" : "Error writing to server (32) \n");
    }
    EXPECT_EQ(streams.errInsertions(), 1);
    EXPECT_EQ(newCallbacks(), Lines{"state 4->3"});
}

TEST_P(Requests, WithoutEntriesIsNotSent) {
    batch.inputs.clear();
    batch.outputs.clear();
    engine.fakeTransport().failWrites(-1, 32);
    EXPECT_EQ(send(), GetParam().hasRecords ? 0 : 2);
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(engine.getState(), GetParam().hasRecords ? CSClient::STATE_READY : CSClient::STATE_DISCONNECTING);
}

using Request = SimulatorFixture;

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

// Encoding and decoding without an engine.

using Encode = std::function<char*(char*)>;

/// Returns the hex text of what `encode` writes.
std::string encoded(const Encode& encode) {
    std::vector<char> bytes(100, '\xEE');
    bytes.resize(static_cast<std::size_t>(encode(bytes.data()) - bytes.data()));
    return hexText(bytes);
}

TEST(RequestEncoding, RateOfAnInputFollowsItsMode) {
    for (const std::uint32_t mode : {0U, 1U, 2U, 3U, 4U, 5U, 7U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        const std::string rate = mode == 1 ? "00 00 2E E0 " : mode == 3 ? "00 01 D4 C0 " : "00 00 00 00 ";
        EXPECT_EQ(encoded([mode](char* at) { return wire::putInput(at, "A", CSClient::TYPE_FLOAT, mode); }),
                  rate + rate + "00 00 00 00 " + hexField("A"))
            << mode;
    }
}

TEST(RequestEncoding, IntegerFlagIsOneForTypeIntOnly) {
    for (const CSClient::ParameterType type : {0U, 1U, 2U, 3U, 5U, 0x102U, 0xFFFFFFFFU}) {
        const std::string flag = type == 2 ? " 00 00 00 01 " : " 00 00 00 00 ";
        EXPECT_EQ(encoded([type](char* at) { return wire::putInput(at, "A", type, 1); }),
                  "00 00 2E E0 00 00 2E E0" + flag + hexField("A"))
            << type;
        EXPECT_EQ(encoded([type](char* at) { return wire::putOutput(at, "A", type); }),
                  "00 00 04 B0" + flag + hexField("A"))
            << type;
    }
}

TEST(RequestEncoding, NameFieldHasThirtyTwoBytes) {
    const std::string letters = "abcdefghijklmnopqrstuvwxyz012345";
    const std::pair<std::string, std::string> fields[] = {
        {"", hexField("")},
        {"A", "41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {letters.substr(0, 31), hexField(letters.substr(0, 31))},
        {letters, "61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F 70 71 72 73 74 75 76 77 78 79 7A 30 31 32 33 34 35"},
        {letters + "6", hexField(letters)},
        {letters + "6789ABCD", hexField(letters)},
        {std::string("AB\0CD", 5), hexField("AB")},
        {std::string("\0CD", 3), hexField("")},
        {std::string(31, 'A') + std::string("\0ZZZZZZZZ", 9), hexField(std::string(31, 'A'))},
        {"\xC3\xA4\xFF\x80", hexField("\xC3\xA4\xFF\x80")}};
    for (const auto& [name, field] : fields) {
        SCOPED_TRACE(name);
        const auto putTwo = [name = name](char* at) { return wire::putOutput(wire::putOutput(at, name, 1), "N", 1); };
        EXPECT_EQ(encoded([name = name](char* at) { return wire::putInput(at, name, 2, 1); }),
                  "00 00 2E E0 00 00 2E E0 00 00 00 01 " + field);
        EXPECT_EQ(encoded(putTwo), "00 00 04 B0 00 00 00 00 " + field + " 00 00 04 B0 00 00 00 00 " + hexField("N"))
            << "The next record follows the field.";
    }
}

TEST(RequestEncoding, ValueFollowsTheTypeBitForBit) {
    const auto record = [](CSClient::ParameterType type, std::uint32_t bits) {
        return encoded([=](char* at) { return wire::putValue(at, 0x01020304, type, parameter("", type, bits).value); });
    };
    // Also negative zero, the smallest number, infinity, and quiet and signalling not-a-numbers with payloads.
    for (const std::uint32_t bits : {0U, 1U, 0x3F800000U, 0x7FFFFFFFU, 0x80000000U, 0x7F800000U, 0xFFC12345U,
                                     0x7F800001U, 0xFFA54321U, 0xFFFFFFFEU}) {
        EXPECT_EQ(record(CSClient::TYPE_FLOAT, bits), "01 02 03 04 00 00 00 00 " + hexWord(bits));
        EXPECT_EQ(record(CSClient::TYPE_INT, bits), "01 02 03 04 00 00 00 01 " + hexWord(bits));
        EXPECT_EQ(record(CSClient::TYPE_UNDEFINED, bits), "01 02 03 04 00 00 00 00 00 00 00 00");
    }
    for (const CSClient::ParameterType type : {3U, 5U, 0x101U, 0x102U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(record(type, 0x3F800000), "01 02 03 04") << type;
    }
}

TEST(RequestEncoding, PublicationHasItsModeBeforeItsCount) {
    for (const std::uint32_t mode : {0U, 1U, 7U, 0x01020304U, 0xFFFFFFFFU}) {
        EXPECT_EQ(encoded([mode](char* at) { return wire::beginPublication(at, 1, mode, 2); }).substr(48 * 3),
                  hexWord(mode) + " 00 00 00 02");
    }
}

/// Expects `View` to have the whole records of a body, up to its count, for every length of the body.
template <typename View>
void expectWholeRecords(const std::string& bodyBeforeCount, std::size_t recordLength) {
    const std::size_t first = hex(bodyBeforeCount).size() + 4;
    const std::string records = hexText(Bytes(2 * recordLength, 0xFF));
    // Also counts whose product with the length of a record exceeds 32 bits.
    for (const unsigned int count : {0U, 1U, 2U, 3U, 0x04EC4EC5U, 0x05555556U, 0x15555556U, 0x40000001U, 0x7FFFFFFFU,
                                     0x80000000U, 0x80000001U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        const RawMessage whole = messageOf(bodyBeforeCount + ' ' + hexWord(count) + ' ' + records);
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            RawMessage cut(RawMessage::DATA);
            cut.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            const std::size_t fitting = size < first ? 0 : (size - first) / recordLength;
            ASSERT_EQ(View(cut).size(), std::min<std::size_t>(count, fitting)) << size << " bytes, count " << count;
            ASSERT_EQ(wire::messageCode(cut) != 0, size >= 12) << size << " bytes";
            ASSERT_FALSE(wire::VersionReport(cut).isAccepted()) << size << " bytes";
        }
    }
}

TEST(HostMessages, HaveTheWholeRecordsUpToTheirCount) {
    expectWholeRecords<wire::InputConfirmations>("04 02 7F FF 00 00 00 00 00 7F 01 01 00 01 00 00", 52);
    expectWholeRecords<wire::OutputConfirmations>("04 02 7F FF 00 00 00 00 00 7F 01 02 00 01 00 00", 48);
    expectWholeRecords<wire::ValueUpdates>("04 02 7F FF 00 00 00 00 00 7F 00 03 00 00 00 00 00 00 00 00", 12);
}

TEST(HostMessages, OfAnotherProtocolHaveNoCode) {
    RawMessage message = messageOf("00 00 7F FF 00 00 00 30 00 7F 01 03");
    for (unsigned int protocols = 0; protocols <= 0xFFFF; ++protocols) {
        message[0] = static_cast<char>(protocols >> 8U);
        message[1] = static_cast<char>(protocols & 0xFFU);
        ASSERT_EQ(wire::messageCode(message), protocols == 0x0402 ? 0x0103U : 0U) << protocols;
    }
}

TEST(LastUpdate, ReadsNamesAgainOnlyWhenIdsOrNamesChange) {
    const RawMessage message = messageOf(update(2, {updated(5, 1, "FF FF FF FE"), updated(6, 0, "3F C0 00 00")}));
    const wire::ValueUpdates updates(message);
    const std::string name = "A";
    int lookUps = 0;
    const auto nameOf = [&](std::uint32_t) {
        ++lookUps;
        return &name;
    };
    LastUpdate last;
    last.read(updates, 1, nameOf);
    last.read(updates, 1, nameOf);
    EXPECT_EQ(lookUps, 2);
    last.read(updates, 2, nameOf);
    EXPECT_EQ(lookUps, 4);
    EXPECT_EQ(texts(last.parameters()),
              (Lines{"A type 2 bits FFFFFFFE reserved 0", "A type 1 bits 3FC00000 reserved 0"}));
    last.read(updates, 2, [](std::uint32_t) -> const std::string* { return nullptr; });
    EXPECT_EQ(last.parameters().size(), 2U) << "the same ids, and no name has changed";
}

}  // namespace
}  // namespace com_tesk::test
