#pragma once

#include <atomic>
#include <memory>

#include "message/ReusableMessage.h"

namespace com_tesk {

/// Pool of one message, whose memory is kept from use to use, so that repeated operations allocate nothing. Any
/// thread may lease it. A thread that finds it leased gets a new message.
class SpareMessage {
  public:
    SpareMessage() = default;
    SpareMessage(const SpareMessage&) = delete;
    SpareMessage& operator=(const SpareMessage&) = delete;
    ~SpareMessage() { delete spare.load(); }

    /// Leases a message of the given type for a scope. It holds the bytes that it had at the end of its last lease.
    /// One thread.
    class Lease {
      public:
        explicit Lease(SpareMessage& from, RawMessage::Type type = RawMessage::DATA)
            : pool(from), leased(from.spare.exchange(nullptr)) {
            if (leased == nullptr) {
                leased = std::make_unique<ReusableMessage>(type);
            }
            leased->setType(type);
        }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        ~Lease() {
            leased->end();
            delete pool.spare.exchange(leased.release());
        }

        RawMessage& operator*() const { return *leased; }
        RawMessage* operator->() const { return leased.get(); }

      private:
        SpareMessage& pool;
        std::unique_ptr<ReusableMessage> leased;
    };

  private:
    std::atomic<ReusableMessage*> spare{nullptr};
};

}  // namespace com_tesk
