#include "host/Requests.h"

#include <gtest/gtest.h>

#include "tests/host/RawBytes.h"

namespace com_tesk::host {
namespace {

using host_test::hex;
using host_test::joined;
using host_test::nameField;

std::string flaw(const Bytes& body) {
    const Request request = parseRequest(body);
    const auto* const bad = std::get_if<BadRequest>(&request);
    return bad == nullptr ? "" : bad->why;
}

Bytes truncated(Bytes body, std::size_t size) {
    body.resize(size);
    return body;
}

TEST(ParseRequest, ReadsAVersionRequest) {
    const auto request =
        std::get<VersionRequest>(parseRequest(hex("04 02 7F FF 00 00 00 14 00 7F 00 06 00 05 00 00 00 00 00 00")));
    EXPECT_EQ(request.simulatorId, 5);
}

TEST(ParseRequest, ReadsInputSubscriptions) {
    const auto request = std::get<SubscribeInputs>(parseRequest(joined(
        {hex("04 02 7F FF 00 00 00 6C 00 7F 00 01 FF FF 00 00 00 00 00 02"), hex("00 00 2E E0 00 00 2E E1 00 00 00 00"),
         nameField("A"), hex("00 01 D4 C0 00 01 D4 C0 00 00 00 01"), Bytes(32, 'b')})));
    EXPECT_EQ(request.simulatorId, 0xFFFF);
    ASSERT_EQ(request.inputs.size(), 2U);
    EXPECT_EQ(request.inputs[0].rate, 12000U);
    EXPECT_EQ(request.inputs[0].secondRate, 12001U);
    EXPECT_FALSE(request.inputs[0].isInteger);
    EXPECT_EQ(request.inputs[0].name, "A");
    EXPECT_EQ(request.inputs[1].rate, 120000U);
    EXPECT_TRUE(request.inputs[1].isInteger);
    EXPECT_EQ(request.inputs[1].name, std::string(32, 'b')) << "a name may fill its whole field";
}

TEST(ParseRequest, ReadsOutputRegistrations) {
    const auto request = std::get<RegisterOutputs>(
        parseRequest(joined({hex("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 05 00 00 00 00 00 01"),
                             hex("00 00 04 B0 00 00 00 01"), nameField("B")})));
    ASSERT_EQ(request.outputs.size(), 1U);
    EXPECT_EQ(request.outputs[0].rate, 1200U);
    EXPECT_EQ(request.outputs[0].integerFlag, 1U);
    EXPECT_EQ(request.outputs[0].name, "B");
}

TEST(ParseRequest, ReadsUnsubscriptions) {
    const auto inputs = std::get<UnsubscribeInputs>(
        parseRequest(hex("04027FFF 0000001C 007F0004 00050000 00000002 00000007 000FFFFF")));
    EXPECT_EQ(inputs.ids, std::vector<std::uint32_t>({7, 0xFFFFF}));
    const auto outputs =
        std::get<UnregisterOutputs>(parseRequest(hex("04027FFF 00000018 007F0005 00050000 00000001 00000008")));
    EXPECT_EQ(outputs.ids, std::vector<std::uint32_t>({8}));
}

TEST(ParseRequest, ReadsAPublish) {
    const auto request =
        std::get<Publish>(parseRequest(hex("04027FFF 00000030 007F0003 00050000 00000009 00000002"
                                           "00000007 00000000 3F800000  00000008 00000001 FFFFFFFE")));
    EXPECT_EQ(request.mode, 9U);
    ASSERT_EQ(request.values.size(), 2U);
    EXPECT_EQ(request.values[0].id, 7U);
    EXPECT_EQ(request.values[0].bits, 0x3F800000U);
    EXPECT_EQ(request.values[1].id, 8U);
    EXPECT_EQ(request.values[1].bits, 0xFFFFFFFEU);
}

TEST(ParseRequest, ARequestOfNoRecordsIsARequest) {
    EXPECT_EQ(flaw(hex("04027FFF 00000014 007F0001 00050000 00000000")), "");
    EXPECT_EQ(flaw(hex("04027FFF 00000014 007F0002 00050000 00000000")), "");
    EXPECT_EQ(flaw(hex("04027FFF 00000018 007F0003 00050000 00000000 00000000")), "");
    EXPECT_EQ(flaw(hex("04027FFF 00000014 007F0004 00050000 00000000")), "");
    EXPECT_EQ(flaw(hex("04027FFF 00000014 007F0005 00050000 00000000")), "");
}

TEST(ParseRequest, EveryPrefixOfARequestIsRefused) {
    const Bytes bodies[] = {
        hex("04027FFF 00000014 007F0006 00050000 00000000"),
        joined({hex("04027FFF 00000040 007F0001 00050000 00000001 00002EE0 00002EE0 00000000"), nameField("A")}),
        joined({hex("04027FFF 0000003C 007F0002 00050000 00000001 000004B0 00000000"), nameField("A")}),
        hex("04027FFF 00000024 007F0003 00050000 00000000 00000001 00000007 00000000 3F800000"),
        hex("04027FFF 00000018 007F0004 00050000 00000001 00000007"),
        hex("04027FFF 00000018 007F0005 00050000 00000001 00000007"),
    };
    for (const Bytes& body : bodies) {
        ASSERT_EQ(flaw(body), "");
        for (std::size_t size = 0; size < body.size(); ++size) {
            Bytes prefix = truncated(body, size);
            EXPECT_NE(flaw(prefix), "") << host_test::text(prefix);
            if (size > 7) {
                prefix[7] = static_cast<std::uint8_t>(size);  // a sub-header that states the cut
                EXPECT_NE(flaw(prefix), "") << host_test::text(prefix);
            }
        }
    }
}

TEST(ParseRequest, ACountThatDoesNotFitItsBodyIsRefused) {
    EXPECT_EQ(flaw(hex("04027FFF 00000018 007F0004 00050000 00000002 00000007")),
              "input unsubscription: count 2 does not fit its body: 4 bytes of records of 4");
    EXPECT_EQ(flaw(hex("04027FFF 00000018 007F0004 00050000 00000000 00000007")),
              "input unsubscription: count 0 does not fit its body: 4 bytes of records of 4");
    EXPECT_EQ(flaw(hex("04027FFF 00000018 007F0005 00050000 FFFFFFFF 00000007")),
              "output unregistration: count 4294967295 does not fit its body: 4 bytes of records "
              "of 4");
    // 2^30 + 1 records of 4 bytes would be 4 bytes to whoever multiplies in 32 bits.
    EXPECT_NE(flaw(hex("04027FFF 00000018 007F0005 00050000 40000001 00000007")), "");
}

TEST(ParseRequest, AShortRecordOfAPublishIsRefused) {
    // A record of an unknown type is four bytes long and makes what follows unreadable.
    EXPECT_EQ(flaw(hex("04027FFF 00000028 007F0003 00050000 00000000 00000002"
                       "00000007 00000000 3F800000 00000008")),
              "publish: count 2 does not fit its body: 16 bytes of records of 12");
    EXPECT_EQ(flaw(hex("04027FFF 00000028 007F0003 00050000 00000000 00000001"
                       "00000007 00000000 3F800000 00000008")),
              "publish: count 1 does not fit its body: 16 bytes of records of 12");
}

TEST(ParseRequest, AVersionRequestOfAnotherSizeIsRefused) {
    EXPECT_EQ(flaw(hex("04027FFF 00000010 007F0006 00050000")), "version request of 16 bytes, not 20");
}

TEST(ParseRequest, OtherProtocolBytesAreRefused) {
    EXPECT_EQ(flaw(hex("05027FFF 00000014 007F0006 00050000 00000000")), "protocol bytes 0x05 0x02 are not 0x04 0x02");
    EXPECT_EQ(flaw(hex("04037FFF 00000014 007F0006 00050000 00000000")), "protocol bytes 0x04 0x03 are not 0x04 0x02");
}

TEST(ParseRequest, UnknownCodesAreRefused) {
    EXPECT_EQ(flaw(hex("04027FFF 00000014 007F0000 00050000 00000000")), "unknown message code 0x0000");
    EXPECT_EQ(flaw(hex("04027FFF 00000014 007F0007 00050000 00000000")), "unknown message code 0x0007");
    EXPECT_EQ(flaw(hex("04027FFF 00000014 007F0106 00050000 00000000")), "unknown message code 0x0106");
}

TEST(ParseRequest, ALengthThatTheSubHeaderDoesNotStateIsRefused) {
    EXPECT_EQ(flaw(hex("04027FFF 00000015 007F0006 00050000 00000000")),
              "sub-header states a body of 21 bytes, it has 20");
    EXPECT_EQ(flaw(hex("04027FFF 00000013 007F0006 00050000 00000000")),
              "sub-header states a body of 19 bytes, it has 20");
}

TEST(ParseRequest, ABodyShorterThanItsSubHeaderIsRefused) {
    EXPECT_EQ(flaw({}), "body of 0 bytes is too short for a request");
    EXPECT_EQ(flaw(hex("04027FFF 0000000B 007F00")), "body of 11 bytes is too short for a request");
}

}  // namespace
}  // namespace com_tesk::host
