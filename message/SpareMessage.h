#pragma once

#include <atomic>
#include <memory>

#include "message/ReusableMessage.h"

namespace com_tesk {

/// Keeps one message from use to use, so that what is done over and over allocates nothing. Any thread may borrow it;
/// whoever finds it lent gets a fresh one.
class SpareMessage {
  public:
    SpareMessage() = default;
    SpareMessage(const SpareMessage&) = delete;
    SpareMessage& operator=(const SpareMessage&) = delete;
    ~SpareMessage() { delete spare.load(); }

    /// A message of the type given for a scope, with whatever bytes it had at the end of the last one. One thread.
    class Loan {
      public:
        explicit Loan(SpareMessage& from, RawMessage::Type type = RawMessage::DATA)
            : lender(from), lent(from.spare.exchange(nullptr)) {
            if (lent == nullptr) {
                lent = std::make_unique<ReusableMessage>(type);
            }
            lent->setType(type);
        }
        Loan(const Loan&) = delete;
        Loan& operator=(const Loan&) = delete;
        ~Loan() {
            lent->end();
            delete lender.spare.exchange(lent.release());
        }

        RawMessage& operator*() const { return *lent; }
        RawMessage* operator->() const { return lent.get(); }

      private:
        SpareMessage& lender;
        std::unique_ptr<ReusableMessage> lent;
    };

  private:
    std::atomic<ReusableMessage*> spare{nullptr};
};

}  // namespace com_tesk
