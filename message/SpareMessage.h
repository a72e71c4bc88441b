#pragma once

#include <atomic>
#include <memory>

#include "message/ReusableMessage.h"

namespace com_tesk {

/// Keeps one message from use to use, so that what is done over and over allocates nothing. Any thread may borrow it;
/// whoever finds it leased gets a fresh one.
class SpareMessage {
  public:
    SpareMessage() = default;
    SpareMessage(const SpareMessage&) = delete;
    SpareMessage& operator=(const SpareMessage&) = delete;
    ~SpareMessage() { delete spare.load(); }

    /// A message of the type given for a scope, with whatever bytes it had at the end of the last one. One thread.
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
