#pragma once

namespace com_tesk::csx {

/// The exit codes. 100 to 127 are those of an invalid command line.
enum ExitCode : int {
    DONE = 0,         ///< Done; or a condition held; or the user ended `watch`.
    NOT_REACHED = 1,  ///< A condition was not reached, or a check failed.
    NO_HOST = 2,      ///< Not reached, not a host, or closed at once; or a recording cannot be read.
    UNCONFIRMED = 3,  ///< The host has not confirmed some names in time.
    LOST = 4,         ///< The connection was lost after the host had answered.
    USAGE = 105,      ///< A value or a name is invalid. CLI11 uses the same number.
};

}  // namespace com_tesk::csx
