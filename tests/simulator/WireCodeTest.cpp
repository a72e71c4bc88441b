#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "simulator/HostMessages.h"
#include "simulator/LastUpdate.h"
#include "simulator/RequestEncoding.h"
#include "tests/support/Hex.h"

namespace com_tesk::test {
namespace {

// Encoding and decoding without an engine.

/// The hex text of a request that `encode` writes.
std::string encoded(std::size_t maxSize, const std::function<char*(char*)>& encode) {
    std::vector<char> request(maxSize);
    const auto length = static_cast<std::size_t>(encode(request.data()) - request.data());
    request.resize(length);
    wire::complete(request.data(), length);
    return hexText(request);
}

std::string text(const std::string& freeHex) {
    return hexText(hex(freeHex));
}

const std::string kFiller = "00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF ";

TEST(RequestEncoding, OfAVersionRequest) {
    EXPECT_EQ(
        encoded(wire::maxRequestSize(1), [](char* at) { return wire::putVersionRequest(at, 5); }),
        text("00 00 00 34 00 00 00 20" + kFiller + "04 02 7F FF 00 00 00 14 00 7F 00 06 00 05 00 00 00 00 00 00"));
}

TEST(RequestEncoding, OfASubscription) {
    EXPECT_EQ(encoded(wire::maxRequestSize(1, 2, layout::input_subscription::kRecordLength),
                      [](char* at) {
                          at = wire::beginInputSubscription(at, 1, 2);
                          at = wire::putInput(at, "A", CSClient::TYPE_INT, 1);
                          return wire::putInput(at, "B", CSClient::TYPE_FLOAT, 3);
                      }),
              text("00 00 00 8C 00 00 00 20" + kFiller + "04 02 7F FF 00 00 00 6C 00 7F 00 01 00 01 00 00 00 00 00 02" +
                   "00 00 2E E0 00 00 2E E0 00 00 00 01" + hexField("A") + "00 01 D4 C0 00 01 D4 C0 00 00 00 00" +
                   hexField("B")));
}

TEST(RequestEncoding, OfARegistration) {
    EXPECT_EQ(
        encoded(
            wire::maxRequestSize(1, 1, layout::output_registration::kRecordLength),
            [](char* at) { return wire::putOutput(wire::beginOutputRegistration(at, 1, 1), "A", CSClient::TYPE_INT); }),
        text("00 00 00 5C 00 00 00 20" + kFiller +
             "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 01" + hexField("A")));
}

TEST(RequestEncoding, OfAPublication) {
    const auto publication = [](CSClient::ParameterType type) {
        return encoded(wire::maxRequestSize(2, 1, layout::publication::kRecordLength), [type](char* at) {
            return wire::putValue(wire::beginPublication(at, 1, 9, 1), 7, type, {1.5F});
        });
    };
    const std::string begin = "00 00 00 44 00 00 00 20" + kFiller +
                              "04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 09 00 00 00 01 00 00 00 07";
    EXPECT_EQ(publication(CSClient::TYPE_FLOAT), text(begin + "00 00 00 00 3F C0 00 00"));
    EXPECT_EQ(publication(CSClient::TYPE_INT), text(begin + "00 00 00 01 3F C0 00 00"));
    EXPECT_EQ(publication(CSClient::TYPE_UNDEFINED), text(begin + "00 00 00 00 00 00 00 00"));
    EXPECT_EQ(publication(3),
              text("00 00 00 3C 00 00 00 20" + kFiller +
                   "04 02 7F FF 00 00 00 1C 00 7F 00 03 00 01 00 00 00 00 00 09 00 00 00 01 00 00 00 07"));
}

TEST(RequestEncoding, OfUnregistrations) {
    const std::string begin = "00 00 00 38 00 00 00 20" + kFiller + "04 02 7F FF 00 00 00 18 00 7F 00 ";
    EXPECT_EQ(encoded(wire::maxRequestSize(2),
                      [](char* at) { return wire::putId(wire::beginInputUnsubscription(at, 1, 1), 9); }),
              text(begin + "04 00 01 00 00 00 00 00 01 00 00 00 09"));
    EXPECT_EQ(encoded(wire::maxRequestSize(2),
                      [](char* at) { return wire::putId(wire::beginOutputUnregistration(at, 1, 1), 9); }),
              text(begin + "05 00 01 00 00 00 00 00 01 00 00 00 09"));
}

RawMessage messageOf(const std::string& bodyHex) {
    RawMessage message(RawMessage::DATA);
    const Bytes bytes = hex(bodyHex);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}

const std::string kTwoUpdates =
    "04 02 7F FF 00 00 00 30 00 7F 00 03 00 00 00 00 00 00 00 00 00 00 00 02"
    "00 00 00 05 00 00 00 01 FF FF FF FE 00 00 00 06 00 00 00 00 3F C0 00 00";

TEST(HostMessages, HaveOnlyTheRecordsThatFitWhole) {
    const RawMessage whole = messageOf(kTwoUpdates);
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        RawMessage cut(RawMessage::DATA);
        cut.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(wire::ValueUpdates(cut).size(), size < 36 ? 0U : size < 48 ? 1U : 2U) << size;
        EXPECT_EQ(wire::messageCode(cut), size < 12 ? 0U : 3U) << size;
        EXPECT_FALSE(wire::VersionReport(cut).isAccepted()) << size;
    }
}

TEST(HostMessages, OfAnotherProtocolHaveNoCode) {
    EXPECT_EQ(wire::messageCode(messageOf("05 02 7F FF 00 00 00 30 00 7F 00 03")), 0U);
    EXPECT_EQ(wire::messageCode(messageOf("04 03 7F FF 00 00 00 30 00 7F 00 03")), 0U);
}

TEST(HostMessages, GiveIdsNamesAndValues) {
    const RawMessage inputs = messageOf(
        "04 02 7F FF 00 00 00 48 00 7F 01 01 00 01 00 00 00 00 00 01 00 00 00 07"
        "00 00 00 00 00 00 00 00 00 00 00 02 00 00 00 09" +
        hexField("ALT"));
    const wire::InputConfirmations confirmations(inputs);
    ASSERT_EQ(confirmations.size(), 1U);
    EXPECT_EQ(confirmations.id(0), 7U);
    EXPECT_EQ(confirmations.name(0), "ALT");
    CSClient::Parameter parameter;
    confirmations.read(0, parameter);
    EXPECT_EQ(parameter.type, CSClient::TYPE_INT);
    EXPECT_EQ(parameter.value.asInt, 9);

    const RawMessage outputs = messageOf(
        "04 02 7F FF 00 00 00 44 00 7F 01 02 00 01 00 00 00 00 00 01 00 00 00 08"
        "00 00 00 00 00 00 00 00 00 00 00 00" +
        hexText(Bytes(32, 'x')));
    ASSERT_EQ(wire::OutputConfirmations(outputs).size(), 1U);
    EXPECT_EQ(wire::OutputConfirmations(outputs).id(0), 8U);
    EXPECT_EQ(wire::OutputConfirmations(outputs).name(0), std::string(32, 'x'));
}

TEST(LastUpdate, ReadsNamesAgainOnlyWhenIdsOrNamesChange) {
    const RawMessage message = messageOf(kTwoUpdates);
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
    ASSERT_EQ(last.parameters().size(), 2U);
    EXPECT_EQ(last.parameters()[0].value.asInt, -2);
    EXPECT_EQ(last.parameters()[1].value.asFloat, 1.5F);
    last.read(updates, 2, [](std::uint32_t) -> const std::string* { return nullptr; });
    EXPECT_EQ(last.parameters().size(), 2U) << "the same ids, and no name has changed";
}

}  // namespace
}  // namespace com_tesk::test
