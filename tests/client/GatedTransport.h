#pragma once

#include <condition_variable>
#include <mutex>

#include "tests/support/FakeTransport.h"

namespace com_tesk::test {

/// Where a client with a transport of these connects to: it never gets as far as the network.
constexpr unsigned int kAnyAddress = 0x0100007FU;

/// Lets nobody through until it is opened; a bound keeps a failing test from hanging.
class Gate {
  public:
    /// @return false when the bound has passed.
    bool pass() {
        std::unique_lock<std::mutex> lock(mutex);
        ++arrivals;
        changed.notify_all();
        return changed.wait_for(lock, kBound, [this] { return isOpen; });
    }

    void open() {
        const std::lock_guard<std::mutex> lock(mutex);
        isOpen = true;
        changed.notify_all();
    }

    /// Waits until somebody stands before the gate, or has passed it.
    bool waitForArrival() {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, kBound, [this] { return arrivals > 0; });
    }

  private:
    static constexpr std::chrono::seconds kBound{20};
    std::mutex mutex;
    std::condition_variable changed;
    bool isOpen = false;
    int arrivals = 0;
};

/// A transport whose reads hold the worker up until the test lets it go, as a host does that stalls in the middle of a
/// message.
class GatedTransport : public FakeTransport {
  public:
    explicit GatedTransport(Gate& readGate) : gate(readGate) {}

    int readMessage(unsigned int count, RawMessage& message) override {
        gate.pass();
        return FakeTransport::readMessage(count, message);
    }

  private:
    Gate& gate;
};

}  // namespace com_tesk::test
