#pragma once

#include <atomic>
#include <cstdint>

#include "session/WakePipe.h"

namespace com_tesk::session {

class OutputSlot;

/// The list of outputs with a staged value. Any thread adds, without a lock; the sending thread takes all.
class OutputStage {
  public:
    /// @param wakeOfSender  outlives this object. Signalled when an output is added while the sender is idle.
    explicit OutputStage(WakePipe& wakeOfSender) : wake(wakeOfSender) {}
    OutputStage(const OutputStage&) = delete;
    OutputStage& operator=(const OutputStage&) = delete;
    ~OutputStage() = default;

    /// Adds an output, which must not be in the list. Any thread. Never blocks.
    void add(OutputSlot& slot);

    /// Takes all outputs.
    /// @return the first that was added, or null. `OutputSlot::nextStaged` leads to the others.
    OutputSlot* takeAll();

    /// True when there is no output in the list.
    bool isEmpty() const { return newest == nullptr; }

    /// Tells the stage that its sender is about to wait.
    /// @return false when there is an output in the list; then the sender must not wait for a signal.
    bool beginIdle();
    /// Tells the stage that its sender looks at the list by itself.
    void endIdle() { isSenderIdle = false; }

  private:
    WakePipe& wake;
    std::atomic<OutputSlot*> newest{nullptr};
    std::atomic<bool> isSenderIdle{false};
};

}  // namespace com_tesk::session
