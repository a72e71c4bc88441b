#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "comms/TcpConnection.h"
#include "message/RawMessage.h"
#include "tests/support/Hex.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {

/// A buffered transport whose descriptor a test can see.
class VisibleBuffered : public CSCommsInterfaceTCPBuffered {
  public:
    explicit VisibleBuffered(const Bounds& givenBounds = Bounds(), const Options& givenOptions = Options())
        : CSCommsInterfaceTCPBuffered(givenOptions, givenBounds) {}

    int descriptor() const { return connection().descriptor(); }
};

/// Bounds under which a test need not wait long for a silence to be too long.
inline CSCommsInterfaceTCPBuffered::Bounds impatient(
    std::chrono::milliseconds silence = std::chrono::milliseconds(100)) {
    CSCommsInterfaceTCPBuffered::Bounds bounds;
    bounds.silenceInFrame = silence;
    return bounds;
}

/// A buffered transport that is connected to a peer.
struct BufferedPair {
    explicit BufferedPair(const CSCommsInterfaceTCPBuffered::Bounds& bounds = CSCommsInterfaceTCPBuffered::Bounds(),
                          const CSCommsInterfaceTCP::Options& options = CSCommsInterfaceTCP::Options())
        : transport(bounds, options) {
        connect();
    }

    void connect() {
        if (!transport.openConnection(ScriptedHost::address(), host.port())) {
            throw std::runtime_error("no connection");
        }
        peer = host.accept();
        if (peer == nullptr) {
            throw std::runtime_error("no peer");
        }
    }

    ScriptedHost host;
    VisibleBuffered transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
};

/// What one `readMessage` has given.
struct ReadResult {
    int result = 0;
    int error = 0;
    std::string bytes;
    double seconds = 0.0;
};

/// Reads `count` bytes into a new message.
inline ReadResult readOnce(CSCommsInterfaceTCP& transport, unsigned int count) {
    RawMessage message(RawMessage::DATA);
    ReadResult read;
    const auto start = std::chrono::steady_clock::now();
    errno = 0;
    read.result = transport.readMessage(count, message);
    read.error = errno;
    read.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    read.bytes = hexText(message);
    return read;
}

/// Reads the body of the next frame as the engine does: the header, then the body, again after every time-out.
/// @return the body's hex text, or what went wrong.
inline std::string readBodyOfFrame(CSCommsInterfaceTCP& transport) {
    RawMessage header(RawMessage::DATA);
    int result = -2;
    while (result == -2) {
        result = transport.readMessage(32, header);
    }
    if (result != 32) {
        return "header: " + std::to_string(result) + " error " + std::to_string(errno);
    }
    const unsigned int length = header.getDoubleWord(0);
    RawMessage body(RawMessage::DATA);
    result = -2;
    while (result == -2) {
        result = transport.readMessage(length - 32, body);
    }
    if (result != static_cast<int>(length - 32)) {
        return "body: " + std::to_string(result) + " error " + std::to_string(errno);
    }
    return hexText(body);
}

/// `count` bytes in which no two stretches look alike for long.
inline Bytes patternedBytes(std::size_t count, std::uint32_t start = 1) {
    Bytes bytes(count);
    std::uint32_t number = start;
    for (unsigned char& byte : bytes) {
        number = number * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(number >> 24U);
    }
    return bytes;
}

/// A data frame around a body, as bytes: as `hexFrame`, but fast enough for large ones.
inline Bytes frameOf(const Bytes& body) {
    const auto length = static_cast<std::uint32_t>(body.size() + 32);
    Bytes frame =
        hex("00 00 00 00 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    for (int i = 0; i < 4; ++i) {
        frame[static_cast<std::size_t>(i)] = static_cast<unsigned char>(length >> (24 - 8 * i));
    }
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

/// Bytes of a message, for comparing large ones.
inline Bytes bytesOf(const RawMessage& message) {
    return Bytes(message.begin(), message.end());
}

inline RawMessage messageOfBytes(const Bytes& bytes) {
    RawMessage message(RawMessage::DATA);
    message.resize(bytes.size());
    if (!bytes.empty()) {
        std::memcpy(message.data(), bytes.data(), bytes.size());
    }
    return message;
}

class StopwatchSince {
  public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); }

  private:
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace com_tesk::test
