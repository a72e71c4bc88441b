#pragma once

#include <string_view>
#include <utility>

#include "session/Session.h"

namespace com_tesk::session {

/// The log of a session. Any thread.
class Log {
  public:
    explicit Log(Session::LogFunction logFunction) : function(std::move(logFunction)) {}

    /// Passes a line to the application's function. Without one, warnings and faults go to standard error.
    void write(Session::Level level, std::string_view text) const;

  private:
    const Session::LogFunction function;
};

}  // namespace com_tesk::session
