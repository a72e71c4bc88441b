#include <gtest/gtest.h>

#include "host/LoopbackHost.h"
#include "tests/host/EventLog.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

/// A reply to one subscription of rate 12000: `idFlagValue` with the words that stand around the
/// rates.
Bytes inputReply(const char* id, const char* flagValue, const std::string& name) {
    return frame(joined({hex("04 02 7F FF 00 00 00 48 00 7F 01 01 00050000 00000001"), hex(id),
                         hex("00002EE0 00002EE0"), hex(flagValue), nameField(name)}));
}

Bytes outputReply(const char* id, const char* flag, const std::string& name) {
    return frame(joined({hex("04 02 7F FF 00 00 00 44 00 7F 01 02 00050000 00000001"), hex(id), hex("000004B0"),
                         hex(flag), hex("00000000"), nameField(name)}));
}

TEST(Registration, AnInputIsConfirmedWithAnIdItsRatesAndZero) {
    LoopbackHost host({});
    RawClient client(host.port());
    const Bytes request =
        joined({hex("00000060 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"),
                hex("04027FFF 00000040 007F0001 00050000 00000001"), hex("00002EE0 0001D4C0 00000000 41"), zeros(31)});
    const Bytes reply = joined({hex("00000068 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"),
                                hex("04027FFF 00000048 007F0101 00050000 00000001"),
                                hex("00000001 00002EE0 0001D4C0 00000000 00000000 41"), zeros(31)});
    EXPECT_EQ(text(client.ask(request)), text(reply));
}

TEST(Registration, AnOutputIsConfirmedWithAnIdAndItsOwnWords) {
    LoopbackHost host({});
    RawClient client(host.port());
    const Bytes request =
        joined({hex("0000005C 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"),
                hex("04027FFF 0000003C 007F0002 00050000 00000001"), hex("000004B0 00000001 42"), zeros(31)});
    const Bytes reply = joined({hex("00000064 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"),
                                hex("04027FFF 00000044 007F0102 00050000 00000001"),
                                hex("00000001 000004B0 00000001 00000000 42"), zeros(31)});
    EXPECT_EQ(text(client.ask(request)), text(reply));
}

TEST(Registration, SeveralNamesAreConfirmedInOneReplyInTheirOrder) {
    LoopbackHost host({});
    RawClient client(host.port());
    const Bytes twoOutputs =
        joined({hex("00050000 00000002 000004B0 00000000"), nameField("B"), hex("000004B0 00000001"), nameField("A")});
    EXPECT_EQ(text(client.ask(request(0x02, twoOutputs))),
              text(frame(joined({hex("04 02 7F FF 00 00 00 74 00 7F 01 02 00050000 00000002"),
                                 hex("00000001 000004B0 00000000 00000000"), nameField("B"),
                                 hex("00000002 000004B0 00000001 00000000"), nameField("A")}))));
}

TEST(Registration, ARegistrationOfNothingIsAnsweredWithNothing) {
    LoopbackHost host({});
    RawClient client(host.port());
    EXPECT_EQ(text(client.ask(request(0x01, hex("00050000 00000000")))),
              text(frame(hex("04 02 7F FF 00 00 00 14 00 7F 01 01 00050000 00000000"))));
    EXPECT_EQ(text(client.ask(request(0x02, hex("00050000 00000000")))),
              text(frame(hex("04 02 7F FF 00 00 00 14 00 7F 01 02 00050000 00000000"))));
}

TEST(Registration, InputsAndOutputsOfOneClientNeverShareAnId) {
    LoopbackHost host({});
    RawClient client(host.port());
    EXPECT_EQ(client.ask(subscribeFloat("A")), inputReply("00000001", "00000000 00000000", "A"));
    EXPECT_EQ(client.ask(registerFloat("A")), outputReply("00000002", "00000000", "A"));
}

TEST(Registration, EachClientHasItsOwnIds) {
    LoopbackHost host({});
    RawClient one(host.port());
    RawClient two(host.port());
    EXPECT_EQ(one.ask(registerFloat("A")), outputReply("00000001", "00000000", "A"));
    EXPECT_EQ(two.ask(registerFloat("B")), outputReply("00000001", "00000000", "B"));
}

TEST(Registration, RegisteringAgainIsAnsweredAgainWithTheSameId) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.ask(subscribeFloat("B"));
    EXPECT_EQ(client.ask(registerFloat("A")), outputReply("00000001", "00000000", "A"));
    EXPECT_EQ(client.ask(subscribeFloat("B")), inputReply("00000002", "00000000 00000000", "B"));
}

TEST(Registration, AnOutputThatWasUnregisteredGetsAFreshId) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.send(unregister("00000001"));
    EXPECT_EQ(client.ask(registerFloat("A")), outputReply("00000002", "00000000", "A"));
}

TEST(Registration, AnInputIsAnsweredWithTheStoredValueInItsStoredType) {
    HostOptions options;
    options.initialValues = {{"A", HostValue::real(1.0F)}, {"B", HostValue::integer(-2)}};
    LoopbackHost host(options);
    RawClient client(host.port());
    EXPECT_EQ(client.ask(subscribeInteger("A")), inputReply("00000001", "00000000 3F800000", "A"));
    EXPECT_EQ(client.ask(subscribeFloat("B")), inputReply("00000002", "00000001 FFFFFFFE", "B"));
}

TEST(Registration, AnInputWithoutAStoredValueIsZeroOfItsOwnType) {
    LoopbackHost host({});
    RawClient client(host.port());
    EXPECT_EQ(client.ask(subscribeInteger("A")), inputReply("00000001", "00000001 00000000", "A"));
    EXPECT_FALSE(host.value("A").has_value());
}

TEST(Registration, NamesThatFillTheirFieldAreConfirmedWhole) {
    LoopbackHost host({});
    RawClient client(host.port());
    const std::string name(32, 'n');
    EXPECT_EQ(client.ask(registerFloat(name)), outputReply("00000001", "00000000", name));
}

TEST(Registration, RegistrationsAreTold) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient client(host.port());
    client.ask(registerInteger("A"));
    client.ask(subscribeFloat("B"));
    client.send(unregister("00000001"));
    client.send(unsubscribe("00000002"));
    EXPECT_TRUE(log.waitFor("client 1 registered output A (integer, output id 1)"));
    EXPECT_TRUE(log.waitFor("client 1 subscribed to B = 0 (float, input id 2)"));
    EXPECT_TRUE(log.waitFor("client 1 unregistered output A (output id 1)"));
    EXPECT_TRUE(log.waitFor("client 1 unsubscribed from B (input id 2)"));
}

TEST(Registration, UnknownIdsInUnsubscriptionsAreToldAndTheOthersHonoured) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient client(host.port());
    client.ask(subscribeFloat("A"));
    client.ask(registerFloat("B"));
    client.send(request(0x04, hex("00050000 00000002 000FFFFF 00000001")));
    client.send(request(0x05, hex("00050000 00000002 00000001 00000002")));
    EXPECT_TRUE(log.waitFor("client 1 unregistered output B (output id 2)"));
    EXPECT_TRUE(log.has("client 1 unsubscribed from A (input id 1)"));
    EXPECT_TRUE(log.has("client 1 input unsubscription names unknown id 1048575, record ignored"));
    EXPECT_TRUE(log.has("client 1 output unregistration names unknown id 1, record ignored"));
}

}  // namespace
}  // namespace com_tesk::host_test
