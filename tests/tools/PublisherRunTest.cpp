#include <tuple>

#include "host/LoopbackHost.h"
#include "tests/tools/PublisherTest.h"

namespace com_tesk::test {
namespace {

class PublisherSyntax : public PublisherTest {};

TEST_F(PublisherSyntax, VersionIsPrintedOnStandardOutput) {
    ChildProcess publisher = runAsBuilt({"-version"});
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "4.4.132\n");
    EXPECT_EQ(publisher.errText(), "");
}

TEST_F(PublisherSyntax, AnErrorPrintsTheSyntaxAndExitsWithOne) {
    const Arguments rows[] = {{}, {"--version"}, {"-version", "A"}, {ownAddress(), "A", "1", "B"}};
    for (const Arguments& arguments : rows) {
        for (const std::string ownName : {"cspublish", "/some/where/publish it"}) {
            ChildProcess publisher = runAsBuilt(arguments, ownName);
            EXPECT_EQ(publisher.exitCode(), 1);
            EXPECT_EQ(publisher.errText(), "Syntax: " + ownName +
                                               " [-csid <id>] <IP Address> <parameter name> <value> "
                                               "[<parameter name> <value>] [...]\n");
            EXPECT_EQ(publisher.outText(), "");
        }
    }
}

class PublisherRun : public PublisherTest {};

TEST_F(PublisherRun, OneValueIsRegisteredPublishedAndUnregistered) {
    ChildProcess publisher = run({ownAddress(), "ALT", "12.5"});
    accept();
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 5C 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 "
              "41 4C 54 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    peer->send(confirmationOf(7, "ALT"));
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 44 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 "
              "00 00 00 07 00 00 00 00 41 48 00 00");
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(700))) << "it waits a second before it unregisters";
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 38 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 18 00 7F 00 05 00 01 00 00 00 00 00 01 00 00 00 07");
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished ALT with value 12.5\n");
    EXPECT_EQ(publisher.errText(), "");
}

TEST_F(PublisherRun, AnIdReachesEveryRequest) {
    ChildProcess publisher = run({"-csid", "7", ownAddress(), "A", "12.5"});
    accept("00 07");
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

TEST_F(PublisherRun, EachPairIsPublishedBeforeTheNextIsRegistered) {
    const std::string longestName(31, 'n');
    ChildProcess publisher = run({ownAddress(), longestName, "2", "", "1"});
    accept();
    expectRegistration(longestName);
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(300)));
    peer->send(confirmationOf(7, longestName));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, "40 00 00 00"));
    expectValue(8, "", "3F 80 00 00");
    // All outputs are unregistered in one request, in the order of their names.
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 1C 00 7F 00 05 00 01 00 00 00 00 00 02 00 00 00 08 00 00 00 07");
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "Connected.\nPublished " + longestName + " with value 2\nPublished  with value 1\n");
    EXPECT_EQ(publisher.errText(), "");
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
    accept();
    expectRegistration("A");
    peer->send(confirmationOf(7, "A"));
    for (const auto& [text, valueHex, printed] : rows) {
        EXPECT_EQ(peer->receiveBody(), publicationOf(7, valueHex)) << text << ", printed as " << printed;
    }
    EXPECT_EQ(peer->receiveBody(), unregistrationOf(7));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), lines);
    EXPECT_EQ(publisher.errText(), errors);
}

TEST_F(PublisherRun, TheHostsVersionIsPrinted) {
    ChildProcess publisher = run({ownAddress(), "A", "1"});
    accept();
    expectRegistration("A");
    ASSERT_TRUE(publisher.waitForOut("Connected.\n"));
    peer->send(versionReply());
    ASSERT_TRUE(publisher.waitForOut("Found protocol version: 3\n"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(),
              "Connected.\nFound server version: Host 2.1\nFound simulator id: 1\nFound protocol version: 3\n"
              "Published A with value 1\n");
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

}  // namespace
}  // namespace com_tesk::test
