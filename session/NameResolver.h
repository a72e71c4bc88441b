#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "session/WakePipe.h"

namespace com_tesk::session {

/// Finds the IPv4 address of a host. The system's look-up cannot be ended, and takes many seconds when no name server
/// answers. So it runs on a thread of its own, which the session does not wait for. One at a time runs.
///
/// The session's thread calls all operations.
class NameResolver {
  public:
    /// @param wakeOfSession  signalled when the look-up is complete. It lives as long as the look-up.
    NameResolver(std::string hostName, std::shared_ptr<WakePipe> wakeOfSession);
    NameResolver(const NameResolver&) = delete;
    NameResolver& operator=(const NameResolver&) = delete;
    /// Leaves a look-up in progress to its thread.
    ~NameResolver();

    /// Begins a look-up, unless one is in progress. A dotted address needs none.
    /// @throw std::system_error  no thread could be started.
    void begin();

    /// The result of the last `begin`.
    struct Result {
        bool isComplete = false;
        std::uint32_t address = 0;  ///< In network order.
        int error = 0;              ///< Of `getaddrinfo`.
    };
    Result result() const;

  private:
    struct Lookup;

    const std::string name;
    const std::shared_ptr<WakePipe> wake;
    std::uint32_t literal = 0;
    bool isLiteral = false;
    std::shared_ptr<Lookup> lookup;
};

}  // namespace com_tesk::session
