#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/RawMessage.h"
#include "tests/support/Hex.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {

/// Sends the bytes of a fake transport over a buffered one, in both directions. Only one thread at a time may use it.
class Carrier {
  public:
    Carrier() = default;
    Carrier(const Carrier&) = delete;
    Carrier& operator=(const Carrier&) = delete;
    ~Carrier() { disconnect(); }

    /// Sends `bytes` from the host, and reads as many with the transport into `message`.
    /// @return the result of the transport.
    int read(const Bytes& bytes, RawMessage& message) {
        return overUsableConnection([&] {
            const auto send = [&] { peer->send(bytes); };
            const std::future<void> sending = std::async(policyFor(bytes.size()), send);
            if (bytes.size() <= kFitsSocketBuffers) {
                sending.wait();
            }
            int result = -2;
            while (result == -2) {
                result = transport->readMessage(static_cast<unsigned int>(bytes.size()), message);
            }
            return result;
        });
    }

    /// Writes `message` with the transport.
    /// @return the bytes that have arrived at the host.
    RawMessage write(const RawMessage& message) {
        return overUsableConnection([&] {
            const auto receive = [&] { return peer->receive(message.size()); };
            std::future<Bytes> receiving = std::async(policyFor(message.size()), receive);
            const int written = transport->writeMessage(message);
            if (written != static_cast<int>(message.size())) {
                throw std::runtime_error("carrier: " + std::to_string(written) + " bytes written");
            }
            const Bytes bytes = receiving.get();
            RawMessage arrived(message.getType());
            arrived.insert(arrived.end(), bytes.begin(), bytes.end());
            return arrived;
        });
    }

  private:
    /// The number of bytes that the buffers of a new loopback connection always have space for.
    static constexpr std::size_t kFitsSocketBuffers = 32U << 10U;

    /// Uses a thread only for bytes that may not fit into the socket buffers.
    static std::launch policyFor(std::size_t size) {
        return size <= kFitsSocketBuffers ? std::launch::deferred : std::launch::async;
    }

    /// Runs an operation over the connection. An operation that fails, for example without memory, may leave bytes in
    /// the connection. The next operation then uses a new connection.
    template <typename Operation>
    std::invoke_result_t<Operation> overUsableConnection(const Operation& operation) {
        connect();
        isUsable = false;
        auto result = operation();
        isUsable = true;
        return result;
    }

    void connect() {
        if (isUsable) {
            return;
        }
        disconnect();
        // Each connection has a separate listener, so that connections cannot be confused.
        host = std::make_unique<ScriptedHost>();
        transport = std::make_unique<CSCommsInterfaceTCPBuffered>(CSCommsInterfaceTCPBuffered::Options());
        const bool isOpen = transport->openConnection(ScriptedHost::address(), host->port());
        peer = isOpen ? host->accept() : nullptr;
        if (!peer) {
            throw std::runtime_error("carrier: no connection");
        }
        isUsable = true;
    }

    /// Closes with a reset, so that no port stays in TIME_WAIT.
    void disconnect() {
        if (peer) {
            peer->reset();
        }
        peer.reset();
        transport.reset();
        host.reset();
    }

    std::unique_ptr<ScriptedHost> host;
    std::unique_ptr<CSCommsInterfaceTCPBuffered> transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
    bool isUsable = false;
};

/// True when the environment has CSCLIENT_TEST_TRANSPORT=buffered. CTest runs such tests with the prefix "Buffered.".
inline bool isBufferedUnderTest() {
    const char* const transport = std::getenv("CSCLIENT_TEST_TRANSPORT");
    return transport != nullptr && std::string_view(transport) == "buffered";
}

/// Returns a new carrier over the buffered transport; null for the standard transport, whose fakes use no real one.
inline std::unique_ptr<Carrier> newCarrier() {
    return isBufferedUnderTest() ? std::make_unique<Carrier>() : nullptr;
}

/// Returns a new transport that the caller owns, or null for the standard transport, which is the engines' default.
inline CSCommsInterfaceTCP* newTransportUnderTest() {
    return isBufferedUnderTest() ? new CSCommsInterfaceTCPBuffered(CSCommsInterfaceTCPBuffered::Options()) : nullptr;
}

/// Makes a closed engine or client use the transport under test.
template <typename EngineOrClient>
void useTransportUnderTest(EngineOrClient& user) {
    CSCommsInterfaceTCP* const transport = newTransportUnderTest();
    if (transport != nullptr) {
        ASSERT_TRUE(user.changeCommsInterface(transport));
    }
}

}  // namespace com_tesk::test
