#include <gtest/gtest.h>

#include "host/LoopbackHost.h"
#include "tests/host/EventLog.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

const Bytes kRequest =
    hex("00000034 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
        "04027FFF 00000014 007F0006 00050000 00000000");

Bytes reply(const char* simulatorWord) {
    return joined({hex("000000B8 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"),
                   hex("04027FFF 00000098 007F0106"), hex(simulatorWord), hex("48 6F 73 74 20 37"), zeros(122),
                   hex("00000003 00000001")});
}

HostOptions options() {
    HostOptions options;
    options.versionText = "Host 7";
    options.protocolVersion = 3;
    return options;
}

TEST(VersionExchange, AnswersTheClientsOwnSimulatorId) {
    LoopbackHost host(options());
    RawClient client(host.port());
    EXPECT_EQ(text(client.ask(kRequest)), text(reply("00050000")));
}

TEST(VersionExchange, AnswersTheAssignedSimulatorIdInstead) {
    HostOptions assigning = options();
    assigning.assignId = 40000;
    LoopbackHost host(assigning);
    RawClient client(host.port());
    EXPECT_EQ(text(client.ask(kRequest)), text(reply("9C400000")));
    EXPECT_EQ(text(client.ask(kRequest)), text(reply("9C400000")));
}

TEST(VersionExchange, AnAssignedSimulatorIdMayBeZero) {
    HostOptions assigning = options();
    assigning.assignId = 0;
    LoopbackHost host(assigning);
    RawClient client(host.port());
    EXPECT_EQ(text(client.ask(kRequest)), text(reply("00000000")));
}

TEST(VersionExchange, TellsWhenAClientCarriesAnotherSimulatorId) {
    EventLog log;
    HostOptions logging = options();
    logging.eventSink = log.sink();
    LoopbackHost host(logging);
    RawClient client(host.port());
    client.ask(versionRequest());
    client.ask(request(0x06, hex("00070000 00000000")));
    EXPECT_TRUE(log.has("client 1 asked for the version, answered simulator id 5 to its 5, protocol version 3"));
    EXPECT_EQ(log.count("client 1 carries simulator id 7 now"), 1U);
    EXPECT_EQ(log.count("carries simulator id"), 1U);
}

TEST(VersionExchange, IsNotNeededBeforeOtherRequests) {
    LoopbackHost host(options());
    RawClient client(host.port());
    EXPECT_FALSE(client.ask(registerFloat("A")).empty());
}

}  // namespace
}  // namespace com_tesk::host_test
