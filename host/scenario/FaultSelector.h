#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "host/scenario/Actions.h"
#include "host/scenario/FrameEditor.h"
#include "host/scenario/Trigger.h"

namespace com_tesk::scenario {

/// An action that happens when its trigger does.
struct Fault {
    Trigger trigger;
    Action action;
};

/// An occasion on which faults can act.
struct Occasion {
    Trigger::Moment moment = Trigger::Moment::SEND;
    unsigned connection = 0;
    Message message = Message::ANY;
    std::vector<Record> records;  ///< With their names, also when the message has only ids.
};

/// Decides which faults act, and counts the occasions of each. One thread at a time.
class FaultSelector {
  public:
    FaultSelector(std::vector<Fault> allFaults, std::uint64_t seed);

    struct Choice {
        const Action* action;  ///< Valid as long as the selector.
        Selected selected;     ///< The records that the trigger names: all without a name.
    };
    /// Returns the faults that act, in the order of the scenario.
    std::vector<Choice> choose(const Occasion& occasion);

    /// Returns so many random bytes.
    Bytes randomBytes(std::size_t size);

  private:
    bool isDue(std::size_t index);

    const std::vector<Fault> faults;
    std::vector<std::uint64_t> occasions;  // of each fault so far
    std::mt19937_64 random;
};

}  // namespace com_tesk::scenario
