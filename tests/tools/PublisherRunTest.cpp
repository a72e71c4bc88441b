#include <gtest/gtest.h>

#include "host/LoopbackHost.h"
#include "tests/tools/PublisherHost.h"
#include "tests/tools/PublisherProcess.h"

namespace com_tesk::test {
namespace {

using Peer = std::unique_ptr<ScriptedHost::Peer>;

TEST(PublisherRun, OneValueIsRegisteredPublishedAndUnregistered) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "ALT", "12.5"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00");
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 5C 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 "
              "41 4C 54 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    peer->send(confirmationOf(7, "ALT"));
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 44 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 "
              "00 00 00 07 00 00 00 00 41 48 00 00");
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 38 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 18 00 7F 00 05 00 01 00 00 00 00 00 01 00 00 00 07");
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished ALT with value 12.5\n");
    EXPECT_EQ(publisher.errText(), "");
}

TEST(PublisherRun, BetweenTheLastValueAndTheUnregistrationItWaitsASecond) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(700)));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
}

TEST(PublisherRun, AnIdReachesEveryRequest) {
    PublisherHost host;
    PublisherProcess publisher({"-csid", "7", ownAddress(), "A", "12.5"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), "04 02 7F FF 00 00 00 14 00 7F 00 06 00 07 00 00 00 00 00 00");
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 07 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 " + hexField("A"));
    peer->send(confirmationOf(9, "A"));
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 24 00 7F 00 03 00 07 00 00 00 00 00 00 00 00 00 01 "
              "00 00 00 09 00 00 00 00 41 48 00 00");
    EXPECT_EQ(peer->receiveBody(), "04 02 7F FF 00 00 00 18 00 7F 00 05 00 07 00 00 00 00 00 01 00 00 00 09");
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 12.5\n");
}

TEST(PublisherRun, EachPairIsRegisteredConfirmedAndPublishedBeforeTheNext) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "B", "2", "A", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("B"));
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(300)));
    peer->send(confirmationOf(7, "B"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "40 00 00 00"));
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(8, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(8, "3F 80 00 00"));
    // All at once, in the order of the names.
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 08 00 00 00 07");
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished B with value 2\nPublished A with value 1\n");
    EXPECT_EQ(publisher.errText(), "");
}

TEST(PublisherRun, TheSameNameTwiceIsRegisteredOnceAndPublishedTwice) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1", "A", "2"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "40 00 00 00"));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 1\nPublished A with value 2\n");
    EXPECT_EQ(publisher.errText(), "Parameter 'A' already registered.\n");
}

TEST(PublisherRun, AnEmptyNameIsANameLikeAnyOther) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf(""));
    peer->send(confirmationOf(7, ""));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished  with value 1\n");
}

TEST(PublisherRun, ANameOfThirtyOneCharactersIsAccepted) {
    const std::string name(31, 'n');
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), name, "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf(name));
    peer->send(confirmationOf(7, name));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished " + name + " with value 1\n");
}

TEST(PublisherRun, WhatTheHostSaysOfItselfIsPrinted) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    ASSERT_TRUE(publisher.waitForOut("Connected.\n"));
    peer->send(hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 01 00 00 " + hexField("Host 2.1", 128) +
                        " 00 00 00 03 00 00 00 01"));
    ASSERT_TRUE(publisher.waitForOut("Found protocol version: 3\n"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(),
              "Connected.\nFound server version: Host 2.1\nFound simulator id: 1\nFound protocol version: 3\n"
              "Published A with value 1\n");
}

TEST(PublisherRun, ALoopbackHostGetsTheValues) {
    HostOptions options;
    options.listenAddress = ownAddress();
    options.port = kPublisherPort;
    const LoopbackHost host(options);
    PublisherProcess publisher({ownAddress(), "ALT", "12.5", "SPEED", "-3e2"}, PublisherProcess::asBuilt());
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(host.value("ALT"), HostValue::real(12.5F));
    EXPECT_EQ(host.value("SPEED"), HostValue::real(-300.0F));
    EXPECT_EQ(publisher.errText(), "");
    EXPECT_NE(publisher.outText().find("Published ALT with value 12.5\nPublished SPEED with value -300\n"),
              std::string::npos)
        << publisher.outText();
}

}  // namespace
}  // namespace com_tesk::test
