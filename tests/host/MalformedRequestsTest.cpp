#include <gtest/gtest.h>

#include "host/LoopbackHost.h"
#include "tests/host/EventLog.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

struct Ignored {
    const char* name;
    Bytes frame;
    const char* event;
};

/// What is wrong inside of an intact frame.
class IgnoredRequest : public testing::TestWithParam<Ignored> {};

TEST_P(IgnoredRequest, IsToldAndTheClientIsServedOn) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient client(host.port());
    client.send(GetParam().frame);
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize) << "and nothing in front of it";
    EXPECT_TRUE(log.has(std::string("client 1 request ignored: ") + GetParam().event))
        << testing::PrintToString(log.all());
    EXPECT_EQ(log.count("ignored"), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, IgnoredRequest,
    testing::Values(Ignored{"UnknownCode", request(0x09, hex("00050000 00000000")), "unknown message code 0x0009"},
                    Ignored{"AnswerCode", frame(hex("04027FFF 00000014 007F0106 00050000 00000000")),
                            "unknown message code 0x0106"},
                    Ignored{"WrongProtocol", frame(hex("05027FFF 00000014 007F0006 00050000 00000000")),
                            "protocol bytes 0x05 0x02 are not 0x04 0x02"},
                    Ignored{"WrongSubprotocol", frame(hex("04037FFF 00000014 007F0006 00050000 00000000")),
                            "protocol bytes 0x04 0x03 are not 0x04 0x02"},
                    Ignored{"EmptyBody", frame({}), "body of 0 bytes is too short for a request"},
                    Ignored{"OneByteBody", frame(hex("04")), "body of 1 bytes is too short for a request"},
                    Ignored{"BodyShorterThanSubHeader", frame(hex("04027FFF 0000000B 007F00")),
                            "body of 11 bytes is too short for a request"},
                    Ignored{"SubHeaderOnly", request(0x06, {}), "version request of 12 bytes, not 20"},
                    Ignored{"NoCount", request(0x01, hex("00050000")),
                            "input subscription: body of 16 bytes is too short for its count"},
                    Ignored{
                        "CountOneTooMany",
                        request(0x01, joined({hex("00050000 00000002 00000000 00000000 00000000"), nameField("A")})),
                        "input subscription: count 2 does not fit its body"},
                    Ignored{"HugeCountOfInputs", request(0x01, hex("00050000 FFFFFFFF")),
                            "input subscription: count 4294967295 does not fit its body"},
                    Ignored{"HugeCountOfOutputs", request(0x02, hex("00050000 FFFFFFFF")),
                            "output registration: count 4294967295 does not fit its body"},
                    Ignored{"HugeCountOfValues", request(0x03, hex("00050000 00000000 FFFFFFFF")),
                            "publish: count 4294967295 does not fit its body"},
                    Ignored{"HugeCountOfUnsubscriptions", request(0x04, hex("00050000 FFFFFFFF")),
                            "input unsubscription: count 4294967295 does not fit its body"},
                    Ignored{"HugeCountOfUnregistrations", request(0x05, hex("00050000 FFFFFFFF")),
                            "output unregistration: count 4294967295 does not fit its body"},
                    Ignored{"CutRecord", request(0x02, hex("00050000 00000001 000004B0 00000000 41")),
                            "output registration: count 1 does not fit its body"},
                    Ignored{"WrongStatedLength", frame(hex("04027FFF 00000000 007F0006 00050000 00000000")),
                            "sub-header states a body of 0 bytes, it has 20"},
                    Ignored{"ControlFrame",
                            hex("00000034 00000020 00000003 00000002 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFE"
                                "04027FFF 00000014 007F0006 00050000 00000000"),
                            "frame of kind 3 is no data frame"}),
    [](const auto& kind) { return std::string(kind.param.name); });

TEST(MalformedPublish, StoresNoneOfItsValues) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.send(request(0x03, hex("00050000 00000000 00000002 00000001 00000000 3F800000")));
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize);
    EXPECT_FALSE(host.value("A").has_value());
}

struct Lost {
    const char* name;
    const char* frameLengthAndHeaderLength;
    const char* event;
};

/// What leaves unknown where the next frame begins.
class LostStream : public testing::TestWithParam<Lost> {};

TEST_P(LostStream, EndsThatClientAndNoOther) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient other(host.port());
    ASSERT_TRUE(host.waitForClients(1, kPatience));
    RawClient client(host.port());
    client.send(joined({hex(GetParam().frameLengthAndHeaderLength),
                        hex("00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"),
                        hex("04027FFF 00000014 007F0006 00050000 00000000")}));
    EXPECT_EQ(client.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_TRUE(log.has(std::string("client 2 dropped: malformed frame: ") + GetParam().event))
        << testing::PrintToString(log.all());
    EXPECT_EQ(host.clientCount(), 1U);
    EXPECT_EQ(other.ask(versionRequest()).size(), kVersionReplySize);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, LostStream,
    testing::Values(Lost{"LengthZero", "00000000 00000020", "frame length 0 is less"},
                    Lost{"LengthThirtyOne", "0000001F 00000020", "frame length 31 is less"},
                    Lost{"JustAboveSixteenMebibytes", "01000001 00000020", "frame length 16777217 is more than 16 MiB"},
                    Lost{"FourGibibytes", "FFFFFFFF 00000020", "frame length 4294967295 is more than 16 MiB"},
                    Lost{"HeaderOfThirtyOne", "00000034 0000001F", "header length is 31, not 32"},
                    Lost{"HeaderOfZero", "00000034 00000000", "header length is 0, not 32"}),
    [](const auto& kind) { return std::string(kind.param.name); });

TEST(LostStreamBehindRequests, RequestsInFrontOfTheMalformedFrameAreServed) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.send(joined({registerFloat("A"), publish("00000001 00000000 3F800000"), zeros(32)}));
    EXPECT_EQ(client.receiveFrame().size(), 100U);
    EXPECT_EQ(client.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_EQ(host.value("A"), HostValue::real(1.0F));
}

TEST(LargeFrame, OfSixteenMebibytesIsTaken) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient client(host.port());
    client.send(frame(zeros(16777216 - 32)));
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize);
    EXPECT_TRUE(log.has("client 1 request ignored: protocol bytes 0x00 0x00 are not 0x04 0x02"));
}

}  // namespace
}  // namespace com_tesk::host_test
