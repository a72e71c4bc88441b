#pragma once

#include <cstdint>
#include <vector>

#include "comms/CSCommsInterfaceTCP.h"
#include "host/Bytes.h"
#include "message/RawMessage.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::bench {

/// A transport without a socket. Writes are discarded. Reads return the bytes of one frame, repeatedly.
class MemoryTransport : public CSCommsInterfaceTCP {
  public:
    MemoryTransport() : CSCommsInterfaceTCP(Options()) {}

    /// Sets the frame that reads return from now on. The caller keeps ownership.
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

/// An engine that is connected, but has no socket and no worker. It does all its work on the caller's thread.
class MemoryEngine : public test::OpenEngine {
  public:
    MemoryEngine() : OpenEngine(1, CSClient::OPTION_SILENT), transport(new MemoryTransport) {
        changeCommsInterface(transport);
        pretendState(CSClient::STATE_CONNECTING);
        startConnection();
    }
    ~MemoryEngine() override { unregisterAllLocalParameters(); }

    /// Receives `frame` as many times as `times` says.
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
