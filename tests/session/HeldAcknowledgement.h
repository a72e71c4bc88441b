#pragma once

#include <atomic>

namespace com_tesk::session_test {

/// While it exists, the test decides when the peer's system has acknowledged everything: the system reports one
/// unacknowledged byte on every socket until `release`, and none from then on. At most one exists at a time.
///
/// It replaces `ioctl` for SIOCOUTQ in this program.
class HeldAcknowledgement {
  public:
    HeldAcknowledgement();
    HeldAcknowledgement(const HeldAcknowledgement&) = delete;
    HeldAcknowledgement& operator=(const HeldAcknowledgement&) = delete;
    /// The system reports its own numbers again.
    ~HeldAcknowledgement();

    /// Reports from now on that everything is acknowledged. Any thread.
    void release() { unacknowledged = 0; }

    /// Returns how often the number was queried. Any thread.
    int queries() const { return queryCount; }

    /// Counts a query, and returns its result.
    int query() {
        ++queryCount;
        return unacknowledged;
    }

  private:
    std::atomic<int> unacknowledged{1};
    std::atomic<int> queryCount{0};
};

}  // namespace com_tesk::session_test
