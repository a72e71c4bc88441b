#include "tests/support/TransportUnderTest.h"

#include <cstdlib>
#include <future>
#include <stdexcept>
#include <string>
#include <string_view>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {

namespace {

/// The number of bytes that the buffers of a new loopback connection always have space for.
constexpr std::size_t kFitsSocketBuffers = 32U << 10U;

class BufferedCarrier : public Carrier {
  private:
    /// Uses a thread only for bytes that may not fit into the socket buffers.
    static std::launch policyFor(std::size_t size) {
        return size <= kFitsSocketBuffers ? std::launch::deferred : std::launch::async;
    }

    /// Runs an operation over the connection. An operation that fails, for example without memory, may leave bytes in
    /// the connection. The next operation then uses a new connection.
    template <typename Operation>
    auto overUsableConnection(const Operation& operation) {
        connect();
        isUsable = false;
        auto result = operation();
        isUsable = true;
        return result;
    }

  public:
    int read(const Bytes& bytes, RawMessage& message) override {
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

    RawMessage write(const RawMessage& message) override {
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

    ~BufferedCarrier() override { disconnect(); }

  private:
    void connect() {
        if (isUsable) {
            return;
        }
        disconnect();
        // Each connection has a separate listener, so that connections cannot be confused.
        host = std::make_unique<ScriptedHost>();
        transport = std::make_unique<CSCommsInterfaceTCPBuffered>(CSCommsInterfaceTCPBuffered::Options());
        if (!transport->openConnection(ScriptedHost::address(), host->port())) {
            throw std::runtime_error("carrier: no connection");
        }
        peer = host->accept();
        if (!peer) {
            throw std::runtime_error("carrier: no peer");
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

}  // namespace

bool isBufferedUnderTest() {
    const char* const transport = std::getenv("CSCLIENT_TEST_TRANSPORT");
    return transport != nullptr && std::string_view(transport) == "buffered";
}

std::unique_ptr<Carrier> newCarrier() {
    return isBufferedUnderTest() ? std::make_unique<BufferedCarrier>() : nullptr;
}

CSCommsInterfaceTCP* newTransportUnderTest() {
    return isBufferedUnderTest() ? new CSCommsInterfaceTCPBuffered(CSCommsInterfaceTCPBuffered::Options()) : nullptr;
}

}  // namespace com_tesk::test
