#include <tuple>

#include "host/LoopbackHost.h"
#include "tests/support/Emulator.h"
#include "tests/tools/PublisherTest.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

class PublisherSyntax : public PublisherTest {};

TEST_F(PublisherSyntax, AnErrorPrintsTheSyntaxAndExitsWithOne) {
    ChildProcess version = runAsBuilt({"-version"});
    expectEnd(version, 0, "4.4.132\n", "");
    for (const Arguments& arguments :
         {Arguments{}, Arguments{"--version"}, Arguments{"-version", "A"}, Arguments{ownAddress(), "A", "1", "B"}}) {
        for (const std::string ownName : {"cspublish", "/some/where/publish it"}) {
            ChildProcess publisher = runAsBuilt(arguments, ownName);
            expectEnd(publisher, 1, "",
                      "Syntax: " + ownName +
                          " [-csid <id>] <IP Address> <parameter name> <value> "
                          "[<parameter name> <value>] [...]\n");
        }
    }
}

class PublisherRun : public PublisherTest {};

TEST_F(PublisherRun, OneValueIsRegisteredPublishedAndUnregistered) {
    const std::string header = " 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF ";
    for (const std::string id : {"00 01", "00 07"}) {
        ChildProcess publisher = id == "00 01" ? run({ownAddress(), "ALT", "12.5"})  //
                                               : run({"-csid", "7", ownAddress(), "ALT", "12.5"});
        accept(id);
        EXPECT_EQ(
            peer->receiveFrame(),
            "00 00 00 5C" + header + "04 02 7F FF 00 00 00 3C 00 7F 00 02 " + id +
                " 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 "
                "41 4C 54 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
        peer->send(confirmationOf(9, "ALT"));
        EXPECT_EQ(peer->receiveFrame(), "00 00 00 44" + header + "04 02 7F FF 00 00 00 24 00 7F 00 03 " + id +
                                            " 00 00 00 00 00 00 00 00 00 01 00 00 00 09 00 00 00 00 41 48 00 00");
        EXPECT_TRUE(peer->isQuietFor(milliseconds(700))) << "it waits a second before it unregisters";
        EXPECT_EQ(peer->receiveFrame(), "00 00 00 38" + header + "04 02 7F FF 00 00 00 18 00 7F 00 05 " + id +
                                            " 00 00 00 00 00 01 00 00 00 09");
        EXPECT_TRUE(peer->waitForEnd());
        expectEnd(publisher, 0, "Connected.\nPublished ALT with value 12.5\n", "");
    }
}

TEST_F(PublisherRun, EachPairIsPublishedBeforeTheNextIsRegistered) {
    const std::string longestName(31, 'n');
    ChildProcess publisher = run({ownAddress(), longestName, "2", "", "1"});
    accept();
    expectRegistration(longestName);
    EXPECT_TRUE(peer->isQuietFor(milliseconds(300)));
    peer->send(confirmationOf(7, longestName));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "40 00 00 00"));
    expectValue(8, "", "3F 80 00 00");
    // All outputs are unregistered in one request, in the order of their names.
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 08 00 00 00 07");
    expectEnd(publisher, 0, "Connected.\nPublished " + longestName + " with value 2\nPublished  with value 1\n", "");
}

TEST_F(PublisherRun, ARepeatedNameIsRegisteredOnceAndAllItsValuesArePublished) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"12.5", "41 48 00 00", "12.5"},  {"abc", "00 00 00 00", "0"},
        {"-0", "80 00 00 00", "-0"},      {"1e999", "7F 80 00 00", "inf"},
        {"-1e39", "FF 80 00 00", "-inf"}, {"nan", "7F C0 00 00", "nan"},
        {"0.1", "3D CC CC CD", "0.1"},    {"1234567", "49 96 B4 38", "1.23457e+06"},
        {"-300", "C3 96 00 00", "-300"},
    };
    Arguments arguments{ownAddress()};
    std::string lines = "Connected.\n";
    std::string errors;
    for (const auto& [text, valueHex, printed] : rows) {
        arguments.insert(arguments.end(), {"A", text});
        lines += std::string("Published A with value ") + printed + "\n";
        errors += arguments.size() > 3 ? "Parameter 'A' already registered.\n" : "";
    }
    ChildProcess publisher = run(arguments);
    acceptRegistration("A");
    peer->send(confirmationOf(7, "A"));
    for (const auto& [text, valueHex, printed] : rows) {
        EXPECT_EQ(peer->receiveBody(), publicationOf(7, valueHex)) << text << ", printed as " << printed;
    }
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    expectEnd(publisher, 0, lines, errors);
}

TEST_F(PublisherRun, TheHostsVersionIsPrinted) {
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    acceptRegistration("A");
    ASSERT_TRUE(publisher.waitForOut("Connected.\n"));
    peer->send(versionReply());
    ASSERT_TRUE(publisher.waitForOut("Found protocol version: 3\n"));
    peer->send(confirmationOf(7, "A"));
    expectEnd(publisher, 0,
              "Connected.\nFound server version: Host 2.1\nFound simulator id: 1\nFound protocol version: 3\n"
              "Published A with value 1\n",
              "");
}

TEST_F(PublisherRun, ALoopbackHostStoresTheValues) {
    stopListening();
    HostOptions options;
    options.listenAddress = ownAddress();
    options.port = kPublisherPort;
    const LoopbackHost host(options);
    ChildProcess publisher = runAsBuilt({ownAddress(), "ALT", "12.5", "SPEED", "-3e2"});
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(host.value("ALT"), HostValue::real(12.5F));
    EXPECT_EQ(host.value("SPEED"), HostValue::real(-300.0F));
    EXPECT_EQ(publisher.errText(), "");
    EXPECT_TRUE(publisher.waitForOut("Published ALT with value 12.5\nPublished SPEED with value -300\n"))
        << publisher.outText();
}

class PublisherFailures : public PublisherTest {
  protected:
    /// Waits until the publisher is in that sleep, counted from 1, between its polls for the confirmation. To be called
    /// when the registration has arrived.
    void waitForSleep(ChildProcess& publisher, int sleep) {
        // By then the first poll has passed, and the second is far away.
        EXPECT_TRUE(peer->isQuietFor(milliseconds(300)));
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
    const Stopwatch elapsed;
    EXPECT_TRUE(publisher.waitForErr("Failed to open connection. Exiting.\n"));
    EXPECT_GE(elapsed.seconds(), 2.9);
    // An emulator may need a second to start the program.
    EXPECT_LT(elapsed.seconds(), isEmulated() ? 8.0 : 4.0);
    expectEnd(publisher, 1, "", "Failed to open connection. Exiting.\n");
    // The line is printed before the wait for the worker, which may be in a sleep.
    EXPECT_LT(publisher.seconds(), 8.0);
    EXPECT_EQ(withoutAddress.exitCode(), 1);
    EXPECT_EQ(withoutAddress.outText() + withoutAddress.errText(), publisher.errText());
}

TEST_F(PublisherFailures, AHostThatStartsWithinThreeSecondsIsFound) {
    stopListening();
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    EXPECT_FALSE(publisher.hasEndedWithin(milliseconds(500)));
    listen();
    accept();
    expectValue(7, "A", "3F 80 00 00");
    expectEnd(publisher, 0, "Connected.\nPublished A with value 1\n", "");
}

TEST_F(PublisherFailures, AConfirmationBeforeTheFourthPollIsInTime) {
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    acceptRegistration("A");
    waitForSleep(publisher, 3);
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "3F 80 00 00"));
    expectEnd(publisher, 0, "Connected.\nPublished A with value 1\n", "");
}

TEST_F(PublisherFailures, AConfirmationAfterTheFourthPollIsTooLate) {
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2"});
    acceptRegistration("A");
    waitForSleep(publisher, 4);
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    expectEnd(publisher, 0, "Connected.\n", "No response from server to registration for A. Leaving now.\n");
}

TEST_F(PublisherFailures, AMissingConfirmationLeavesTheFirstValuePublished) {
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2", "C", "3"});
    accept();
    expectValue(7, "A", "3F 80 00 00");
    expectRegistration("B");
    // It polls for four seconds and then waits one second before it unregisters.
    EXPECT_TRUE(peer->isQuietFor(milliseconds(4700)));
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 07 00 0F FF FF");
    EXPECT_TRUE(peer->waitForEnd());
    expectEnd(publisher, 0, "Connected.\nPublished A with value 1\n",
              "No response from server to registration for B. Leaving now.\n");
}

TEST_F(PublisherFailures, ANameOf32CharactersIsNeitherRegisteredNorPublished) {
    const std::string name(32, 'n');
    ChildProcess publisher = run({ownAddress(), name, "1", "B", "2"});
    accept();
    EXPECT_EQ(peer->receive(1), Bytes{});
    expectEnd(publisher, 0, "Connected.\n", refusalOf(name));
    EXPECT_LT(publisher.seconds(), 5.0) << "it waits for no confirmation";
}

TEST_F(PublisherFailures, ARefusedSecondNameLeavesTheFirstValuePublished) {
    const std::string name(40, 'n');
    ChildProcess publisher = run({ownAddress(), "A", "1", name, "2", "B", "3"});
    accept();
    expectValue(7, "A", "3F 80 00 00");
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    expectEnd(publisher, 0, "Connected.\nPublished A with value 1\n", refusalOf(name));
}

// The connection must break without the worker's notice, which reads all the time. So the worker blocks: standard
// output has no space for the lines about the host's version.
TEST_F(PublisherFailures, AFailedWriteIsReportedAsResultTwo) {
    ChildProcess publisher = run({ownAddress(), "A", "1", "B", "2"}, std::string("Connected.\n").size());
    acceptRegistration("A");
    waitForSleep(publisher, 1);
    const long sleepsBefore = publisher.timesBlocked();
    peer->send(confirmationOf(7, "A") + " " + versionReply());
    EXPECT_TRUE(peer->isQuietFor(milliseconds(200)));
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
    acceptRegistration("A");
    peer->close();
    accept();
    expectValue(7, "A", "3F 80 00 00");
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    expectEnd(publisher, 0,
              "Connected.\nAttempting to reconnect...\nRe-registering input/output parameters (0/1)...\n"
              "Registering output parameters with server...\nPublished A with value 1\n",
              "Connection closed by server.\n");
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
    acceptRegistration("A");
    stopListening();
    peer->close();
    expectEnd(publisher, 0, "Connected.\nAttempting to reconnect...\n",
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
