#pragma once

#include <ostream>
#include <vector>

#include "tests/cancellation/Scene.h"

namespace com_tesk::test {

/// How a scene is prepared for an operation.
enum class Situation {
    READY,           ///< Connected, everything confirmed.
    FAILING_WRITES,  ///< Connected; what the thread writes fails.
    HALVED_WRITES,   ///< Connected; the send buffer takes half of what the thread writes, then it is full for a while.
    CLOSED,          ///< Not opened.
    CONNECTING,      ///< Opened; the host refuses connections. With `OPTION_AUTO_RECONNECT` only.
};

/// One operation that an application thread is cancelled in.
struct SweptOperation {
    enum Effect {
        NONE,
        OPENS,   ///< Makes a connection.
        CLOSES,  ///< Ends the connection, also when it is cancelled.
        LOSES,   ///< Ends the connection, but with `OPTION_AUTO_RECONNECT` another follows.
    };

    const char* name;
    void (*operate)(Scene& scene);
    std::vector<Situation> situations;
    Effect effect = NONE;

    // What a failed test prints.
    friend void PrintTo(const SweptOperation& printed, std::ostream* stream) { *stream << printed.name; }
};

std::vector<SweptOperation> sweptOperations();

const char* nameOf(Situation situation);

}  // namespace com_tesk::test
