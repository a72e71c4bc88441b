#include "tests/support/Emulator.h"
#include "tests/tools/PublisherTest.h"

namespace com_tesk::test {
namespace {

constexpr std::chrono::milliseconds kShort{300};

class PublisherFailures : public PublisherTest {
  protected:
    /// Waits until the publisher is in that sleep, counted from 1, between its polls for the confirmation. To be called
    /// when the registration has arrived.
    void waitForSleep(ChildProcess& publisher, int sleep) {
        // By then the first poll has passed, and the second is far away.
        EXPECT_TRUE(peer->isQuietFor(kShort));
        for (int i = 1; i < sleep; ++i) {
            EXPECT_TRUE(publisher.waitUntilBlockedAgain(publisher.timesBlocked()));
        }
    }

    /// Returns the lines about a name that is too long.
    static std::string refusalOf(const std::string& name) {
        const std::string tooLong = "Length of parameter id string '" + name + "' exceeds maximum 32\n";
        return tooLong + tooLong + "Error publishing parameter '" + name + "' (3). Leaving now.\n";
    }
};

TEST_F(PublisherFailures, WithoutAHostItExitsWithOneAfterThreeSeconds) {
    stopListening();
    ChildProcess withoutAddress = runAsBuilt({"no address", "A", "1"});
    ChildProcess publisher = runAsBuilt({ownAddress(), "A", "1"});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(publisher.waitForErr("Failed to open connection. Exiting.\n"));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(passed.count(), 2.9);
    // An emulator may need a second to start the program.
    EXPECT_LT(passed.count(), isEmulated() ? 8.0 : 4.0);
    EXPECT_EQ(publisher.exitCode(), 1);
    EXPECT_EQ(publisher.outText(), "");
    EXPECT_EQ(publisher.errText(), "Failed to open connection. Exiting.\n");
    // The line is printed before the wait for the worker, which may be in a sleep.
    EXPECT_LT(publisher.seconds(), 8.0);
    EXPECT_EQ(withoutAddress.exitCode(), 1);
    EXPECT_EQ(withoutAddress.outText() + withoutAddress.errText(), publisher.errText());
}

TEST_F(PublisherFailures, AHostThatStartsWithinThreeSecondsIsFound) {
    stopListening();
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    EXPECT_FALSE(publisher.hasEndedWithin(std::chrono::milliseconds(500)));
    listen();
    accept();
    expectValue(7, "A", "3F 80 00 00");
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 1\n");
}

TEST_F(PublisherFailures, AConfirmationBeforeTheFourthPollIsInTime) {
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    accept();
    expectRegistration("A");
    waitForSleep(publisher, 3);
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.errText(), "");
}

TEST_F(PublisherFailures, AConfirmationAfterTheFourthPollIsTooLate) {
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2"});
    accept();
    expectRegistration("A");
    waitForSleep(publisher, 4);
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\n");
    EXPECT_EQ(publisher.errText(), "No response from server to registration for A. Leaving now.\n");
}

TEST_F(PublisherFailures, AMissingConfirmationLeavesTheFirstValuePublished) {
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2", "C", "3"});
    accept();
    expectValue(7, "A", "3F 80 00 00");
    expectRegistration("B");
    // It polls for four seconds and then waits one second before it unregisters.
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(4700)));
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 07 00 0F FF FF");
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 1\n");
    EXPECT_EQ(publisher.errText(), "No response from server to registration for B. Leaving now.\n");
}

TEST_F(PublisherFailures, ANameOf32CharactersIsNeitherRegisteredNorPublished) {
    const std::string name(32, 'n');
    ChildProcess publisher = run({ownAddress(), name, "1", "B", "2"});
    accept();
    EXPECT_EQ(peer->receive(1), Bytes{});
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\n");
    EXPECT_EQ(publisher.errText(), refusalOf(name));
    EXPECT_LT(publisher.seconds(), 5.0) << "it waits for no confirmation";
}

TEST_F(PublisherFailures, ARefusedSecondNameLeavesTheFirstValuePublished) {
    const std::string name(40, 'n');
    ChildProcess publisher = run({ownAddress(), "A", "1", name, "2", "B", "3"});
    accept();
    expectValue(7, "A", "3F 80 00 00");
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished A with value 1\n");
    EXPECT_EQ(publisher.errText(), refusalOf(name));
}

// The connection must break without the worker's notice, which reads all the time. So the worker blocks: standard
// output has no space for the lines about the host's version.
TEST_F(PublisherFailures, AFailedWriteIsReportedAsResultTwo) {
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2"}, std::string("Connected.\n").size());
    accept();
    expectRegistration("A");
    waitForSleep(publisher, 1);
    const long sleepsBefore = publisher.timesBlocked();
    peer->send(confirmationOf(7, "A") + " " + versionReply());
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(200)));
    peer->reset();
    stopListening();
    // After its next poll the publisher publishes, fails, and blocks after the worker with the line that says so.
    ASSERT_TRUE(publisher.waitUntilBlockedAgain(sleepsBefore));
    publisher.unclog();
    EXPECT_EQ(publisher.exitCode(), 0);
    // The worker's lines about the same broken connection may come before or between.
    const std::string& errors = publisher.errText();
    EXPECT_NE(errors.find("Error writing to server ("), std::string::npos) << errors;
    const std::string lastLine = "Error publishing parameter 'A' (2). Leaving now.\n";
    ASSERT_GE(errors.size(), lastLine.size());
    EXPECT_EQ(errors.substr(errors.size() - lastLine.size()), lastLine) << errors;
    EXPECT_EQ(publisher.outText().substr(0, 11), "Connected.\n");
    EXPECT_EQ(publisher.outText().find("Published"), std::string::npos) << publisher.outText();
}

class PublisherReconnect : public PublisherTest {
  protected:
    /// Serves a run with A and B until B is registered but not confirmed. Then closes the connection, accepts the next
    /// and expects both registrations there.
    void reconnectBeforeTheSecondConfirmation() {
        accept();
        expectValue(7, "A", "3F 80 00 00");
        expectRegistration("B");
        peer->close();
        accept();
        EXPECT_EQ(peer->receiveBody(),
                  "04 02 7F FF 00 00 00 64 00 7F 00 02 00 01 00 00 00 00 00 02 00 00 04 B0 00 00 00 00 " +
                      hexField("A") + " 00 00 04 B0 00 00 00 00 " + hexField("B"));
    }
};

TEST_F(PublisherReconnect, AHostThatReturnsBeforeTheConfirmationGetsTheValue) {
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    accept();
    expectRegistration("A");
    peer->close();
    accept();
    expectValue(7, "A", "3F 80 00 00");
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(),
              "Connected.\nAttempting to reconnect...\nRe-registering input/output parameters (0/1)...\n"
              "Registering output parameters with server...\nPublished A with value 1\n");
    EXPECT_EQ(publisher.errText(), "Connection closed by server.\n");
}

TEST_F(PublisherReconnect, AHostThatReturnsWithTheSameIdsGetsAllValues) {
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2"});
    reconnectBeforeTheSecondConfirmation();
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
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2"});
    reconnectBeforeTheSecondConfirmation();
    peer->send(confirmationOf(17, "A") + " " + confirmationOf(18, "B"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(17, "3F 80 00 00"));
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 11 00 00 00 12");
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.errText(),
              "Connection closed by server.\nNo response from server to registration for B. Leaving now.\n");
}

TEST_F(PublisherReconnect, AHostThatStaysAwayEndsTheRun) {
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    accept();
    expectRegistration("A");
    stopListening();
    peer->close();
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nAttempting to reconnect...\n");
    EXPECT_EQ(publisher.errText(),
              "Connection closed by server.\nNo response from server to registration for A. Leaving now.\n");
}

TEST_F(PublisherReconnect, AHostThatClosesAfterTheLastValueCausesNoError) {
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    accept();
    expectValue(7, "A", "3F 80 00 00");
    stopListening();
    peer->close();
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.errText(), "Connection closed by server.\n");
}

}  // namespace
}  // namespace com_tesk::test
