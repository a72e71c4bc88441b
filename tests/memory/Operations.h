#pragma once

#include <ostream>
#include <vector>

#include "tests/memory/Scene.h"

namespace com_tesk::test {

constexpr unsigned int kNoOptions = 0;
constexpr unsigned int kReconnect = CSClient::OPTION_AUTO_RECONNECT;

/// One operation that is let run out of memory, and what may come of it.
///
/// `operate` itself allocates nothing. After it either everything is as if memory had sufficed, or nothing has
/// happened, or one of the states that `leave` makes has come about; and once there is memory again, `recover` and then
/// `operate` lead to where they lead when memory never lacked.
struct Operation {
    enum Needs { MEMORY, NO_MEMORY };

    /// As part of a test's name.
    const char* name;
    Needs needs;
    unsigned int options;
    /// Brings a new scene to where the operation begins.
    void (*prepare)(Scene& scene);
    /// @return whether it claims success.
    bool (*operate)(Scene& scene);
    /// Brings a prepared scene into the `number`th state that the operation may leave behind, beside those before and
    /// after it; false when there is none of that number. May be null.
    bool (*leave)(Scene& scene, unsigned int number);
    /// What comes before another try. May be null.
    void (*recover)(Scene& scene);
};

inline void PrintTo(const Operation& operation, std::ostream* stream) {
    *stream << operation.name;
}

/// What the application calls to change the tables.
std::vector<Operation> parameterOperations();

/// What the worker does.
std::vector<Operation> workerOperations();

/// Everything else: construction, callback interfaces, queries, messages, opening and closing.
std::vector<Operation> otherOperations();

}  // namespace com_tesk::test
