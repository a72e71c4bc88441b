#include <gtest/gtest.h>

#include "tests/tools/PublisherHost.h"
#include "tests/tools/PublisherProcess.h"

namespace com_tesk::test {
namespace {

using Peer = std::unique_ptr<ScriptedHost::Peer>;

const char* const kBothRegistrations =
    "04 02 7F FF 00 00 00 64 00 7F 00 02 00 01 00 00 00 00 00 02 "
    "00 00 04 B0 00 00 00 00 41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 00 "
    "00 00 04 B0 00 00 00 00 42 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 00";

const char* const kReconnected =
    "Attempting to reconnect...\nRe-registering input/output parameters (0/1)...\n"
    "Registering output parameters with server...\n";

/// A host that closes the connection in the middle of a run and takes the tool back.
class PublisherReconnect : public testing::Test {
  protected:
    /// Plays the run of "A 1 B 2" up to where B is registered but not confirmed, and closes there.
    void closeBeforeTheSecondConfirmation(PublisherHost& host) {
        const Peer peer = host.accept();
        EXPECT_EQ(peer->receiveBody(), kVersionRequest);
        EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
        peer->send(confirmationOf(7, "A"));
        EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
        EXPECT_EQ(peer->receiveBody(), registrationOf("B"));
    }
};

TEST_F(PublisherReconnect, AHostThatReturnsBeforeTheConfirmationGetsTheValue) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1"});
    Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->close();
    peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), std::string("Connected.\n") + kReconnected + "Published A with value 1\n");
    EXPECT_EQ(publisher.errText(), "Connection closed by server.\n");
}

TEST_F(PublisherReconnect, AHostThatReturnsWithTheSameIdsGetsEverything) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1", "B", "2"});
    closeBeforeTheSecondConfirmation(host);
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), kBothRegistrations);
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    peer->send(confirmationOf(8, "B"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(8, "40 00 00 00"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(),
              "Connected.\nPublished A with value 1\nAttempting to reconnect...\n"
              "Re-registering input/output parameters (0/2)...\nRegistering output parameters with server...\n"
              "Published B with value 2\n");
}

// Ids of the earlier connection stay counted.
TEST_F(PublisherReconnect, AHostThatReturnsWithOtherIdsEndsTheRun) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1", "B", "2"});
    closeBeforeTheSecondConfirmation(host);
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), kBothRegistrations);
    peer->send(confirmationOf(17, "A") + " " + confirmationOf(18, "B"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(17, "3F 80 00 00"));
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 11 00 00 00 12");
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.errText(),
              "Connection closed by server.\nNo response from server to registration for B. Leaving now.\n");
}

TEST_F(PublisherReconnect, AHostThatStaysAwayEndsTheRun) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    host.stopListening();
    peer->close();
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nAttempting to reconnect...\n");
    EXPECT_EQ(publisher.errText(),
              "Connection closed by server.\nNo response from server to registration for A. Leaving now.\n");
}

TEST_F(PublisherReconnect, AHostThatClosesAfterTheLastValueEndsTheRunInOrder) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", "1"});
    const Peer peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    host.stopListening();
    peer->close();
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.errText(), "Connection closed by server.\n");
}

}  // namespace
}  // namespace com_tesk::test
