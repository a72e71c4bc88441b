#include "tools/recording_tools/Packets.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string_view>

#include "host/Bytes.h"
#include "tools/WholeNumber.h"

namespace com_tesk::recording {

namespace {

using host::appendWord;
using host::Bytes;

constexpr std::uint32_t kMaxPacketSize = 65'535;
constexpr std::size_t kMaxSegmentSize = 32'768;
constexpr std::uint32_t kIpHeaderSize = 20;
constexpr std::uint32_t kTcpHeaderSize = 20;
constexpr std::uint32_t kTcp = 6;
constexpr std::size_t kChecksumInIp = 10;
constexpr std::size_t kChecksumInTcp = kIpHeaderSize + 16;

constexpr std::uint8_t kFin = 0x01;
constexpr std::uint8_t kSyn = 0x02;
constexpr std::uint8_t kReset = 0x04;
constexpr std::uint8_t kPush = 0x08;
constexpr std::uint8_t kAck = 0x10;

/// Words of capture files have the bytes of this order, which the file's first word shows.
void appendCaptureWord(std::string& capture, std::uint64_t word) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        capture += static_cast<char>(static_cast<unsigned char>((word >> shift) & 0xFFU));
    }
}

/// Returns the sum of 16-bit words, with a zero byte after an odd last one.
std::uint32_t sumOf(const std::uint8_t* data, std::size_t size) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < size; ++i) {
        sum += i % 2 == 0 ? std::uint32_t{data[i]} << 8U : std::uint32_t{data[i]};
    }
    return sum;
}

void putChecksum(Bytes& packet, std::size_t offset, std::uint32_t sum) {
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    packet[offset] = static_cast<std::uint8_t>(~sum >> 8U & 0xFFU);
    packet[offset + 1] = static_cast<std::uint8_t>(~sum & 0xFFU);
}

Side otherSide(Side side) {
    return side == Side::CLIENT ? Side::HOST : Side::CLIENT;
}

}  // namespace

Endpoint endpointOf(const std::string& text, Endpoint otherwise) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return otherwise;
    }
    in_addr address{};
    const auto port = tools::wholeNumber<std::uint16_t>(std::string_view(text).substr(colon + 1));
    if (!port || inet_pton(AF_INET, text.substr(0, colon).c_str(), &address) != 1) {
        return {otherwise.address, port.value_or(otherwise.port)};
    }
    return {ntohl(address.s_addr), *port};
}

void appendCaptureHeader(std::string& capture) {
    constexpr std::uint32_t kMicroseconds = 0xA1B2C3D4;
    constexpr std::uint32_t kVersion = 0x0004'0002;  // 2.4: two numbers of 16 bits
    constexpr std::uint32_t kRawIp = 101;
    for (const std::uint32_t word : {kMicroseconds, kVersion, 0U, 0U, kMaxPacketSize, kRawIp}) {
        appendCaptureWord(capture, word);
    }
}

TcpConversation::TcpConversation(Endpoint clientEnd, Endpoint hostEnd, std::uint32_t number)
    : client{clientEnd, number * 0x9E37'79B1U}, host{hostEnd, number * 0x85EB'CA6BU} {}

void TcpConversation::segment(std::string& capture, CaptureTime time, Side side, std::uint8_t flags, Payload payload) {
    End& from = side == Side::CLIENT ? client : host;
    const End& to = side == Side::CLIENT ? host : client;
    constexpr std::uint32_t kWindow = 0xFFFF;
    const std::uint32_t tcpSize = kTcpHeaderSize + static_cast<std::uint32_t>(payload.size);
    const std::uint32_t size = kIpHeaderSize + tcpSize;
    Bytes packet;
    packet.reserve(size);
    appendWord(packet, 0x4500'0000U | size);
    appendWord(packet, std::uint32_t{packets++} << 16U | 0x4000U);  // must not be fragmented
    appendWord(packet, 0x4000'0000U | kTcp << 16U);                 // passes 64 routers
    appendWord(packet, from.place.address);
    appendWord(packet, to.place.address);
    appendWord(packet, std::uint32_t{from.place.port} << 16U | to.place.port);
    appendWord(packet, from.next);
    appendWord(packet, (flags & kAck) != 0 ? to.next : 0);
    appendWord(packet, 0x5000'0000U | std::uint32_t{flags} << 16U | kWindow);
    appendWord(packet, 0);
    packet.insert(packet.end(), payload.data, payload.data + payload.size);
    putChecksum(packet, kChecksumInIp, sumOf(packet.data(), kIpHeaderSize));
    constexpr std::size_t kAddresses = 12;  // The checksum of TCP includes both addresses.
    putChecksum(packet, kChecksumInTcp, sumOf(packet.data() + kAddresses, size - kAddresses) + kTcp + tcpSize);
    from.next += static_cast<std::uint32_t>(payload.size) + ((flags & (kSyn | kFin)) != 0 ? 1U : 0U);

    constexpr CaptureTime::rep kSecond = 1'000'000;
    appendCaptureWord(capture, static_cast<std::uint64_t>(time.count() / kSecond));
    appendCaptureWord(capture, static_cast<std::uint64_t>(time.count() % kSecond));
    appendCaptureWord(capture, size);
    appendCaptureWord(capture, size);
    capture.append(packet.begin(), packet.end());
}

void TcpConversation::acknowledge(std::string& capture, CaptureTime time, Side side) {
    segment(capture, time, side, kAck, {});
}

void TcpConversation::open(std::string& capture, CaptureTime time) {
    segment(capture, time, Side::CLIENT, kSyn, {});
    segment(capture, time, Side::HOST, kSyn | kAck, {});
    acknowledge(capture, time, Side::CLIENT);
}

void TcpConversation::send(std::string& capture, CaptureTime time, Side side, const std::uint8_t* data,
                           std::size_t size) {
    while (size > 0) {
        const std::size_t part = std::min(size, kMaxSegmentSize);
        segment(capture, time, side, kPush | kAck, {data, part});
        acknowledge(capture, time, otherSide(side));
        data += part;
        size -= part;
    }
}

void TcpConversation::close(std::string& capture, CaptureTime time, Side side) {
    segment(capture, time, side, kFin | kAck, {});
    segment(capture, time, otherSide(side), kFin | kAck, {});
    acknowledge(capture, time, side);
}

void TcpConversation::reset(std::string& capture, CaptureTime time, Side side) {
    segment(capture, time, side, kReset | kAck, {});
}

}  // namespace com_tesk::recording
