#pragma once

#include <functional>

namespace com_tesk::session {

class OutputSlot;
class InputSlot;
struct SampleReading;

/// What the handles of parameters ask of their session. Any thread.
class SlotOwner {
  public:
    virtual void withdraw(OutputSlot& slot) = 0;
    virtual void withdraw(InputSlot& slot) = 0;
    virtual void setCallback(InputSlot& slot, std::function<void(const SampleReading&)> callback) = 0;
    /// The maximum age of an input has changed.
    virtual void maxAgeChanged(InputSlot& slot) = 0;

  protected:
    ~SlotOwner() = default;
};

}  // namespace com_tesk::session
