#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "tests/comms/BufferedPair.h"

namespace com_tesk::test {
namespace {

/// Returns the four bytes in the order in which they are in memory.
std::string bytesOfAddress(std::uint32_t address) {
    Bytes bytes(sizeof address);
    std::memcpy(bytes.data(), &address, sizeof address);
    return hexText(bytes);
}

/// A transport that only records what it is asked to open.
class RecordingTransport : public CSCommsInterfaceTCP {
  public:
    explicit RecordingTransport(bool givenResult) : CSCommsInterfaceTCP(Options()), result(givenResult) {}

    using CSCommsInterfaceTCP::openConnection;
    bool openConnection(unsigned int address, unsigned int port) override {
        openings.emplace_back(bytesOfAddress(address), port);
        return result;
    }

    const bool result;
    std::vector<std::pair<std::string, unsigned int>> openings;
};

TEST(TransportAddressFromText, HasTheFirstNumberAtTheLowestAddressOrIsAllOnes) {
    constexpr std::pair<const char*, const char*> kRows[] = {
        {"10.1.2.3", "0A 01 02 03"},
        {"127.0.0.1", "7F 00 00 01"},
        {"0.0.0.0", "00 00 00 00"},
        {"192.168.255.254", "C0 A8 FF FE"},
        {"255.255.255.255", "FF FF FF FF"},
        // Forms that the system's own conversion accepts.
        {"127.1", "7F 00 00 01"},
        {"0x7f.0.0.010", "7F 00 00 08"},
        // All ones for text that is no address.
        {"", "FF FF FF FF"},
        {"host", "FF FF FF FF"},
        {"1.2.3.256", "FF FF FF FF"},
        {"1.2.3.4.5", "FF FF FF FF"},
        {"1.2.3.x", "FF FF FF FF"},
        {"1.2.3.4x", "FF FF FF FF"},
        {"-1.2.3.4", "FF FF FF FF"},
    };
    for (const auto& [text, bytes] : kRows) {
        EXPECT_EQ(bytesOfAddress(CSCommsInterfaceTCP::convertIPAddressToOctet(text)), bytes) << text;
    }
}

TEST(TransportAddressToText, TakesTheLeastSignificantByteFirst) {
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x0100007FU), "127.0.0.1");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x04030201U), "1.2.3.4");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x0302010AU), "10.1.2.3");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0U), "0.0.0.0");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0xFFFFFFFFU), "255.255.255.255");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(0x80FF6409U), "9.100.255.128");
    ASSERT_EQ(htons(1), 0x0100) << "the machine is not little-endian";
    const std::uint32_t address = CSCommsInterfaceTCP::convertIPAddressToOctet("10.1.2.3");
    EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(address), "10.1.2.3");
}

TEST(TransportOpenByText, PassesAddressAndPortToTheNumericFormAndReturnsItsResult) {
    for (const bool result : {false, true}) {
        RecordingTransport transport(result);
        EXPECT_EQ(transport.openConnection("127.0.0.1", 4711), result);
        EXPECT_EQ(transport.openConnection("127.0.0.1", 70'000), result);
        EXPECT_EQ(transport.openConnection("no address", 1), result);
        const decltype(transport.openings) expected{{"7F 00 00 01", 4711}, {"7F 00 00 01", 70'000}, {"FF FF FF FF", 1}};
        EXPECT_EQ(transport.openings, expected);
    }
}

}  // namespace
}  // namespace com_tesk::test
