#pragma once

#include <cstdint>
#include <vector>

#include "comms/CSCommsInterfaceTCP.h"
#include "host/Bytes.h"
#include "message/RawMessage.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::bench {

/// A transport without a socket: what is written is swallowed, what is read comes from one frame, again and again.
class MemoryTransport : public CSCommsInterfaceTCP {
  public:
    MemoryTransport() : CSCommsInterfaceTCP(Options()) {}

    /// The frame that reads give from now on. It stays the caller's.
    void feed(const host::Bytes& newFrame) {
        frame = &newFrame;
        position = 0;
    }

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override { return true; }
    int readMessage(unsigned int count, RawMessage& message) override {
        const auto* const source = reinterpret_cast<const char*>(frame->data() + position);
        message.insert(message.end(), source, source + count);
        position = (position + count) % frame->size();
        return static_cast<int>(count);
    }
    int writeMessage(const RawMessage& message) override { return static_cast<int>(message.size()); }
    int close() override { return 0; }

  private:
    const host::Bytes* frame = nullptr;
    std::size_t position = 0;
};

/// The engine with a connection that stands, and neither socket nor worker: everything that it does, it does on the
/// caller's thread.
class MemoryEngine : public test::OpenEngine {
  public:
    MemoryEngine() : OpenEngine(1, CSClient::OPTION_SILENT), transport(new MemoryTransport) {
        changeCommsInterface(transport);
        pretendState(CSClient::STATE_CONNECTING);
        startConnection();
    }
    ~MemoryEngine() override { unregisterAllLocalParameters(); }

    /// Receives `frame` `times` over.
    void receive(const host::Bytes& frame, unsigned int times = 1) {
        transport->feed(frame);
        for (unsigned int i = 0; i < times; ++i) {
            receiveMessage();
        }
    }

  private:
    MemoryTransport* const transport;  ///< Owned by the engine.
};

}  // namespace com_tesk::bench
