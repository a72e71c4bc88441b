#include <gtest/gtest.h>

#include "tests/support/Emulator.h"
#include "tests/tools/PublisherHost.h"
#include "tests/tools/PublisherProcess.h"

namespace com_tesk::test {
namespace {

using Peer = std::unique_ptr<ScriptedHost::Peer>;

/// Waits until the tool is in that sleep between its looks at the confirmation, from 1 on. To be called when the
/// registration has arrived.
void waitForSleep(PublisherProcess& publisher, ScriptedHost::Peer& peer, int sleep) {
    // The first look has passed by then, and the second is far away.
    EXPECT_TRUE(peer.isQuietFor(std::chrono::milliseconds(300)));
    for (int i = 1; i < sleep; ++i) {
        EXPECT_TRUE(publisher.waitUntilBlockedAgain(publisher.timesBlocked()));
    }
}

TEST(PublisherFailures, WithoutAHostItGivesUpAfterThreeSeconds) {
    PublisherProcess publisher({ownAddress(), "A", "1"}, PublisherProcess::asBuilt());
    EXPECT_EQ(publisher.exitCode(), 1);
    EXPECT_EQ(publisher.outText(), "");
    EXPECT_EQ(publisher.errText(), "Failed to open connection. Exiting.\n");
    EXPECT_GE(publisher.seconds(), 3.0);
    // Three seconds of looking, and the end of the worker, which may be in a sleep of its own.
    EXPECT_LT(publisher.seconds(), 8.0);
}

TEST(PublisherFailures, TheFailedConnectionIsReportedBeforeTheWorkerIsWaitedFor) {
    PublisherProcess publisher({ownAddress(), "A", "1"}, PublisherProcess::asBuilt());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(publisher.waitForErr("Failed to open connection. Exiting.\n"));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(passed.count(), 2.9);
    // An emulator may need a second to start the program.
    EXPECT_LT(passed.count(), isEmulated() ? 8.0 : 4.0);
}

TEST(PublisherFailures, AnAddressThatIsNoneIsAFailedConnection) {
    PublisherProcess publisher({"no address", "A", "1"}, PublisherProcess::asBuilt());
    EXPECT_EQ(publisher.exitCode(), 1);
    EXPECT_EQ(publisher.outText(), "");
    EXPECT_EQ(publisher.errText(), "Failed to open connection. Exiting.\n");
}

TEST(PublisherFailures, AHostThatComesInTimeIsFound) {
    PublisherProcess publisher({ownAddress(), "A", "1"});
    EXPECT_FALSE(publisher.hasEndedWithin(std::chrono::milliseconds(500)));
    PublisherHost host;
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 1\n");
}

TEST(PublisherFailures, ARegistrationThatIsNeverConfirmedEndsTheRunAfterFourLooks) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1", "B", "2"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    // Four seconds of looking, and the second before the clean-up.
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(4700)));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(0xFFFFF));
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\n");
    EXPECT_EQ(publisher.errText(), "No response from server to registration for A. Leaving now.\n");
}

TEST(PublisherFailures, AConfirmationBeforeTheFourthLookIsInTime) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    waitForSleep(publisher, *peer, 3);
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.errText(), "");
}

TEST(PublisherFailures, AConfirmationAfterTheFourthLookIsTooLate) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    waitForSleep(publisher, *peer, 4);
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.errText(), "No response from server to registration for A. Leaving now.\n");
}

TEST(PublisherFailures, AfterAnUnconfirmedSecondPairTheFirstStaysPublished) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1", "B", "2", "C", "3"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(peer->receiveBody(), registrationOf("B"));
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 07 00 0F FF FF");
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 1\n");
    EXPECT_EQ(publisher.errText(), "No response from server to registration for B. Leaving now.\n");
}

TEST(PublisherFailures, ANameOfThirtyTwoCharactersIsRefusedByRegistrationAndPublishing) {
    const std::string name(32, 'n');
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), name, "1", "B", "2"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    // Nothing is registered, so that there is nothing to take back either.
    EXPECT_EQ(peer->receive(1), Bytes{});
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\n");
    EXPECT_EQ(publisher.errText(), "Length of parameter id string '" + name + "' exceeds maximum 32\n" +
                                       "Length of parameter id string '" + name + "' exceeds maximum 32\n" +
                                       "Error publishing parameter '" + name + "' (3). Leaving now.\n");
    // Nothing is pending, so that there is nothing to wait for.
    EXPECT_LT(publisher.seconds(), 5.0);
}

TEST(PublisherFailures, ASecondNameThatIsRefusedLeavesTheFirstPublished) {
    const std::string name(40, 'n');
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1", name, "2", "B", "3"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 1\n");
    EXPECT_EQ(publisher.errText(), "Length of parameter id string '" + name + "' exceeds maximum 32\n" +
                                       "Length of parameter id string '" + name + "' exceeds maximum 32\n" +
                                       "Error publishing parameter '" + name + "' (3). Leaving now.\n");
}

// The connection must break without the worker seeing it, which reads all the time. So it is kept busy: standard output
// takes no more than "Connected.", and the lines about the host's version are stuck there.
TEST(PublisherFailures, AFailedWriteIsReportedAsResultTwo) {
    PublisherHost host;
    PublisherSetup setup;
    setup.isClogged = true;
    PublisherProcess publisher({ownAddress(), "A", "1", "B", "2"}, setup);
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    waitForSleep(publisher, *peer, 1);
    const long sleepsBefore = publisher.timesBlocked();
    peer->send(confirmationOf(7, "A") + " " +
               hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 01 00 00 " + hexField("Host", 128) +
                        " 00 00 00 03 00 00 00 01"));
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(200)));
    peer->reset();
    host.stopListening();
    // At its next look the tool publishes, fails, and is stuck behind the worker with the line that says so.
    ASSERT_TRUE(publisher.waitUntilBlockedAgain(sleepsBefore));
    publisher.unclog();
    EXPECT_EQ(publisher.exitCode(), 0);
    // What the worker has to say of the same broken connection may stand before or between.
    const std::string& errors = publisher.errText();
    EXPECT_NE(errors.find("Error writing to server ("), std::string::npos) << errors;
    const std::string lastLine = "Error publishing parameter 'A' (2). Leaving now.\n";
    ASSERT_GE(errors.size(), lastLine.size());
    EXPECT_EQ(errors.substr(errors.size() - lastLine.size()), lastLine) << errors;
    EXPECT_EQ(publisher.outText().substr(0, 11), "Connected.\n");
    EXPECT_EQ(publisher.outText().find("Published"), std::string::npos) << publisher.outText();
}

}  // namespace
}  // namespace com_tesk::test
