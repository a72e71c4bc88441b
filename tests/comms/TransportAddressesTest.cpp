#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/comms/OpenTransport.h"

namespace com_tesk::test {
namespace {

/// The four bytes in the order in which they lie in memory.
std::string bytesOf(std::uint32_t address) {
    Bytes bytes(sizeof address);
    std::memcpy(bytes.data(), &address, sizeof address);
    return hexText(bytes);
}

/// A transport that only writes down what it is asked to open.
class AskedTransport : public CSCommsInterfaceTCP {
  public:
    explicit AskedTransport(bool givenResult) : CSCommsInterfaceTCP(Options()), result(givenResult) {}

    using CSCommsInterfaceTCP::openConnection;
    bool openConnection(unsigned int address, unsigned int port) override {
        askedAddress = address;
        askedPort = port;
        ++asked;
        return result;
    }

    bool result;
    int asked = 0;
    unsigned int askedAddress = 0;
    unsigned int askedPort = 0;
};

TEST(TransportAddressFromText, HasTheFirstNumberAtTheLowestAddress) {
    EXPECT_EQ(bytesOf(CSCommsInterfaceTCP::convertIPAddressToOctet("10.1.2.3")), "0A 01 02 03");
    EXPECT_EQ(bytesOf(CSCommsInterfaceTCP::convertIPAddressToOctet("127.0.0.1")), "7F 00 00 01");
    EXPECT_EQ(bytesOf(CSCommsInterfaceTCP::convertIPAddressToOctet("0.0.0.0")), "00 00 00 00");
    EXPECT_EQ(bytesOf(CSCommsInterfaceTCP::convertIPAddressToOctet("192.168.255.254")), "C0 A8 FF FE");
}

TEST(TransportAddressFromText, IsAllOnesForTextThatIsNoAddress) {
    for (const char* text : {"", "host", "1.2.3.256", "1.2.3.4.5", "1.2.3.x", "1.2.3.4x", "-1.2.3.4"}) {
        EXPECT_EQ(CSCommsInterfaceTCP::convertIPAddressToOctet(text), 0xFFFFFFFFU) << '"' << text << '"';
    }
}

TEST(TransportAddressFromText, TakesWhatTheSystemTakes) {
    // Fewer numbers, hexadecimal and octal ones: forms that the system's own conversion knows.
    EXPECT_EQ(bytesOf(CSCommsInterfaceTCP::convertIPAddressToOctet("127.1")), "7F 00 00 01");
    EXPECT_EQ(bytesOf(CSCommsInterfaceTCP::convertIPAddressToOctet("0x7f.0.0.010")), "7F 00 00 08");
    EXPECT_EQ(bytesOf(CSCommsInterfaceTCP::convertIPAddressToOctet("255.255.255.255")), "FF FF FF FF");
}

TEST(TransportAddressToText, TakesTheLeastSignificantByteFirst) {
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x0100007FU), "127.0.0.1");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x04030201U), "1.2.3.4");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x0302010AU), "10.1.2.3");
}

TEST(TransportAddressToText, ReachesBothLimits) {
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0U), "0.0.0.0");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0xFFFFFFFFU), "255.255.255.255");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x80FF6409U), "9.100.255.128");
}

TEST(TransportAddressToText, UndoesTheConversionFromTextOnALittleEndianMachine) {
    ASSERT_EQ(htons(1), 0x0100) << "the machine is not little-endian";
    const std::uint32_t address = CSCommsInterfaceTCP::convertIPAddressToOctet("10.1.2.3");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(address), "10.1.2.3");
}

TEST(TransportOpenByText, AsksTheNumericFormForTheSameAddressAndPort) {
    AskedTransport transport(true);
    transport.openConnection("127.0.0.1", 4711);
    EXPECT_EQ(transport.asked, 1);
    EXPECT_EQ(bytesOf(transport.askedAddress), "7F 00 00 01");
    EXPECT_EQ(transport.askedPort, 4711U);
}

TEST(TransportOpenByText, PassesALargePortOnUncut) {
    AskedTransport transport(true);
    transport.openConnection("127.0.0.1", 70'000);
    EXPECT_EQ(transport.askedPort, 70'000U);
}

TEST(TransportOpenByText, ReturnsTheResultOfTheNumericForm) {
    EXPECT_TRUE(AskedTransport(true).openConnection("127.0.0.1", 1));
    EXPECT_FALSE(AskedTransport(false).openConnection("127.0.0.1", 1));
}

TEST(TransportOpenByText, PassesTextThatIsNoAddressOnAsAllOnes) {
    AskedTransport transport(true);
    EXPECT_TRUE(transport.openConnection("no address", 1));
    EXPECT_EQ(transport.asked, 1);
    EXPECT_EQ(transport.askedAddress, 0xFFFFFFFFU);
}

TEST(TransportOpenByText, Connects) {
    ScriptedHost host;
    VisibleTransport transport;
    EXPECT_TRUE(transport.openConnection("127.0.0.1", host.port()));
    EXPECT_NE(host.accept(), nullptr);
}

}  // namespace
}  // namespace com_tesk::test
