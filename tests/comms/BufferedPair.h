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

using Bounds = CSCommsInterfaceTCPBuffered::Bounds;
using Options = CSCommsInterfaceTCP::Options;

/// A standard transport whose descriptor a test can see.
class VisibleTransport : public CSCommsInterfaceTCP {
  public:
    explicit VisibleTransport(const Options& givenOptions = Options()) : CSCommsInterfaceTCP(givenOptions) {}
    int descriptor() const { return connection().descriptor(); }
};

/// A buffered transport whose descriptor a test can see.
class VisibleBuffered : public CSCommsInterfaceTCPBuffered {
  public:
    explicit VisibleBuffered(const Bounds& givenBounds = Bounds(), const Options& givenOptions = Options())
        : CSCommsInterfaceTCPBuffered(givenOptions, givenBounds) {}
    int descriptor() const { return connection().descriptor(); }
};

/// A transport that is connected to a peer.
template <typename Transport>
struct ConnectedPair {
    template <typename... Arguments>
    explicit ConnectedPair(const Arguments&... arguments) : transport(arguments...) {
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
    Transport transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
};

using StandardPair = ConnectedPair<VisibleTransport>;
using BufferedPair = ConnectedPair<VisibleBuffered>;

class ElapsedTime {
  public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); }

  private:
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

/// The result of one call, `errno` after it, and the hex text of what a read has appended.
struct CallResult {
    int result = 0;
    int error = 0;
    std::string bytes;
    double seconds = 0.0;
};

/// Reads `count` bytes into a new message.
inline CallResult readOnce(CSCommsInterfaceTCP& transport, unsigned int count) {
    RawMessage message(RawMessage::DATA);
    const ElapsedTime elapsed;
    errno = 0;
    const int result = transport.readMessage(count, message);
    return {result, errno, hexText(message), elapsed.seconds()};
}

inline CallResult writeOnce(CSCommsInterfaceTCP& transport, const RawMessage& message) {
    const ElapsedTime elapsed;
    errno = 0;
    const int result = transport.writeMessage(message);
    return {result, errno, "", elapsed.seconds()};
}

/// Appends `count` bytes to a message, and reads again after every time-out.
inline int readFully(CSCommsInterfaceTCP& transport, unsigned int count, RawMessage& message) {
    int result = -2;
    while (result == -2) {
        result = transport.readMessage(count, message);
    }
    return result;
}

/// Reads the next frame as the engine does. Returns the body's hex text, or what failed.
inline std::string readBodyOfFrame(CSCommsInterfaceTCP& transport) {
    RawMessage header(RawMessage::DATA);
    int result = readFully(transport, 32, header);
    if (result != 32) {
        return "header: " + std::to_string(result) + " error " + std::to_string(errno);
    }
    const unsigned int length = header.getDoubleWord(0) - 32;
    RawMessage body(RawMessage::DATA);
    result = readFully(transport, length, body);
    if (result != static_cast<int>(length)) {
        return "body: " + std::to_string(result) + " error " + std::to_string(errno);
    }
    return hexText(body);
}

/// Returns `count` bytes that do not repeat.
inline Bytes patternedBytes(std::size_t count, std::uint32_t start = 1) {
    Bytes bytes(count);
    std::uint32_t number = start;
    for (unsigned char& byte : bytes) {
        number = number * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(number >> 24U);
    }
    return bytes;
}

/// Returns the bytes in [begin, end).
inline Bytes slice(const Bytes& bytes, std::size_t begin, std::size_t end) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

/// Returns the header of a data frame whose body has this size.
inline Bytes headerOf(std::size_t bodySize) {
    return hex(hexWord(static_cast<unsigned int>(bodySize) + 32) + " 00 00 00 20 00 00 00 00 00 00 00 00 " +
               "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
}

/// Returns a data frame: like `hexFrame`, but fast enough for large bodies.
inline Bytes frameOf(const Bytes& body) {
    Bytes frame = headerOf(body.size());
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

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

}  // namespace com_tesk::test
